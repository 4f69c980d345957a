#pragma once

namespace kelm {

// Whether a circuit is solved for its operating point (capacitors open, inductors short)
// or sample by sample in time.
enum class AnalysisType { DC = 0, AC = 1 };

// How a transient starts: from the operating point, from zero volts everywhere, or from
// values the document gives (refused at the start: there is no way to give them).
enum class InitialCondition { OperatingPoint = 0, Zero = 1, User = 2 };

} // namespace kelm
