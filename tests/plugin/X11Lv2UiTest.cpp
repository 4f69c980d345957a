// The LV2 UIs (kelm_ui.so in the bundle) as an LV2 host runs an X11 UI: instantiated with the
// host's window as its parent, idled through its idle interface, told the ports' values with
// port events; a knob dragged with xdotool writes its control port inside a touch gesture.
// Kelm Circuit's window also gets the plug-in instance itself (instance-access), loaded here
// from kelm-circuit.so and run a block per idle, as a host's audio thread would.
// Needs DISPLAY (ctest runs this suite through tests/plugin/with-xvfb.sh).
#include <dlfcn.h>

#include <algorithm>
#include <map>

#include <lv2/instance-access/instance-access.h>
#include <lv2/state/state.h>
#include <lv2/ui/ui.h>

#include "plugin/core/CircuitEffect.h"
#include "plugin/core/CircuitState.h"
#include "plugin/editor/CircuitEditor.h"
#include "plugin/lv2/LV2Effect.h"
#include "plugin/lv2/ui/LV2Window.h"
#include "tests/TestUtil.h"
#include "tests/plugin/Lv2Urids.h"
#include "tests/plugin/PngFile.h"
#include "tests/plugin/X11ParentWindow.h"

using namespace kelm;
using namespace kelm::test;

namespace {

// What the UI told the host: port writes and touches, in order (touch: value 1 grabbed, 0 released).
struct Heard {
    bool touch;
    uint32_t port;
    float value;
};

struct Lv2UiHost {
    std::vector<Heard> heard;
    int width = 0, height = 0;
    // Where a plug-in instance's control ports are, when there is one: writes land there.
    float* controls = nullptr;
    uint32_t firstControl = 0, controlCount = 0;

    Lv2UiHost() = default;
    Lv2UiHost(const Lv2UiHost&) = delete;
    Lv2UiHost& operator=(const Lv2UiHost&) = delete;

    // The features this host offers a UI, null-terminated: resize and touch, the parent
    // window and instance-access where they are given.
    std::vector<const LV2_Feature*> offer(void* parent, void* instance = nullptr) {
        std::vector<const LV2_Feature*> list = {&resizeFeature, &touchFeature};
        if (parent) {
            parentFeature.data = parent;
            list.push_back(&parentFeature);
        }
        if (instance) {
            instanceFeature.data = instance;
            list.push_back(&instanceFeature);
        }
        list.push_back(nullptr);
        return list;
    }
    // The UI that `d` makes for the plug-in `uri` with these features; its widget in `widget`.
    LV2UI_Handle open(const LV2UI_Descriptor* d, const char* uri, const std::vector<const LV2_Feature*>& features,
                      LV2UI_Widget& widget) {
        return d->instantiate(d, uri, KELM_LV2_BUNDLE "/", &Lv2UiHost::write, this, &widget, features.data());
    }

