#pragma once
#include <algorithm>
#include <limits>

#include "circuit/devices/Junction.h"
#include "circuit/devices/JunctionDevice.h"

namespace kelm {

// A junction diode as SPICE's level-1 diode: nodes anode, cathode. "Model" names a built-in
// card; "Is" (A), "N", "Rs" (ohms), "Bv" (V, breakdown only where given), "Ibv" (A), "Cjo"
// (F), "Vj" (V), "M", "Fc" and "Tt" (s) override it. Its port is the junction (V, A).
class Diode : public JunctionDevice {
public:
    void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void evaluatePorts(double* v, double* i, double* di, double* f, double* df) override;

    // The junction current (A) and its slope (S) at v (V), without charge: the DC law.
    double junctionCurrent(double v, double& g) const {
        double id;
        if (breakdown && v < -knee) {
            const double e = fastExp(std::min(-(knee + v) / nvt, 80.0));
            id = -is * e;
            g = is * e / nvt;
        } else {
            id = Junction::current(v, is, nvt, g);
        }
        g += Junction::gmin;
        return id + Junction::gmin * v;
    }

protected:
    void derive() override;
    void tabulate(bool build) override;
    // The breakdown knee: where the reverse current reaches Ibv.
    void findKnee();
    void charges(const double* v, double* q) const override;

private:
    // The junction at the voltage v: its DC current with gmin (A) and slope (S), and where
    // `charged`, its charge (C) and capacitance dq/dv (F). The charge memory of a sample and
    // the iteration's first evaluation of the next one meet at the same voltage: the second
    // takes the numbers from here.
    struct Point {
        double v = std::numeric_limits<double>::quiet_NaN();
        double id = 0, g = 0, q = 0, dq = 0;
        bool charged = false;
    };
    const Point& at(double vd, bool withCharge) const {
        return vd == point.v && (point.charged || !withCharge) ? point : compute(vd, withCharge);
    }
    const Point& compute(double vd, bool withCharge) const;
    // The exact law at v: current with gmin and the charge, with their slopes.
    void exact(double v, double* values, double* slopes) const;

    double is = 1e-14, n = 1, rs = 0, bv = 0, ibv = 1e-3, cjo = 0, vj = 1, m = 0.5, fc = 0.5, tt = 0;
    bool breakdown = false;
    double nvt = 0, vcrit = 0, knee = 0;  // knee: the breakdown voltage where the current is Ibv
    double last = 0;                      // the junction voltage of the last evaluation
    mutable Point point;                  // the last junction voltage computed
    HermiteTable<2> table;                // the current and the charge, tabulated
};

} // namespace kelm
