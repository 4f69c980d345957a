#pragma once

namespace kelm {

// The plug-ins' LV2 URIs. Hosts keep sessions by them: they never change.
constexpr const char* kKelmLV2Uri = "urn:kelm:preamp";
// Its window (an X11 UI, in kelm_ui.so in the same bundle).
constexpr const char* kKelmLV2UiUri = "urn:kelm:preamp:ui";
// Kelm Circuit's URI, and the key of its state (the document and every parameter).
constexpr const char* kKelmCircuitLV2Uri = "urn:kelm:circuit";
constexpr const char* kKelmCircuitStateUri = "urn:kelm:circuit#state";
// Kelm Circuit's window (an X11 UI in kelm_ui.so, needing instance-access).
constexpr const char* kKelmCircuitLV2UiUri = "urn:kelm:circuit:ui";

} // namespace kelm
