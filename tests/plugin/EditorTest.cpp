// The editor off-screen: what it draws at known parameter values, what mouse
// gestures send to the host, and how it shares bitmaps and refuses bad documents.
#include <atomic>
#include <cmath>
#include <cstring>
#include <thread>

#include "engine/KELMException.h"
#include "plugin/vst2/preamp/KelmVST2Effect.h"
#include "plugin/editor/DonateButton.h"
#include "plugin/editor/KelmEditor.h"
#include "plugin/gui/CAnimKnob.h"
#include "plugin/gui/CMeter.h"
#include "plugin/vst2/VST2Editor.h"
#include "tests/TestUtil.h"
#include "tests/plugin/PngFile.h"
#include "tests/plugin/Vst2Plugin.h"

using namespace kelm;
using namespace kelm::vst2;
using namespace kelm::test;
using namespace kelm::test::vst2host;

namespace {

struct EditorFixture {
    KelmVST2Effect effect{recordingHost, std::unique_ptr<KelmEffect>(new KelmEffect())};
    VST2Editor& vst2Editor = *static_cast<VST2Editor*>(effect.getEditor());
    KelmEditor& editor = static_cast<KelmEditor&>(vst2Editor.getEditor());
    int index(const char* name) { return effect.getCore().parameterIndex(name); }
    CControl& view(const char* name) { return *editor.getViews().at(index(name)); }
    VstIntPtr dispatch(VstInt32 op, VstInt32 i = 0, VstIntPtr v = 0, void* p = nullptr) {
        return effect.getAeffect()->dispatcher(effect.getAeffect(), op, i, v, p, 0);
    }
    void openOffScreen() {
        takeCalls();
        ASSERT_EQ(1, dispatch(effEditOpen));
        editor.idle();
    }
    void mouse(MouseEvent::Type type, int x, int y, int wheel = 0, bool shift = false) {
        MouseEvent e;
        e.type = type;
        e.x = x;
        e.y = y;
        e.wheelSteps = wheel;
        e.shift = shift;
        editor.getFrame()->onMouse(e);
    }
    void drag(const CRect& r, int dy, bool shift = false) {
        const int cx = (r.left + r.right) / 2, cy = (r.top + r.bottom) / 2;
        mouse(MouseEvent::Down, cx, cy, 0, shift);
        mouse(MouseEvent::Move, cx, cy + dy / 2, 0, shift);
        mouse(MouseEvent::Up, cx, cy + dy, 0, shift);
    }
    void click(const CRect& r) {
        mouse(MouseEvent::Down, r.left + 3, r.top + 3);
        mouse(MouseEvent::Up, r.left + 3, r.top + 3);
    }
};

// The frame expected at (x, y) of the editor: the background with frame `frame`
// of the bitmap laid over it, computed here in floating point.
uint32_t expectedPixel(const CBitmap& background, const CBitmap& strip, int frameHeight, int frame, const CRect& at,
                       int x, int y) {
    const uint8_t* b = background.pixels().pixel(x, y);
    const uint8_t* s = strip.pixels().pixel(x - at.left, frame * frameHeight + y - at.top);
    const double a = s[3] / 255.0;
    uint32_t out = 0;
    for (int c = 0; c < 3; ++c) out = (out << 8) | static_cast<uint32_t>(std::lround(s[c] * a + b[c] * (1 - a)));
    return (out << 8) | 255;
}

// How many pixels of the view's rectangle differ by more than 1 in a channel from the expectation.
int mismatches(const PixelBuffer& shown, const CBitmap& background, const CControl& v, int frame) {
    int bad = 0;
    const CRect& r = v.getViewSize();
    const int frameHeight = v.getBitmap()->getHeight() / v.numberOfFrames();
    for (int y = r.top; y < r.bottom; ++y)
        for (int x = r.left; x < r.right; ++x) {
            const uint32_t want = expectedPixel(background, *v.getBitmap(), frameHeight, frame, r, x, y);
            const uint32_t got = shown.rgba(x, y);
            for (int shift = 8; shift < 32; shift += 8)
                if (std::abs(int((want >> shift) & 255) - int((got >> shift) & 255)) > 1) {
                    ++bad;
                    break;
                }
        }
    return bad;
}

} // namespace

