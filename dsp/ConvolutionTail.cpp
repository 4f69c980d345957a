#include "dsp/ConvolutionTail.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace kelm {

// One level: its partitions' spectra, the spectra of its last `count` input
// chunks (the delay line, a ring), and the time window the next chunk fills.
struct ConvolutionTail::Stage {
    Level level;
    unsigned bins;
    RealFft fft;
    std::vector<float> time;                   // 2L samples: the previous chunk, then the one being filled
    unsigned fill = 0;                         // samples of the chunk being filled
    std::vector<RealFft::Complex> spectra;     // count x bins, scaled by 1 / 2L
    std::vector<RealFft::Complex> delayLine;   // count x bins
    unsigned newest = 0;                       // slot of the newest input spectrum
    std::vector<RealFft::Complex> sum;         // bins
    std::vector<float> result;                 // 2L

    explicit Stage(const Level& l)
        : level(l),
          bins(l.size + 1),
          fft(2 * l.size),
          time(2 * l.size, 0.0f),
          spectra(static_cast<size_t>(l.count) * bins),
          delayLine(static_cast<size_t>(l.count) * bins),
          sum(bins),
          result(2 * l.size) {}

    void takeResponse(const float* ir, unsigned irSize) {
        const unsigned L = level.size;
        const float scale = 1.0f / (2.0f * L);
        for (unsigned j = 0; j < level.count; ++j) {
            std::fill(result.begin(), result.end(), 0.0f);
            const unsigned from = level.start + j * L;
            const unsigned to = std::min(irSize, from + L);
            for (unsigned k = from; k < to; ++k) result[k - from] = ir[k] * scale;
            fft.forward(result.data(), &spectra[static_cast<size_t>(j) * bins]);
        }
    }

    void clear() {
        std::fill(time.begin(), time.end(), 0.0f);
        std::fill(delayLine.begin(), delayLine.end(), RealFft::Complex(0, 0));
        fill = 0;
        newest = 0;
    }

    // The chunk that ends at input time `now` is complete: its partitions' sum for
    // the outputs from now - L + start on goes into `pending`.
    void complete(uint64_t now, float* pending, uint64_t mask) {
        newest = newest + 1 == level.count ? 0 : newest + 1;
        fft.forward(time.data(), &delayLine[static_cast<size_t>(newest) * bins]);
        std::memmove(time.data(), time.data() + level.size, level.size * sizeof(float));
        fill = 0;
        contribute(now, 1.0f, now, pending, mask);
    }

    // Adds sign times the sum of the chunk that completed at `done` to the
    // outputs from `unread` on.
    void contribute(uint64_t done, float sign, uint64_t unread, float* pending, uint64_t mask) {
        const unsigned L = level.size, K = level.count;
        // sum = sum over j of (input spectrum j chunks back) times (spectrum of partition j),
        // on interleaved real and imaginary parts so that the loop vectorises.
        float* s = reinterpret_cast<float*>(sum.data());
        std::fill(s, s + 2 * bins, 0.0f);
        unsigned slot = newest;
        for (unsigned j = 0; j < K; ++j) {
            const float* x = reinterpret_cast<const float*>(&delayLine[static_cast<size_t>(slot) * bins]);
            const float* h = reinterpret_cast<const float*>(&spectra[static_cast<size_t>(j) * bins]);
            for (unsigned k = 0; k < 2 * bins; k += 2) {
                s[k] += x[k] * h[k] - x[k + 1] * h[k + 1];
                s[k + 1] += x[k] * h[k + 1] + x[k + 1] * h[k];
            }
            slot = slot == 0 ? K - 1 : slot - 1;
        }
        fft.inverse(sum.data(), result.data());
        // The second half is the convolution for the inputs done - L .. done - 1,
        // which reaches the output `start` samples later.
        const uint64_t first = done - L + level.start;
        for (unsigned k = 0; k < L; ++k)
            if (first + k >= unread) pending[(first + k) & mask] += sign * result[L + k];
    }
};

ConvolutionTail::ConvolutionTail() {}
ConvolutionTail::~ConvolutionTail() {}

