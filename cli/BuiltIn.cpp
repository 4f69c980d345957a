#include <cerrno>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <sys/stat.h>

#include "cli/Renderer.h"
#include "engine/SystemInfo.h"
#include "plugin/core/BuiltInData.h"
#include "plugin/core/KelmEffect.h"

namespace kelm {
namespace cli {

namespace {

// Renders through the built-in preamp exactly as a host would drive the effect:
// parameters through setParameter, then sample rate, block size and resume.
class BuiltInRenderer : public Renderer {
public:
    BuiltInRenderer() : effect(new KelmEffect()), outputs(2) {}
    void setParameter(const std::string& name, float value) override {
        const int index = effect->parameterIndex(name);
        if (index < 0) {
            std::string names;
            for (int i = 0; i < effect->numberOfParameters(); ++i)
                names += (i ? ", " : "") + effect->parameterName(i);
            throw std::runtime_error("unknown control '" + name + "'; known controls: " + names);
        }
        if (!(value >= 0 && value <= 1))
            throw std::runtime_error("control '" + name + "' takes values from 0 to 1");
        effect->setParameter(index, value);
    }
    void prepare(float sampleRate, int maxBlockSize) override {
        effect->setSampleRate(sampleRate);
        effect->setBlockSize(maxBlockSize);
        effect->resume();
        for (auto& o : outputs) o.assign(maxBlockSize, 0.0f);
        pointers = {outputs[0].data(), outputs[1].data()};
    }
    int numberOfInputs() const override { return 2; }
    int numberOfOutputs() const override { return 2; }
    const std::vector<float*>& process(const std::vector<float*>& inputs, size_t frames) override {
        float* in[2] = {inputs[0], inputs.size() > 1 ? inputs[1] : inputs[0]};
        effect->process(in, pointers.data(), static_cast<int>(frames));
        return pointers;
    }
    void describe(std::ostream& out) override {
        out << "The built-in preamp (parameters from 0 to 1):";
        for (int i = 0; i < effect->numberOfParameters(); ++i)
            out << " " << effect->parameterName(i) << "=" << effect->getParameter(i);
        out << "\n";
        SystemInfo::describe(effect->getDriver(), out);
    }

private:
    std::unique_ptr<KelmEffect> effect;
    std::vector<std::vector<float>> outputs;
    std::vector<float*> pointers;
};

void writeCsv(const std::string& path, const BuiltInTable& t, bool reciprocal) {
    std::ofstream f(path);
    if (!f) throw std::runtime_error("cannot write " + path);
    const double vinMin = std::stod(t.vinMin), delta = std::stod(t.deltaV);
    char line[96];
    for (int i = 0; i < t.size; ++i) {
        const double value = reciprocal ? 1.0f / t.data[i] : t.data[i];
        std::snprintf(line, sizeof line, "%.6g,%.9g\n", vinMin + i * delta, value);
        f << line;
    }
    if (!f) throw std::runtime_error("cannot write " + path);
}

} // namespace

std::unique_ptr<Renderer> makeBuiltInRenderer() { return std::unique_ptr<Renderer>(new BuiltInRenderer()); }

int writeTables(const std::string& dir) {
    if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) throw std::runtime_error("cannot create directory " + dir);
    struct Entry {
        const char* file;
        BuiltInTable table;
        bool reciprocal;
    } entries[] = {
        {"first-stage-curve.csv", BuiltInData::firstStageCurve(), false},
        {"second-stage-curve.csv", BuiltInData::secondStageCurve(), false},
        {"second-stage-grid-current.csv", BuiltInData::secondStageGridCurrent(), false},
        {"first-stage-admittance.csv", BuiltInData::firstStageAdmittance(), false},
        {"grid-admittance.csv", BuiltInData::gridResistance(), true},
        {"plate-resistance.csv", BuiltInData::plateResistance(), false},
    };
    for (const Entry& e : entries) writeCsv(dir + "/" + e.file, e.table, e.reciprocal);
    std::printf("wrote 6 tables (input value, table value) to %s\n", dir.c_str());
    return 0;
}

} // namespace cli
} // namespace kelm
