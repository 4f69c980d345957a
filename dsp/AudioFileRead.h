#pragma once
#include <istream>
#include <string>
#include <vector>

namespace stk {

// Root of the wave-reading classes.
class Stk {
public:
    virtual ~Stk() {}
    typedef float StkFloat;
};

// Interleaved frames: frames() by channels() samples.
class StkFrames {
public:
    StkFrames(size_t frames = 0, unsigned channels = 1) { resize(frames, channels); }
    void resize(size_t frames, unsigned channels) {
        nFrames = frames;
        nChannels = channels;
        data.assign(frames * channels, 0.0f);
    }
    size_t frames() const { return nFrames; }
    unsigned channels() const { return nChannels; }
    size_t size() const { return data.size(); }
    float& operator[](size_t i) { return data[i]; }
    float operator()(size_t frame, unsigned channel) const { return data[frame * nChannels + channel]; }

private:
    size_t nFrames = 0;
    unsigned nChannels = 1;
    std::vector<float> data;
};

// Parses a RIFF/WAVE stream (integer PCM of 8, 16, 24, 32 bits, IEEE float of
// 32 and 64 bits, plain or extensible) and reads its frames as floats.
// Every failure throws kelm::KELMException with a message that says what failed.
class AudioFileRead : public Stk {
public:
    enum DataType { SINT8 = 1, SINT16 = 2, SINT24 = 4, SINT32 = 8, FLOAT32 = 16, FLOAT64 = 32 };

    // The stream must stay valid while the object is used.
    explicit AudioFileRead(std::istream& stream);
    // Reads the header; throws on anything that is not a supported wave file.
    void getWavInfo();
    // Reads all frames into `frames`, which must be sized to the file's frames and channels.
    void read(StkFrames& frames);

    float getFileRate() const { return sampleRate; }
    unsigned channelsOut() const { return channels; }
    size_t getSize() const { return frameCount; }
    int getDataType() const { return dataType; }

private:
    void readBytes(char* dst, std::streamsize n, const char* failure);
    void skip(std::streamoff n, int line);
    uint32_t read32(const char* failure);
    uint16_t read16(const char* failure);

    std::istream& in;
    float sampleRate = 0;
    unsigned channels = 0;
    int dataType = 0;
    std::streampos dataOffset = 0;
    size_t frameCount = 0;
};

} // namespace stk
