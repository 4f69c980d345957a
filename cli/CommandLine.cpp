#include "cli/CommandLine.h"

#include <cmath>
#include <cstdlib>

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
    if (o.command != "render" && o.command != "info" && o.command != "tables" && o.command != "signal")
        throw UsageError("unknown command '" + o.command + "'");
    for (int i = 2; i < argc; ++i) {
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
        } else if (a == "--set") {
            std::string t = value();
            size_t eq = t.find('=');
            if (eq == std::string::npos || eq == 0) throw UsageError("--set needs NAME=VALUE, got '" + t + "'");
            o.sets.emplace_back(t.substr(0, eq), parseFloat(t.substr(eq + 1), t.substr(0, eq)));
        } else if (a == "-h" || a == "--help") {
            o.command = "help";
            return o;
        } else
            throw UsageError("unknown option '" + a + "'");
    }
    if (o.command == "render" && (o.in.empty() || o.out.empty())) throw UsageError("render needs --in and --out");
    if (o.command == "signal" && o.out.empty()) throw UsageError("signal needs --out");
    if (o.command == "tables" && o.out.empty()) throw UsageError("tables needs --out DIR");
    return o;
}

} // namespace cli
} // namespace kelm
