#include "cli/TestSignal.h"

#include <cmath>
#include <cstdint>

namespace kelm {
namespace cli {

std::vector<float> musicalTestSignal(double seconds, int sampleRate) {
    const size_t total = static_cast<size_t>(seconds * sampleRate);
    std::vector<double> mix(total, 0.0);
    // E minor, C major, G major, D major arpeggios (MIDI note numbers).
    const int chords[4][4] = {{40, 47, 52, 55}, {48, 52, 55, 60}, {43, 47, 50, 55}, {50, 54, 57, 62}};
    const double noteLength = 0.25;
    uint32_t seed = 12345;
    auto noise = [&seed]() {
        seed = seed * 1664525u + 1013904223u;
        return static_cast<double>(seed) / 2147483648.0 - 1.0;
    };
    size_t note = 0;
    for (double t = 0; t < seconds; t += noteLength, ++note) {
        const int midi = chords[(note / 8) % 4][note % 4] + (note % 8 >= 4 ? 12 : 0);
        const double freq = 440.0 * std::pow(2.0, (midi - 69) / 12.0);
        const size_t period = static_cast<size_t>(sampleRate / freq);
        std::vector<double> line(period);
        for (double& v : line) v = noise();
        const size_t start = static_cast<size_t>(t * sampleRate);
        const size_t length = std::min(total - start, static_cast<size_t>(1.5 * sampleRate));
        size_t pos = 0;
        for (size_t i = 0; i < length; ++i) {
            const size_t next = (pos + 1) % period;
            const double out = line[pos];
            line[pos] = 0.996 * 0.5 * (line[pos] + line[next]);
            pos = next;
            mix[start + i] += out;
        }
    }
    double peak = 1e-9;
    for (double v : mix) peak = std::max(peak, std::fabs(v));
    std::vector<float> out(total);
    for (size_t i = 0; i < total; ++i) out[i] = static_cast<float>(0.5 * mix[i] / peak);
    return out;
}

} // namespace cli
} // namespace kelm
