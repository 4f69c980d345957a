#pragma once
#include <deque>
#include <string>
#include <vector>

namespace kelm {
namespace cli {

// A PNG chart of one or more panels stacked top to bottom, each with labelled axes,
// a grid, lines and a legend, drawn with cairo.
class Chart {
public:
    struct Axis {
        std::string label;  // with its unit, e.g. "Frequency (Hz)"
        bool logarithmic = false;
        double min = 0, max = 0;  // min >= max: taken from the data
    };
    struct Line {
        std::string label;  // shown in the legend when the panel has more than one line or a label
        std::vector<double> x, y;
    };
    struct Panel {
        std::string title;
        Axis x, y;
        std::vector<Line> lines;
        bool legend = true;  // off for a panel whose lines the panel above already names
    };

    explicit Chart(const std::string& title) : title(title) {}
    // The returned panel stays valid while panels are added.
    Panel& addPanel(const std::string& panelTitle, const Axis& x, const Axis& y);
    // Throws std::runtime_error when the file cannot be written.
    void writePng(const std::string& path, int width, int height) const;
    // The data behind the chart, one row per point: panel,line,x,y (texts quoted).
    void writeCsv(const std::string& path) const;
    // Frees what cairo and fontconfig keep for the whole process (fonts, caches); for the end
    // of a program, so that leak checkers see nothing left.
    static void releaseFontCaches();

private:
    std::string title;
    std::deque<Panel> panels;  // a deque: the references addPanel returns stay valid
};

} // namespace cli
} // namespace kelm
