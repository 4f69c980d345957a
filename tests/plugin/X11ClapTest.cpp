// Kelm.clap's window in a window of our CLAP host under X11 (ctest runs this suite through
// tests/plugin/with-xvfb.sh): it opens as the host's child, idled by the host's timer, shows
// what the editor draws off-screen, and a knob dragged with xdotool reaches the effect at once
// and the host as one gesture in the next block's events. Kelm Circuit's window shows the
// knobs of the document its state holds, and an example picked from its list with the mouse
// renames the parameters for the host.
#include <algorithm>

#include "plugin/core/CircuitEffect.h"
#include "plugin/editor/CircuitEditor.h"
#include "tests/TestUtil.h"
#include "tests/clap/ClapTestHost.h"
#include "tests/plugin/PngFile.h"
#include "tests/plugin/X11ParentWindow.h"

using namespace kelm;
using namespace kelm::test;

namespace {

// Kelm Circuit's window off-screen over an effect given a state.
struct OffScreenCircuitEditor : SilentEditorHost {
    CircuitEffect effect;
    CircuitEditor editor{*this, effect};
    explicit OffScreenCircuitEditor(const std::string& state) {
        effect.setState(state.data(), state.size());
        editor.open(nullptr);
        editor.idle();
    }
    float parameterValue(int index) override { return effect.getParameter(index); }
};

} // namespace

TEST(X11Clap, WindowOpensInTheHostsWindowAndADragReachesTheHost) {
    X11ParentWindow parent(760, 360);
    ASSERT_TRUE(parent.ready()) << "no X display";
    ClapModule module(KELM_CLAP_PATH);
    ASSERT_TRUE(module.ok()) << module.error;
    ClapInstance p(module, "kelm.preamp");
    ASSERT_TRUE(p.ok());
    ASSERT_NE(nullptr, p.gui);
    const char* api = nullptr;
    bool floating = true;
    ASSERT_TRUE(p.gui->get_preferred_api(p.plugin, &api, &floating));
    EXPECT_EQ(std::string(kWindowApiX11), api);
    EXPECT_FALSE(floating);
    EXPECT_FALSE(p.gui->is_api_supported(p.plugin, kWindowApiX11, true));
    EXPECT_FALSE(p.gui->is_api_supported(p.plugin, "wayland", false));

    uint32_t width = 0, height = 0;
    ASSERT_EQ(0u, parent.children());
    ASSERT_TRUE(p.openWindow(parent.handle(), width, height));
    EXPECT_EQ(730u, width);
    EXPECT_EQ(340u, height);
    EXPECT_FALSE(p.gui->can_resize(p.plugin));
    ASSERT_EQ(1u, p.timers.size());  // the window is idled by the host's timer
    EXPECT_EQ(30u, p.timers.begin()->second);
    const auto idle = [&] { p.runTimers(); };
    parent.idleFor(200, idle);
    EXPECT_EQ(1u, parent.children());

    const PixelBuffer shot = parent.screenshot(730, 340);
    ASSERT_TRUE(writePng("clap-x11.png", shot));
    OffScreenEditor reference;
    reference.editor.open(nullptr);
    EXPECT_EQ(0, differingPixels(shot, reference.editor.getFrame()->getBuffer()));

    // Drag the Gain knob (133, 192, 70 x 70) up by 40 pixels while the plug-in runs.
    ASSERT_TRUE(p.activate(48000, 256, 256));
    const clap_id gain = p.idOf("Gain");
    ASSERT_EQ(0, parent.dragUp40(168, 227, idle));
    EXPECT_NEAR(0.7, p.value(gain), 0.011);  // the effect took it at once
    EXPECT_GT(p.flushRequests, 0);
    EXPECT_TRUE(p.sent.empty());
    std::vector<float> silence(256, 0.0f), l, r;
    p.render(silence, silence, l, r, 256);
    ASSERT_GE(p.sent.size(), 3u);
    EXPECT_EQ(kEventParamGestureBegin, p.sent.front().type);
    EXPECT_EQ(kEventParamGestureEnd, p.sent.back().type);
    for (const ClapOutEvent& e : p.sent) {
        EXPECT_EQ(gain, e.id);
        EXPECT_EQ(0u, e.time);
    }
    EXPECT_EQ(kEventParamValue, p.sent[p.sent.size() - 2].type);
    EXPECT_EQ(p.value(gain), p.sent[p.sent.size() - 2].value);
    EXPECT_TRUE(p.faults.empty()) << p.faults.front();

    // The knob's pixels moved on screen, and only there; a host event moves it back.
    const PixelBuffer turned = parent.screenshot(730, 340);
    int inside = 0, outside = 0;
    changedPixels(shot, turned, CRect::ofSize(133, 192, 70, 70), inside, outside);
    EXPECT_GT(inside, 100);
    EXPECT_EQ(0, outside);
    p.render(silence, silence, l, r, 256, {{0, gain, 0.5}});
    parent.idleFor(100, idle);
    EXPECT_EQ(0, differingPixels(shot, parent.screenshot(730, 340)));

    p.closeWindow();
    EXPECT_EQ(0u, parent.children());
    EXPECT_TRUE(p.timers.empty());
    // A parent window that does not exist is refused, and the window opens again afterwards.
    uint32_t w2 = 0, h2 = 0;
    EXPECT_FALSE(p.openWindow(reinterpret_cast<void*>(uintptr_t(0x7ffff0)), w2, h2));
    p.closeWindow();
    ASSERT_TRUE(p.openWindow(parent.handle(), w2, h2));
    EXPECT_EQ(1u, parent.children());
    p.closeWindow();
}

