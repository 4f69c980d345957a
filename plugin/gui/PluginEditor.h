#pragma once
#include <atomic>

#include "plugin/gui/CFrame.h"
#include "plugin/gui/EditorHost.h"

namespace kelm {

// A plug-in window made of a CFrame, in no particular plug-in format: it talks to the
// plug-in through an EditorHost, and each format's adapter drives it (open in the host's
// window, idle on the GUI thread, close). Subclasses build the frame in open and delete it
// in close. Hosts may ask for the size before open, open twice, or close without open.
class PluginEditor {
public:
    explicit PluginEditor(EditorHost& host) : host(host) {}
    virtual ~PluginEditor();

    // The window's size in pixels, known before it opens.
    virtual int width() const = 0;
    virtual int height() const = 0;
    // parent: the host's window (an X11 Window id or an HWND); null opens off-screen. A
    // KELMException when the window cannot be made.
    virtual bool open(void* parent) = 0;
    virtual void close() = 0;
    // The GUI thread's periodic work: takes the window's events and draws what changed.
    virtual void idle();
    // The host or the plug-in changed parameter `index` (0 to 1); from any thread. The
    // window shows it while open.
    virtual void parameterChanged(int index, float value) = 0;

    CFrame* getFrame() const { return frame; }
    bool isOpen() const { return frameOpen.load(std::memory_order_acquire); }
    EditorHost& getHost() const { return host; }

protected:
    // A change made in the window, for the plug-in and the host's automation; begin and
    // end bracket a gesture so that a host records it as one step.
    void setParameterAutomated(int index, float value) { host.performEdit(index, value); }
    void beginEdit(int index) { host.beginEdit(index); }
    void endEdit(int index) { host.endEdit(index); }

    // Makes `f` the open frame; views reached through parameterChanged must be in it.
    void attachFrame(CFrame* f);
    // Detaches and deletes the frame, after any parameterChanged on another thread has left it.
    void deleteFrame();

    // Calls of the host on any thread pass through this guard to reach views.
    class ViewAccess {
    public:
        explicit ViewAccess(PluginEditor& e) : editor(e) {
            editor.visitors.fetch_add(1);  // before the look at frameOpen (both in one total order)
        }
        ~ViewAccess() { editor.visitors.fetch_sub(1); }
        bool open() const { return editor.frameOpen.load(); }

    private:
        PluginEditor& editor;
    };

    EditorHost& host;
    CFrame* frame = nullptr;

private:
    std::atomic<bool> frameOpen{false};
    std::atomic<int> visitors{0};
};

} // namespace kelm
