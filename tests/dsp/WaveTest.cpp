// Wave files, resources and WaveConvolver: formats written by libsndfile,
// crafted broken files, resampling of responses.
#include <cmath>
#include <complex>
#include <fstream>
#include <random>
#include <sstream>

#include "dsp/AudioFileRead.h"
#include "dsp/DllResourceReader.h"
#include "dsp/FftResampler.h"
#include "dsp/FileReader.h"
#include "dsp/WaveConvolver.h"
#include "dsp/DSPContext.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {

// Splices a chunk into a RIFF file before the chunk `before` ("fmt " or "data").
std::string withChunkBefore(std::string wav, const std::string& before, const std::string& id, size_t size) {
    size_t at = wav.find(before, 12);
    std::string chunk = id;
    for (int i = 0; i < 4; ++i) chunk += static_cast<char>((size >> (8 * i)) & 0xff);
    chunk += std::string(size, 'z');
    if (size & 1) chunk += '\0';  // RIFF pads odd chunks to an even length
    wav.insert(at, chunk);
    uint32_t riff = static_cast<uint32_t>(wav.size() - 8);
    for (int i = 0; i < 4; ++i) wav[4 + i] = static_cast<char>((riff >> (8 * i)) & 0xff);
    return wav;
}

struct Decoded {
    std::vector<float> samples;
    unsigned channels = 0;
    float rate = 0;
};

Decoded decodeAll(const std::string& bytes) {
    std::istringstream in(bytes);
    stk::AudioFileRead wave(in);
    wave.getWavInfo();
    Decoded d;
    d.channels = wave.channelsOut();
    d.rate = wave.getFileRate();
    if (wave.getSize() == 0) return d;
    stk::StkFrames frames(wave.getSize(), wave.channelsOut());
    wave.read(frames);
    for (size_t i = 0; i < frames.size(); ++i) d.samples.push_back(frames[i]);
    return d;
}

std::string errorOf(const std::string& bytes) {
    return messageOf([&] { decodeAll(bytes); });
}

std::string le32(uint32_t v) {
    std::string s;
    for (int i = 0; i < 4; ++i) s += static_cast<char>((v >> (8 * i)) & 0xff);
    return s;
}
std::string le16(uint16_t v) { return std::string{static_cast<char>(v & 0xff), static_cast<char>(v >> 8)}; }

// A hand-made header: tag, channels, rate, bits, then a data chunk of `bytes` bytes holding `actual` bytes.
std::string crafted(uint16_t tag, uint16_t channels, uint16_t bits, uint32_t bytes, size_t actual, uint16_t extSize = 22) {
    std::string fmt = le16(tag) + le16(channels) + le32(48000) + le32(48000 * channels * bits / 8) +
                      le16(channels * bits / 8) + le16(bits);
    if (tag == 65534) fmt += le16(extSize) + le16(bits) + le32(3) + le16(1) + std::string(14, '\0');
    std::string body = "WAVEfmt " + le32(static_cast<uint32_t>(fmt.size())) + fmt + "data" + le32(bytes) + std::string(actual, '\0');
    return "RIFF" + le32(static_cast<uint32_t>(body.size())) + body;
}

} // namespace

TEST(DspWave, ReadsWhatLibsndfileWritesInEveryFormat) {
    const int subtypes[] = {SF_FORMAT_PCM_U8, SF_FORMAT_PCM_16, SF_FORMAT_PCM_24, SF_FORMAT_PCM_32, SF_FORMAT_FLOAT, SF_FORMAT_DOUBLE};
    const int containers[] = {SF_FORMAT_WAV, SF_FORMAT_WAVEX};
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> u(-0.9f, 0.9f);
    int files = 0;
    for (int container : containers)
        for (int subtype : subtypes)
            for (int channels : {1, 2}) {
                std::vector<float> x(300 * channels);
                for (float& v : x) v = u(rng);
                const std::string path = tempPath("fmt.wav");
                writeWav(path, x, channels, 44100, container | subtype);
                const std::vector<float> reference = readWav(path);  // libsndfile's own reading
                std::string bytes = readText(path);
                // Extra chunks before "fmt " and before "data".
                for (const std::string& variant : {bytes, withChunkBefore(withChunkBefore(bytes, "fmt ", "JUNK", 13), "data", "LIST", 6)}) {
                    Decoded d;
                    const std::string error = messageOf([&] { d = decodeAll(variant); });
                    ASSERT_EQ("", error) << container << " " << subtype << " " << channels;
                    ASSERT_EQ(static_cast<unsigned>(channels), d.channels);
                    ASSERT_EQ(44100.0f, d.rate);
                    // Frames are counted as bytes / bits / channels * 8 in integer steps, which
                    // drops the last partial group of eight frames; the rest must match exactly.
                    const size_t frames = reference.size() / channels;
                    const size_t bits = subtype == SF_FORMAT_PCM_U8 ? 8 : subtype == SF_FORMAT_PCM_16 ? 16
                                      : subtype == SF_FORMAT_PCM_24 ? 24 : subtype == SF_FORMAT_DOUBLE ? 64 : 32;
                    const size_t counted = frames * channels * bits / 8 / bits / channels * 8;
                    ASSERT_EQ(counted * channels, d.samples.size()) << container << " " << subtype;
                    for (size_t i = 0; i < d.samples.size(); ++i)
                        ASSERT_FLOAT_EQ(reference[i], d.samples[i]) << container << " " << subtype << " " << i;
                }
                ++files;
                std::remove(path.c_str());
            }
    EXPECT_EQ(24, files);
}

