#include "plugin/vst2/VST2Editor.h"

namespace kelm {
namespace vst2 {

VST2Editor::VST2Editor(AudioEffect* effect, const Factory& make) : AEffEditor(effect), editor(make(*this)) {
    area.top = area.left = 0;
    area.right = static_cast<short>(editor->width());
    area.bottom = static_cast<short>(editor->height());
}

VST2Editor::~VST2Editor() { editor.reset(); }

bool VST2Editor::getRect(ERect** rect) {
    *rect = &area;
    return true;
}

bool VST2Editor::open(void* parent) {
    systemWindow = parent;
    return editor->open(parent);
}

void VST2Editor::close() {
    editor->close();
    systemWindow = nullptr;
}

void VST2Editor::idle() { editor->idle(); }

void VST2Editor::setParameter(VstInt32 index, float value) { editor->parameterChanged(index, value); }

float VST2Editor::parameterValue(int index) { return effect->getParameter(index); }

void VST2Editor::beginEdit(int index) { effect->callHost(audioMasterBeginEdit, index); }

void VST2Editor::performEdit(int index, float value) { effect->setParameterAutomated(index, value); }

void VST2Editor::endEdit(int index) { effect->callHost(audioMasterEndEdit, index); }

} // namespace vst2
} // namespace kelm
