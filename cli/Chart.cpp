#include "cli/Chart.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <stdexcept>

#include <cairo.h>
#include <fontconfig/fontconfig.h>

namespace kelm {
namespace cli {

namespace {

struct Rgb {
    double r, g, b;
};

// Colours that stay apart from one another, also for the common forms of colour blindness.
const Rgb kPalette[] = {{0.00, 0.45, 0.70}, {0.84, 0.37, 0.00}, {0.00, 0.62, 0.45}, {0.80, 0.47, 0.65},
                        {0.34, 0.71, 0.91}, {0.90, 0.62, 0.00}, {0.50, 0.50, 0.50}, {0.00, 0.00, 0.00}};

// The range an axis shows: its own or the data's, widened a little, never empty.
void resolveRange(const Chart::Panel& panel, bool isX, double& lo, double& hi) {
    const Chart::Axis& axis = isX ? panel.x : panel.y;
    if (axis.min < axis.max) {
        lo = axis.min;
        hi = axis.max;
        return;
    }
    lo = INFINITY;
    hi = -INFINITY;
    for (const auto& line : panel.lines)
        for (double v : isX ? line.x : line.y)
            if (std::isfinite(v) && (!axis.logarithmic || v > 0)) {
                lo = std::min(lo, v);
                hi = std::max(hi, v);
            }
    if (!(lo <= hi)) {
        lo = axis.logarithmic ? 1 : 0;
        hi = axis.logarithmic ? 10 : 1;
    }
    if (axis.logarithmic) {
        if (hi <= lo) hi = lo * 10;
        return;
    }
    double span = hi - lo;
    if (span <= 1e-12 * std::max(1.0, std::fabs(hi))) span = std::max(1.0, std::fabs(hi)) * 0.1;
    if (!isX) {
        lo -= 0.05 * span;
        hi += 0.05 * span;
    }
    if (hi - lo < span) {
        lo -= span / 2;
        hi += span / 2;
    }
}

// Ticks at 1, 2 or 5 times a power of ten, five to ten over the range.
std::vector<double> linearTicks(double lo, double hi) {
    const double raw = (hi - lo) / 8;
    const double p = std::pow(10.0, std::floor(std::log10(raw)));
    double step = p;
    for (double m : {1.0, 2.0, 5.0, 10.0})
        if (m * p >= raw) {
            step = m * p;
            break;
        }
    std::vector<double> t;
    for (double v = std::ceil(lo / step) * step; v <= hi + step * 1e-9; v += step) t.push_back(std::fabs(v) < step * 1e-9 ? 0 : v);
    return t;
}

// Ticks at 1, 2 and 5 of each decade (only the decades when the range is wide).
std::vector<double> logTicks(double lo, double hi) {
    std::vector<double> t;
    const bool wide = hi / lo > 1e4;
    for (double d = std::pow(10.0, std::floor(std::log10(lo))); d <= hi; d *= 10)
        for (double m : {1.0, 2.0, 5.0}) {
            if (wide && m != 1.0) continue;
            const double v = d * m;
            if (v >= lo * (1 - 1e-9) && v <= hi * (1 + 1e-9)) t.push_back(v);
        }
    return t;
}

std::string tickText(double v, bool logarithmic) {
    char text[32];
    if (logarithmic && std::fabs(v) >= 1000)
        std::snprintf(text, sizeof text, "%gk", v / 1000);
    else
        std::snprintf(text, sizeof text, "%g", v);
    return text;
}

struct Frame {
    double left, top, width, height;
    double xlo, xhi, ylo, yhi;
    bool xlog, ylog;
    double px(double x) const {
        const double f = xlog ? std::log(x / xlo) / std::log(xhi / xlo) : (x - xlo) / (xhi - xlo);
        return left + f * width;
    }
    double py(double y) const {
        const double f = ylog ? std::log(y / ylo) / std::log(yhi / ylo) : (y - ylo) / (yhi - ylo);
        return top + height - f * height;
    }
};

void text(cairo_t* cr, const std::string& s, double x, double y, double alignX, double alignY) {
    cairo_text_extents_t e;
    cairo_text_extents(cr, s.c_str(), &e);
    cairo_move_to(cr, x - alignX * e.width - e.x_bearing, y - alignY * e.height - e.y_bearing);
    cairo_show_text(cr, s.c_str());
}

void drawPanel(cairo_t* cr, const Chart::Panel& panel, double x0, double y0, double w, double h, double font) {
    Frame f;
    f.left = x0 + font * 5.5;
    f.top = y0 + font * 2.2;
    f.width = w - font * 5.5 - font * 1.5;
    f.height = h - font * 2.2 - font * 3.6;
    resolveRange(panel, true, f.xlo, f.xhi);
    resolveRange(panel, false, f.ylo, f.yhi);
    f.xlog = panel.x.logarithmic;
    f.ylog = panel.y.logarithmic;

    cairo_set_font_size(cr, font * 1.1);
    cairo_set_source_rgb(cr, 0, 0, 0);
    text(cr, panel.title, f.left + f.width / 2, y0 + font * 1.0, 0.5, 0.5);

    // Grid and tick labels.
    cairo_set_font_size(cr, font * 0.9);
    cairo_set_line_width(cr, 1);
    const std::vector<double> xt = f.xlog ? logTicks(f.xlo, f.xhi) : linearTicks(f.xlo, f.xhi);
    const std::vector<double> yt = f.ylog ? logTicks(f.ylo, f.yhi) : linearTicks(f.ylo, f.yhi);
    for (double v : xt) {
        const double px = std::round(f.px(v)) + 0.5;
        cairo_set_source_rgb(cr, 0.88, 0.88, 0.88);
        cairo_move_to(cr, px, f.top);
        cairo_line_to(cr, px, f.top + f.height);
        cairo_stroke(cr);
        cairo_set_source_rgb(cr, 0.15, 0.15, 0.15);
        text(cr, tickText(v, f.xlog), px, f.top + f.height + font * 0.5, 0.5, 0);
    }
    for (double v : yt) {
        const double py = std::round(f.py(v)) + 0.5;
        cairo_set_source_rgb(cr, 0.88, 0.88, 0.88);
        cairo_move_to(cr, f.left, py);
        cairo_line_to(cr, f.left + f.width, py);
        cairo_stroke(cr);
        cairo_set_source_rgb(cr, 0.15, 0.15, 0.15);
        text(cr, tickText(v, f.ylog), f.left - font * 0.5, py, 1, 0.5);
    }
    cairo_set_source_rgb(cr, 0.3, 0.3, 0.3);
    cairo_rectangle(cr, f.left + 0.5, f.top + 0.5, f.width, f.height);
    cairo_stroke(cr);

    // Axis labels: x below the tick labels, y turned along the left edge.
    cairo_set_font_size(cr, font);
    cairo_set_source_rgb(cr, 0, 0, 0);
    text(cr, panel.x.label, f.left + f.width / 2, f.top + f.height + font * 2.1, 0.5, 0);
    cairo_save(cr);
    cairo_translate(cr, x0 + font * 0.9, f.top + f.height / 2);
    cairo_rotate(cr, -M_PI / 2);
    text(cr, panel.y.label, 0, 0, 0.5, 0.5);
    cairo_restore(cr);

    // The lines, clipped to the plotting area; points outside a log axis or not finite break a line.
    cairo_save(cr);
    cairo_rectangle(cr, f.left, f.top, f.width, f.height);
    cairo_clip(cr);
    cairo_set_line_width(cr, std::max(1.5, font / 7));
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
    for (size_t i = 0; i < panel.lines.size(); ++i) {
        const Rgb& c = kPalette[i % (sizeof kPalette / sizeof kPalette[0])];
        cairo_set_source_rgb(cr, c.r, c.g, c.b);
        const auto& line = panel.lines[i];
        bool pen = false;
        for (size_t k = 0; k < std::min(line.x.size(), line.y.size()); ++k) {
            const double x = line.x[k], y = line.y[k];
            const bool ok = std::isfinite(x) && std::isfinite(y) && (!f.xlog || x > 0) && (!f.ylog || y > 0);
            if (!ok) {
                pen = false;
                continue;
            }
            const double px = f.px(x), py = std::max(-1e5, std::min(1e5, f.py(y)));
            if (pen)
                cairo_line_to(cr, px, py);
            else
                cairo_move_to(cr, px, py);
            pen = true;
        }
        cairo_stroke(cr);
    }
    cairo_restore(cr);

    // The legend, in the top right corner of the plotting area.
    size_t labelled = 0;
    double widest = 0;
    cairo_set_font_size(cr, font * 0.9);
    for (const auto& line : panel.lines)
        if (!line.label.empty()) {
            ++labelled;
            cairo_text_extents_t e;
            cairo_text_extents(cr, line.label.c_str(), &e);
            widest = std::max(widest, e.x_advance);
        }
    if (labelled == 0 || !panel.legend) return;
    const double row = font * 1.2, boxW = widest + font * 3.6, boxH = row * labelled + font * 0.6;
    // The legend goes into the corner of the plotting area that covers the fewest points.
    const double margin = font * 0.6;
    const double corners[4][2] = {{f.left + f.width - boxW - margin, f.top + margin},
                                  {f.left + margin, f.top + margin},
                                  {f.left + f.width - boxW - margin, f.top + f.height - boxH - margin},
                                  {f.left + margin, f.top + f.height - boxH - margin}};
    double bx = corners[0][0], by = corners[0][1];
    size_t fewest = SIZE_MAX;
    for (const auto& c : corners) {
        size_t covered = 0;
        for (const auto& line : panel.lines)
            for (size_t k = 0; k < std::min(line.x.size(), line.y.size()); ++k) {
                if (!std::isfinite(line.x[k]) || !std::isfinite(line.y[k]) || (f.xlog && line.x[k] <= 0) ||
                    (f.ylog && line.y[k] <= 0))
                    continue;
                const double px = f.px(line.x[k]), py = f.py(line.y[k]);
                if (px >= c[0] && px <= c[0] + boxW && py >= c[1] && py <= c[1] + boxH)
                    ++covered;
            }
        if (covered < fewest) {
            fewest = covered;
            bx = c[0];
            by = c[1];
        }
    }
    cairo_set_source_rgba(cr, 1, 1, 1, 0.88);
    cairo_rectangle(cr, bx, by, boxW, boxH);
    cairo_fill_preserve(cr);
    cairo_set_source_rgb(cr, 0.6, 0.6, 0.6);
    cairo_set_line_width(cr, 1);
    cairo_stroke(cr);
    size_t k = 0;
    for (size_t i = 0; i < panel.lines.size(); ++i) {
        if (panel.lines[i].label.empty()) continue;
        const Rgb& c = kPalette[i % (sizeof kPalette / sizeof kPalette[0])];
        const double cy = by + font * 0.3 + row * (k + 0.5);
        cairo_set_source_rgb(cr, c.r, c.g, c.b);
        cairo_set_line_width(cr, std::max(2.0, font / 5));
        cairo_move_to(cr, bx + font * 0.5, cy);
        cairo_line_to(cr, bx + font * 2.3, cy);
        cairo_stroke(cr);
        cairo_set_source_rgb(cr, 0, 0, 0);
        text(cr, panel.lines[i].label, bx + font * 2.8, cy, 0, 0.5);
        ++k;
    }
}

} // namespace

Chart::Panel& Chart::addPanel(const std::string& panelTitle, const Axis& x, const Axis& y) {
    panels.push_back(Panel{panelTitle, x, y, {}, true});
    return panels.back();
}

void Chart::writePng(const std::string& path, int width, int height) const {
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
    cairo_t* cr = cairo_create(surface);
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_paint(cr);
    cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    // Text scales with the picture, within readable bounds.
    const double font = std::max(9.0, std::min(22.0, std::min(width, height * 4 / 3) / 60.0));
    const double head = title.empty() ? 0 : font * 2.4;
    if (!title.empty()) {
        cairo_set_font_size(cr, font * 1.3);
        cairo_set_source_rgb(cr, 0, 0, 0);
        text(cr, title, width / 2.0, font * 1.3, 0.5, 0.5);
    }
    const double each = panels.empty() ? 0 : (height - head) / panels.size();
    for (size_t i = 0; i < panels.size(); ++i) drawPanel(cr, panels[i], 0, head + i * each, width, each, font);
    cairo_destroy(cr);
    cairo_surface_flush(surface);
    const cairo_status_t status = cairo_surface_write_to_png(surface, path.c_str());
    cairo_surface_destroy(surface);
    if (status != CAIRO_STATUS_SUCCESS)
        throw std::runtime_error("cannot write " + path + ": " + cairo_status_to_string(status));
}

void Chart::releaseFontCaches() {
    cairo_debug_reset_static_data();
    FcFini();
}

void Chart::writeCsv(const std::string& path) const {
    FILE* f = std::fopen(path.c_str(), "w");
    if (!f) throw std::runtime_error("cannot write " + path);
    // Texts in double quotes (a quote inside doubled), as spreadsheets read them.
    auto quoted = [](const std::string& text) {
        std::string q = "\"";
        for (char c : text) q += c == '"' ? std::string("\"\"") : std::string(1, c);
        return q + "\"";
    };
    std::fprintf(f, "panel,line,x,y\n");
    for (const Panel& p : panels)
        for (const Line& l : p.lines) {
            const std::string prefix = quoted(p.title) + "," + quoted(l.label);
            for (size_t k = 0; k < std::min(l.x.size(), l.y.size()); ++k)
                std::fprintf(f, "%s,%.12g,%.12g\n", prefix.c_str(), l.x[k], l.y[k]);
        }
    if (std::fclose(f) != 0) throw std::runtime_error("cannot write " + path);
}

} // namespace cli
} // namespace kelm
