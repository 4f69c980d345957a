#pragma once
#include <cstdint>
#include <memory>
#include <vector>

#include "dsp/RealFft.h"

namespace kelm {

// Convolution with the part of an impulse response that starts `offset` samples
// in, cut into partitions that grow along the response (uniform within a level,
// each level with its own frequency-domain delay line). A partition of L samples
// that starts at least L samples into the response needs only input that is
// already there when its chunk of L input samples completes, so the tail adds to
// the output with no latency of its own; the part before `offset` is someone
// else's. Set-up allocates; process does not.
class ConvolutionTail {
public:
    // One level of the plan: `count` partitions of `size` samples from response sample `start` on.
    struct Level {
        unsigned size, count, start;
    };

    ConvolutionTail();
    ~ConvolutionTail();

    // Plans partitions for response samples [offset, irSize), the first of `offset`
    // samples (a power of two), takes their spectra and clears the signal state.
    // Nothing is planned when the response ends at `offset`.
    void setResponse(const float* ir, unsigned irSize, unsigned offset);
    // Replaces the response with one of the same plan, keeping the signal state.
    bool samePlan(unsigned irSize, unsigned offset) const;
    void updateResponse(const float* ir, unsigned irSize);
    // Adds the tail's part of the convolution to out[0..n) for the n input samples
    // in[0..n). firstSpectrum, if given, is the transform of the last 2L input
    // samples at the end of the block, as the first level (L) would take it.
    void process(const float* in, float* out, unsigned n, const RealFft::Complex* firstSpectrum = nullptr);
    // When blocks of n samples fall on the first level's chunks, the owner's own
    // transform of a block can carry the first level: absorb adds, times `scale`,
    // the first level's pending sum for the block's outputs to the owner's product
    // spectrum (2n points), which then goes back through the owner's inverse
    // transform, and process takes the owner's forward transform. That saves two
    // of the four transforms of 2n points per block.
    bool canAbsorb(unsigned n) const;
    void absorb(RealFft::Complex* product, float scale);
    // Forgets the input so far.
    void clear();

    bool empty() const { return levels.empty(); }
    const std::vector<Level> plan() const;
    // The partition plan for a response of irSize samples whose tail starts at offset:
    // levels of growing size, chosen for the least work per sample.
    static std::vector<Level> planFor(unsigned irSize, unsigned offset);

private:
    struct Stage;
    std::vector<std::unique_ptr<Stage>> levels;
    std::vector<float> pending;  // contributions to coming outputs, by time modulo its size
    uint64_t clock = 0;          // input samples since the last clear
    bool firstDue = false;       // the first level's last chunk has not been summed yet
    unsigned plannedSize = 0, plannedOffset = 0;
};

} // namespace kelm
