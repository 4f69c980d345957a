#include "solvers/NewtonSolver.h"

#include <cctype>
#include <algorithm>
#include <cmath>

#include "math/DenseKernels.h"
#include "circuit/MNAContext.h"
#include "engine/Str.h"
#include "math/SmallLoops.h"
#include "solvers/SolverProperties.h"

namespace kelm {

void NewtonSolver::setProperties(const PropertyMapPtr& properties) {
    using namespace solverprops;
    propertiesSet = false;
    const PropertyMap& p = *properties;
    require(p, "RelativeTollerance", relativeTollerance, "NewtonSolver: RelativeTollerance is not defined.");
    if (!(relativeTollerance > 0))
        throw InvalidArgumentException(
            str("NewtonSolver: RelativeTollerance must be greater than 0. relativeTollerance=", relativeTollerance));
    require(p, "AbsoluteTollerance", absoluteTollerance, "NewtonSolver: AbsoluteTollerance is not defined.");
    if (!(absoluteTollerance > 0))
        throw InvalidArgumentException(
            str("NewtonSolver: AbsoluteTollerance must be greater than 0. AbsoluteTollerance=", absoluteTollerance));
    relaxation = 1.0f;
    read(p, "Relaxation", relaxation);
    if (!(relaxation > 0 && relaxation <= 1))
        throw InvalidArgumentException(str(
            "NewtonSolver: Relaxation must be greater than 0 and less than or equal to 1. InitialRelaxation=", relaxation));
    fixedPointSteps = 0;
    read(p, "FixedPointSteps", fixedPointSteps);
    if (fixedPointSteps < 0)
        throw InvalidArgumentException(
            str("NewtonSolver: FixedPointSteps must be greater than or equal to 0. FixedPointSteps=", fixedPointSteps));
    diagonal = false;
    auto it = p.find("UseDiagonalNewton");
    if (it != p.end()) {
        std::string v = it->second;
        for (char& c : v) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        diagonal = v == "true";
    }
    require(p, "MaxIterations", maxIter, "NewtonSolver: MaxIterations is not defined.");
    if (maxIter < 1)
        throw InvalidArgumentException(str("NewtonSolver: MaxIterations must be greater than 0. MaxIterations=", maxIter));
    accelerate = false;
    p.readOptional("Accelerate", accelerate);
    errorCorrectionFactor = 0;
    extrapolationOrder = 1;
    if (accelerate) {
        read(p, "ErrorCorrectionFactor", errorCorrectionFactor);
        read(p, "ExtrapolationOrder", extrapolationOrder);
    }
    propertiesSet = true;
}

void NewtonSolver::init(const std::shared_ptr<MNAContext>& ctx) {
    context = ctx;
    if (!propertiesSet) throw KELMException("NewtonSolver: Properties must be set before calling init().");
    initMatrix();
    for (DenseVector* v : {&x0, &predicted, &previous, &xm1, &xm2, &f, &dx, &errors, &b}) v->setZero(n);
    xWide.assign(n, 0.0);
    bWide.assign(n, 0.0);
    initialized = true;
}

void NewtonSolver::initMatrix() {
    context->assembleMatrix();
    A = context->matrix();
    if (fixedPointSteps > 0) fixedPointLU.compute(A);
    if (initialized) {
        if (A.rows() != n) throw KELMException("Newton Solver.initMatrix: a changed number of rows after initialization.");
        buildPorts();
        return;
    }
    n = lda = static_cast<int>(A.rows());
    pivots.assign(n, 0);
    m = context->fixedMarker() + 1 + n;
    fast = nullptr;
    fastTwin = nullptr;
    fastSamples = nullptr;
    if (context->rhsSplits()) {
        switch (n) {
        case 1: pickSmall<1>(m); break;
        case 2: pickSmall<2>(m); break;
        case 3: pickSmall<3>(m); break;
        case 4: pickSmall<4>(m); break;
        case 5: pickSmall<5>(m); break;
        case 6: pickSmall<6>(m); break;
        default: break;
        }
    }
    buildPorts();
}

void NewtonSolver::buildPorts() {
    triodePorts.clear();
    amplifierPorts.clear();
    sampleTerms.clear();
    if (!fast || !portsAllowed) return;
    if (triodePorts.build(*context, A.data(), n, m))
        sampleTerms.prepare(*context, context->soleNonlinear());
    else
        amplifierPorts.build(*context, A.data(), n, m);
}

void NewtonSolver::usePortForm(bool on) {
    portsAllowed = on;
    if (context && n > 0) buildPorts();
}

void NewtonSolver::restamp() {
    // Newton factors the Jacobian anyway: a new A is all that it needs, unless
    // fixed-point steps keep a factorisation of A.
    if (generalOnly || fixedPointSteps > 0 || !initialized) {
        initMatrix();
        return;
    }
    if (specialised()) {
        // The small solves read only this copy of A, which initMatrix filled whole.
        context->restampSignalDependentEntries(A.data());
        return;
    }
    context->restampSignalDependent();
    std::copy(context->matrix().data(), context->matrix().data() + A.size(), A.data());
}

template <int N, int M>
void NewtonSolver::useSmall() {
    if constexpr (M <= N) {
        fast = &NewtonSolver::solveSmall<N, M>;
        fastTwin = &NewtonSolver::solveSmallTwin<N, M>;
        fastSamples = &NewtonSolver::runSmallSamples<N, M>;
    }
}

template <int N>
void NewtonSolver::pickSmall(int m) {
    switch (m) {
    case 1: useSmall<N, 1>(); break;
    case 2: useSmall<N, 2>(); break;
    case 3: useSmall<N, 3>(); break;
    case 4: useSmall<N, 4>(); break;
    case 5: useSmall<N, 5>(); break;
    case 6: useSmall<N, 6>(); break;
    default: break;
    }
}

void NewtonSolver::predict(DenseVector& x) {
    if (extrapolationOrder == 1) {
        for (int i = 0; i < m; ++i) x0[i] = 2 * x[i] - xm1[i] + errorCorrectionFactor * (x[i] - predicted[i]);
    } else {
        for (int i = 0; i < m; ++i)
            x0[i] = 2.5f * x[i] - 2 * xm1[i] + 0.5f * xm2[i] + errorCorrectionFactor * (x[i] - predicted[i]);
        std::copy(xm1.data(), xm1.data() + n, xm2.data());
    }
    std::copy(x0.data(), x0.data() + n, predicted.data());
    std::copy(x.data(), x.data() + n, xm1.data());
}

// One solve of a small system with the sizes known to the compiler, cut into the
// steps of an iteration so that two solves can run interleaved (solveSmallTwin).
template <int N, int M>
struct NewtonSolver::SmallRun {
    NewtonSolver& s;
    float* __restrict X;
    float* __restrict xs;
    float F0[N], F[N], B[N], D[N], J[N * N];
    int piv[M];
    double Xd[N], Bd[M];
    // The port forms' sample terms and the point their step reaches (see TriodePortForm
    // and AmplifierPortForm).
    double sLin[M], P[2], S[M], W[M];
    enum Form { allUnknowns, onTriodePorts, onAmplifierPort };
    const Form form;
    int k = 0;
    bool done = false;

