#pragma once

namespace kelm {

// The plug-in's LV2 URI. Hosts keep sessions by it: it never changes.
constexpr const char* kKelmLV2Uri = "urn:kelm:preamp";
// Its window (an X11 UI, in kelm_ui.so in the same bundle).
constexpr const char* kKelmLV2UiUri = "urn:kelm:preamp:ui";

} // namespace kelm
