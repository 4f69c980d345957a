#pragma once
#include <vector>

namespace kelm {

// Computes the preamp's six lookup tables from the 12AX7 Triode model in
// table form: the DC solutions of the two stages (volts, amperes, siemens, ohms).
class TableGenerator {
public:
    struct Tables {
        std::vector<float> firstStageCurve;       // plate volts by input volts, -2..4 step 0.002
        std::vector<float> secondStageCurve;      // plate volts by grid volts, -8..10 step 0.002
        std::vector<float> secondStageGridCurrent;  // amperes, same grid
        std::vector<float> firstStageAdmittance;  // siemens by plate volts, 52..155 step 1
        std::vector<float> gridResistance;        // ohms by grid volts, -8..10 step 0.002
        std::vector<float> plateResistance;       // ohms by plate volts, 52..155 step 1
        double quiescentCathode = 0;              // Vk0, volts
        double quiescentPlate = 0;                // plate volts at 0 V in
    };
    static Tables generate();
};

} // namespace kelm
