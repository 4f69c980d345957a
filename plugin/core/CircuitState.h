#pragma once
#include <cstddef>
#include <string>
#include <vector>

namespace kelm {

// What a host keeps of Kelm Circuit in its session (a VST 2 chunk, an LV2 state): the
// document's whole text, its name and path, the reload toggle and every parameter value
// (0 to 1). Written as a few header lines and the text:
//
//   KelmCircuit 1
//   name: fuzz-face.xml
//   path: /home/me/circuits/fuzz-face.xml
//   reload: 0
//   parameters: 0.5 0.25 ... (one value per parameter, in parameter order)
//   document: 3138
//   <the 3138 bytes of the document>
//
// Bytes that do not start with the first line are taken as a document's text alone, so
// that a plain description or netlist file serves as a preset.
class CircuitState {
public:
    static constexpr const char* kMagic = "KelmCircuit 1\n";

    std::string name;
    std::string path;
    std::string document;
    bool reload = false;
    std::vector<float> parameters;  // empty when the bytes held a document's text alone
    bool hasHeader = false;

    std::string encode() const;
    // Throws DocumentError (kind State or Empty) for bytes that do not read.
    static CircuitState decode(const void* data, size_t size);
};

} // namespace kelm