    static void write(LV2UI_Controller c, uint32_t port, uint32_t size, uint32_t format, const void* buffer) {
        if (format != 0 || size != sizeof(float)) return;
        Lv2UiHost& host = *static_cast<Lv2UiHost*>(c);
        const float v = *static_cast<const float*>(buffer);
        host.heard.push_back({false, port, v});
        if (host.controls && port >= host.firstControl && port - host.firstControl < host.controlCount)
            host.controls[port - host.firstControl] = v;
    }
    static int resize(LV2UI_Feature_Handle h, int w, int ht) {
        static_cast<Lv2UiHost*>(h)->width = w;
        static_cast<Lv2UiHost*>(h)->height = ht;
        return 0;
    }
    static void touch(LV2UI_Feature_Handle h, uint32_t port, bool grabbed) {
        static_cast<Lv2UiHost*>(h)->heard.push_back({true, port, grabbed ? 1.0f : 0.0f});
    }

private:
    LV2UI_Resize resizeInterface = {this, &Lv2UiHost::resize};
    LV2UI_Touch touchInterface = {this, &Lv2UiHost::touch};
    LV2_Feature parentFeature = {LV2_UI__parent, nullptr}, resizeFeature = {LV2_UI__resize, &resizeInterface},
                touchFeature = {LV2_UI__touch, &touchInterface}, instanceFeature = {LV2_INSTANCE_ACCESS_URI, nullptr};
};

// The writes heard were one gesture on `port` (touch, values, release); the value written last.
float gestureOn(const std::vector<Heard>& heard, uint32_t port) {
    EXPECT_GE(heard.size(), 3u);
    if (heard.size() < 3) return -1;
    EXPECT_TRUE(heard.front().touch && heard.front().value == 1.0f);
    EXPECT_TRUE(heard.back().touch && heard.back().value == 0.0f);
    for (const Heard& h : heard) EXPECT_EQ(port, h.port);
    EXPECT_FALSE(heard[heard.size() - 2].touch);
    return heard[heard.size() - 2].value;
}

// kelm_ui.so, opened as a host opens it; its descriptors by index.
struct UiModule {
    void* module = dlopen((std::string(KELM_LV2_BUNDLE) + "/kelm_ui.so").c_str(), RTLD_NOW | RTLD_LOCAL);
    LV2UI_DescriptorFunction entry =
        module ? reinterpret_cast<LV2UI_DescriptorFunction>(dlsym(module, "lv2ui_descriptor")) : nullptr;
    ~UiModule() {
        if (module) dlclose(module);
    }
    const LV2UI_Descriptor* descriptor(uint32_t index) const { return entry ? entry(index) : nullptr; }
    static const LV2UI_Idle_Interface* idleOf(const LV2UI_Descriptor* d) {
        return static_cast<const LV2UI_Idle_Interface*>(d->extension_data(LV2_UI__idleInterface));
    }
};

// Kelm Circuit's plug-in (kelm-circuit.so) as a host instantiates and runs it: a URID map, the
// ports connected (the controls at the description's defaults), blocks of 64 frames.
struct CircuitPlugin {
    Lv2Urids urids;
    void* module = dlopen((std::string(KELM_LV2_BUNDLE) + "/kelm-circuit.so").c_str(), RTLD_NOW | RTLD_LOCAL);
    const LV2_Descriptor* d = nullptr;
    LV2_Handle handle = nullptr;
    static constexpr uint32_t kFrames = 64;
    std::vector<float> audio[4];
    float controls[CircuitEffect::kNumberOfParameters];

    CircuitPlugin() {
        if (!module) return;
        auto entry = reinterpret_cast<LV2_Descriptor_Function>(dlsym(module, "lv2_descriptor"));
        d = entry ? entry(0) : nullptr;
        if (!d) return;
        handle = d->instantiate(d, 48000, KELM_LV2_BUNDLE "/", urids.features);
        if (!handle) return;
        for (uint32_t p = 0; p < 4; ++p) {
            audio[p].assign(kFrames, p < 2 ? 0.01f : 0.0f);
            d->connect_port(handle, p, audio[p].data());
        }
        for (int i = 0; i < CircuitEffect::kNumberOfParameters; ++i) {
            controls[i] = i < CircuitEffect::kSlots ? 0.5f : core().getParameter(i);
            d->connect_port(handle, LV2Effect::kFirstControlPort + i, &controls[i]);
        }
        d->activate(handle);
    }
    ~CircuitPlugin() {
        if (handle) {
            d->deactivate(handle);
            d->cleanup(handle);
        }
        if (module) dlclose(module);
    }
    // The effect inside the instance (this test is built from the same sources as the plug-in).
    CircuitEffect& core() const { return static_cast<CircuitEffect&>(static_cast<LV2Effect*>(handle)->getEffectCore()); }
    void run() { d->run(handle, kFrames); }
    // The plug-in's state as the host's save stores it.
    CircuitState saved() {
        auto iface = static_cast<const LV2_State_Interface*>(d->extension_data(LV2_STATE__interface));
        std::string stored;
        auto store = [](LV2_State_Handle h, uint32_t, const void* value, size_t size, uint32_t, uint32_t) {
            static_cast<std::string*>(h)->assign(static_cast<const char*>(value), size);
            return LV2_STATE_SUCCESS;
        };
        if (!iface || iface->save(handle, store, &stored, 0, nullptr) != LV2_STATE_SUCCESS) return CircuitState();
        if (!stored.empty() && stored.back() == '\0') stored.pop_back();  // a string's size counts its NUL
        return CircuitState::decode(stored.data(), stored.size());
    }
};

// Kelm Circuit's window drawn off-screen over the same effect, as the reference of what the
// X11 window must show.
struct OffScreenCircuitEditor : SilentEditorHost {
    CircuitEditor editor;
    explicit OffScreenCircuitEditor(CircuitEffect& core) : editor(*this, core) {}
    float parameterValue(int) override { return 0; }
};

} // namespace

