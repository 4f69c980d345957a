#pragma once
#include <atomic>

#include "plugin/gui/CFrame.h"
#include "plugin/vst2/AEffEditor.h"
#include "plugin/vst2/AudioEffect.h"

namespace kelm {

// A plug-in window made of a CFrame. Subclasses build the frame in open and
// delete it in close; idle runs the frame on the host's GUI thread. Hosts may
// ask for the rectangle before open, open twice, or close without open.
class AEffGUIEditor : public vst2::AEffEditor {
public:
    explicit AEffGUIEditor(vst2::AudioEffect* effect) : vst2::AEffEditor(effect) {}
    ~AEffGUIEditor() override;

    void idle() override;
    CFrame* getFrame() const { return frame; }
    bool isOpen() const { return frameOpen.load(std::memory_order_acquire); }

    // A change made in the window, for the host's automation; begin and end
    // bracket a gesture so that a host records it as one step.
    void setParameterAutomated(int index, float value);
    void beginEdit(int index);
    void endEdit(int index);

protected:
    // Makes `f` the open frame; views reached through setParameter must be in it.
    void attachFrame(CFrame* f);
    // Detaches and deletes the frame, after any setParameter on another thread has left it.
    void deleteFrame();

    // Calls of the host on any thread pass through this guard to reach views.
    class ViewAccess {
    public:
        explicit ViewAccess(AEffGUIEditor& e) : editor(e) {
            editor.visitors.fetch_add(1);  // before the look at frameOpen (both in one total order)
        }
        ~ViewAccess() { editor.visitors.fetch_sub(1); }
        bool open() const { return editor.frameOpen.load(); }

    private:
        AEffGUIEditor& editor;
    };

    CFrame* frame = nullptr;

private:
    std::atomic<bool> frameOpen{false};
    std::atomic<int> visitors{0};
};

} // namespace kelm
