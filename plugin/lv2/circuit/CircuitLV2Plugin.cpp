#include "plugin/lv2/circuit/CircuitLV2Plugin.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kelm {

CircuitLV2Plugin::CircuitLV2Plugin(double sampleRate, int maxBlock) : core(new CircuitEffect()) {
    core->setSampleRate(static_cast<float>(sampleRate));
    core->setBlockSize(maxBlock > 0 ? maxBlock : kDefaultBlockSize);
    controlIn.assign(core->numberOfParameters(), nullptr);
    lastValue.assign(core->numberOfParameters(), std::numeric_limits<float>::quiet_NaN());
}

void CircuitLV2Plugin::connectPort(uint32_t port, void* data) {
    if (port < 2)
        audioIn[port] = static_cast<const float*>(data);
    else if (port < kFirstControlPort)
        audioOut[port - 2] = static_cast<float*>(data);
    else if (port - kFirstControlPort < controlIn.size())
        controlIn[port - kFirstControlPort] = static_cast<const float*>(data);
}

void CircuitLV2Plugin::activate() {
    // The values standing in the control ports count before the warm-up.
    applyControls();
    core->resume();
}

void CircuitLV2Plugin::deactivate() { core->suspend(); }

void CircuitLV2Plugin::applyControls() {
    for (size_t i = 0; i < controlIn.size(); ++i) {
        if (!controlIn[i]) continue;
        const float v = *controlIn[i];
        if (v == lastValue[i] || (std::isnan(v) && std::isnan(lastValue[i]))) continue;
        const bool first = std::isnan(lastValue[i]);
        lastValue[i] = v;
        // A slot's port starts at the description's default, which knows nothing of the
        // document: only a move of it counts. The fixed parameters' defaults are the effect's.
        if (first && i < static_cast<size_t>(CircuitEffect::kSlots)) continue;
        core->setParameter(static_cast<int>(i), v);
    }
}

bool CircuitLV2Plugin::restoreState(const void* data, size_t size) {
    // The ports keep the values the host restored for them; the state's own values stand
    // until a port moves.
    return core->setState(data, size);
}

void CircuitLV2Plugin::run(uint32_t frames) {
    applyControls();
    if (frames == 0 || !audioIn[0] || !audioOut[0]) return;
    float* in[2] = {const_cast<float*>(audioIn[0]), const_cast<float*>(audioIn[1] ? audioIn[1] : audioIn[0])};
    core->process(in, audioOut, static_cast<int>(frames), audioIn[1] != nullptr);
}

void CircuitLV2Plugin::silence(uint32_t frames) {
    for (float* out : audioOut)
        if (out) std::fill(out, out + frames, 0.0f);
}

} // namespace kelm
