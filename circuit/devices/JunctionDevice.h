#pragma once
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "circuit/MNAContext.h"
#include "circuit/PortComponent.h"
#include "circuit/Stamp.h"
#include "circuit/devices/JunctionCharge.h"
#include "math/HermiteTable.h"

namespace kelm {

// What the semiconductor devices share: their SPICE parameters read from the element over
// its built-in model card and changed at run time by name, series resistances on internal
// nodes, the memory of their junction charges, and outputs kept finite. Resistances in
// ohms; the other units are SPICE's.
class JunctionDevice : public PortComponent {
public:
    scalar** getG() override;
    bool hasPortMemory() const override { return chargeCount > 0; }
    void acceptPorts(const double* v) override;
    void analysisChanged(AnalysisType oldType, AnalysisType newType) override;
    void propertiesChanged(const PropertyMapPtr& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Element::propertyChanged;

protected:
    // The limits of a parameter's value.
    enum Range { any, positive, nonNegative };
    // Declares a numeric parameter: its property name, where it is kept, its value where
    // neither the element nor the model gives one, and its range. Call in init, in order.
    void declare(const char* name, double& value, double fallback, Range range = any);
    // Reads the declared parameters from p (missing ones take their fallback) and checks them.
    void readParameters(const PropertyMap& p);
    // Recomputes what follows from the parameters (critical voltages, charge coefficients);
    // called after every read and change.
    virtual void derive() = 0;
    // Builds the device's tables from the derived values (build) or empties them, so that it
    // evaluates exactly. Devices without tables need not override it.
    virtual void tabulate(bool build) { (void)build; }

    // Checks the node count, naming the element and its nodes in order where it is wrong.
    void requireNodes(int count, const char* type, const char* order);
    // The "Polarity" property against two allowed names: true for the second, false for the
    // first; without one, `fallback`. Throws naming an unknown polarity.
    bool readPolarity(const PropertyMap& p, const char* first, const char* second, bool fallback);

    // A series resistance r (ohms) between `terminal` and a new internal node named after
    // `suffix`, where r is not negligible; returns the terminal the device's ports use.
    int addSeries(int terminal, double& r, const char* suffix);

    // The charge memory: the device's charges (C) at port voltages v, one per JunctionCharge
    // in `charge`; chargeCount of them (0 for none).
    virtual void charges(const double* v, double* q) const = 0;
    // Whether the charges' currents enter the evaluation now: in a transient, with charges.
    bool charging() const { return chargeCount > 0 && context->getAnalysisType() == AnalysisType::AC; }
    // The trapezoidal rule's step rate (twice the sample rate, 1/s).
    double stepRate() const { return 2.0 * static_cast<double>(context->getSampleRate()); }

    // Replaces anything not finite among the P port currents and their Jacobian by 0 (the
    // diagonal by gmin), and returns whether all were finite. P is the device's port count.
    template <int P>
    bool keepFinite(double* i, double* di) const {
        // One test for all first: their sum is finite where each is, unless it overflows.
        double sum = 0;
        for (int p = 0; p < P; ++p) sum += i[p];
        for (int k = 0; k < P * P; ++k) sum += di[k];
        return std::isfinite(sum) || replaceNotFinite(i, di);
    }

    // True once, at the device's first evaluation in an operating point: there it starts
    // from SPICE's initial junction voltages (a forward junction at its critical voltage)
    // instead of the solver's zero start, from which a junction fed by a supply would be
    // limited to so small a conductance that the first step barely moves.
    bool firstOperatingPoint() {
        if (started) return false;
        started = true;
        return context->getAnalysisType() == AnalysisType::DC;
    }

    // How near (in units of the junction's n Vt) the accepted solution must lie to the
    // iteration's last evaluation for the charges to be taken along that evaluation's
    // tangent instead of evaluated again: 1e-3 n Vt, about 26 uV, where the curvature adds
    // less than 5e-4 of the step's own change of charge.
    static constexpr double kTangentReach = 1e-3;

    // Tabulates K functions of one junction's voltage (its currents and charge), so that an
    // evaluation interpolates instead of taking exponentials and powers: finely (nvt / 8, the
    // interpolant within 1e-6 of the current) from -10 nvt, where the reverse tail has nearly
    // settled at -Is, to where Is exp(v / nvt) reaches 1 A, and in steps of at most 0.1 V down
    // to `floor` but no further than 12 V of reverse bias. Outside that span the device evaluates exactly.
    // f(v, values, slopes) is the exact evaluation. Allocates nothing once reserved.
    template <int K, typename F>
    static void tabulateJunction(HermiteTable<K>& table, double nvt, double is, double floor, F&& f) {
        if (table.fineCapacity() == 0) table.reserve(kCoarseIntervals, kFineIntervals);
        const double split = -10 * nvt;
        const double high = std::max(split + nvt, nvt * std::log(1 / is + 1));
        const double low = std::max(floor, -12.0);
        const int fine = std::min(kFineIntervals, static_cast<int>(std::ceil((high - split) / (nvt / 8))));
        const int coarse = std::min(kCoarseIntervals, static_cast<int>(std::ceil((split - low) / 0.1)));
        table.build(low, split, high, std::max(coarse, 0), fine, f);
    }

    static constexpr int maxCharges = 3;
    JunctionCharge charge[maxCharges];
    int chargeCount = 0;

private:
    struct Parameter {
        const char* name;
        double* value;
        double fallback;
        Range range;
    };
    struct Series {
        int outer, inner;
        double* resistance;
    };
    static constexpr int kCoarseIntervals = 128, kFineIntervals = 320;
    void check(const Parameter& p, double v) const;
    // A change at run time: derived again, the tables emptied until the parameters have held
    // still for kTableSettle samples, then built again (acceptPorts) at one sample's start,
    // so that a knob turning a parameter costs no table a step.
    void changedWhilePlaying();
    static constexpr int kTableSettle = 4096;
    int tableCountdown = 0;
    bool replaceNotFinite(double* i, double* di) const;
    std::vector<Parameter> parameters;
    std::vector<Series> series;
    Stamp seriesStamp;
    bool fresh = true;
    bool started = false;
};

} // namespace kelm
