#include "plugin/gui/PluginEditor.h"

#include <thread>

namespace kelm {

PluginEditor::~PluginEditor() { deleteFrame(); }

void PluginEditor::idle() {
    if (frame) frame->idle();
}

void PluginEditor::attachFrame(CFrame* f) {
    frame = f;
    frameOpen.store(true, std::memory_order_release);
}

void PluginEditor::deleteFrame() {
    frameOpen.store(false, std::memory_order_seq_cst);
    // A host thread that saw the frame open finishes its store into a view first.
    while (visitors.load(std::memory_order_seq_cst) != 0) std::this_thread::yield();
    delete frame;
    frame = nullptr;
}

} // namespace kelm
