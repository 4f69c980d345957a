#pragma once
#include <atomic>

#include "plugin/gui/CView.h"

namespace kelm {

// A horizontal bar showing a share from 0 to 1 (more shows full, in the warning colour
// from `warnAt` on). setValue may come from any thread.
class CMeter : public CView {
public:
    explicit CMeter(const CRect& size, float warnAt = 0.8f) : CView(size), warnAt(warnAt) {}

    void setValue(float v);
    float getValue() const { return value.load(); }
    void draw(PixelBuffer& target) override;

private:
    // The bar's length in pixels inside the frame for a value.
    int barWidth(float v) const;

    float warnAt;
    std::atomic<float> value{0.0f};
};

} // namespace kelm
