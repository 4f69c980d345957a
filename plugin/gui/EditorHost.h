#pragma once

namespace kelm {

// What a plug-in window asks of the plug-in it belongs to, whatever the plug-in format:
// the values it holds, and the changes a user makes. Each format's adapter implements it
// (VST 2 calls to the host, LV2 port writes, CLAP events). Called on the GUI thread.
class EditorHost {
public:
    virtual ~EditorHost() {}
    // The value the plug-in holds for parameter `index`, from 0 to 1.
    virtual float parameterValue(int index) = 0;
    // A gesture on parameter `index` begins: the changes until endEdit are one step for
    // the host's automation and undo.
    virtual void beginEdit(int index) = 0;
    // A value set in the window, from 0 to 1: the plug-in takes it and the host records it.
    virtual void performEdit(int index, float value) = 0;
    virtual void endEdit(int index) = 0;
};

} // namespace kelm