TEST(DspWave, EveryMessageFromACraftedFile) {
    const std::string good = crafted(1, 1, 16, 64, 64);
    EXPECT_EQ("", errorOf(good));
    struct Case {
        std::string bytes, message;
    } cases[] = {
        {"RIFF1", "AudioFileRead: Error while reading header. 5"},
        {"RIFX" + good.substr(4), "AudioFileRead: File is not a wav file."},
        {good.substr(0, 12), "AudioFileRead::getWavInfo Error while trying to read id."},
        {good.substr(0, 12) + "JUNK", "AudioFileRead::getWavInfo Error while trying to read chunkSize."},
        {good.substr(0, 12) + "JUNK" + le32(1000000), "AudioFileRead: "},  // the skip runs past the end
        {good.substr(0, 20), "AudioFileRead::getWavInfo Error while trying to read format_tag."},
        {good.substr(0, 22), "AudioFileRead::getWavInfo Error while trying to read temp."},
        {good.substr(0, 26), "AudioFileRead::getWavInfo Error while trying to read srate."},
        {crafted(65534, 1, 16, 8, 8, 0), "AudioFileRead::getWavInfo Invalid extSize 0"},
        {crafted(2, 1, 16, 8, 8), "Unsupported data format type: 2"},
        {crafted(1, 1, 12, 8, 8), "12 bits per sample with data format 1 are not supported."},
        {crafted(3, 1, 16, 8, 8), "16 bits per sample with data format 3 are not supported."},
        {good.substr(0, 36), "AudioFileRead::getWavInfo Error while trying to read id."},
        {good.substr(0, 40), "AudioFileRead::getWavInfo Error while trying to read bytes."},
        {crafted(1, 2, 16, 4000, 100), "AudioFileRead: the data chunk claims 4000 bytes"},
    };
    for (const Case& c : cases) {
        const std::string m = errorOf(c.bytes);
        EXPECT_EQ(0u, m.find(c.message)) << "got: " << m;
    }
    std::istringstream in(good);
    stk::AudioFileRead wave(in);
    wave.getWavInfo();
    stk::StkFrames none;
    EXPECT_EQ("AudioFileRead::read: StkFrames buffer size is zero ... no data read!", messageOf([&] { wave.read(none); }));
    stk::StkFrames stereo(4, 2);
    EXPECT_EQ("AudioFileRead::read: StkFrames argument has incompatible number of channels!", messageOf([&] { wave.read(stereo); }));
    // Random corruption of a real file never crashes: it decodes or says why not.
    std::mt19937 rng(4);
    for (int trial = 0; trial < 300; ++trial) {
        std::string broken = good + std::string(64, '\1');
        for (int k = 0; k < 4; ++k) broken[rng() % broken.size()] = static_cast<char>(rng());
        broken.resize(rng() % broken.size());
        messageOf([&] { decodeAll(broken); });
    }
}

