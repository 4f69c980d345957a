#pragma once
#include "circuit/MNAEventListener.h"
#include "circuit/VoltageSource.h"

namespace kelm {

// Plays one input of the Circuit (volts) into the network, plus "DCOffset".
class VoltageInputSource : public VoltageSource, public MNAEventListener {
public:
    void init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& nodeNames,
              const std::shared_ptr<MNAContext>& context) override;
    scalar* getRhs(scalar*) override;
    void readProperties(const PropertyMap& properties) override;
    void propertiesChanged(const PropertyMapPtr& properties) override;
    void propertyChanged(const std::string& name, scalar value) override;
    using Element::propertyChanged;
    void sampleRateChanged(scalar) override {}
    void analysisChanged(AnalysisType oldType, AnalysisType newType) override;

private:
    scalar inputValue = 0;
    scalar dcOffset = 0;
    int inputNumber = -1;
    ScalarVectorPtr circuitInputs;
    bool fetched = false;
};

} // namespace kelm
