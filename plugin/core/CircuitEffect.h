#pragma once
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "plugin/core/CircuitDocument.h"
#include "plugin/core/EffectCore.h"

namespace kelm {

// Kelm Circuit without any plug-in format: any system description or SPICE netlist, loaded
// at run time, as a stereo effect. A document is parsed, built and warmed up off the audio
// thread (on a worker thread of its own, or on the host's thread for a state set while
// suspended) and replaced between two blocks with a short crossfade; the old one is freed
// off the audio thread. A document that fails leaves the current one playing and reports
// file, line and message. The audio thread never allocates, locks or waits.
//
// Parameters, each from 0 to 1: 0 to 15 the document's controls in document order (an
// unused slot is named "-" and does nothing), then Input level and Output level (-40 to
// +40 dB, 0 dB in the middle: how many volts a sample value of 1 is), Oversampling (1x,
// 2x, 4x, 8x around the whole document) and Mix (dry to wet).
class CircuitEffect : public EffectCore {
public:
    static constexpr int kSlots = 16;
    static constexpr int kInputLevel = 16;
    static constexpr int kOutputLevel = 17;
    static constexpr int kOversampling = 18;
    static constexpr int kMix = 19;
    static constexpr int kNumberOfParameters = 20;
    static constexpr float kLevelRange = 40.0f;          // dB either side of 0 dB
    static constexpr double kCrossfadeSeconds = 0.01;    // the switch between two documents
    static constexpr float kInputLimit = 64.0f;          // input samples are held within this
    static constexpr const char* kDefaultExample = "triode-stage.xml";

    // What the window shows of the document.
    struct Status {
        std::string name;   // the document's file name
        std::string path;   // where it was read from; empty for an example or a state
        std::string error;  // the last load's failure, "file:line: message"; empty after a success
        bool loading = false;
        std::vector<std::string> controls;  // the used slots' names
    };

    CircuitEffect();
    ~CircuitEffect() override;
    CircuitEffect(const CircuitEffect&) = delete;
    CircuitEffect& operator=(const CircuitEffect&) = delete;

    int numberOfParameters() const override { return kNumberOfParameters; }
    // Any thread. Values outside 0 to 1 and NaN are clamped; Oversampling takes its positions.
    void setParameter(int index, float value) override;
    float getParameter(int index) const override;
    // Not the audio thread: names and texts of the document that plays.
    std::string parameterName(int index) const override;
    std::string parameterText(int index, float value) const override;
    std::string parameterLabel(int index) const override;
    // 4 for Oversampling, 0 for continuous parameters.
    int parameterPositions(int index) const override;
    // A used slot's control default in the document that plays; 0 for an unused slot.
    float parameterDefault(int index) const override;
    // Grows by one whenever the slots' names change (a document with other controls).
    uint32_t namesSerial() const override { return namesChanged.load(); }

    // The host's settings, while suspended: rate in Hz, the largest block in frames.
    void setSampleRate(float rate) override;
    void setBlockSize(int frames) override;
    void suspend() override;
    // Builds the document afresh at the host's settings (unless the one in place was built
    // for them and has not run), so that every start is the same as a fresh `kelm render`.
    void resume() override;
    bool isResumed() const { return active.load(); }
    // The audio thread. in: one or two channels (in[1] may be null or equal to in[0], a mono
    // input that feeds both); out: two channels (out[1] may be null or equal to out[0]).
    void process(float** in, float** out, int frames, bool secondInputConnected = true) override;

    // Loads asynchronously (not on the audio thread): the outcome shows in status().
    void loadFile(const std::string& path);
    void loadText(const std::string& text, const std::string& name, const std::string& path = "");
    void loadExample(int index);
    // Waits (not on the audio thread) until no load is waiting or being built; false on timeout.
    bool waitForLoads(double seconds) const;

    // The state a host keeps (CircuitState): the document's text, name, path, the reload
    // toggle and every parameter.
    std::string getState() const override;
    // Builds the state's document at once, on the calling thread. While suspended it is in
    // place for the next resume without a crossfade; while running it replaces the current
    // one with the crossfade. False (the error in status(), the current document kept) when
    // the state or its document does not load.
    bool setState(const void* data, size_t size) override;

