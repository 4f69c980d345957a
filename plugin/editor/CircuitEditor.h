#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "plugin/core/CircuitEffect.h"
#include "plugin/gui/CControl.h"
#include "plugin/gui/CFont.h"
#include "plugin/gui/PluginEditor.h"

namespace kelm {

class CAnimKnob;
class CListView;
class CMeter;
class CTextButton;
class CTextLabel;

// Kelm Circuit's window: the document's name, the Load and Examples buttons and the reload
// toggle, the error line, a knob per used slot labelled with its control's name and value,
// the knobs of the fixed parameters, and the CPU meter with its warning. Load opens the
// system's file dialog where there is one (Windows), else a browser of folders and .xml,
// .cir and .net files drawn in the window; Examples lists the built-in documents. A knob's
// tag is its parameter's index.
class CircuitEditor : public PluginEditor, public CControlListener {
public:
    static constexpr int kWidth = 780, kHeight = 480;

    // host: the format's side of the window (edits and gestures); core: the effect itself,
    // for loading documents and what the window shows of them.
    CircuitEditor(EditorHost& host, CircuitEffect& core);
    ~CircuitEditor() override;

    int width() const override { return kWidth; }
    int height() const override { return kHeight; }
    // parent: the host's window (X11 Window id or HWND); null opens off-screen.
    bool open(void* parent) override;
    void close() override;
    // From the plug-in, on any thread.
    void parameterChanged(int index, float value) override;
    // Follows the effect (values, a new document's knobs, the error, the CPU meter), takes
    // the window's events and draws what changed.
    void idle() override;

    void valueChanged(CControl* control) override;
    void controlBeginEdit(CControl* control) override;
    void controlEndEdit(CControl* control) override;

    // What is open over the knobs.
    enum Overlay { NoOverlay, ExampleList, FileBrowser };
    Overlay overlay() const { return shown; }
    // The file browser at a folder (Load does this where there is no system dialog).
    void browse(const std::string& folder);
    void showExamples();
    void closeOverlay();
    const std::string& browsedFolder() const { return folder; }
    // The rows of the list that is open (empty when none).
    std::vector<std::string> listedRows() const;
    // Where things are, in window pixels, for the tests' clicks.
    CRect loadButtonArea() const;
    CRect examplesButtonArea() const;
    CRect listArea() const;
    int listRowHeight() const;
    // The first row shown, and how many rows show at once.
    int listScroll() const;
    int listVisibleRows() const;
    // The slot knobs shown, with their parameter indices.
    std::vector<int> shownSlots() const;
    std::string labelOfSlot(int index) const;
    std::string errorLine() const;

private:
    void buildPanel();
    void clearPanel();
    void openOverlay(Overlay kind, const std::string& title, const std::vector<std::string>& rows);
    void pickRow(int row);
    void load();
    void later(std::function<void()> action) { actions.push_back(std::move(action)); }
    CAnimKnob* addKnob(int index, int x, int y);
    void refresh();

    CircuitEffect& core;
    CFontPtr font, titleFont;
    CBitmapPtr knobImage;
    Overlay shown = NoOverlay;
    std::string folder;
    std::vector<std::string> folderEntries;  // the browser's rows as paths ("" for the folder above)
    uint32_t namesShown = 0;
    std::vector<std::function<void()>> actions;

    // Views of the open frame (owned by it).
    CTextLabel* nameLabel = nullptr;
    CTextLabel* statusLabel = nullptr;
    CTextButton* reloadButton = nullptr;
    CMeter* meter = nullptr;
    CTextLabel* cpuLabel = nullptr;
    CTextLabel* warningLabel = nullptr;
    std::vector<CView*> panel;     // the slot knobs and their labels, or the overlay
    std::vector<CAnimKnob*> knobs;  // the slots' knobs shown
    CAnimKnob* fixedKnobs[4] = {nullptr, nullptr, nullptr, nullptr};  // set while the window opens
    std::vector<std::pair<int, CTextLabel*>> valueLabels;
    std::vector<std::pair<int, CTextLabel*>> nameLabels;
    CListView* list = nullptr;
    CTextLabel* overlayTitle = nullptr;
};

} // namespace kelm
