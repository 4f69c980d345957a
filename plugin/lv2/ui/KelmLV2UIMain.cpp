// The LV2 UI's entry point, lv2ui_descriptor, and the descriptor's functions over KelmLV2UI.
// The window is laid out from the built-in document's controls, read without building the
// effect.
#include <cstring>
#include <memory>

#include <lv2/core/lv2.h>
#include <lv2/ui/ui.h>

#include "engine/NewParser.h"
#include "plugin/core/BuiltInData.h"
#include "plugin/lv2/KelmLV2Uri.h"
#include "plugin/lv2/ui/KelmLV2UI.h"
#include "solvers/EngineTypes.h"

using namespace kelm;

namespace {

std::vector<ControlPtr> builtInControls() {
    registerEngineTypes();
    NewParser parser;
    parser.parse(BuiltInData::document());
    return *parser.controls;
}

KelmLV2UI* ui(LV2UI_Handle h) { return static_cast<KelmLV2UI*>(h); }

LV2UI_Handle instantiate(const LV2UI_Descriptor*, const char* pluginUri, const char*, LV2UI_Write_Function write,
                         LV2UI_Controller controller, LV2UI_Widget* widget, const LV2_Feature* const* features) {
    if (!pluginUri || std::strcmp(pluginUri, kKelmLV2Uri) != 0 || !write || !widget) return nullptr;
    void* parent = nullptr;
    const LV2UI_Resize* resize = nullptr;
    const LV2UI_Touch* touch = nullptr;
    for (int i = 0; features && features[i]; ++i) {
        const char* uri = features[i]->URI;
        if (std::strcmp(uri, LV2_UI__parent) == 0) parent = features[i]->data;
        if (std::strcmp(uri, LV2_UI__resize) == 0) resize = static_cast<const LV2UI_Resize*>(features[i]->data);
        if (std::strcmp(uri, LV2_UI__touch) == 0) touch = static_cast<const LV2UI_Touch*>(features[i]->data);
    }
    if (!parent) return nullptr;  // an X11 UI lives in the host's window
    try {
        std::unique_ptr<KelmLV2UI> made(new KelmLV2UI(builtInControls(), write, controller, touch));
        made->open(parent);
        // The host sizes its window to ours; the window keeps that size.
        if (resize && resize->ui_resize) resize->ui_resize(resize->handle, made->width(), made->height());
        *widget = made->widget();
        return made.release();
    } catch (...) {
        return nullptr;  // nothing may pass into a C host
    }
}

void cleanup(LV2UI_Handle h) { delete ui(h); }

void portEvent(LV2UI_Handle h, uint32_t port, uint32_t size, uint32_t format, const void* buffer) {
    ui(h)->portEvent(port, size, format, buffer);
}

int idle(LV2UI_Handle h) {
    try {
        return ui(h)->idle();
    } catch (...) {
        return 1;
    }
}

const LV2UI_Idle_Interface idleInterface = {idle};

const void* extensionData(const char* uri) {
    return uri && std::strcmp(uri, LV2_UI__idleInterface) == 0 ? &idleInterface : nullptr;
}

const LV2UI_Descriptor descriptor = {kKelmLV2UiUri, instantiate, cleanup, portEvent, extensionData};

} // namespace

LV2_SYMBOL_EXPORT const LV2UI_Descriptor* lv2ui_descriptor(uint32_t index) { return index == 0 ? &descriptor : nullptr; }
