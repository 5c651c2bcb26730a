#include "circuit/Circuit.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "circuit/components/Sources.h"

namespace vrn {

Circuit::Circuit() { type = 1; }

Circuit::~Circuit() { freeOutputs(); }

void Circuit::freeOutputs() {
    for (scalar*& output : outputs) {
        delete[] output;
        output = nullptr;
    }
}

void Circuit::setNumberOfOutputs(int number) {
    freeOutputs();
    numberOfOutputs = number;
    outputs.assign(static_cast<size_t>(number), nullptr);
    if (maxBlockSize > 0)
        for (scalar*& output : outputs) output = new scalar[static_cast<size_t>(maxBlockSize)]();
}

void Circuit::setMaxBlockSize(int size) {
    if (size < 1) throw VRNException("Graph: Invalid maxBlockSize" + toString(size));
    if (size <= maxBlockSize) return;
    maxBlockSize = size;
    for (scalar*& output : outputs) {
        delete[] output;
        output = new scalar[static_cast<size_t>(size)]();
    }
}

void Circuit::setSamplingRate(scalar rate) {
    context->setSamplingRate(rate);
    if (initialized) analysis->solver->update();
}

void Circuit::process(const std::vector<scalar*>& inputArrays, size_t framesPerBuffer) {
    if (static_cast<long long>(framesPerBuffer) > maxBlockSize)
        throw VRNException("maxBlockSize is less than input size. Circuit name: " + name +
                           " maxBlockSize: " + toString(maxBlockSize) + " input size: " + toString(framesPerBuffer));
    process(inputArrays, outputs, framesPerBuffer);
}

namespace {

bool allFinite(const std::vector<scalar>& values) {
    for (scalar value : values)
        if (!std::isfinite(value)) return false;
    return true;
}

}  // namespace

void Circuit::checkNetlist(bool dc) {
    for (Component* component : context->getComponents())
        if (auto* source = dynamic_cast<VoltageInputSource*>(component)) source->checkInputNumber(numberOfInputs);
    std::vector<std::string> floating = context->findFloatingNodes();
    if (floating.empty()) return;
    std::string list;
    for (const std::string& node : floating) list += (list.empty() ? "" : ", ") + node;
    throw VRNException("singular matrix: " + (floating.size() == 1 ? "node " + list + " has" : "nodes " + list + " have") +
                       " no " + (dc ? "DC " : "") + "path to ground in Circuit " + name);
}

void Circuit::init() {
    if (!analysis) throw VRNException("Analysis is not set for Circuit " + name);
    if (!analysis->solver) throw VRNException("Analysis: Solver is not set for Circuit " + name);
    if (!context) throw VRNException("Context not set for Circuit " + name);
    if (numberOfInputs != 0) inputs = std::make_shared<std::vector<scalar>>(static_cast<size_t>(numberOfInputs), 0.0f);

    if (analysis->type == 1 && analysis->initialCondition == 0) {
        if (!analysis->dcSolver) throw VRNException("DC Solver is not set for Circuit " + name);
        context->setAnalysis(0);
        context->initialize();
        checkNetlist(true);
        context->setInputs(inputs);
        analysis->dcSolver->init(context);
        x.assign(static_cast<size_t>(context->getSize()), 0.0f);
        analysis->dcSolver->solve(x);
        for (size_t i = 0; i < x.size(); ++i)
            if (!std::isfinite(x[i]))
                throw VRNException("The operating point is not a number at " + context->describeUnknown(static_cast<int>(i)) +
                                   " in Circuit " + name);
        context->setSolution(x);
        // The listeners hear 0 → 1: the capacitors start from the operating point.
        context->setAnalysis(1);
    } else if (analysis->type == 1 && analysis->initialCondition == 1) {
        context->setAnalysis(1);
        context->initialize();
        checkNetlist(false);
        context->setInputs(inputs);
        x.assign(static_cast<size_t>(context->getSize()), 0.0f);
        context->setSolution(x);
    } else if (analysis->type == 1) {
        throw VRNException("Invalid initial condition for Circuit " + name);
    } else {
        context->setAnalysis(0);
        context->initialize();
        checkNetlist(true);
        context->setInputs(inputs);
        x.assign(static_cast<size_t>(context->getSize()), 0.0f);
        context->setSolution(x);
    }
    if (!analysis->solver) throw VRNException("Solver not set for Circuit " + name);
    analysis->solver->init(context);
    context->setMatrixChanged(false);
    initialized = true;
}

void Circuit::process(const std::vector<scalar*>& inputArrays, std::vector<scalar*>& outputArrays,
                      size_t framesPerBuffer) {
    if (!initialized) throw VRNException("Circuit is not initialized. Circuit Name: " + name);
    if (numberOfInputs > 0 && inputArrays.size() < static_cast<size_t>(numberOfInputs))
        throw VRNException(
            "Circuit:process: number of inputs does not match the number of arrays in the input vector. Circuit Name: " +
            name);
    if (outputArrays.size() != static_cast<size_t>(numberOfOutputs))
        throw VRNException(
            "Circuit:process: number of outputs does not match the number of arrays in the output vector. Circuit Name: " +
            name);
    if (bypass) {
        doBypass(inputArrays, outputArrays, framesPerBuffer);
        return;
    }
    if (off) {
        for (scalar* output : outputArrays) std::fill(output, output + framesPerBuffer, 0.0f);
        return;
    }
    if (context->isMatrixChanged()) {
        analysis->solver->update();
        context->setMatrixChanged(false);
    }
    const std::vector<scalar>& solution = context->getSolution();
    std::copy(solution.begin(), solution.end(), x.begin());
    const std::vector<MNAEventListener*>& listeners = context->getListeners();
    const size_t inputCount = static_cast<size_t>(numberOfInputs);
    for (size_t i = 0; i < framesPerBuffer; ++i) {
        // An input left unwired is silence, as it is for every filter.
        for (size_t k = 0; k < inputCount; ++k) (*inputs)[k] = inputArrays[k] ? inputArrays[k][i] : 0.0f;
        if (context->getAnalysis() == 1 && context->isInitialized())
            for (MNAEventListener* listener : listeners) listener->nextSample();
        try {
            analysis->solver->solve(x);
            if (allFinite(x)) {
                context->setSolution(x);
            } else {
                // Nothing recovers from a start that is not a number: go on from the last good one.
                std::copy(solution.begin(), solution.end(), x.begin());
                failedSamples.fetch_add(1, std::memory_order_relaxed);
            }
        } catch (const VRNException&) {
            // A failed sample repeats the last good solution; x goes on from where the solver left it.
            failedSamples.fetch_add(1, std::memory_order_relaxed);
        }
        std::vector<scalar>& values = context->getOutputs();
        for (size_t j = 0; j < outputArrays.size(); ++j) outputArrays[j][i] = values[j];
    }
}

void Circuit::doBypass(const std::vector<scalar*>& inputArrays, std::vector<scalar*>& outputArrays,
                       size_t framesPerBuffer) {
    if (numberOfInputs != numberOfOutputs)
        throw VRNException("Circuit:doBypass: number of inputs does not match the number of outptus. Circuit Name: " +
                           name);
    for (size_t j = 0; j < outputArrays.size(); ++j)
        if (framesPerBuffer > 0 && outputArrays[j] != inputArrays[j])
            std::memmove(outputArrays[j], inputArrays[j], framesPerBuffer * sizeof(scalar));
}

}  // namespace vrn
