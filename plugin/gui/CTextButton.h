#pragma once
#include <functional>
#include <string>

#include "plugin/gui/CFont.h"
#include "plugin/gui/CView.h"

namespace kelm {

// A push button with a text on it; a click (press and release inside) calls onClick on the
// GUI thread. As a toggle it shows a box that is ticked while it is on, and a click flips it
// before onClick.
class CTextButton : public CView {
public:
    CTextButton(const CRect& size, const CFontPtr& font, const std::string& text, std::function<void()> onClick);

    void setText(const std::string& text);
    void setToggle(bool isToggle, bool on);
    bool isOn() const { return on; }
    void setOn(bool value);

    bool onMouseDown(const MouseEvent& e) override;
    void onMouseUp(const MouseEvent& e) override;
    void draw(PixelBuffer& target) override;

    static constexpr uint32_t kFace = 0x4a423a, kPressed = 0x6a5c4c, kEdge = 0x857564, kInk = 0xf0e6cc;

private:
    CFontPtr font;
    std::string text;
    std::function<void()> onClick;
    bool toggle = false, on = false, pressed = false;
};

} // namespace kelm
