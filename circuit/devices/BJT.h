#pragma once
#include <limits>

#include "circuit/devices/JunctionDevice.h"

namespace kelm {

// A bipolar transistor as SPICE's Gummel-Poon transport model without its second-order
// terms: nodes collector, base, emitter. "Model" names a built-in card; "Polarity" is "NPN"
// or "PNP" (default the card's, else NPN); Is, Bf, Br, Nf, Nr, Vaf, Var, Ikf, Ikr, Ise, Ne,
// Isc, Nc, Rb, Rc, Re, Cje, Vje, Mje, Cjc, Vjc, Mjc, Fc, Tf, Tr override it (SPICE's units).
// Its ports are base-emitter and collector-emitter: their currents are the base and
// collector currents (A).
class BJT : public JunctionDevice {
public:
    void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void evaluatePorts(double* v, double* i, double* di, double* f, double* df) override;

    // The DC base and collector currents (A) of an NPN at the junction voltages vbe, vbc
    // (V), with their slopes: d[0] = dIb/dVbe, d[1] = dIb/dVbc, d[2] = dIc/dVbe, d[3] = dIc/dVbc.
    void transport(double vbe, double vbc, double& ib, double& ic, double* d) const;

protected:
    void derive() override;
    void tabulate(bool build) override;
    void charges(const double* v, double* q) const override;

private:
    // The junctions of an NPN at vbe, vbc (V): the DC base and collector currents with their
    // slopes as transport gives them, and where `charged` the base-emitter charge qe (C) with
    // its slopes by vbe and vbc and the base-collector charge qc with its slope by vbc. The
    // junctions' exponentials and the base charge serve both.
    struct Point {
        double vbe = std::numeric_limits<double>::quiet_NaN(), vbc = std::numeric_limits<double>::quiet_NaN();
        double ib = 0, ic = 0, d[4] = {0, 0, 0, 0};
        bool charged = false;
        double qe = 0, qeVbe = 0, qeVbc = 0, qc = 0, qcVbc = 0;
    };
    void compute(double vbe, double vbc, bool withCharges, Point& p) const;
    // One junction at v, exactly (the emitter's or the collector's): its transport current,
    // its leakage with gmin and its depletion charge, with their slopes by v.
    void junction(double v, bool emitter, double* values, double* slopes) const;
    // The junctions at vbe, vbc: the charge memory of a sample and the iteration's first
    // evaluation of the next one meet at the same voltages, and the second takes the numbers
    // from here.
    const Point& at(double vbe, double vbc, bool withCharges) const {
        if (!(vbe == point.vbe && vbc == point.vbc && (point.charged || !withCharges))) {
            point.vbe = vbe;
            point.vbc = vbc;
            compute(vbe, vbc, withCharges, point);
        }
        return point;
    }

    double is = 1e-16, bf = 100, br = 1, nf = 1, nr = 1, vaf = 0, var = 0, ikf = 0, ikr = 0, ise = 0, ne = 1.5,
           isc = 0, nc = 2, rb = 0, rc = 0, re = 0, cje = 0, vje = 0.75, mje = 0.33, cjc = 0, vjc = 0.75,
           mjc = 0.33, fc = 0.5, tf = 0, tr = 0;
    double sign = 1;  // -1 for PNP
    double vt = 0, vcrit = 0;
    // Derived: the emission coefficients times vt, the inverse Early voltages and knee currents
    // (0 where there are none), the inverse betas.
    double nfVt = 0, nrVt = 0, neVt = 0, ncVt = 0, invVaf = 0, invVar = 0, invIkf = 0, invIkr = 0, invBf = 1, invBr = 1;
    double lastVbe = 0, lastVbc = 0;
    mutable Point point;  // the last junction voltages computed
    HermiteTable<3> emitterTable, collectorTable;  // what junction() gives, tabulated
};

} // namespace kelm
