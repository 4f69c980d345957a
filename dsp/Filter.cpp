#include "dsp/Filter.h"

#include <algorithm>
#include <cstring>

#include "dsp/BasicFilterMeta.h"
#include "dsp/SingleOutputFilter.h"
#include "dsp/DSPContext.h"
#include "engine/InvalidArgumentException.h"
#include "engine/OperationNotSupportedException.h"
#include "engine/PropertiesHandler.h"
#include "engine/Str.h"

namespace kelm {

Filter::~Filter() {}

void Filter::init(const std::string& name, std::shared_ptr<DSPContext>& ctx) {
    elementName = name;
    context = ctx.get();
}

void Filter::propertyChanged(const std::string& name, scalar value) {
    if (!propertiesHandler)
        throw OperationNotSupportedException("propertyChanged(scalar) is not supported. Filter: " + elementName);
    propertiesHandler->propertyChanged(name, value);
}

void Filter::sampleRateChanged(scalar rate) {
    if (propertiesHandler) propertiesHandler->sampleRateChanged(rate);
}

void Filter::setPropertiesHandler(const std::shared_ptr<PropertiesHandler>& handler) {
    propertiesHandler = handler;
    if (handler && !properties.empty()) handler->propertiesChanged(std::make_shared<PropertyMap>(properties));
}

void Filter::processTwin(Filter& twin, BufferList& inputs, BufferList& twinInputs, size_t framesPerBuffer) {
    process(inputs, framesPerBuffer);
    twin.process(twinInputs, framesPerBuffer);
}

SingleOutputFilter::~SingleOutputFilter() { delete[] buffer; }

void SingleOutputFilter::setupOutputs() {
    outputs.assign(1, buffer);
    iterationResults.assign(1, 0.0f);
}

void SingleOutputFilter::init(const std::string& name, std::shared_ptr<DSPContext>& ctx) {
    Filter::init(name, ctx);
    setupOutputs();
}

void SingleOutputFilter::init(const std::string& name, const PropertyMapPtr& props, std::shared_ptr<DSPContext>& ctx) {
    Filter::init(name, ctx);
    if (props) properties = *props;
    readProperties(properties);
    setupOutputs();
}

void SingleOutputFilter::process(BufferList& inputs, size_t framesPerBuffer) {
    process(inputs, outputs, framesPerBuffer);
}

void SingleOutputFilter::process(BufferList& inputs, BufferList& outs, size_t framesPerBuffer) {
    process(inputs.empty() ? nullptr : static_cast<const scalar*>(inputs[0]), outs.empty() ? nullptr : outs[0],
            framesPerBuffer);
}

void SingleOutputFilter::setMaxBlockSize(int n) {
    if (n < 1) throw KELMException(str(className(), ": Invalid maxBlockSize", n));
    if (n > maxBlockSize) {
        maxBlockSize = n;
        delete[] buffer;
        buffer = new scalar[n]();
        outputs.assign(1, buffer);
    }
}

scalar* SingleOutputFilter::getOutput(int index) {
    if (index != 0) throw InvalidArgumentException(str(className(), ": Invalid output index: ", index));
    return buffer;
}

ElementMetaPtr SingleOutputFilter::getMeta() { return BasicFilterMeta::instance(); }

void SingleOutputFilter::notSupported() const { throw OperationNotSupportedException(""); }

} // namespace kelm
