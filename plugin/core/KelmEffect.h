#pragma once
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "engine/Control.h"
#include "engine/Driver.h"

namespace kelm {

// The preamp effect without any plug-in format: builds the Driver from the
// built-in description, attaches the wiper handlers, delivers the tables,
// installs the parameter transforms, and runs blocks by the channel rules a
// host expects. The VST 2 shell and the kelm tool both sit on it.
class KelmEffect {
public:
    KelmEffect();
    // Over another description of the same preamp (its graphs and elements by the built-in
    // names), such as the built-in one with an element of a test's own.
    explicit KelmEffect(const std::string& document);
    virtual ~KelmEffect();

    int numberOfParameters() const { return static_cast<int>(controls.size()); }
    // Parameter values from 0 to 1, in the order of the description's controls.
    void setParameter(int index, float value);
    float getParameter(int index) const;
    const std::string& parameterName(int index) const;  // the control's display name
    int parameterIndex(const std::string& name) const;  // -1 when unknown
    // Readable value text and unit label (e.g. "4x", "Post", "+3.2", "dB").
    std::string parameterDisplay(int index) const;
    std::string parameterLabel(int index) const;
    // Number of positions a parameter takes: 2 for a switch, 3 for Oversampling, 0 when continuous.
    int parameterPositions(int index) const;

    void setSampleRate(float rate);
    void setBlockSize(int frames);
    void suspend();
    // Warm-up: feeds at least 0.2 s of silence, plus one block, through the system.
    void resume();
    // in: one or two input channels (in[1] may be null or equal to in[0]);
    // out: two channels (out[1] may be null). Flush-to-zero and
    // denormals-are-zero are on while the engine runs. Input samples are held within
    // +-kInputLimit and NaN is read as 0; before a sample rate and a block size are set the
    // output is silence. A block in which anything throws is silence from its first frame to
    // its last; the engine's exceptions (KELMException) then pass to the caller, any other
    // ends there. The blocks after it run on.
    void process(float** in, float** out, int frames, bool secondInputConnected = true);

    static constexpr float kInputLimit = 64.0f;  // full scale is 1

    // Whether Stereo is at mono: the right output repeats the left (the document's graph Mono).
    bool isMono() const;
    bool isResumed() const { return resumed.load(); }
    Driver& getDriver() { return *driver; }
    const std::shared_ptr<Driver>& driverPointer() const { return driver; }

private:
    void attachHandlers();
    void deliverTables();
    void installTransforms();
    static scalar* sanitise(const float* in, scalar* clean, int n);

    std::atomic<bool> resumed{true};
    std::shared_ptr<Driver> driver;
    std::vector<ControlPtr> controls;
    std::vector<scalar*> inputs;
    std::vector<scalar> clean[2];  // the input channels as the engine reads them, maxBlockSize each
};

} // namespace kelm
