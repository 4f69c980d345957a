#pragma once
// A small CLAP host for the tests, on Linux and Windows alike: loads a .clap file, lists
// its plug-ins, creates one with a host of its own (params, state, gui, timer-support,
// thread-check and log), passes parameter events at frames of a block, renders, saves and
// loads state through streams of limited reads and writes, and records what the plug-in
// asks of it. The thread that makes an instance is its main thread; calls that CLAP allows
// only on the main thread, made on another, are counted as faults.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#include <pthread.h>
#endif

#include "plugin/clap/clap.h"

namespace kelm {
namespace test {

using namespace kelm::clap;

// The .clap file, loaded and its entry initialised for as long as it lives.
class ClapModule {
public:
    explicit ClapModule(const std::string& path) {
#ifdef _WIN32
        handle = LoadLibraryA(path.c_str());
        if (!handle) {
            error = "LoadLibrary failed: " + std::to_string(GetLastError());
            return;
        }
        entry = reinterpret_cast<const clap_plugin_entry*>(GetProcAddress(static_cast<HMODULE>(handle), "clap_entry"));
#else
        handle = dlopen(path.c_str(), RTLD_LOCAL | RTLD_NOW);
        if (!handle) {
            error = dlerror();
            return;
        }
        entry = static_cast<const clap_plugin_entry*>(dlsym(handle, "clap_entry"));
#endif
        if (!entry) {
            error = "no clap_entry";
            return;
        }
        if (entry->version.major < 1 || !entry->init || !entry->init(path.c_str())) {
            error = "init failed";
            entry = nullptr;
            return;
        }
        factory = static_cast<const clap_plugin_factory*>(entry->get_factory(kPluginFactoryId));
        if (!factory) error = "no plug-in factory";
    }
    // A factory in the test's own process.
    explicit ClapModule(const clap_plugin_factory* f) : factory(f) {}
    ~ClapModule() {
        if (entry) entry->deinit();
#ifdef _WIN32
        if (handle) FreeLibrary(static_cast<HMODULE>(handle));
#else
        if (handle) dlclose(handle);
#endif
    }
    ClapModule(const ClapModule&) = delete;
    ClapModule& operator=(const ClapModule&) = delete;

    bool ok() const { return factory != nullptr; }
    uint32_t count() const { return factory->get_plugin_count(factory); }
    const clap_plugin_descriptor* descriptor(uint32_t i) const { return factory->get_plugin_descriptor(factory, i); }

    void* handle = nullptr;
    const clap_plugin_entry* entry = nullptr;
    const clap_plugin_factory* factory = nullptr;
    std::string error;
};

// A parameter value event at an absolute frame of a render.
struct ClapParamChange {
    uint64_t frame;
    clap_id id;
    double value;
};

// What the plug-in sent back as events: type, parameter and (for values) the value.
struct ClapOutEvent {
    uint16_t type;
    clap_id id;
    double value;
    uint32_t time;
};

// One plug-in instance with its host.
class ClapInstance {
public:
    // offerTimers: whether the host offers timer-support (Windows hosts often do not).
    ClapInstance(const ClapModule& module, const char* id, bool offerTimers = true) : offerTimers(offerTimers) {
        mainThread = currentThread();
        host.version = kVersion;
        host.host_data = this;
        host.name = "Kelm test host";
        host.vendor = "Kelm";
        host.url = "";
        host.version_text = "1.0";
        host.get_extension = &ClapInstance::hostExtension;
        host.request_restart = [](const clap_host* h) { self(h)->restarts++; };
        host.request_process = [](const clap_host*) {};
        host.request_callback = [](const clap_host* h) { self(h)->callbacks++; };
        plugin = module.factory->create_plugin(module.factory, &host, id);
        if (!plugin) return;
        if (!plugin->init(plugin)) {
            plugin->destroy(plugin);
            plugin = nullptr;
            return;
        }
        params = static_cast<const clap_plugin_params*>(plugin->get_extension(plugin, kExtParams));
        state = static_cast<const clap_plugin_state*>(plugin->get_extension(plugin, kExtState));
        ports = static_cast<const clap_plugin_audio_ports*>(plugin->get_extension(plugin, kExtAudioPorts));
        latency = static_cast<const clap_plugin_latency*>(plugin->get_extension(plugin, kExtLatency));
        gui = static_cast<const clap_plugin_gui*>(plugin->get_extension(plugin, kExtGui));
        timerSupport = static_cast<const clap_plugin_timer_support*>(plugin->get_extension(plugin, kExtTimerSupport));
    }
    ~ClapInstance() {
        if (!plugin) return;
        if (guiCreated) gui->destroy(plugin);
        if (processing) plugin->stop_processing(plugin);
        if (active) plugin->deactivate(plugin);
        plugin->destroy(plugin);
    }
    ClapInstance(const ClapInstance&) = delete;
    ClapInstance& operator=(const ClapInstance&) = delete;

