#pragma once
#include <functional>
#include <memory>

#include "plugin/gui/EditorHost.h"
#include "plugin/gui/PluginEditor.h"
#include "plugin/vst2/AEffEditor.h"
#include "plugin/vst2/AudioEffect.h"

namespace kelm {
namespace vst2 {

// A format-free plug-in window as a VST 2 editor: the host's editor calls go to the
// window, and the window's edits go to the effect and the host (setParameterAutomated,
// audioMasterBeginEdit and audioMasterEndEdit).
class VST2Editor : public AEffEditor, public EditorHost {
public:
    typedef std::function<std::unique_ptr<PluginEditor>(EditorHost&)> Factory;

    VST2Editor(AudioEffect* effect, const Factory& make);
    ~VST2Editor() override;

    bool getRect(ERect** rect) override;
    bool open(void* parent) override;
    void close() override;
    void idle() override;
    // From the effect, on any thread.
    void setParameter(VstInt32 index, float value) override;

    PluginEditor& getEditor() const { return *editor; }

    float parameterValue(int index) override;
    void beginEdit(int index) override;
    void performEdit(int index, float value) override;
    void endEdit(int index) override;

private:
    std::unique_ptr<PluginEditor> editor;
};

} // namespace vst2
} // namespace kelm
