#pragma once
#include <string>

namespace kelm {

// Whether a file is a SPICE netlist rather than a system description: by its name
// (.cir .net .sp .spice) or, whatever its name, by its text (not XML).
bool isNetlist(const std::string& text, const std::string& fileName);

// The system description of a file, by its text and name: an XML description as it is,
// a netlist imported for a system running at sampleRate (its .include files read beside
// it). Notes on the import go to the standard error. Throws NetlistError for a netlist
// the importer cannot take.
std::string systemDescription(const std::string& text, const std::string& fileName, double sampleRate = 48000);

} // namespace kelm
