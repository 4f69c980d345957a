#pragma once
#include <cstdint>
#include <memory>
#include <vector>

#include "plugin/core/KelmEffect.h"

namespace kelm {

// The preamp as an LV2 plug-in instance: a thin shell over KelmEffect. Ports: 0 and 1
// the audio inputs (left, right), 2 and 3 the audio outputs, then one control input
// per parameter in the order of the description's controls (values 0 to 1).
class KelmLV2Plugin {
public:
    static constexpr uint32_t kFirstControlPort = 4;
    // The block size announced to the effect when the host states none, in frames.
    static constexpr int kDefaultBlockSize = 512;

    // sampleRate in Hz; maxBlock is the host's bound on run's sample count (0 when unknown).
    KelmLV2Plugin(double sampleRate, int maxBlock);

    void connectPort(uint32_t port, void* data);
    void activate();    // the host's resume: warms the system up at its resting state
    void deactivate();  // the host's suspend
    void run(uint32_t frames);
    // Writes zeros to the connected outputs, for a block that could not run.
    void silence(uint32_t frames);

    KelmEffect& getCore() { return *core; }

private:
    // Passes each control port's value to the effect when it differs from the one last
    // passed on; the effect clamps it and keeps Oversampling on its positions.
    void applyControls();

    std::unique_ptr<KelmEffect> core;
    const float* audioIn[2] = {nullptr, nullptr};
    float* audioOut[2] = {nullptr, nullptr};
    std::vector<const float*> controlIn;
    std::vector<float> lastValue;  // the value last passed on per control port, NaN before any
};

} // namespace kelm
