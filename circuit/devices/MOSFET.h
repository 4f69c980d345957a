#pragma once
#include "circuit/devices/JunctionDevice.h"

namespace kelm {

// An enhancement MOSFET as SPICE's level-1 model with its body tied to the source: nodes
// drain, gate, source. "Model" names a built-in card; "Polarity" is "N" or "P" (default the
// card's, else N); Kp (A/V^2), Vto (V), Lambda (1/V), W and L (m, 100 um each by default)
// override it. The drain-body junction is level 1's, at its default saturation current
// (1e-14 A): with the body on the source it conducts where the drain goes below the source.
// Its ports are gate-source and drain-source: their currents are the gate current (none)
// and the drain current (A).
class MOSFET : public JunctionDevice {
public:
    void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void evaluatePorts(double* v, double* i, double* di, double* f, double* df) override;

    // The drain current (A) of an N-channel device at vgs, vds (V), with its slopes
    // gm = dId/dVgs and gds = dId/dVds.
    double drainCurrent(double vgs, double vds, double& gm, double& gds) const;

protected:
    void derive() override;
    void charges(const double*, double*) const override {}

private:
    double kp = 2e-5, vto = 0, lambda = 0, w = 1e-4, l = 1e-4;
    double sign = 1;  // -1 for P-channel
    double beta = 0, vt = 0, vcrit = 0;
    double lastVgs = 0, lastVds = 0;
};

} // namespace kelm
