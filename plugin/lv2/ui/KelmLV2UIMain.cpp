// The LV2 UIs' entry point, lv2ui_descriptor: index 0 the preamp's window, index 1 Kelm
// Circuit's, both an LV2Window over their editor.
//
// Both windows live in this one binary: it is the bundle's only one with the GUI toolkit, its
// images and fonts and X11, and the plug-ins' binaries stay free of them. Kelm Circuit's
// window works on the effect that kelm-circuit.so made (reached through instance-access), so
// the two binaries must come from one build of the same sources, which a bundle built and
// installed as a whole guarantees.
//
// The preamp's window is laid out from the built-in document's controls, read without
// building the effect, and talks to the plug-in through its ports only.
#include <cstring>
#include <memory>

#include <lv2/core/lv2.h>
#include <lv2/instance-access/instance-access.h>
#include <lv2/ui/ui.h>

#include "engine/NewParser.h"
#include "plugin/core/BuiltInData.h"
#include "plugin/core/CircuitEffect.h"
#include "plugin/editor/CircuitEditor.h"
#include "plugin/editor/KelmEditor.h"
#include "plugin/lv2/KelmLV2Uri.h"
#include "plugin/lv2/LV2Effect.h"
#include "plugin/lv2/ui/LV2Window.h"
#include "solvers/EngineTypes.h"

using namespace kelm;

namespace {

std::vector<ControlPtr> builtInControls() {
    registerEngineTypes();
    NewParser parser;
    parser.parse(BuiltInData::document());
    return *parser.controls;
}

// The features both windows use.
struct Features {
    void* parent = nullptr;
    const LV2UI_Resize* resize = nullptr;
    const LV2UI_Touch* touch = nullptr;
    void* instance = nullptr;  // the plug-in's LV2 handle (instance-access)

    explicit Features(const LV2_Feature* const* features) {
        for (int i = 0; features && features[i]; ++i) {
            const char* uri = features[i]->URI;
            if (std::strcmp(uri, LV2_UI__parent) == 0) parent = features[i]->data;
            if (std::strcmp(uri, LV2_UI__resize) == 0) resize = static_cast<const LV2UI_Resize*>(features[i]->data);
            if (std::strcmp(uri, LV2_UI__touch) == 0) touch = static_cast<const LV2UI_Touch*>(features[i]->data);
            if (std::strcmp(uri, LV2_INSTANCE_ACCESS_URI) == 0) instance = features[i]->data;
        }
    }
};

// Opens a made window in the host's and hands it over.
LV2UI_Handle opened(std::unique_ptr<LV2Window> made, const Features& f, LV2UI_Widget* widget) {
    made->open(f.parent);
    // The host sizes its window to ours; the window keeps that size.
    if (f.resize && f.resize->ui_resize) f.resize->ui_resize(f.resize->handle, made->width(), made->height());
    *widget = made->widget();
    return made.release();
}

LV2UI_Handle instantiatePreamp(const LV2UI_Descriptor*, const char* pluginUri, const char*, LV2UI_Write_Function write,
                               LV2UI_Controller controller, LV2UI_Widget* widget, const LV2_Feature* const* features) {
    if (!pluginUri || std::strcmp(pluginUri, kKelmLV2Uri) != 0 || !write || !widget) return nullptr;
    const Features f(features);
    if (!f.parent) return nullptr;  // an X11 UI lives in the host's window
    try {
        const std::vector<ControlPtr> controls = builtInControls();
        std::vector<float> values;
        for (const ControlPtr& c : controls) values.push_back(c->getValue());
        const LV2Window::Editor editor = [&controls](EditorHost& host) {
            return std::unique_ptr<PluginEditor>(new KelmEditor(host, controls));
        };
        return opened(std::unique_ptr<LV2Window>(new LV2Window(values, nullptr, editor, write, controller, f.touch)), f,
                      widget);
    } catch (...) {
        return nullptr;  // nothing may pass into a C host
    }
}

LV2UI_Handle instantiateCircuit(const LV2UI_Descriptor*, const char* pluginUri, const char*, LV2UI_Write_Function write,
                                LV2UI_Controller controller, LV2UI_Widget* widget, const LV2_Feature* const* features) {
    if (!pluginUri || std::strcmp(pluginUri, kKelmCircuitLV2Uri) != 0 || !write || !widget) return nullptr;
    const Features f(features);
    // Without the plug-in instance there is nothing to show: hosts that run UIs in another
    // process (or offer no instance-access) use their generic controls instead.
    if (!f.parent || !f.instance) return nullptr;
    try {
        // The plug-in URI says the instance is Kelm Circuit's, whose core is a CircuitEffect.
        CircuitEffect& core = static_cast<CircuitEffect&>(static_cast<LV2Effect*>(f.instance)->getEffectCore());
        std::vector<float> values;
        for (int i = 0; i < core.numberOfParameters(); ++i) values.push_back(core.getParameter(i));
        const LV2Window::Editor editor = [&core](EditorHost& host) {
            return std::unique_ptr<PluginEditor>(new CircuitEditor(host, core));
        };
        return opened(std::unique_ptr<LV2Window>(new LV2Window(values, &core, editor, write, controller, f.touch)), f,
                      widget);
    } catch (...) {
        return nullptr;
    }
}

LV2Window* window(LV2UI_Handle h) { return static_cast<LV2Window*>(h); }

void cleanup(LV2UI_Handle h) { delete window(h); }

void portEvent(LV2UI_Handle h, uint32_t port, uint32_t size, uint32_t format, const void* buffer) {
    window(h)->portEvent(port, size, format, buffer);
}

int idle(LV2UI_Handle h) {
    try {
        return window(h)->idle();
    } catch (...) {
        return 1;
    }
}

const LV2UI_Idle_Interface idleInterface = {idle};

const void* extensionData(const char* uri) {
    return uri && std::strcmp(uri, LV2_UI__idleInterface) == 0 ? &idleInterface : nullptr;
}

const LV2UI_Descriptor descriptors[] = {
    {kKelmLV2UiUri, instantiatePreamp, cleanup, portEvent, extensionData},
    {kKelmCircuitLV2UiUri, instantiateCircuit, cleanup, portEvent, extensionData},
};

} // namespace

LV2_SYMBOL_EXPORT const LV2UI_Descriptor* lv2ui_descriptor(uint32_t index) {
    return index < sizeof descriptors / sizeof descriptors[0] ? &descriptors[index] : nullptr;
}
