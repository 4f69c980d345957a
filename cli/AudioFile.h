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

// The libsndfile format of an output file: by the name given with --format ("float",
// "pcm16", "pcm24", "flac", "flac16"), else by the file name (".flac": 24-bit FLAC), else
// 32-bit float WAV. Throws std::invalid_argument for an unknown format name.
int outputFormat(const std::string& path, const std::string& formatName);

// A sound file written to a temporary name and moved into place only by commit(); 32-bit
// float WAV unless another libsndfile format is given. Integer formats clip at full scale.
class AudioWriter {
public:
    AudioWriter(const std::string& path, int channels, int sampleRate, int format = SF_FORMAT_WAV | SF_FORMAT_FLOAT);
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

// Writes a whole interleaved buffer, as a 32-bit float WAV unless another format is given.
void writeWav(const std::string& path, const std::vector<float>& interleaved, int channels, int sampleRate,
              int format = SF_FORMAT_WAV | SF_FORMAT_FLOAT);

} // namespace cli
} // namespace kelm
