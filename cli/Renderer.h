#pragma once
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace kelm {
namespace cli {

// What the tool renders through: a system description or the built-in preamp.
class Renderer {
public:
    virtual ~Renderer() {}
    // Before prepare. Unknown names raise an error that lists the known ones.
    virtual void setParameter(const std::string& name, float value) = 0;
    virtual void prepare(float sampleRate, int maxBlockSize) = 0;
    virtual int numberOfInputs() const = 0;
    virtual int numberOfOutputs() const = 0;
    virtual const std::vector<float*>& process(const std::vector<float*>& inputs, size_t frames) = 0;
    virtual void describe(std::ostream& out) = 0;
};

std::unique_ptr<Renderer> makeSystemRenderer(const std::string& document);
std::unique_ptr<Renderer> makeBuiltInRenderer();
// Writes the built-in lookup tables as CSV files into dir; returns the exit code.
int writeTables(const std::string& dir);

} // namespace cli
} // namespace kelm
