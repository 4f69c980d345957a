#pragma once
#include "circuit/devices/JunctionDevice.h"

namespace kelm {

// A junction field-effect transistor as SPICE's level-1 JFET (Shichman-Hodges channel, gate
// junctions to drain and source, symmetric in drain and source): nodes drain, gate, source.
// "Model" names a built-in card; "Polarity" is "N" or "P" (default the card's, else N);
// Beta (A/V^2), Vto (V), Lambda (1/V), Is (A), N, Rd, Rs (ohms), Cgs, Cgd (F), Pb (V), Fc
// override it. Its ports are gate-source and drain-source: their currents are the gate and
// drain currents (A).
class JFET : public JunctionDevice {
public:
    void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void evaluatePorts(double* v, double* i, double* di, double* f, double* df) override;

    // The DC gate and drain currents (A) of an N-channel device at vgs, vds (V), with their
    // slopes: d[0] = dIg/dVgs, d[1] = dIg/dVds, d[2] = dId/dVgs, d[3] = dId/dVds.
    void currents(double vgs, double vds, double& ig, double& id, double* d) const;

protected:
    void derive() override;
    void charges(const double* v, double* q) const override;

private:
    double beta = 1e-4, vto = -2, lambda = 0, is = 1e-14, n = 1, rd = 0, rs = 0, cgs = 0, cgd = 0, pb = 1, fc = 0.5;
    double sign = 1;  // -1 for P-channel
    double nvt = 0, vcrit = 0;
    double lastVgs = 0, lastVgd = 0;
};

} // namespace kelm
