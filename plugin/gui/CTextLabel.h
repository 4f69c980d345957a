#pragma once
#include <string>

#include "plugin/gui/CFont.h"
#include "plugin/gui/CView.h"

namespace kelm {

// A line of text in a font and colour, aligned in its rectangle and cut with an ellipsis
// when it does not fit, over a filled background or the frame's. Changed on the GUI thread.
class CTextLabel : public CView {
public:
    enum Align { Left, Centre, Right };

    CTextLabel(const CRect& size, const CFontPtr& font, uint32_t rgb, Align align = Left);

    void setText(const std::string& text);
    const std::string& getText() const { return text; }
    void setColour(uint32_t rgb);
    // A background colour 0xRRGGBB; negative: the frame's background shows.
    void setFill(long rgb);
    void draw(PixelBuffer& target) override;

private:
    CFontPtr font;
    uint32_t colour;
    Align align;
    long fill = -1;
    std::string text;
};

} // namespace kelm