TEST(X11Lv2Ui, OpensInTheHostsWindowAndAKnobWritesItsPort) {
    X11ParentWindow parent(760, 360);
    ASSERT_TRUE(parent.ready()) << "no X display";
    UiModule uis;
    ASSERT_NE(nullptr, uis.module) << dlerror();
    const LV2UI_Descriptor* d = uis.descriptor(0);
    ASSERT_NE(nullptr, d);
    EXPECT_EQ("urn:kelm:preamp:ui", std::string(d->URI));
    ASSERT_NE(nullptr, uis.descriptor(1));
    EXPECT_EQ("urn:kelm:circuit:ui", std::string(uis.descriptor(1)->URI));
    EXPECT_EQ(nullptr, uis.descriptor(2));
    auto idleInterface = UiModule::idleOf(d);
    ASSERT_NE(nullptr, idleInterface);

    Lv2UiHost host;
    LV2UI_Widget widget = nullptr;
    // Another plug-in's URI, or no parent window: no UI.
    EXPECT_EQ(nullptr, host.open(d, "urn:kelm:other", host.offer(parent.handle()), widget));
    EXPECT_EQ(nullptr, host.open(d, "urn:kelm:preamp", host.offer(nullptr), widget));
    EXPECT_EQ(0u, parent.children());

    LV2UI_Handle ui = host.open(d, "urn:kelm:preamp", host.offer(parent.handle()), widget);
    ASSERT_NE(nullptr, ui);
    EXPECT_EQ(730, host.width);  // the host was told the window's size
    EXPECT_EQ(340, host.height);
    EXPECT_EQ(1u, parent.children());
    // The window is the widget, a child of the host's window.
    ASSERT_NE(nullptr, widget);
    {
        Window root, up, *kids = nullptr;
        unsigned n = 0;
        XQueryTree(parent.display, parent.window, &root, &up, &kids, &n);
        ASSERT_EQ(1u, n);
        EXPECT_EQ(kids[0], static_cast<Window>(reinterpret_cast<uintptr_t>(widget)));
        XFree(kids);
    }

    // The host reports every control port's value, as hosts do when a UI opens.
    OffScreenEditor reference;
    for (int i = 0; i < reference.effect.numberOfParameters(); ++i) {
        const float v = reference.effect.getParameter(i);
        d->port_event(ui, LV2Effect::kFirstControlPort + i, sizeof v, 0, &v);
    }
    const auto idle = [&] { EXPECT_EQ(0, idleInterface->idle(ui)); };
    parent.idleFor(200, idle);
    const PixelBuffer shot = parent.screenshot(730, 340);
    ASSERT_TRUE(writePng("lv2-ui-x11.png", shot));
    reference.editor.open(nullptr);
    EXPECT_EQ(0, differingPixels(shot, reference.editor.getFrame()->getBuffer()));

    // Drag the Gain knob (133, 192, 70 x 70, parameter 1) up by 40 pixels: its port is written.
    const uint32_t gainPort = LV2Effect::kFirstControlPort + 1;
    ASSERT_EQ(0, parent.dragUp40(168, 227, idle));
    EXPECT_NEAR(0.7f, gestureOn(host.heard, gainPort), 0.011f);

    // A port event from the host turns it back; the window shows the first picture again.
    const float middle = 0.5f;
    d->port_event(ui, gainPort, sizeof middle, 0, &middle);
    parent.idleFor(100, idle);
    EXPECT_EQ(0, differingPixels(shot, parent.screenshot(730, 340)));
    // Events of other formats or for ports that are no controls change nothing.
    const double wide = 0.1;
    d->port_event(ui, gainPort, sizeof wide, 0, &wide);
    d->port_event(ui, 0, sizeof middle, 0, &middle);
    d->port_event(ui, 99, sizeof middle, 0, &middle);
    parent.idleFor(50, idle);
    EXPECT_EQ(0, differingPixels(shot, parent.screenshot(730, 340)));

    d->cleanup(ui);
    EXPECT_EQ(0u, parent.children());
}

