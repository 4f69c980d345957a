// kelm: renders audio files through a system description or the built-in preamp, and
// charts what a system does.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

#include <cairo.h>

#include "cli/AudioFile.h"
#include "cli/Chart.h"
#include "cli/CommandLine.h"
#include "cli/Plot.h"
#include "cli/Renderer.h"
#include "cli/TestSignal.h"
#include "engine/KELMException.h"
#include "netlist/NetlistImporter.h"
#include "netlist/SystemDescription.h"

using namespace kelm;

using kelm::cli::Options;
using kelm::cli::UsageError;

namespace {

const char* kVersion = "1.0.80";  // the plug-ins' vendor version 1080

const char* kUsage =
    "usage:\n"
    "  kelm import CIRCUIT.cir [--out SYSTEM.xml] [--input NAME]... [--output NODE]... [--rate HZ]\n"
    "  kelm render [--system FILE.xml] --in IN.wav --out OUT.wav [--set NAME=VALUE]... [--block N]\n"
    "              [--format float|pcm16|pcm24|flac|flac16] [--progress]\n"
    "  kelm plot response|curve|spectrum [--system FILE.xml] --out CHART.png [--set NAME=VALUE]...\n"
    "              [--sweep NAME=V1,V2,...] [--width W] [--height H] [--rate HZ] [--level A]\n"
    "              [--in FILE (spectrum of a file)] [--csv DATA.csv]\n"
    "  kelm info [--system FILE.xml] [--set NAME=VALUE]... [--rate HZ]\n"
    "  kelm tables --out DIR\n"
    "  kelm signal --out OUT.wav [--seconds S] [--rate HZ] [--format ...]   (a musical test signal)\n"
    "  kelm --version\n"
    "\n"
    "Without --system the built-in preamp is used; its parameters take values from 0 to 1.\n"
    "--system also takes a SPICE netlist (.cir .net .sp .spice, or any file that is not XML): it is\n"
    "imported for the rate it runs at, as kelm import does (see the README for its conventions).\n"
    "import writes the netlist's system description to --out, else to the standard output.\n"
    "The output format follows --format, else the name (.flac: 24-bit FLAC), else 32-bit float WAV.\n"
    "render shows its progress on a terminal once it has taken two seconds; --progress shows it from the start.\n"
    "plot response: small-signal gain and phase from stepped sines of amplitude A (default 0.01);\n"
    "plot curve: output against input for sines near 1 kHz up to A (default 1) and their harmonics;\n"
    "plot spectrum: of --in FILE, or of a sine of amplitude A (default 0.5) through the system.\n";

std::string readFile(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    if (!f) throw std::runtime_error("cannot read system description " + path);
    std::ostringstream s;
    s << f.rdbuf();
    return s.str();
}

// The system of --system at the given rate (a netlist is imported for it), or the built-in preamp.
std::unique_ptr<cli::Renderer> makeRenderer(const Options& o, double rate) {
    if (o.system.empty()) return cli::makeBuiltInRenderer();
    return cli::makeSystemRenderer(systemDescription(readFile(o.system), o.system, rate));
}

int import(const Options& o) {
    std::string text;
    if (!NetlistImporter::readFromDisk(o.netlist, text)) throw std::runtime_error("cannot read netlist " + o.netlist);
    NetlistImporter::Options options;
    options.inputs = o.inputs;
    options.outputs = o.outputs;
    options.rate = o.rate;
    const NetlistImporter::Result r = NetlistImporter(options).import(text, o.netlist);
    for (const std::string& m : r.messages) std::fprintf(stderr, "%s\n", m.c_str());
    if (o.out.empty()) {
        std::fputs(r.document.c_str(), stdout);
        return 0;
    }
    std::ofstream f(o.out, std::ios::binary);
    f << r.document;
    f.close();
    if (!f) throw std::runtime_error("cannot write " + o.out);
    std::fprintf(stderr, "wrote %s\n", o.out.c_str());
    return 0;
}

int render(const Options& o) {
    cli::AudioReader reader(o.in);
    auto renderer = makeRenderer(o, reader.sampleRate());
    for (auto& s : o.sets) renderer->setParameter(s.first, s.second);
    renderer->prepare(static_cast<float>(reader.sampleRate()), o.block);

    const int inChannels = reader.channels();
    const int systemInputs = renderer->numberOfInputs();
    const int outChannels = renderer->numberOfOutputs();
    if (outChannels < 1) throw std::runtime_error("the system has no outputs");
    cli::AudioWriter writer(o.out, outChannels, reader.sampleRate(), cli::outputFormat(o.out, o.format));

    std::vector<float> interleavedIn(static_cast<size_t>(o.block) * inChannels);
    std::vector<std::vector<float>> channelIn(std::max(systemInputs, 1), std::vector<float>(o.block));
    std::vector<float*> inputs(systemInputs);
    std::vector<float> interleavedOut(static_cast<size_t>(o.block) * outChannels);
    // A progress line on a terminal once a render has taken more than two seconds; from the start with --progress.
    const bool tty = isatty(2) || o.progress;
    const double progressAfter = o.progress ? 0.0 : 2.0;
    const long long total = reader.frames();
    const double rate = reader.sampleRate();
    long long done = 0;
    bool progressShown = false;
    typedef std::chrono::steady_clock Clock;
    const Clock::time_point start = Clock::now();
    Clock::time_point lastShown = start;
    auto seconds = [](Clock::duration d) { return std::chrono::duration<double>(d).count(); };
    for (;;) {
        long long n = reader.read(interleavedIn.data(), o.block);
        if (n <= 0) break;
        for (int k = 0; k < systemInputs; ++k) {
            int c = std::min(k, inChannels - 1);
            if (c < k) {  // this channel is already read: share it, as a host with fewer channels does
                inputs[k] = inputs[c];
                continue;
            }
            for (long long i = 0; i < n; ++i) channelIn[k][i] = interleavedIn[i * inChannels + c];
            inputs[k] = channelIn[k].data();
        }
        const std::vector<float*>& outs = renderer->process(inputs, static_cast<size_t>(n));
        for (int c = 0; c < outChannels; ++c)
            for (long long i = 0; i < n; ++i) interleavedOut[i * outChannels + c] = outs[c] ? outs[c][i] : 0.0f;
        writer.write(interleavedOut.data(), n);
        done += n;
        if (tty && total > 0) {
            const Clock::time_point now = Clock::now();
            if (seconds(now - start) >= progressAfter && (!progressShown || seconds(now - lastShown) > 0.25)) {
                const double elapsed = seconds(now - start);
                std::fprintf(stderr, "\rrendering %3d%%  %.1f of %.1f s  %.1fx real time ",
                             static_cast<int>(100 * done / total), done / rate, total / rate, done / rate / elapsed);
                progressShown = true;
                lastShown = now;
            }
        }
    }
    if (progressShown) std::fprintf(stderr, "\n");
    writer.commit();
    const double elapsed = std::max(seconds(Clock::now() - start), 1e-9);
    std::printf("rendered %lld frames at %d Hz: %d input channel(s) -> %d output channel(s), blocks of %d, to %s\n"
                "%.2f s of audio in %.2f s: %.1fx real time\n",
                done, reader.sampleRate(), inChannels, outChannels, o.block, o.out.c_str(), done / rate, elapsed,
                done / rate / elapsed);
    return 0;
}

// Describes the system with the given control values in force: one block of silence
// delivers them, so that the rates shown are those a render would run at.
int info(const Options& o) {
    auto r = makeRenderer(o, o.rate);
    for (auto& s : o.sets) r->setParameter(s.first, s.second);
    r->prepare(static_cast<float>(o.rate), o.block);
    std::vector<float> silence(o.block, 0.0f);
    std::vector<float*> inputs(std::max(r->numberOfInputs(), 0), silence.data());
    r->process(inputs, o.block);
    std::cout << "At " << o.rate << " Hz, blocks of " << o.block << " frames; rates as multiples of it:\n";
    r->describe(std::cout);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    Options o;
    try {
        o = cli::parseCommandLine(argc, argv);
        if (o.command == "help") {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (o.command == "render") return render(o);
        if (o.command == "version") {
            std::printf("kelm %s (%s, cairo %s)\n", kVersion, sf_version_string(), cairo_version_string());
            return 0;
        }
        if (o.command == "info") return info(o);
        if (o.command == "import") return import(o);
        if (o.command == "plot") {
            // A netlist is imported for the rate the chart measures at (a file's own for --in).
            double rate = o.plot.rate;
            if (!o.plot.in.empty()) rate = cli::AudioReader(o.plot.in).sampleRate();
            const int status = cli::Plot::run(o.plot, [&] { return makeRenderer(o, rate); });
            cli::Chart::releaseFontCaches();
            return status;
        }
        if (o.command == "tables") return cli::writeTables(o.out);
        if (o.command == "signal") {
            cli::writeWav(o.out, cli::musicalTestSignal(o.seconds, o.rate), 1, o.rate, cli::outputFormat(o.out, o.format));
            std::printf("wrote %.2f s of plucked-string arpeggios at %d Hz to %s\n", o.seconds, o.rate, o.out.c_str());
            return 0;
        }
    } catch (const UsageError& e) {
        std::fprintf(stderr, "kelm: %s\n%s", e.what(), kUsage);
        return 2;
    } catch (const KELMException& e) {
        std::fprintf(stderr, "kelm: %s\n", e.message().c_str());
        return 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "kelm: %s\n", e.what());
        return 1;
    }
    return 0;
}
