#include "filters/FixedOrderIIR.h"

#include <algorithm>

namespace vrn {

namespace {
const std::shared_ptr<ElementMeta> kMeta = std::make_shared<BasicFilterMeta>();
}

template <int N>
std::shared_ptr<ElementMeta> FixedOrderIIR<N>::getMeta() {
    return kMeta;
}

template <int N>
void FixedOrderIIR<N>::readList(const char* key, size_t expected, scalar* values) {
    auto it = properties.find(key);
    if (it == properties.end())
        throw InvalidArgumentException(std::string(key) + " is not defined. " + typeName + " name=" + name);
    auto list = std::make_shared<std::vector<scalar>>();
    parseScalars(it->second, "|", list);
    if (list->size() != expected)
        throw InvalidArgumentException(std::string("Invalid number of values for ") + key + " (" + it->second +
                                       "). Expected " + toString(expected) + ". " + typeName + " name=" + name);
    std::copy(list->begin(), list->end(), values);
}

template <int N>
void FixedOrderIIR<N>::readA(scalar* values) {
    readList("A", N, values);
}

template <int N>
void FixedOrderIIR<N>::init(const std::string& filterName, const Properties& filterProperties,
                            std::shared_ptr<DSPContext>& filterContext) {
    name = filterName;
    context = filterContext.get();
    properties = filterProperties;
    scalar newA[N];
    scalar newB[N + 1];
    readA(newA);
    readList("B", N + 1, newB);
    readMore();
    setCoefficients(newA, newB);
    clearState();
    sizePorts();
}

template <int N>
void FixedOrderIIR<N>::setCoefficients(const scalar* newA, const scalar* newB) {
    if (!newA) throw VRNException(std::string(typeName) + ": a cannot be null");
    std::copy(newA, newA + N, a);
    if (!newB) throw VRNException(std::string(typeName) + ": b cannot be null");
    std::copy(newB, newB + N + 1, b);
}

template <int N>
void FixedOrderIIR<N>::propertyChanged(const std::string& propertyName,
                                       const std::shared_ptr<std::vector<scalar>>& values) {
    if (propertyName == "A") {
        if (values->size() != static_cast<size_t>(N))
            throw InvalidArgumentException(std::string(typeName) + ": Invalid number of A values " +
                                           toString(values->size()));
        std::copy(values->begin(), values->end(), a);
    } else if (propertyName == "B") {
        if (values->size() != static_cast<size_t>(N + 1))
            throw InvalidArgumentException(std::string(typeName) + ": Invalid number of B values " +
                                           toString(values->size()));
        std::copy(values->begin(), values->end(), b);
    } else {
        throw InvalidArgumentException(std::string(typeName) + ": Unknown property " + propertyName);
    }
}

template <int N>
void FixedOrderIIR<N>::process(const std::vector<scalar*>& inputs, std::vector<scalar*>& filterOutputs,
                               size_t framesPerBuffer) {
    const scalar* in = inputs[0];
    scalar* out = filterOutputs[0];
    if (handler && handler->isPerSample()) {
        if (!in || !out) return;
        // The handler may change the coefficients before each sample; they act on that sample.
        for (size_t i = 0; i < framesPerBuffer; ++i) {
            handler->update(in[i], y[0]);
            out[i] = process(in[i]);
        }
        return;
    }
    process(in, out, framesPerBuffer);
}

template <int N>
void FixedOrderIIR<N>::process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t, int iteration) {
    if (iteration == 0) {
        // Everything but the b0 term: it does not change while the passes over a sample repeat.
        scalar sum = x[0] * b[1];
        for (int k = 1; k < N; ++k) sum = sum + x[k] * b[k + 1];
        for (int k = 0; k < N; ++k) sum = sum - y[k] * a[k];
        partialSum = sum;
    }
    x0 = (*inputs)[0];
    iterationResults[0] = x0 * b[0] + partialSum;
}

template <int N>
void FixedOrderIIR<N>::endIteration(int frameIndex) {
    for (int k = N - 1; k > 0; --k) {
        x[k] = x[k - 1];
        y[k] = y[k - 1];
    }
    x[0] = x0;
    y[0] = iterationResults[0];
    buffer[frameIndex] = iterationResults[0];
}

template <int N>
void FixedOrderIIR<N>::clearState() {
    x0 = 0;
    std::fill(x, x + N, 0.0f);
    std::fill(y, y + N, 0.0f);
    partialSum = 0;
}

template <int N>
void FixedOrderIIR<N>::reset() {
    clearState();
}

template class FixedOrderIIR<1>;
template class FixedOrderIIR<2>;
template class FixedOrderIIR<3>;

}  // namespace vrn
