#include "filters/DifferentialFilter.h"

#include <algorithm>

#include "engine/Kernels.h"

namespace vrn {

namespace {
const std::shared_ptr<ElementMeta> kMeta = std::make_shared<DifferentialFilterMeta>();
}

int DifferentialFilterMeta::getInputIndex(const std::string& portName) {
    if (portName == "plus") return 0;
    if (portName == "minus") return 1;
    throw InvalidArgumentException("Invalid input port name: " + portName + ". Expected \"plus\" or \"minus\".");
}

DifferentialFilter::DifferentialFilter()
    : BufferedFilter("DifferentialFilter"),
      plusIndex(kMeta->getInputIndex("plus")),
      minusIndex(kMeta->getInputIndex("minus")) {}

std::shared_ptr<ElementMeta> DifferentialFilter::getMeta() { return kMeta; }

void DifferentialFilter::init(const std::string& filterName, const Properties& filterProperties,
                              std::shared_ptr<DSPContext>& filterContext) {
    name = filterName;
    context = filterContext.get();
    properties = filterProperties;
    getProperty(properties, "Gain", gain, toScalar, VRNException("Gain is not defined. DifferentialFilter name=" + name));
    auto node = properties.find("ConstantValueNode");
    if (node != properties.end()) {
        hasConstantValue = true;
        constantValueNode = node->second;
        constantValueNodeIndex = kMeta->getInputIndex(constantValueNode);
        getProperty(properties, "ConstantValue", constantValue, toScalar,
                    VRNException("Missing value for constant value node " + constantValueNode));
    }
    sizePorts();
}

void DifferentialFilter::propertyChanged(const std::string& propertyName, scalar value) {
    if (propertyName != "Gain") throw InvalidArgumentException("DifferentialFilter: Invalid property name " + propertyName);
    gain = value;
}

void DifferentialFilter::process(const std::vector<scalar*>& inputs, std::vector<scalar*>& filterOutputs,
                                 size_t framesPerBuffer) {
    scalar* out = filterOutputs[0];
    const scalar g = gain;
    const scalar c = constantValue;
    const bool constantPlus = hasConstantValue && constantValueNodeIndex == plusIndex;
    const bool constantMinus = hasConstantValue && constantValueNodeIndex == minusIndex;
    const scalar* p = constantPlus ? nullptr : inputs[static_cast<size_t>(plusIndex)];
    const scalar* m = constantMinus ? nullptr : inputs[static_cast<size_t>(minusIndex)];
    const int n = static_cast<int>(framesPerBuffer);

    if (n < 4) {
        // Short blocks: plain loops, without the kernels' start-up cost.
        for (int i = 0; i < n; ++i) {
            scalar plus = constantPlus ? c : (p ? p[i] : 0.0f);
            scalar minus = constantMinus ? c : (m ? m[i] : 0.0f);
            out[i] = (plus - minus) * g;
        }
        return;
    }
    // Kernels: the base value, then g·plus and −g·minus accumulated.  0 + g·p rounds as p·g does.
    const scalar base = constantPlus ? c * g : (constantMinus ? -(c * g) : 0.0f);
    std::fill(out, out + n, base);
    if (p) saxpy(n, g, p, out);
    if (m) saxpy(n, -g, m, out);
}

void DifferentialFilter::process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t, int) {
    iterationResults[0] = ((*inputs)[0] - (*inputs)[1]) * gain;
}

}  // namespace vrn
