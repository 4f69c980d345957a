#pragma once
// Helpers shared by the test suites.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sndfile.h>

#include "dsp/DSPContext.h"
#include "engine/Driver.h"
#include "engine/KELMException.h"

namespace kelm {
namespace test {

inline std::string sourcePath(const std::string& relative) { return std::string(KELM_SOURCE_DIR) + "/" + relative; }

inline std::string readText(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    std::ostringstream s;
    s << f.rdbuf();
    return s.str();
}

// Runs f and returns the message of the KELMException it throws ("" if none).
inline std::string messageOf(const std::function<void()>& f) {
    try {
        f();
    } catch (const KELMException& e) {
        return e.message();
    }
    return "";
}

inline std::shared_ptr<Driver> makeDriver(const std::string& doc, float rate = 48000, int block = 64) {
    auto d = std::make_shared<Driver>();
    d->init(doc);
    d->setSampleRate(rate);
    d->setMaxBlockSize(block);
    return d;
}

// Wraps graph XML into a System document with the given outputs and controls.
inline std::string systemDoc(const std::string& graphs, const std::string& outputs,
                             const std::string& controls = "") {
    return "<System><Graphs>" + graphs + "</Graphs><Outputs>" + outputs + "</Outputs>" +
           (controls.empty() ? "" : "<Controls>" + controls + "</Controls>") + "</System>";
}

// A circuit element of a system description, with its properties (attribute text) and nodes.
inline std::string element(const std::string& type, const std::string& name, const std::string& props,
                           std::initializer_list<const char*> nodes) {
    std::string s = "<Element Type=\"" + type + "\" Name=\"" + name + "\">";
    if (!props.empty()) s += "<Properties " + props + "/>";
    for (const char* n : nodes) s += std::string("<Node Name=\"") + n + "\"/>";
    return s + "</Element>";
}

inline void writeWav(const std::string& path, const std::vector<float>& interleaved, int channels, int rate,
                     int format = SF_FORMAT_WAV | SF_FORMAT_FLOAT) {
    SF_INFO info{};
    info.channels = channels;
    info.samplerate = rate;
    info.format = format;
    SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(nullptr, f) << sf_strerror(nullptr);
    sf_writef_float(f, interleaved.data(), interleaved.size() / channels);
    sf_close(f);
}

inline std::vector<float> readWav(const std::string& path, int* channels = nullptr, int* rate = nullptr) {
    SF_INFO info{};
    SNDFILE* f = sf_open(path.c_str(), SFM_READ, &info);
    if (!f) return {};
    std::vector<float> data(static_cast<size_t>(info.frames) * info.channels);
    sf_readf_float(f, data.data(), info.frames);
    sf_close(f);
    if (channels) *channels = info.channels;
    if (rate) *rate = info.samplerate;
    return data;
}

struct CommandResult {
    int status;
    std::string output;  // stdout and stderr together
};

inline CommandResult run(const std::string& command) {
    std::string full = command + " 2>&1";
    FILE* p = popen(full.c_str(), "r");
    std::string out;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
    int status = pclose(p);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

// The dynamic symbols a shared object defines, sorted, absolute ones (version nodes) aside;
// with `functionsOnly`, its functions alone.
inline std::vector<std::string> exportedSymbols(const std::string& path, bool functionsOnly = false) {
    const CommandResult r = run("nm -D --defined-only " + path);
    EXPECT_EQ(0, r.status) << r.output;
    std::istringstream lines(r.output);
    std::vector<std::string> names;
    std::string address, type, name;
    while (lines >> address >> type >> name)
        if (type != "A" && (!functionsOnly || type == "T" || type == "t" || type == "W" || type == "i"))
            names.push_back(name);
    std::sort(names.begin(), names.end());
    return names;
}

// Whether a shared object needs the shared C++ runtime (ours carry their own).
inline bool needsSharedLibstdcxx(const std::string& path) {
    return run("readelf -d " + path + " | grep NEEDED").output.find("libstdc++") != std::string::npos;
}

// Sanitized builds: their plug-ins carry no runtime of their own, and the outside tools
// (the LV2 tools, lilv) cannot load them.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitizedBuild = true;
#else
constexpr bool kSanitizedBuild = false;
#endif
#define KELM_SKIP_IN_SANITIZED_BUILD() \
    if (kelm::test::kSanitizedBuild) GTEST_SKIP() << "sanitized build: outside tools cannot load its plug-ins"

// A filter initialised from properties with its block size set. Filters keep a plain
// pointer to their context, so the contexts made here live to the end of the run.
template <typename T>
std::unique_ptr<T> makeFilter(const PropertyMap& p, int block = 64) {
    static std::vector<std::shared_ptr<DSPContext>> contexts;
    contexts.push_back(std::make_shared<DSPContext>());
    std::unique_ptr<T> f(new T());
    f->init("f", std::make_shared<PropertyMap>(p), contexts.back());
    if (block > 0) f->setMaxBlockSize(block);
    return f;
}

// The largest difference of y from reference, relative to the reference's peak.
inline double relativeError(const std::vector<float>& reference, const std::vector<float>& y) {
    double peak = 0, worst = 0;
    for (size_t i = 0; i < reference.size() && i < y.size(); ++i) {
        peak = std::max(peak, std::fabs(static_cast<double>(reference[i])));
        worst = std::max(worst, std::fabs(static_cast<double>(reference[i]) - y[i]));
    }
    return peak > 0 ? worst / peak : worst;
}

// n samples of uniform noise in [-1, 1) from a fixed seed.
inline std::vector<float> noise(size_t n, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> u(-1, 1);
    std::vector<float> x(n);
    for (float& v : x) v = u(rng);
    return x;
}

inline std::string tempPath(const std::string& name) {
    return std::string("/tmp/kelm_test_") + std::to_string(getpid()) + "_" + name;
}

} // namespace test
} // namespace kelm