    SmallRun(NewtonSolver& solver, DenseVector& x)
        : s(solver),
          X(solver.x0.data()),
          xs(x.data()),
          form(solver.triodePorts.usable()      ? onTriodePorts
               : solver.amplifierPorts.usable() ? onAmplifierPort
                                                : allUnknowns) {
        start();
        // Sources and capacitor memory do not change within the sample.
        s.context->computeConstantRhs(X, F0);
        if (form != allUnknowns) s.context->writeFixedValues(F0);
        if (form == onTriodePorts) s.triodePorts.beginSample<N, M>(F0, sLin, P);
        if (form == onAmplifierPort) s.amplifierPorts.beginSample<N, M>(F0, s.A.data(), sLin, W);
        widen();
    }

    // On the triode's ports, with the sample's terms from the capacitors' currents and
    // the inputs in (V) instead of from the components' rhs.
    SmallRun(NewtonSolver& solver, scalar* x, const scalar* in)
        : s(solver), X(solver.x0.data()), xs(x), form(onTriodePorts) {
        start();
        s.sampleTerms.terms<N, M>(in, sLin, P, F0);
        widen();
    }

    // The start of the iteration: the last solution, or the prediction from it.
    void start() {
        KELM_UNROLL
        for (int i = 0; i < N; ++i) X[i] = xs[i];
        if (s.accelerate) {
            // predict(), with the sizes known.
            float* __restrict m1 = s.xm1.data();
            float* __restrict m2 = s.xm2.data();
            float* __restrict pr = s.predicted.data();
            const float ecf = s.errorCorrectionFactor;
            if (s.extrapolationOrder == 1) {
                KELM_UNROLL
                for (int i = 0; i < M; ++i) X[i] = 2 * xs[i] - m1[i] + ecf * (xs[i] - pr[i]);
            } else {
                KELM_UNROLL
                for (int i = 0; i < M; ++i) X[i] = 2.5f * xs[i] - 2 * m1[i] + 0.5f * m2[i] + ecf * (xs[i] - pr[i]);
                KELM_UNROLL
                for (int i = 0; i < N; ++i) m2[i] = m1[i];
            }
            KELM_UNROLL
            for (int i = 0; i < N; ++i) pr[i] = X[i];
            KELM_UNROLL
            for (int i = 0; i < N; ++i) m1[i] = xs[i];
        }
        KELM_UNROLL
        for (int i = 0; i < N; ++i) D[i] = 0.0f;
    }

