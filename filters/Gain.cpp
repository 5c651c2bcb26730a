#include "filters/Gain.h"

#include <algorithm>
#include <cstring>

#include "engine/Kernels.h"

namespace vrn {

namespace {
const std::shared_ptr<ElementMeta> kMeta = std::make_shared<BasicFilterMeta>();
}

std::shared_ptr<ElementMeta> Gain::getMeta() { return kMeta; }

void Gain::init(const std::string& filterName, std::shared_ptr<DSPContext>& filterContext) {
    Filter::init(filterName, filterContext);
    sizePorts();
}

void Gain::init(const std::string& filterName, const Properties& filterProperties,
                std::shared_ptr<DSPContext>& filterContext) {
    name = filterName;
    context = filterContext.get();
    properties = filterProperties;
    getProperty(properties, "Gain", gain, toScalar, InvalidArgumentException("Gain is not defined. Gain name=" + name));
    sizePorts();
}

void Gain::propertyChanged(const std::string& propertyName, scalar value) {
    if (propertyName != "Gain") throw InvalidArgumentException("Gain: Invalid property name " + propertyName);
    gain = value;
}

void Gain::process(const std::vector<scalar*>& inputs, std::vector<scalar*>& filterOutputs, size_t framesPerBuffer) {
    process(inputs[0], filterOutputs[0], framesPerBuffer);
}

void Gain::process(const scalar* in, scalar* out, size_t framesPerBuffer) {
    if (framesPerBuffer == 0) return;
    if (!in) {
        std::fill(out, out + framesPerBuffer, 0.0f);
        return;
    }
    if (in != out) std::memmove(out, in, framesPerBuffer * sizeof(scalar));
    sscal(static_cast<int>(framesPerBuffer), gain, out);
}

void Gain::process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t, int) {
    iterationResults[0] = gain * (*inputs)[0];
}

}  // namespace vrn
