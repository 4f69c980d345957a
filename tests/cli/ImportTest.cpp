// kelm import, and netlists given to render, plot and info in place of a system description.
#include <fstream>
#include <map>

#include "tests/TestUtil.h"

using namespace kelm::test;

namespace {

std::string kelmTool() { return KELM_CLI_PATH; }
std::string stack() { return sourcePath("tests/data/netlist/tonestack.cir"); }

void writeText(const std::string& path, const std::string& text) {
    std::ofstream f(path, std::ios::binary);
    f << text;
}

// The magnitude lines of a chart's CSV data at the frequency nearest f, by line label.
std::map<std::string, double> magnitudesNear(const std::string& csv, double f) {
    std::map<std::string, double> found, distance;
    std::ifstream in(csv);
    std::string line;
    while (std::getline(in, line)) {
        if (line.compare(0, 12, "\"Magnitude\",") != 0) continue;
        const size_t a = line.find('"', 13), b = line.find(',', a + 1), c = line.find(',', b + 1);
        const std::string label = line.substr(13, a - 13);
        const double x = std::stod(line.substr(b + 1, c - b - 1)), y = std::stod(line.substr(c + 1));
        if (!distance.count(label) || std::fabs(std::log(x / f)) < distance[label]) {
            distance[label] = std::fabs(std::log(x / f));
            found[label] = y;
        }
    }
    return found;
}

} // namespace

TEST(CliImport, WritesTheDescriptionThatRendersAsTheNetlistAndAsNgspice) {
    const std::string xml = tempPath("stack.xml"), in = tempPath("in.wav"), a = tempPath("a.wav"), b = tempPath("b.wav");
    auto r = run(kelmTool() + " import " + stack() + " --out " + xml);
    ASSERT_EQ(0, r.status) << r.output;
    const std::string doc = readText(xml);
    EXPECT_NE(std::string::npos, doc.find("<Control Name=\"Treble\""));
    // The sine of the stored ngspice run (tonestack-1k.ref: 1 V at 1 kHz on ngspice's grid,
    // 0.28 of a sample late), rendered through the file and through the netlist itself.
    const double offset = 0.28;
    const size_t first = 18960, frames = first + 240;
    std::vector<float> x(frames);
    for (size_t n = 0; n < frames; ++n) x[n] = static_cast<float>(std::sin(2 * M_PI * 1000 * (n + offset) / 48000));
    writeWav(in, x, 1, 48000);
    for (const auto& out : {std::make_pair(xml, a), std::make_pair(stack(), b)}) {
        r = run(kelmTool() + " render --system " + out.first + " --in " + in + " --out " + out.second);
        ASSERT_EQ(0, r.status) << r.output;
    }
    const auto ya = readWav(a), yb = readWav(b);
    ASSERT_EQ(frames, ya.size());
    EXPECT_EQ(ya, yb);
    std::ifstream ref(sourcePath("tests/data/netlist/tonestack-1k.ref"));
    std::string line;
    std::vector<double> spice;
    while (std::getline(ref, line))
        if (!line.empty() && (std::isdigit(static_cast<unsigned char>(line[0])) || line[0] == '-'))
            spice.push_back(std::stod(line));
    ASSERT_EQ(240u, spice.size());
    double worst = 0;
    for (size_t k = 0; k < spice.size(); ++k) worst = std::max(worst, std::fabs(ya[first + k] - spice[k]));
    EXPECT_LT(worst, 1e-4);  // of a swing of 0.46 V
    // The same through --input and --output, to the standard output.
    r = run(kelmTool() + " import " + stack() + " --input vin --output 'v(lo)' --rate 96000");
    ASSERT_EQ(0, r.status) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("<Output Graph=\"Circuit\" Node=\"lo\"/>"));
    EXPECT_NE(std::string::npos, r.output.find("Made for 96000 Hz"));
    for (const auto& p : {xml, in, a, b}) std::remove(p.c_str());
}

TEST(CliImport, PlotAndInfoTakeTheNetlistWithItsPotsAsControls) {
    const std::string png = tempPath("stack.png"), csv = tempPath("stack.csv");
    auto r = run(kelmTool() + " plot response --system " + stack() + " --sweep Treble=0,0.5,1 --out " + png +
                 " --csv " + csv);
    ASSERT_EQ(0, r.status) << r.output;
    EXPECT_EQ("\x89PNG", readText(png).substr(0, 4));
    // The treble pot lifts the top and leaves the bass alone.
    const auto top = magnitudesNear(csv, 10000), bottom = magnitudesNear(csv, 40);
    ASSERT_EQ(3u, top.size());
    EXPECT_GT(top.at("Treble=1"), top.at("Treble=0.5") + 3);
    EXPECT_GT(top.at("Treble=0.5"), top.at("Treble=0") + 3);
    EXPECT_NEAR(bottom.at("Treble=1"), bottom.at("Treble=0"), 2.5);
    r = run(kelmTool() + " info --system " + stack() + " --set Bass=0.9");
    ASSERT_EQ(0, r.status) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("Middle")) << r.output;
    std::remove(png.c_str());
    std::remove(csv.c_str());
}

TEST(CliImport, NotesAndErrorsNameTheLine) {
    const std::string cir = tempPath("x.cir");
    writeText(cir, "schematic values\nVin in 0 0\nR1 in out 2k2\nC1 out 0 4u7\n.print tran v(out)\n");
    auto r = run(kelmTool() + " import " + cir + " --out /dev/null");
    ASSERT_EQ(0, r.status) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("x.cir:3: 2k2 read as 2200")) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("x.cir:4: 4u7 read as 4.7e-06")) << r.output;
    writeText(cir, "bad\nVin in 0 0\nR1 in out 1k\nB1 out 0 V=1\n");
    r = run(kelmTool() + " import " + cir);
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.output.find("x.cir:4: B1: behavioural sources")) << r.output;
    r = run(kelmTool() + " render --system " + cir + " --in x.wav --out y.wav");
    EXPECT_EQ(1, r.status);
    r = run(kelmTool() + " import");
    EXPECT_EQ(2, r.status);
    r = run(kelmTool() + " import " + tempPath("missing.cir"));
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.output.find("cannot read netlist")) << r.output;
    std::remove(cir.c_str());
}
