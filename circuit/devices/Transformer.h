#pragma once
#include "circuit/devices/Windings.h"

namespace kelm {

// Transformer as two coupled inductors: nodes primary +, primary -, secondary +,
// secondary -; "Inductances" the primary's and the secondary's (henries, "L1|L2") and
// "Coupling" k (0 < k < 1), the mutual inductance k sqrt(L1 L2). The turns ratio is
// sqrt(L2 / L1). Both windings are shorts in DC analysis.
class Transformer : public Windings {
public:
    void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    void propertiesChanged(const PropertyMapPtr& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    void propertyChanged(const std::string& name, const ScalarVectorPtr& value) override;

private:
    void readInductances(const std::string& text);
    void set(double primary, double secondary, double coupling);
    double l1 = 0, l2 = 0, k = 0;
};

} // namespace kelm
