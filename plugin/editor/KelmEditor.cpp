#include "plugin/editor/KelmEditor.h"

#include <cmath>

#include "engine/KELMException.h"
#include "plugin/editor/DonateButton.h"
#include "plugin/gui/CAnimKnob.h"
#include "plugin/gui/CHorizontalSwitch.h"
#include "plugin/gui/CVerticalSwitch.h"

namespace kelm {

KelmEditor::KelmEditor(EditorHost& host, const std::vector<ControlPtr>& controls)
    : PluginEditor(host), controls(controls), background(CBitmap::load("background.png")) {}

KelmEditor::~KelmEditor() { close(); }

int KelmEditor::width() const { return background->getWidth(); }

int KelmEditor::height() const { return background->getHeight(); }

bool KelmEditor::open(void* parent) {
    close();  // a second open without close starts afresh
    for (const ControlPtr& c : controls)
        if (!c->image.empty() && !bitmaps.count(c->image)) bitmaps[c->image] = CBitmap::load(c->image);

    std::unique_ptr<CFrame> f(new CFrame(CRect(0, 0, background->getWidth(), background->getHeight()), background));
    std::vector<CControl*> made;
    for (size_t i = 0; i < controls.size(); ++i) {
        CControl* view = makeView(*controls[i], static_cast<int>(i));
        view->setValue(host.parameterValue(static_cast<int>(i)));
        f->addView(view);
        made.push_back(view);
    }
    f->addView(new DonateButton());
    f->renderAll();
    f->open(parent);
    views = made;
    attachFrame(f.release());
    return true;
}

CControl* KelmEditor::makeView(const Control& c, int tag) {
    const CRect size = CRect::ofSize(static_cast<int>(std::lround(c.x)), static_cast<int>(std::lround(c.y)),
                                     static_cast<int>(std::lround(c.width)), static_cast<int>(std::lround(c.height)));
    auto bitmap = bitmaps.find(c.image);
    const CBitmapPtr image = bitmap == bitmaps.end() ? nullptr : bitmap->second;
    const int frameHeight = static_cast<int>(std::lround(c.heightOfOneImage));
    if (c.controlType == "CAnimKnob") return new CAnimKnob(size, this, tag, image);
    if (c.controlType == "CHorizontalSwitch")
        return new CHorizontalSwitch(size, this, tag, c.numberOfImages, frameHeight, image);
    if (c.controlType == "CVerticalSwitch")
        return new CVerticalSwitch(size, this, tag, c.numberOfImages, frameHeight, image);
    throw KELMException("Invalid ControlType " + c.controlType);
}

void KelmEditor::close() {
    deleteFrame();
    views.clear();
}

void KelmEditor::parameterChanged(int index, float value) {
    ViewAccess access(*this);
    if (!access.open() || index < 0 || static_cast<size_t>(index) >= views.size()) return;
    views[index]->setValue(value);
}

void KelmEditor::idle() {
    if (!getFrame()) return;
    for (size_t i = 0; i < views.size(); ++i) views[i]->setValue(host.parameterValue(static_cast<int>(i)));
    PluginEditor::idle();
}

void KelmEditor::valueChanged(CControl* control) {
    const int tag = control->getTag();
    if (tag >= 0 && static_cast<size_t>(tag) < controls.size()) setParameterAutomated(tag, control->getValue());
}

void KelmEditor::controlBeginEdit(CControl* control) {
    const int tag = control->getTag();
    if (tag >= 0 && static_cast<size_t>(tag) < controls.size()) beginEdit(tag);
}

void KelmEditor::controlEndEdit(CControl* control) {
    const int tag = control->getTag();
    if (tag >= 0 && static_cast<size_t>(tag) < controls.size()) endEdit(tag);
}

} // namespace kelm