TEST(DspWave, ReadersAndResources) {
    EXPECT_EQ("Cannot find file with name: /nonexistent/ir.wav", messageOf([] { FileReader r("/nonexistent/ir.wav"); }));
    const std::string empty = tempPath("empty.wav");
    { std::ofstream f(empty); }
    EXPECT_EQ("FileReader: Empty file", messageOf([&] { FileReader r(empty); }));
    std::remove(empty.c_str());
    EXPECT_EQ("Could not locate Resource FileWAVE|missing.wav", messageOf([] { DllResourceReader r("WAVE|missing.wav"); }));
    DllResourceReader room("WAVE|room-44k1.wav");
    float rate = 0;
    auto samples = WaveConvolver::decode(room.data(), room.size(), rate);
    EXPECT_EQ(44100.0f, rate);
    EXPECT_EQ(4408u, samples.size());  // 4410 frames counted in groups of eight
    // 8-bit samples of 128 are silence; a 24-bit 0x7FFFFF is just under 1.
    std::string u8 = crafted(1, 1, 8, 8, 0) + std::string(8, '\x80');
    for (float v : decodeAll(u8).samples) EXPECT_EQ(0.0f, v);
    std::string s24 = crafted(1, 1, 24, 24, 0);
    for (int i = 0; i < 8; ++i) s24 += std::string("\xff\xff\x7f", 3);
    float top = decodeAll(s24).samples.at(0);
    EXPECT_LT(top, 1.0f);
    EXPECT_GT(top, 0.99999f);
}

TEST(DspWave, ResamplerQualityAndResponsesAtAnotherRate) {
    // Passband: sines well inside both bands keep amplitude and phase; stop band: a tone above
    // the lower Nyquist frequency is removed when the rate falls.
    auto tone = [](double f, double rate, size_t n) {
        std::vector<float> x(n);
        for (size_t i = 0; i < n; ++i) x[i] = static_cast<float>(std::sin(2 * M_PI * f * i / rate));
        return x;
    };
    auto level = [](const ScalarVector& y, double f, double rate, size_t from, size_t to) {
        std::complex<double> s = 0;
        for (size_t i = from; i < to; ++i) s += static_cast<double>(y[i]) * std::polar(1.0, -2 * M_PI * f * i / rate);
        return 2 * std::abs(s) / (to - from);
    };
    double worstPassband = 0;
    for (double f : {100.0, 1000.0, 10000.0, 18000.0}) {
        auto x = tone(f, 44100, 44100);
        auto y = WaveConvolver::resample(x.data(), x.size(), 44100, 48000);
        ASSERT_EQ(48000u, y.size());
        const double gain = level(y, f, 48000, 4800, 43200) * 48000.0 / 44100.0;  // undo the energy scaling
        worstPassband = std::max(worstPassband, std::fabs(20 * std::log10(gain)));
    }
    auto x = tone(15000, 48000, 48000);
    auto y = WaveConvolver::resample(x.data(), x.size(), 48000, 24000);
    ASSERT_EQ(24000u, y.size());
    double residual = 0;
    for (size_t i = 2400; i < 21600; ++i) residual = std::max(residual, std::fabs(static_cast<double>(y[i])));
    const double rejection = -20 * std::log10(residual / 2.0 + 1e-30);
    std::printf("FftResampler: passband error %.5f dB (100 Hz to 18 kHz, 44.1 to 48 kHz); a 15 kHz tone "
                "at 48 -> 24 kHz is %.1f dB down\n", worstPassband, rejection);
    EXPECT_LT(worstPassband, 0.01);
    EXPECT_GT(rejection, 100.0);

    // Rates of any whole number: a prime rate (whose FFT lengths once took over a minute) still
    // gives the tone at its pitch, within 0.05 %, and its level; no rate or an absurd length is refused.
    for (double odd : {44071.0, 99991.0}) {
        auto z = WaveConvolver::resample(tone(1000, odd, 22050).data(), 22050, odd, 48000);
        ASSERT_EQ(static_cast<size_t>(48000 * 22050 / odd + 0.5), z.size());
        const size_t from = z.size() / 10, to = z.size() * 9 / 10;
        double pitch = 0, strongest = 0;
        for (double f = 995; f <= 1005; f += 0.05) {
            const double l = level(z, f, 48000, from, to);
            if (l > strongest) {
                strongest = l;
                pitch = f;
            }
        }
        EXPECT_NEAR(1000, pitch, 0.5) << odd;
        EXPECT_NEAR(odd / 48000, strongest, 0.01 * odd / 48000) << odd;
    }
    for (const std::pair<size_t, double>& bad : {std::make_pair(size_t(3), 0.0), std::make_pair(size_t(48000), 1.0),
                                                std::make_pair(size_t(13), 1.0), std::make_pair(size_t(4000), 999.0)})
        EXPECT_EQ("WaveConvolver: cannot resample " + std::to_string(bad.first) + " samples from " +
                      std::to_string(static_cast<int>(bad.second)) + " Hz to 48000 Hz",
                  messageOf([&] { WaveConvolver::resample(x.data(), bad.first, bad.second, 48000); }));

    // A response at half the engine's rate doubles in length and halves in amplitude.
    static std::shared_ptr<DSPContext> ctx = std::make_shared<DSPContext>();
    WaveConvolver w;
    w.init("w", std::make_shared<PropertyMap>(PropertyMap{{"ImpulseResponses", "pulse"}, {"Location", "Memory"}, {"MaxIRSize", "4096"}}), ctx);
    auto pulse = std::make_shared<ScalarVector>(400);
    for (int i = 0; i < 400; ++i) (*pulse)[i] = static_cast<float>(std::exp(-0.5 * std::pow((i - 200) / 20.0, 2)));
    w.setMemoryResponse("pulse", 24000, pulse);
    w.setMaxBlockSize(64);
    w.sampleRateChanged(48000);
    std::vector<float> impulse(64, 0.0f);
    impulse[0] = 1;
    std::vector<float> response;
    for (int b = 0; b < 16; ++b) {
        BufferList in = {impulse.data()};
        w.process(in, 64);
        response.insert(response.end(), w.getOutput(0), w.getOutput(0) + 64);
        impulse[0] = 0;
    }
    auto peak = std::max_element(response.begin(), response.end());
    EXPECT_NEAR(0.5, *peak, 1e-3);
    EXPECT_NEAR(400, peak - response.begin(), 1);  // at twice the original position
    // Selection past the list is refused, and an all-zero response becomes empty.
    EXPECT_EQ("WaveConvolver: Invalid selection: 2 max selection value 1", messageOf([&] { w.propertyChanged("Selected", 2.0f); }));
    w.setMemoryResponse("pulse", 48000, std::make_shared<ScalarVector>(10, 0.0f));
    EXPECT_EQ("Convolver: Invalid impulse response. IR is empty.", messageOf([&] { w.propertyChanged("Selected", 0.0f); }));
}

