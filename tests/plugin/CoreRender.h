#pragma once
#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "plugin/core/KelmEffect.h"

namespace kelm {
namespace test {

typedef std::vector<std::pair<int, float>> CoreSettings;  // parameter index, value

typedef std::function<void(KelmEffect&)> CoreChange;

// The preamp's core as `kelm render` drives it, the plug-ins' reference: `settings` made, at
// 48 kHz, resumed and `setup` run, the inputs run in blocks of `block` frames, `change` made at
// frame `changeAt` (the block split there). The two outputs.
inline std::vector<std::vector<float>> renderCore(const std::vector<float>& left, const std::vector<float>& right,
                                                  const CoreSettings& settings, int block, size_t changeAt = SIZE_MAX,
                                                  const CoreChange& change = {}, const CoreChange& setup = {}) {
    KelmEffect effect;
    for (const auto& s : settings) effect.setParameter(s.first, s.second);
    effect.setSampleRate(48000);
    effect.setBlockSize(block);
    effect.resume();
    if (setup) setup(effect);
    std::vector<std::vector<float>> out(2, std::vector<float>(left.size()));
    auto run = [&](size_t from, size_t to) {
        float* in[2] = {const_cast<float*>(left.data()) + from, const_cast<float*>(right.data()) + from};
        float* o[2] = {out[0].data() + from, out[1].data() + from};
        if (to > from) effect.process(in, o, static_cast<int>(to - from));
    };
    for (size_t at = 0; at < left.size(); at += block) {
        const size_t end = std::min(left.size(), at + block), split = changeAt >= at && changeAt < end ? changeAt : end;
        run(at, split);
        if (split < end && change) change(effect);
        run(split, end);
    }
    return out;
}

// Settings by parameter name.
inline CoreSettings named(const std::vector<std::pair<std::string, float>>& values) {
    KelmEffect effect;
    CoreSettings s;
    for (const auto& v : values) s.push_back({effect.parameterIndex(v.first), v.second});
    return s;
}

// Two channels as one interleaved signal, and back.
inline std::vector<float> interleave(const std::vector<float>& left, const std::vector<float>& right) {
    std::vector<float> out;
    for (size_t i = 0; i < left.size(); ++i) out.insert(out.end(), {left[i], right[i]});
    return out;
}
inline std::vector<std::vector<float>> deinterleave(const std::vector<float>& x) {
    std::vector<std::vector<float>> out(2);
    for (size_t i = 0; i + 1 < x.size(); i += 2) {
        out[0].push_back(x[i]);
        out[1].push_back(x[i + 1]);
    }
    return out;
}

} // namespace test
} // namespace kelm