    bool ok() const { return plugin && params && state && ports; }

    // ---- parameters ----
    uint32_t paramCount() const { return params->count(plugin); }
    clap_param_info info(uint32_t index) const {
        clap_param_info i;
        std::memset(&i, 0xAB, sizeof i);  // what the plug-in leaves unwritten shows
        if (!params->get_info(plugin, index, &i)) i.id = kInvalidId;
        return i;
    }
    clap_id idOf(const std::string& name) const {
        for (uint32_t k = 0; k < paramCount(); ++k)
            if (name == info(k).name) return info(k).id;
        return kInvalidId;
    }
    double value(clap_id id) const {
        double v = -12345;
        params->get_value(plugin, id, &v);
        return v;
    }
    std::string text(clap_id id, double v) const {
        char buffer[kNameSize];
        std::memset(buffer, 'x', sizeof buffer);
        return params->value_to_text(plugin, id, v, buffer, sizeof buffer) ? std::string(buffer) : "<none>";
    }
    bool fromText(clap_id id, const std::string& t, double& v) const { return params->text_to_value(plugin, id, t.c_str(), &v); }
    // Parameter values set without audio, as hosts set them before activating.
    void flush(const std::vector<std::pair<clap_id, double>>& values) {
        std::vector<ClapParamChange> changes;
        for (const auto& v : values) changes.push_back({0, v.first, v.second});
        EventList in(changes, 0, UINT64_MAX);
        OutList out(*this);
        params->flush(plugin, &in.list, &out.list);
    }

    // ---- audio ----
    bool activate(double rate, uint32_t minFrames, uint32_t maxFrames) {
        active = plugin->activate(plugin, rate, minFrames, maxFrames);
        if (active) processing = plugin->start_processing(plugin);
        return active && processing;
    }
    // Renders a stereo signal in blocks of `block` frames with the changes at their frames;
    // returns the status of the last block (the first that failed, if one did).
    int32_t render(const std::vector<float>& left, const std::vector<float>& right, std::vector<float>& outLeft,
                   std::vector<float>& outRight, uint32_t block, const std::vector<ClapParamChange>& changes = {}) {
        const size_t n = std::min(left.size(), right.size());
        outLeft.assign(n, 0.0f);
        outRight.assign(n, 0.0f);
        int32_t status = kProcessContinue;
        for (size_t at = 0; at < n; at += block) {
            const uint32_t frames = static_cast<uint32_t>(std::min<size_t>(block, n - at));
            std::vector<float> inL(left.begin() + at, left.begin() + at + frames);
            std::vector<float> inR(right.begin() + at, right.begin() + at + frames);
            float* inPointers[2] = {inL.data(), inR.data()};
            float* outPointers[2] = {outLeft.data() + at, outRight.data() + at};
            const int32_t s = processBlock(inPointers, outPointers, 2, frames, EventList(changes, at, at + frames));
            if (s != kProcessContinue && status == kProcessContinue) status = s;
        }
        return status;
    }
    class EventList;
    int32_t processBlock(float** in, float** out, uint32_t channels, uint32_t frames, const EventList& events) {
        clap_audio_buffer input = {in, nullptr, channels, 0, 0};
        clap_audio_buffer output = {out, nullptr, channels, 0, 0xFFFF};
        OutList outEvents(*this);
        clap_process p;
        p.steady_time = static_cast<int64_t>(steadyTime);
        p.frames_count = frames;
        p.transport = nullptr;
        p.audio_inputs = &input;
        p.audio_outputs = &output;
        p.audio_inputs_count = 1;
        p.audio_outputs_count = 1;
        p.in_events = &events.list;
        p.out_events = &outEvents.list;
        const bool onMain = currentThread() == mainThread;
        if (onMain) inProcess = true;
        const int32_t status = plugin->process(plugin, &p);
        if (onMain) inProcess = false;
        steadyTime += frames;
        if (output.constant_mask != 0) faults.push_back("constant_mask left set");
        return status;
    }

