#pragma once

namespace kelm {

// The most ports and forced outputs one nonlinear device may declare.
constexpr int maxDevicePorts = 6;
constexpr int maxForcedOutputs = 2;

// How a nonlinear device meets the circuit. Port p is the voltage of terminal plus[p]
// against terminal minus[p] (terminals are the device's nodes in document order, with any
// internal nodes it added after them; -1 stands for 0 V). The port's current enters the
// device at plus[p] and leaves it at minus[p]. A forced output imposes the voltage of
// terminal forced[f], a node that the device fixes (Component::isFixedVoltage), as a
// function of the port voltages.
struct PortLayout {
    int ports = 0;
    int plus[maxDevicePorts] = {};
    int minus[maxDevicePorts] = {};
    int forcedCount = 0;
    int forced[maxForcedOutputs] = {};

    // Appends a port and returns its number.
    int addPort(int plusTerminal, int minusTerminal) {
        plus[ports] = plusTerminal;
        minus[ports] = minusTerminal;
        return ports++;
    }
    int addForced(int terminal) {
        forced[forcedCount] = terminal;
        return forcedCount++;
    }
};

// How a linear component with memory (a capacitor's or inductor's companion model) meets
// the circuit: its states enter the right-hand side, and from one sample to the next they
// advance as a linear function of themselves and of values of the last solution:
//   rhs[entry e] += inject[e][j] state[j]
//   next state[j] = sum_l feedback[j][l] state[l] + sum_q gain[j][q] sense[q]
// where sense q is the solution's entry sensePlus[q] minus its entry senseMinus[q]
// (entries number the component's nodes, then its extra unknowns; -1 stands for 0).
struct MemoryModel {
    static constexpr int maxStates = 2;
    static constexpr int maxSenses = 4;
    static constexpr int maxEntries = 6;
    int states = 0;
    int senses = 0;
    int sensePlus[maxSenses] = {};
    int senseMinus[maxSenses] = {};
    double inject[maxEntries][maxStates] = {};
    double feedback[maxStates][maxStates] = {};
    double gain[maxStates][maxSenses] = {};
};

// A conductance between two terminals of a component whose value follows the last
// solution from sample to sample (a source's output impedance by table): its stamp is
// g at (a, a) and (b, b), -g at (a, b) and (b, a); the value depends on the voltage of
// terminal `sense` (-1 for 0 V) in the last solution.
struct SignalConductance {
    int a = 0, b = 1;
    int sense = 0;
};

} // namespace kelm
