#pragma once
// The tone stack of examples/baxandall.xml as an ngspice netlist, and its AC response from
// ngspice: the independent reference for the circuit and for the tool's response plots.
#include <algorithm>
#include <complex>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/TestUtil.h"

namespace kelm {
namespace test {

inline double clampWiper(double w) { return std::min(0.999, std::max(0.001, static_cast<double>(static_cast<float>(w)))); }

// The same network as examples/baxandall.xml, with the op-amp as a gain of 1e9.
inline std::string netlist(double bass, double treble, const std::string& dataFile) {
    double b = clampWiper(bass), t = clampWiper(treble);
    std::ostringstream n;
    n.precision(12);
    n << "baxandall\nVin in 0 AC 1\nR31 in 1 11000\n"
      << "Rba 2 3 " << b * 1e5 << "\nRbb 3 1 " << (1 - b) * 1e5 << "\n"
      << "R32 2 out 11000\nC3 1 2 0.05u\nR7 3 4 11000\nC4 4 6 0.005u\nR51 in 5 3600\n"
      << "Rta 7 6 " << t * 5e5 << "\nRtb 6 5 " << (1 - t) * 5e5 << "\n"
      << "R52 7 out 3600\nEop out 0 0 4 1e9\n"
      << ".control\nset wr_singlescale\nac dec 60 10 100k\nwrdata " << dataFile << " v(out)\n.endc\n.end\n";
    return n.str();
}

struct Point {
    double f;
    std::complex<double> h;
};

inline std::vector<Point> ngspiceResponse(double bass, double treble) {
    std::string cir = tempPath("bax.cir"), data = tempPath("bax.txt");
    {
        std::ofstream f(cir);
        f << netlist(bass, treble, data);
    }
    // ngspice's batch mode exits with 1 after a .control block: the data file is what counts.
    auto r = run("ngspice -b " + cir);
    std::vector<Point> points;
    std::ifstream in(data);
    double f, re, im;
    while (in >> f >> re >> im) points.push_back({f, {re, im}});
    EXPECT_FALSE(points.empty()) << r.output;
    std::remove(cir.c_str());
    std::remove(data.c_str());
    return points;
}

} // namespace test
} // namespace kelm
