#pragma once
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cli/Renderer.h"

namespace kelm {
namespace cli {

// `kelm plot response|curve|spectrum`: measures a system (one curve per value of a swept
// control) and draws the result as a PNG chart.
class Plot {
public:
    struct Request {
        std::string kind;    // "response", "curve" or "spectrum"
        std::string source;  // what is measured, for the title
        std::vector<std::pair<std::string, float>> sets;
        std::string sweepName;
        std::vector<float> sweepValues;
        std::string in;   // spectrum of this file instead of a sine through the system
        std::string out;  // the PNG
        std::string csv;  // the data behind the chart, when named
        int width = 1200, height = 800;
        double rate = 48000;  // Hz
        double level = 0;     // test signal amplitude; 0 takes the kind's default
    };
    // Makes a renderer of the system with no control set yet.
    typedef std::function<std::unique_ptr<Renderer>()> RendererFactory;

    static const char* const kKinds;  // the kinds, for messages
    static bool isKind(const std::string& kind);
    // Returns the exit code; throws std::runtime_error or KELMException on failure.
    static int run(const Request& request, const RendererFactory& make);
};

} // namespace cli
} // namespace kelm
