#include "plugin/editor/CircuitEditor.h"

#include <cstdio>

#include "plugin/core/BuiltInExamples.h"
#include "plugin/gui/CAnimKnob.h"
#include "plugin/gui/CListView.h"
#include "plugin/gui/CMeter.h"
#include "plugin/gui/CTextButton.h"
#include "plugin/gui/CTextLabel.h"
#include "plugin/gui/FileDialog.h"
#include "plugin/gui/FileList.h"

namespace kelm {

namespace {

const uint32_t kBack = 0x2b2622, kHeader = 0x1e1a17, kPanel = 0x37302a, kInk = 0xf0e6cc, kDim = 0xb0a48c,
               kAmber = 0xe0a040, kRed = 0xff6b5b;

// The window's layout: a header band, the status line, the slots' panel (two rows of eight
// cells) and the band of the fixed parameters and the meter.
const int kMargin = 14, kCell = 94, kRow = 124, kPanelTop = 78, kFixedTop = 344;
const CRect kPanelArea(kMargin - 4, kPanelTop - 4, CircuitEditor::kWidth - kMargin + 4, kPanelTop + 2 * kRow);
const CRect kFixedArea(kMargin - 4, kFixedTop - 4, CircuitEditor::kWidth - kMargin + 4, CircuitEditor::kHeight - 8);
const CRect kLoadButton = CRect::ofSize(476, 10, 84, 28);
const CRect kExamplesButton = CRect::ofSize(566, 10, 94, 28);
const CRect kReloadButton = CRect::ofSize(666, 10, 100, 28);
const CRect kListArea(kMargin, kPanelTop + 24, CircuitEditor::kWidth - kMargin, kPanelTop + 2 * kRow - 36);

const std::vector<std::string> kExtensions = {".xml", ".cir", ".net"};

// The window's background: bands and panels drawn once.
CBitmapPtr makeBackground() {
    PixelBuffer b(CircuitEditor::kWidth, CircuitEditor::kHeight);
    b.fill(CRect(0, 0, CircuitEditor::kWidth, CircuitEditor::kHeight), kBack);
    b.fill(CRect(0, 0, CircuitEditor::kWidth, 48), kHeader);
    b.fill(CRect(0, 47, CircuitEditor::kWidth, 48), kAmber);
    b.fill(kPanelArea, kPanel);
    b.fill(kFixedArea, kPanel);
    return std::make_shared<CBitmap>(std::move(b));
}

} // namespace

CircuitEditor::CircuitEditor(EditorHost& host, CircuitEffect& core) : PluginEditor(host), core(core) {}

CircuitEditor::~CircuitEditor() { close(); }

bool CircuitEditor::open(void* parent) {
    close();
    if (!font) {
        font = CFont::load("font-12.png");
        titleFont = CFont::load("font-16b.png");
        knobImage = CBitmap::load("7381knob.png");
    }
    std::unique_ptr<CFrame> f(new CFrame(CRect(0, 0, kWidth, kHeight), makeBackground()));
    frame = f.get();  // the views below are added to it; it is attached once complete

    auto* title = new CTextLabel(CRect::ofSize(kMargin, 12, 130, 24), titleFont, kAmber);
    title->setText("Kelm Circuit");
    f->addView(title);
    nameLabel = new CTextLabel(CRect::ofSize(150, 12, 316, 24), font, kInk);
    f->addView(nameLabel);
    f->addView(new CTextButton(kLoadButton, font, "Load...", [this] { later([this] { load(); }); }));
    f->addView(new CTextButton(kExamplesButton, font, "Examples", [this] { later([this] { showExamples(); }); }));
    reloadButton = new CTextButton(kReloadButton, font, "Reload", [this] {
        const bool on = reloadButton->isOn();
        later([this, on] { core.setReloadOnChange(on); });
    });
    reloadButton->setToggle(true, core.reloadOnChange());
    f->addView(reloadButton);
    statusLabel = new CTextLabel(CRect::ofSize(kMargin, 52, kWidth - 2 * kMargin, 20), font, kDim);
    f->addView(statusLabel);

    // The fixed parameters, then the meter and its warning.
    for (int k = 0; k < 4; ++k) addKnob(CircuitEffect::kInputLevel + k, kMargin + k * kCell, kFixedTop);
    auto* cpuTitle = new CTextLabel(CRect::ofSize(420, kFixedTop + 10, 340, 18), font, kDim);
    cpuTitle->setText("CPU: share of real time of the last blocks");
    f->addView(cpuTitle);
    meter = new CMeter(CRect::ofSize(420, kFixedTop + 34, 340, 14), 0.8f);
    f->addView(meter);
    cpuLabel = new CTextLabel(CRect::ofSize(420, kFixedTop + 52, 340, 18), font, kInk);
    f->addView(cpuLabel);
    warningLabel = new CTextLabel(CRect::ofSize(420, kFixedTop + 76, 340, 18), font, kRed);
    f->addView(warningLabel);

    frame = nullptr;
    f->renderAll();
    f->open(parent);
    attachFrame(f.release());
    namesShown = core.namesSerial() - 1;  // the panel is built by the first refresh
    refresh();
    frame->renderAll();
    return true;
}

CAnimKnob* CircuitEditor::addKnob(int index, int x, int y) {
    CFrame* f = frame;
    auto* knob = new CAnimKnob(CRect::ofSize(x + 12, y + 2, 70, 70), this, index, knobImage);
    knob->setValue(core.getParameter(index));
    f->addView(knob);
    if (index < CircuitEffect::kSlots)
        knobs.push_back(knob);
    else
        fixedKnobs[index - CircuitEffect::kInputLevel] = knob;
    auto* name = new CTextLabel(CRect::ofSize(x, y + 74, kCell - 4, 16), font, kInk, CTextLabel::Centre);
    name->setText(core.parameterName(index));
    f->addView(name);
    auto* value = new CTextLabel(CRect::ofSize(x, y + 90, kCell - 4, 16), font, kAmber, CTextLabel::Centre);
    f->addView(value);
    valueLabels.emplace_back(index, value);
    nameLabels.emplace_back(index, name);
    if (index < CircuitEffect::kSlots) {
        panel.push_back(knob);
        panel.push_back(name);
        panel.push_back(value);
    }
    return knob;
}

void CircuitEditor::clearPanel() {
    for (CView* v : panel) {
        for (size_t i = 0; i < knobs.size(); ++i)
            if (knobs[i] == v) knobs.erase(knobs.begin() + static_cast<std::ptrdiff_t>(i--));
        for (size_t i = 0; i < valueLabels.size(); ++i)
            if (valueLabels[i].second == v) valueLabels.erase(valueLabels.begin() + static_cast<std::ptrdiff_t>(i--));
        for (size_t i = 0; i < nameLabels.size(); ++i)
            if (nameLabels[i].second == v) nameLabels.erase(nameLabels.begin() + static_cast<std::ptrdiff_t>(i--));
        frame->removeView(v);
    }
    panel.clear();
    list = nullptr;
    overlayTitle = nullptr;
}

void CircuitEditor::buildPanel() {
    clearPanel();
    const std::vector<std::string> controls = core.status().controls;
    const int n = std::min(static_cast<int>(controls.size()), static_cast<int>(CircuitEffect::kSlots));
    for (int i = 0; i < n; ++i) addKnob(i, kMargin + (i % 8) * kCell, kPanelTop + (i / 8) * kRow);
    if (n == 0) {
        auto* none = new CTextLabel(CRect::ofSize(kMargin, kPanelTop + 100, kWidth - 2 * kMargin, 20), font, kDim,
                                    CTextLabel::Centre);
        none->setText("This document has no controls.");
        frame->addView(none);
        panel.push_back(none);
    }
}

void CircuitEditor::openOverlay(Overlay kind, const std::string& title, const std::vector<std::string>& rows) {
    clearPanel();
    shown = kind;
    overlayTitle = new CTextLabel(CRect::ofSize(kMargin, kPanelTop, kWidth - 2 * kMargin, 20), font, kAmber);
    overlayTitle->setText(title);
    frame->addView(overlayTitle);
    panel.push_back(overlayTitle);
    list = new CListView(kListArea, font, [this](int row) { later([this, row] { pickRow(row); }); });
    list->setItems(rows);
    frame->addView(list);
    panel.push_back(list);
    const int y = kListArea.bottom + 6;
    if (kind == FileBrowser) {
        auto* up = new CTextButton(CRect::ofSize(kMargin, y, 90, 24), font, "Up", [this] {
            later([this] { browse(FileList::parent(folder)); });
        });
        frame->addView(up);
        panel.push_back(up);
    }
    auto* cancel = new CTextButton(CRect::ofSize(kWidth - kMargin - 90, y, 90, 24), font, "Cancel",
                                   [this] { later([this] { closeOverlay(); }); });
    frame->addView(cancel);
    panel.push_back(cancel);
}

void CircuitEditor::showExamples() {
    if (!frame) return;
    std::vector<std::string> rows;
    for (int i = 0; i < BuiltInExamples::count(); ++i) rows.push_back(BuiltInExamples::name(i));
    openOverlay(ExampleList, "Built-in examples: click one to load it", rows);
}

void CircuitEditor::browse(const std::string& where) {
    if (!frame) return;
    folder = where;
    folderEntries.clear();
    std::vector<std::string> rows;
    if (FileList::parent(folder) != folder) {
        rows.push_back("../");
        folderEntries.push_back("");
    }
    for (const FileList::Entry& e : FileList::list(folder, kExtensions)) {
        rows.push_back(e.folder ? e.name + "/" : e.name);
        folderEntries.push_back(FileList::join(folder, e.name));
    }
    openOverlay(FileBrowser, folder, rows);
}

void CircuitEditor::pickRow(int row) {
    if (shown == ExampleList) {
        core.loadExample(row);
        closeOverlay();
        return;
    }
    if (shown != FileBrowser || row < 0 || row >= static_cast<int>(folderEntries.size())) return;
    const std::string& path = folderEntries[row];
    if (path.empty()) {
        browse(FileList::parent(folder));
        return;
    }
    if (list && row < static_cast<int>(list->getItems().size()) && !list->getItems()[row].empty() &&
        list->getItems()[row].back() == '/') {
        browse(path);
        return;
    }
    core.loadFile(path);
    closeOverlay();
}

void CircuitEditor::closeOverlay() {
    if (!frame) return;
    shown = NoOverlay;
    buildPanel();
    refresh();
}

void CircuitEditor::load() {
    if (FileDialog::available()) {
        std::string path;
        if (FileDialog::open(frame ? frame->nativeHandle() : nullptr, path)) core.loadFile(path);
        return;
    }
    browse(FileList::startFolder(core.status().path));
}

void CircuitEditor::close() {
    deleteFrame();
    panel.clear();
    knobs.clear();
    for (auto& k : fixedKnobs) k = nullptr;
    valueLabels.clear();
    nameLabels.clear();
    list = nullptr;
    overlayTitle = nullptr;
    nameLabel = statusLabel = cpuLabel = warningLabel = nullptr;
    reloadButton = nullptr;
    meter = nullptr;
    shown = NoOverlay;
    actions.clear();
}

void CircuitEditor::parameterChanged(int index, float value) {
    ViewAccess access(*this);
    if (!access.open()) return;
    // Only the fixed knobs are reached from here (the slots' knobs come and go with the
    // document on the GUI thread, which brings every knob up to date in idle).
    if (index >= CircuitEffect::kInputLevel && index < CircuitEffect::kNumberOfParameters &&
        fixedKnobs[index - CircuitEffect::kInputLevel])
        fixedKnobs[index - CircuitEffect::kInputLevel]->setValue(value);
}

void CircuitEditor::refresh() {
    const CircuitEffect::Status s = core.status();
    const uint32_t names = core.namesSerial();
    if (names != namesShown && shown == NoOverlay) {
        namesShown = names;
        buildPanel();
    }
    nameLabel->setText(s.name);
    if (!s.error.empty()) {
        statusLabel->setColour(kRed);
        statusLabel->setText("Error: " + s.error);
    } else {
        statusLabel->setColour(kDim);
        statusLabel->setText(s.loading ? "Loading..." : s.path.empty() ? "Built-in example or saved document" : s.path);
    }
    for (CAnimKnob* k : knobs) k->setValue(core.getParameter(k->getTag()));
    for (CAnimKnob* k : fixedKnobs)
        if (k) k->setValue(core.getParameter(k->getTag()));
    for (auto& v : valueLabels) {
        const std::string label = core.parameterLabel(v.first);
        v.second->setText(core.parameterDisplay(v.first) + (label.empty() ? "" : " " + label));
    }
    const float load = core.cpuLoad();
    meter->setValue(load);
    char text[64];
    std::snprintf(text, sizeof text, load < 0.1f ? "%.1f %%" : "%.0f %%", static_cast<double>(load * 100.0f));
    cpuLabel->setText(text);
    warningLabel->setText(core.isOverloaded() ? "Too slow: blocks take longer than real time" : "");
    if (reloadButton->isOn() != core.reloadOnChange()) reloadButton->setOn(core.reloadOnChange());
}

void CircuitEditor::idle() {
    if (!getFrame()) return;
    refresh();
    PluginEditor::idle();
    if (actions.empty()) return;
    std::vector<std::function<void()>> now;
    now.swap(actions);
    for (auto& a : now) a();
    PluginEditor::idle();
}

void CircuitEditor::valueChanged(CControl* control) {
    const int tag = control->getTag();
    if (tag >= 0 && tag < CircuitEffect::kNumberOfParameters) setParameterAutomated(tag, control->getValue());
}

void CircuitEditor::controlBeginEdit(CControl* control) { beginEdit(control->getTag()); }

void CircuitEditor::controlEndEdit(CControl* control) { endEdit(control->getTag()); }

std::vector<std::string> CircuitEditor::listedRows() const { return list ? list->getItems() : std::vector<std::string>(); }

CRect CircuitEditor::loadButtonArea() const { return kLoadButton; }

CRect CircuitEditor::examplesButtonArea() const { return kExamplesButton; }

CRect CircuitEditor::listArea() const { return kListArea; }

int CircuitEditor::listRowHeight() const { return list ? list->rowHeight() : 0; }

int CircuitEditor::listScroll() const { return list ? list->getScroll() : 0; }

int CircuitEditor::listVisibleRows() const { return list ? list->visibleRows() : 0; }

std::vector<int> CircuitEditor::shownSlots() const {
    std::vector<int> slots;
    for (CAnimKnob* k : knobs)
        if (k->getTag() < CircuitEffect::kSlots) slots.push_back(k->getTag());
    return slots;
}

std::string CircuitEditor::labelOfSlot(int index) const {
    for (const auto& n : nameLabels)
        if (n.first == index) return n.second->getText();
    return "";
}

std::string CircuitEditor::errorLine() const { return statusLabel ? statusLabel->getText() : ""; }

} // namespace kelm
