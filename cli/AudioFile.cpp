#include "cli/AudioFile.h"

#include <cctype>
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

int outputFormat(const std::string& path, const std::string& formatName) {
    struct Named {
        const char* name;
        int format;
    } const named[] = {{"float", SF_FORMAT_WAV | SF_FORMAT_FLOAT},
                       {"pcm16", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
                       {"pcm24", SF_FORMAT_WAV | SF_FORMAT_PCM_24},
                       {"flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
                       {"flac16", SF_FORMAT_FLAC | SF_FORMAT_PCM_16}};
    if (!formatName.empty()) {
        for (const Named& n : named)
            if (formatName == n.name) return n.format;
        throw std::invalid_argument("unknown output format '" + formatName + "' (float, pcm16, pcm24, flac, flac16)");
    }
    const size_t dot = path.rfind('.');
    std::string extension = dot == std::string::npos ? "" : path.substr(dot + 1);
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extension == "flac" ? SF_FORMAT_FLAC | SF_FORMAT_PCM_24 : SF_FORMAT_WAV | SF_FORMAT_FLOAT;
}

AudioWriter::AudioWriter(const std::string& path, int channels, int sampleRate, int format) : finalPath(path) {
    tempPath = path + ".part" + std::to_string(static_cast<long>(getpid()));
    info.channels = channels;
    info.samplerate = sampleRate;
    info.format = format;
    if (!sf_format_check(&info)) throw std::runtime_error("cannot write " + path + " in the chosen format");
    file = sf_open(tempPath.c_str(), SFM_WRITE, &info);
    if (!file) throw std::runtime_error("cannot write audio file " + path + ": " + sf_strerror(nullptr));
    if ((format & SF_FORMAT_SUBMASK) != SF_FORMAT_FLOAT) sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
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

void writeWav(const std::string& path, const std::vector<float>& interleaved, int channels, int sampleRate,
              int format) {
    AudioWriter w(path, channels, sampleRate, format);
    w.write(interleaved.data(), static_cast<long long>(interleaved.size() / channels));
    w.commit();
}

} // namespace cli
} // namespace kelm
