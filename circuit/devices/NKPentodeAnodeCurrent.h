#pragma once
#include "circuit/devices/KorenPentode.h"
#include "circuit/devices/PentodeCurrent.h"

namespace kelm {

// Norman Koren's pentode plate current, always computed directly.
class NKPentodeAnodeCurrent : public PentodeCurrent {
public:
    NKPentodeAnodeCurrent() : derivativeVector(std::make_shared<ScalarVector>(3, 0.0f)) {}
    void init(const PropertyMap& properties) override;
    [[noreturn]] void setProperty() override;
    scalar current(scalar vgk, scalar vpk, scalar vsk) override;
    const ScalarVectorPtr& derivatives(scalar vgk, scalar vpk, scalar vsk) override;
    scalar dIdVgk(scalar vgk, scalar vpk, scalar vsk) override;
    scalar dIdVpk(scalar vgk, scalar vpk, scalar vsk) override;
    scalar dIdVsk(scalar vgk, scalar vpk, scalar vsk) override;
    // The same law, plate and screen, with every slope from one pass in double.
    KorenPentode onePass() const {
        KorenPentode k;
        k.setParameters(Kp, Kvb, mu, Ex, Kg1, Kg2);
        return k;
    }

private:
    double Vct = 0, Kp = 0, Kvb = 0, mu = 0, Ex = 0, Kg1 = 0, Kg2 = 0;
    ScalarVectorPtr derivativeVector;
};

} // namespace kelm
