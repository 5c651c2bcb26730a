#include "amp/FilterWrapper.h"

using vrn::scalar;

namespace {
const std::shared_ptr<vrn::ElementMeta> kMeta = std::make_shared<vrn::BasicFilterMeta>();
}

FilterWrapper::FilterWrapper() : wrappedProperties(8) { wrappedProperties.max_load_factor(1.0f); }

FilterWrapper::~FilterWrapper() {
    filter.reset();
    calculator.reset();
    wrappedProperties.clear();
}

void FilterWrapper::propertyChanged(const std::string& propertyName, scalar value) {
    if (calculator)
        calculator->propertyChanged(propertyName, value);
    else
        wrappedProperties[propertyName] = value;
}

void FilterWrapper::init(const std::string& filterName, std::shared_ptr<vrn::DSPContext>& filterContext) {
    name = filterName;
    context = filterContext.get();
    if (filter) filter->init(filterName, filterContext);
}

void FilterWrapper::init(const std::string& filterName, const vrn::Properties& filterProperties,
                         std::shared_ptr<vrn::DSPContext>& filterContext) {
    name = filterName;
    context = filterContext.get();
    properties = filterProperties;
    auto names = properties.find("PropertyNames");
    if (names != properties.end()) {
        auto list = std::make_shared<std::vector<std::string>>();
        vrn::parseWords(names->second, "|", list);
        for (const std::string& key : *list) {
            auto value = properties.find(key);
            if (value != properties.end()) wrappedProperties[key] = vrn::toScalar(value->second);
        }
    }
    if (calculator) calculator->propertiesChanged(wrappedProperties);
    if (filter) filter->init(filterName, filterProperties, filterContext);
}

scalar FilterWrapper::process(scalar in) { return filter->process(in); }

// While the calculator's values glide, the block is cut into stretches with coefficients of
// their own; otherwise the inner filter runs the block in one go, as it would unwrapped.
void FilterWrapper::process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) {
    const size_t first = calculator->advance(framesPerBuffer);
    if (first >= framesPerBuffer || inputs.empty())
        filter->process(inputs, framesPerBuffer);
    else
        processInStretches(inputs[0], filter->getOutputs()[0], framesPerBuffer, first);
}

void FilterWrapper::process(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs,
                            size_t framesPerBuffer) {
    const size_t first = calculator->advance(framesPerBuffer);
    if (first >= framesPerBuffer || inputs.empty() || outputs.empty())
        filter->process(inputs, outputs, framesPerBuffer);
    else
        processInStretches(inputs[0], outputs[0], framesPerBuffer, first);
}

scalar* FilterWrapper::process(scalar* in, size_t framesPerBuffer) { return filter->process(in, framesPerBuffer); }

void FilterWrapper::process(const scalar* in, scalar* out, size_t framesPerBuffer) {
    const size_t first = calculator->advance(framesPerBuffer);
    if (first >= framesPerBuffer)
        filter->process(in, out, framesPerBuffer);
    else
        processInStretches(in, out, framesPerBuffer, first);
}

void FilterWrapper::processInStretches(const scalar* in, scalar* out, size_t framesPerBuffer, size_t first) {
    if (!in || !out) return;
    size_t done = 0;
    for (size_t n = first; n > 0;) {
        filter->process(in + done, out + done, n);
        done += n;
        if (done >= framesPerBuffer) break;
        n = calculator->advance(framesPerBuffer - done);
    }
}

void FilterWrapper::setSamplingRate(scalar rate) { calculator->setSamplingRate(rate); }

void FilterWrapper::process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t frameIndex, int iteration) {
    filter->process(inputs, frameIndex, iteration);
}

std::vector<scalar>& FilterWrapper::getLastIterationResults() { return filter->getLastIterationResults(); }

void FilterWrapper::endIteration(int frameIndex) { filter->endIteration(frameIndex); }

void FilterWrapper::setMaxBlockSize(int size) { filter->setMaxBlockSize(size); }

scalar* FilterWrapper::getOutput(int index) { return filter->getOutput(index); }

std::vector<scalar*>& FilterWrapper::getOutputs() { return filter->getOutputs(); }

std::shared_ptr<vrn::ElementMeta> FilterWrapper::getMeta() { return kMeta; }

void FilterWrapper::reset() { filter->reset(); }

void FilterWrapper::setCalculator(const std::shared_ptr<WrappedFilterPropertyCalculator>& newCalculator) {
    calculator = newCalculator;
    filter = calculator->getFilter();
    // The values parsed (or set by a control) before the wiring reach the network now, before
    // the inner filter has a name: the recursive filters take coefficients in any state.
    if (!wrappedProperties.empty()) calculator->propertiesChanged(wrappedProperties);
    // The inner filter only points at the context, as the wrapper does: a reference that owns
    // nothing.
    std::shared_ptr<vrn::DSPContext> unowned(std::shared_ptr<vrn::DSPContext>(), context);
    filter->init(name, unowned);
}
