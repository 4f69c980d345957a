// The LV2 UI (kelm_ui.so in the bundle) as an LV2 host runs an X11 UI: instantiated with the
// host's window as its parent, idled through its idle interface, told the ports' values with
// port events; a knob dragged with xdotool writes its control port inside a touch gesture.
// Needs DISPLAY (ctest runs this suite through tests/plugin/with-xvfb.sh).
#include <dlfcn.h>

#include <algorithm>

#include <lv2/ui/ui.h>

#include "plugin/core/KelmEffect.h"
#include "plugin/editor/KelmEditor.h"
#include "plugin/lv2/KelmLV2Plugin.h"
#include "tests/TestUtil.h"
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

    static void write(LV2UI_Controller c, uint32_t port, uint32_t size, uint32_t format, const void* buffer) {
        if (format == 0 && size == sizeof(float))
            static_cast<Lv2UiHost*>(c)->heard.push_back({false, port, *static_cast<const float*>(buffer)});
    }
    static int resize(LV2UI_Feature_Handle h, int w, int ht) {
        static_cast<Lv2UiHost*>(h)->width = w;
        static_cast<Lv2UiHost*>(h)->height = ht;
        return 0;
    }
    static void touch(LV2UI_Feature_Handle h, uint32_t port, bool grabbed) {
        static_cast<Lv2UiHost*>(h)->heard.push_back({true, port, grabbed ? 1.0f : 0.0f});
    }
};

struct OffScreenEditor : EditorHost {
    KelmEffect effect;
    KelmEditor editor{*this, effect.getDriver().getControls()};
    float parameterValue(int index) override { return effect.getParameter(index); }
    void beginEdit(int) override {}
    void performEdit(int, float) override {}
    void endEdit(int) override {}
};

int differingPixels(const PixelBuffer& a, const PixelBuffer& b) {
    int differ = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x) differ += (a.rgba(x, y) | 255) != (b.rgba(x, y) | 255);
    return differ;
}

} // namespace

TEST(X11Lv2Ui, OpensInTheHostsWindowAndAKnobWritesItsPort) {
    X11ParentWindow parent(760, 360);
    ASSERT_TRUE(parent.ready()) << "no X display";
    void* module = dlopen((std::string(KELM_LV2_BUNDLE) + "/kelm_ui.so").c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, module) << dlerror();
    auto entry = reinterpret_cast<LV2UI_DescriptorFunction>(dlsym(module, "lv2ui_descriptor"));
    ASSERT_NE(nullptr, entry);
    const LV2UI_Descriptor* d = entry(0);
    ASSERT_NE(nullptr, d);
    EXPECT_EQ(nullptr, entry(1));
    EXPECT_EQ("urn:kelm:preamp:ui", std::string(d->URI));
    auto idleInterface = static_cast<const LV2UI_Idle_Interface*>(d->extension_data(LV2_UI__idleInterface));
    ASSERT_NE(nullptr, idleInterface);

    Lv2UiHost host;
    LV2UI_Resize resize = {&host, &Lv2UiHost::resize};
    LV2UI_Touch touch = {&host, &Lv2UiHost::touch};
    const LV2_Feature parentFeature = {LV2_UI__parent, parent.handle()};
    const LV2_Feature resizeFeature = {LV2_UI__resize, &resize};
    const LV2_Feature touchFeature = {LV2_UI__touch, &touch};
    const LV2_Feature* features[] = {&parentFeature, &resizeFeature, &touchFeature, nullptr};
    const LV2_Feature* noParent[] = {&resizeFeature, nullptr};
    LV2UI_Widget widget = nullptr;
    // Another plug-in's URI, or no parent window: no UI.
    EXPECT_EQ(nullptr, d->instantiate(d, "urn:kelm:other", KELM_LV2_BUNDLE "/", &Lv2UiHost::write, &host, &widget, features));
    EXPECT_EQ(nullptr, d->instantiate(d, "urn:kelm:preamp", KELM_LV2_BUNDLE "/", &Lv2UiHost::write, &host, &widget, noParent));
    EXPECT_EQ(0u, parent.children());

    LV2UI_Handle ui = d->instantiate(d, "urn:kelm:preamp", KELM_LV2_BUNDLE "/", &Lv2UiHost::write, &host, &widget, features);
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
        d->port_event(ui, KelmLV2Plugin::kFirstControlPort + i, sizeof v, 0, &v);
    }
    const auto idle = [&] { EXPECT_EQ(0, idleInterface->idle(ui)); };
    parent.idleFor(200, idle);
    const PixelBuffer shot = parent.screenshot(730, 340);
    ASSERT_TRUE(writePng("lv2-ui-x11.png", shot));
    reference.editor.open(nullptr);
    EXPECT_EQ(0, differingPixels(shot, reference.editor.getFrame()->getBuffer()));

    // Drag the Gain knob (133, 192, 70 x 70, parameter 1) up by 40 pixels: its port is written.
    const uint32_t gainPort = KelmLV2Plugin::kFirstControlPort + 1;
    ASSERT_EQ(0, parent.xdotool({"mousemove", "--window", "WINDOW", "168", "227", "mousedown", "1", "mousemove",
                                 "--window", "WINDOW", "168", "207", "mousemove", "--window", "WINDOW", "168", "187",
                                 "mouseup", "1"},
                                idle));
    ASSERT_GE(host.heard.size(), 3u);
    EXPECT_TRUE(host.heard.front().touch && host.heard.front().value == 1.0f);
    EXPECT_TRUE(host.heard.back().touch && host.heard.back().value == 0.0f);
    for (const Heard& h : host.heard) EXPECT_EQ(gainPort, h.port);
    const Heard& last = host.heard[host.heard.size() - 2];
    EXPECT_FALSE(last.touch);
    EXPECT_NEAR(0.7f, last.value, 0.011f);

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
    dlclose(module);
}

TEST(Lv2Ui, TheBundleDescribesTheWindow) {
    const std::string bundle = KELM_LV2_BUNDLE;
    const std::string dir = bundle.substr(0, bundle.rfind('/'));
    auto r = run("LV2_PATH=" + dir + ":/usr/lib/lv2 lv2info urn:kelm:preamp");
    ASSERT_EQ(0, r.status) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("urn:kelm:preamp:ui")) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("http://lv2plug.in/ns/extensions/ui#X11UI")) << r.output;
    EXPECT_NE(std::string::npos, r.output.find(bundle + "/kelm_ui.so")) << r.output;
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    // The UI's file exports its entry alone and carries its C++ runtime.
    r = run("nm -D --defined-only " + bundle + "/kelm_ui.so | grep -v ' A '");
    EXPECT_EQ(1, std::count(r.output.begin(), r.output.end(), '\n')) << r.output;
    EXPECT_NE(std::string::npos, r.output.find(" T lv2ui_descriptor")) << r.output;
    r = run("readelf -d " + bundle + "/kelm_ui.so | grep NEEDED");
    EXPECT_EQ(std::string::npos, r.output.find("libstdc++")) << r.output;
#endif
}