TEST(PluginGuiToolkit, BlendMixesByAlphaAndClipsAtTheEdges) {
    PixelBuffer dst(4, 3), src(2, 2);
    for (int i = 0; i < 4 * 3; ++i) {
        dst.data()[i * 4 + 2] = 200;  // opaque blue
        dst.data()[i * 4 + 3] = 255;
    }
    const uint8_t red[4] = {255, 0, 0, 128}, clear[4] = {9, 9, 9, 0}, green[4] = {0, 255, 0, 255};
    std::copy(red, red + 4, src.data());
    std::copy(clear, clear + 4, src.data() + 4);
    std::copy(green, green + 4, src.data() + 8);
    std::copy(green, green + 4, src.data() + 12);
    dst.blend(src, CRect(0, 0, 2, 2), 1, 0);
    // 128/255 of red over blue: 255 * 0.502 = 128, 200 * 0.498 = 100.
    EXPECT_EQ(0x800064ffu, dst.rgba(1, 0));
    EXPECT_EQ(0x0000c8ffu, dst.rgba(2, 0));  // fully transparent source leaves the destination
    EXPECT_EQ(0x00ff00ffu, dst.rgba(1, 1));
    EXPECT_EQ(0x0000c8ffu, dst.rgba(0, 0));
    // Partly outside: only the overlapping pixels change, each from the right source pixel.
    dst.blend(src, CRect(0, 0, 2, 2), -1, 1);
    EXPECT_EQ(0x0000c8ffu, dst.rgba(0, 1));  // the transparent one
    EXPECT_EQ(0x00ff00ffu, dst.rgba(0, 2));
    EXPECT_EQ(0x0000c8ffu, dst.rgba(1, 2));
    dst.copy(src, CRect(0, 0, 2, 2), 3, -1);
    EXPECT_EQ(0x00ff00ffu, dst.rgba(3, 0));
    EXPECT_EQ(0x0000c8ffu, dst.rgba(3, 1));
    dst.copy(src, CRect(0, 0, 2, 2), 40, 40);  // entirely outside
    dst.blend(src, CRect(5, 5, 9, 9), 0, 0);   // source area outside the source
    EXPECT_EQ(0x00ff00ffu, dst.rgba(1, 1));
}

TEST(PluginGuiToolkit, ImagesHaveTheirSizesAndBadOnesAreRefused) {
    struct Size {
        const char* name;
        int width, height;
    } sizes[] = {{"background.png", 730, 340}, {"7381knob.png", 70, 4270}, {"HorizontalSwitch-3P.png", 40, 60},
                 {"ToggleSwitch.png", 56, 112}, {"donate.png", 92, 52}};
    for (const Size& s : sizes) {
        CBitmapPtr b = CBitmap::load(s.name);
        EXPECT_EQ(s.width, b->getWidth()) << s.name;
        EXPECT_EQ(s.height, b->getHeight()) << s.name;
    }
    // The background is opaque everywhere, so nothing of the host shows through.
    const CBitmapPtr background = CBitmap::load("background.png");
    const PixelBuffer& bg = background->pixels();
    int transparent = 0;
    for (int y = 0; y < bg.height(); ++y)
        for (int x = 0; x < bg.width(); ++x) transparent += bg.pixel(x, y)[3] != 255;
    EXPECT_EQ(0, transparent);
    EXPECT_EQ("Bitmap resource not found: nothing.png", messageOf([] { CBitmap::load("nothing.png"); }));
    const unsigned char junk[] = {0x89, 'P', 'N', 'G', 1, 2, 3};
    EXPECT_EQ("Bitmap is not a PNG image: junk", messageOf([&] { CBitmap::decode(junk, sizeof junk, "junk"); }));
}

