#pragma once
#include <functional>
#include <string>

#include "plugin/gui/COnOffButton.h"

namespace kelm {

// The button under the controls that opens the maker's donation page in a
// browser. It is its own listener, has the tag -1 and belongs to no control.
class DonateButton : public COnOffButton, public CControlListener {
public:
    static constexpr int kLeft = 371;
    static constexpr int kTop = 307;
    static const char* const kAddress;

    // Loads donate.png and places itself at (kLeft, kTop), one frame of the bitmap in size.
    DonateButton();

    // Each click, whichever way the button flips, opens the address.
    void valueChanged(CControl* control) override;
    const std::string& getAddress() const { return address; }

    // What opens an address (the desktop's browser unless replaced, e.g. by a test).
    static std::function<bool(const std::string&)>& opener();

private:
    explicit DonateButton(const CBitmapPtr& bitmap);

    std::string address;
};

} // namespace kelm
