#pragma once
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "engine/Control.h"
#include "engine/Driver.h"
#include "plugin/core/EffectCore.h"

namespace kelm {

// The preamp effect without any plug-in format: builds the Driver from the
// built-in description, attaches the wiper handlers, delivers the tables,
// installs the parameter transforms, and runs blocks by the channel rules a
// host expects. Every plug-in format and the kelm tool sit on it.
class KelmEffect : public EffectCore {
public:
    KelmEffect();
    // Over another description of the same preamp (its graphs and elements by the built-in
    // names), such as the built-in one with an element of a test's own.
    explicit KelmEffect(const std::string& document);
    ~KelmEffect() override;

    int numberOfParameters() const override { return static_cast<int>(controls.size()); }
    // Parameter values from 0 to 1, in the order of the description's controls.
    void setParameter(int index, float value) override;
    float getParameter(int index) const override;
    std::string parameterName(int index) const override;  // the control's display name
    int parameterIndex(const std::string& name) const;  // -1 when unknown
    // Readable value text and unit label (e.g. "4x", "Post", "+3.2", "dB").
    std::string parameterText(int index, float value) const override;
    std::string parameterLabel(int index) const override;
    // The value of a text: the exact inverse of parameterText where its text reads back the
    // same, else the search over values.
    bool parameterFromText(int index, const std::string& text, float& value) const override;
    // Number of positions a parameter takes: 2 for a switch, 3 for Oversampling, 0 when continuous.
    int parameterPositions(int index) const override;

    void setSampleRate(float rate) override;
    void setBlockSize(int frames) override;
    void suspend() override;
    // Warm-up: feeds at least 0.2 s of silence, plus one block, through the system.
    void resume() override;
    // in: one or two input channels (in[1] may be null or equal to in[0]);
    // out: two channels (out[1] may be null). Flush-to-zero and
    // denormals-are-zero are on while the engine runs. Input samples are held within
    // +-kInputLimit and NaN is read as 0; before a sample rate and a block size are set the
    // output is silence. A block in which anything throws is silence from its first frame to
    // its last; the engine's exceptions (KELMException) then pass to the caller, any other
    // ends there. The blocks after it run on.
    void process(float** in, float** out, int frames, bool secondInputConnected = true) override;

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
