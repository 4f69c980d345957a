#pragma once
// The CLAP binary interface as far as Kelm uses it, plug-in side and host side, written
// from the published facts of the interface: records, function tables, identifiers and
// constants. Every function pointer uses the C calling convention (__cdecl on 32-bit
// Windows). The sizes and offsets below are checked at compile time for each target.
#include <cstddef>
#include <cstdint>

#ifdef _WIN32
#define KELM_CLAP_ABI __cdecl
#else
#define KELM_CLAP_ABI
#endif

namespace kelm {
namespace clap {

typedef uint32_t clap_id;
constexpr clap_id kInvalidId = 0xFFFFFFFFu;
constexpr uint32_t kNameSize = 256;
constexpr uint32_t kPathSize = 1024;

struct clap_version {
    uint32_t major, minor, revision;
};
constexpr clap_version kVersion = {1, 2, 10};

struct clap_plugin_entry {
    clap_version version;
    bool(KELM_CLAP_ABI* init)(const char* plugin_path);
    void(KELM_CLAP_ABI* deinit)();
    const void*(KELM_CLAP_ABI* get_factory)(const char* factory_id);
};

struct clap_host {
    clap_version version;
    void* host_data;
    const char* name;
    const char* vendor;
    const char* url;
    const char* version_text;
    const void*(KELM_CLAP_ABI* get_extension)(const clap_host* host, const char* extension_id);
    void(KELM_CLAP_ABI* request_restart)(const clap_host* host);
    void(KELM_CLAP_ABI* request_process)(const clap_host* host);
    void(KELM_CLAP_ABI* request_callback)(const clap_host* host);
};

struct clap_plugin_descriptor {
    clap_version version;
    const char* id;
    const char* name;
    const char* vendor;
    const char* url;
    const char* manual_url;
    const char* support_url;
    const char* version_text;
    const char* description;
    const char* const* features;
};

struct clap_process;

struct clap_plugin {
    const clap_plugin_descriptor* desc;
    void* plugin_data;
    bool(KELM_CLAP_ABI* init)(const clap_plugin* plugin);
    void(KELM_CLAP_ABI* destroy)(const clap_plugin* plugin);
    bool(KELM_CLAP_ABI* activate)(const clap_plugin* plugin, double sample_rate, uint32_t min_frames,
                                  uint32_t max_frames);
    void(KELM_CLAP_ABI* deactivate)(const clap_plugin* plugin);
    bool(KELM_CLAP_ABI* start_processing)(const clap_plugin* plugin);
    void(KELM_CLAP_ABI* stop_processing)(const clap_plugin* plugin);
    void(KELM_CLAP_ABI* reset)(const clap_plugin* plugin);
    int32_t(KELM_CLAP_ABI* process)(const clap_plugin* plugin, const clap_process* process);
    const void*(KELM_CLAP_ABI* get_extension)(const clap_plugin* plugin, const char* id);
    void(KELM_CLAP_ABI* on_main_thread)(const clap_plugin* plugin);
};

struct clap_plugin_factory {
    uint32_t(KELM_CLAP_ABI* get_plugin_count)(const clap_plugin_factory* factory);
    const clap_plugin_descriptor*(KELM_CLAP_ABI* get_plugin_descriptor)(const clap_plugin_factory* factory,
                                                                         uint32_t index);
    const clap_plugin*(KELM_CLAP_ABI* create_plugin)(const clap_plugin_factory* factory, const clap_host* host,
                                                     const char* plugin_id);
};

// Events.
struct clap_event_header {
    uint32_t size;
    uint32_t time;
    uint16_t space_id;
    uint16_t type;
    uint32_t flags;
};
constexpr uint16_t kCoreEventSpace = 0;
enum EventType : uint16_t {
    kEventParamValue = 5,
    kEventParamMod = 6,
    kEventParamGestureBegin = 7,
    kEventParamGestureEnd = 8,
};
enum EventFlags : uint32_t { kEventIsLive = 1, kEventDontRecord = 2 };

struct clap_event_param_value {
    clap_event_header header;
    clap_id param_id;
    void* cookie;
    int32_t note_id;
    int16_t port_index;
    int16_t channel;
    int16_t key;
    double value;
};

struct clap_event_param_gesture {
    clap_event_header header;
    clap_id param_id;
};

struct clap_input_events {
    void* ctx;
    uint32_t(KELM_CLAP_ABI* size)(const clap_input_events* list);
    const clap_event_header*(KELM_CLAP_ABI* get)(const clap_input_events* list, uint32_t index);
};

struct clap_output_events {
    void* ctx;
    bool(KELM_CLAP_ABI* try_push)(const clap_output_events* list, const clap_event_header* event);
};

// Processing.
struct clap_audio_buffer {
    float** data32;
    double** data64;
    uint32_t channel_count;
    uint32_t latency;
    uint64_t constant_mask;
};

struct clap_event_transport;

struct clap_process {
    int64_t steady_time;
    uint32_t frames_count;
    const clap_event_transport* transport;
    const clap_audio_buffer* audio_inputs;
    clap_audio_buffer* audio_outputs;
    uint32_t audio_inputs_count;
    uint32_t audio_outputs_count;
    const clap_input_events* in_events;
    const clap_output_events* out_events;
};

enum ProcessStatus : int32_t {
    kProcessError = 0,
    kProcessContinue = 1,
    kProcessContinueIfNotQuiet = 2,
    kProcessTail = 3,
    kProcessSleep = 4,
};

// Identifiers of the factory and the extensions.
constexpr const char* kPluginFactoryId = "clap.plugin-factory";
constexpr const char* kExtAudioPorts = "clap.audio-ports";
constexpr const char* kExtParams = "clap.params";
constexpr const char* kExtState = "clap.state";
constexpr const char* kExtLatency = "clap.latency";
constexpr const char* kExtGui = "clap.gui";
constexpr const char* kExtTimerSupport = "clap.timer-support";
constexpr const char* kExtThreadCheck = "clap.thread-check";
constexpr const char* kExtLog = "clap.log";

// audio-ports
struct clap_audio_port_info {
    clap_id id;
    char name[kNameSize];
    uint32_t flags;
    uint32_t channel_count;
    const char* port_type;
    clap_id in_place_pair;
};
constexpr uint32_t kAudioPortIsMain = 1;

struct clap_plugin_audio_ports {
    uint32_t(KELM_CLAP_ABI* count)(const clap_plugin* plugin, bool is_input);
    bool(KELM_CLAP_ABI* get)(const clap_plugin* plugin, uint32_t index, bool is_input, clap_audio_port_info* info);
};

// params
struct clap_param_info {
    clap_id id;
    uint32_t flags;
    void* cookie;
    char name[kNameSize];
    char module[kPathSize];
    double min_value;
    double max_value;
    double default_value;
};
enum ParamFlags : uint32_t {
    kParamIsStepped = 1,
    kParamIsHidden = 4,
    kParamIsReadonly = 8,
    kParamIsBypass = 16,
    kParamIsAutomatable = 32,
    kParamIsModulatable = 1024,
    kParamRequiresProcess = 32768,
    kParamIsEnum = 65536,
};

struct clap_plugin_params {
    uint32_t(KELM_CLAP_ABI* count)(const clap_plugin* plugin);
    bool(KELM_CLAP_ABI* get_info)(const clap_plugin* plugin, uint32_t index, clap_param_info* info);
    bool(KELM_CLAP_ABI* get_value)(const clap_plugin* plugin, clap_id id, double* value);
    bool(KELM_CLAP_ABI* value_to_text)(const clap_plugin* plugin, clap_id id, double value, char* text,
                                       uint32_t capacity);
    bool(KELM_CLAP_ABI* text_to_value)(const clap_plugin* plugin, clap_id id, const char* text, double* value);
    void(KELM_CLAP_ABI* flush)(const clap_plugin* plugin, const clap_input_events* in, const clap_output_events* out);
};

struct clap_host_params {
    void(KELM_CLAP_ABI* rescan)(const clap_host* host, uint32_t flags);
    void(KELM_CLAP_ABI* clear)(const clap_host* host, clap_id id, uint32_t flags);
    void(KELM_CLAP_ABI* request_flush)(const clap_host* host);
};
enum ParamRescanFlags : uint32_t { kRescanValues = 1, kRescanText = 2, kRescanInfo = 4, kRescanAll = 8 };

// state
struct clap_istream {
    void* ctx;
    int64_t(KELM_CLAP_ABI* read)(const clap_istream* stream, void* buffer, uint64_t size);
};

struct clap_ostream {
    void* ctx;
    int64_t(KELM_CLAP_ABI* write)(const clap_ostream* stream, const void* buffer, uint64_t size);
};

struct clap_plugin_state {
    bool(KELM_CLAP_ABI* save)(const clap_plugin* plugin, const clap_ostream* stream);
    bool(KELM_CLAP_ABI* load)(const clap_plugin* plugin, const clap_istream* stream);
};

struct clap_host_state {
    void(KELM_CLAP_ABI* mark_dirty)(const clap_host* host);
};

// latency
struct clap_plugin_latency {
    uint32_t(KELM_CLAP_ABI* get)(const clap_plugin* plugin);
};

struct clap_host_latency {
    void(KELM_CLAP_ABI* changed)(const clap_host* host);
};

// gui
constexpr const char* kWindowApiX11 = "x11";
constexpr const char* kWindowApiWin32 = "win32";

struct clap_window {
    const char* api;
    union {
        unsigned long x11;
        void* win32;
        void* cocoa;
        void* ptr;
    };
};

struct clap_gui_resize_hints {
    bool can_resize_horizontally;
    bool can_resize_vertically;
    bool preserve_aspect_ratio;
    uint32_t aspect_ratio_width;
    uint32_t aspect_ratio_height;
};

struct clap_plugin_gui {
    bool(KELM_CLAP_ABI* is_api_supported)(const clap_plugin* plugin, const char* api, bool is_floating);
    bool(KELM_CLAP_ABI* get_preferred_api)(const clap_plugin* plugin, const char** api, bool* is_floating);
    bool(KELM_CLAP_ABI* create)(const clap_plugin* plugin, const char* api, bool is_floating);
    void(KELM_CLAP_ABI* destroy)(const clap_plugin* plugin);
    bool(KELM_CLAP_ABI* set_scale)(const clap_plugin* plugin, double scale);
    bool(KELM_CLAP_ABI* get_size)(const clap_plugin* plugin, uint32_t* width, uint32_t* height);
    bool(KELM_CLAP_ABI* can_resize)(const clap_plugin* plugin);
    bool(KELM_CLAP_ABI* get_resize_hints)(const clap_plugin* plugin, clap_gui_resize_hints* hints);
    bool(KELM_CLAP_ABI* adjust_size)(const clap_plugin* plugin, uint32_t* width, uint32_t* height);
    bool(KELM_CLAP_ABI* set_size)(const clap_plugin* plugin, uint32_t width, uint32_t height);
    bool(KELM_CLAP_ABI* set_parent)(const clap_plugin* plugin, const clap_window* window);
    bool(KELM_CLAP_ABI* set_transient)(const clap_plugin* plugin, const clap_window* window);
    void(KELM_CLAP_ABI* suggest_title)(const clap_plugin* plugin, const char* title);
    bool(KELM_CLAP_ABI* show)(const clap_plugin* plugin);
    bool(KELM_CLAP_ABI* hide)(const clap_plugin* plugin);
};

struct clap_host_gui {
    void(KELM_CLAP_ABI* resize_hints_changed)(const clap_host* host);
    bool(KELM_CLAP_ABI* request_resize)(const clap_host* host, uint32_t width, uint32_t height);
    bool(KELM_CLAP_ABI* request_show)(const clap_host* host);
    bool(KELM_CLAP_ABI* request_hide)(const clap_host* host);
    void(KELM_CLAP_ABI* closed)(const clap_host* host, bool was_destroyed);
};

// timer-support
struct clap_plugin_timer_support {
    void(KELM_CLAP_ABI* on_timer)(const clap_plugin* plugin, clap_id timer_id);
};

struct clap_host_timer_support {
    bool(KELM_CLAP_ABI* register_timer)(const clap_host* host, uint32_t period_ms, clap_id* timer_id);
    bool(KELM_CLAP_ABI* unregister_timer)(const clap_host* host, clap_id timer_id);
};

// thread-check and log
struct clap_host_thread_check {
    bool(KELM_CLAP_ABI* is_main_thread)(const clap_host* host);
    bool(KELM_CLAP_ABI* is_audio_thread)(const clap_host* host);
};

struct clap_host_log {
    void(KELM_CLAP_ABI* log)(const clap_host* host, int32_t severity, const char* message);
};
enum LogSeverity : int32_t { kLogDebug = 0, kLogInfo = 1, kLogWarning = 2, kLogError = 3 };

// The layout on each target: x86-64 (Linux and Windows alike), 32-bit Windows, and
// 32-bit Linux, whose 64-bit members inside records are aligned to 4.
#if defined(__x86_64__) || defined(_M_X64) || defined(__aarch64__)
#define KELM_CLAP_LAYOUT(x86linux, x86win, x64) (x64)
#elif defined(_WIN32)
#define KELM_CLAP_LAYOUT(x86linux, x86win, x64) (x86win)
#else
#define KELM_CLAP_LAYOUT(x86linux, x86win, x64) (x86linux)
#endif
static_assert(sizeof(clap_version) == 12, "clap_version");
static_assert(sizeof(clap_plugin_entry) == KELM_CLAP_LAYOUT(24, 24, 40), "clap_plugin_entry");
static_assert(offsetof(clap_plugin_entry, get_factory) == KELM_CLAP_LAYOUT(20, 20, 32), "get_factory");
static_assert(sizeof(clap_plugin_factory) == KELM_CLAP_LAYOUT(12, 12, 24), "clap_plugin_factory");
static_assert(sizeof(clap_plugin_descriptor) == KELM_CLAP_LAYOUT(48, 48, 88), "clap_plugin_descriptor");
static_assert(offsetof(clap_plugin_descriptor, features) == KELM_CLAP_LAYOUT(44, 44, 80), "features");
static_assert(sizeof(clap_host) == KELM_CLAP_LAYOUT(48, 48, 88), "clap_host");
static_assert(offsetof(clap_host, get_extension) == KELM_CLAP_LAYOUT(32, 32, 56), "host get_extension");
static_assert(sizeof(clap_plugin) == KELM_CLAP_LAYOUT(48, 48, 96), "clap_plugin");
static_assert(offsetof(clap_plugin, process) == KELM_CLAP_LAYOUT(36, 36, 72), "process");
static_assert(sizeof(clap_event_header) == 16, "clap_event_header");
static_assert(offsetof(clap_event_param_value, cookie) == KELM_CLAP_LAYOUT(20, 20, 24), "cookie");
static_assert(offsetof(clap_event_param_value, port_index) == KELM_CLAP_LAYOUT(28, 28, 36), "port_index");
static_assert(offsetof(clap_event_param_value, value) == KELM_CLAP_LAYOUT(36, 40, 48), "value");
static_assert(sizeof(clap_event_param_value) == KELM_CLAP_LAYOUT(44, 48, 56), "clap_event_param_value");
static_assert(sizeof(clap_event_param_gesture) == 20, "clap_event_param_gesture");
static_assert(sizeof(clap_input_events) == KELM_CLAP_LAYOUT(12, 12, 24), "clap_input_events");
static_assert(sizeof(clap_output_events) == KELM_CLAP_LAYOUT(8, 8, 16), "clap_output_events");
static_assert(sizeof(clap_audio_buffer) == KELM_CLAP_LAYOUT(24, 24, 32), "clap_audio_buffer");
static_assert(offsetof(clap_audio_buffer, constant_mask) == KELM_CLAP_LAYOUT(16, 16, 24), "constant_mask");
static_assert(sizeof(clap_process) == KELM_CLAP_LAYOUT(40, 40, 64), "clap_process");
static_assert(offsetof(clap_process, in_events) == KELM_CLAP_LAYOUT(32, 32, 48), "in_events");
static_assert(offsetof(clap_audio_port_info, port_type) == KELM_CLAP_LAYOUT(268, 268, 272), "port_type");
static_assert(offsetof(clap_audio_port_info, in_place_pair) == KELM_CLAP_LAYOUT(272, 272, 280), "in_place_pair");
static_assert(offsetof(clap_param_info, name) == KELM_CLAP_LAYOUT(12, 12, 16), "param name");
static_assert(offsetof(clap_param_info, min_value) == KELM_CLAP_LAYOUT(1292, 1296, 1296), "min_value");
static_assert(sizeof(clap_param_info) == KELM_CLAP_LAYOUT(1316, 1320, 1320), "clap_param_info");
static_assert(sizeof(clap_window) == KELM_CLAP_LAYOUT(8, 8, 16), "clap_window");
static_assert(sizeof(clap_gui_resize_hints) == 12, "clap_gui_resize_hints");
static_assert(sizeof(clap_plugin_gui) == KELM_CLAP_LAYOUT(60, 60, 120), "clap_plugin_gui");
#undef KELM_CLAP_LAYOUT

} // namespace clap
} // namespace kelm
