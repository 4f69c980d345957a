#pragma once
// Validation shared by the tube current models.
#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"

namespace kelm {

// A Koren parameter must not be negative; the message keeps the "Triode:" prefix for every model.
inline void requireNonNegative(const char* name, double value) {
    if (value < 0)
        throw InvalidArgumentException(str("Triode: ", name, " must be greater than or equal to 0. ", name, "=", value));
}

} // namespace kelm
