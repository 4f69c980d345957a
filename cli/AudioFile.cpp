#include "cli/AudioFile.h"

#include <cstdio>
#include <stdexcept>
#include <unistd.h>

namespace kelm {
namespace cli {

AudioReader::AudioReader(const std::string& path) {
    file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file) throw std::runtime_error("cannot read audio file " + path + ": " + sf_strerror(nullptr));
    if (info.channels < 1) throw std::runtime_error("audio file " + path + " has no channels");
}

AudioReader::~AudioReader() {
    if (file) sf_close(file);
}

long long AudioReader::read(float* interleaved, long long n) { return sf_readf_float(file, interleaved, n); }

AudioWriter::AudioWriter(const std::string& path, int channels, int sampleRate) : finalPath(path) {
    tempPath = path + ".part" + std::to_string(static_cast<long>(getpid()));
    info.channels = channels;
    info.samplerate = sampleRate;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    file = sf_open(tempPath.c_str(), SFM_WRITE, &info);
    if (!file) throw std::runtime_error("cannot write audio file " + path + ": " + sf_strerror(nullptr));
}

AudioWriter::~AudioWriter() {
    if (file) sf_close(file);
    if (!committed) std::remove(tempPath.c_str());
}

void AudioWriter::write(const float* interleaved, long long frames) {
    if (sf_writef_float(file, interleaved, frames) != frames)
        throw std::runtime_error("cannot write audio file " + finalPath + ": " + sf_strerror(file));
}

void AudioWriter::commit() {
    sf_close(file);
    file = nullptr;
    if (std::rename(tempPath.c_str(), finalPath.c_str()) != 0)
        throw std::runtime_error("cannot move the output into place at " + finalPath);
    committed = true;
}

void writeWav(const std::string& path, const std::vector<float>& interleaved, int channels, int sampleRate) {
    AudioWriter w(path, channels, sampleRate);
    w.write(interleaved.data(), static_cast<long long>(interleaved.size() / channels));
    w.commit();
}

} // namespace cli
} // namespace kelm
