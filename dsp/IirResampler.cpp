#include <algorithm>
#include <cmath>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "dsp/BasicFilterMeta.h"
#include "dsp/BiQuadState.h"
#include "dsp/BiQuad.h"
#include "dsp/Iir.h"
#include "dsp/IirDecimator.h"
#include "dsp/IirDesignContext.h"
#include "dsp/IirInterpolator.h"
#include "dsp/DSPContext.h"
#include "engine/Driver.h"
#include "engine/Graph.h"
#include "engine/InvalidArgumentException.h"
#include "engine/OperationNotSupportedException.h"
#include "engine/Str.h"

namespace kelm {

IirResampler::~IirResampler() {}

void IirResampler::init(const std::string&, std::shared_ptr<DSPContext>&) {
    throw OperationNotSupportedException(
        "IirDecimator: init(const std::string &name, std::shared_ptr<DSPContext> &context) is not supported.");
}

void IirResampler::init(const std::string& elName, const PropertyMapPtr& props, std::shared_ptr<DSPContext>& ctx) {
    context = ctx.get();
    const PropertyMap& p = *props;
    const std::string me = who();
    hasCornerFrequency = p.readOptional("CornerFrequency", cornerFrequency);
    if (hasCornerFrequency) {
        if (cornerFrequency < 0)
            throw InvalidArgumentException(
                str(me, ": cornerFrequency must be greater than 0. CornerFrequency=", cornerFrequency));
    } else {
        p.readRequired("RelativeCornerFrequency", relativeCornerFrequency,
                       KELMException(me + ": Either RelativeCornerFrequency or CornerFrequency must be defined"));
        if (!(relativeCornerFrequency > 0 && relativeCornerFrequency < 0.5))
            throw InvalidArgumentException(str(me,
                                               ": Invalid relative corner frequency. RelativeCornerFrequency must be "
                                               "iin (0.0, 0.5). RelativeCornerFrequency=",
                                               relativeCornerFrequency));
    }
    p.readRequired("Type", type, KELMException(me + ": Type must be specified"), [&me](const std::string& t) {
        if (t == "BiQuad") return filterdesign::BIQUAD;
        if (t == "Bessel") return filterdesign::BESSEL;
        if (t == "Butterworth") return filterdesign::BUTTERWORTH;
        throw InvalidArgumentException(me + ": Unknown Type: " + t);
    });
    if (type != filterdesign::BIQUAD) {
        p.readRequired("Order", order, KELMException(me + ": Order must be specified"));
        if (order < 1) throw InvalidArgumentException(str(me, ": Order must be greater than zero. Order=", order));
    }
    p.readRequired("Factor", factor, KELMException(me + ": Factor must be specified"));
    if (factor < 1) throw InvalidArgumentException(str(me, ": Factor must be greater than 0. Factor=", factor));
    // The high-rate buffers are factor times a block long: a factor far beyond any oversampling
    // would ask for gigabytes.
    if (factor > kMaxFactor) throw InvalidArgumentException(str(me, ": Factor must be at most ", kMaxFactor, ". Factor=", factor));
    if (p.readOptional("Cascade", cascade) && cascade < 2)
        throw InvalidArgumentException(str(me, ": Cascade must be greater than 1. Cascade=", cascade));
    if (!hasCornerFrequency) normalizedCorner = relativeCornerFrequency / factor;
    stages.clear();
    for (int i = 0; i < cascade; ++i) {
        std::shared_ptr<Filter> stage;
        if (type == filterdesign::BIQUAD || order == 2) {
            stage = std::make_shared<BiQuad>();
        } else {
            stage = std::make_shared<Iir>();
            stage->propertyChanged("Order", static_cast<scalar>(order));
        }
        stage->init((interpolator ? "interpolation filter " : "decimation filter ") + std::to_string(i), ctx);
        stages.push_back(stage);
    }
    sections.clear();
    for (auto& stage : stages) sections.push_back(dynamic_cast<FixedOrderIIR<2>*>(stage.get()));
    for (auto* section : sections)
        if (!section) sections.clear();
    histories.assign(sections.size(), SectionHistory());
    elementName = elName;
    properties = p;
}

void IirResampler::sampleRateChanged(scalar rate) {
    if (hasCornerFrequency)
        normalizedCorner = interpolator ? cornerFrequency / rate / factor : cornerFrequency / rate;
    else
        normalizedCorner = relativeCornerFrequency / factor;
    design();
}

void IirResampler::design() {
    if (normalizedCorner >= 0.5f) return;
    if (type == filterdesign::BIQUAD)
        throw InvalidArgumentException(str(who(), ": BiQuads are not yet supported!"));
    auto known = std::find_if(designs.begin(), designs.end(),
                              [&](const Design& d) { return d.corner == normalizedCorner && d.factor == factor; });
    if (known == designs.end()) {
        auto request = std::make_shared<filterdesign::IirDesignContext>(type, order, normalizedCorner);
        if (type == filterdesign::BESSEL) request->options.set(filterdesign::MATCHED_Z);
        filterdesign::designIir(request);
        Design d{normalizedCorner, factor, request->A, request->B, request->B};
        if (interpolator) {
            // The zeros stuffed between the samples take 1/factor of the level: the first
            // stage makes it up.
            d.firstB = std::make_shared<ScalarVector>(*request->B);
            for (int k = 0; k <= order && k < static_cast<int>(d.firstB->size()); ++k) (*d.firstB)[k] *= factor;
        }
        if (designs.size() >= 8) designs.erase(designs.begin());
        designs.push_back(d);
        known = designs.end() - 1;
    }
    for (auto& stage : stages) {
        stage->propertyChanged("A", known->a);
        stage->propertyChanged("B", known->b);
    }
    if (!stages.empty()) stages.front()->propertyChanged("B", known->firstB);
}

void IirResampler::propertyChanged(const std::string& prop, scalar value) {
    if (prop != "Factor") throw InvalidArgumentException("IirInterpolator: Unknown property " + prop);
    if (!(value >= 0.5f && value < kMaxFactor + 0.5f))
        throw InvalidArgumentException(str(who(), ": Factor must be from 1 to ", kMaxFactor, ". Factor=", value));
    factor = static_cast<int>(std::floor(value + 0.5f));
    if (context && context->graph()) {
        context->graph()->setMultiplier(interpolator ? static_cast<double>(value) : 1.0 / static_cast<double>(value));
        if (context->driver()) context->driver()->setMultipliersChanged();
    }
}

void IirResampler::process(BufferList& inputs, BufferList& outs, size_t n) {
    process(inputs, n);
    const size_t count = outputFrames(n);
    if (!outs.empty() && outs[0] && count) std::memmove(outs[0], getOutput(0), count * sizeof(scalar));
}

scalar IirResampler::process(scalar) {
    throw OperationNotSupportedException(str(who(), ": process(scalar in) is not supported."));
}
scalar* IirResampler::process(scalar*, size_t) {
    throw OperationNotSupportedException(
        str(who(), ": process(scalar* in, size_t framesPerBuffer) is not supported."));
}
void IirResampler::process(const scalar*, scalar*, size_t) {
    throw OperationNotSupportedException(
        str(who(), ": process(const scalar* in, scalar* out, size_t framesPerBuffer) is not supported."));
}
ScalarVector& IirResampler::iterate(const ScalarVectorPtr&, int, int) {
    throw OperationNotSupportedException(str(who(), ": Iteration is not supported."));
}
ScalarVector& IirResampler::getLastIterationResults() {
    throw OperationNotSupportedException(str(who(), ": getLastIterationResults is not supported."));
}
void IirResampler::endIteration(int) {
    throw OperationNotSupportedException(str(who(), ": endIteration is not supported."));
}

ElementMetaPtr IirResampler::getMeta() { return BasicFilterMeta::instance(); }

void IirResampler::reset() {
    for (auto& stage : stages) stage->reset();
}

namespace {

// Coefficients and history of one second-order section, held in locals while a
// block runs through the cascade. The recursion runs in double: with the corner
// just below the Nyquist frequency, as at a factor of 1, the poles sit near z = -1
// and amplify the rounding of a float recursion some 200 times, so that the tube
// stages' bias of some 100 V left a limit cycle of a millivolt near the Nyquist
// frequency in the decimator's output. The history is carried between blocks in
// double too, and copied to the stages as floats.
struct Section {
    double b0 = 0, b1 = 0, b2 = 0, a1 = 0, a2 = 0, x1 = 0, x2 = 0, y1 = 0, y2 = 0;

