#pragma once
// The AC response of the tone stack of examples/baxandall.xml from ngspice, stored in
// tests/data/baxandall (make_reference.py, at the knob positions the tests use): the
// independent reference for the circuit and for the tool's response plots.
#include <algorithm>
#include <complex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/TestUtil.h"

namespace kelm {
namespace test {

// A wiper as the engine reads it: in single precision, held within 0.001 and 0.999.
inline double clampWiper(double w) { return std::min(0.999, std::max(0.001, static_cast<double>(static_cast<float>(w)))); }

struct Point {
    double f;
    std::complex<double> h;
};

// ngspice's response at the knob positions (bass, treble); empty for a position not stored.
inline std::vector<Point> ngspiceResponse(double bass, double treble) {
    std::istringstream in(readText(sourcePath("tests/data/baxandall/reference.txt")));
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream head(line);
        std::string word;
        double b = -1, t = -1;
        size_t count = 0;
        if (!(head >> word >> b >> t >> count) || word != "response" || b != bass || t != treble) continue;
        std::vector<Point> points(count);
        double re, im;
        for (Point& p : points) in >> p.f >> re >> im, p.h = {re, im};
        if (in) return points;
    }
    ADD_FAILURE() << "no stored response for bass " << bass << ", treble " << treble;
    return {};
}

} // namespace test
} // namespace kelm
