#include "filters/LookupTableFilter.h"

#include <xmmintrin.h>

namespace vrn {

namespace {

const std::shared_ptr<ElementMeta> kMeta = std::make_shared<BasicFilterMeta>();

// The processor's truncating conversion: out of range and NaN give the lowest int, and so entry 0.
inline int truncateToInt(scalar value) { return _mm_cvtt_ss2si(_mm_set_ss(value)); }

inline scalar lookup(scalar x, scalar vinMin, scalar deltaV, scalar inverseDeltaV, const scalar* table, int last) {
    scalar t = x - vinMin;
    int i = truncateToInt(inverseDeltaV * t);
    if (i < 1) return table[0];
    if (i >= last) return table[last];
    scalar a = table[i];
    scalar b = table[i + 1];
    if (a == b) return a;
    return (t - static_cast<scalar>(i) * deltaV) * (b - a) * inverseDeltaV + a;
}

}  // namespace

LookupTableFilter::LookupTableFilter()
    : BufferedFilter("LookupTableFilter"), values(std::make_shared<std::vector<scalar>>()) {}

std::shared_ptr<ElementMeta> LookupTableFilter::getMeta() { return kMeta; }

void LookupTableFilter::init(const std::string& filterName, std::shared_ptr<DSPContext>& filterContext) {
    Filter::init(filterName, filterContext);
    inputIndex = 0;
    sizePorts();
}

void LookupTableFilter::init(const std::string& filterName, const Properties& filterProperties,
                             std::shared_ptr<DSPContext>& filterContext) {
    name = filterName;
    context = filterContext.get();
    properties = filterProperties;
    inputIndex = 0;
    sizePorts();
    if (properties.empty()) return;
    getProperty(properties, "VinMin", vinMin, toScalar,
                InvalidArgumentException("VinMin is not defined. LookupTableAmp name=" + name));
    getProperty(properties, "VinMax", vinMax, toScalar,
                InvalidArgumentException("VinMax is not defined. LookupTableAmp name=" + name));
    getProperty(properties, "DeltaV", deltaV, toScalar,
                InvalidArgumentException("DeltaV is not defined. LookupTableAmp name=" + name));
    if (!(deltaV > 0)) throw InvalidArgumentException("DeltaV must be greater than 0. LookupTableAmp name=" + name);
    inverseDeltaV = 1.0f / deltaV;
    auto vout = properties.find("Vout");
    if (vout != properties.end()) parseScalars(vout->second, "|", values);
}

void LookupTableFilter::propertiesChanged(const Properties& changed) {
    if (changed.empty()) return;
    auto find = [&](const char* key, scalar& field) {
        auto it = changed.find(key);
        if (it == changed.end()) return false;
        field = toScalar(it->second);
        return true;
    };
    find("VinMin", vinMin);
    find("VinMax", vinMax);
    if (find("DeltaV", deltaV)) inverseDeltaV = 1.0f / deltaV;
    auto vout = changed.find("Vout");
    if (vout != changed.end()) parseScalars(vout->second, "|", values);
}

void LookupTableFilter::propertyChanged(const std::string& propertyName,
                                        const std::shared_ptr<std::vector<scalar>>& newValues) {
    if (propertyName != "Vout") throw InvalidArgumentException("LookupTableFilter: Unknown property " + propertyName);
    if (!newValues || newValues->empty())
        throw InvalidArgumentException("LookupTableFiter: empty Vout values array. ");
    if (!values->empty() && values->size() != newValues->size())
        throw InvalidArgumentException("LookupTableFilter: size of Vout (" + toString(values->size()) +
                                       ") is not equal to the size of values (" + toString(newValues->size()) + " )");
    values = newValues;
}

scalar LookupTableFilter::process(scalar in) {
    return lookup(in, vinMin, deltaV, inverseDeltaV, values->data(), static_cast<int>(values->size()) - 1);
}

void LookupTableFilter::process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) {
    process(inputs[0], buffer, framesPerBuffer);
}

void LookupTableFilter::process(const std::vector<scalar*>& inputs, std::vector<scalar*>& filterOutputs,
                                size_t framesPerBuffer) {
    process(inputs[static_cast<size_t>(inputIndex)], filterOutputs[0], framesPerBuffer);
}

scalar* LookupTableFilter::process(scalar*, size_t) { return nullptr; }

void LookupTableFilter::process(const scalar* in, scalar* out, size_t framesPerBuffer) {
    if (framesPerBuffer == 0 || !in || !out) return;
    if (values->empty()) throw VRNException("LookupTableFilter: " + name + " lookup data is not defined.");
    const scalar* table = values->data();
    const int last = static_cast<int>(values->size()) - 1;
    const scalar low = vinMin, step = deltaV, inverse = inverseDeltaV;
    size_t i = 0;
    for (; i + 4 <= framesPerBuffer; i += 4) {
        out[i] = lookup(in[i], low, step, inverse, table, last);
        out[i + 1] = lookup(in[i + 1], low, step, inverse, table, last);
        out[i + 2] = lookup(in[i + 2], low, step, inverse, table, last);
        out[i + 3] = lookup(in[i + 3], low, step, inverse, table, last);
    }
    for (; i < framesPerBuffer; ++i) out[i] = lookup(in[i], low, step, inverse, table, last);
}

void LookupTableFilter::process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t, int) {
    iterationResults[0] = process((*inputs)[0]);
}

}  // namespace vrn