// A meter redrawn only when it says it is dirty shows what a fresh drawing shows, through a
// slow sweep of its value (each pixel of the bar passes) and across the warning level.
TEST(PluginGuiToolkit, MeterAskedToRedrawWheneverItsBarMoves) {
    CMeter meter(CRect::ofSize(4, 3, 340, 14), 0.8f);
    PixelBuffer shown(350, 20), fresh(350, 20);
    meter.draw(shown);
    meter.takeDirty();
    int redrawn = 0;
    for (int k = 0; k <= 1200; ++k) {
        meter.setValue(k / 1000.0f);
        if (meter.takeDirty()) {
            meter.draw(shown);
            ++redrawn;
        }
        meter.draw(fresh);
        ASSERT_EQ(0, std::memcmp(shown.data(), fresh.data(), 350 * 20 * 4)) << "value " << k / 1000.0f;
    }
    EXPECT_LT(redrawn, 400);  // about once per pixel of the 338 inside the frame, not per step
}

TEST(PluginEditor, WindowLifecycleAsHostsDriveIt) {
    EditorFixture f;
    EXPECT_TRUE(f.effect.getAeffect()->flags & effFlagsHasEditor);
    ERect* rect = nullptr;
    EXPECT_EQ(1, f.dispatch(effEditGetRect, 0, 0, &rect));  // before open
    ASSERT_NE(nullptr, rect);
    EXPECT_EQ(730, rect->right - rect->left);
    EXPECT_EQ(340, rect->bottom - rect->top);
    f.dispatch(effEditClose);  // close without open
    f.dispatch(effEditIdle);
    f.effect.setParameter(1, 0.2f);  // closed: nothing to move
    EXPECT_TRUE(f.editor.getViews().empty());
    f.openOffScreen();
    f.openOffScreen();  // twice without close
    ASSERT_EQ(9u, f.editor.getViews().size());
    EXPECT_EQ(10u, f.editor.getFrame()->numberOfViews());  // and the donate button
    // The value set while closed shows when the window opens.
    EXPECT_FLOAT_EQ(0.2f, f.view("Gain").getValue());
    for (size_t i = 0; i < 9; ++i) EXPECT_EQ(static_cast<int>(i), f.editor.getViews()[i]->getTag());
    f.dispatch(effEditClose);
    f.dispatch(effEditClose);
    EXPECT_EQ(nullptr, f.editor.getFrame());
    EXPECT_TRUE(f.editor.getViews().empty());
}

TEST(PluginEditor, RenderShowsEachControlsFrameAtItsRectangle) {
    EditorFixture f;
    struct Setting {
        const char* name;
        float value;
        int frame;
    } settings[] = {{"Input", 0.0f, 0},         {"Gain", 0.25f, 15},   {"Vol", 1.0f, 60},
                    {"Bass", 0.508f, 30},       {"Treble", 0.9f, 54},  {"Oversampling", 0.5f, 1},
                    {"EQ_Position", 1.0f, 1},   {"Stereo", 0.0f, 0},   {"CPU", 1.0f, 1}};
    for (const Setting& s : settings) f.effect.setParameter(f.index(s.name), s.value);
    f.openOffScreen();
    const PixelBuffer& shown = f.editor.getFrame()->getBuffer();
    ASSERT_TRUE(writePng("editor-offscreen.png", shown));
    CBitmapPtr background = CBitmap::load("background.png");
    for (const Setting& s : settings) {
        const CControl& v = f.view(s.name);
        EXPECT_EQ(0, mismatches(shown, *background, v, s.frame)) << s.name;
        // A neighbouring frame would not match: the check tells frames apart.
        const int other = s.frame == 0 ? 1 : s.frame - 1;
        EXPECT_GT(mismatches(shown, *background, v, other), 20) << s.name;
    }
    EXPECT_EQ(CRect::ofSize(133, 192, 70, 70), f.view("Gain").getViewSize());
    EXPECT_EQ(CRect::ofSize(395, 47, 40, 20), f.view("Oversampling").getViewSize());
    // Outside the views the background is untouched, and the PNG holds what was shown.
    EXPECT_EQ(background->pixels().rgba(600, 300), shown.rgba(600, 300));
    CBitmapPtr again = CBitmap::decode(reinterpret_cast<const unsigned char*>(readText("editor-offscreen.png").data()),
                                       readText("editor-offscreen.png").size(), "editor-offscreen.png");
    ASSERT_EQ(730, again->getWidth());
    EXPECT_EQ(0, std::memcmp(again->pixels().data(), shown.data(), 730 * 340 * 4));
}

