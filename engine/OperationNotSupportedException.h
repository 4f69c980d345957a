#pragma once
#include "engine/KELMException.h"

namespace kelm {

// An operation that the receiving class does not offer.
class OperationNotSupportedException : public KELMException {
public:
    using KELMException::KELMException;
};

} // namespace kelm
