#include "plugin/core/CircuitEffect.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>

#include "engine/KELMException.h"
#include "plugin/core/BuiltInExamples.h"
#include "plugin/core/CircuitState.h"
#include "plugin/core/DenormalGuard.h"
#include "plugin/core/DocumentError.h"

namespace kelm {

namespace {

typedef std::chrono::steady_clock Clock;

const float kNaN = std::numeric_limits<float>::quiet_NaN();

float clamp01(float v) { return v >= 0.0f ? (v > 1.0f ? 1.0f : v) : 0.0f; }  // NaN gives 0

float decibels(float v) { return -CircuitEffect::kLevelRange + 2.0f * CircuitEffect::kLevelRange * v; }

// The gain of a level parameter: exactly 1 at 0 dB.
float gainOf(float v) {
    const float db = decibels(v);
    return db == 0.0f ? 1.0f : static_cast<float>(std::pow(10.0, db / 20.0));
}

int factorOf(float v) { return 1 << static_cast<int>(std::lround(clamp01(v) * 3.0f)); }

std::string baseName(const std::string& path) {
    const size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool readFile(const std::string& path, std::string& text) {
    std::ifstream f(std::filesystem::u8path(path), std::ios::binary);
    if (!f) return false;
    std::ostringstream s;
    s << f.rdbuf();
    if (f.bad()) return false;
    text = s.str();
    return true;
}

// The file's modification time and size in one number; 0 when it cannot be read.
long long stampOf(const std::string& path) {
    std::error_code error;
    const std::filesystem::path p = std::filesystem::u8path(path);
    const auto time = std::filesystem::last_write_time(p, error);
    if (error) return 0;
    const auto size = std::filesystem::file_size(p, error);
    if (error) return 0;
    // Mixed in unsigned arithmetic, which wraps (the count is often far from zero).
    const uint64_t mixed = static_cast<uint64_t>(time.time_since_epoch().count()) * 31u + static_cast<uint64_t>(size);
    return static_cast<long long>(mixed);
}

// NaN becomes silence and everything else is held within +-kInputLimit.
void sanitise(const float* in, float* clean, int n) {
    const float limit = CircuitEffect::kInputLimit;
    for (int i = 0; i < n; ++i) {
        const float x = in[i];
        const float held = x > limit ? limit : (x < -limit ? -limit : x);
        clean[i] = held == held ? held : 0.0f;
    }
}

// y = x times a gain moving linearly from g0 to g1 over the block (exactly g1 when equal).
void applyGain(const float* x, float* y, int n, float g0, float g1) {
    if (g0 == g1) {
        for (int i = 0; i < n; ++i) y[i] = x[i] * g1;
        return;
    }
    const float step = (g1 - g0) / n;
    for (int i = 0; i < n; ++i) y[i] = x[i] * (g0 + step * (i + 1));
}

} // namespace

CircuitEffect::CircuitEffect() {
    for (auto& p : parameters) p.store(0.0f);
    parameters[kInputLevel].store(0.5f);
    parameters[kOutputLevel].store(0.5f);
    parameters[kOversampling].store(0.0f);
    parameters[kMix].store(1.0f);
    for (auto& g : graves) g.store(nullptr);
    // The first example plays from the start; it is built at a standard rate now so that the
    // host sees its parameter names, and again at the host's settings on resume.
    int example = BuiltInExamples::find(kDefaultExample);
    if (example < 0) example = 0;
    const std::string text = BuiltInExamples::text(example), name = BuiltInExamples::name(example);
    const uint64_t serial = ++latestSerial;
    std::unique_ptr<CircuitDocument> doc = build(text, name, "", settingsNow(), CircuitDocument::SlotValues());
    if (doc) {
        install(std::move(doc), text, name, "", serial, true);
    } else {
        std::lock_guard<std::mutex> lock(infoMutex);
        info.text = text;
        info.name = name;
    }
    worker = std::thread(&CircuitEffect::work, this);
}

CircuitEffect::~CircuitEffect() {
    {
        std::lock_guard<std::mutex> lock(workMutex);
        stopping = true;
    }
    workChanged.notify_all();
    if (worker.joinable()) worker.join();
    freeRetired();
    delete pending.exchange(nullptr);
    delete fading;
    delete current;
}

// ---- parameters ----

void CircuitEffect::setParameter(int index, float value) {
    if (index < 0 || index >= kNumberOfParameters) return;
    value = clamp01(value);
    if (index == kOversampling) value = std::lround(value * 3.0f) / 3.0f;
    parameters[index].store(value);
}

float CircuitEffect::getParameter(int index) const {
    if (index < 0 || index >= kNumberOfParameters) return 0.0f;
    return parameters[index].load();
}

std::string CircuitEffect::parameterName(int index) const {
    switch (index) {
    case kInputLevel:
        return "Input level";
    case kOutputLevel:
        return "Output level";
    case kOversampling:
        return "Oversampling";
    case kMix:
        return "Mix";
    default:
        break;
    }
    if (index < 0 || index >= kSlots) return "";
    std::lock_guard<std::mutex> lock(infoMutex);
    return index < static_cast<int>(info.slots.size()) ? info.slots[index].label : "-";
}

std::string CircuitEffect::parameterText(int index, float value) const {
    if (index < 0 || index >= kNumberOfParameters) return "";
    const float v = value != value ? 0.0f : std::min(1.0f, std::max(0.0f, value));
    char text[32];
    switch (index) {
    case kInputLevel:
    case kOutputLevel:
        std::snprintf(text, sizeof text, "%+.1f", static_cast<double>(decibels(v)));
        return text;
    case kOversampling:
        std::snprintf(text, sizeof text, "%dx", factorOf(v));
        return text;
    case kMix:
        std::snprintf(text, sizeof text, "%.0f", static_cast<double>(v * 100.0f));
        return text;
    default:
        break;
    }
    std::lock_guard<std::mutex> lock(infoMutex);
    if (index >= static_cast<int>(info.slots.size())) return "";
    const SlotInfo& s = info.slots[index];
    std::snprintf(text, sizeof text, "%.2f", static_cast<double>(s.low + v * (s.high - s.low)));
    return text;
}

float CircuitEffect::parameterDefault(int index) const {
    if (index < 0 || index >= kSlots) return EffectCore::parameterDefault(index);
    std::lock_guard<std::mutex> lock(infoMutex);
    return index < static_cast<int>(info.slots.size()) ? info.slots[index].defaultValue : 0.0f;
}

std::string CircuitEffect::parameterLabel(int index) const {
    if (index == kInputLevel || index == kOutputLevel) return "dB";
    if (index == kMix) return "%";
    return "";
}

int CircuitEffect::parameterPositions(int index) const { return index == kOversampling ? 4 : 0; }

// ---- host settings ----

CircuitDocument::Settings CircuitEffect::settingsNow() const {
    CircuitDocument::Settings s;
    const float rate = sampleRate.load();
    const int block = blockSize.load();
    s.sampleRate = rate > 0 ? rate : 48000.0;
    s.maxBlockSize = block > 0 ? block : 512;
    s.oversampling = factorOf(parameters[kOversampling].load());
    return s;
}

void CircuitEffect::setSampleRate(float rate) {
    if (rate > 0) sampleRate.store(rate);
}

void CircuitEffect::setBlockSize(int frames) {
    if (frames < 1) return;
    blockSize.store(frames);
    acquire();
    for (int c = 0; c < 2; ++c)
        for (auto* b : {&dry[c], &wet[c], &old[c], &scaled[c]}) b->assign(frames, 0.0f);
    release();
}

void CircuitEffect::suspend() {
    active.store(false);
    acquire();  // a block that is running ends first
    release();
}

void CircuitEffect::resume() {
    const CircuitDocument::Settings settings = settingsNow();
    if (blockSize.load() < 1) setBlockSize(settings.maxBlockSize);
    const uint64_t serial = ++latestSerial;  // loads still on their way are superseded
    acquire();
    const bool fresh = current && !fading && !pending.load() && current->settings() == settings && !current->hasRun();
    release();
    if (!fresh) {
        Info now;
        {
            std::lock_guard<std::mutex> lock(infoMutex);
            now = info;
        }
        std::unique_ptr<CircuitDocument> doc = build(now.text, now.name, now.path, settings, carriedValues());
        if (doc) install(std::move(doc), now.text, now.name, now.path, serial, true);
    }
    acquire();
    lastInputGain = gainOf(parameters[kInputLevel].load());
    lastOutputGain = 1.0f / gainOf(parameters[kOutputLevel].load());
    lastMix = parameters[kMix].load();
    slowSeconds = 0;
    cpu.store(0.0f);
    overloaded.store(false);
    release();
    active.store(true);
}

// ---- loading ----

CircuitDocument::SlotValues CircuitEffect::carriedValues() const {
    std::vector<SlotInfo> slots;
    {
        std::lock_guard<std::mutex> lock(infoMutex);
        slots = info.slots;
    }
    std::vector<float> values(kSlots);
    for (int i = 0; i < kSlots; ++i) values[i] = parameters[i].load();
    return [slots, values](int, const std::string& name) {
        for (size_t j = 0; j < slots.size() && j < values.size(); ++j)
            if (slots[j].name == name) return values[j] != slots[j].defaultValue ? values[j] : kNaN;
        return kNaN;
    };
}

std::unique_ptr<CircuitDocument> CircuitEffect::build(const std::string& text, const std::string& name,
                                                      const std::string& path,
                                                      const CircuitDocument::Settings& settings,
                                                      const CircuitDocument::SlotValues& values) {
    std::string error;
    try {
        return std::unique_ptr<CircuitDocument>(new CircuitDocument(text, path.empty() ? name : path, settings, values));
    } catch (const KELMException& e) {
        error = e.message();
    } catch (const std::exception& e) {
        error = (path.empty() ? name : path) + ": " + e.what();
    }
    std::lock_guard<std::mutex> lock(infoMutex);
    info.error = error;
    return nullptr;
}

void CircuitEffect::install(std::unique_ptr<CircuitDocument> doc, const std::string& text, const std::string& name,
                            const std::string& path, uint64_t serial, bool now, int64_t follows) {
    std::lock_guard<std::mutex> publish(publishMutex);
    if (serial < latestSerial.load()) return;  // a later load or state came first
    if (follows >= 0 && follows != generations.load()) return;  // another document came meanwhile
    const uint32_t generation = ++generations;
    doc->setTag(generation);
    {
        std::lock_guard<std::mutex> lock(infoMutex);
        info.text = text;
        info.name = name;
        info.path = path;
        info.error.clear();
        info.slots.clear();
        for (int i = 0; i < doc->numberOfControls(); ++i) {
            SlotInfo s;
            s.name = doc->controlName(i);
            s.label = doc->controlLabel(i);
            s.defaultValue = doc->defaultValue(i);
            s.low = doc->controlLow(i);
            s.high = doc->controlHigh(i);
            info.slots.push_back(s);
        }
    }
    for (int i = 0; i < kSlots; ++i) parameters[i].store(i < doc->numberOfControls() ? doc->slotValue(i) : 0.0f);
    slotsGeneration.store(generation);
    builtFactor.store(doc->settings().oversampling);
    namesChanged.fetch_add(1);
    if (now) {
        CircuitDocument* dropped[3];
        acquire();
        dropped[0] = current;
        dropped[1] = fading;
        dropped[2] = pending.exchange(nullptr);
        current = doc.release();
        fading = nullptr;
        release();
        for (CircuitDocument* d : dropped) delete d;
    } else {
        delete pending.exchange(doc.release());  // one the audio thread never took
    }
}

void CircuitEffect::request(Request r) {
    {
        std::lock_guard<std::mutex> lock(workMutex);
        r.serial = ++latestSerial;
        waiting.reset(new Request(std::move(r)));
    }
    workChanged.notify_all();
}

void CircuitEffect::loadFile(const std::string& path) {
    Request r;
    r.file = true;
    r.path = path;
    request(std::move(r));
}

void CircuitEffect::loadText(const std::string& text, const std::string& name, const std::string& path) {
    Request r;
    r.text = text;
    r.name = name;
    r.path = path;
    request(std::move(r));
}

void CircuitEffect::loadExample(int index) {
    if (index < 0 || index >= BuiltInExamples::count()) return;
    loadText(BuiltInExamples::text(index), BuiltInExamples::name(index));
}

bool CircuitEffect::waitForLoads(double seconds) const {
    std::unique_lock<std::mutex> lock(workMutex);
    return workChanged.wait_for(lock, std::chrono::duration<double>(seconds), [this] {
        return !waiting && !working && factorOf(parameters[kOversampling].load()) == builtFactor.load();
    });
}

void CircuitEffect::runRequest(const Request& r) {
    if (r.serial < latestSerial.load()) return;
    std::string text = r.text, name = r.name;
    if (r.file) {
        name = baseName(r.path);
        if (!readFile(r.path, text)) {
            std::lock_guard<std::mutex> lock(infoMutex);
            info.error = r.path + ": cannot be read";
            return;
        }
    }
    std::unique_ptr<CircuitDocument> doc = build(text, name, r.path, settingsNow(), carriedValues());
    if (doc) install(std::move(doc), text, name, r.path, r.serial, !active.load(), r.follows);
}

void CircuitEffect::work() {
    std::unique_lock<std::mutex> lock(workMutex);
    int attemptedFactor = 0;
    Clock::time_point lastFilePoll = Clock::now();
    while (!stopping) {
        if (!waiting) {
            lock.unlock();
            freeRetired();
            // An oversampling factor the playing document was not built for, and a watched
            // file that changed, become loads of their own.
            std::unique_ptr<Request> polled;
            const int wanted = factorOf(parameters[kOversampling].load());
            if (wanted != builtFactor.load() && wanted != attemptedFactor) {
                attemptedFactor = wanted;
                polled.reset(new Request());
                polled->follows = generations.load();
                std::lock_guard<std::mutex> guard(infoMutex);
                polled->text = info.text;
                polled->name = info.name;
                polled->path = info.path;
            } else if (wanted == builtFactor.load()) {
                attemptedFactor = 0;
            }
            if (!polled && Clock::now() - lastFilePoll > std::chrono::milliseconds(250)) {
                lastFilePoll = Clock::now();
                std::string path;
                {
                    std::lock_guard<std::mutex> guard(infoMutex);
                    path = info.path;
                    if (runFailed.exchange(false)) info.error = info.name + ": the document failed while running";
                }
                const long long stamp = path.empty() ? 0 : stampOf(path);
                if (path != watchedPath) {
                    watchedPath = path;
                    watchedStamp = stamp;
                } else if (reload.load() && stamp != 0 && stamp != watchedStamp) {
                    watchedStamp = stamp;
                    polled.reset(new Request());
                    polled->follows = generations.load();
                    polled->file = true;
                    polled->path = path;
                }
            }
            lock.lock();
            if (polled && !waiting) {
                polled->serial = latestSerial.load();
                waiting = std::move(polled);
            }
        }
        if (waiting) {
            std::unique_ptr<Request> r = std::move(waiting);
            working = true;
            lock.unlock();
            runRequest(*r);
            lock.lock();
            working = false;
            workChanged.notify_all();
            continue;
        }
        workChanged.wait_for(lock, std::chrono::milliseconds(20), [this] { return stopping || waiting; });
    }
}

void CircuitEffect::freeRetired() {
    for (auto& g : graves) delete g.exchange(nullptr);
}

// ---- state ----

std::string CircuitEffect::getState() const {
    CircuitState s;
    {
        std::lock_guard<std::mutex> lock(infoMutex);
        s.name = info.name;
        s.path = info.path;
        s.document = info.text;
    }
    s.reload = reload.load();
    for (const auto& p : parameters) s.parameters.push_back(p.load());
    return s.encode();
}

bool CircuitEffect::setState(const void* data, size_t size) {
    CircuitState s;
    try {
        s = CircuitState::decode(data, size);
    } catch (const KELMException& e) {
        std::lock_guard<std::mutex> lock(infoMutex);
        info.error = e.message();
        return false;
    }
    const std::string name = s.hasHeader && !s.name.empty() ? s.name : "preset";
    CircuitDocument::Settings settings = settingsNow();
    if (s.parameters.size() > static_cast<size_t>(kOversampling))
        settings.oversampling = factorOf(s.parameters[kOversampling]);
    const uint64_t serial = ++latestSerial;
    // A plain document (a preset file) starts at its own values.
    CircuitDocument::SlotValues values;
    if (!s.parameters.empty()) {
        const std::vector<float> saved = s.parameters;
        values = [saved](int i, const std::string&) { return i < static_cast<int>(saved.size()) ? saved[i] : kNaN; };
    }
    std::unique_ptr<CircuitDocument> doc = build(s.document, name, s.path, settings, values);
    if (!doc) return false;
    for (int i = kSlots; i < kNumberOfParameters && i < static_cast<int>(s.parameters.size()); ++i)
        setParameter(i, s.parameters[i]);
    if (s.hasHeader) reload.store(s.reload);
    install(std::move(doc), s.document, name, s.path, serial, !active.load());
    return true;
}

void CircuitEffect::setReloadOnChange(bool on) { reload.store(on); }

CircuitEffect::Status CircuitEffect::status() const {
    Status s;
    {
        std::lock_guard<std::mutex> lock(infoMutex);
        s.name = info.name;
        s.path = info.path;
        s.error = info.error;
        for (const SlotInfo& slot : info.slots) s.controls.push_back(slot.label);
    }
    std::lock_guard<std::mutex> lock(workMutex);
    s.loading = waiting || working;
    return s;
}

// ---- the audio thread ----

void CircuitEffect::acquire() {
    while (busy.exchange(true, std::memory_order_acquire)) std::this_thread::yield();
}

bool CircuitEffect::retire(CircuitDocument* doc) {
    for (auto& g : graves) {
        CircuitDocument* empty = nullptr;
        if (g.compare_exchange_strong(empty, doc)) return true;
    }
    return false;  // the worker has not emptied the graves yet: kept until the next block
}

void CircuitEffect::takePending() {
    if (fading || !pending.load(std::memory_order_acquire)) return;
    CircuitDocument* next = pending.exchange(nullptr, std::memory_order_acq_rel);
    if (!next) return;
    if (!current) {
        current = next;
        return;
    }
    fading = current;
    current = next;
    fadePosition = 0;
    fadeLength = std::max(1, static_cast<int>(std::lround(sampleRate.load() * kCrossfadeSeconds)));
}

void CircuitEffect::applySlots(CircuitDocument& doc) {
    if (doc.tag() != slotsGeneration.load(std::memory_order_acquire)) return;
    const int n = std::min(kSlots, doc.numberOfControls());
    for (int i = 0; i < n; ++i) doc.setSlot(i, parameters[i].load(std::memory_order_relaxed));
}

void CircuitEffect::process(float** in, float** out, int frames, bool secondInputConnected) {
    if (frames <= 0 || !out || !out[0]) return;
    const bool outputPair = out[1] && out[1] != out[0];
    if (busy.exchange(true, std::memory_order_acquire)) {
        // A document is being put in place while suspended: this block stays silent.
        std::fill(out[0], out[0] + frames, 0.0f);
        if (outputPair) std::fill(out[1], out[1] + frames, 0.0f);
        return;
    }
    const Clock::time_point start = Clock::now();
    const int chunk = static_cast<int>(dry[0].size());
    if (chunk == 0 || !in || !in[0]) {
        std::fill(out[0], out[0] + frames, 0.0f);
        if (outputPair) std::fill(out[1], out[1] + frames, 0.0f);
        release();
        return;
    }
    DenormalGuard guard;
    const bool second = in[1] && in[1] != in[0] && secondInputConnected;
    for (int offset = 0; offset < frames; offset += chunk)
        runBlock(in, out, offset, std::min(chunk, frames - offset), second, outputPair);
    guard.restore();

    // The share of real time this call took, smoothed over about 0.3 s; blocks slower than
    // real time for half a second in all (with a slow recovery) raise the warning.
    const double rate = sampleRate.load() > 0 ? sampleRate.load() : 48000.0;
    const double seconds = frames / rate;
    const double used = std::chrono::duration<double>(Clock::now() - start).count() / seconds;
    const double weight = std::min(1.0, seconds / 0.3);
    cpu.store(static_cast<float>(cpu.load(std::memory_order_relaxed) * (1.0 - weight) + used * weight),
              std::memory_order_relaxed);
    slowSeconds = std::min(2.0, std::max(0.0, slowSeconds + (used > 1.0 ? seconds : -0.25 * seconds)));
    if (slowSeconds > 0.5) overloaded.store(true, std::memory_order_relaxed);
    if (slowSeconds == 0.0) overloaded.store(false, std::memory_order_relaxed);
    release();
}

void CircuitEffect::runBlock(float** in, float** out, int offset, int n, bool second, bool outputPair) {
    takePending();
    sanitise(in[0] + offset, dry[0].data(), n);
    if (second) sanitise(in[1] + offset, dry[1].data(), n);
    const float* dryRight = second ? dry[1].data() : dry[0].data();
    if (!current) {
        std::fill(out[0] + offset, out[0] + offset + n, 0.0f);
        if (outputPair) std::fill(out[1] + offset, out[1] + offset + n, 0.0f);
        return;
    }
    applySlots(*current);

    const float inputGain = gainOf(parameters[kInputLevel].load(std::memory_order_relaxed));
    applyGain(dry[0].data(), scaled[0].data(), n, lastInputGain, inputGain);
    if (second) applyGain(dry[1].data(), scaled[1].data(), n, lastInputGain, inputGain);
    lastInputGain = inputGain;
    float* left = scaled[0].data();
    float* right = second ? scaled[1].data() : left;
    try {
        current->process(left, right, wet[0].data(), wet[1].data(), n);
        if (fading) fading->process(left, right, old[0].data(), old[1].data(), n);
    } catch (...) {
        runFailed.store(true);
        std::fill(wet[0].begin(), wet[0].begin() + n, 0.0f);
        std::fill(wet[1].begin(), wet[1].begin() + n, 0.0f);
    }
    if (fading) {
        // Equal-gain crossfade: no sample beyond the larger of the two documents' samples.
        for (int c = 0; c < 2; ++c) {
            float* w = wet[c].data();
            const float* o = old[c].data();
            for (int i = 0; i < n; ++i) {
                const float t = std::min(1.0f, static_cast<float>(fadePosition + i + 1) / fadeLength);
                w[i] = w[i] * t + o[i] * (1.0f - t);
            }
        }
        fadePosition += n;
        if (fadePosition >= fadeLength && retire(fading)) fading = nullptr;
    }

    const float outputGain = 1.0f / gainOf(parameters[kOutputLevel].load(std::memory_order_relaxed));
    const float mix = parameters[kMix].load(std::memory_order_relaxed);
    const float* dryChannel[2] = {dry[0].data(), dryRight};
    for (int c = 0; c < 2; ++c) {
        if (c == 1 && !outputPair) break;
        float* y = out[c] + offset;
        applyGain(wet[c].data(), y, n, lastOutputGain, outputGain);
        if (mix == 1.0f && lastMix == 1.0f) continue;
        const float step = (mix - lastMix) / n;
        const float* d = dryChannel[c];
        for (int i = 0; i < n; ++i) {
            const float m = lastMix + step * (i + 1);
            y[i] = y[i] * m + d[i] * (1.0f - m);
        }
    }
    lastOutputGain = outputGain;
    lastMix = mix;
}

} // namespace kelm
