#include "plugin/clap/ClapPlugin.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#ifdef _WIN32
#include <windows.h>
#endif

namespace kelm {

using namespace clap;

namespace {

void copyText(char* to, const std::string& from, size_t capacity) {
    if (capacity == 0) return;
    const size_t n = std::min(from.size(), capacity - 1);
    std::memcpy(to, from.data(), n);
    to[n] = 0;
}

// The largest state accepted from a host, in bytes.
constexpr size_t kMaxState = 64u << 20;

#ifdef _WIN32
void CALLBACK idleTimer(HWND, UINT, UINT_PTR id, DWORD) { reinterpret_cast<ClapPlugin*>(id)->onTimer(kInvalidId); }
#endif

} // namespace

ClapPlugin::ClapPlugin(const Kind& k, const clap_host* h) : kind(k), host(h) {
    plugin.desc = &kind.descriptor;
    plugin.plugin_data = this;
    plugin.init = [](const clap_plugin* p) { return self(p)->init(); };
    plugin.destroy = [](const clap_plugin* p) { delete self(p); };
    plugin.activate = [](const clap_plugin* p, double rate, uint32_t minFrames, uint32_t maxFrames) {
        return self(p)->activate(rate, minFrames, maxFrames);
    };
    plugin.deactivate = [](const clap_plugin* p) { self(p)->deactivate(); };
    plugin.start_processing = [](const clap_plugin*) { return true; };
    plugin.stop_processing = [](const clap_plugin*) {};
    // The circuits keep their state: a reset changes nothing a host could hear as a fault.
    plugin.reset = [](const clap_plugin*) {};
    plugin.process = [](const clap_plugin* p, const clap_process* process) { return self(p)->process(process); };
    plugin.get_extension = [](const clap_plugin* p, const char* id) { return self(p)->extension(id); };
    plugin.on_main_thread = [](const clap_plugin* p) { self(p)->onMainThread(); };
}

ClapPlugin::~ClapPlugin() {
    guiDestroy();
    if (active) deactivate();
}

template <typename T>
const T* ClapPlugin::hostExtension(const char* id) const {
    return host && host->get_extension ? static_cast<const T*>(host->get_extension(host, id)) : nullptr;
}

bool ClapPlugin::init() {
    if (core) return true;
    try {
        core = kind.makeCore();
    } catch (...) {
        return false;
    }
    if (!core) return false;
    for (int i = 0; i < core->numberOfParameters(); ++i) {
        defaults.push_back(core->getParameter(i));
        names.push_back(core->parameterName(i));
        textEnds.push_back(core->parameterText(i, 0.0f) + '\n' + core->parameterText(i, 1.0f));
    }
    gestureOpen.assign(defaults.size(), 0);
    namesSeen = namesAsked = core->namesSerial();
    hostParams = hostExtension<clap_host_params>(kExtParams);
    hostTimers = hostExtension<clap_host_timer_support>(kExtTimerSupport);
    hostGui = hostExtension<clap_host_gui>(kExtGui);
    return true;
}

bool ClapPlugin::activate(double rate, uint32_t, uint32_t maxFrames) {
    if (!core || !(rate > 0) || rate > 1e7) return false;
    try {
        const uint32_t block = std::min(std::max(maxFrames, 1u), kMaxBlock);
        core->setSampleRate(static_cast<float>(rate));
        core->setBlockSize(static_cast<int>(block));
        core->resume();
        silence.assign(block, 0.0f);
    } catch (...) {
        return false;
    }
    active = true;
    return true;
}

void ClapPlugin::deactivate() {
    if (!active) return;
    active = false;
    try {
        core->suspend();
    } catch (...) {
    }
}

// ---- parameters ----

double ClapPlugin::plainValue(int index, float value) const {
    const int positions = core->parameterPositions(index);
    if (positions > 1) return std::round(static_cast<double>(value) * (positions - 1));
    return value;
}

float ClapPlugin::effectValue(int index, double plain) const {
    const int positions = core->parameterPositions(index);
    if (!(plain >= 0)) plain = 0;  // NaN too
    if (positions > 1) {
        // The nearest position: a host's mapping from its own scale may give 0.9999 for 1.
        const double k = std::min(std::round(plain), static_cast<double>(positions - 1));
        return static_cast<float>(k / (positions - 1));
    }
    return static_cast<float>(std::min(plain, 1.0));
}

bool ClapPlugin::paramInfo(uint32_t index, clap_param_info* info) const {
    if (!core || !info || index >= defaults.size()) return false;
    std::memset(info, 0, sizeof *info);
    const int i = static_cast<int>(index);
    const int positions = core->parameterPositions(i);
    info->id = index;
    info->flags = kParamIsAutomatable | (positions > 1 ? kParamIsStepped | kParamIsEnum : 0u);
    info->cookie = nullptr;
    copyText(info->name, core->parameterName(i), sizeof info->name);
    info->module[0] = 0;
    info->min_value = 0;
    info->max_value = positions > 1 ? positions - 1 : 1;
    info->default_value = plainValue(i, defaults[index]);
    return true;
}

bool ClapPlugin::valueToText(clap_id id, double value, char* text, uint32_t capacity) const {
    if (!core || !text || capacity == 0 || id >= defaults.size()) return false;
    const int i = static_cast<int>(id);
    std::string shown = core->parameterText(i, effectValue(i, value));
    const std::string label = core->parameterLabel(i);
    if (!label.empty()) shown += " " + label;
    copyText(text, shown, capacity);
    return true;
}

bool ClapPlugin::textToValue(clap_id id, const char* text, double* value) const {
    if (!core || !text || !value || id >= defaults.size()) return false;
    const int i = static_cast<int>(id);
    float v = 0;
    if (!core->parameterFromText(i, text, v)) return false;
    *value = plainValue(i, v);
    return true;
}

void ClapPlugin::apply(const clap_event_header* e) {
    if (!e || e->space_id != kCoreEventSpace || e->type != kEventParamValue) return;
    if (e->size < sizeof(clap_event_param_value)) return;
    const auto* v = reinterpret_cast<const clap_event_param_value*>(e);
    if (v->param_id >= defaults.size()) return;
    const int i = static_cast<int>(v->param_id);
    core->setParameter(i, effectValue(i, v->value));
}

void ClapPlugin::sendEdits(const clap_output_events* out, uint32_t time) {
    EditQueue::Edit edit;
    while (edits.pop(edit)) {
        if (edit.index < 0 || static_cast<size_t>(edit.index) >= gestureOpen.size()) continue;
        const uint32_t flags = kEventIsLive;
        // A begin or end that would leave the host's gestures unbalanced (one was dropped
        // from a full queue) is left out.
        if (edit.kind == EditQueue::Value) {
            clap_event_param_value v;
            std::memset(&v, 0, sizeof v);
            v.header = {sizeof v, time, kCoreEventSpace, kEventParamValue, flags};
            v.param_id = static_cast<clap_id>(edit.index);
            v.note_id = -1;
            v.port_index = v.channel = v.key = -1;
            v.value = plainValue(edit.index, edit.value);
            if (out && out->try_push) out->try_push(out, &v.header);
            continue;
        }
        uint8_t& open = gestureOpen[edit.index];
        const bool begin = edit.kind == EditQueue::Begin;
        if (open == (begin ? 1 : 0)) continue;
        open = begin ? 1 : 0;
        clap_event_param_gesture g;
        g.header = {sizeof g, time, kCoreEventSpace, begin ? kEventParamGestureBegin : kEventParamGestureEnd, flags};
        g.param_id = static_cast<clap_id>(edit.index);
        if (out && out->try_push) out->try_push(out, &g.header);
    }
}

void ClapPlugin::flush(const clap_input_events* in, const clap_output_events* out) {
    if (!core) return;
    const uint32_t count = in && in->size ? in->size(in) : 0;
    for (uint32_t k = 0; k < count; ++k) apply(in->get(in, k));
    sendEdits(out, 0);
}

void ClapPlugin::requestFlush() {
    if (hostParams && hostParams->request_flush) hostParams->request_flush(host);
}

void ClapPlugin::followNames() {
    if (!core || core->namesSerial() == namesSeen) return;
    namesSeen = core->namesSerial();
    // A document rebuilt (at a new rate, say) or one with the same controls changes nothing
    // the host shows. New names come with their own defaults; a control's texts are known by
    // those of its ends (a slot's text is linear between them).
    bool info = false, text = false;
    for (size_t i = 0; i < defaults.size(); ++i) {
        const int index = static_cast<int>(i);
        std::string name = core->parameterName(index);
        if (name != names[i]) {
            names[i].swap(name);
            info = true;
        }
        const float d = core->parameterDefault(index);
        if (d == d && std::min(1.0f, std::max(0.0f, d)) != defaults[i]) {
            defaults[i] = std::min(1.0f, std::max(0.0f, d));
            info = true;
        }
        std::string ends = core->parameterText(index, 0.0f) + '\n' + core->parameterText(index, 1.0f);
        if (ends != textEnds[i]) {
            textEnds[i].swap(ends);
            text = true;
        }
    }
    const uint32_t flags = info ? kRescanInfo | kRescanText : text ? kRescanText : 0u;
    if (flags && hostParams && hostParams->rescan) hostParams->rescan(host, flags);
}

// ---- blocks ----

int32_t ClapPlugin::process(const clap_process* p) {
    if (!p || !core) return kProcessError;
    const uint32_t frames = p->frames_count;
    // Names changed by a load off the main thread (a document from the window, a file
    // reloaded): the host hears of them from on_main_thread.
    const uint32_t serial = core->namesSerial();
    if (serial != namesAsked) {
        namesAsked = serial;
        if (host && host->request_callback) host->request_callback(host);
    }
    // The window's edits go out at the block's first frame (none fits a block of no frames).
    if (frames > 0) sendEdits(p->out_events, 0);

    float* in[2] = {nullptr, nullptr};
    float* out[2] = {nullptr, nullptr};
    uint32_t inChannels = 0;
    if (p->audio_inputs_count > 0 && p->audio_inputs && p->audio_inputs[0].data32 && p->audio_inputs[0].channel_count > 0) {
        inChannels = p->audio_inputs[0].channel_count;
        in[0] = p->audio_inputs[0].data32[0];
        in[1] = inChannels > 1 ? p->audio_inputs[0].data32[1] : in[0];
    }
    if (p->audio_outputs_count > 0 && p->audio_outputs && p->audio_outputs[0].data32 &&
        p->audio_outputs[0].channel_count > 0) {
        out[0] = p->audio_outputs[0].data32[0];
        out[1] = p->audio_outputs[0].channel_count > 1 ? p->audio_outputs[0].data32[1] : nullptr;
        p->audio_outputs[0].constant_mask = 0;
    }

    // The block runs in parts between the frames where parameter events fall, each event
    // applied before the frame it names; events past the block's end apply at its end.
    const clap_input_events* events = p->in_events;
    const uint32_t count = events && events->size ? events->size(events) : 0;
    uint32_t next = 0;
    auto timeOf = [&](uint32_t k) {
        const clap_event_header* e = events->get(events, k);
        return e ? std::min(e->time, frames) : 0u;
    };
    bool failed = false;
    for (uint32_t pos = 0;;) {
        for (; next < count && timeOf(next) <= pos; ++next) apply(events->get(events, next));
        if (pos >= frames) break;
        const uint32_t end = next < count ? timeOf(next) : frames;
        if (out[0] && !failed) {
            if (!active) {
                failed = true;
            } else {
                try {
                    for (uint32_t at = pos; at < end;) {
                        // Without an input the block reads silence, as far as the silence goes.
                        const uint32_t n = in[0] ? end - at : std::min<uint32_t>(end - at, static_cast<uint32_t>(silence.size()));
                        if (n == 0) {
                            failed = true;
                            break;
                        }
                        float* partIn[2] = {in[0] ? in[0] + at : silence.data(), in[1] ? in[1] + at : silence.data()};
                        float* partOut[2] = {out[0] + at, out[1] ? out[1] + at : nullptr};
                        core->process(partIn, partOut, static_cast<int>(n), inChannels > 1);
                        at += n;
                    }
                } catch (...) {
                    failed = true;
                }
            }
        }
        pos = end;
    }
    if (failed) {
        for (float* o : out)
            if (o) std::fill(o, o + frames, 0.0f);
        return kProcessError;
    }
    return kProcessContinue;
}

// ---- state ----

bool ClapPlugin::save(const clap_ostream* stream) const {
    if (!core || !stream || !stream->write) return false;
    const std::string state = core->getState();
    for (size_t done = 0; done < state.size();) {
        const int64_t n = stream->write(stream, state.data() + done, state.size() - done);
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return !state.empty();
}

bool ClapPlugin::load(const clap_istream* stream) {
    if (!core || !stream || !stream->read) return false;
    std::string state;
    char buffer[4096];
    for (;;) {
        const int64_t n = stream->read(stream, buffer, sizeof buffer);
        if (n < 0 || static_cast<uint64_t>(n) > sizeof buffer) return false;
        if (n == 0) break;
        state.append(buffer, static_cast<size_t>(n));
        if (state.size() > kMaxState) return false;
    }
    bool loaded = false;
    try {
        loaded = core->setState(state.data(), state.size());
    } catch (...) {
        return false;
    }
    if (!loaded) return false;
    if (editor)
        for (int i = 0; i < core->numberOfParameters(); ++i) editor->parameterChanged(i, core->getParameter(i));
    if (hostParams && hostParams->rescan) hostParams->rescan(host, kRescanValues);
    followNames();
    return true;
}

// ---- the window ----

const char* ClapPlugin::windowApi() {
#ifdef _WIN32
    return kWindowApiWin32;
#else
    return kWindowApiX11;
#endif
}

bool ClapPlugin::guiCreate(const char* api, bool floating) {
    if (!core || !kind.makeEditor || floating || !api || std::strcmp(api, windowApi()) != 0) return false;
    guiDestroy();
    try {
        editor = kind.makeEditor(*this, *core);
    } catch (...) {
        editor.reset();
    }
    return editor != nullptr;
}

void ClapPlugin::guiDestroy() {
    stopTimer();
    if (editor) editor->close();
    editor.reset();
}

bool ClapPlugin::guiSetParent(const clap_window* window) {
    if (!editor || !window || !window->api || std::strcmp(window->api, windowApi()) != 0) return false;
#ifdef _WIN32
    void* parent = window->win32;
#else
    void* parent = reinterpret_cast<void*>(static_cast<uintptr_t>(window->x11));
#endif
    stopTimer();
    try {
        if (!editor->open(parent)) return false;
    } catch (...) {
        return false;
    }
    // The window draws what changed from its idle calls, which the host's timer makes.
    if (hostTimers && hostTimers->register_timer) {
        clap_id id = kInvalidId;
        if (hostTimers->register_timer(host, kTimerPeriod, &id)) timer = id;
    }
#ifdef _WIN32
    if (timer == kInvalidId && editor->getFrame() && editor->getFrame()->nativeHandle()) {
        // Without the host's timers a system timer on the window does it, through the host's
        // message loop.
        timerWindow = editor->getFrame()->nativeHandle();
        SetTimer(static_cast<HWND>(timerWindow), reinterpret_cast<UINT_PTR>(this), kTimerPeriod, idleTimer);
    }
#endif
    return true;
}

void ClapPlugin::stopTimer() {
    if (timer != kInvalidId && hostTimers && hostTimers->unregister_timer) hostTimers->unregister_timer(host, timer);
    timer = kInvalidId;
#ifdef _WIN32
    if (timerWindow) KillTimer(static_cast<HWND>(timerWindow), reinterpret_cast<UINT_PTR>(this));
    timerWindow = nullptr;
#endif
}

void ClapPlugin::onTimer(clap_id) {
    if (editor) editor->idle();
    followNames();
}

void ClapPlugin::onMainThread() { followNames(); }

// ---- the window's edits ----

float ClapPlugin::parameterValue(int index) { return core ? core->getParameter(index) : 0.0f; }

void ClapPlugin::beginEdit(int index) {
    edits.push({EditQueue::Begin, index, 0.0f});
    requestFlush();
}

void ClapPlugin::performEdit(int index, float value) {
    if (!core) return;
    core->setParameter(index, value);
    edits.push({EditQueue::Value, index, core->getParameter(index)});
    requestFlush();
}

void ClapPlugin::endEdit(int index) {
    edits.push({EditQueue::End, index, 0.0f});
    requestFlush();
}

// ---- extensions ----

const void* ClapPlugin::extension(const char* id) const {
    if (!id) return nullptr;
    if (std::strcmp(id, kExtAudioPorts) == 0) return &audioPortsExtension;
    if (std::strcmp(id, kExtParams) == 0) return &paramsExtension;
    if (std::strcmp(id, kExtState) == 0) return &stateExtension;
    if (std::strcmp(id, kExtLatency) == 0) return &latencyExtension;
    if (kind.makeEditor && std::strcmp(id, kExtGui) == 0) return &guiExtension;
    if (kind.makeEditor && std::strcmp(id, kExtTimerSupport) == 0) return &timerExtension;
    return nullptr;
}

const clap_plugin_audio_ports ClapPlugin::audioPortsExtension = {
    [](const clap_plugin*, bool) -> uint32_t { return 1; },
    [](const clap_plugin*, uint32_t index, bool isInput, clap_audio_port_info* info) {
        if (index != 0 || !info) return false;
        std::memset(info, 0, sizeof *info);
        info->id = 0;
        copyText(info->name, isInput ? "Input" : "Output", sizeof info->name);
        info->flags = kAudioPortIsMain;
        info->channel_count = 2;
        info->port_type = "stereo";
        info->in_place_pair = 0;  // the effect reads a part's input before it writes its output
        return true;
    },
};

const clap_plugin_params ClapPlugin::paramsExtension = {
    [](const clap_plugin* p) { return static_cast<uint32_t>(self(p)->defaults.size()); },
    [](const clap_plugin* p, uint32_t index, clap_param_info* info) { return self(p)->paramInfo(index, info); },
    [](const clap_plugin* p, clap_id id, double* value) {
        ClapPlugin* s = self(p);
        if (!s->core || !value || id >= s->defaults.size()) return false;
        *value = s->plainValue(static_cast<int>(id), s->core->getParameter(static_cast<int>(id)));
        return true;
    },
    [](const clap_plugin* p, clap_id id, double value, char* text, uint32_t capacity) {
        return self(p)->valueToText(id, value, text, capacity);
    },
    [](const clap_plugin* p, clap_id id, const char* text, double* value) {
        return self(p)->textToValue(id, text, value);
    },
    [](const clap_plugin* p, const clap_input_events* in, const clap_output_events* out) { self(p)->flush(in, out); },
};

const clap_plugin_state ClapPlugin::stateExtension = {
    [](const clap_plugin* p, const clap_ostream* stream) { return self(p)->save(stream); },
    [](const clap_plugin* p, const clap_istream* stream) { return self(p)->load(stream); },
};

const clap_plugin_latency ClapPlugin::latencyExtension = {
    [](const clap_plugin* p) -> uint32_t {
        const ClapPlugin* s = self(p);
        return s->core ? static_cast<uint32_t>(std::max(0, s->core->latency())) : 0u;
    },
};

const clap_plugin_gui ClapPlugin::guiExtension = {
    [](const clap_plugin*, const char* api, bool floating) {
        return !floating && api && std::strcmp(api, windowApi()) == 0;
    },
    [](const clap_plugin*, const char** api, bool* floating) {
        if (!api || !floating) return false;
        *api = windowApi();
        *floating = false;
        return true;
    },
    [](const clap_plugin* p, const char* api, bool floating) { return self(p)->guiCreate(api, floating); },
    [](const clap_plugin* p) { self(p)->guiDestroy(); },
    [](const clap_plugin*, double) { return false; },  // drawn at one scale
    [](const clap_plugin* p, uint32_t* width, uint32_t* height) {
        const PluginEditor* e = self(p)->editor.get();
        if (!e || !width || !height) return false;
        *width = static_cast<uint32_t>(e->width());
        *height = static_cast<uint32_t>(e->height());
        return true;
    },
    [](const clap_plugin*) { return false; },
    [](const clap_plugin*, clap_gui_resize_hints*) { return false; },
    [](const clap_plugin*, uint32_t*, uint32_t*) { return false; },
    [](const clap_plugin* p, uint32_t width, uint32_t height) {
        const PluginEditor* e = self(p)->editor.get();
        return e && width == static_cast<uint32_t>(e->width()) && height == static_cast<uint32_t>(e->height());
    },
    [](const clap_plugin* p, const clap_window* window) { return self(p)->guiSetParent(window); },
    [](const clap_plugin*, const clap_window*) { return false; },
    [](const clap_plugin*, const char*) {},
    [](const clap_plugin* p) { return self(p)->editor != nullptr; },
    [](const clap_plugin* p) { return self(p)->editor != nullptr; },
};

const clap_plugin_timer_support ClapPlugin::timerExtension = {
    [](const clap_plugin* p, clap_id id) { self(p)->onTimer(id); },
};

} // namespace kelm
