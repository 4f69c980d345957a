#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "plugin/core/EffectCore.h"

namespace kelm {

// Any effect core as an LV2 plug-in instance; every Kelm LV2 plug-in is this shell over its
// core. Ports: 0 and 1 the audio inputs (left, right), 2 and 3 the audio outputs, then one
// control input per core parameter in the core's order (values 0 to 1). The LV2 handle is
// the LV2Effect itself: a window built into the same bundle receives it through
// instance-access and reaches the core with getEffectCore().
class LV2Effect {
public:
    static constexpr uint32_t kFirstControlPort = 4;
    // The block size announced to the core when the host states none, in frames.
    static constexpr int kDefaultBlockSize = 512;

    // sampleRate in Hz; maxBlock is the host's bound on run's sample count (0 when unknown).
    // The ports of the first `unheardFirstValues` parameters start at a value that says
    // nothing of the core (a slot's default knows nothing of the document): their first
    // value is not passed on, only a move of them counts. The other ports' values all are.
    LV2Effect(std::unique_ptr<EffectCore> core, double sampleRate, int maxBlock, int unheardFirstValues);

    void connectPort(uint32_t port, void* data);
    void activate();    // the host's resume: warms the core up at the ports' state
    void deactivate();  // the host's suspend
    void run(uint32_t frames);
    // Writes zeros to the connected outputs, for a block that could not run.
    void silence(uint32_t frames);

    std::string saveState() const { return core->getState(); }
    // The ports keep the values the host restored for them; the state's own values stand
    // until a port moves.
    bool restoreState(const void* data, size_t size) { return core->setState(data, size); }

    EffectCore& getEffectCore() { return *core; }

    // The URIDs of the state's key and of its type (atom:String), mapped at instantiation by
    // a plug-in that keeps a state.
    uint32_t stateKey = 0, stringType = 0;

private:
    // Passes each control port's value to the core when it differs from the one last passed
    // on; the core clamps it and keeps stepped parameters on their positions.
    void applyControls();

    std::unique_ptr<EffectCore> core;
    size_t unheardFirstValues;
    const float* audioIn[2] = {nullptr, nullptr};
    float* audioOut[2] = {nullptr, nullptr};
    std::vector<const float*> controlIn;
    std::vector<float> lastValue;  // the value last seen per control port, NaN before any
};

} // namespace kelm
