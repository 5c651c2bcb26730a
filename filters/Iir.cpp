#include "filters/Iir.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "engine/AlignedMemory.h"
#include "engine/Kernels.h"

namespace vrn {

namespace {
const std::shared_ptr<ElementMeta> kMeta = std::make_shared<BasicFilterMeta>();
}

Iir::~Iir() {
    freeSamples(x);
    freeSamples(y);
}

std::shared_ptr<ElementMeta> Iir::getMeta() { return kMeta; }

void Iir::init(const std::string& filterName, std::shared_ptr<DSPContext>& filterContext) {
    Filter::init(filterName, filterContext);
    sizePorts();
}

void Iir::readList(const char* key, size_t expected, std::vector<scalar>& values) {
    auto it = properties.find(key);
    if (it == properties.end())
        throw InvalidArgumentException(std::string("Iir: ") + key + " is not defined. Iir name=" + name);
    auto list = std::make_shared<std::vector<scalar>>();
    parseScalars(it->second, "|", list);
    if (list->size() != expected)
        throw InvalidArgumentException(std::string("Iir: Invalid number of values for ") + key + " (" + it->second +
                                       "). Expected " + toString(expected) + ". Iir name=" + name);
    values = *list;
}

void Iir::init(const std::string& filterName, const Properties& filterProperties,
               std::shared_ptr<DSPContext>& filterContext) {
    name = filterName;
    context = filterContext.get();
    properties = filterProperties;
    auto orderText = properties.find("Order");
    if (orderText == properties.end())
        throw InvalidArgumentException("Iir: Order is not defined. Iir name=" + name);
    const int order = toInt(orderText->second);
    // A negative order passes here and is refused by setOrder.
    if (order == 0)
        throw InvalidArgumentException("Iir: Order must be greater than 0. Iir name: " + name +
                                       " Order=" + orderText->second);
    setOrder(order);
    std::vector<scalar> newA, newB;
    readList("A", static_cast<size_t>(order), newA);
    readList("B", static_cast<size_t>(order) + 1, newB);
    a.assign(newA.size(), 0.0f);
    b.assign(newB.size(), 0.0f);
    setA(newA);
    setB(newB);
    sizePorts();
}

void Iir::setOrder(int order) {
    if (order < 1) throw VRNException("Iir: Invalid order" + toString(order));
    numberOfCoefficients = static_cast<size_t>(order) + 1;
    if (maxBlockSize > 0) allocateHistory();
}

void Iir::allocateHistory() {
    freeSamples(x);
    freeSamples(y);
    x = nullptr;
    y = nullptr;
    const size_t size = numberOfCoefficients + static_cast<size_t>(maxBlockSize) - 1;
    x = allocateSamples(size);
    y = allocateSamples(size);
    std::fill(x, x + size, 0.0f);
    std::fill(y, y + size, 0.0f);
}

void Iir::setA(const std::vector<scalar>& values) {
    const size_t expected = numberOfCoefficients - 1;
    if (values.size() != expected)
        throw InvalidArgumentException("Iir: Invalid number of \"A\" coefficients. Expected: " + toString(expected) +
                                       " got: " + toString(values.size()));
    a.resize(expected);
    std::reverse_copy(values.begin(), values.end(), a.begin());
}

void Iir::setB(const std::vector<scalar>& values) {
    const size_t expected = numberOfCoefficients;
    if (values.size() != expected)
        throw InvalidArgumentException("Iir: Invalid number of \"B\" coefficients. Expected: " + toString(expected) +
                                       " got: " + toString(values.size()));
    b.resize(expected);
    std::reverse_copy(values.begin(), values.end(), b.begin());
}

void Iir::propertyChanged(const std::string& propertyName, scalar value) {
    if (propertyName != "Order") throw InvalidArgumentException("Iir: Unknown property " + propertyName);
    setOrder(static_cast<int>(std::roundf(value)));
}

void Iir::propertyChanged(const std::string& propertyName, const std::shared_ptr<std::vector<scalar>>& values) {
    if (propertyName == "A")
        setA(*values);
    else if (propertyName == "B")
        setB(*values);
    else
        throw InvalidArgumentException("Iir: Unknown property " + propertyName);
}

void Iir::setMaxBlockSize(int size) {
    if (size < 1) throw VRNException("Iir: Invalid maxBlockSize" + toString(size));
    if (size <= maxBlockSize) return;
    maxBlockSize = size;
    if (numberOfCoefficients != 0) allocateHistory();
    freeSamples(buffer);
    buffer = nullptr;
    buffer = allocateSamples(static_cast<size_t>(size));
    if (outputs.empty()) outputs.resize(1);
    outputs[0] = buffer;
}

scalar Iir::process(scalar) { return 0.0f; }

void Iir::process(const std::vector<scalar*>& inputs, std::vector<scalar*>& filterOutputs, size_t framesPerBuffer) {
    process(inputs[0], filterOutputs[0], framesPerBuffer);
}

scalar* Iir::process(scalar* in, size_t framesPerBuffer) {
    process(static_cast<const scalar*>(in), buffer, framesPerBuffer);
    return buffer;
}

void Iir::process(const scalar* in, scalar* out, size_t framesPerBuffer) {
    if (framesPerBuffer == 0 || !in || !out) return;
    const size_t order = numberOfCoefficients - 1;
    if (a.size() != order)
        throw VRNException("Iir: Invalid length of \"a\" coefficients. Expecting: " + toString(order) +
                           ". Got: " + toString(a.size()));
    if (b.size() != order + 1)
        throw VRNException("Iir: Invalid length of \"b\" coefficients. Expecting: " + toString(order + 1) +
                           ". Got: " + toString(b.size()));
    const int n = static_cast<int>(order);
    const size_t m = std::min(framesPerBuffer, order);
    // The first samples need the history: they run behind it in x and y.
    std::memcpy(x + order, in, m * sizeof(scalar));
    for (size_t j = 0; j < m; ++j) {
        y[order + j] = sdot(x + j, b.data(), n + 1);
        y[order + j] -= sdot(y + j, a.data(), n);
    }
    std::memcpy(out, y + order, m * sizeof(scalar));
    if (m == order) {
        // From here the history lies in the block itself.
        for (size_t i = m; i < framesPerBuffer; ++i) {
            out[i] = sdot(in + (i - m), b.data(), n + 1);
            out[i] -= sdot(out + (i - m), a.data(), n);
        }
        std::memcpy(x, in + (framesPerBuffer - order), order * sizeof(scalar));
        std::memcpy(y, out + (framesPerBuffer - order), order * sizeof(scalar));
    } else {
        std::memmove(x, x + m, order * sizeof(scalar));
        std::memmove(y, y + m, order * sizeof(scalar));
    }
}

void Iir::process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t, int) {
    const size_t order = numberOfCoefficients - 1;
    const int n = static_cast<int>(order);
    x[order] = (*inputs)[0];
    y[order] = sdot(x, b.data(), n + 1) - sdot(y, a.data(), n);
    iterationResults[0] = y[order];
}

void Iir::endIteration(int frameIndex) {
    const size_t order = numberOfCoefficients - 1;
    buffer[frameIndex] = iterationResults[0];
    std::memmove(x, x + 1, order * sizeof(scalar));
    std::memmove(y, y + 1, order * sizeof(scalar));
}

void Iir::reset() {
    if (!x || !y) return;
    const size_t size = numberOfCoefficients - 1 + static_cast<size_t>(maxBlockSize);
    std::fill(x, x + size, 0.0f);
    std::fill(y, y + size, 0.0f);
}

}  // namespace vrn
