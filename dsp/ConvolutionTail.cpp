#include "dsp/ConvolutionTail.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace kelm {

namespace {

// acc += x * h over n complex values held as separate real and imaginary parts
// (n a multiple of 4).
void multiplyAdd(const float* __restrict xr, const float* __restrict xi, const float* __restrict hr,
                 const float* __restrict hi, float* __restrict accR, float* __restrict accI, size_t n) {
#ifdef __SSE2__
    for (size_t k = 0; k < n; k += 4) {
        const __m128 a = _mm_loadu_ps(xr + k), b = _mm_loadu_ps(xi + k);
        const __m128 c = _mm_loadu_ps(hr + k), d = _mm_loadu_ps(hi + k);
        _mm_storeu_ps(accR + k, _mm_add_ps(_mm_loadu_ps(accR + k), _mm_sub_ps(_mm_mul_ps(a, c), _mm_mul_ps(b, d))));
        _mm_storeu_ps(accI + k, _mm_add_ps(_mm_loadu_ps(accI + k), _mm_add_ps(_mm_mul_ps(a, d), _mm_mul_ps(b, c))));
    }
#else
    for (size_t k = 0; k < n; ++k) {
        accR[k] += xr[k] * hr[k] - xi[k] * hi[k];
        accI[k] += xr[k] * hi[k] + xi[k] * hr[k];
    }
#endif
}

} // namespace

// One level: its partitions' spectra, the spectra of its last `count` input
// chunks (the delay line, a ring), and the time window the next chunk fills.
// Spectra are kept as real and imaginary parts apart, each row `stride` long.
struct ConvolutionTail::Stage {
    Level level;
    unsigned bins, stride;
    RealFft fft;
    std::vector<float> time;                  // 2L samples: the previous chunk, then the one being filled
    unsigned fill = 0;                        // samples of the chunk being filled
    std::vector<float> spectraRe, spectraIm;  // count rows, scaled by 1 / 2L
    std::vector<float> delayRe, delayIm;      // count rows
    unsigned newest = 0;                      // row of the newest input spectrum
    std::vector<float> sumRe, sumIm;
    std::vector<RealFft::Complex> spectrum;   // bins, for the transforms
    std::vector<float> result;                // 2L

    explicit Stage(const Level& l)
        : level(l),
          bins(l.size + 1),
          stride((l.size + 1 + 3) / 4 * 4),
          fft(2 * l.size),
          time(2 * l.size, 0.0f),
          spectraRe(static_cast<size_t>(l.count) * stride),
          spectraIm(spectraRe.size()),
          delayRe(spectraRe.size()),
          delayIm(spectraRe.size()),
          sumRe(stride),
          sumIm(stride),
          spectrum(bins),
          result(2 * l.size) {}

    void split(float* re, float* im) const {
        for (unsigned k = 0; k < bins; ++k) {
            re[k] = spectrum[k].real();
            im[k] = spectrum[k].imag();
        }
    }

    void takeResponse(const float* ir, unsigned irSize) {
        const unsigned L = level.size;
        const float scale = 1.0f / (2.0f * L);
        for (unsigned j = 0; j < level.count; ++j) {
            std::fill(result.begin(), result.end(), 0.0f);
            const unsigned from = level.start + j * L;
            const unsigned to = std::min(irSize, from + L);
            for (unsigned k = from; k < to; ++k) result[k - from] = ir[k] * scale;
            fft.forward(result.data(), spectrum.data());
            split(&spectraRe[static_cast<size_t>(j) * stride], &spectraIm[static_cast<size_t>(j) * stride]);
        }
    }

    void clear() {
        std::fill(time.begin(), time.end(), 0.0f);
        std::fill(delayRe.begin(), delayRe.end(), 0.0f);
        std::fill(delayIm.begin(), delayIm.end(), 0.0f);
        fill = 0;
        newest = 0;
    }

