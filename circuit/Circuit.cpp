#include "circuit/Circuit.h"

#include <algorithm>
#include <cstring>

#include "engine/Str.h"
#include "solvers/LinearSolver.h"
#include "solvers/NewtonSolver.h"

namespace kelm {

Circuit::Circuit() { type = 1; }

Circuit::~Circuit() {
    freeResults();
    // Components keep plain pointers to the context: release solvers first.
    analysis.reset();
}

void Circuit::freeResults() {
    for (scalar*& r : results) {
        delete[] r;
        r = nullptr;
    }
}

void Circuit::setOutputNames(const std::shared_ptr<std::vector<std::string>>& names) {
    outputNames = names;
    freeResults();
    numberOfOutputs = names ? static_cast<int>(names->size()) : 0;
    results.assign(numberOfOutputs, nullptr);
    if (context) context->setOutputNames(names);
}

void Circuit::setMaxBlockSize(int n) {
    if (n < 1) throw KELMException(str("Graph: Invalid maxBlockSize", n));
    if (n <= maxBlockSize) return;
    maxBlockSize = n;
    for (scalar*& r : results) {
        delete[] r;
        r = new scalar[n]();
    }
}

void Circuit::setSampleRate(scalar rate) {
    context->setSampleRate(rate);
    if (initialized) analysis->solver->initMatrix();
    form.invalidate();
}

void Circuit::init() {
    if (!analysis) throw KELMException("Analysis is not set for Circuit " + graphName);
    if (!analysis->solver) throw KELMException("Analysis: Solver is not set for Circuit " + graphName);
    if (!context) throw KELMException("Context not set for Circuit " + graphName);
    if (numberOfInputs != 0) inputValues = std::make_shared<ScalarVector>(numberOfInputs, 0.0f);
    if (analysis->type == 1 && analysis->initialCondition == 0) {
        if (!analysis->initialConditionSolver) throw KELMException("DC Solver is not set for Circuit " + graphName);
        context->setAnalysisType(0);
        context->init();
        context->setInputs(inputValues);
        analysis->initialConditionSolver->init(context);
        x.setZero(context->solution().size());
        analysis->initialConditionSolver->solve(x);
        context->setSolution(x);
        context->setAnalysisType(1);
    } else if (analysis->type == 1 && analysis->initialCondition == 1) {
        context->setAnalysisType(1);
        context->init();
        context->setInputs(inputValues);
        x.setZero(context->solution().size());
        context->setSolution(x);
    } else if (analysis->type == 1) {
        throw KELMException("Invalid initial condition for Circuit " + graphName);
    } else {
        context->setAnalysisType(0);
        context->init();
        context->setInputs(inputValues);
        x.setZero(context->solution().size());
        context->setSolution(x);
    }
    if (!analysis->solver) throw KELMException("Solver not set for Circuit " + graphName);
    analysis->solver->init(context);
    context->setMatrixChanged(false);
    if (dynamic_cast<LinearSolver*>(analysis->solver.get())) form.prepare(*context, numberOfInputs, numberOfOutputs);
    initialized = true;
}

void Circuit::process(BufferList& inputs, size_t framesPerBuffer) {
    if (framesPerBuffer > static_cast<size_t>(static_cast<unsigned>(maxBlockSize)))
        throw KELMException(str("maxBlockSize is less than input size. Circuit name: ", graphName, " maxBlockSize: ",
                                maxBlockSize, " input size:", framesPerBuffer));
    process(inputs, results, framesPerBuffer);
}

void Circuit::doBypass(BufferList& inputs, BufferList& outputs, size_t frames) {
    if (numberOfInputs != numberOfOutputs)
        throw KELMException(
            "Circuit:doBypass: number of inputs does not match the number of outptus. Circuit Name: " + graphName);
    for (int k = 0; k < numberOfOutputs; ++k) {
        if (inputs[k])
            std::memmove(outputs[k], inputs[k], frames * sizeof(scalar));
        else
            std::memset(outputs[k], 0, frames * sizeof(scalar));
    }
}

void Circuit::process(BufferList& inputs, BufferList& outputs, size_t frames) {
    if (!initialized) throw KELMException("Circuit is not initialized. Circuit Name: " + graphName);
    if (numberOfInputs > 0 && inputs.size() < static_cast<size_t>(numberOfInputs))
        throw KELMException(
            "Circuit:process: number of inputs does not match the number of arrays in the input vector. Circuit Name: " +
            graphName);
    if (static_cast<size_t>(numberOfOutputs) != outputs.size())
        throw KELMException(
            "Circuit:process: number of outputs does not match the number of arrays in the output vector. Circuit "
            "Name: " +
            graphName);
    if (bypass) {
        doBypass(inputs, outputs, frames);
        return;
    }
    if (off) {
        for (int k = 0; k < numberOfOutputs; ++k) std::memset(outputs[k], 0, frames * sizeof(scalar));
        return;
    }
    // The solver advances the context's own solution in place: components read
    // it in nextSample, and no copy is needed between the samples.
    DenseVector& state = context->solution();
    Solver& solver = *analysis->solver;
    const int* outputIndex = context->outputIndex().data();
    const int outputCount = std::min<int>(numberOfOutputs, static_cast<int>(context->outputIndex().size()));
    NewtonSolver* runner = smallNewton();
    if (runner && !runner->runsSamples()) runner = nullptr;
    for (size_t i = 0; i < frames; ++i) {
        // The rest of the block in state-space form, once every capacitor has taken its first step.
        if (stateSpaceEnabled && form.ready()) {
            if (context->matrixChanged()) {
                solver.initMatrix();
                context->setMatrixChanged(false);
                form.invalidate();
            }
            if (form.process(inputs, outputs, i, frames)) break;
        }
        // Or in the Newton solver's own loop, where it can run the samples from here on.
        if (runner) {
            i = runner->runSamples(inputs, outputs, outputIndex, outputCount, i, frames);
            if (i == frames) break;
        }
        beginSample(inputs, i);
        solver.solve(state);
        for (int k = 0; k < outputCount; ++k) outputs[k][i] = state[outputIndex[k]];
    }
}

void Circuit::beginSample(BufferList& inputs, size_t i) {
    scalar* in = inputValues ? inputValues->data() : nullptr;
    for (int j = 0; j < numberOfInputs; ++j) in[j] = inputs[j] ? inputs[j][i] : 0.0f;
    if (context->getAnalysisType() == 1) context->notifyNextSample();
    if (context->matrixChanged()) {
        Solver& solver = *analysis->solver;
        if (context->onlySignalStampsChanged())
            solver.restamp();
        else
            solver.initMatrix();
        context->setMatrixChanged(false);
        form.invalidate();
    }
}

NewtonSolver* Circuit::smallNewton() const {
    NewtonSolver* newton = analysis ? dynamic_cast<NewtonSolver*>(analysis->solver.get()) : nullptr;
    return newton && newton->specialised() && !form.applies() ? newton : nullptr;
}

bool Circuit::canRunBeside(const Graph& otherGraph) const {
    // Circuits that run as state-space systems share the loop over the samples; those
    // solved by Newton's method on a small system interleave their iterations.
    const Circuit* other = dynamic_cast<const Circuit*>(&otherGraph);
    if (!other || other == this || !initialized || !other->initialized) return false;
    const bool stateSpace = runsAsStateSpace() && other->runsAsStateSpace();
    const NewtonSolver* newton = smallNewton();
    const NewtonSolver* twinNewton = other->smallNewton();
    if (!stateSpace && !(newton && twinNewton && newton->canSolveBeside(*twinNewton))) return false;
    if (numberOfInputs != other->numberOfInputs || numberOfOutputs != other->numberOfOutputs) return false;
    return sameKinds(context->getComponents(), other->context->getComponents());
}

void Circuit::processTwin(Graph& otherGraph, BufferList& inputs, BufferList& otherInputs, size_t frames) {
    Circuit* other = dynamic_cast<Circuit*>(&otherGraph);
    // Both whole blocks in state-space form, or both solved sample by sample with the Newton
    // solves interleaved, or each circuit on its own, which also gives the usual checks and
    // messages.
    const bool plain = other && plainBeside(*other, frames) && initialized && other->initialized && frames > 0 &&
                       inputs.size() >= static_cast<size_t>(numberOfInputs) &&
                       otherInputs.size() >= static_cast<size_t>(other->numberOfInputs) &&
                       results.size() == static_cast<size_t>(numberOfOutputs) &&
                       other->results.size() == static_cast<size_t>(other->numberOfOutputs);
    if (plain && stateSpaceEnabled && other->stateSpaceEnabled && form.ready() && other->form.ready()) {
        // What process() does before its first sample in this form.
        for (Circuit* c : {this, other}) {
            if (c->context->matrixChanged()) {
                c->analysis->solver->initMatrix();
                c->context->setMatrixChanged(false);
                c->form.invalidate();
            }
        }
        if (StateSpaceForm::processTwin(form, inputs, results, other->form, otherInputs, other->results, frames)) return;
    }
    NewtonSolver* newton = plain ? smallNewton() : nullptr;
    NewtonSolver* twinNewton = newton ? other->smallNewton() : nullptr;
    // Circuits whose solvers run their own sample loops run one after the other, in them.
    if (twinNewton && (newton->runsSamples() || twinNewton->runsSamples())) twinNewton = nullptr;
    if (twinNewton && newton->canSolveBeside(*twinNewton)) {
        // Sample by sample as process() runs them, each circuit's steps in turn, and the
        // two Newton solves interleaved.
        DenseVector& state = context->solution();
        DenseVector& twinState = other->context->solution();
        const int count = std::min<int>(numberOfOutputs, static_cast<int>(context->outputIndex().size()));
        const int twinCount =
            std::min<int>(other->numberOfOutputs, static_cast<int>(other->context->outputIndex().size()));
        for (size_t i = 0; i < frames; ++i) {
            beginSample(inputs, i);
            other->beginSample(otherInputs, i);
            // A change of the matrix may have changed what the solvers can do.
            if (!newton->solveTwin(state, *twinNewton, twinState)) {
                newton->solve(state);
                twinNewton->solve(twinState);
            }
            for (int k = 0; k < count; ++k) results[k][i] = state[context->outputIndex()[k]];
            for (int k = 0; k < twinCount; ++k) other->results[k][i] = twinState[other->context->outputIndex()[k]];
        }
        return;
    }
    Graph::processTwin(otherGraph, inputs, otherInputs, frames);
}

} // namespace kelm
