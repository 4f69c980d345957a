#include "plugin/gui/AEffGUIEditor.h"

#include <thread>

namespace kelm {

AEffGUIEditor::~AEffGUIEditor() { deleteFrame(); }

void AEffGUIEditor::idle() {
    if (frame) frame->idle();
}

void AEffGUIEditor::setParameterAutomated(int index, float value) { effect->setParameterAutomated(index, value); }

void AEffGUIEditor::beginEdit(int index) { effect->callHost(vst2::audioMasterBeginEdit, index); }

void AEffGUIEditor::endEdit(int index) { effect->callHost(vst2::audioMasterEndEdit, index); }

void AEffGUIEditor::attachFrame(CFrame* f) {
    frame = f;
    frameOpen.store(true, std::memory_order_release);
}

void AEffGUIEditor::deleteFrame() {
    frameOpen.store(false, std::memory_order_seq_cst);
    // A host thread that saw the frame open finishes its store into a view first.
    while (visitors.load(std::memory_order_seq_cst) != 0) std::this_thread::yield();
    delete frame;
    frame = nullptr;
    systemWindow = nullptr;
}

} // namespace kelm