    // ---- state ----
    // Saves through a stream that takes at most `chunk` bytes a call.
    bool save(std::string& bytes, size_t chunk = 23) {
        Sink sink{&bytes, chunk};
        bytes.clear();
        clap_ostream s = {&sink, [](const clap_ostream* o, const void* data, uint64_t size) -> int64_t {
                              Sink* k = static_cast<Sink*>(o->ctx);
                              const size_t n = static_cast<size_t>(std::min<uint64_t>(size, k->chunk));
                              k->bytes->append(static_cast<const char*>(data), n);
                              return static_cast<int64_t>(n);
                          }};
        return state->save(plugin, &s);
    }
    // Loads through a stream that gives at most `chunk` bytes a call.
    bool load(const std::string& bytes, size_t chunk = 17) {
        Source source{&bytes, 0, chunk};
        clap_istream s = {&source, [](const clap_istream* i, void* data, uint64_t size) -> int64_t {
                              Source* k = static_cast<Source*>(i->ctx);
                              const size_t n = std::min<size_t>({static_cast<size_t>(size), k->chunk,
                                                                 k->bytes->size() - k->at});
                              std::memcpy(data, k->bytes->data() + k->at, n);
                              k->at += n;
                              return static_cast<int64_t>(n);
                          }};
        return state->load(plugin, &s);
    }

    // ---- window ----
    bool openWindow(void* parent, uint32_t& width, uint32_t& height) {
#ifdef _WIN32
        const char* api = kWindowApiWin32;
#else
        const char* api = kWindowApiX11;
#endif
        if (!gui || !gui->is_api_supported(plugin, api, false) || !gui->create(plugin, api, false)) return false;
        guiCreated = true;
        if (!gui->get_size(plugin, &width, &height)) return false;
        clap_window w;
        w.api = api;
#ifdef _WIN32
        w.win32 = parent;
#else
        w.x11 = static_cast<unsigned long>(reinterpret_cast<uintptr_t>(parent));
#endif
        return gui->set_parent(plugin, &w) && gui->show(plugin);
    }
    void closeWindow() {
        if (guiCreated) gui->destroy(plugin);
        guiCreated = false;
    }
    // Runs the plug-in's timers once, as a host's main loop does when they are due.
    void runTimers() {
        std::vector<clap_id> ids;
        for (const auto& t : timers) ids.push_back(t.first);
        for (clap_id id : ids)
            if (timerSupport) timerSupport->on_timer(plugin, id);
    }

    // ---- what the plug-in asked of the host ----
    std::vector<uint32_t> rescans;
    int flushRequests = 0, restarts = 0, callbacks = 0, dirty = 0;
    std::vector<ClapOutEvent> sent;  // events from process and flush, in order
    std::map<clap_id, uint32_t> timers;
    std::vector<std::string> faults;  // calls on the wrong thread, unbalanced gestures, ...
    std::vector<std::string> logged;

    const clap_plugin* plugin = nullptr;
    const clap_plugin_params* params = nullptr;
    const clap_plugin_state* state = nullptr;
    const clap_plugin_audio_ports* ports = nullptr;
    const clap_plugin_latency* latency = nullptr;
    const clap_plugin_gui* gui = nullptr;
    const clap_plugin_timer_support* timerSupport = nullptr;

    // Input events: the changes that fall in [from, to), at their frame within the block.
    class EventList {
    public:
        EventList(const std::vector<ClapParamChange>& changes, uint64_t from, uint64_t to) {
            for (const ClapParamChange& c : changes) {
                if (c.frame < from || c.frame >= to) continue;
                clap_event_param_value e;
                std::memset(&e, 0, sizeof e);
                e.header = {sizeof e, static_cast<uint32_t>(c.frame - from), kCoreEventSpace, kEventParamValue, 0};
                e.param_id = c.id;
                e.cookie = nullptr;
                e.note_id = -1;
                e.port_index = e.channel = e.key = -1;
                e.value = c.value;
                events.push_back(e);
            }
            list.ctx = this;
            list.size = [](const clap_input_events* l) {
                return static_cast<uint32_t>(static_cast<const EventList*>(l->ctx)->events.size());
            };
            list.get = [](const clap_input_events* l, uint32_t i) -> const clap_event_header* {
                const EventList* self = static_cast<const EventList*>(l->ctx);
                return i < self->events.size() ? &self->events[i].header : nullptr;
            };
        }
        EventList(const EventList&) = delete;
        std::vector<clap_event_param_value> events;
        clap_input_events list;
    };

private:
    struct Sink {
        std::string* bytes;
        size_t chunk;
    };
    struct Source {
        const std::string* bytes;
        size_t at;
        size_t chunk;
    };
    // The plug-in's output events, checked as a strict host checks them.
    class OutList {
    public:
        explicit OutList(ClapInstance& i) : instance(i) {
            list.ctx = this;
            list.try_push = [](const clap_output_events* l, const clap_event_header* e) {
                OutList* o = static_cast<OutList*>(l->ctx);
                return o->push(e);
            };
        }
        bool push(const clap_event_header* e) {
            if (e->time < lastTime) instance.faults.push_back("output events out of order");
            lastTime = e->time;
            if (e->space_id != kCoreEventSpace) return true;
            ClapOutEvent o = {e->type, kInvalidId, 0.0, e->time};
            if (e->type == kEventParamValue) {
                const auto* v = reinterpret_cast<const clap_event_param_value*>(e);
                o.id = v->param_id;
                o.value = v->value;
            } else if (e->type == kEventParamGestureBegin || e->type == kEventParamGestureEnd) {
                o.id = reinterpret_cast<const clap_event_param_gesture*>(e)->param_id;
                bool& open = instance.gestures[o.id];
                const bool begin = e->type == kEventParamGestureBegin;
                if (open == begin) instance.faults.push_back(begin ? "gesture begun twice" : "gesture ended unbegun");
                open = begin;
            }
            instance.sent.push_back(o);
            return true;
        }
        ClapInstance& instance;
        uint32_t lastTime = 0;
        clap_output_events list;
    };

