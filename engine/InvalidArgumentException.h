#pragma once
#include "engine/KELMException.h"

namespace kelm {

// A caller's bad value or name.
class InvalidArgumentException : public KELMException {
public:
    using KELMException::KELMException;
};

} // namespace kelm