    void widen() {
        // The residual A x - f cancels terms of the order of the supply (a plate
        // conductance times some hundred volts) down to the currents that are left
        // unbalanced, and the correction then adds millivolts to hundred-volt
        // unknowns. Both in float leave a rounding noise that the prediction of the
        // next start feeds back and the following stages amplify: -48 dBFS of hiss
        // at full gain on silence. So the unknowns are carried in double within the
        // sample and the residual is summed in double; the Jacobian and its
        // factorisation only steer the iteration and stay in float.
        KELM_UNROLL
        for (int i = 0; i < N; ++i) Xd[i] = X[i];
        done = s.maxIter < 1;
    }

    // The residual and the Jacobian at the current unknowns: the components' part.
    void evaluate() {
        ++k;
        const float* __restrict a = s.A.data();
        KELM_UNROLL
        for (int i = 0; i < N; ++i) F[i] = F0[i];
        // The Jacobian's rows of fixed nodes are never read.
        KELM_UNROLL
        for (int j = 0; j < N; ++j) {
            KELM_UNROLL
            for (int i = 0; i < M; ++i) J[j * N + i] = a[j * N + i];
        }
        s.context->addVaryingRhsAndStamps(X, F, J);
        keepLimits();
        // Residual A x - f. The rows of fixed nodes in A are unit rows: their
        // product is x itself.
        KELM_UNROLL
        for (int i = 0; i < M; ++i) Bd[i] = -static_cast<double>(F[i]);
        KELM_UNROLL
        for (int j = 0; j < N; ++j) {
            const double t = Xd[j];
            KELM_UNROLL
            for (int i = 0; i < M; ++i) Bd[i] += a[j * N + i] * t;
        }
        KELM_UNROLL
        for (int i = 0; i < M; ++i) B[i] = static_cast<float>(Bd[i]);
        KELM_UNROLL
        for (int i = M; i < N; ++i) B[i] = X[i] - F[i];
    }

    // One iteration in the triode's port form: the triode evaluated, the step to the point
    // that the linearised circuit reaches, and the convergence test.
    void portStep() {
        ++k;
        if (!s.triodePorts.newtonPoint<M>(X, sLin, P, S)) throw KELMException(str("ludcmp returned error: ", -1));
        keepLimits();
        moveToPortPoint();
    }

    // The same in the amplifier's port form; its output, a forced unknown, moves to its
    // value at this iteration's point.
    void amplifierStep() {
        ++k;
        scalar out;
        if (!s.amplifierPorts.newtonPoint<M>(X, sLin, W, S, out))
            throw KELMException(str("ludcmp returned error: ", -1));
        F0[s.amplifierPorts.outputIndex()] = out;
        moveToPortPoint();
    }

    // To the solved unknowns S and the forced values in F0, and the convergence test.
    void moveToPortPoint() {
        // The new point straight from the port form's solution when the step is taken
        // whole; the step itself only enters the convergence test.
        const bool whole = s.relaxation == 1.0f;
        KELM_UNROLL
        for (int i = 0; i < M; ++i) {
            const double step = Xd[i] - S[i];
            D[i] = static_cast<float>(step);
            Xd[i] = whole ? S[i] : Xd[i] - s.relaxation * step;
            X[i] = static_cast<float>(Xd[i]);
        }
        // Forced unknowns move in one step to their values.
        KELM_UNROLL
        for (int i = M; i < N; ++i) {
            D[i] = X[i] - F0[i];
            Xd[i] += -s.relaxation * D[i];
            X[i] = static_cast<float>(Xd[i]);
        }
        test();
    }

    // A tube's limiter writes the voltages it evaluated at back into X: the iteration
    // goes on from there, or a plate driven below zero (where the tube draws nothing and
    // the Jacobian loses it) would wander.
    void keepLimits() {
        KELM_UNROLL
        for (int i = 0; i < N; ++i)
            if (X[i] != static_cast<float>(Xd[i])) Xd[i] = X[i];
    }

