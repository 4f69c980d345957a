// kelm: renders audio files through a system description or the built-in preamp.
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

#include "cli/AudioFile.h"
#include "cli/CommandLine.h"
#include "cli/Renderer.h"
#include "cli/TestSignal.h"
#include "engine/KELMException.h"

using namespace kelm;
using kelm::cli::Options;
using kelm::cli::UsageError;

namespace {

const char* kUsage =
    "usage:\n"
    "  kelm render [--system FILE.xml] --in IN.wav --out OUT.wav [--set NAME=VALUE]... [--block N]\n"
    "  kelm info [--system FILE.xml]\n"
    "  kelm tables --out DIR\n"
    "  kelm signal --out OUT.wav [--seconds S] [--rate HZ]   (a musical test signal)\n"
    "\n"
    "Without --system the built-in preamp is used; its parameters take values from 0 to 1.\n";

std::string readFile(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    if (!f) throw std::runtime_error("cannot read system description " + path);
    std::ostringstream s;
    s << f.rdbuf();
    return s.str();
}

std::unique_ptr<cli::Renderer> makeRenderer(const Options& o) {
    if (o.system.empty()) return cli::makeBuiltInRenderer();
    return cli::makeSystemRenderer(readFile(o.system));
}

int render(const Options& o) {
    cli::AudioReader reader(o.in);
    auto renderer = makeRenderer(o);
    for (auto& s : o.sets) renderer->setParameter(s.first, s.second);
    renderer->prepare(static_cast<float>(reader.sampleRate()), o.block);

    const int inChannels = reader.channels();
    const int systemInputs = renderer->numberOfInputs();
    const int outChannels = renderer->numberOfOutputs();
    if (outChannels < 1) throw std::runtime_error("the system has no outputs");
    cli::AudioWriter writer(o.out, outChannels, reader.sampleRate());

    std::vector<float> interleavedIn(static_cast<size_t>(o.block) * inChannels);
    std::vector<std::vector<float>> channelIn(std::max(systemInputs, 1), std::vector<float>(o.block));
    std::vector<float*> inputs(systemInputs);
    std::vector<float> interleavedOut(static_cast<size_t>(o.block) * outChannels);
    const bool tty = isatty(2);
    const long long total = reader.frames();
    long long done = 0;
    int lastPercent = -1;
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
            int percent = static_cast<int>(100 * done / total);
            if (percent != lastPercent) {
                std::fprintf(stderr, "\rrendering %3d%%", percent);
                lastPercent = percent;
            }
        }
    }
    if (tty && total > 0) std::fprintf(stderr, "\n");
    writer.commit();
    std::printf("rendered %lld frames at %d Hz: %d input channel(s) -> %d output channel(s), blocks of %d, to %s\n",
                done, reader.sampleRate(), inChannels, outChannels, o.block, o.out.c_str());
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
        if (o.command == "info") {
            auto r = makeRenderer(o);
            r->describe(std::cout);
            return 0;
        }
        if (o.command == "tables") return cli::writeTables(o.out);
        if (o.command == "signal") {
            cli::writeWav(o.out, cli::musicalTestSignal(o.seconds, o.rate), 1, o.rate);
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
