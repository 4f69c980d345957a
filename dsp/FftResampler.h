#pragma once
#include <mutex>
#include <vector>

namespace kelm {

// Changes the sample rate of a finite signal with linear (zero) phase: the
// signal's spectrum is moved to the new length, zero-padded when the rate
// rises and cut with a short raised-cosine taper below the lower Nyquist
// frequency when it falls. Works in double precision; the amplitude of the
// waveform is kept (no delay to drop). Input arrives in blocks.
class FftResampler {
public:
    FftResampler(double sourceRate, double targetRate);
    // Appends n input samples.
    void feed(const double* in, size_t n);
    // The resampled signal, `length` samples long.
    std::vector<double> finish(size_t length);

private:
    std::mutex guard;
    double sourceRate;
    double targetRate;
    std::vector<double> input;
};

} // namespace kelm
