#pragma once
#include <string>
#include <vector>

#include <sndfile.h>

namespace kelm {
namespace cli {

// A sound file opened for reading through libsndfile.
class AudioReader {
public:
    explicit AudioReader(const std::string& path);
    ~AudioReader();
    AudioReader(const AudioReader&) = delete;
    AudioReader& operator=(const AudioReader&) = delete;
    int channels() const { return info.channels; }
    int sampleRate() const { return info.samplerate; }
    long long frames() const { return static_cast<long long>(info.frames); }
    // Reads up to n interleaved frames; returns the number read.
    long long read(float* interleaved, long long n);

private:
    SF_INFO info{};
    SNDFILE* file = nullptr;
};

// A 32-bit float WAV written to a temporary name and moved into place only by commit().
class AudioWriter {
public:
    AudioWriter(const std::string& path, int channels, int sampleRate);
    ~AudioWriter();
    AudioWriter(const AudioWriter&) = delete;
    AudioWriter& operator=(const AudioWriter&) = delete;
    void write(const float* interleaved, long long frames);
    void commit();

private:
    std::string finalPath;
    std::string tempPath;
    SF_INFO info{};
    SNDFILE* file = nullptr;
    bool committed = false;
};

// Writes a whole interleaved buffer as a 32-bit float WAV.
void writeWav(const std::string& path, const std::vector<float>& interleaved, int channels, int sampleRate);

} // namespace cli
} // namespace kelm