namespace {

// Work per sample of a level of partitions of L samples, K of them, in units of
// a real multiply-add: a forward and an inverse transform of 2L points, and K
// complex products per bin.
double levelCost(unsigned L, unsigned K) { return 10.0 * std::log2(2.0 * L) + 4.0 * K; }

struct Choice {
    double cost;
    std::vector<ConvolutionTail::Level> levels;
};

// The cheapest plan for response samples [start, irSize) with partitions of at
// least L samples: either L to the end, or L up to where a larger size may start.
Choice cheapest(unsigned irSize, unsigned L, unsigned start) {
    const unsigned rest = irSize - start;
    const unsigned all = (rest + L - 1) / L;
    Choice best{levelCost(L, all), {{L, all, start}}};
    for (unsigned grow = 2; grow <= 16; grow *= 2) {
        const unsigned next = L * grow;
        if (next > (1u << 17)) break;
        const unsigned count = next > start ? (next - start + L - 1) / L : 1;
        if (count >= all) break;
        Choice later = cheapest(irSize, next, start + count * L);
        const double cost = levelCost(L, count) + later.cost;
        if (cost < best.cost) {
            best.cost = cost;
            best.levels.assign(1, {L, count, start});
            best.levels.insert(best.levels.end(), later.levels.begin(), later.levels.end());
        }
    }
    return best;
}

} // namespace

std::vector<ConvolutionTail::Level> ConvolutionTail::planFor(unsigned irSize, unsigned offset) {
    if (irSize <= offset || offset == 0) return {};
    return cheapest(irSize, offset, offset).levels;
}

const std::vector<ConvolutionTail::Level> ConvolutionTail::plan() const {
    std::vector<Level> p;
    for (auto& s : levels) p.push_back(s->level);
    return p;
}

bool ConvolutionTail::samePlan(unsigned irSize, unsigned offset) const {
    return irSize == plannedSize && offset == plannedOffset;
}

void ConvolutionTail::setResponse(const float* ir, unsigned irSize, unsigned offset) {
    levels.clear();
    plannedSize = irSize;
    plannedOffset = offset;
    unsigned reach = 1;
    for (const Level& l : planFor(irSize, offset)) {
        levels.emplace_back(new Stage(l));
        reach = std::max(reach, l.start + l.size);
    }
    // Each level writes at most `start` samples ahead of the input.
    unsigned ring = 1;
    while (ring < reach) ring *= 2;
    pending.assign(levels.empty() ? 0 : ring, 0.0f);
    updateResponse(ir, irSize);
    clear();
}

void ConvolutionTail::updateResponse(const float* ir, unsigned irSize) {
    const uint64_t mask = pending.size() - 1;
    for (auto& s : levels) {
        // What the last chunk already put ahead of the output is redone with the new
        // response, so that the change is heard at once, as in the head.
        const uint64_t done = clock - s->fill;
        const bool inFlight = done >= s->level.size;
        if (inFlight) s->contribute(done, -1.0f, clock, pending.data(), mask);
        s->takeResponse(ir, irSize);
        if (inFlight) s->contribute(done, 1.0f, clock, pending.data(), mask);
    }
}

void ConvolutionTail::clear() {
    for (auto& s : levels) s->clear();
    std::fill(pending.begin(), pending.end(), 0.0f);
    clock = 0;
}

void ConvolutionTail::process(const float* in, float* out, unsigned n) {
    if (levels.empty()) return;
    const uint64_t mask = pending.size() - 1;
    float* ahead = pending.data();
    unsigned pos = 0;
    while (pos < n) {
        // Up to the next end of a chunk of any level.
        unsigned step = n - pos;
        for (auto& s : levels) step = std::min(step, s->level.size - s->fill);
        for (unsigned k = 0; k < step; ++k) {
            float& p = ahead[(clock + k) & mask];
            out[pos + k] += p;
            p = 0;
        }
        for (auto& s : levels) {
            std::memcpy(s->time.data() + s->level.size + s->fill, in + pos, step * sizeof(float));
            s->fill += step;
        }
        clock += step;
        pos += step;
        for (auto& s : levels)
            if (s->fill == s->level.size) s->complete(clock, ahead, mask);
    }
}

} // namespace kelm