    // The Newton step from the residual and the Jacobian; done once it has converged or
    // the iterations are used up.
    void step() {
        // Forced unknowns move in one step; their columns leave the system.
        KELM_UNROLL
        for (int i = M; i < N; ++i) {
            const float bi = B[i];
            KELM_UNROLL
            for (int r = 0; r < M; ++r) B[r] -= bi * J[i * N + r];
            D[i] = bi;
        }
        if constexpr (M <= 3) {
            if (solveByCofactors()) {
                update();
                return;
            }
        }
        // LU with partial pivoting of the leading M by M block, as ludcmp does it.
        KELM_UNROLL
        for (int i = 0; i < M; ++i) piv[i] = i;
        KELM_UNROLL
        for (int c = 0; c < M; ++c) {
            int p = c;
            float best = std::fabs(J[c * N + c]);
            KELM_UNROLL
            for (int i = c + 1; i < M; ++i) {
                const float v = std::fabs(J[c * N + i]);
                if (v > best) {
                    best = v;
                    p = i;
                }
            }
            if (p != c) {
                std::swap(piv[c], piv[p]);
                KELM_UNROLL
                for (int col = 0; col < M; ++col) std::swap(J[col * N + c], J[col * N + p]);
            }
            const float d = J[c * N + c];
            if (!(std::fabs(d) >= 1e-20f)) throw KELMException(str("ludcmp returned error: ", -1));
            const float r = reciprocal(d);
            KELM_UNROLL
            for (int i = c + 1; i < M; ++i) J[c * N + i] *= r;
            KELM_UNROLL
            for (int col = c + 1; col < M; ++col) {
                const float u = J[col * N + c];
                KELM_UNROLL
                for (int i = c + 1; i < M; ++i) J[col * N + i] -= u * J[c * N + i];
            }
        }
        // Forward and back substitution, as lubksb does it.
        KELM_UNROLL
        for (int i = 0; i < M; ++i) D[i] = B[piv[i]];
        KELM_UNROLL
        for (int c = 0; c + 1 < M; ++c) {
            const float dc = D[c];
            if (dc == 0.0f) continue;
            KELM_UNROLL
            for (int j = c + 1; j < M; ++j) D[j] -= dc * J[c * N + j];
        }
        KELM_UNROLL
        for (int c = M - 1; c >= 0; --c) {
            D[c] *= reciprocal(J[c * N + c]);
            const float dc = D[c];
            KELM_UNROLL
            for (int j = 0; j < c; ++j) D[j] -= dc * J[c * N + j];
        }
        update();
    }

    // Up to three solved unknowns: the determinant and the cofactors, in double. This
    // is a handful of independent products and one division, where the pivoting
    // factorisation is a chain of compares, swaps and divisions that each wait on the
    // one before; in double it is also the more accurate of the two. False, with
    // nothing written, for a singular Jacobian (the factorisation then says so).
    bool solveByCofactors() {
        auto j = [this](int r, int c) { return static_cast<double>(J[c * N + r]); };
        if constexpr (M == 1) {
            const double d = j(0, 0);
            if (!(std::fabs(d) > 0) || !std::isfinite(d)) return false;
            D[0] = static_cast<float>(B[0] / d);
        } else if constexpr (M == 2) {
            const double det = j(0, 0) * j(1, 1) - j(0, 1) * j(1, 0);
            if (!(std::fabs(det) > 0) || !std::isfinite(det)) return false;
            const double inv = 1.0 / det, b0 = B[0], b1 = B[1];
            D[0] = static_cast<float>((j(1, 1) * b0 - j(0, 1) * b1) * inv);
            D[1] = static_cast<float>((j(0, 0) * b1 - j(1, 0) * b0) * inv);
        } else {
            const double c00 = j(1, 1) * j(2, 2) - j(1, 2) * j(2, 1);
            const double c01 = j(1, 2) * j(2, 0) - j(1, 0) * j(2, 2);
            const double c02 = j(1, 0) * j(2, 1) - j(1, 1) * j(2, 0);
            const double det = j(0, 0) * c00 + j(0, 1) * c01 + j(0, 2) * c02;
            if (!(std::fabs(det) > 0) || !std::isfinite(det)) return false;
            const double inv = 1.0 / det, b0 = B[0], b1 = B[1], b2 = B[2];
            const double c10 = j(0, 2) * j(2, 1) - j(0, 1) * j(2, 2);
            const double c11 = j(0, 0) * j(2, 2) - j(0, 2) * j(2, 0);
            const double c12 = j(0, 1) * j(2, 0) - j(0, 0) * j(2, 1);
            const double c20 = j(0, 1) * j(1, 2) - j(0, 2) * j(1, 1);
            const double c21 = j(0, 2) * j(1, 0) - j(0, 0) * j(1, 2);
            const double c22 = j(0, 0) * j(1, 1) - j(0, 1) * j(1, 0);
            // The inverse is the transposed cofactor matrix over the determinant.
            D[0] = static_cast<float>((c00 * b0 + c10 * b1 + c20 * b2) * inv);
            D[1] = static_cast<float>((c01 * b0 + c11 * b1 + c21 * b2) * inv);
            D[2] = static_cast<float>((c02 * b0 + c12 * b1 + c22 * b2) * inv);
        }
        return true;
    }

