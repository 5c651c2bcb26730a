#include "amp/Newton.h"

#include <cmath>

using vrn::scalar;
using vrn::VRNException;

namespace {
const std::shared_ptr<vrn::ElementMeta> kMeta = std::make_shared<vrn::BasicFilterMeta>();
}

Newton::Newton() : loopInput(std::make_shared<std::vector<scalar>>(1, 0.0f)), outputs(1, nullptr) {}

void Newton::propertyChanged(const std::string& propertyName, scalar value) {
    if (propertyName == "MaxIterations") maxIterations = static_cast<int>(std::lround(value));
    scalarProperties[propertyName] = value;
    for (FilterList* list : {&forwardFilters, &forwardDerivatives, &feedbackFilters, &feedbackDerivatives})
        for (auto& stage : *list) stage->propertyChanged(propertyName, value);
}

void Newton::init(const std::string& filterName, const vrn::Properties& filterProperties,
                  std::shared_ptr<vrn::DSPContext>& filterContext) {
    name = filterName;
    context = filterContext.get();
    properties = filterProperties;
    vrn::getProperty(properties, "RelativeError", relativeError, vrn::toScalar,
                     VRNException("Newton: " + name + " missing RelativeError"));
    vrn::getProperty(properties, "AbsoluteError", absoluteError, vrn::toScalar,
                     VRNException("Newton: " + name + " missing AbsoluteError"));
    vrn::getProperty(properties, "MaxIterations", maxIterations, vrn::toInt,
                     VRNException("Newton: " + name + " missing MaxIterations"));
    auto optional = [&](const char* key, scalar& field) {
        auto it = properties.find(key);
        if (it != properties.end()) field = vrn::toScalar(it->second);
    };
    optional("Relaxation", relaxation);
    optional("MaxValue", maxValue);
    optional("MinValue", minValue);
    auto type = properties.find("FeedbackType");
    if (type == properties.end()) throw VRNException("Newton: FeedbackType must be specified");
    if (type->second == "Positive")
        feedbackType = newtondsp::Positive;
    else if (type->second == "Negative")
        feedbackType = newtondsp::Negative;
    else
        throw vrn::InvalidArgumentException("Newton: Unknown FeedbackType: " + type->second);
}

scalar Newton::process(scalar) { throw VRNException("Newton: Newton::process Not supported."); }

scalar* Newton::process(scalar*, size_t) { throw VRNException("Newton: Newton::process Not supported."); }

void Newton::process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) {
    process(inputs, outputs, framesPerBuffer);
}

void Newton::process(const std::vector<scalar*>& inputs, std::vector<scalar*>& filterOutputs,
                     size_t framesPerBuffer) {
    process(static_cast<const scalar*>(inputs[0]), filterOutputs[0], framesPerBuffer);
}

scalar Newton::runChain(FilterList& filters, FilterList& derivatives, size_t frameIndex, int pass) {
    scalar product = 1.0f;
    std::vector<scalar>& value = *loopInput;
    for (size_t j = 0; j < filters.size(); ++j) {
        filters[j]->process(loopInput, frameIndex, pass);
        derivatives[j]->process(loopInput, frameIndex, pass);
        product = product * derivatives[j]->getLastIterationResults()[0];
        value[0] = filters[j]->getLastIterationResults()[0];
    }
    return product;
}

void Newton::process(const scalar* in, scalar* out, size_t framesPerBuffer) {
    std::vector<scalar>& value = *loopInput;
    step = 1.0f;
    convergence = 1.0f;
    for (size_t k = 0; k < framesPerBuffer; ++k) {
        const scalar x = in[k];
        convergence = 1.0f;
        error = 1.0f;
        int i = 0;
        while ((convergence > 0 || std::fabs(error) > absoluteError) && i < maxIterations) {
            ++i;
            // The stages count the passes over a sample from 0, as the iteration protocol does:
            // their one-time work per sample is done on pass 0.
            const int pass = i - 1;
            value[0] = estimate;
            scalar product = runChain(feedbackFilters, feedbackDerivatives, k, pass);
            value[0] = x - value[0];
            product = product * runChain(forwardFilters, forwardDerivatives, k, pass);
            error = estimate - value[0];
            denominator = product + 1.0f;
            step = relaxation * error / denominator;
            next = estimate - step;
            convergence = std::fabs(step) - std::fabs(next) * relativeError;
            estimate = next;
            if (estimate > maxValue) estimate = maxValue;
            if (estimate < minValue) estimate = minValue;
        }
        const int frame = static_cast<int>(k);
        for (FilterList* list : {&forwardFilters, &forwardDerivatives, &feedbackFilters, &feedbackDerivatives})
            for (auto& stage : *list) stage->endIteration(frame);
        out[k] = next;
    }
}

void Newton::setSamplingRate(scalar rate) {
    for (FilterList* list : {&forwardFilters, &forwardDerivatives, &feedbackFilters, &feedbackDerivatives})
        for (auto& stage : *list) stage->setSamplingRate(rate);
}

void Newton::process(const std::shared_ptr<std::vector<scalar>>&, size_t, int) {
    throw VRNException("Newton: Iterative processing is not supported.");
}

std::vector<scalar>& Newton::getLastIterationResults() {
    throw VRNException("Newton: getLastIterationResults is not supported.");
}

void Newton::endIteration(int) { throw VRNException("Newton: endIteration is not supported."); }

void Newton::setMaxBlockSize(int size) {
    for (FilterList* list : {&forwardFilters, &forwardDerivatives, &feedbackFilters, &feedbackDerivatives})
        for (auto& stage : *list) stage->setMaxBlockSize(size);
    if (size < 1) throw VRNException("Newton: Invalid maxBlockSize" + vrn::toString(size));
    if (size > maxBlockSize) {
        maxBlockSize = size;
        outputBuffer.assign(static_cast<size_t>(size), 0.0f);
        outputs[0] = outputBuffer.data();
    }
}

scalar* Newton::getOutput(int index) { return outputs[static_cast<size_t>(index)]; }

std::vector<scalar*>& Newton::getOutputs() { return outputs; }

std::shared_ptr<vrn::ElementMeta> Newton::getMeta() { return kMeta; }

void Newton::reset() {
    for (FilterList* list : {&forwardFilters, &forwardDerivatives, &feedbackFilters, &feedbackDerivatives})
        for (auto& stage : *list) stage->reset();
}
