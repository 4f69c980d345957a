#pragma once
#include <string>
#include <vector>

#include "cli/Renderer.h"

namespace kelm {
namespace cli {

// What `kelm plot` measures, apart from any drawing: a system's small-signal frequency
// response, its transfer curve with harmonics, and spectra. The renderer passed in is
// prepared at the given sample rate; every measurement feeds one test signal to all of the
// system's inputs (as a mono file does) and reads output 0.
class Measure {
public:
    struct Response {
        std::vector<double> frequency;  // Hz, logarithmically spaced
        std::vector<double> magnitude;  // dB
        std::vector<double> phase;      // degrees, unwrapped, with a mean in [-270, 90)
    };
    struct Curve {
        double frequency = 0;              // Hz, of the test sine
        std::vector<double> inputLevel;    // peak amplitude of the input sine
        std::vector<double> outputLevel;   // peak amplitude of the output's fundamental
        std::vector<double> harmonics[4];  // 2nd to 5th harmonic, dB relative to the fundamental
    };
    struct Spectrum {
        std::vector<double> frequency;  // Hz, the bins above 0
        std::vector<double> level;      // dB relative to a sine of peak amplitude 1
    };

    // Gain and phase from 20 Hz to 20 kHz (or 0.48 times the rate) by stepped sines of the
    // given amplitude after 0.5 s of rest: at each frequency the sine runs five periods (at
    // least 50 ms) to settle, and the output over as long again is fitted with a sine in phase
    // with the input, one in quadrature and a constant. The fit is exact for a settled linear
    // system whatever the window, and averages out a system's own noise.
    static Response response(Renderer& system, double rate, double amplitude, int points = 160);
    // Sines near 1 kHz at `levels` amplitudes from maxLevel/levels to maxLevel, each after
    // 0.2 s of settling, measured over 100 periods.
    static Curve curve(Renderer& r, double rate, double maxLevel, int levels = 40);
    // The output of a sine of the given amplitude on an analysis bin near 1 kHz, after 0.5 s.
    static std::vector<float> sineThrough(Renderer& r, double rate, double amplitude);
    // Averaged spectrum of a signal (Hann windows of up to 8192 samples, half overlapping).
    static Spectrum spectrum(const std::vector<float>& signal, double rate);
    // Runs a mono signal through the system; returns output 0.
    static std::vector<float> run(Renderer& r, const std::vector<float>& input);

    static constexpr int kBlock = 512;  // block size the renderers are prepared with
    static constexpr int kSpectrumSize = 8192;
};

} // namespace cli
} // namespace kelm
