#include "filters/Relaxation.h"

namespace vrn {

namespace {
const std::shared_ptr<ElementMeta> kMeta = std::make_shared<BasicFilterMeta>();
}

std::shared_ptr<ElementMeta> Relaxation::getMeta() { return kMeta; }

void Relaxation::refuse() const {
    throw OperationNotSupportedException("Relaxation: Block processing mode is not supported. Name: " + name);
}

void Relaxation::init(const std::string& filterName, std::shared_ptr<DSPContext>& filterContext) {
    Filter::init(filterName, filterContext);
    iterationResults.assign(1, 0.0f);
}

void Relaxation::init(const std::string& filterName, const Properties& filterProperties,
                      std::shared_ptr<DSPContext>& filterContext) {
    name = filterName;
    context = filterContext.get();
    properties = filterProperties;
    relaxationChanged = false;
    getProperty(properties, "Relaxation", relaxation, toScalar,
                VRNException("Relaxation: Relaxation is not defined. Relaxation name=" + name));
    if (!(relaxation > 0))
        throw InvalidArgumentException("Relaxation: Relaxation must be greater than 0. Relaxation=" +
                                       toString(relaxation) + " Relaxation name=" + name);
    iterationResults.assign(1, 0.0f);
    auto extrapolation = properties.find("Extrapolate");
    if (extrapolation != properties.end()) extrapolate = toBool(extrapolation->second);
}

void Relaxation::process(const std::vector<scalar*>&, size_t) { refuse(); }
void Relaxation::process(const std::vector<scalar*>&, std::vector<scalar*>&, size_t) { refuse(); }
scalar* Relaxation::process(scalar*, size_t) { refuse(); }
void Relaxation::process(const scalar*, scalar*, size_t) { refuse(); }
scalar* Relaxation::getOutput(int) { refuse(); }
std::vector<scalar*>& Relaxation::getOutputs() { refuse(); }

void Relaxation::process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t, int) {
    iterationResults[0] = (1 - relaxation) * lastValue + relaxation * (*inputs)[0];
    lastValue = iterationResults[0];
}

void Relaxation::endIteration(int) {
    if (!extrapolate) return;
    iterationResults[0] = 2 * lastValue - previousValue;
    previousValue = lastValue;
    lastValue = iterationResults[0];
}

void Relaxation::setRelaxation(scalar value) {
    relaxation = value;
    relaxationChanged = true;
}

}  // namespace vrn
