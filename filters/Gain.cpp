#include "filters/Gain.h"

#include <algorithm>
#include <cstring>

#include "engine/Context.h"
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
    glide.jump(gain);
    sizePorts();
}

void Gain::propertyChanged(const std::string& propertyName, scalar value) {
    if (propertyName != "Gain") throw InvalidArgumentException("Gain: Invalid property name " + propertyName);
    glide.setTarget(value);
    gain = static_cast<scalar>(glide.value());
}

void Gain::setGlideTime(scalar seconds) {
    if (rate <= 0.0f && context) rate = context->getSamplingRate();
    glide.setTime(seconds, rate);
    gain = static_cast<scalar>(glide.value());
}

void Gain::setSamplingRate(scalar newRate) {
    Filter::setSamplingRate(newRate);
    rate = newRate;
    glide.setRate(rate);
    gain = static_cast<scalar>(glide.value());
}

void Gain::reset() {
    glide.jump(glide.target());
    gain = static_cast<scalar>(glide.value());
}

void Gain::process(const std::vector<scalar*>& inputs, std::vector<scalar*>& filterOutputs, size_t framesPerBuffer) {
    process(inputs[0], filterOutputs[0], framesPerBuffer);
}

void Gain::process(const scalar* in, scalar* out, size_t framesPerBuffer) {
    if (framesPerBuffer == 0) return;
    glide.start();
    size_t done = 0;
    if (glide.moving()) {
        // Sample by sample along the line while it lasts, then the plain kernel at the target.
        done = std::min(framesPerBuffer, glide.left());
        for (size_t i = 0; i < done; ++i) out[i] = in ? in[i] * static_cast<scalar>(glide.ahead(i + 1)) : 0.0f;
        gain = static_cast<scalar>(glide.advance(done));
        if (done == framesPerBuffer) return;
    }
    const size_t rest = framesPerBuffer - done;
    if (!in) {
        std::fill(out + done, out + framesPerBuffer, 0.0f);
        return;
    }
    if (in != out) std::memmove(out + done, in + done, rest * sizeof(scalar));
    sscal(static_cast<int>(rest), gain, out + done);
}

void Gain::process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t, int) {
    iterationResults[0] = gain * (*inputs)[0];
}

}  // namespace vrn
