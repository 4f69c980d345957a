#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/Control.h"
#include "engine/Types.h"

namespace kelm {

class Driver;
class IirInterpolator;
class IirDecimator;
class DSPContext;

// One document (a system description or a SPICE netlist) built and warmed up for a host's
// sample rate, block size and oversampling factor, ready to run: its Driver (two of them,
// left and right, for a document of one input and one output), the engine's IIR
// interpolator and decimator around it when oversampled, and its controls as slots whose
// values run from 0 to 1. Built off the audio thread; process allocates nothing.
class CircuitDocument {
public:
    // sampleRate in Hz, maxBlockSize in frames, oversampling 1, 2, 4 or 8.
    struct Settings {
        double sampleRate = 48000;
        int maxBlockSize = 512;
        int oversampling = 1;
        bool operator==(const Settings& o) const {
            return sampleRate == o.sampleRate && maxBlockSize == o.maxBlockSize && oversampling == o.oversampling;
        }
        bool operator!=(const Settings& o) const { return !(*this == o); }
    };

    // Limits that keep a load from running for ever: the text's size in bytes, the number
    // of elements, the first sample's computing time in seconds, and how many times slower
    // than real time the warm-up may compute (the building thread's own time, whatever
    // else the machine does).
    static constexpr size_t kMaxTextBytes = 4u << 20;
    static constexpr int kMaxElements = 2000;
    static constexpr double kMaxFirstBlockSeconds = 2.0;
    static constexpr double kMaxLoad = 20.0;

    // The value from 0 to 1 that control `index` of name `name` starts with; NaN keeps the
    // document's own value.
    typedef std::function<float(int index, const std::string& name)> SlotValues;

    // Parses, builds and warms up the document, its controls set by slotValues (when given)
    // before the warm-up. fileName names the document in errors (and places a netlist's
    // .include files). Throws DocumentError.
    CircuitDocument(const std::string& text, const std::string& fileName, const Settings& settings,
                    const SlotValues& slotValues = SlotValues());
    ~CircuitDocument();
    CircuitDocument(const CircuitDocument&) = delete;
    CircuitDocument& operator=(const CircuitDocument&) = delete;

    const Settings& settings() const { return built; }
    int numberOfInputs() const { return inputs; }
    int numberOfOutputs() const { return outputs; }
    // Whether the document runs once per channel (one input, one output).
    bool runsPerChannel() const { return drivers.size() == 2; }
    int numberOfControls() const { return static_cast<int>(slots.size()); }
    // Control i's name in the document, and the name it shows (its DisplayName, else its name).
    const std::string& controlName(int i) const { return slots[i].name; }
    const std::string& controlLabel(int i) const { return slots[i].label; }
    // The document's own value of control i on the slot's 0 to 1 scale.
    float defaultValue(int i) const { return slots[i].defaultValue; }
    // The control's values at slot values 0 and 1.
    float controlLow(int i) const { return slots[i].low; }
    float controlHigh(int i) const { return slots[i].high; }
    // The control's value at slot value v, as text.
    std::string controlDisplay(int i, float v) const;
    // The slot value last set (or built with).
    float slotValue(int i) const { return slots[i].value; }
    // The warm-up's speed: seconds of the building thread's computing per second of audio.
    double warmUpLoad() const { return load; }

    // Audio thread: gives control i slot value v (0 to 1) when it differs from the last one.
    void setSlot(int i, float v);
    // Audio thread: one block of at most maxBlockSize frames, in volts. left and right are
    // the two input channels (equal for a mono input); outLeft and outRight receive the
    // first two outputs (a single output goes to both).
    void process(float* left, float* right, float* outLeft, float* outRight, int frames);
    // Whether a block ran since the warm-up.
    bool hasRun() const { return ran; }
    // A number its owner gives it (which load it came from).
    void setTag(uint32_t t) { tagValue = t; }
    uint32_t tag() const { return tagValue; }

private:
    struct Slot {
        std::string name;
        std::string label;
        float low = 0, high = 1;  // the control's values at slot values 0 and 1
        float defaultValue = 0;
        float value = 0;
        std::vector<ControlPtr> controls;  // the control in each driver
    };
    struct Channel {
        std::unique_ptr<Driver> driver;
        std::shared_ptr<DSPContext> context;
        std::vector<std::unique_ptr<IirInterpolator>> up;
        std::vector<std::unique_ptr<IirDecimator>> down;
        BufferList in;                  // what the driver reads
        std::vector<BufferList> upIn;    // each interpolator's input
        std::vector<BufferList> downIn;  // each decimator's input
    };

    void build(const std::string& description, const std::string& fileName);
    void warmUp(const std::string& fileName);
    void runChannel(Channel& c, float* const* in, int frames);
    const float* channelOutput(Channel& c, int output) const;

    Settings built;
    int inputs = 0;
    int outputs = 0;
    std::vector<Channel> drivers;
    std::vector<Slot> slots;
    double load = 0;
    bool ran = false;
    uint32_t tagValue = 0;
};

} // namespace kelm
