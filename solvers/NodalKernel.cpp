#include "solvers/NodalKernel.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "circuit/Component.h"
#include "math/ColumnSolve.h"
#include "math/SmallLoops.h"
#include "math/WideLU.h"

namespace kelm {

namespace {

// The most ports that the iteration with sizes at run time takes.
constexpr int maxPorts = 256;

// The most unknowns for which the kernel inverts A: beyond, a control's move would stall
// the audio thread for longer than a block.
constexpr int maxUnknowns = 600;

// y := M x for an r x c row-major M.
inline void product(const double* M, int r, int c, const double* x, double* y) {
    for (int i = 0; i < r; ++i) {
        const double* row = M + static_cast<size_t>(i) * c;
        double sum = 0;
        for (int j = 0; j < c; ++j) sum += row[j] * x[j];
        y[i] = sum;
    }
}

} // namespace

NodalKernel::NodalKernel(MNAContext& c, const IterationSettings& s) : context(c), settings(s) {}

NodalKernel::~NodalKernel() = default;

std::unique_ptr<NodalKernel> NodalKernel::make(MNAContext& context, const IterationSettings& settings, int inputs,
                                               int outputs, std::string& reason) {
    std::unique_ptr<NodalKernel> kernel(new NodalKernel(context, settings));
    if (!kernel->classify(inputs, outputs, reason)) return nullptr;
    kernel->allocate();
    if (!kernel->refresh()) {
        reason = "its matrix is singular";
        return nullptr;
    }
    return kernel;
}

int NodalKernel::memoryTerms(size_t c, const MemoryModel& model, int j, Term* out) const {
    int count = 0;
    auto add = [&](int entry, double coefficient) {
        const int index = context.unknownRow(c, entry);
        if (index < 0 || coefficient == 0) return;
        for (int t = 0; t < count; ++t)
            if (out[t].index == index) {
                out[t].coefficient += coefficient;
                return;
            }
        out[count++] = {index, coefficient};
    };
    for (int q = 0; q < model.senses; ++q) {
        add(model.sensePlus[q], model.gain[j][q]);
        add(model.senseMinus[q], -model.gain[j][q]);
    }
    return count;
}

bool NodalKernel::classify(int inputs, int outputs, std::string& reason) {
    if (context.getAnalysisType() != AnalysisType::AC || !context.isInitialized()) {
        reason = "a DC analysis solves each sample on its own";
        return false;
    }
    if (!context.rhsSplits()) {
        reason = "two components fix the same node";
        return false;
    }
    n = context.size();
    if (n > maxUnknowns) {
        reason = "it has " + std::to_string(n) + " unknowns, more than the kernels invert";
        return false;
    }
    const int m = context.solvedCount();
    const auto& components = context.getComponents();
    std::vector<std::vector<Term>> portRows, stateRows, signalRows;
    // Device outputs: the port currents' columns and the forced outputs' columns of the rhs.
    std::vector<std::vector<std::pair<int, double>>> currentColumns, forcedColumns;
    auto difference = [](int plus, int minus) {
        std::vector<Term> row;
        if (plus >= 0) row.push_back({plus, 1.0});
        if (minus >= 0) row.push_back({minus, -1.0});
        return row;
    };
    for (size_t i = 0; i < components.size(); ++i) {
        Component* c = components[i];
        const std::string named = c->name();
        if (const PortLayout* layout = c->portLayout()) {
            Device d{c, P, layout->ports, F, layout->forcedCount, 0, c->hasPortMemory()};
            for (int p = 0; p < layout->ports; ++p) {
                portRows.push_back(difference(context.unknownRow(i, layout->plus[p]), context.unknownRow(i, layout->minus[p])));
                std::vector<std::pair<int, double>> column;
                const int ra = context.rhsRow(i, layout->plus[p]), rb = context.rhsRow(i, layout->minus[p]);
                if (ra >= 0) column.emplace_back(ra, -1.0);
                if (rb >= 0) column.emplace_back(rb, 1.0);
                currentColumns.push_back(column);
            }
            for (int f = 0; f < layout->forcedCount; ++f) {
                const int row = context.rhsRow(i, layout->forced[f]);
                if (row < m) {
                    reason = "device " + named + " imposes a node that it does not fix";
                    return false;
                }
                forcedColumns.push_back({{row, 1.0}});
            }
            P += layout->ports;
            F += layout->forcedCount;
            devices.push_back(d);
            continue;
        }
        MemoryModel model;
        if (c->describeMemory(model)) {
            for (int j = 0; j < model.states; ++j)
                for (int l = 0; l < model.states; ++l)
                    if (l != j && model.feedback[j][l] != 0) {
                        reason = named + "'s states feed one another";
                        return false;
                    }
            memories.push_back({c, i, S, model.states});
            for (int j = 0; j < model.states; ++j) {
                Term row[2 * MemoryModel::maxSenses];
                stateRows.emplace_back(row, row + memoryTerms(i, model, j, row));
                feedback.push_back(model.feedback[j][j]);
            }
            S += model.states;
            continue;
        }
        if (c->hasSignalDependentStamps()) {
            SignalConductance sc;
            if (!c->describeSignalConductance(sc) || c->hasRhs()) {
                reason = named + "'s stamps follow the signal in a way the kernels do not know";
                return false;
            }
            auto solved = [m](int row) { return row >= 0 && row < m ? row : -1; };
            const int a = context.unknownRow(i, sc.a), b = context.unknownRow(i, sc.b);
            signals.push_back({c, static_cast<int>(signalRows.size()), solved(a), solved(b), a, b, 0.0});
            signalRows.push_back(difference(context.unknownRow(i, sc.sense), -1));
            continue;
        }
        if (c->hasRhs() || c->isNonlinear()) {
            if (c->rhsAffineInInputs() && !c->isNonlinear()) {
                sources.push_back(i);
                continue;
            }
            reason = named + (c->isNonlinear() ? " is nonlinear and has no ports" : " reads the solution in its rhs");
            return false;
        }
    }
    if (P > maxPorts) {
        reason = "its devices have " + std::to_string(P) + " ports, more than the port form takes";
        return false;
    }
    K = inputs;
    if (K > 0 && (!context.inputs() || static_cast<int>(context.inputs()->size()) < K)) {
        reason = "its inputs are not set up";
        return false;
    }
    O = std::min<int>(outputs, static_cast<int>(context.outputIndex().size()));
    Q = P + F;
    G = static_cast<int>(signals.size());
    Z = S + K + 1;
    // Rows: the ports first (the iteration reads them as v), then what each state senses
    // (row P + j for state j), then what the conductances sense, then the outputs.
    auto append = [this](const std::vector<Term>& row) {
        rows.push_back({static_cast<int>(terms.size()), static_cast<int>(row.size())});
        terms.insert(terms.end(), row.begin(), row.end());
    };
    for (auto& row : portRows) append(row);
    for (auto& row : stateRows) append(row);
    for (Signal& sg : signals) sg.senseRow += P + S;
    for (auto& row : signalRows) append(row);
    for (int o = 0; o < O; ++o) {
        outputRows.push_back(static_cast<int>(rows.size()));
        append(difference(context.outputIndex()[o], -1));
    }
    R = static_cast<int>(rows.size());
    // The devices' columns, currents first, then forced outputs; their derivative blocks.
    colsY.assign(static_cast<size_t>(Q) * n, 0.0);
    for (int q = 0; q < P; ++q)
        for (auto& e : currentColumns[q]) colsY[static_cast<size_t>(q) * n + e.first] += e.second;
    for (int f = 0; f < F; ++f)
        for (auto& e : forcedColumns[f]) colsY[static_cast<size_t>(P + f) * n + e.first] += e.second;
    int block = 0;
    for (Device& d : devices) {
        d.block = block;
        // Where each of the device's derivatives goes: output q (its currents, then its forced
        // outputs) by port c.
        for (int a = 0; a < d.ports + d.outputs; ++a)
            for (int b = 0; b < d.ports; ++b)
                slopes.push_back({a < d.ports ? d.port + a : P + d.forced + (a - d.ports), d.port + b, block + a * d.ports + b});
        block += d.ports * d.ports + d.outputs * d.ports;
    }
    jacobians.assign(block, 0.0);
    keptJacobians.assign(block, 0.0);
    soleDevice = devices.size() == 1 && F == 0 && devices[0].ports == P;
    return true;
}

void NodalKernel::allocate() {
    A.assign(static_cast<size_t>(n) * n, 0.0);
    pivots.assign(n, 0);
    colsZ.assign(static_cast<size_t>(Z) * n, 0.0);
    H0.assign(static_cast<size_t>(R) * n, 0.0);
    VA.assign(static_cast<size_t>(G) * n, 0.0);
    AinvU.assign(static_cast<size_t>(G) * n, 0.0);
    Hz.assign(static_cast<size_t>(R) * Z, 0.0);
    Hy.assign(static_cast<size_t>(R) * Q, 0.0);
    Hg.assign(static_cast<size_t>(R) * G, 0.0);
    Vz.assign(static_cast<size_t>(G) * Z, 0.0);
    Vy.assign(static_cast<size_t>(G) * Q, 0.0);
    W.assign(static_cast<size_t>(G) * G, 0.0);
    s.assign(S, 0.0);
    z.assign(Z, 0.0);
    z[Z - 1] = 1.0;
    base.assign(R, 0.0);
    now.assign(R, 0.0);
    previous.assign(R, 0.0);
    w.assign(K, 0.0);
    v.assign(P, 0.0);
    vEval.assign(P, 0.0);
    y.assign(Q, 0.0);
    yLin.assign(Q, 0.0);
    J.assign(static_cast<size_t>(P) * P, 0.0);
    step.assign(P, 0.0);
    stepPivots.assign(std::max(P, G), 0);
    Kc.assign(static_cast<size_t>(P) * Q, 0.0);
    M.assign(static_cast<size_t>(G) * G, 0.0);
    cz.assign(G, 0.0);
    cy.assign(G, 0.0);
    gScratch.assign(static_cast<size_t>(G) * G, 0.0);
    vm1.assign(P, 0.0);
    vm2.assign(P, 0.0);
    predicted.assign(P, 0.0);
    scratch.assign(n, 0.0);
    writtenX.assign(n, 0.0f);
    writtenStates.assign(S, 0.0);
}

bool NodalKernel::refresh() {
    built = false;
    ++refreshes;
    factorsKept = false;
    // The states' columns, updates and sensed rows: a capacitance or the sample rate may
    // have changed them.
    std::fill(colsZ.begin(), colsZ.begin() + static_cast<size_t>(S) * n, 0.0);
    for (const Memory& mem : memories) {
        MemoryModel model;
        mem.component->describeMemory(model);
        for (int j = 0; j < mem.states; ++j) {
            feedback[mem.state + j] = model.feedback[j][j];
            double* column = colsZ.data() + static_cast<size_t>(mem.state + j) * n;
            for (int e = 0; e < MemoryModel::maxEntries; ++e) {
                if (model.inject[e][j] == 0) continue;
                const int row = context.rhsRow(mem.index, e);
                if (row >= 0) column[row] += model.inject[e][j];
            }
            const Row& row = rows[P + mem.state + j];
            Term updated[2 * MemoryModel::maxSenses];
            const int count = memoryTerms(mem.index, model, j, updated);
            // The same unknowns as when the rows were laid out: only the gains change.
            for (int t = 0; t < row.count && t < count; ++t) terms[row.first + t] = updated[t];
        }
    }
    // A as assembled column by column is A^T row by row: its LU solves A^T h = e_r for the
    // rows of A^-1, and A x = b by the transposed solve.
    context.assembleMatrix(A.data(), false);
    if (!WideLU::factor(A.data(), n, pivots.data())) return false;
    for (int r = 0; r < R; ++r) {
        double* h = H0.data() + static_cast<size_t>(r) * n;
        std::fill(h, h + n, 0.0);
        for (int k = rows[r].first; k < rows[r].first + rows[r].count; ++k) h[terms[k].index] += terms[k].coefficient;
        WideLU::solve(A.data(), n, pivots.data(), h);
    }
    for (int j = 0; j < G; ++j) {
        const Signal& sg = signals[j];
        double* h = VA.data() + static_cast<size_t>(j) * n;
        std::fill(h, h + n, 0.0);
        if (sg.colA >= 0) h[sg.colA] += 1.0;
        if (sg.colB >= 0) h[sg.colB] -= 1.0;
        WideLU::solve(A.data(), n, pivots.data(), h);
        double* u = AinvU.data() + static_cast<size_t>(j) * n;
        std::fill(u, u + n, 0.0);
        if (sg.rowA >= 0) u[sg.rowA] += 1.0;
        if (sg.rowB >= 0) u[sg.rowB] -= 1.0;
        WideLU::solveTransposed(A.data(), n, pivots.data(), u);
    }
    // The products that do not depend on the sources.
    auto dotColumn = [this](const double* row, const double* column) {
        double sum = 0;
        for (int k = 0; k < n; ++k) sum += row[k] * column[k];
        return sum;
    };
    auto patternDot = [](const double* row, int a, int b) {
        return (a >= 0 ? row[a] : 0.0) - (b >= 0 ? row[b] : 0.0);
    };
    for (int r = 0; r < R; ++r) {
        const double* h = H0.data() + static_cast<size_t>(r) * n;
        for (int j = 0; j < S; ++j) Hz[static_cast<size_t>(j) * R + r] = dotColumn(h, colsZ.data() + static_cast<size_t>(j) * n);
        for (int q = 0; q < Q; ++q) Hy[static_cast<size_t>(q) * R + r] = dotColumn(h, colsY.data() + static_cast<size_t>(q) * n);
        for (int j = 0; j < G; ++j) Hg[static_cast<size_t>(j) * R + r] = patternDot(h, signals[j].rowA, signals[j].rowB);
    }
    for (int i = 0; i < G; ++i) {
        const double* h = VA.data() + static_cast<size_t>(i) * n;
        for (int j = 0; j < S; ++j) Vz[static_cast<size_t>(i) * Z + j] = dotColumn(h, colsZ.data() + static_cast<size_t>(j) * n);
        for (int q = 0; q < Q; ++q) Vy[static_cast<size_t>(i) * Q + q] = dotColumn(h, colsY.data() + static_cast<size_t>(q) * n);
        for (int j = 0; j < G; ++j) W[static_cast<size_t>(i) * G + j] = patternDot(h, signals[j].rowA, signals[j].rowB);
    }
    built = true;
    updateConductanceTerms();
    return true;
}

void NodalKernel::updateConductanceTerms() {
    // K, the port rows of Hy, less the conductances' part: Hg M Vy with
    // M = D (I + W D)^-1, D the conductances on the diagonal. (Column by column.)
    for (int q = 0; q < Q; ++q)
        for (int p = 0; p < P; ++p) Kc[static_cast<size_t>(q) * P + p] = Hy[static_cast<size_t>(q) * R + p];
    if (G == 0) return;
    if (G == 1) {
        const double g = signals[0].value;
        M[0] = g / (1.0 + W[0] * g);
    } else {
        // (I + W D) M = D, column by column.
        for (int i = 0; i < G; ++i)
            for (int j = 0; j < G; ++j)
                gScratch[static_cast<size_t>(i) * G + j] = (i == j ? 1.0 : 0.0) + W[static_cast<size_t>(i) * G + j] * signals[j].value;
        if (!WideLU::factor(gScratch.data(), G, stepPivots.data())) {
            std::fill(M.begin(), M.end(), 0.0);
        } else {
            for (int j = 0; j < G; ++j) {
                for (int i = 0; i < G; ++i) cz[i] = i == j ? signals[j].value : 0.0;
                WideLU::solve(gScratch.data(), G, stepPivots.data(), cz.data());
                for (int i = 0; i < G; ++i) M[static_cast<size_t>(i) * G + j] = cz[i];
            }
        }
    }
    for (int p = 0; p < P; ++p)
        for (int i = 0; i < G; ++i) {
            double hm = 0;
            for (int j = 0; j < G; ++j) hm += Hg[static_cast<size_t>(j) * R + p] * M[static_cast<size_t>(j) * G + i];
            if (hm == 0) continue;
            for (int q = 0; q < Q; ++q) Kc[static_cast<size_t>(q) * P + p] -= hm * Vy[static_cast<size_t>(i) * Q + q];
        }
}

void NodalKernel::probeSources(const double* inputValues, double* rhs) {
    std::fill(rhs, rhs + n, 0.0);
    if (K > 0) {
        ScalarVector& in = *context.inputs();
        for (int k = 0; k < K; ++k) in[k] = static_cast<scalar>(inputValues[k]);
    }
    scalar* x = context.solution().data();
    const auto& components = context.getComponents();
    for (size_t i : sources) {
        const scalar* r = components[i]->getRhs(x);
        if (!r) continue;
        const int entries = static_cast<int>(components[i]->getNodes()->size()) +
                            components[i]->getNumberOfExtraVariables();
        for (int e = 0; e < entries; ++e) {
            const int row = context.rhsRow(i, e);
            if (row >= 0) rhs[row] += r[e];
        }
    }
}

void NodalKernel::beginBlock() {
    // The sources' part, per block: a DC offset or a battery's voltage may have changed.
    double* constant = colsZ.data() + static_cast<size_t>(Z - 1) * n;
    std::fill(w.begin(), w.end(), 0.0);
    probeSources(w.data(), constant);
    for (int k = 0; k < K; ++k) {
        double* column = colsZ.data() + static_cast<size_t>(S + k) * n;
        w[k] = 1.0;
        probeSources(w.data(), column);
        w[k] = 0.0;
        for (int r = 0; r < n; ++r) column[r] -= constant[r];
    }
    for (int j = S; j < Z; ++j) {
        const double* column = colsZ.data() + static_cast<size_t>(j) * n;
        for (int r = 0; r < R; ++r) {
            const double* h = H0.data() + static_cast<size_t>(r) * n;
            double sum = 0;
            for (int k = 0; k < n; ++k) sum += h[k] * column[k];
            Hz[static_cast<size_t>(j) * R + r] = sum;
        }
        for (int i = 0; i < G; ++i) {
            const double* h = VA.data() + static_cast<size_t>(i) * n;
            double sum = 0;
            for (int k = 0; k < n; ++k) sum += h[k] * column[k];
            Vz[static_cast<size_t>(i) * Z + j] = sum;
        }
    }
    // Whether someone else moved the circuit on since this kernel's last block.
    if (stateValid) {
        const DenseVector& x = context.solution();
        bool same = std::memcmp(x.data(), writtenX.data(), sizeof(scalar) * n) == 0;
        double state[MemoryModel::maxStates];
        for (const Memory& mem : memories) {
            if (!same) break;
            mem.component->readMemory(state);
            for (int j = 0; j < mem.states; ++j) same = same && state[j] == writtenStates[mem.state + j];
        }
        stateValid = same;
    }
    if (!stateValid) loadState();
}

double NodalKernel::rowOf(const scalar* x, int r) const {
    double sum = 0;
    for (int k = rows[r].first; k < rows[r].first + rows[r].count; ++k)
        sum += terms[k].coefficient * static_cast<double>(x[terms[k].index]);
    return sum;
}

void NodalKernel::loadState() {
    const scalar* x = context.solution().data();
    for (int r = 0; r < R; ++r) previous[r] = rowOf(x, r);
    for (const Memory& mem : memories) mem.component->readMemory(s.data() + mem.state);
    std::copy(s.begin(), s.end(), z.begin());
    for (int p = 0; p < P; ++p) vm1[p] = vm2[p] = predicted[p] = previous[p];
    for (int q = 0; q < Q; ++q) yLin[q] = 0;
    stateValid = true;
    factorsKept = false;
}

void NodalKernel::endBlock() {
    for (const Memory& mem : memories) {
        mem.component->writeMemory(s.data() + mem.state);
        for (int j = 0; j < mem.states; ++j) writtenStates[mem.state + j] = s[mem.state + j];
    }
    // x of the last sample, as the general iteration would leave it.
    std::fill(scratch.begin(), scratch.end(), 0.0);
    for (int j = 0; j < Z; ++j) {
        const double* column = colsZ.data() + static_cast<size_t>(j) * n;
        if (z[j] != 0)
            for (int r = 0; r < n; ++r) scratch[r] += column[r] * z[j];
    }
    for (int q = 0; q < Q; ++q) {
        const double* column = colsY.data() + static_cast<size_t>(q) * n;
        if (yLin[q] != 0)
            for (int r = 0; r < n; ++r) scratch[r] += column[r] * yLin[q];
    }
    WideLU::solveTransposed(A.data(), n, pivots.data(), scratch.data());
    if (G > 0) {
        for (int i = 0; i < G; ++i) {
            const Signal& sg = signals[i];
            cz[i] = (sg.colA >= 0 ? scratch[sg.colA] : 0.0) - (sg.colB >= 0 ? scratch[sg.colB] : 0.0);
        }
        for (int j = 0; j < G; ++j) {
            double c = 0;
            for (int i = 0; i < G; ++i) c += M[static_cast<size_t>(j) * G + i] * cz[i];
            const double* u = AinvU.data() + static_cast<size_t>(j) * n;
            for (int r = 0; r < n; ++r) scratch[r] -= u[r] * c;
        }
    }
    DenseVector& x = context.solution();
    for (int r = 0; r < n; ++r) x[r] = writtenX[r] = static_cast<scalar>(scratch[r]);
    if (K > 0) {
        ScalarVector& in = *context.inputs();
        for (int k = 0; k < K; ++k) in[k] = static_cast<scalar>(w[k]);
    }
}

template <int PS>
inline bool NodalKernel::takeStepSized(const double* __restrict ve, double* __restrict dv, double* __restrict vv,
                                       int ports, double& lastStep) const {
    // Converged when every port moved by no more than its tolerance. Newton's steps shrink
    // at least as fast as their ratio from one to the next once they converge, so a step
    // whose successor is sure to be within half the tolerance ends the iteration one
    // evaluation early. No division unless the plain test fails.
    const int count = PS > 0 ? PS : ports;
    const double rel = settings.relativeTolerance, abs = settings.absoluteTolerance, share = settings.relaxation;
    double tolerance[PS > 0 ? PS : maxPorts];
    bool within = true;
    double largest = 0;
    KELM_UNROLL
    for (int p = 0; p < count; ++p) {
        const double step = std::fabs(dv[p]);
        tolerance[p] = rel * std::fabs(ve[p] - dv[p]) + abs;
        within = within && !(step > tolerance[p]);
        largest = std::max(largest, step);
        dv[p] *= share;
        vv[p] = ve[p] - dv[p];
    }
    const double before = lastStep;
    lastStep = largest;
    if (within) return true;
    if (!(before > 0)) return false;
    const double rate = largest / before;
    if (!(rate < 0.5)) return false;
    bool next = true;
    KELM_UNROLL
    for (int p = 0; p < count; ++p) next = next && !(std::fabs(dv[p]) * rate > 0.5 * tolerance[p]);
    return next;
}

bool NodalKernel::slopesNear(const double* blocks, double share) const {
    bool near = true;
    for (const Slope& s : slopes) {
        const double kept = keptJacobians[s.at];
        near = near && std::fabs(blocks[s.at] - kept) <= share * std::fabs(kept);
    }
    return near;
}

template <int PS>
inline bool NodalKernel::firstStepEnds(const double* __restrict vv, const double* __restrict dv, int ports,
                                       double rate, double quadratic, bool& near) const {
    // A sample's first step has no step before it to measure its successor by. Within a few
    // times each port's tolerance (kFirstStepReach), its successor's ratio to it is taken as
    // rate + quadratic times its length, as the samples before measured it (not a number:
    // not known), and the test is the one above.
    const int count = PS > 0 ? PS : ports;
    const double rel = settings.relativeTolerance, abs = settings.absoluteTolerance;
    double largest = 0;
    near = true;
    KELM_UNROLL
    for (int p = 0; p < count; ++p) {
        const double step = std::fabs(dv[p]);
        near = near && !(step > kFirstStepReach * (rel * std::fabs(vv[p]) + abs));
        largest = std::max(largest, step);
    }
    rate += quadratic * largest;
    if (!near || !(rate < 0.5)) return false;
    bool next = true;
    KELM_UNROLL
    for (int p = 0; p < count; ++p) next = next && !(std::fabs(dv[p]) * rate > 0.5 * (rel * std::fabs(vv[p]) + abs));
    return next;
}

template <int PS>
void NodalKernel::predictPorts(const double* __restrict last, double* __restrict start, int ports) {
    // The last solution, or the prediction from the last two (three).
    const int count = PS > 0 ? PS : ports;
    if (!settings.accelerate) {
        KELM_UNROLL
        for (int p = 0; p < count; ++p) start[p] = last[p];
        return;
    }
    double* __restrict m1 = vm1.data();
    double* __restrict m2 = vm2.data();
    double* __restrict pr = predicted.data();
    const double ecf = settings.errorCorrection;
    if (settings.extrapolationOrder == 1) {
        KELM_UNROLL
        for (int p = 0; p < count; ++p) {
            const double x = last[p];
            const double s = 2 * x - m1[p] + ecf * (x - pr[p]);
            pr[p] = s;
            m1[p] = x;
            start[p] = s;
        }
        return;
    }
    KELM_UNROLL
    for (int p = 0; p < count; ++p) {
        const double x = last[p];
        const double s = 2.5 * x - 2 * m1[p] + 0.5 * m2[p] + ecf * (x - pr[p]);
        m2[p] = m1[p];
        pr[p] = s;
        m1[p] = x;
        start[p] = s;
    }
}

void NodalKernel::iterate(const double* base, const double* last, const double* Kp) {
    iterateSized<0, 0>(base, last, Kp);
}

template <int PS, int QS>
void NodalKernel::iterateSized(const double* base, const double* last, const double* Kp) {
    // Newton's iteration on the stacked port voltages v: the devices give their outputs y
    // (port currents, forced voltages) and dy/dv; the circuit says v = base + K y. Each step
    // solves (I - K dy/dv) dv = v - base - K y. K and J are kept by columns, so that every
    // product is a sum of columns (vectorisable, no reductions in a fixed order). With PS and
    // QS above 0 the sizes are known to the compiler.
    constexpr bool sized = PS > 0;
    // From four ports on, the factors of J are kept for the next sample's first step.
    constexpr bool chordable = PS >= 4 && PS <= maxKeptPorts;
    const int Pn = sized ? PS : P, Qn = sized ? QS : Q;
    double kLocal[sized && PS <= 4 ? PS * QS : 1], vLocal[sized ? PS : 1], eLocal[sized ? PS : 1], yLocal[sized ? QS : 1];
    double jLocal[sized ? PS * PS : 1], rLocal[sized ? PS : 1];
    const double* __restrict kk = Kp;
    double* __restrict vv = v.data();
    double* __restrict ve = vEval.data();
    double* __restrict yy = y.data();
    double* __restrict jj = J.data();
    double* __restrict r = step.data();
    if constexpr (sized) {
        // Up to four ports, K is copied to the function's own array; above, the copy costs
        // more than it saves.
        if constexpr (PS <= 4) {
            std::copy(Kp, Kp + PS * QS, kLocal);
            kk = kLocal;
        }
        vv = vLocal;
        ve = eLocal;
        yy = yLocal;
        jj = jLocal;
        r = rLocal;
    }
    double* __restrict yl = yLin.data();
    double* __restrict blocks = jacobians.data();
    const Device* deviceList = devices.data();
    const int deviceCount = static_cast<int>(devices.size());
    const Slope* slopeList = slopes.data();
    const Slope* slopeEnd = slopeList + slopes.size();
    predictPorts<PS>(last, vv, Pn);
    const int most = settings.maxIterations;
    int k = 0;
    double lastStep = 0;
    bool chordFirst = false;  // the sample's first step was a chord step
    bool firstNear = false;   // and within kFirstStepReach tolerances
    const bool full = settings.relaxation == 1.0;
    double chordEstimate = chordRate, newtonEstimate = newtonConstant;
    for (;;) {
        ++k;
        KELM_UNROLL
        for (int p = 0; p < Pn; ++p) ve[p] = vv[p];
        for (int e = 0; e < deviceCount; ++e) {
            const Device& d = deviceList[e];
            double* di = blocks + d.block;
            d.component->evaluatePorts(ve + d.port, yy + d.port, di, yy + Pn + d.forced, di + d.ports * d.ports);
        }
        // The residual v - base - K y, and J = I - K dy/dv from the devices' blocks.
        KELM_UNROLL
        for (int p = 0; p < Pn; ++p) r[p] = ve[p] - base[p];
        KELM_UNROLL
        for (int q = 0; q < Qn; ++q) subtractColumn<PS>(r, kk + q * Pn, yy[q], Pn);
        bool solved = true;
        if (k == 1) chordFirst = false;
        if (chordable && k == 1 && factorsKept && slopesNear(blocks, kChordSlopeChange)) {
            chordFirst = true;
            // The sample's first step on the last factors of J (a chord step), while every
            // device's slopes lie near those the factors were made with: its error is then
            // a small share of its step. Where it does not converge, the next step is Newton's.
            if constexpr (PS == 4)
                multiply4(keptFactors.data(), r);
            else if constexpr (chordable)
                solveFactored<PS>(keptFactors.data(), keptOrder.data(), r);
        } else {
            KELM_UNROLL
            for (int c = 0; c < Pn * Pn; ++c) jj[c] = 0.0;
            KELM_UNROLL
            for (int c = 0; c < Pn; ++c) jj[c * Pn + c] = 1.0;
            if (sized && soleDevice) {
                // One device on every port, its block output by port: no list to follow.
                KELM_UNROLL
                for (int b = 0; b < Pn; ++b)
                    KELM_UNROLL
                    for (int a = 0; a < Pn; ++a) subtractColumn<PS>(jj + b * Pn, kk + a * Pn, blocks[a * Pn + b], Pn);
            } else {
                for (const Slope* s = slopeList; s != slopeEnd; ++s) subtractColumn<PS>(jj + s->port * Pn, kk + s->output * Pn, blocks[s->at], Pn);
            }
            if (Pn == 1) {
                solved = std::fabs(jj[0]) > 0 && std::isfinite(jj[0]);
                r[0] /= jj[0];
            } else if (Pn == 2) {
                // By columns: J = [j0 j2; j1 j3]. Two divisions side by side finish sooner than a
                // reciprocal and its products.
                const double det = jj[0] * jj[3] - jj[2] * jj[1];
                solved = std::fabs(det) > 0 && std::isfinite(det);
                const double d0 = (jj[3] * r[0] - jj[2] * r[1]) / det;
                const double d1 = (jj[0] * r[1] - jj[1] * r[0]) / det;
                r[0] = d0;
                r[1] = d1;
            } else if (Pn == 3) {
                // By cofactors, J by columns: [j0 j3 j6; j1 j4 j7; j2 j5 j8]. No pivots to search,
                // and the three divisions side by side.
                const double c0 = jj[4] * jj[8] - jj[7] * jj[5], c1 = jj[7] * jj[2] - jj[1] * jj[8],
                             c2 = jj[1] * jj[5] - jj[4] * jj[2];
                const double det = jj[0] * c0 + jj[3] * c1 + jj[6] * c2;
                solved = std::fabs(det) > 0 && std::isfinite(det);
                const double d0 = (c0 * r[0] + (jj[6] * jj[5] - jj[3] * jj[8]) * r[1] + (jj[3] * jj[7] - jj[6] * jj[4]) * r[2]) / det;
                const double d1 = (c1 * r[0] + (jj[0] * jj[8] - jj[6] * jj[2]) * r[1] + (jj[6] * jj[1] - jj[0] * jj[7]) * r[2]) / det;
                const double d2 = (c2 * r[0] + (jj[3] * jj[2] - jj[0] * jj[5]) * r[1] + (jj[0] * jj[4] - jj[3] * jj[1]) * r[2]) / det;
                r[0] = d0;
                r[1] = d1;
                r[2] = d2;
            } else if constexpr (chordable) {
                if constexpr (PS == 4) {
                    // Four ports: the inverse itself is kept (a chord step is a product).
                    solved = invert4(jj, keptFactors.data());
                    if (solved) multiply4(keptFactors.data(), r);
                } else {
                    solved = solveColumns<PS>(jj, Pn, r, keptOrder.data());
                    std::copy(jj, jj + PS * PS, keptFactors.data());
                }
                // With the slopes they were made from, for the next sample's first step.
                for (const Slope* s = slopeList; s != slopeEnd; ++s) keptJacobians[s->at] = blocks[s->at];
                factorsKept = solved;
                ++factored;
            } else {
                solved = solveColumns<PS>(jj, Pn, r);
            }
        }
        bool finite = solved;
        KELM_UNROLL
        for (int p = 0; p < Pn; ++p) finite = finite && std::isfinite(r[p]);
        if (!finite) {
            // No step from here: the evaluated point stands (never a NaN into the circuit).
            KELM_UNROLL
            for (int q = 0; q < Qn; ++q) yl[q] = yy[q];
            KELM_UNROLL
            for (int p = 0; p < Pn; ++p) vv[p] = ve[p];
            break;
        }
        const double before = lastStep;
        bool done = takeStepSized<PS>(ve, r, vv, Pn, lastStep);
        // A first step ends the sample early only where the steps after first steps have
        // been measured, and only at full steps.
        if (k == 1 && !done && full)
            done = firstStepEnds<PS>(vv, r, Pn, chordFirst ? chordEstimate : 0.0, chordFirst ? 0.0 : newtonEstimate,
                                     firstNear);
        if (k == 2 && firstNear) {
            // What a first step near the solution left: a chord step's error shrinks by a
            // ratio, Newton's by a constant times its square. Each estimate takes the larger of
            // what it was (a little less) and what this sample shows.
            double& estimate = chordFirst ? chordEstimate : newtonEstimate;
            const double seen = chordFirst ? lastStep / before : lastStep / (before * before);
            if (std::isfinite(seen)) estimate = std::isnan(estimate) ? seen : std::max(seen, 0.99 * estimate);
        }
        // The devices' outputs carried linearly to the new point: with them, the rows of
        // the circuit agree with the new port voltages.
        KELM_UNROLL
        for (int q = 0; q < Qn; ++q) yl[q] = yy[q];
        if (sized && soleDevice) {
            KELM_UNROLL
            for (int a = 0; a < Pn; ++a)
                KELM_UNROLL
                for (int b = 0; b < Pn; ++b) yl[a] -= blocks[a * Pn + b] * r[b];
        } else {
            for (const Slope* s = slopeList; s != slopeEnd; ++s) yl[s->output] -= blocks[s->at] * r[s->port];
        }
        if (done || k >= most) break;
    }
    if constexpr (sized) std::copy(vv, vv + PS, v.data());
    chordRate = chordEstimate;
    newtonConstant = newtonEstimate;
    ++solves;
    iterations += k;
    capped += k >= most;
}

template <int RS, int ZS>
void NodalKernel::runSamples(BufferList& inputs, BufferList& outputs, size_t frames) {
    // Per sample: the states, the inputs, the rows' part from them (base), the port
    // iteration, the rows with the devices' outputs. Coefficients by columns, so that each
    // product is a sum of columns over all rows (vectorisable); with RS and ZS above 0 the
    // numbers of rows and of z's entries are known to the compiler, and the coefficients
    // and the rows live in the function's own arrays.
    constexpr bool sized = RS > 0;
    const int Rn = sized ? RS : R, Zn = sized ? ZS : Z;
    const int Sn = S, Kn = K, Pn = P, Qn = Q, Gn = G, On = O;
    double hzLocal[sized ? RS * ZS : 1];
    double lastLocal[sized ? RS : 1], nowLocal[sized ? RS : 1], zLocal[sized ? ZS : 1], baseLocal[sized ? RS : 1];
    const double* __restrict hz = Hz.data();
    double* __restrict last = previous.data();
    double* __restrict cur = now.data();
    double* __restrict zz = z.data();
    double* __restrict bs = base.data();
    if constexpr (sized) {
        std::copy(Hz.begin(), Hz.begin() + RS * ZS, hzLocal);
        std::copy(previous.begin(), previous.begin() + RS, lastLocal);
        std::copy(z.begin(), z.begin() + ZS, zLocal);
        hz = hzLocal;
        last = lastLocal;
        cur = nowLocal;
        zz = zLocal;
        bs = baseLocal;
    }
    const double* __restrict fb = feedback.data();
    const double* __restrict hy = Hy.data();
    const double* __restrict hg = Hg.data();
    const double* __restrict yl = yLin.data();
    double corrections[8];
    for (size_t i = 0; i < frames; ++i) {
        // The reactive elements' states from the last sample's solution, then this sample's
        // inputs: z.
        for (int j = 0; j < Sn; ++j) zz[j] = fb[j] * zz[j] + last[Pn + j];
        for (int k = 0; k < Kn; ++k) {
            // Never a NaN or an infinity into the circuit: such an input counts as 0 V.
            const double value = inputs[k] ? inputs[k][i] : 0.0;
            zz[Sn + k] = std::isfinite(value) ? value : 0.0;
        }
        for (const Device& d : devices)
            if (d.memory) d.component->acceptPorts(last + d.port);
        if (Gn > 0) {
            bool changed = false;
            for (Signal& sg : signals) {
                const double g = sg.component->updateSignalConductance(last[sg.senseRow]);
                changed = changed || g != sg.value;
                sg.value = g;
            }
            if (changed) {
                if (Gn == 1) {
                    // One conductance: M is a number, and K follows by one product per entry.
                    const double g = signals[0].value;
                    const double m = g / (1.0 + W[0] * g);
                    M[0] = m;
                    const double* vy = Vy.data();
                    double* kc = Kc.data();
                    for (int q = 0; q < Qn; ++q)
                        for (int p = 0; p < Pn; ++p) kc[q * Pn + p] = hy[q * Rn + p] - hg[p] * m * vy[q];
                } else {
                    updateConductanceTerms();
                }
            }
        }
        // The inputs' and the constant's part first: the states' part ends the chain that
        // runs from sample to sample.
        {
            const double* constant = hz + (Zn - 1) * Rn;
            KELM_UNROLL
            for (int r = 0; r < Rn; ++r) bs[r] = constant[r];
        }
        for (int j = Sn; j < Zn - 1; ++j) subtractColumn<RS>(bs, hz + j * Rn, -zz[j], Rn);
        for (int j = 0; j < Sn; ++j) subtractColumn<RS>(bs, hz + j * Rn, -zz[j], Rn);
        if (Gn == 1) {
            const double* vz = Vz.data();
            double c = 0;
            for (int j = 0; j < Zn; ++j) c += vz[j] * zz[j];
            subtractColumn<RS>(bs, hg, M[0] * c, Rn);
        } else if (Gn > 0) {
            conductanceCorrection(Vz.data(), Zn, zz, corrections);
            for (int a = 0; a < Gn; ++a) {
                const double* column = hg + a * Rn;
                KELM_UNROLL
                for (int r = 0; r < Rn; ++r) bs[r] -= column[r] * corrections[a];
            }
        }
        if (Pn > 0) (this->*portStep)(bs, last, Kc.data());
        // Every row from the inputs, the states and the devices' outputs.
        KELM_UNROLL
        for (int r = 0; r < Rn; ++r) cur[r] = bs[r];
        for (int q = 0; q < Qn; ++q) subtractColumn<RS>(cur, hy + q * Rn, -yl[q], Rn);
        if (Gn == 1 && Qn > 0) {
            const double* vy = Vy.data();
            double c = 0;
            for (int q = 0; q < Qn; ++q) c += vy[q] * yl[q];
            subtractColumn<RS>(cur, hg, M[0] * c, Rn);
        } else if (Gn > 0 && Qn > 0) {
            conductanceCorrection(Vy.data(), Qn, yl, corrections);
            for (int a = 0; a < Gn; ++a) {
                const double* column = hg + a * Rn;
                KELM_UNROLL
                for (int r = 0; r < Rn; ++r) cur[r] -= column[r] * corrections[a];
            }
        }
        // The ports where the iteration left them (the rows agree with them to rounding).
        for (int p = 0; p < Pn; ++p) cur[p] = v[p];
        for (int o = 0; o < On; ++o) outputs[o][i] = static_cast<scalar>(cur[outputRows[o]]);
        if constexpr (sized) {
            KELM_UNROLL
            for (int r = 0; r < RS; ++r) last[r] = cur[r];
        } else {
            std::swap(last, cur);
        }
    }
    // Hand the state back to the members, which the block's end and the next block read.
    std::copy(last, last + Rn, previous.data());
    std::copy(zz, zz + Zn, z.data());
    for (int j = 0; j < Sn; ++j) s[j] = zz[j];
    for (int k = 0; k < Kn; ++k) w[k] = zz[Sn + k];
}

void NodalKernel::conductanceCorrection(const double* V, int columns, const double* x, double* out) const {
    // M (V x): the conductances' share of the rows, before the columns of Hg.
    double vx[8];
    for (int a = 0; a < G; ++a) {
        double sum = 0;
        for (int j = 0; j < columns; ++j) sum += V[a * columns + j] * x[j];
        vx[a] = sum;
    }
    for (int a = 0; a < G; ++a) {
        double sum = 0;
        for (int b = 0; b < G; ++b) sum += M[static_cast<size_t>(a) * G + b] * vx[b];
        out[a] = sum;
    }
}

template <int SS, int KS, int OS>
void NodalKernel::runLinear(BufferList& inputs, BufferList& outputs, size_t frames) {
    // runSamples for a linear circuit without conductances that follow the signal: the rows
    // are the states' senses, then the outputs. Every size known and the state in registers.
    constexpr int RS = SS + OS, ZS = SS + KS + 1;
    double h[RS][ZS], fb[SS > 0 ? SS : 1], s[SS > 0 ? SS : 1], last[RS], w[KS > 0 ? KS : 1];
    for (int r = 0; r < RS; ++r)
        for (int j = 0; j < ZS; ++j) h[r][j] = Hz[static_cast<size_t>(j) * RS + r];
    for (int j = 0; j < SS; ++j) {
        fb[j] = feedback[j];
        s[j] = z[j];
    }
    for (int r = 0; r < RS; ++r) last[r] = previous[r];
    for (int k = 0; k < KS; ++k) w[k] = this->w[k];
    const scalar* in[KS > 0 ? KS : 1];
    scalar* out[OS > 0 ? OS : 1];
    for (int k = 0; k < KS; ++k) in[k] = inputs[k];
    for (int o = 0; o < OS; ++o) out[o] = outputs[o];
    for (size_t i = 0; i < frames; ++i) {
        for (int j = 0; j < SS; ++j) s[j] = fb[j] * s[j] + last[j];
        for (int k = 0; k < KS; ++k) {
            const double value = in[k] ? in[k][i] : 0.0;
            w[k] = std::isfinite(value) ? value : 0.0;
        }
        double cur[RS];
        for (int r = 0; r < RS; ++r) {
            double sum = h[r][ZS - 1];
            for (int k = 0; k < KS; ++k) sum += h[r][SS + k] * w[k];
            for (int j = 0; j < SS; ++j) sum += h[r][j] * s[j];
            cur[r] = sum;
        }
        for (int o = 0; o < OS; ++o) out[o][i] = static_cast<scalar>(cur[SS + o]);
        for (int r = 0; r < RS; ++r) last[r] = cur[r];
    }
    for (int r = 0; r < RS; ++r) previous[r] = last[r];
    for (int j = 0; j < SS; ++j) z[j] = this->s[j] = s[j];
    for (int k = 0; k < KS; ++k) z[SS + k] = this->w[k] = w[k];
}

#if defined(__SSE2__)
template <int SS, int KS, int OS>
void NodalKernel::runLinearTwin(NodalKernel& b, BufferList& inputsA, BufferList& outputsA, BufferList& inputsB,
                                BufferList& outputsB, size_t frames) {
    // runLinear for two circuits of the same sizes, one per lane of a register: the same
    // operations in the same order for each, so that each gives the samples it gives alone.
    NodalKernel& a = *this;
    constexpr int RS = SS + OS, ZS = SS + KS + 1;
    auto pair = [](double x, double y) { return _mm_set_pd(y, x); };
    __m128d h[RS][ZS], fb[SS > 0 ? SS : 1], s[SS > 0 ? SS : 1], last[RS], w[KS > 0 ? KS : 1];
    for (int r = 0; r < RS; ++r)
        for (int j = 0; j < ZS; ++j) h[r][j] = pair(a.Hz[static_cast<size_t>(j) * RS + r], b.Hz[static_cast<size_t>(j) * RS + r]);
    for (int j = 0; j < SS; ++j) {
        fb[j] = pair(a.feedback[j], b.feedback[j]);
        s[j] = pair(a.z[j], b.z[j]);
    }
    for (int r = 0; r < RS; ++r) last[r] = pair(a.previous[r], b.previous[r]);
    for (int k = 0; k < KS; ++k) w[k] = pair(a.w[k], b.w[k]);
    for (size_t i = 0; i < frames; ++i) {
        for (int j = 0; j < SS; ++j) s[j] = _mm_add_pd(_mm_mul_pd(fb[j], s[j]), last[j]);
        for (int k = 0; k < KS; ++k) {
            double va = inputsA[k] ? inputsA[k][i] : 0.0, vb = inputsB[k] ? inputsB[k][i] : 0.0;
            w[k] = pair(std::isfinite(va) ? va : 0.0, std::isfinite(vb) ? vb : 0.0);
        }
        __m128d cur[RS];
        for (int r = 0; r < RS; ++r) {
            __m128d sum = h[r][ZS - 1];
            for (int k = 0; k < KS; ++k) sum = _mm_add_pd(sum, _mm_mul_pd(h[r][SS + k], w[k]));
            for (int j = 0; j < SS; ++j) sum = _mm_add_pd(sum, _mm_mul_pd(h[r][j], s[j]));
            cur[r] = sum;
        }
        for (int o = 0; o < OS; ++o) {
            double lanes[2];
            _mm_storeu_pd(lanes, cur[SS + o]);
            outputsA[o][i] = static_cast<scalar>(lanes[0]);
            outputsB[o][i] = static_cast<scalar>(lanes[1]);
        }
        for (int r = 0; r < RS; ++r) last[r] = cur[r];
    }
    auto split = [](__m128d x, double& l, double& r) {
        double lanes[2];
        _mm_storeu_pd(lanes, x);
        l = lanes[0];
        r = lanes[1];
    };
    for (int r = 0; r < RS; ++r) split(last[r], a.previous[r], b.previous[r]);
    for (int j = 0; j < SS; ++j) {
        split(s[j], a.s[j], b.s[j]);
        a.z[j] = a.s[j];
        b.z[j] = b.s[j];
    }
    for (int k = 0; k < KS; ++k) {
        split(w[k], a.w[k], b.w[k]);
        a.z[SS + k] = a.w[k];
        b.z[SS + k] = b.w[k];
    }
}
#endif

namespace {
// The sample loops with the sizes known, for circuits of up to 16 rows and 10 entries of z.
typedef void (NodalKernel::*SampleLoop)(BufferList&, BufferList&, size_t);
} // namespace

struct NodalKernel::Loops {
    template <int RS, int ZS>
    static SampleLoop pick(int r, int z) {
        if (r == RS && z == ZS) return &NodalKernel::runSamples<RS, ZS>;
        if constexpr (ZS < 10) return pick<RS, ZS + 1>(r, z);
        else if constexpr (RS < 16) return pick<RS + 1, 2>(r, z);
        else return &NodalKernel::runSamples<0, 0>;
    }
    template <int PS, int QS>
    static PortStep port(int p, int q) {
        if (p == PS && q == QS) return &NodalKernel::iterateSized<PS, QS>;
        if constexpr (QS < PS + 2) return port<PS, QS + 1>(p, q);
        else if constexpr (PS < 8) return port<PS + 1, PS + 1>(p, q);
        else return &NodalKernel::iterate;
    }
    // A linear circuit of up to 6 states, 2 inputs and 2 outputs.
    template <int SS, int KS, int OS>
    static SampleLoop linear(int s, int k, int o) {
        if (s == SS && k == KS && o == OS) return &NodalKernel::runLinear<SS, KS, OS>;
        if constexpr (OS < 2) return linear<SS, KS, OS + 1>(s, k, o);
        else if constexpr (KS < 2) return linear<SS, KS + 1, 0>(s, k, o);
        else if constexpr (SS < 6) return linear<SS + 1, 0, 0>(s, k, o);
        else return nullptr;
    }
#if defined(__SSE2__)
    template <int SS, int KS, int OS>
    static TwinLoop linearTwin(int s, int k, int o) {
        if (s == SS && k == KS && o == OS) return &NodalKernel::runLinearTwin<SS, KS, OS>;
        if constexpr (OS < 2) return linearTwin<SS, KS, OS + 1>(s, k, o);
        else if constexpr (KS < 2) return linearTwin<SS, KS + 1, 0>(s, k, o);
        else if constexpr (SS < 6) return linearTwin<SS + 1, 0, 0>(s, k, o);
        else return nullptr;
    }
#endif
};

void NodalKernel::chooseLoops() {
    if (loop) return;
    {
        loop = P == 0 && G == 0 ? Loops::linear<0, 0, 0>(S, K, O) : nullptr;
        if (!loop) loop = Loops::pick<1, 2>(R, Z);
        portStep = &NodalKernel::iterate;
        // Up to eight ports and two forced outputs, and ten or twelve ports without forced
        // outputs: the iteration with the sizes known.
        if (P <= 8 && Q <= P + 2) portStep = Loops::port<1, 1>(P, Q);
        if (P == 10 && Q == 10) portStep = &NodalKernel::iterateSized<10, 10>;
        if (P == 12 && Q == 12) portStep = &NodalKernel::iterateSized<12, 12>;
#if defined(__SSE2__)
        if (P == 0 && G == 0) twinLoop = Loops::linearTwin<0, 0, 0>(S, K, O);
#endif
    }
}

bool NodalKernel::run(BufferList& inputs, BufferList& outputs, size_t frames) {
    if (!built && !refresh()) return false;
    if (frames == 0) return true;
    beginBlock();
    chooseLoops();
    (this->*loop)(inputs, outputs, frames);
    endBlock();
    return true;
}

bool NodalKernel::canRunBeside(const SampleKernel& otherKernel) const {
    const NodalKernel* other = dynamic_cast<const NodalKernel*>(&otherKernel);
    return other && other != this && P == 0 && G == 0 && other->P == 0 && other->G == 0 && S == other->S &&
           K == other->K && O == other->O && S <= 6 && K <= 2 && O <= 2;
}

bool NodalKernel::runTwin(SampleKernel& otherKernel, BufferList& inputs, BufferList& outputs, BufferList& otherInputs,
                          BufferList& otherOutputs, size_t frames) {
    NodalKernel* other = dynamic_cast<NodalKernel*>(&otherKernel);
    if (!other || !canRunBeside(*other) || frames == 0) return false;
    if ((!built && !refresh()) || (!other->built && !other->refresh())) return false;
    chooseLoops();
    if (!twinLoop) return false;
    beginBlock();
    other->beginBlock();
    (this->*twinLoop)(*other, inputs, outputs, otherInputs, otherOutputs, frames);
    endBlock();
    other->endBlock();
    return true;
}

std::string NodalKernel::describe() const {
    std::string text = std::to_string(n) + " unknowns, " + std::to_string(S) + " states, " + std::to_string(K) +
                       " inputs";
    if (P > 0) text += ", " + std::to_string(devices.size()) + " devices on " + std::to_string(P) + " ports";
    if (G > 0) text += ", " + std::to_string(G) + " signal-dependent conductances";
    return text;
}

} // namespace kelm