    // x -= relaxation dx, and the convergence test.
    void update() {
        const float stepSize = -s.relaxation;
        KELM_UNROLL
        for (int i = 0; i < N; ++i) {
            Xd[i] += stepSize * D[i];
            X[i] = static_cast<float>(Xd[i]);
        }
        test();
    }

    // The convergence test on the last step D and the new unknowns X.
    void test() {
        const float tolerance = s.relativeTollerance;
        float worst = std::fabs(D[0]) - tolerance * std::fabs(X[0]);
        KELM_UNROLL
        for (int i = 1; i < N; ++i) {
            const float e = std::fabs(D[i]) - tolerance * std::fabs(X[i]);
            if (e > worst) worst = e;
        }
        done = !(worst > 0) || k >= s.maxIter;
    }

    bool finish() {
        if (s.accelerate) {
            float* __restrict previous = s.previous.data();
            KELM_UNROLL
            for (int i = 0; i < N; ++i) previous[i] = X[i];
        }
        KELM_UNROLL
        for (int i = 0; i < N; ++i) xs[i] = X[i];
        s.count(k);
        return k < s.maxIter;
    }
};

template <int N, int M>
bool NewtonSolver::solveSmall(DenseVector& x) {
    SmallRun<N, M> run(*this, x);
    if (run.form == SmallRun<N, M>::onTriodePorts) {
        while (!run.done) run.portStep();
        return run.finish();
    }
    if (run.form == SmallRun<N, M>::onAmplifierPort) {
        while (!run.done) run.amplifierStep();
        return run.finish();
    }
    while (!run.done) {
        run.evaluate();
        run.step();
    }
    return run.finish();
}

template <int N, int M>
size_t NewtonSolver::runSmallSamples(BufferList& inputs, BufferList& outputs, const int* outputIndex,
                                     int outputCount, size_t from, size_t to) {
    if (!sampleTerms.refresh<N, M>(*context, triodePorts)) return from;
    scalar* x = context->solution().data();
    const int K = sampleTerms.inputCount();
    scalar in[PortSampleTerms::maxInputs] = {};
    for (size_t i = from; i < to; ++i) {
        for (int k = 0; k < K; ++k) in[k] = inputs[k] ? inputs[k][i] : 0.0f;
        sampleTerms.advance(x);
        SmallRun<N, M> run(*this, x, in);
        while (!run.done) run.portStep();
        run.finish();
        for (int o = 0; o < outputCount; ++o) outputs[o][i] = x[outputIndex[o]];
    }
    // The circuit's inputs as the per-sample path leaves them.
    if (K > 0) std::copy(in, in + K, context->inputs()->data());
    return to;
}

size_t NewtonSolver::runSamples(BufferList& inputs, BufferList& outputs, const int* outputIndex, int outputCount,
                                size_t from, size_t to) {
    const bool runs = runsSamples() && from < to && !context->matrixChanged() &&
                      inputs.size() >= static_cast<size_t>(sampleTerms.inputCount());
    if (!runs) return from;
    return (this->*fastSamples)(inputs, outputs, outputIndex, outputCount, from, to);
}

template <int N, int M>
void NewtonSolver::solveSmallTwin(NewtonSolver& a, DenseVector& xa, NewtonSolver& b, DenseVector& xb) {
    // Each Newton step is a chain (components, residual, factorisation, substitution)
    // that waits on the step before; the two circuits' chains are independent, so the
    // processor overlaps them. Each runs its own number of iterations.
    if (a.triodePorts.usable() || b.triodePorts.usable() || a.amplifierPorts.usable() != b.amplifierPorts.usable()) {
        a.solveSmall<N, M>(xa);
        b.solveSmall<N, M>(xb);
        return;
    }
    SmallRun<N, M> one(a, xa), two(b, xb);
    if (a.amplifierPorts.usable()) {
        while (!one.done || !two.done) {
            if (!one.done) one.amplifierStep();
            if (!two.done) two.amplifierStep();
        }
        one.finish();
        two.finish();
        return;
    }
    while (!one.done || !two.done) {
        if (!one.done) one.evaluate();
        if (!two.done) two.evaluate();
        if (!one.done) one.step();
        if (!two.done) two.step();
    }
    one.finish();
    two.finish();
}

bool NewtonSolver::canSolveBeside(const NewtonSolver& twin) const {
    return &twin != this && initialized && twin.initialized && specialised() && twin.specialised() && n == twin.n &&
           m == twin.m && fastTwin != nullptr;
}

bool NewtonSolver::solveTwin(DenseVector& x, NewtonSolver& twin, DenseVector& twinX) {
    if (!canSolveBeside(twin)) return false;
    fastTwin(*this, x, twin, twinX);
    return true;
}

void NewtonSolver::reducedSolve(DenseMatrix& J) {
    for (int i = m; i < n; ++i) {
        const float bi = b[i];
        const float* col = J.data() + static_cast<std::ptrdiff_t>(i) * lda;
        for (int r = 0; r < m; ++r) b[r] -= bi * col[r];
        dx[i] = bi;
    }
    status = ludcmp(m, J.data(), lda, pivots.data());
    if (status != 0) throw KELMException(str("ludcmp returned error: ", status));
    status = lubksb(m, J.data(), lda, pivots.data(), dx.data(), b.data());
    if (status != 0) throw KELMException(str("lubksb returned error: ", status));
}

bool NewtonSolver::solve(DenseVector& x) {
    if (!initialized) throw KELMException("NewtonSolver: Not initialized.");
    if (fast && !generalOnly && fixedPointSteps == 0 && !diagonal) return (this->*fast)(x);
    std::copy(x.data(), x.data() + n, x0.data());
    if (accelerate) predict(x);
    std::fill(dx.data(), dx.data() + n, 0.0f);
    // Unknowns and residual in double within the sample, as in solveSmall.
    double* __restrict xd = xWide.data();
    double* __restrict bd = bWide.data();
    for (int i = 0; i < n; ++i) xd[i] = x0[i];
    int k = 0;
    while (k < maxIter) {
        ++k;
        context->computeRhs(x0, f);
        // Where a limiter moved an unknown, the iteration goes on from there (as in SmallRun).
        for (int i = 0; i < n; ++i)
            if (x0[i] != static_cast<float>(xd[i])) xd[i] = x0[i];
        std::copy(x0.data(), x0.data() + n, previous.data());
        if (k > fixedPointSteps) {
            for (int i = 0; i < n; ++i) bd[i] = -static_cast<double>(f[i]);
            for (int j = 0; j < n; ++j) {
                const double t = xd[j];
                const float* column = A.data() + static_cast<std::ptrdiff_t>(j) * n;
                for (int i = 0; i < n; ++i) bd[i] += column[i] * t;
            }
            for (int i = 0; i < n; ++i) b[i] = static_cast<float>(bd[i]);
            DenseMatrix& J = context->computeJacobian(x0);
            if (!diagonal)
                reducedSolve(J);
            else
                for (int i = 0; i < n; ++i) dx[i] = b[i] * reciprocal(J(i, i));
            for (int i = 0; i < n; ++i) {
                xd[i] -= relaxation * dx[i];
                x0[i] = static_cast<float>(xd[i]);
            }
        } else {
            x0.noalias() = fixedPointLU.solve(f);
            dx = x0 - previous;
            x0 = previous + relaxation * dx;
            for (int i = 0; i < n; ++i) xd[i] = x0[i];
        }
        for (int i = 0; i < n; ++i) errors[i] = std::fabs(dx[i]) - relativeTollerance * std::fabs(x0[i]);
        float worst = n > 0 ? errors[0] : 0.0f;
        for (int i = 1; i < n; ++i)
            if (errors[i] > worst) worst = errors[i];
        if (!(worst > 0)) break;
    }
    if (accelerate) std::copy(x0.data(), x0.data() + n, previous.data());
    std::copy(x0.data(), x0.data() + n, x.data());
    count(k);
    return k < maxIter;
}

} // namespace kelm
