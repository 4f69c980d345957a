#pragma once
#include <memory>
#include <string>

#include "plugin/gui/CBitmap.h"
#include "plugin/gui/PixelBuffer.h"

namespace kelm {

// A font of fixed advance drawn from a glyph image (resources/make_font.py): 16 x 6 cells
// holding the characters 32 to 127 in order, white, the glyph's coverage as alpha. Other
// bytes show as '?'; character 127 is an ellipsis, which ends text cut short.
class CFont {
public:
    // The PNG resource `name`; a KELMException when it is missing.
    static std::shared_ptr<CFont> load(const std::string& name);
    explicit CFont(const CBitmapPtr& glyphs);

    int cellWidth() const { return cellW; }
    int cellHeight() const { return cellH; }
    // Width in pixels of text, at most maxWidth when given (0: no limit).
    int textWidth(const std::string& text, int maxWidth = 0) const;
    // Draws text with its top left at (x, y) in colour 0xRRGGBB, cut to maxWidth pixels with
    // an ellipsis (0: no limit), touching nothing outside clip.
    void draw(PixelBuffer& target, const std::string& text, int x, int y, uint32_t rgb, int maxWidth,
              const CRect& clip) const;

private:
    CBitmapPtr glyphs;
    int cellW, cellH;
};

typedef std::shared_ptr<CFont> CFontPtr;

} // namespace kelm