// Kelm Circuit's window: made only with the plug-in instance, sized for the host, showing the
// document that plays; an example picked with the mouse loads into the effect (and so into
// the host's saved state), and a slot knob dragged writes its port inside a touch gesture.
TEST(X11Lv2Ui, KelmCircuitsWindowWorksOnThePluginInstance) {
    X11ParentWindow parent(CircuitEditor::kWidth, CircuitEditor::kHeight);
    ASSERT_TRUE(parent.ready()) << "no X display";
    UiModule uis;
    ASSERT_NE(nullptr, uis.module) << dlerror();
    const LV2UI_Descriptor* d = uis.descriptor(1);
    ASSERT_NE(nullptr, d);
    auto idleInterface = UiModule::idleOf(d);
    ASSERT_NE(nullptr, idleInterface);
    CircuitPlugin plugin;
    ASSERT_NE(nullptr, plugin.handle) << dlerror();
    CircuitEffect& core = plugin.core();

    Lv2UiHost host;
    LV2UI_Widget widget = nullptr;
    // No instance-access, no parent, or the preamp's URI: no UI, and nothing in the window.
    EXPECT_EQ(nullptr, host.open(d, "urn:kelm:circuit", host.offer(parent.handle()), widget));
    EXPECT_EQ(nullptr, host.open(d, "urn:kelm:circuit", host.offer(nullptr, plugin.handle), widget));
    EXPECT_EQ(nullptr, host.open(d, "urn:kelm:preamp", host.offer(parent.handle(), plugin.handle), widget));
    EXPECT_EQ(0u, parent.children());
    EXPECT_EQ(0, host.width);

    LV2UI_Handle ui = host.open(d, "urn:kelm:circuit", host.offer(parent.handle(), plugin.handle), widget);
    ASSERT_NE(nullptr, ui);
    EXPECT_EQ(CircuitEditor::kWidth, host.width);
    EXPECT_EQ(CircuitEditor::kHeight, host.height);
    EXPECT_EQ(1u, parent.children());
    ASSERT_NE(nullptr, widget);
    // The handle is an LV2Window over a CircuitEditor (this test is built from the same sources
    // as kelm_ui.so).
    CircuitEditor& editor = static_cast<CircuitEditor&>(static_cast<LV2Window*>(ui)->getEditor());
    // The host reports every control port's value; the UI's writes land in the ports.
    for (int i = 0; i < CircuitEffect::kNumberOfParameters; ++i)
        d->port_event(ui, LV2Effect::kFirstControlPort + i, sizeof(float), 0, &plugin.controls[i]);
    host.controls = plugin.controls;
    host.firstControl = LV2Effect::kFirstControlPort;
    host.controlCount = CircuitEffect::kNumberOfParameters;
    bool playing = true;
    const auto idle = [&] {
        if (playing) plugin.run();
        EXPECT_EQ(0, idleInterface->idle(ui));
    };
    parent.idleFor(200, idle);

    // The default example has no controls: no slot knobs, as the effect says.
    EXPECT_EQ("triode-stage.xml", core.status().name);
    EXPECT_TRUE(core.status().controls.empty());
    EXPECT_TRUE(editor.shownSlots().empty());

    // Examples, then the row of baxandall.xml, with the mouse.
    const CRect button = editor.examplesButtonArea();
    ASSERT_EQ(0, parent.click(button, idle));
    ASSERT_EQ(CircuitEditor::ExampleList, editor.overlay());
    const std::vector<std::string> rows = editor.listedRows();
    const auto row = std::find(rows.begin(), rows.end(), "baxandall.xml") - rows.begin();
    ASSERT_LT(row, editor.listVisibleRows());  // shown without scrolling
    const CRect list = editor.listArea();
    ASSERT_EQ(0, parent.click(list.left + 30,
                              list.top + static_cast<int>(row) * editor.listRowHeight() + editor.listRowHeight() / 2,
                              idle));
    ASSERT_TRUE(core.waitForLoads(10));
    parent.idleFor(200, idle);
    EXPECT_EQ(CircuitEditor::NoOverlay, editor.overlay());
    EXPECT_EQ("baxandall.xml", core.status().name);
    EXPECT_EQ((std::vector<int>{0, 1}), editor.shownSlots());
    EXPECT_EQ("Bass", editor.labelOfSlot(0));
    EXPECT_EQ("Treble", editor.labelOfSlot(1));
    // The host's save keeps the document loaded from the window.
    const CircuitState state = plugin.saved();
    EXPECT_EQ("baxandall.xml", state.name);
    EXPECT_NE(std::string::npos, state.document.find("Baxandall"));

    // Drag the Bass knob (slot 1, port 4) up by 40 pixels: touch, writes, release, all on its
    // port, and the plug-in plays the value written last.
    host.heard.clear();
    const float before = core.getParameter(0);
    const CRect knob = CRect::ofSize(14 + 12, 78 + 2, 70, 70);
    ASSERT_EQ(0, parent.dragUp40(knob.left + 35, knob.top + 35, idle));
    const float last = gestureOn(host.heard, LV2Effect::kFirstControlPort);
    EXPECT_NEAR(before + 0.2f, last, 0.011f);
    EXPECT_FLOAT_EQ(last, plugin.controls[0]);
    EXPECT_FLOAT_EQ(last, core.getParameter(0));

    // With the blocks stopped (the CPU meter holds still), the window shows what the editor
    // draws off-screen over the same effect.
    playing = false;
    parent.idleFor(100, idle);
    const PixelBuffer shot = parent.screenshot(CircuitEditor::kWidth, CircuitEditor::kHeight);
    ASSERT_TRUE(writePng("lv2-circuit-ui-x11.png", shot));
    OffScreenCircuitEditor reference(core);
    reference.editor.open(nullptr);
    EXPECT_EQ(0, differingPixels(shot, reference.editor.getFrame()->getBuffer()));
    reference.editor.close();

    d->cleanup(ui);
    EXPECT_EQ(0u, parent.children());
}

