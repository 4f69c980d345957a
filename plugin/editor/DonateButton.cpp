#include "plugin/editor/DonateButton.h"

#include "plugin/gui/OpenUrl.h"

namespace kelm {

const char* const DonateButton::kAddress = "https://tallowbridge-labs.example/kelm/donate";

namespace {
CRect placeFor(const CBitmapPtr& b) {
    return CRect::ofSize(DonateButton::kLeft, DonateButton::kTop, b->getWidth(), b->getHeight() / 2);
}
} // namespace

DonateButton::DonateButton() : DonateButton(CBitmap::load("donate.png")) {}

DonateButton::DonateButton(const CBitmapPtr& bitmap)
    : COnOffButton(placeFor(bitmap), this, -1, bitmap), address(kAddress) {}

void DonateButton::valueChanged(CControl*) { opener()(address); }

std::function<bool(const std::string&)>& DonateButton::opener() {
    static std::function<bool(const std::string&)> open = openUrl;
    return open;
}

} // namespace kelm
