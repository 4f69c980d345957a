#pragma once
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "plugin/clap/EditQueue.h"
#include "plugin/clap/clap.h"
#include "plugin/core/EffectCore.h"
#include "plugin/gui/EditorHost.h"
#include "plugin/gui/PluginEditor.h"

namespace kelm {

// One CLAP plug-in instance over an effect core: the plug-in's functions and the
// extensions audio-ports (a stereo pair in and out), params, state, latency, gui and
// timer-support. Threads as CLAP defines them: the host's main thread for everything but
// start/stop_processing, reset and process (and flush while active), which come from the
// audio thread, one at a time. Parameter events apply at their frame within a block; the
// window's edits reach the effect at once and the host as gesture and value events from
// the next process or flush. When the effect's parameter names change (a document loaded),
// the host is asked to rescan them on the main thread: after a state load, from the window's
// timer, or from on_main_thread, which the next block asks for.
class ClapPlugin : public EditorHost {
public:
    // One plug-in of the factory.
    struct Kind {
        clap::clap_plugin_descriptor descriptor;
        std::unique_ptr<EffectCore> (*makeCore)();
        // Its window, or null for none.
        std::unique_ptr<PluginEditor> (*makeEditor)(EditorHost& host, EffectCore& core);
    };
    // The largest block the effect is prepared for; longer ones run in parts of this size.
    static constexpr uint32_t kMaxBlock = 8192;
    // How often the window is idled through the host's timer, in milliseconds.
    static constexpr uint32_t kTimerPeriod = 30;

    ClapPlugin(const Kind& kind, const clap::clap_host* host);
    ~ClapPlugin() override;
    ClapPlugin(const ClapPlugin&) = delete;
    ClapPlugin& operator=(const ClapPlugin&) = delete;

    const clap::clap_plugin* clapPlugin() const { return &plugin; }
    // The core and the window, once init has made them (for tests).
    EffectCore* getCore() const { return core.get(); }
    PluginEditor* getEditor() const { return editor.get(); }

    // A parameter's value as CLAP sees it: the effect's 0 to 1, or the position number of a
    // stepped parameter.
    double plainValue(int index, float value) const;
    float effectValue(int index, double plain) const;

    // The host's timer (or the system's, on Windows): idles the window.
    void onTimer(clap::clap_id id);

    // EditorHost: the window's edits, on the main thread.
    float parameterValue(int index) override;
    void beginEdit(int index) override;
    void performEdit(int index, float value) override;
    void endEdit(int index) override;

private:
    static ClapPlugin* self(const clap::clap_plugin* p) { return static_cast<ClapPlugin*>(p->plugin_data); }
    template <typename T>
    const T* hostExtension(const char* id) const;

    bool init();
    bool activate(double rate, uint32_t minFrames, uint32_t maxFrames);
    void deactivate();
    int32_t process(const clap::clap_process* p);
    const void* extension(const char* id) const;
    void onMainThread();

    // Parameter events: one applied, a list applied, the window's edits sent.
    void apply(const clap::clap_event_header* e);
    void sendEdits(const clap::clap_output_events* out, uint32_t time);
    void flush(const clap::clap_input_events* in, const clap::clap_output_events* out);
    void requestFlush();
    void followNames();

    bool paramInfo(uint32_t index, clap::clap_param_info* info) const;
    bool valueToText(clap::clap_id id, double value, char* text, uint32_t capacity) const;
    bool textToValue(clap::clap_id id, const char* text, double* value) const;
    bool save(const clap::clap_ostream* stream) const;
    bool load(const clap::clap_istream* stream);

    bool guiCreate(const char* api, bool floating);
    void guiDestroy();
    bool guiSetParent(const clap::clap_window* window);
    void stopTimer();

    static const char* windowApi();

    const Kind& kind;
    const clap::clap_host* host;
    clap::clap_plugin plugin;
    std::unique_ptr<EffectCore> core;
    std::unique_ptr<PluginEditor> editor;
    std::vector<float> defaults;
    std::vector<std::string> names;     // as the host was last told them
    std::vector<std::string> textEnds;  // the texts of 0 and 1, as the host was last told them
    std::vector<float> silence;  // the input of a block that comes without one
    std::vector<uint8_t> gestureOpen;  // per parameter: a begin sent and its end not yet
    EditQueue edits;
    bool active = false;
    uint32_t namesSeen = 0;   // the names the host was told of (main thread)
    uint32_t namesAsked = 0;  // the names on_main_thread was asked for (audio thread)
    clap::clap_id timer = clap::kInvalidId;
#ifdef _WIN32
    void* timerWindow = nullptr;  // the window whose system timer idles it, without a host timer
#endif

    const clap::clap_host_params* hostParams = nullptr;
    const clap::clap_host_timer_support* hostTimers = nullptr;
    const clap::clap_host_gui* hostGui = nullptr;

    static const clap::clap_plugin_audio_ports audioPortsExtension;
    static const clap::clap_plugin_params paramsExtension;
    static const clap::clap_plugin_state stateExtension;
    static const clap::clap_plugin_latency latencyExtension;
    static const clap::clap_plugin_gui guiExtension;
    static const clap::clap_plugin_timer_support timerExtension;
};

} // namespace kelm