TEST(PluginEditor, HostSetParameterChangesOnlyThatControlsPixels) {
    EditorFixture f;
    f.openOffScreen();
    const PixelBuffer before = f.editor.getFrame()->getBuffer();
    AEffect* e = f.effect.getAeffect();
    e->setParameter(e, f.index("Gain"), 0.9f);
    EXPECT_EQ(f.view("Gain").getViewSize(), f.editor.getFrame()->idle());
    const PixelBuffer& after = f.editor.getFrame()->getBuffer();
    int changed = 0, outside = 0;
    for (int y = 0; y < 340; ++y)
        for (int x = 0; x < 730; ++x)
            if (before.rgba(x, y) != after.rgba(x, y)) {
                ++changed;
                outside += !f.view("Gain").getViewSize().contains(x, y);
            }
    EXPECT_GT(changed, 100);
    EXPECT_EQ(0, outside);
    EXPECT_TRUE(takeCalls().empty());  // a host change is not sent back to the host
    // The view shows the value the effect keeps: Oversampling sits on its positions.
    e->setParameter(e, f.index("Oversampling"), 0.3f);
    EXPECT_FLOAT_EQ(0.5f, f.view("Oversampling").getValue());
    EXPECT_FALSE(f.editor.getFrame()->idle().isEmpty());
    EXPECT_TRUE(f.editor.getFrame()->idle().isEmpty());  // nothing left to draw
}

TEST(PluginEditor, MouseOnEachControlReachesTheHost) {
    EditorFixture f;
    f.openOffScreen();
    auto expectGesture = [&](int index, float before, int direction, const char* what) -> float {
        std::vector<HostCall> got = takeCalls();
        if (got.size() < 3) {
            ADD_FAILURE() << what << ": " << got.size() << " calls";
            return -1.0f;
        }
        EXPECT_EQ(audioMasterBeginEdit, got.front().opcode) << what;
        EXPECT_EQ(audioMasterEndEdit, got.back().opcode) << what;
        for (const HostCall& c : got) EXPECT_EQ(index, c.index) << what;
        const HostCall& last = got[got.size() - 2];
        EXPECT_EQ(audioMasterAutomate, last.opcode) << what;
        EXPECT_EQ(direction > 0, last.value > before) << what;
        EXPECT_FLOAT_EQ(last.value, f.effect.getParameter(index)) << what;
        return last.value;
    };
    for (const char* knob : {"Input", "Gain", "Vol", "Bass", "Treble"}) {
        const int i = f.index(knob);
        const CRect r = f.view(knob).getViewSize();
        float v = f.effect.getParameter(i);
        f.drag(r, -40);  // upwards turns it up, 40 of the 200 pixels of a full turn
        float now = expectGesture(i, v, +1, knob);
        EXPECT_NEAR(std::min(1.0f, v + 0.2f), now, 1e-5f) << knob;
        f.drag(r, 20, true);  // Shift: a tenth of the step
        v = now;
        now = expectGesture(i, v, -1, knob);
        EXPECT_NEAR(v - 0.01f, now, 1e-5f) << knob;
        f.mouse(MouseEvent::Wheel, r.left + 5, r.top + 5, -1);
        v = now;
        now = expectGesture(i, v, -1, knob);
        EXPECT_NEAR(v - 1.0f / 60, now, 1e-5f) << knob;
    }
    for (const char* toggle : {"EQ_Position", "Stereo", "CPU"}) {
        const int i = f.index(toggle);
        const CRect r = f.view(toggle).getViewSize();
        const float start = f.effect.getParameter(i);  // CPU starts on the table path
        ASSERT_TRUE(start == 0.0f || start == 1.0f) << toggle;
        f.click(r);
        EXPECT_EQ(1.0f - start, expectGesture(i, start, start == 0.0f ? +1 : -1, toggle));
        f.click(r);
        EXPECT_EQ(start, expectGesture(i, 1.0f - start, start == 0.0f ? -1 : +1, toggle));
    }
    // The three-way switch steps 1x, 2x, 4x and back to 1x; the wheel does not wrap.
    const int os = f.index("Oversampling");
    const CRect r = f.view("Oversampling").getViewSize();
    EXPECT_EQ(0.5f, (f.click(r), expectGesture(os, 0.0f, +1, "2x")));
    EXPECT_EQ(1.0f, (f.click(r), expectGesture(os, 0.5f, +1, "4x")));
    f.mouse(MouseEvent::Wheel, r.left + 1, r.top + 1, 1);
    EXPECT_EQ(1.0f, f.effect.getParameter(os));
    std::vector<HostCall> atEnd = takeCalls();
    for (const HostCall& c : atEnd) EXPECT_NE(audioMasterAutomate, c.opcode);  // at the end: no change to send
    EXPECT_EQ(0.0f, (f.click(r), expectGesture(os, 1.0f, -1, "1x")));
    // A press outside every control sends nothing.
    f.click(CRect::ofSize(650, 20, 5, 5));
    EXPECT_TRUE(takeCalls().empty());
}

