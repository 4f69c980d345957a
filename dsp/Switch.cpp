#include "dsp/Switch.h"

#include <cmath>
#include <cstring>

#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"

namespace kelm {

Switch::Switch() : meta(std::make_shared<SwitchMeta>()) {}

void Switch::init(const std::string&, std::shared_ptr<DSPContext>&) { setupOutputs(); }

void Switch::init(const std::string& name, const PropertyMapPtr& props, std::shared_ptr<DSPContext>& ctx) {
    Filter::init(name, ctx);
    if (props) properties = *props;
    setupOutputs();
    propertiesChanged(std::make_shared<PropertyMap>(properties));
}

void Switch::propertiesChanged(const PropertyMapPtr& props) {
    if (props->readOptional("NumberOfInputs", numberOfInputs)) meta->setNumberOfInputs(numberOfInputs);
    props->readOptional("Position", position);
    check();
}

void Switch::check() {
    if (numberOfInputs < 0) throw InvalidArgumentException("Switch: Number of inputs must be specified");
    if (numberOfInputs < 2) throw InvalidArgumentException("Switch: NumberOfInputs must be greater than 1.");
    if (position >= numberOfInputs)
        throw InvalidArgumentException(str("Switch: Invalid position ", position, ". NumberOfInputs=", numberOfInputs));
}

void Switch::propertyChanged(const std::string& name, scalar value) {
    if (name != "Position") throw InvalidArgumentException("Switch: Unknown property " + name);
    position = static_cast<int>(std::floor(value + 0.5f));
    check();
}

void Switch::process(BufferList& inputs, BufferList& outs, size_t n) {
    if (n == 0) return;
    // A negative position passes the check; it selects nothing here rather than reading out of range.
    const scalar* in = position >= 0 && position < static_cast<int>(inputs.size()) ? inputs[position] : nullptr;
    if (in)
        std::memmove(outs[0], in, n * sizeof(scalar));
    else
        std::memset(outs[0], 0, n * sizeof(scalar));
}

ScalarVector& Switch::iterate(const ScalarVectorPtr& inputs, int, int) {
    iterationResults[0] = position >= 0 && position < static_cast<int>(inputs->size()) ? (*inputs)[position] : 0.0f;
    return iterationResults;
}

void Switch::endIteration(int frame) {
    if (buffer && frame < maxBlockSize) buffer[frame] = iterationResults[0];
}

} // namespace kelm
