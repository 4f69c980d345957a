#include "cli/Plot.h"

#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "cli/AudioFile.h"
#include "cli/Chart.h"
#include "cli/Measure.h"

namespace kelm {
namespace cli {

namespace {

std::string valueText(float v) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", v);
    return text;
}

// One measured variant: the system with the request's settings and one sweep value.
struct Variant {
    std::string label;  // "Bass=0.25", or empty without a sweep
    std::unique_ptr<Renderer> renderer;
};

std::unique_ptr<Renderer> prepared(const Plot::Request& q, const Plot::RendererFactory& make, int sweepIndex) {
    std::unique_ptr<Renderer> r = make();
    for (const auto& s : q.sets) r->setParameter(s.first, s.second);
    if (sweepIndex >= 0) r->setParameter(q.sweepName, q.sweepValues[sweepIndex]);
    r->prepare(static_cast<float>(q.rate), Measure::kBlock);
    return r;
}

std::vector<Variant> variants(const Plot::Request& q, const Plot::RendererFactory& make) {
    std::vector<Variant> list;
    const int n = q.sweepValues.empty() ? 1 : static_cast<int>(q.sweepValues.size());
    for (int i = 0; i < n; ++i) {
        Variant v;
        const int sweepIndex = q.sweepValues.empty() ? -1 : i;
        v.renderer = prepared(q, make, sweepIndex);
        if (sweepIndex >= 0) v.label = q.sweepName + "=" + valueText(q.sweepValues[i]);
        list.push_back(std::move(v));
    }
    return list;
}

std::string settingsText(const Plot::Request& q) {
    std::string s;
    for (const auto& p : q.sets) s += (s.empty() ? "" : ", ") + p.first + "=" + valueText(p.second);
    return s.empty() ? q.source : q.source + " (" + s + ")";
}

Chart::Axis axis(const std::string& label, bool logarithmic = false, double min = 0, double max = 0) {
    Chart::Axis a;
    a.label = label;
    a.logarithmic = logarithmic;
    a.min = min;
    a.max = max;
    return a;
}

void responseChart(const Plot::Request& q, std::vector<Variant>& vs, Chart& chart) {
    const double amplitude = q.level > 0 ? q.level : 0.01;
    const double top = std::min(20000.0, 0.48 * q.rate);
    Chart::Panel& magnitude = chart.addPanel("Magnitude", axis("Frequency (Hz)", true, 20, top), axis("Gain (dB)"));
    Chart::Panel& phase = chart.addPanel("Phase", axis("Frequency (Hz)", true, 20, top), axis("Phase (degrees)"));
    phase.legend = false;
    for (Variant& v : vs) {
        const Measure::Response r = Measure::response(*v.renderer, q.rate, amplitude);
        magnitude.lines.push_back({v.label, r.frequency, r.magnitude});
        phase.lines.push_back({v.label, r.frequency, r.phase});
    }
}

void curveChart(const Plot::Request& q, std::vector<Variant>& vs, Chart& chart) {
    const double maxLevel = q.level > 0 ? q.level : 1.0;
    const char* names[] = {"2nd harmonic", "3rd harmonic", "4th harmonic", "5th harmonic"};
    Chart::Panel* transfer = nullptr;
    Chart::Panel* harmonics = nullptr;
    for (Variant& v : vs) {
        const Measure::Curve c = Measure::curve(*v.renderer, q.rate, maxLevel);
        if (!transfer) {
            char title[96];
            std::snprintf(title, sizeof title, "Output against input, sine at %.0f Hz", c.frequency);
            transfer = &chart.addPanel(title, axis("Input level (peak, full scale 1)", false, 0, maxLevel),
                                       axis("Output (peak, fundamental)"));
            harmonics = &chart.addPanel(vs.size() > 1 ? "Distortion (2nd to 5th harmonic)" : "Harmonics",
                                        axis("Input level (peak, full scale 1)", false, 0, maxLevel),
                                        axis("Relative to the fundamental (dB)"));
        }
        // The curve starts at the origin: no input, no output.
        std::vector<double> x{0.0}, y{0.0};
        x.insert(x.end(), c.inputLevel.begin(), c.inputLevel.end());
        y.insert(y.end(), c.outputLevel.begin(), c.outputLevel.end());
        transfer->lines.push_back({v.label, x, y});
        if (vs.size() == 1) {
            for (int k = 0; k < 4; ++k) harmonics->lines.push_back({names[k], c.inputLevel, c.harmonics[k]});
        } else {
            // With a family, the four harmonics together per curve: their total in dB.
            std::vector<double> total;
            for (size_t i = 0; i < c.inputLevel.size(); ++i) {
                double power = 0;
                for (int k = 0; k < 4; ++k)
                    if (std::isfinite(c.harmonics[k][i])) power += std::pow(10.0, c.harmonics[k][i] / 10);
                total.push_back(power > 0 ? std::max(-200.0, 10 * std::log10(power)) : -200.0);
            }
            harmonics->lines.push_back({v.label, c.inputLevel, total});
        }
    }
}

void spectrumChart(const Plot::Request& q, std::vector<Variant>& vs, Chart& chart, double rate) {
    const double amplitude = q.level > 0 ? q.level : 0.5;
    char title[96];
    std::snprintf(title, sizeof title, "%sHann windows of %d samples", q.in.empty() ? "Output for a sine, " : "",
                  Measure::kSpectrumSize);
    Chart::Panel& panel =
        chart.addPanel(title, axis("Frequency (Hz)", true, 20, rate / 2), axis("Level (dB re a full-scale sine)"));
    if (!q.in.empty()) {
        AudioReader reader(q.in);
        const int channels = reader.channels();
        std::vector<float> interleaved(static_cast<size_t>(std::max(0LL, reader.frames())) * channels);
        const long long got = reader.read(interleaved.data(), reader.frames());
        std::vector<std::vector<float>> shown;
        for (int c = 0; c < channels; ++c) {
            std::vector<float> x(static_cast<size_t>(std::max(0LL, got)));
            for (size_t i = 0; i < x.size(); ++i) x[i] = interleaved[i * channels + c];
            // A channel equal to one already shown joins that one's label instead of hiding it.
            bool repeated = false;
            for (size_t k = 0; k < shown.size() && !repeated; ++k)
                if (shown[k] == x) {
                    panel.lines[k].label += " = " + std::to_string(c + 1);
                    repeated = true;
                }
            if (repeated) continue;
            const Measure::Spectrum s = Measure::spectrum(x, rate);
            panel.lines.push_back({channels > 1 ? "channel " + std::to_string(c + 1) : "", s.frequency, s.level});
            shown.push_back(std::move(x));
        }
        return;
    }
    for (Variant& v : vs) {
        const Measure::Spectrum s = Measure::spectrum(Measure::sineThrough(*v.renderer, rate, amplitude), rate);
        panel.lines.push_back({v.label, s.frequency, s.level});
    }
}

} // namespace

const char* const Plot::kKinds = "response, curve, spectrum";

bool Plot::isKind(const std::string& kind) { return kind == "response" || kind == "curve" || kind == "spectrum"; }

int Plot::run(const Request& q, const RendererFactory& make) {
    if (!isKind(q.kind)) throw std::runtime_error("unknown plot kind '" + q.kind + "' (kinds: " + kKinds + ")");
    Request request = q;
    if (!q.in.empty()) {
        AudioReader reader(q.in);  // the file's own rate
        request.rate = reader.sampleRate();
    }
    // The renderers are made (and every control name checked) before anything is measured.
    std::vector<Variant> vs;
    if (request.in.empty()) vs = variants(request, make);
    std::string title = request.kind == "response" ? "Frequency response" : request.kind == "curve" ? "Transfer curve" : "Spectrum";
    Chart chart(title + ": " + (request.in.empty() ? settingsText(request) : request.in));
    if (request.kind == "response") responseChart(request, vs, chart);
    if (request.kind == "curve") curveChart(request, vs, chart);
    if (request.kind == "spectrum") spectrumChart(request, vs, chart, request.rate);
    chart.writePng(request.out, request.width, request.height);
    if (!request.csv.empty()) chart.writeCsv(request.csv);
    std::printf("wrote %s (%dx%d)%s%s\n", request.out.c_str(), request.width, request.height,
                request.csv.empty() ? "" : " and its data to ", request.csv.c_str());
    return 0;
}

} // namespace cli
} // namespace kelm
