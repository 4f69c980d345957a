#include "dsp/Relaxation.h"

#include "engine/InvalidArgumentException.h"
#include "engine/OperationNotSupportedException.h"
#include "engine/Str.h"

namespace kelm {

void Relaxation::init(const std::string& name, std::shared_ptr<DSPContext>& ctx) {
    Filter::init(name, ctx);
    iterationResults.assign(1, 0.0f);
    relaxationSet = false;
}

void Relaxation::readProperties(const PropertyMap& p) {
    p.readRequired("Relaxation", relaxation,
                   KELMException("Relaxation: Relaxation is not defined. Relaxation name=" + elementName));
    if (!(relaxation > 0))
        throw InvalidArgumentException(str("Relaxation: Relaxation must be greater than 0. Relaxation=", relaxation,
                                           " Relaxation name=", elementName));
    p.readOptional("Extrapolate", extrapolate);
    relaxationSet = false;
}

void Relaxation::setRelaxation(scalar value) {
    relaxation = value;
    relaxationSet = true;
}

void Relaxation::blockNotSupported() const {
    throw OperationNotSupportedException("Relaxation: Block processing mode is not supported. Name: " + elementName);
}

ScalarVector& Relaxation::iterate(const ScalarVectorPtr& inputs, int, int) {
    scalar result = (1.0f - relaxation) * last + relaxation * (*inputs)[0];
    last = result;
    iterationResults[0] = result;
    return iterationResults;
}

void Relaxation::endIteration(int) {
    if (extrapolate) {
        scalar p = 2.0f * last - previous;
        iterationResults[0] = p;
        previous = last;
        last = p;
    }
}

} // namespace kelm
