// Kelm Circuit's window: off-screen (what it shows of the effect, what a drag sends to the
// host) and in a real X11 parent window driven by xdotool (the example list, the Load
// browser over a folder, the screenshots for the README). The X11 suite needs DISPLAY
// (ctest runs it through tests/plugin/with-xvfb.sh).
#include <filesystem>
#include <fstream>

#include "plugin/core/BuiltInExamples.h"
#include "plugin/editor/CircuitEditor.h"
#include "plugin/vst2/VST2Editor.h"
#include "plugin/vst2/circuit/CircuitVST2Effect.h"
#include "tests/plugin/PngFile.h"
#include "tests/plugin/Vst2Plugin.h"
#include "tests/plugin/circuit/CircuitTestUtil.h"
#include "tests/plugin/X11ParentWindow.h"

using namespace kelm;
using namespace kelm::vst2;
using namespace kelm::test;
using namespace kelm::test::vst2host;

namespace {

struct Fixture {
    CircuitVST2Effect effect{recordingHost, std::unique_ptr<CircuitEffect>(new CircuitEffect())};
    CircuitEditor& editor = static_cast<CircuitEditor&>(static_cast<vst2::VST2Editor*>(effect.getEditor())->getEditor());
    CircuitEffect& core = effect.getCore();
    VstIntPtr call(VstInt32 op, VstInt32 index = 0, VstIntPtr value = 0, void* ptr = nullptr, float opt = 0) {
        return effect.getAeffect()->dispatcher(effect.getAeffect(), op, index, value, ptr, opt);
    }
    void start() {
        call(effSetSampleRate, 0, 0, nullptr, 48000);
        call(effSetBlockSize, 0, 256);
        call(effMainsChanged, 0, 1);
    }
    // Loads run on the effect's worker; the window follows on its idle.
    void settle() {
        ASSERT_TRUE(core.waitForLoads(10));
        for (int i = 0; i < 3; ++i) call(effEditIdle);
    }
    void mouse(MouseEvent::Type type, int x, int y) {
        MouseEvent e;
        e.type = type;
        e.x = x;
        e.y = y;
        editor.getFrame()->onMouse(e);
    }
    void click(int x, int y) {
        mouse(MouseEvent::Down, x, y);
        mouse(MouseEvent::Up, x, y);
        call(effEditIdle);
    }
    void click(const CRect& r) { click((r.left + r.right) / 2, (r.top + r.bottom) / 2); }
    // Clicks the row of the open list that reads `text`.
    bool clickRow(const std::string& text) {
        const std::vector<std::string> rows = editor.listedRows();
        for (size_t i = 0; i < rows.size(); ++i)
            if (rows[i] == text) {
                const CRect list = editor.listArea();
                click(list.left + 20, list.top + static_cast<int>(i) * editor.listRowHeight() + editor.listRowHeight() / 2);
                return true;
            }
        return false;
    }
};

std::string sourceExample(const char* name) { return readText(sourcePath(std::string("examples/") + name)); }

} // namespace

