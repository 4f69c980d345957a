#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

namespace kelm {

// What every plug-in format's adapter sees of an effect: parameters from 0 to 1 with their
// names and texts, the host's settings, warm-up, blocks, and the state a host keeps. The
// adapters (VST 2, LV2, CLAP) and the kelm tool drive the same calls in the same order, so
// all of them give the same samples.
class EffectCore {
public:
    virtual ~EffectCore() {}

    virtual int numberOfParameters() const = 0;
    // Any thread: NaN and values outside 0 to 1 are clamped, stepped parameters take their
    // positions.
    virtual void setParameter(int index, float value) = 0;
    virtual float getParameter(int index) const = 0;
    virtual std::string parameterName(int index) const = 0;
    // Readable text of `value` (e.g. "4x", "Post", "+3.2") and the unit label ("dB" or "").
    virtual std::string parameterText(int index, float value) const = 0;
    virtual std::string parameterLabel(int index) const = 0;
    std::string parameterDisplay(int index) const { return parameterText(index, getParameter(index)); }
    // The value whose text `text` is: a position's text for a stepped parameter, else a
    // number, searched for over 0 to 1 (texts grow or fall with the value). False when
    // nothing matches.
    virtual bool parameterFromText(int index, const std::string& text, float& value) const;
    // Number of positions a parameter takes (2 for a switch), 0 when continuous.
    virtual int parameterPositions(int index) const = 0;
    // Grows whenever the parameters' names change (an effect that loads documents).
    virtual uint32_t namesSerial() const { return 0; }
    // Not the audio thread: the value a parameter starts at under the current names, or NaN
    // where it is the value the effect was made with (which the adapters keep).
    virtual float parameterDefault(int) const;

    // The host's settings, while suspended: the rate in Hz, the largest block in frames.
    virtual void setSampleRate(float rate) = 0;
    virtual void setBlockSize(int frames) = 0;
    virtual void suspend() = 0;
    // The warm-up before the first block; may allocate (never on the audio thread).
    virtual void resume() = 0;
    // The audio thread. in: one or two channels (in[1] may be null or equal to in[0]);
    // out: two channels (out[1] may be null).
    virtual void process(float** in, float** out, int frames, bool secondInputConnected = true) = 0;
    // Samples of delay between input and output.
    virtual int latency() const { return 0; }

    // The state a host keeps in its session: here every parameter's value as a line of
    // text; effects with more to keep replace both.
    virtual std::string getState() const;
    // False, with nothing changed, when the bytes are no state of this effect.
    virtual bool setState(const void* data, size_t size);
};

} // namespace kelm