TEST(Lv2Ui, TheBundleDescribesTheWindow) {
    const std::string bundle = KELM_LV2_BUNDLE;
    const std::string dir = bundle.substr(0, bundle.rfind('/'));
    CommandResult r;
    // Both plug-ins have their window in kelm_ui.so.
    for (const std::string plugin : {"urn:kelm:preamp", "urn:kelm:circuit"}) {
        r = run("LV2_PATH=" + dir + ":/usr/lib/lv2 lv2info " + plugin);
        ASSERT_EQ(0, r.status) << r.output;
        const size_t ui = r.output.find("\t\t" + plugin + ":ui\n");
        ASSERT_NE(std::string::npos, ui) << r.output;
        EXPECT_EQ(ui + 1, r.output.find("\t" + plugin + ":ui\n\t\t\tClass:  http://lv2plug.in/ns/extensions/ui#X11UI\n"
                                        "\t\t\tBinary: file://" + bundle + "/kelm_ui.so"))
            << r.output;
    }
    // The UI's file exports its entry alone and carries its C++ runtime.
    KELM_SKIP_IN_SANITIZED_BUILD();
    EXPECT_EQ(std::vector<std::string>{"lv2ui_descriptor"}, exportedSymbols(bundle + "/kelm_ui.so", true));
    EXPECT_FALSE(needsSharedLibstdcxx(bundle + "/kelm_ui.so"));
}
