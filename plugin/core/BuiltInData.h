#pragma once
#include <string>

namespace kelm {

// One built-in lookup table: entry i stands for the input vinMin + i*deltaV.
struct BuiltInTable {
    const float* data;
    int size;
    const char* vinMin;
    const char* vinMax;
    const char* deltaV;
};

// The data compiled into the binary at build time: the built-in system
// description and the six tables derived from the 12AX7 model.
struct BuiltInData {
    static const std::string& document();
    static BuiltInTable firstStageCurve();         // plate volts by input volts
    static BuiltInTable secondStageCurve();        // plate volts by grid volts
    static BuiltInTable secondStageGridCurrent();  // amperes by grid volts
    static BuiltInTable firstStageAdmittance();    // siemens by plate volts
    static BuiltInTable gridResistance();          // ohms by grid volts
    static BuiltInTable plateResistance();         // ohms by plate volts
};

} // namespace kelm
