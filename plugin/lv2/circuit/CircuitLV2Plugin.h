#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "plugin/core/CircuitEffect.h"

namespace kelm {

// Kelm Circuit as an LV2 plug-in instance: a thin shell over CircuitEffect. Ports: 0 and 1
// the audio inputs (left, right), 2 and 3 the audio outputs, then one control input per
// parameter (values 0 to 1): the 16 slots, Input level, Output level, Oversampling, Mix.
// The document travels in the plug-in's state (the same bytes as a VST 2 chunk).
// The LV2 handle is the CircuitLV2Plugin itself: Kelm Circuit's UI (kelm_ui.so, built with it
// into the same bundle) receives it through the instance-access feature and reaches the
// effect with getCore().
class CircuitLV2Plugin {
public:
    static constexpr uint32_t kFirstControlPort = 4;
    static constexpr int kDefaultBlockSize = 512;  // frames, when the host states no bound

    // sampleRate in Hz; maxBlock is the host's bound on run's sample count (0 when unknown).
    CircuitLV2Plugin(double sampleRate, int maxBlock);

    void connectPort(uint32_t port, void* data);
    void activate();    // the host's resume
    void deactivate();  // the host's suspend
    void run(uint32_t frames);
    void silence(uint32_t frames);

    std::string saveState() const { return core->getState(); }
    bool restoreState(const void* data, size_t size);

    CircuitEffect& getCore() { return *core; }

    // The URIDs of the state's key and of its type (atom:String), mapped at instantiation.
    uint32_t stateKey = 0, stringType = 0;

private:
    void applyControls();

    std::unique_ptr<CircuitEffect> core;
    const float* audioIn[2] = {nullptr, nullptr};
    float* audioOut[2] = {nullptr, nullptr};
    std::vector<const float*> controlIn;
    std::vector<float> lastValue;
};

} // namespace kelm
