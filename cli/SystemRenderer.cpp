#include <iomanip>
#include <stdexcept>

#include "cli/Renderer.h"
#include "engine/Driver.h"
#include "engine/Graph.h"
#include "engine/SystemInfo.h"
#include "solvers/EngineTypes.h"

namespace kelm {
namespace cli {

namespace {

// Runs any system description through a Driver.
class SystemRenderer : public Renderer {
public:
    explicit SystemRenderer(const std::string& document) {
        driver = std::make_shared<Driver>();
        registerEngineTypes();
        driver->init(document);
    }
    void setParameter(const std::string& name, float value) override {
        ControlPtr c = driver->findControl(name);
        if (!c) throw std::runtime_error("unknown control '" + name + "'; known controls: " + controlNames());
        c->setValue(value);
    }
    void prepare(float sampleRate, int maxBlockSize) override {
        driver->setSampleRate(sampleRate);
        driver->setMaxBlockSize(maxBlockSize);
    }
    int numberOfInputs() const override { return driver->getNumberOfInputs(); }
    int numberOfOutputs() const override { return driver->getNumberOfOutputs(); }
    const std::vector<float*>& process(const std::vector<float*>& inputs, size_t frames) override {
        driver->process(inputs, frames);
        return driver->getResults();
    }
    void describe(std::ostream& out) override { SystemInfo::describe(*driver, out); }

private:
    std::string controlNames() const {
        std::string names;
        for (auto& c : driver->getControls()) names += (names.empty() ? "" : ", ") + c->name;
        return names.empty() ? "(none)" : names;
    }
    std::shared_ptr<Driver> driver;
};

} // namespace

std::unique_ptr<Renderer> makeSystemRenderer(const std::string& document) {
    return std::unique_ptr<Renderer>(new SystemRenderer(document));
}

} // namespace cli
} // namespace kelm