    // The chunk that ends now is complete: its spectrum (given, or transformed
    // here) becomes the newest of the delay line.
    void complete(const RealFft::Complex* given) {
        newest = newest + 1 == level.count ? 0 : newest + 1;
        if (given)
            std::copy(given, given + bins, spectrum.begin());
        else
            fft.forward(time.data(), spectrum.data());
        split(&delayRe[static_cast<size_t>(newest) * stride], &delayIm[static_cast<size_t>(newest) * stride]);
        std::memmove(time.data(), time.data() + level.size, level.size * sizeof(float));
        fill = 0;
    }

    // spectrum = the sum over j of (input spectrum j chunks back) times (spectrum of partition j).
    void sumProducts() {
        std::fill(sumRe.begin(), sumRe.end(), 0.0f);
        std::fill(sumIm.begin(), sumIm.end(), 0.0f);
        const unsigned K = level.count;
        unsigned row = newest;
        for (unsigned j = 0; j < K; ++j) {
            const size_t x = static_cast<size_t>(row) * stride, h = static_cast<size_t>(j) * stride;
            multiplyAdd(&delayRe[x], &delayIm[x], &spectraRe[h], &spectraIm[h], sumRe.data(), sumIm.data(), stride);
            row = row == 0 ? K - 1 : row - 1;
        }
        for (unsigned k = 0; k < bins; ++k) spectrum[k] = RealFft::Complex(sumRe[k], sumIm[k]);
    }

    // Adds sign times the sum of the chunk that completed at `done` to the
    // outputs from `unread` on.
    void contribute(uint64_t done, float sign, uint64_t unread, float* pending, uint64_t mask) {
        const unsigned L = level.size;
        sumProducts();
        fft.inverse(spectrum.data(), result.data());
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
double levelCost(unsigned L, unsigned K) { return 10.0 * std::log2(2.0 * L) + 2.0 * K; }

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
        const bool inFlight = done >= s->level.size && !(s == levels.front() && firstDue);
        if (inFlight) s->contribute(done, -1.0f, clock, pending.data(), mask);
        s->takeResponse(ir, irSize);
        if (inFlight) s->contribute(done, 1.0f, clock, pending.data(), mask);
    }
}

void ConvolutionTail::clear() {
    for (auto& s : levels) s->clear();
    std::fill(pending.begin(), pending.end(), 0.0f);
    clock = 0;
    firstDue = false;
}

bool ConvolutionTail::canAbsorb(unsigned n) const {
    return !levels.empty() && levels.front()->level.size == n && levels.front()->level.start == n &&
           levels.front()->fill == 0;
}

void ConvolutionTail::absorb(RealFft::Complex* product, float scale) {
    if (!firstDue) return;
    Stage& s = *levels.front();
    s.sumProducts();
    for (unsigned k = 0; k < s.bins; ++k) product[k] += s.spectrum[k] * scale;
    firstDue = false;
}

void ConvolutionTail::process(const float* in, float* out, unsigned n, const RealFft::Complex* firstSpectrum) {
    if (levels.empty()) return;
    const uint64_t mask = pending.size() - 1;
    float* ahead = pending.data();
    Stage& first = *levels.front();
    unsigned pos = 0;
    while (pos < n) {
        // The first level's sum waits for its outputs, in case a block's own
        // transform can take it (absorb); they are due now.
        if (firstDue) {
            first.contribute(clock, 1.0f, clock, ahead, mask);
            firstDue = false;
        }
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
        for (auto& s : levels) {
            if (s->fill != s->level.size) continue;
            if (s == levels.front()) {
                // A spectrum given for this block is that of the chunk only if the block was the chunk.
                s->complete(firstSpectrum && step == n ? firstSpectrum : nullptr);
                firstDue = true;
            } else {
                s->complete(nullptr);
                s->contribute(clock, 1.0f, clock, ahead, mask);
            }
        }
    }
}

} // namespace kelm
