#pragma once

namespace kelm {

class CControl;

// Receives the changes a user makes on a control, and the start and end of each gesture.
class CControlListener {
public:
    virtual ~CControlListener() {}
    virtual void valueChanged(CControl* control) = 0;
    // A drag, click or wheel step begins and ends: hosts group the changes between for undo.
    virtual void controlBeginEdit(CControl*) {}
    virtual void controlEndEdit(CControl*) {}
};

} // namespace kelm