TEST(X11Clap, KelmCircuitsWindowShowsItsDocumentAndAnExamplePickedRenamesTheParameters) {
    const int w = CircuitEditor::kWidth, h = CircuitEditor::kHeight;
    X11ParentWindow parent(w, h);
    ASSERT_TRUE(parent.ready()) << "no X display";
    ClapModule module(KELM_CLAP_PATH);
    ASSERT_TRUE(module.ok()) << module.error;
    ClapInstance p(module, "kelm.circuit");
    ASSERT_TRUE(p.ok());
    const std::string document = readText(sourcePath("examples/cathode-follower-tonestack.xml"));
    ASSERT_TRUE(p.load(document));
    p.flush({{1, 0.8}});  // Bass
    ASSERT_TRUE(p.activate(48000, 256, 256));

    uint32_t width = 0, height = 0;
    ASSERT_TRUE(p.openWindow(parent.handle(), width, height));
    EXPECT_EQ(static_cast<uint32_t>(w), width);
    EXPECT_EQ(static_cast<uint32_t>(h), height);
    ASSERT_EQ(1u, p.timers.size());
    const auto idle = [&] { p.runTimers(); };
    parent.idleFor(300, idle);
    EXPECT_EQ(1u, parent.children());
    const PixelBuffer shot = parent.screenshot(w, h);
    ASSERT_TRUE(writePng("clap-circuit-x11.png", shot));
    std::string state;
    ASSERT_TRUE(p.save(state));
    OffScreenCircuitEditor reference(state);
    EXPECT_EQ((std::vector<int>{0, 1, 2}), reference.editor.shownSlots());
    EXPECT_EQ("Middle", reference.editor.labelOfSlot(2));
    EXPECT_EQ(0, differingPixels(shot, reference.editor.getFrame()->getBuffer()));

    // Examples, then a row of the list: the window loads it on the effect's own thread, and
    // the host's timer tells the host of the new names.
    p.rescans.clear();
    const CRect button = reference.editor.examplesButtonArea();
    ASSERT_EQ(0, parent.click(button, idle));
    reference.editor.showExamples();
    const std::vector<std::string> rows = reference.editor.listedRows();
    const int row = static_cast<int>(std::find(rows.begin(), rows.end(), "baxandall.xml") - rows.begin());
    ASSERT_LT(row, reference.editor.listVisibleRows());
    const CRect list = reference.editor.listArea();
    const int rowHeight = reference.editor.listRowHeight();
    ASSERT_EQ(0, parent.click(list.left + 30, list.top + row * rowHeight + rowHeight / 2, idle));
    for (int k = 0; k < 100 && p.rescans.empty(); ++k) parent.idleFor(50, idle);
    EXPECT_EQ(std::vector<uint32_t>{kRescanInfo | kRescanText}, p.rescans);
    EXPECT_EQ("Bass", std::string(p.info(0).name));
    EXPECT_EQ("Treble", std::string(p.info(1).name));
    EXPECT_EQ("-", std::string(p.info(2).name));
    EXPECT_TRUE(p.faults.empty()) << p.faults.front();
    p.closeWindow();
    EXPECT_EQ(0u, parent.children());
    EXPECT_TRUE(p.timers.empty());
}
