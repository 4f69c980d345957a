// The plug-in's window in a real X11 parent window, as a Linux host gives it:
// loaded with dlopen, driven by xdotool through the X server. Needs DISPLAY
// (ctest runs this suite through tests/plugin/with-xvfb.sh).
#include <dirent.h>

#include "plugin/vst2/preamp/KelmVST2Effect.h"
#include "plugin/vst2/VST2Editor.h"
#include "tests/plugin/PngFile.h"
#include "tests/plugin/Vst2Plugin.h"
#include "tests/plugin/X11ParentWindow.h"

using namespace kelm;
using namespace kelm::vst2;
using namespace kelm::test;
using namespace kelm::test::vst2host;

namespace {

// A host's window with the plug-in loaded from the built module, idled as hosts do.
struct X11Host : X11ParentWindow {
    Plugin plugin{recordingHost};
    AEffect* effect = plugin.e;
    const std::function<void()> idle = [this] { call(effEditIdle); };

    X11Host() : X11ParentWindow(760, 360) {}
    bool ready() const { return X11ParentWindow::ready() && effect; }
    VstIntPtr call(VstInt32 op, VstInt32 index = 0, VstIntPtr value = 0, void* ptr = nullptr) {
        return plugin.call(op, index, value, ptr);
    }
    void idleFor(int milliseconds) { X11ParentWindow::idleFor(milliseconds, idle); }
};

int openFiles() {
    int n = 0;
    if (DIR* d = opendir("/proc/self/fd")) {
        while (readdir(d)) ++n;
        closedir(d);
    }
    return n;
}

} // namespace

TEST(X11Editor, ShowsAsAChildAndMouseChangesParameters) {
    X11Host h;
    ASSERT_TRUE(h.ready()) << "no X display or plug-in";
    ASSERT_EQ(0u, h.children());
    ASSERT_EQ(1, h.call(effEditOpen, 0, 0, h.handle()));
    h.idleFor(200);
    ASSERT_EQ(1u, h.children());

    // What the X server shows is the off-screen rendering of the same state, pixel for pixel.
    const PixelBuffer shot = h.screenshot(730, 340);
    ASSERT_TRUE(writePng("editor-x11.png", shot));
    KelmVST2Effect reference(recordingHost, std::unique_ptr<KelmEffect>(new KelmEffect()));
    reference.getEditor()->open(nullptr);
    const PixelBuffer& offScreen = static_cast<VST2Editor*>(reference.getEditor())->getEditor().getFrame()->getBuffer();
    EXPECT_EQ(0, differingPixels(shot, offScreen));

    // Drag the Gain knob (133, 192, 70 x 70) up by 40 pixels.
    takeCalls();
    ASSERT_EQ(0, h.dragUp40(168, 227, h.idle));
    EXPECT_NEAR(0.7f, h.effect->getParameter(h.effect, 1), 0.011f);
    const std::vector<HostCall> heard = takeCalls();
    ASSERT_GE(heard.size(), 3u);
    EXPECT_EQ(audioMasterBeginEdit, heard.front().opcode);
    EXPECT_EQ(audioMasterEndEdit, heard.back().opcode);
    for (const HostCall& c : heard) EXPECT_EQ(1, c.index);
    EXPECT_EQ(audioMasterAutomate, heard[1].opcode);

    // The knob's pixels on screen moved with it, and only there.
    const PixelBuffer turned = h.screenshot(730, 340);
    int inside = 0, outside = 0;
    changedPixels(shot, turned, CRect::ofSize(133, 192, 70, 70), inside, outside);
    EXPECT_GT(inside, 100);
    EXPECT_EQ(0, outside);

    // A click on the CPU switch (352, 198, 56 x 56) toggles parameter 8.
    const float cpu = h.effect->getParameter(h.effect, 8);
    ASSERT_TRUE(cpu == 0.0f || cpu == 1.0f);
    ASSERT_EQ(0, h.click(380, 226, h.idle));
    EXPECT_EQ(1.0f - cpu, h.effect->getParameter(h.effect, 8));
    ASSERT_EQ(0, h.xdotool({"click", "1"}, h.idle));
    EXPECT_EQ(cpu, h.effect->getParameter(h.effect, 8));

    h.call(effEditClose);
    EXPECT_EQ(0u, h.children());
}

TEST(X11Editor, OpeningAndClosingTwentyTimesLeavesNothingBehind) {
    X11Host h;
    ASSERT_TRUE(h.ready()) << "no X display or plug-in";
    // The first opening sets up what lives as long as the process (Xlib's locale tables).
    h.call(effEditOpen, 0, 0, h.handle());
    h.call(effEditClose);
    const int files = openFiles();
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(1, h.call(effEditOpen, 0, 0, h.handle()));
        h.call(effEditIdle);
        ASSERT_EQ(1u, h.children()) << i;
        if (i % 2) h.call(effEditOpen, 0, 0, h.handle());  // hosts may open twice
        ASSERT_EQ(1u, h.children()) << i;
        h.call(effEditClose);
        ASSERT_EQ(0u, h.children()) << i;
    }
    EXPECT_EQ(files, openFiles());  // every X connection was closed again
}

TEST(X11Editor, HostMistakesDoNotEndTheProcess) {
    X11Host h;
    ASSERT_TRUE(h.ready()) << "no X display or plug-in";
    // No such window: the editor refuses to open, and Xlib's default handler (which would exit) never runs.
    EXPECT_EQ(0, h.call(effEditOpen, 0, 0, reinterpret_cast<void*>(uintptr_t(0x7ffff0))));
    h.call(effEditIdle);
    h.call(effEditClose);
    // The host destroys its window before closing the editor.
    Window other = XCreateSimpleWindow(h.display, DefaultRootWindow(h.display), 0, 0, 740, 350, 0, 0, 0);
    XMapWindow(h.display, other);
    XSync(h.display, False);
    ASSERT_EQ(1, h.call(effEditOpen, 0, 0, reinterpret_cast<void*>(static_cast<uintptr_t>(other))));
    h.idleFor(50);
    XDestroyWindow(h.display, other);
    XSync(h.display, False);
    h.effect->setParameter(h.effect, 1, 0.1f);  // something to draw into the window that is gone
    h.idleFor(50);
    h.call(effEditClose);
    // And the editor still opens afterwards.
    ASSERT_EQ(1, h.call(effEditOpen, 0, 0, h.handle()));
    h.idleFor(50);
    EXPECT_EQ(1u, h.children());
    h.call(effEditClose);
}
