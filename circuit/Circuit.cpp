#include "circuit/Circuit.h"

#include <algorithm>
#include <cstring>

#include "circuit/GeneralKernel.h"
#include "circuit/SampleKernel.h"
#include "engine/Str.h"

namespace kelm {

Circuit::Circuit() { type = GraphType::MNA; }

Circuit::~Circuit() {
    freeResults();
    // Kernels and solvers hold the context and its components: release them first.
    active = nullptr;
    fast.reset();
    general.reset();
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
    if (!initialized) return;
    analysis->solver->initMatrix();
    // What the kernels prepared from A is stale; the same kernels still fit.
    if (fast) fast->matrixChanged();
    general->matrixChanged();
}

void Circuit::init() {
    if (!analysis) throw KELMException("Analysis is not set for Circuit " + graphName);
    if (!analysis->solver) throw KELMException("Analysis: Solver is not set for Circuit " + graphName);
    if (!context) throw KELMException("Context not set for Circuit " + graphName);
    if (numberOfInputs != 0) inputValues = std::make_shared<ScalarVector>(numberOfInputs, 0.0f);
    if (analysis->type == AnalysisType::AC && analysis->initialCondition == InitialCondition::OperatingPoint) {
        if (!analysis->initialConditionSolver) throw KELMException("DC Solver is not set for Circuit " + graphName);
        context->setAnalysisType(AnalysisType::DC);
        context->init();
        context->setInputs(inputValues);
        analysis->initialConditionSolver->init(context);
        x.setZero(context->solution().size());
        if (!analysis->initialConditionSolver->solve(x)) {
            // Plain Newton from zero did not reach the operating point: from the supplies up.
            DenseVector stepped = x;
            if (analysis->initialConditionSolver->solveFromSupplies(stepped)) x = stepped;
        }
        context->setSolution(x);
        context->setAnalysisType(AnalysisType::AC);
    } else if (analysis->type == AnalysisType::AC && analysis->initialCondition == InitialCondition::Zero) {
        context->setAnalysisType(AnalysisType::AC);
        context->init();
        context->setInputs(inputValues);
        x.setZero(context->solution().size());
        context->setSolution(x);
    } else if (analysis->type == AnalysisType::AC) {
        throw KELMException("Invalid initial condition for Circuit " + graphName);
    } else {
        context->setAnalysisType(AnalysisType::DC);
        context->init();
        context->setInputs(inputValues);
        x.setZero(context->solution().size());
        context->setSolution(x);
    }
    if (!analysis->solver) throw KELMException("Solver not set for Circuit " + graphName);
    analysis->solver->init(context);
    context->setMatrixChanged(false);
    chooseKernel();
    initialized = true;
}

void Circuit::chooseKernel() {
    general.reset(new GeneralKernel(*context, *analysis->solver, numberOfInputs));
    fast = analysis->solver->makeKernel(numberOfInputs, numberOfOutputs, fastReason);
    generalReason = fast ? "the kernel chosen for the circuit could not solve it: " + fastReason : fastReason;
    activate(fast && kernelsAllowed ? fast.get() : general.get());
    if (!kernelsAllowed) generalReason = "the general iteration was asked for";
}

void Circuit::activate(SampleKernel* kernel) {
    if (kernel == active) return;
    active = kernel;
    active->stateChanged();
    active->matrixChanged();
}

void Circuit::setKernelsAllowed(bool allowed) {
    kernelsAllowed = allowed;
    if (!initialized) return;
    if (!allowed) generalReason = "the general iteration was asked for";
    activate(fast && allowed ? fast.get() : general.get());
}

void Circuit::deliverMatrixChange() {
    if (!context->matrixChanged() || context->onlySignalStampsChanged()) return;
    // A control moved: the chosen kernel gets another chance with the new A.
    if (fast && kernelsAllowed) activate(fast.get());
    active->matrixChanged();
    if (active != general.get()) context->setMatrixChanged(false);
}

bool Circuit::canRunBeside(const Graph& otherGraph) const {
    const Circuit* other = dynamic_cast<const Circuit*>(&otherGraph);
    return other && other != this && initialized && other->initialized && numberOfInputs == other->numberOfInputs &&
           numberOfOutputs == other->numberOfOutputs && active->canRunBeside(*other->active);
}

void Circuit::processTwin(Graph& otherGraph, BufferList& inputs, BufferList& otherInputs, size_t frames) {
    Circuit* other = dynamic_cast<Circuit*>(&otherGraph);
    const bool plain = other && plainBeside(*other, frames) && initialized && other->initialized && frames > 0 &&
                       inputs.size() >= static_cast<size_t>(numberOfInputs) &&
                       otherInputs.size() >= static_cast<size_t>(other->numberOfInputs) &&
                       results.size() == static_cast<size_t>(numberOfOutputs) &&
                       other->results.size() == static_cast<size_t>(other->numberOfOutputs);
    if (plain) {
        deliverMatrixChange();
        other->deliverMatrixChange();
        if (active->runTwin(*other->active, inputs, results, otherInputs, other->results, frames)) return;
    }
    // Each on its own, which also gives the usual checks and messages.
    Graph::processTwin(otherGraph, inputs, otherInputs, frames);
}

std::string Circuit::describeSolve() const {
    if (!active) return "";
    return std::string("kernel: ") + active->name() + " (" + active->describe() + ") - " + kernelReason();
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
    if (frames == 0) return;
    deliverMatrixChange();
    if (active->run(inputs, outputs, frames)) return;
    // The chosen kernel cannot solve the circuit as it stands: the general one reports why,
    // or solves it.
    activate(general.get());
    general->run(inputs, outputs, frames);
}

} // namespace kelm
