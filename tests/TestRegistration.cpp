// Every test runs with the engine's types registered, as the tool and the plug-ins do
// before they parse a document.
#include "solvers/EngineTypes.h"

namespace {
const bool registered = (kelm::registerEngineTypes(), true);
}