// The window shows the document's name, a knob per used slot with its control's name and
// value, and the fixed parameters; the error line names file and line.
TEST(KelmCircuitEditor, ShowsTheDocumentsControlsAndItsErrors) {
    Fixture f;
    f.start();
    ASSERT_EQ(1, f.call(effEditOpen));
    f.call(effEditIdle);
    EXPECT_EQ(CircuitEditor::NoOverlay, f.editor.overlay());
    const std::string bax = sourceExample("baxandall.xml");
    ASSERT_EQ(1, f.call(effSetChunk, 0, static_cast<VstIntPtr>(bax.size()), const_cast<char*>(bax.data())));
    f.settle();
    EXPECT_EQ((std::vector<int>{0, 1}), f.editor.shownSlots());
    EXPECT_EQ("Bass", f.editor.labelOfSlot(0));
    EXPECT_EQ("Treble", f.editor.labelOfSlot(1));
    EXPECT_EQ("", f.editor.labelOfSlot(2));

    // A broken file: the error line, the knobs of the document that plays stay.
    const std::string path = (std::filesystem::temp_directory_path() / "kelm-broken.xml").string();
    {
        std::ofstream(path) << "<System>\n  <Graphs>\n    <Graph Name=\"x\"\n</System>\n";
    }
    f.core.loadFile(path);
    f.settle();
    EXPECT_NE(std::string::npos, f.editor.errorLine().find(path + ":4: XML")) << f.editor.errorLine();
    EXPECT_EQ((std::vector<int>{0, 1}), f.editor.shownSlots());
    std::filesystem::remove(path);

    // A drag on the Bass knob reaches the host as one gesture.
    takeCalls();
    const int x = 14 + 12 + 35, y = 78 + 2 + 35;
    f.mouse(MouseEvent::Down, x, y);
    f.mouse(MouseEvent::Move, x, y - 20);
    f.mouse(MouseEvent::Up, x, y - 40);
    EXPECT_NEAR(0.7f, f.core.getParameter(0), 0.011f);
    const std::vector<HostCall> heard = takeCalls();
    ASSERT_GE(heard.size(), 3u);
    EXPECT_EQ(audioMasterBeginEdit, heard.front().opcode);
    EXPECT_EQ(audioMasterEndEdit, heard.back().opcode);
    for (const HostCall& c : heard) EXPECT_EQ(0, c.index);

    // The examples list, and a pick from it.
    f.click(f.editor.examplesButtonArea());
    ASSERT_EQ(CircuitEditor::ExampleList, f.editor.overlay());
    EXPECT_EQ(static_cast<size_t>(BuiltInExamples::count()), f.editor.listedRows().size());
    ASSERT_TRUE(f.clickRow("dsp-demo.xml"));
    f.settle();
    EXPECT_EQ(CircuitEditor::NoOverlay, f.editor.overlay());
    EXPECT_EQ("dsp-demo.xml", f.core.status().name);
    EXPECT_EQ("Select", f.editor.labelOfSlot(2));
    f.call(effEditClose);
}

namespace {

// A host's window with the effect's editor in it.
struct X11Host : X11ParentWindow {
    Fixture f;
    const std::function<void()> idle = [this] { f.call(effEditIdle); };

    X11Host() : X11ParentWindow(CircuitEditor::kWidth, CircuitEditor::kHeight) { f.start(); }
    ~X11Host() { f.call(effEditClose); }
    void idleFor(int milliseconds) { X11ParentWindow::idleFor(milliseconds, idle); }
    int clickAt(int x, int y) { return click(x, y, idle); }
    int clickAt(const CRect& r) { return click(r, idle); }
    // Scrolls the open list with the wheel until the row that reads `text` shows, and clicks it.
    int clickRow(const std::string& text) {
        const std::vector<std::string> rows = f.editor.listedRows();
        const CRect list = f.editor.listArea();
        for (size_t i = 0; i < rows.size(); ++i) {
            if (rows[i] != text) continue;
            for (int tries = 0; tries < 50 && static_cast<int>(i) >= f.editor.listScroll() + f.editor.listVisibleRows();
                 ++tries)
                if (xdotool({"mousemove", "--window", "WINDOW", std::to_string(list.left + 30),
                             std::to_string(list.top + 30), "click", "5"},
                            idle) != 0)
                    return -1;
            const int row = static_cast<int>(i) - f.editor.listScroll();
            return clickAt(list.left + 30, list.top + row * f.editor.listRowHeight() + f.editor.listRowHeight() / 2);
        }
        return -1;
    }
    void waitForLoad() {
        ASSERT_TRUE(f.core.waitForLoads(10));
        idleFor(200);
    }
    // A second of audio through the effect, so that the meter shows what it costs.
    void play() {
        const auto in = circuit::testSignal(256, 48000);
        std::vector<float> l(256), r(256);
        float* i[2] = {const_cast<float*>(in[0].data()), const_cast<float*>(in[1].data())};
        float* o[2] = {l.data(), r.data()};
        for (int b = 0; b < 188; ++b) f.effect.getAeffect()->processReplacing(f.effect.getAeffect(), i, o, 256);
        idleFor(100);
    }
    PixelBuffer screenshot() { return X11ParentWindow::screenshot(CircuitEditor::kWidth, CircuitEditor::kHeight); }
    // How many pixels differ from the window's own rendering.
    int differsFromOffScreen(const PixelBuffer& shot) { return differingPixels(shot, f.editor.getFrame()->getBuffer()); }
};

} // namespace

