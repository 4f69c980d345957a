#pragma once
#include <cstddef>
#include <string>

namespace kelm {

// A value token of a netlist as the importer reads it: SPICE's number with its scale
// suffix (f p n u m k meg g t, and mil; 1M is milli, 1MEG mega), letters after the suffix
// ignored as units ("10uF", "1kohm"). A schematic-style value such as 2k2, 4u7 or 1R5 is
// read as the schematic means it (2.2k, 4.7u, 1.5); ngspice reads the digits before the
// letter alone, and ngspiceValue says what it gives. In that style an upper-case M is mega
// and a lower-case m milli.
struct SpiceNumber {
    bool ok = false;
    double value = 0;
    bool schematic = false;
    double ngspiceValue = 0;
};

SpiceNumber parseSpiceNumber(const std::string& token);

// Reads a number and its scale suffix (no unit letters) at text[pos] and moves pos past
// them; false, pos unchanged, where no number starts. For numbers inside expressions.
bool readSpiceNumber(const std::string& text, size_t& pos, double& value);

} // namespace kelm