TEST(CliRender, WaveConvolverFromTheModulesResources) {
    const std::string doc = tempPath("conv.xml");
    {
        std::ofstream f(doc);
        f << "<System><Graphs><Graph Name=\"R\" Type=\"DSP\"><NumberOfInputs>1</NumberOfInputs><Inputs><Input "
             "Graph=\"System\" Node=\"0\"/></Inputs><Element Type=\"WaveConvolver\" Name=\"room\"><Properties "
             "ImpulseResponses=\"room-44k1.wav\" Location=\"Dll\" DllResourceType=\"WAVE\" MaxIRSize=\"8192\"/>"
             "<Inputs><Input Port=\"in\" Element=\"Graph\" Output=\"0\"/></Inputs></Element><Output><Node Name=\"out\" "
             "Element=\"room\" Port=\"out\"/></Output></Graph></Graphs><Outputs><Output Graph=\"R\" Node=\"out\"/>"
             "</Outputs></System>";
    }
    std::vector<float> x(5000);
    std::mt19937 rng(8);
    for (float& v : x) v = std::uniform_real_distribution<float>(-0.5f, 0.5f)(rng);
    const std::string in = tempPath("conv_in.wav"), out = tempPath("conv_out.wav");
    writeWav(in, x, 1, 44100);
    auto r = run(std::string(KELM_CLI_PATH) + " render --system " + doc + " --in " + in + " --out " + out + " --block 300");
    ASSERT_EQ(0, r.status) << r.output;
    auto y = readWav(out);
    DllResourceReader room("WAVE|room-44k1.wav");
    float rate = 0;
    auto h = WaveConvolver::decode(room.data(), room.size(), rate);
    ASSERT_EQ(x.size(), y.size());
    for (size_t n = 0; n < x.size(); n += 37) {
        double ref = 0;
        for (size_t k = 0; k < h.size() && k <= n; ++k) ref += h[k] * static_cast<double>(x[n - k]);
        ASSERT_NEAR(ref, y[n], 1e-4) << n;
    }
    for (auto* p : {&doc, &in, &out}) std::remove(p->c_str());
}