    // The double history kept from the last block, unless the stage's own history
    // has since been changed (a reset, or a block run stage by stage).
    void loadFrom(const FixedOrderIIR<2>& f, const IirResampler::SectionHistory& h) {
        b0 = f.coefficientB(0);
        b1 = f.coefficientB(1);
        b2 = f.coefficientB(2);
        a1 = f.coefficientA(0);
        a2 = f.coefficientA(1);
        const scalar* px = f.pastInputs();
        const scalar* py = f.pastOutputs();
        const bool current = static_cast<scalar>(h.x1) == px[0] && static_cast<scalar>(h.x2) == px[1] &&
                             static_cast<scalar>(h.y1) == py[0] && static_cast<scalar>(h.y2) == py[1];
        x1 = current ? h.x1 : px[0];
        x2 = current ? h.x2 : px[1];
        y1 = current ? h.y1 : py[0];
        y2 = current ? h.y2 : py[1];
    }

    void storeInto(FixedOrderIIR<2>& f, IirResampler::SectionHistory& h) const {
        h = {x1, x2, y1, y2};
        const scalar xs[2] = {static_cast<scalar>(x1), static_cast<scalar>(x2)};
        const scalar ys[2] = {static_cast<scalar>(y1), static_cast<scalar>(y2)};
        f.setHistory(xs, ys);
    }

