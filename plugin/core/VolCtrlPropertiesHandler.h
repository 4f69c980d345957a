#pragma once
#include <memory>

#include "dsp/FixedOrderIIR.h"
#include "dsp/LookupTableFilter.h"
#include "engine/PropertiesHandler.h"

namespace kelm {

class Filter;

// Models a gain stage around a potentiometer: turns the wiper, the plate
// resistance of the driving stage (ohms, by its plate voltage) and the grid
// admittance of the driven stage (siemens, by its grid voltage) into the
// changing coefficients of a BiQuad. All intermediate values are doubles.
class VolCtrlPropertiesHandler : public PropertiesHandler {
public:
    // target: the BiQuad whose coefficients this handler writes (not owned).
    explicit VolCtrlPropertiesHandler(Filter* target);
    void propertiesChanged(const PropertyMapPtr& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    void sampleRateChanged(scalar rate) override;
    bool isPerSample() override { return true; }
    void updateForIteration(scalar x, scalar y, int iteration) override;
    void updateForSample(scalar x, scalar y) override;
    bool runPerSample(Filter& filter, const scalar* in, scalar* out, size_t n) override;
    bool runPerSampleTwin(Filter& filter, const scalar* in, scalar* out, PropertiesHandler& twin, Filter& twinFilter,
                          const scalar* twinIn, scalar* twinOut, size_t n) override;

    // Grid admittance by grid voltage and plate resistance by plate voltage.
    LookupTableFilter& yg() { return *gridAdmittance; }
    LookupTableFilter& rp() { return *plateResistance; }
    bool isDirty() const { return dirty; }

private:
    struct Lane;
    void send();
    // B0 = numerator * n, B2 = -B0; A0 and A1 from the grid admittance g; then sends them.
    void write(double g, double n, double numerator);

    Filter* target;
    FixedOrderIIR<2>* biquad;  // the target when it is a BiQuad: coefficients go in directly
    std::unique_ptr<LookupTableFilter> gridAdmittance;
    std::unique_ptr<LookupTableFilter> plateResistance;
    const double c1 = 1.5e-07;
    const double c2 = 7.5e-11;
    const double R = 100000;
    double wiper = 1.0;
    scalar factor = 1.0f;
    scalar relaxation = 0.1f;
    double p = 0, q = 0;
    double k = 0, a = 0, b = 0;
    double smoothed = 0;
    double lastY[3] = {0, 0, 0};
    // Constants of the last full update.
    double e = 0, f = 0, v = 0, D0 = 0, D1 = 0, P = 0, Q = 0;
    bool dirty = true;
    ScalarVectorPtr A;
    ScalarVectorPtr B;
};

} // namespace kelm
