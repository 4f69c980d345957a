#pragma once

namespace kelm {

// The plug-in's LV2 URI. Hosts keep sessions by it: it never changes.
constexpr const char* kKelmLV2Uri = "urn:kelm:preamp";

} // namespace kelm