    double step(double x) { return biquadStep(x1, x2, y1, y2, b0, b1, b2, a1, a2, x); }
};

// C sections in series, run sample by sample over groups of `factor` high-rate
// samples. The sections of one sample do not wait for the next sample's earlier
// sections, so their recursions overlap in the processor instead of running one
// block-long chain after another. Interpolating, each group starts with the input
// sample and continues with zeros, and every output is kept; decimating, the
// input is read in full and the first output of each group is kept.
template <int C, bool Interpolate>
void cascade(FixedOrderIIR<2>* const* stages, IirResampler::SectionHistory* histories, const scalar* in,
             size_t frames, size_t factor, scalar* out) {
    Section s[C];
    for (int k = 0; k < C; ++k) s[k].loadFrom(*stages[k], histories[k]);
    auto run = [&s](double x) {
        for (int k = 0; k < C; ++k) x = s[k].step(x);
        return static_cast<scalar>(x);
    };
    size_t i = 0, j = 0;
    for (; i + factor <= frames; i += factor, ++j) {
        if (Interpolate) {
            out[i] = run(in[j]);
            for (size_t t = 1; t < factor; ++t) out[i + t] = run(0);
        } else {
            out[j] = run(in[i]);
            for (size_t t = 1; t < factor; ++t) run(in[i + t]);
        }
    }
    for (size_t t = 0; i < frames; ++i, ++t) {  // a last, partial group
        if (Interpolate)
            out[i] = run(t == 0 ? in[j] : 0);
        else if (t == 0)
            out[j] = run(in[i]);
        else
            run(in[i]);
    }
    for (int k = 0; k < C; ++k) s[k].storeInto(*stages[k], histories[k]);
}

#if defined(__SSE2__)
// The sections of two cascades (the two channels), lane by lane in one register: the
// same operations in the same order as Section::step for each. Written with the
// intrinsics themselves: with TwoLanes and biquadStep the same loop ran 5 to 10 % slower
// (GCC 12 kept part of the state in memory).
struct TwinSection {
    __m128d b0, b1, b2, a1, a2, x1, x2, y1, y2;