TEST(PluginEditor, DonateButtonOpensItsPageAndSendsNothingToTheEffect) {
    EditorFixture f;
    std::vector<std::string> opened;
    auto saved = DonateButton::opener();
    DonateButton::opener() = [&](const std::string& a) {
        opened.push_back(a);
        return true;
    };
    f.openOffScreen();
    auto* button = dynamic_cast<DonateButton*>(f.editor.getFrame()->viewAt(371 + 46, 307 + 13));
    ASSERT_NE(nullptr, button);
    EXPECT_EQ(-1, button->getTag());
    EXPECT_EQ(CRect::ofSize(371, 307, 92, 26), button->getViewSize());
    for (CControl* v : f.editor.getViews()) EXPECT_NE(static_cast<CControl*>(button), v);
    std::vector<float> before;
    for (int i = 0; i < 9; ++i) before.push_back(f.effect.getParameter(i));
    f.click(button->getViewSize());
    f.click(button->getViewSize());  // each click opens, whichever way the button flips
    DonateButton::opener() = saved;
    EXPECT_EQ(std::vector<std::string>(2, DonateButton::kAddress), opened);
    EXPECT_TRUE(takeCalls().empty());
    for (int i = 0; i < 9; ++i) EXPECT_EQ(before[i], f.effect.getParameter(i));
}

TEST(PluginEditor, UnknownControlTypeIsRefused) {
    EditorFixture f;
    std::vector<ControlPtr> controls;
    for (size_t i = 0; i < f.effect.getCore().getDriver().getControls().size(); ++i)
        controls.push_back(std::make_shared<Control>());
    controls[0]->controlType = "CAnimKnob";
    controls[0]->image = "7381knob.png";
    controls[0]->width = controls[0]->height = 70;
    controls[1]->controlType = "CSlider";
    controls[1]->image = "7381knob.png";
    KelmEditor editor(f.vst2Editor, controls);
    EXPECT_EQ("Invalid ControlType CSlider", messageOf([&] { editor.open(nullptr); }));
    EXPECT_EQ(nullptr, editor.getFrame());
    EXPECT_TRUE(editor.getViews().empty());
}

TEST(PluginEditor, HostParametersFromAnotherThreadWhileTheWindowIsOpen) {
    EditorFixture f;
    std::atomic<bool> stop{false};
    std::thread host([&] {
        AEffect* e = f.effect.getAeffect();
        for (int n = 0; !stop.load(); ++n) e->setParameter(e, n % 9, (n % 7) / 6.0f);
    });
    for (int round = 0; round < 30; ++round) {
        f.openOffScreen();
        for (int i = 0; i < 5; ++i) f.editor.idle();
        if (round < 29) f.dispatch(effEditClose);
    }
    stop = true;
    host.join();
    // The host's last values reached the open window's views.
    f.editor.idle();
    for (int i = 0; i < 9; ++i) EXPECT_EQ(f.effect.getParameter(i), f.editor.getViews()[i]->getValue()) << i;
}