    // Reload the file whenever it changes on disk.
    void setReloadOnChange(bool on);
    bool reloadOnChange() const { return reload.load(); }

    Status status() const;
    // The share of real time the last blocks took (smoothed over about 0.3 s), and whether
    // blocks have been taking longer than real time for a while.
    float cpuLoad() const { return cpu.load(); }
    bool isOverloaded() const { return overloaded.load(); }

private:
    struct Request {
        bool file = false;      // read `path`, else build `text`
        std::string text, name, path;
        uint64_t serial = 0;
        // A load of the worker's own (the same text at a new oversampling, a file changed
        // on disk): the document generation it follows, so that it never replaces a
        // document the host or the user gave meanwhile. -1 for a load asked for.
        int64_t follows = -1;
    };
    struct SlotInfo {
        std::string name, label;
        float low = 0, high = 1, defaultValue = 0;
    };
    // What plays (or is about to): its text and slots. Guarded by infoMutex.
    struct Info {
        std::string text, name, path, error;
        std::vector<SlotInfo> slots;
    };

    CircuitDocument::Settings settingsNow() const;
    // The slot values a new document of the given controls starts with: the value of a
    // control of the same name where the host or the user moved it from its default.
    CircuitDocument::SlotValues carriedValues() const;
    // Builds; on failure records the error and returns null.
    std::unique_ptr<CircuitDocument> build(const std::string& text, const std::string& name, const std::string& path,
                                           const CircuitDocument::Settings& settings,
                                           const CircuitDocument::SlotValues& values);
    // Makes `doc` the document that plays: while suspended in place at once, else through
    // `pending` and the crossfade. Dropped when a later load superseded it.
    void install(std::unique_ptr<CircuitDocument> doc, const std::string& text, const std::string& name,
                 const std::string& path, uint64_t serial, bool now, int64_t follows = -1);
    void request(Request r);
    void work();
    void runRequest(const Request& r);
    void freeRetired();
    // The audio thread's side.
    void takePending();
    bool retire(CircuitDocument* doc);
    void applySlots(CircuitDocument& doc);
    void runBlock(float** in, float** out, int offset, int n, bool second, bool outputPair);
    void acquire();
    void release() { busy.store(false, std::memory_order_release); }

    // Parameters and settings.
    std::atomic<float> parameters[kNumberOfParameters];
    std::atomic<float> sampleRate{-1.0f};
    std::atomic<int> blockSize{-1};
    std::atomic<bool> active{false};
    std::atomic<bool> reload{false};
    std::atomic<uint32_t> namesChanged{0};
    std::atomic<int> builtFactor{0};       // the oversampling of the document last installed
    std::atomic<uint32_t> slotsGeneration{0};  // the document the slot parameters belong to

    // Documents. `current` and `fading` belong to whoever holds `busy` (the audio thread
    // during a block, a host thread installing while suspended).
    std::atomic<bool> busy{false};
    CircuitDocument* current = nullptr;
    CircuitDocument* fading = nullptr;
    uint32_t currentGeneration = 0;
    int fadePosition = 0;
    int fadeLength = 1;
    std::atomic<CircuitDocument*> pending{nullptr};
    std::atomic<uint32_t> pendingGeneration{0};
    static constexpr int kGraves = 8;
    std::atomic<CircuitDocument*> graves[kGraves];

    // The audio thread's buffers, maxBlockSize each, and its level ramps.
    std::vector<float> dry[2], wet[2], old[2], scaled[2];
    float lastInputGain = 1.0f, lastOutputGain = 1.0f, lastMix = 1.0f;
    std::atomic<float> cpu{0.0f};
    std::atomic<bool> overloaded{false};
    double slowSeconds = 0;
    std::atomic<bool> runFailed{false};

    // Loads.
    mutable std::mutex infoMutex;
    Info info;
    std::mutex publishMutex;
    std::atomic<uint64_t> latestSerial{0};
    std::atomic<uint32_t> generations{0};  // written under publishMutex
    mutable std::mutex workMutex;
    mutable std::condition_variable workChanged;
    std::unique_ptr<Request> waiting;  // under workMutex
    bool working = false;              // under workMutex
    bool stopping = false;             // under workMutex
    std::string watchedPath;           // the worker's
    long long watchedStamp = 0;
    std::thread worker;
};

} // namespace kelm
