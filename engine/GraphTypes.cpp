#include "engine/GraphTypes.h"

namespace kelm {

TypeRegistry<GraphReader>& graphTypes() {
    static TypeRegistry<GraphReader> types;
    return types;
}

} // namespace kelm
