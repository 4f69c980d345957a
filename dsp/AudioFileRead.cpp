#include "dsp/AudioFileRead.h"

#include <cstdint>
#include <cstring>

#include "engine/KELMException.h"
#include "engine/Str.h"

namespace stk {

using kelm::KELMException;
using kelm::str;

AudioFileRead::AudioFileRead(std::istream& stream) : in(stream) {}

void AudioFileRead::readBytes(char* dst, std::streamsize n, const char* failure) {
    in.read(dst, n);
    if (in.gcount() != n) throw KELMException(failure);
}

uint32_t AudioFileRead::read32(const char* failure) {
    unsigned char b[4];
    readBytes(reinterpret_cast<char*>(b), 4, failure);
    return b[0] | (b[1] << 8) | (b[2] << 16) | (static_cast<uint32_t>(b[3]) << 24);
}

uint16_t AudioFileRead::read16(const char* failure) {
    unsigned char b[2];
    readBytes(reinterpret_cast<char*>(b), 2, failure);
    return static_cast<uint16_t>(b[0] | (b[1] << 8));
}

void AudioFileRead::skip(std::streamoff n, int line) {
    in.seekg(n, std::ios::cur);
    if (!in) throw KELMException(str("AudioFileRead: ", line, " Error while trying to set position."));
}

void AudioFileRead::getWavInfo() {
    char header[12];
    in.read(header, 12);
    if (in.gcount() != 12) throw KELMException(str("AudioFileRead: Error while reading header. ", in.gcount()));
    if (std::memcmp(header, "RIFF", 4) != 0 || std::memcmp(header + 8, "WAVE", 4) != 0)
        throw KELMException("AudioFileRead: File is not a wav file.");
    char id[4];
    readBytes(id, 4, "AudioFileRead::getWavInfo Error while trying to read id.");
    while (std::memcmp(id, "fmt ", 4) != 0) {
        const uint32_t size = read32("AudioFileRead::getWavInfo Error while trying to read chunkSize.");
        skip(static_cast<std::streamoff>(size) + (size & 1), __LINE__);
        readBytes(id, 4, "AudioFileRead::getWavInfo Error while trying to read id.");
    }
    const uint32_t fmtSize = read32("AudioFileRead::getWavInfo Error while trying to read chunkSize.");
    const std::streampos fmtStart = in.tellg();
    uint16_t format = read16("AudioFileRead::getWavInfo Error while trying to read format_tag.");
    if (format == 65534) {
        const std::streampos mark = in.tellg();
        skip(14, __LINE__);
        const uint16_t extSize = read16("AudioFileRead::getWavInfo Error while trying to read extSize.");
        if (extSize == 0) throw KELMException("AudioFileRead::getWavInfo Invalid extSize 0");
        skip(6, __LINE__);
        format = read16("AudioFileRead::getWavInfo Error while trying to read format_tag.");
        in.seekg(mark);
        if (!in) throw KELMException(str("AudioFileRead: ", __LINE__, " Error while trying to set position."));
    }
    if (format != 1 && format != 3) throw KELMException(str("Unsupported data format type: ", format));
    channels = read16("AudioFileRead::getWavInfo Error while trying to read temp.");
    sampleRate = static_cast<float>(read32("AudioFileRead::getWavInfo Error while trying to read srate."));
    skip(6, __LINE__);
    const uint16_t bits = read16("AudioFileRead::getWavInfo Error while trying to read temp.");
    if (format == 1 && bits == 8)
        dataType = SINT8;
    else if (format == 1 && bits == 16)
        dataType = SINT16;
    else if (format == 1 && bits == 24)
        dataType = SINT24;
    else if (format == 1 && bits == 32)
        dataType = SINT32;
    else if (format == 3 && bits == 32)
        dataType = FLOAT32;
    else if (format == 3 && bits == 64)
        dataType = FLOAT64;
    else
        throw KELMException(str(bits, " bits per sample with data format ", format, " are not supported."));
    if (channels == 0) throw KELMException("AudioFileRead::init File error.");
    // Past the rest of the format chunk, then on to the data chunk.
    in.seekg(fmtStart + static_cast<std::streamoff>(fmtSize + (fmtSize & 1)));
    if (!in) throw KELMException(str("AudioFileRead: ", __LINE__, " Error while trying to set position."));
    readBytes(id, 4, "AudioFileRead::getWavInfo Error while trying to read id.");
    while (std::memcmp(id, "data", 4) != 0) {
        const uint32_t size = read32("AudioFileRead::getWavInfo Error while trying to read chunkSize.");
        skip(static_cast<std::streamoff>(size) + (size & 1), __LINE__);
        readBytes(id, 4, "AudioFileRead::getWavInfo Error while trying to read id.");
    }
    const uint32_t bytes = read32("AudioFileRead::getWavInfo Error while trying to read bytes.");
    frameCount = static_cast<size_t>(bytes) / bits / channels * 8;
    dataOffset = in.tellg();
    in.seekg(0, std::ios::end);
    const std::streamoff available = in.tellg() - dataOffset;
    in.seekg(dataOffset);
    if (!in || available < static_cast<std::streamoff>(frameCount * channels * (bits / 8)))
        throw KELMException(str("AudioFileRead: the data chunk claims ", bytes, " bytes but the file holds ", available,
                                " after its start: the file is truncated."));
}

void AudioFileRead::read(StkFrames& frames) {
    if (frames.size() == 0) throw KELMException("AudioFileRead::read: StkFrames buffer size is zero ... no data read!");
    if (frames.channels() != channels)
        throw KELMException("AudioFileRead::read: StkFrames argument has incompatible number of channels!");
    in.clear();
    in.seekg(dataOffset);
    const size_t count = std::min(frames.size(), frameCount * channels);
    const int width = dataType == SINT8 ? 1 : dataType == SINT16 ? 2 : dataType == SINT24 ? 3 : dataType == FLOAT64 ? 8 : 4;
    std::vector<unsigned char> raw(count * width);
    in.read(reinterpret_cast<char*>(raw.data()), static_cast<std::streamsize>(raw.size()));
    if (static_cast<size_t>(in.gcount()) != raw.size())
        throw KELMException("AudioFileRead Error while trying to read from the stream.");
    for (size_t i = 0; i < count; ++i) {
        const unsigned char* b = &raw[i * width];
        float v = 0;
        switch (dataType) {
        case SINT8:
            v = (static_cast<int>(b[0]) - 128) / 128.0f;
            break;
        case SINT16:
            v = static_cast<int16_t>(b[0] | (b[1] << 8)) / 32768.0f;
            break;
        case SINT24: {
            const int32_t w = static_cast<int32_t>((static_cast<uint32_t>(b[0]) << 8) | (static_cast<uint32_t>(b[1]) << 16) |
                                                   (static_cast<uint32_t>(b[2]) << 24));
            v = static_cast<float>(w / 2147483648.0);
            break;
        }
        case SINT32: {
            const int32_t w = static_cast<int32_t>(b[0] | (b[1] << 8) | (b[2] << 16) | (static_cast<uint32_t>(b[3]) << 24));
            v = static_cast<float>(w / 2147483648.0);
            break;
        }
        case FLOAT32:
            std::memcpy(&v, b, 4);
            break;
        case FLOAT64: {
            double d;
            std::memcpy(&d, b, 8);
            v = static_cast<float>(d);
            break;
        }
        }
        frames[i] = v;
    }
}

} // namespace stk