    TwinSection() = default;
    TwinSection(const Section& l, const Section& r)
        : b0(_mm_set_pd(r.b0, l.b0)),
          b1(_mm_set_pd(r.b1, l.b1)),
          b2(_mm_set_pd(r.b2, l.b2)),
          a1(_mm_set_pd(r.a1, l.a1)),
          a2(_mm_set_pd(r.a2, l.a2)),
          x1(_mm_set_pd(r.x1, l.x1)),
          x2(_mm_set_pd(r.x2, l.x2)),
          y1(_mm_set_pd(r.y1, l.y1)),
          y2(_mm_set_pd(r.y2, l.y2)) {}

    void storeInto(Section& l, Section& r) const {
        double v[2];
        _mm_storeu_pd(v, x1), l.x1 = v[0], r.x1 = v[1];
        _mm_storeu_pd(v, x2), l.x2 = v[0], r.x2 = v[1];
        _mm_storeu_pd(v, y1), l.y1 = v[0], r.y1 = v[1];
        _mm_storeu_pd(v, y2), l.y2 = v[0], r.y2 = v[1];
    }

    __m128d step(__m128d x) {
        __m128d s = _mm_add_pd(_mm_mul_pd(b1, x1), _mm_mul_pd(b0, x));
        s = _mm_add_pd(s, _mm_mul_pd(b2, x2));
        s = _mm_sub_pd(s, _mm_mul_pd(a1, y1));
        s = _mm_sub_pd(s, _mm_mul_pd(a2, y2));
        x2 = x1;
        x1 = x;
        y2 = y1;
        y1 = s;
        return s;
    }
};

// cascade() for two channels at once, each with its own sections, input and output.
template <int C, bool Interpolate>
void twinCascade(FixedOrderIIR<2>* const* stages, IirResampler::SectionHistory* histories,
                 FixedOrderIIR<2>* const* twinStages, IirResampler::SectionHistory* twinHistories, const scalar* in,
                 const scalar* twinIn, size_t frames, size_t factor, scalar* out, scalar* twinOut) {
    Section l[C], r[C];
    for (int k = 0; k < C; ++k) {
        l[k].loadFrom(*stages[k], histories[k]);
        r[k].loadFrom(*twinStages[k], twinHistories[k]);
    }
    TwinSection s[C];
    for (int k = 0; k < C; ++k) s[k] = TwinSection(l[k], r[k]);
    auto run = [&s](__m128d x) {
        for (int k = 0; k < C; ++k) x = s[k].step(x);
        return _mm_cvtpd_ps(x);
    };
    auto put = [](__m128 y, scalar* a, scalar* b, size_t at) {
        a[at] = _mm_cvtss_f32(y);
        b[at] = _mm_cvtss_f32(_mm_shuffle_ps(y, y, 1));
    };
    auto pair = [](scalar a, scalar b) { return _mm_set_pd(static_cast<double>(b), static_cast<double>(a)); };
    const __m128d zero = _mm_setzero_pd();
    size_t i = 0, j = 0;
    for (; i + factor <= frames; i += factor, ++j) {
        if (Interpolate) {
            put(run(pair(in[j], twinIn[j])), out, twinOut, i);
            for (size_t t = 1; t < factor; ++t) put(run(zero), out, twinOut, i + t);
        } else {
            put(run(pair(in[i], twinIn[i])), out, twinOut, j);
            for (size_t t = 1; t < factor; ++t) run(pair(in[i + t], twinIn[i + t]));
        }
    }
    for (size_t t = 0; i < frames; ++i, ++t) {  // a last, partial group
        if (Interpolate)
            put(run(t == 0 ? pair(in[j], twinIn[j]) : zero), out, twinOut, i);
        else if (t == 0)
            put(run(pair(in[i], twinIn[i])), out, twinOut, j);
        else
            run(pair(in[i], twinIn[i]));
    }
    for (int k = 0; k < C; ++k) {
        s[k].storeInto(l[k], r[k]);
        l[k].storeInto(*stages[k], histories[k]);
        r[k].storeInto(*twinStages[k], twinHistories[k]);
    }
}
#endif

// Runs two cascades of the same length and factor side by side, when the processor has the
// lanes for it; false leaves them to run one after the other.
template <bool Interpolate>
bool runTwinCascade(const std::vector<FixedOrderIIR<2>*>& sections, std::vector<IirResampler::SectionHistory>& histories,
                    const std::vector<FixedOrderIIR<2>*>& twinSections,
                    std::vector<IirResampler::SectionHistory>& twinHistories, const scalar* in, const scalar* twinIn,
                    size_t frames, size_t factor, scalar* out, scalar* twinOut) {
#if defined(__SSE2__)
    if (sections.size() != twinSections.size()) return false;
    auto* h = histories.data();
    auto* th = twinHistories.data();
    auto* st = sections.data();
    auto* ts = twinSections.data();
    switch (sections.size()) {
        case 1: twinCascade<1, Interpolate>(st, h, ts, th, in, twinIn, frames, factor, out, twinOut); return true;
        case 2: twinCascade<2, Interpolate>(st, h, ts, th, in, twinIn, frames, factor, out, twinOut); return true;
        case 3: twinCascade<3, Interpolate>(st, h, ts, th, in, twinIn, frames, factor, out, twinOut); return true;
        case 4: twinCascade<4, Interpolate>(st, h, ts, th, in, twinIn, frames, factor, out, twinOut); return true;
        default: return false;
    }
#else
    (void)sections, (void)histories, (void)twinSections, (void)twinHistories, (void)in, (void)twinIn, (void)frames,
        (void)factor, (void)out, (void)twinOut;
    return false;
#endif
}

template <bool Interpolate>
bool runCascade(const std::vector<FixedOrderIIR<2>*>& sections, std::vector<IirResampler::SectionHistory>& histories,
                const scalar* in, size_t frames, size_t factor, scalar* out) {
    IirResampler::SectionHistory* h = histories.data();
    switch (sections.size()) {
        case 1: cascade<1, Interpolate>(sections.data(), h, in, frames, factor, out); return true;
        case 2: cascade<2, Interpolate>(sections.data(), h, in, frames, factor, out); return true;
        case 3: cascade<3, Interpolate>(sections.data(), h, in, frames, factor, out); return true;
        case 4: cascade<4, Interpolate>(sections.data(), h, in, frames, factor, out); return true;
        default: return false;  // longer cascades run stage by stage
    }
}

} // namespace

// ---- IirInterpolator ----

IirInterpolator::~IirInterpolator() { delete[] buffer; }

void IirInterpolator::setMaxBlockSize(int n) {
    if (n < 1) throw KELMException(str("IirInterpolator: Invalid maxBlockSize", n));
    const int m = factor * n;
    if (m > maxBlockSize) {
        maxBlockSize = m;
        for (auto& stage : stages) stage->setMaxBlockSize(m);
        delete[] buffer;
        buffer = new scalar[m]();
    }
}

void IirInterpolator::process(BufferList& inputs, size_t n) {
    if (factor < 1) throw KELMException(str("IirInterpolator: Invalid factor ", factor));
    const size_t m = static_cast<size_t>(factor) * n;
    if (m > static_cast<size_t>(maxBlockSize))
        throw InvalidArgumentException(str("IirInterpolator: framesPerBuffer (", m, ") is greater than maxBlockSize (",
                                           maxBlockSize, ")."));
    const scalar* in = inputs.empty() ? nullptr : inputs[0];
    if (in && !sections.empty() && m > 0 &&
        runCascade<true>(sections, histories, in, m, static_cast<size_t>(factor), sections.back()->outputBuffer()))
        return;
    std::memset(buffer, 0, m * sizeof(scalar));
    if (in)
        for (size_t i = 0; i < n; ++i) buffer[factor * i] = in[i];
    stageInput[0] = buffer;
    for (auto& stage : stages) {
        stage->process(stageInput, m);
        stageInput[0] = stage->getOutput(0);
    }
}

void IirInterpolator::processTwin(Filter& other, BufferList& inputs, BufferList& twinInputs, size_t n) {
    IirInterpolator* twin = dynamic_cast<IirInterpolator*>(&other);
    const scalar* in = inputs.empty() ? nullptr : inputs[0];
    const scalar* twinIn = twinInputs.empty() ? nullptr : twinInputs[0];
    const size_t m = static_cast<size_t>(factor) * n;
    if (twin && twin != this && in && twinIn && factor >= 1 && twin->factor == factor && m > 0 &&
        m <= static_cast<size_t>(maxBlockSize) && m <= static_cast<size_t>(twin->maxBlockSize) && !sections.empty() &&
        runTwinCascade<true>(sections, histories, twin->sections, twin->histories, in, twinIn, m,
                             static_cast<size_t>(factor), sections.back()->outputBuffer(),
                             twin->sections.back()->outputBuffer()))
        return;
    Filter::processTwin(other, inputs, twinInputs, n);
}

scalar* IirInterpolator::getOutput(int index) {
    if (index != 0) throw InvalidArgumentException(str("Iir: Invalid output index: ", index));
    return stages.back()->getOutput(0);
}

BufferList& IirInterpolator::getOutputs() { return stages.back()->getOutputs(); }

// ---- IirDecimator ----

IirDecimator::~IirDecimator() { delete[] buffer; }

void IirDecimator::setMaxBlockSize(int n) {
    if (n < 1) throw KELMException(str("IirDecimator: Invalid maxBlockSize", n));
    if (n > maxBlockSize) {
        maxBlockSize = n;
        for (auto& stage : stages) stage->setMaxBlockSize(n);
        delete[] buffer;
        buffer = new scalar[n]();
        outputs[0] = buffer;
    }
}

void IirDecimator::process(BufferList& inputs, size_t n) {
    if (factor < 1) throw KELMException(str("IirDecimator: Invalid factor ", factor));
    if (n > static_cast<size_t>(maxBlockSize))
        throw InvalidArgumentException(
            str("IirDecimator: framesPerBuffer (", n, ") is greater than maxBlockSize (", maxBlockSize, ")."));
    const scalar* in = inputs.empty() ? nullptr : inputs[0];
    if (in && !sections.empty() && n > 0 && runCascade<false>(sections, histories, in, n, static_cast<size_t>(factor), buffer))
        return;
    stageInput[0] = inputs.empty() ? nullptr : inputs[0];
    for (auto& stage : stages) {
        stage->process(stageInput, n);
        stageInput[0] = stage->getOutput(0);
    }
    const scalar* last = stageInput[0];
    size_t j = 0;
    for (size_t i = 0; i < n; i += factor) buffer[j++] = last[i];
}

void IirDecimator::processTwin(Filter& other, BufferList& inputs, BufferList& twinInputs, size_t n) {
    IirDecimator* twin = dynamic_cast<IirDecimator*>(&other);
    const scalar* in = inputs.empty() ? nullptr : inputs[0];
    const scalar* twinIn = twinInputs.empty() ? nullptr : twinInputs[0];
    if (twin && twin != this && in && twinIn && factor >= 1 && twin->factor == factor && n > 0 &&
        n <= static_cast<size_t>(maxBlockSize) && n <= static_cast<size_t>(twin->maxBlockSize) && !sections.empty() &&
        runTwinCascade<false>(sections, histories, twin->sections, twin->histories, in, twinIn, n,
                              static_cast<size_t>(factor), buffer, twin->buffer))
        return;
    Filter::processTwin(other, inputs, twinInputs, n);
}

scalar* IirDecimator::getOutput(int index) {
    if (index != 0) throw InvalidArgumentException(str("Iir: Invalid output index: ", index));
    return buffer;
}

} // namespace kelm
