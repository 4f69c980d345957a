#include "plugin/lv2/LV2Effect.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kelm {

LV2Effect::LV2Effect(std::unique_ptr<EffectCore> c, double sampleRate, int maxBlock, int unheard)
    : core(std::move(c)), unheardFirstValues(unheard > 0 ? static_cast<size_t>(unheard) : 0) {
    core->setSampleRate(static_cast<float>(sampleRate));
    core->setBlockSize(maxBlock > 0 ? maxBlock : kDefaultBlockSize);
    controlIn.assign(core->numberOfParameters(), nullptr);
    lastValue.assign(core->numberOfParameters(), std::numeric_limits<float>::quiet_NaN());
}

void LV2Effect::connectPort(uint32_t port, void* data) {
    if (port < 2)
        audioIn[port] = static_cast<const float*>(data);
    else if (port < kFirstControlPort)
        audioOut[port - 2] = static_cast<float*>(data);
    else if (port - kFirstControlPort < controlIn.size())
        controlIn[port - kFirstControlPort] = static_cast<const float*>(data);
}

void LV2Effect::activate() {
    // The values that stand in connected control ports are passed on before the warm-up, so
    // that the system rests at the state the host's first block expects, as a VST 2 host
    // sets its parameters before resume.
    applyControls();
    core->resume();
}

void LV2Effect::deactivate() { core->suspend(); }

void LV2Effect::applyControls() {
    for (size_t i = 0; i < controlIn.size(); ++i) {
        if (!controlIn[i]) continue;
        const float v = *controlIn[i];
        if (v == lastValue[i] || (std::isnan(v) && std::isnan(lastValue[i]))) continue;
        const bool first = std::isnan(lastValue[i]);
        lastValue[i] = v;
        if (first && i < unheardFirstValues) continue;
        core->setParameter(static_cast<int>(i), v);
    }
}

void LV2Effect::run(uint32_t frames) {
    applyControls();
    if (frames == 0 || !audioIn[0] || !audioOut[0]) return;
    // A right input that is missing or the same buffer as the left counts as a mono
    // input, which feeds both channels.
    float* in[2] = {const_cast<float*>(audioIn[0]), const_cast<float*>(audioIn[1] ? audioIn[1] : audioIn[0])};
    core->process(in, audioOut, static_cast<int>(frames), audioIn[1] != nullptr);
}

void LV2Effect::silence(uint32_t frames) {
    for (float* out : audioOut)
        if (out) std::fill(out, out + frames, 0.0f);
}

} // namespace kelm
