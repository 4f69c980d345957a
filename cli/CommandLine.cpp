#include "cli/CommandLine.h"

#include <cmath>
#include <cstdlib>
#include <sstream>

#include "cli/AudioFile.h"

namespace kelm {
namespace cli {

namespace {

float parseFloat(const std::string& text, const std::string& what) {
    char* end = nullptr;
    float v = std::strtof(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(v)) throw UsageError("bad number for " + what + ": '" + text + "'");
    return v;
}

} // namespace

Options parseCommandLine(int argc, char** argv) {
    if (argc < 2) throw UsageError("no command given");
    Options o;
    o.command = argv[1];
    if (o.command == "-h" || o.command == "--help" || o.command == "help") {
        o.command = "help";
        return o;
    }
    if (o.command == "--version" || o.command == "version") {
        o.command = "version";
        return o;
    }
    if (o.command != "render" && o.command != "info" && o.command != "tables" && o.command != "signal" &&
        o.command != "plot" && o.command != "import")
        throw UsageError("unknown command '" + o.command + "'");
    int first = 2;
    if (o.command == "plot") {
        if (argc < 3 || argv[2][0] == '-') throw UsageError(std::string("plot needs a kind: ") + Plot::kKinds);
        o.plot.kind = argv[2];
        if (!Plot::isKind(o.plot.kind))
            throw UsageError("unknown plot kind '" + o.plot.kind + "' (kinds: " + Plot::kKinds + ")");
        first = 3;
    }
    if (o.command == "import") {
        if (argc < 3 || argv[2][0] == '-') throw UsageError("import needs a netlist: kelm import CIRCUIT.cir");
        o.netlist = argv[2];
        first = 3;
    }
    auto size = [](const std::string& t, const char* what) {
        char* end = nullptr;
        long n = std::strtol(t.c_str(), &end, 10);
        if (t.empty() || *end != '\0' || n < 100 || n > 8000)
            throw UsageError(std::string("bad ") + what + " '" + t + "' (100 to 8000 pixels)");
        return static_cast<int>(n);
    };
    for (int i = first; i < argc; ++i) {
        std::string a = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) throw UsageError("option " + a + " needs a value");
            return argv[++i];
        };
        if (a == "--system")
            o.system = value();
        else if (a == "--in")
            o.in = value();
        else if (a == "--out")
            o.out = value();
        else if (a == "--block") {
            std::string t = value();
            char* end = nullptr;
            long n = std::strtol(t.c_str(), &end, 10);
            if (t.empty() || *end != '\0' || n < 1 || n > 1 << 20) throw UsageError("bad block size '" + t + "'");
            o.block = static_cast<int>(n);
        } else if (a == "--seconds") {
            std::string t = value();
            o.seconds = parseFloat(t, "--seconds");
            if (!(o.seconds > 0 && o.seconds <= 3600)) throw UsageError("bad duration '" + t + "'");
        } else if (a == "--rate") {
            std::string t = value();
            float r = parseFloat(t, "--rate");
            if (!(r >= 8000 && r <= 768000)) throw UsageError("bad sample rate '" + t + "'");
            o.rate = static_cast<int>(r);
        } else if (a == "--input" && o.command == "import") {
            o.inputs.push_back(value());
        } else if (a == "--output" && o.command == "import") {
            o.outputs.push_back(value());
        } else if (a == "--set") {
            std::string t = value();
            size_t eq = t.find('=');
            if (eq == std::string::npos || eq == 0) throw UsageError("--set needs NAME=VALUE, got '" + t + "'");
            o.sets.emplace_back(t.substr(0, eq), parseFloat(t.substr(eq + 1), t.substr(0, eq)));
        } else if (a == "--format") {
            o.format = value();
            try {
                outputFormat("", o.format);
            } catch (const std::invalid_argument& e) {
                throw UsageError(e.what());
            }
        } else if (a == "--sweep" && o.command == "plot") {
            std::string t = value();
            size_t eq = t.find('=');
            if (eq == std::string::npos || eq == 0 || eq + 1 == t.size())
                throw UsageError("--sweep needs NAME=V1,V2,..., got '" + t + "'");
            o.plot.sweepName = t.substr(0, eq);
            std::stringstream list(t.substr(eq + 1));
            std::string item;
            while (std::getline(list, item, ',')) {
                float v = parseFloat(item, "--sweep " + o.plot.sweepName);
                if (!(v >= 0 && v <= 1))
                    throw UsageError("sweep value " + item + " for " + o.plot.sweepName + " is outside 0 to 1");
                o.plot.sweepValues.push_back(v);
            }
            if (o.plot.sweepValues.empty() || o.plot.sweepValues.size() > 8)
                throw UsageError("--sweep takes 1 to 8 values");
        } else if (a == "--width" && o.command == "plot") {
            o.plot.width = size(value(), "width");
        } else if (a == "--height" && o.command == "plot") {
            o.plot.height = size(value(), "height");
        } else if (a == "--level" && o.command == "plot") {
            std::string t = value();
            o.plot.level = parseFloat(t, "--level");
            if (!(o.plot.level > 0 && o.plot.level <= 100)) throw UsageError("bad level '" + t + "'");
        } else if (a == "--progress" && o.command == "render") {
            o.progress = true;
        } else if (a == "--csv" && o.command == "plot") {
            o.plot.csv = value();
        } else if (a == "-h" || a == "--help") {
            o.command = "help";
            return o;
        } else
            throw UsageError("unknown option '" + a + "'");
    }
    if (o.command == "render" && (o.in.empty() || o.out.empty())) throw UsageError("render needs --in and --out");
    if (o.command == "signal" && o.out.empty()) throw UsageError("signal needs --out");
    if (o.command == "tables" && o.out.empty()) throw UsageError("tables needs --out DIR");
    if (o.command == "plot") {
        if (o.out.empty()) throw UsageError("plot needs --out CHART.png");
        if (!o.plot.in.empty() || !o.in.empty()) {
            if (o.plot.kind != "spectrum") throw UsageError("--in goes with plot spectrum only");
            if (!o.plot.sweepValues.empty()) throw UsageError("--sweep measures the system: not with --in");
        }
        o.plot.in = o.in;
        o.plot.out = o.out;
        o.plot.sets = o.sets;
        o.plot.rate = o.rate;
        o.plot.source = o.system.empty() ? "the built-in preamp" : o.system;
        const size_t slash = o.plot.source.rfind('/');
        if (slash != std::string::npos) o.plot.source = o.plot.source.substr(slash + 1);
    }
    return o;
}

} // namespace cli
} // namespace kelm
