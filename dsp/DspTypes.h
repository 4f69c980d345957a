#pragma once
#include <functional>

#include "engine/TypeRegistry.h"

namespace kelm {

class Filter;

// Makes a new DSP element of one type.
typedef std::function<Filter*()> FilterMaker;

// The DSP element types that DSP graphs know, by the Type attribute of an Element.
TypeRegistry<FilterMaker>& filterTypes();

// Enters the engine's DSP elements and the graph type "DSP". Safe to call again.
void registerDspTypes();

} // namespace kelm