    static ClapInstance* self(const clap_host* h) { return static_cast<ClapInstance*>(h->host_data); }
    static uint64_t currentThread() {
#ifdef _WIN32
        return GetCurrentThreadId();
#else
        return static_cast<uint64_t>(pthread_self());
#endif
    }
    void mainThreadOnly(const char* what) {
        if (currentThread() != mainThread || inProcess) faults.push_back(std::string(what) + " off the main thread");
    }

    static const void* KELM_CLAP_ABI hostExtension(const clap_host* h, const char* id) {
        static const clap_host_params params = {
            [](const clap_host* h, uint32_t flags) {
                self(h)->mainThreadOnly("params.rescan");
                self(h)->rescans.push_back(flags);
            },
            [](const clap_host* h, clap_id, uint32_t) { self(h)->mainThreadOnly("params.clear"); },
            [](const clap_host* h) {
                self(h)->mainThreadOnly("params.request_flush");
                self(h)->flushRequests++;
            },
        };
        static const clap_host_state state = {[](const clap_host* h) {
            self(h)->mainThreadOnly("state.mark_dirty");
            self(h)->dirty++;
        }};
        static const clap_host_timer_support timers = {
            [](const clap_host* h, uint32_t period, clap_id* id) {
                ClapInstance* s = self(h);
                s->mainThreadOnly("register_timer");
                *id = s->nextTimer++;
                s->timers[*id] = period;
                return true;
            },
            [](const clap_host* h, clap_id id) {
                ClapInstance* s = self(h);
                s->mainThreadOnly("unregister_timer");
                return s->timers.erase(id) == 1;
            },
        };
        static const clap_host_thread_check threads = {
            [](const clap_host* h) { return currentThread() == self(h)->mainThread; },
            [](const clap_host* h) { return currentThread() != self(h)->mainThread || self(h)->inProcess; },
        };
        static const clap_host_log log = {[](const clap_host* h, int32_t, const char* message) {
            self(h)->logged.push_back(message ? message : "");
        }};
        static const clap_host_gui gui = {
            [](const clap_host*) {},
            [](const clap_host*, uint32_t, uint32_t) { return false; },
            [](const clap_host*) { return false; },
            [](const clap_host*) { return false; },
            [](const clap_host*, bool) {},
        };
        if (!id) return nullptr;
        if (!std::strcmp(id, kExtParams)) return &params;
        if (!std::strcmp(id, kExtState)) return &state;
        if (!std::strcmp(id, kExtTimerSupport)) return self(h)->offerTimers ? &timers : nullptr;
        if (!std::strcmp(id, kExtThreadCheck)) return &threads;
        if (!std::strcmp(id, kExtLog)) return &log;
        if (!std::strcmp(id, kExtGui)) return &gui;
        return nullptr;
    }

    clap_host host;
    bool active = false, processing = false, guiCreated = false;
    bool offerTimers;
    bool inProcess = false;  // a block runs on the main thread
    uint64_t mainThread = 0;
    uint64_t steadyTime = 0;
    clap_id nextTimer = 0;  // Qtractor's first id is 0 as well
    std::map<clap_id, bool> gestures;
};

} // namespace test
} // namespace kelm