// Two examples picked from the list with the mouse: each shows its own knobs. The
// screenshots are kept beside the build (circuit-*.png) for the README.
TEST(KelmCircuitX11, TwoExamplesShowTheirOwnKnobs) {
    X11Host h;
    ASSERT_TRUE(h.ready()) << "no X display";
    ASSERT_EQ(1, h.f.call(effEditOpen, 0, 0, h.handle()));
    h.idleFor(200);

    ASSERT_EQ(0, h.clickAt(h.f.editor.examplesButtonArea()));
    ASSERT_EQ(CircuitEditor::ExampleList, h.f.editor.overlay());
    ASSERT_EQ(0, h.clickRow("baxandall.xml"));
    h.waitForLoad();
    EXPECT_EQ("baxandall.xml", h.f.core.status().name);
    EXPECT_EQ((std::vector<int>{0, 1}), h.f.editor.shownSlots());
    EXPECT_EQ("Treble", h.f.editor.labelOfSlot(1));
    h.f.effect.setParameter(0, 0.7f);  // as a host's automation
    h.play();
    PixelBuffer shot = h.screenshot();
    EXPECT_EQ(0, h.differsFromOffScreen(shot));
    ASSERT_TRUE(writePng("circuit-baxandall.png", shot));

    ASSERT_EQ(0, h.clickAt(h.f.editor.examplesButtonArea()));
    ASSERT_EQ(0, h.clickRow("bassman-tonestack.cir"));
    h.waitForLoad();
    EXPECT_EQ("bassman-tonestack.cir", h.f.core.status().name);
    EXPECT_EQ((std::vector<int>{0, 1, 2}), h.f.editor.shownSlots());
    EXPECT_EQ("Treble", h.f.editor.labelOfSlot(0));
    EXPECT_EQ("Bass", h.f.editor.labelOfSlot(1));
    EXPECT_EQ("Middle", h.f.editor.labelOfSlot(2));
    h.f.effect.setParameter(2, 0.3f);
    h.play();
    shot = h.screenshot();
    EXPECT_EQ(0, h.differsFromOffScreen(shot));
    ASSERT_TRUE(writePng("circuit-tonestack.png", shot));
}

// Load opens the browser at the folder of the document that plays: folders and the .xml,
// .cir and .net files only; a click on a file loads it.
TEST(KelmCircuitX11, TheLoadBrowserListsAFolderAndLoadsAFile) {
    X11Host h;
    ASSERT_TRUE(h.ready()) << "no X display";
    ASSERT_EQ(1, h.f.call(effEditOpen, 0, 0, h.handle()));
    h.f.core.loadFile(sourcePath("examples/triode-stage.xml"));
    h.waitForLoad();
    ASSERT_EQ(0, h.clickAt(h.f.editor.loadButtonArea()));
    ASSERT_EQ(CircuitEditor::FileBrowser, h.f.editor.overlay());
    EXPECT_EQ(std::filesystem::path(sourcePath("examples")).lexically_normal(),
              std::filesystem::path(h.f.editor.browsedFolder()).lexically_normal());
    const std::vector<std::string> rows = h.f.editor.listedRows();
    ASSERT_FALSE(rows.empty());
    EXPECT_EQ("../", rows[0]);
    for (const char* name : {"baxandall.xml", "bassman-tonestack.cir", "wah.xml"})
        EXPECT_NE(rows.end(), std::find(rows.begin(), rows.end(), name)) << name;
    for (const std::string& r : rows) {
        const bool listed = r.back() == '/' || r.size() > 4;
        EXPECT_TRUE(listed) << r;
        if (r.back() != '/') {
            const std::string ext = r.substr(r.rfind('.'));
            EXPECT_TRUE(ext == ".xml" || ext == ".cir" || ext == ".net") << r;
        }
    }
    const PixelBuffer shot = h.screenshot();
    EXPECT_EQ(0, h.differsFromOffScreen(shot));
    ASSERT_TRUE(writePng("circuit-load.png", shot));

    ASSERT_EQ(0, h.clickRow("opamp-overdrive.xml"));
    h.waitForLoad();
    EXPECT_EQ(CircuitEditor::NoOverlay, h.f.editor.overlay());
    EXPECT_EQ("opamp-overdrive.xml", h.f.core.status().name);
    EXPECT_EQ("", h.f.core.status().error);

    // Up goes to the folder above; a folder's row opens it.
    ASSERT_EQ(0, h.clickAt(h.f.editor.loadButtonArea()));
    ASSERT_EQ(0, h.clickRow("../"));
    EXPECT_EQ(std::filesystem::path(sourcePath("")).lexically_normal().parent_path(),
              std::filesystem::path(h.f.editor.browsedFolder()).lexically_normal());
    ASSERT_EQ(0, h.clickRow("examples/"));
    EXPECT_NE(std::string::npos, h.f.editor.browsedFolder().find("examples"));
}
