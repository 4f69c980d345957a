#include <cmath>
#include <cstring>

#include "dsp/BasicFilterMeta.h"
#include "dsp/BiQuad.h"
#include "dsp/Iir.h"
#include "dsp/IirDecimator.h"
#include "dsp/IirDesignContext.h"
#include "dsp/IirInterpolator.h"
#include "engine/DSPContext.h"
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
    auto request = std::make_shared<filterdesign::IirDesignContext>(type, order, normalizedCorner);
    if (type == filterdesign::BESSEL) request->options.set(filterdesign::MATCHED_Z);
    filterdesign::designIir(request);
    for (auto& stage : stages) {
        stage->propertyChanged("A", request->A);
        stage->propertyChanged("B", request->B);
    }
    if (interpolator) {
        auto b = std::make_shared<ScalarVector>(*request->B);
        for (int k = 0; k <= order && k < static_cast<int>(b->size()); ++k) (*b)[k] *= factor;
        stages.front()->propertyChanged("B", b);
    }
}

void IirResampler::propertyChanged(const std::string& prop, scalar value) {
    if (prop != "Factor") throw InvalidArgumentException("IirInterpolator: Unknown property " + prop);
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
    std::memset(buffer, 0, m * sizeof(scalar));
    const scalar* in = inputs.empty() ? nullptr : inputs[0];
    if (in)
        for (size_t i = 0; i < n; ++i) buffer[factor * i] = in[i];
    stageInput[0] = buffer;
    for (auto& stage : stages) {
        stage->process(stageInput, m);
        stageInput[0] = stage->getOutput(0);
    }
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
    stageInput[0] = inputs.empty() ? nullptr : inputs[0];
    for (auto& stage : stages) {
        stage->process(stageInput, n);
        stageInput[0] = stage->getOutput(0);
    }
    const scalar* last = stageInput[0];
    size_t j = 0;
    for (size_t i = 0; i < n; i += factor) buffer[j++] = last[i];
}

scalar* IirDecimator::getOutput(int index) {
    if (index != 0) throw InvalidArgumentException(str("Iir: Invalid output index: ", index));
    return buffer;
}

} // namespace kelm
