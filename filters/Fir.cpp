#include "filters/Fir.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "engine/AlignedMemory.h"

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define ORM_FIR_SSE2 1
#endif

namespace vrn {

namespace {

const std::shared_ptr<ElementMeta> kMeta = std::make_shared<BasicFilterMeta>();

// Room in front of a block: the longest delay line, 4 × 64 groups.
constexpr size_t kHistoryHeadroom = 256;

// The four-lane inner product.  Lane j of group g multiplies the sample 4g + j steps back
// (samples[-(4g + j)]) with tap 4g + j, and the lanes end as s1 + s3 + s0 + s2.
template <typename Group>
inline scalar innerProduct(const Group* taps, size_t groups, const scalar* present) {
#ifdef ORM_FIR_SSE2
    __m128 acc = _mm_setzero_ps();
    for (size_t g = 0; g < groups; ++g) {
        const __m128 older = _mm_loadu_ps(present - 4 * g - 3);
        const __m128 newestFirst = _mm_shuffle_ps(older, older, _MM_SHUFFLE(0, 1, 2, 3));
        acc = _mm_add_ps(acc, _mm_mul_ps(newestFirst, _mm_load_ps(taps[g].v)));
    }
    alignas(16) scalar s[4];
    _mm_store_ps(s, acc);
#else
    scalar s[4] = {0.0f, 0.0f, 0.0f, 0.0f};
    for (size_t g = 0; g < groups; ++g)
        for (size_t j = 0; j < 4; ++j) s[j] += present[-static_cast<long>(4 * g + j)] * taps[g].v[j];
#endif
    return s[1] + s[3] + s[0] + s[2];
}

// The same sum where the samples are already laid out lane by lane beside the taps.
template <typename Group>
inline scalar laneProduct(const Group* taps, const Group* samples, size_t groups) {
#ifdef ORM_FIR_SSE2
    __m128 acc = _mm_setzero_ps();
    for (size_t g = 0; g < groups; ++g) acc = _mm_add_ps(acc, _mm_mul_ps(_mm_load_ps(samples[g].v), _mm_load_ps(taps[g].v)));
    alignas(16) scalar s[4];
    _mm_store_ps(s, acc);
#else
    scalar s[4] = {0.0f, 0.0f, 0.0f, 0.0f};
    for (size_t g = 0; g < groups; ++g)
        for (size_t j = 0; j < 4; ++j) s[j] += samples[g].v[j] * taps[g].v[j];
#endif
    return s[1] + s[3] + s[0] + s[2];
}

}  // namespace

// ---- Fir ----

Fir::Fir() : BufferedFilter("Fir") { std::fill(coefficients, coefficients + kMaxTaps, 0.0f); }

Fir::~Fir() { freeSamples(history); }

std::shared_ptr<ElementMeta> Fir::getMeta() { return kMeta; }

void Fir::ensureHistory() {
    // Enough for the per-sample paths before the first setMaxBlockSize.
    if (history) return;
    history = allocateSamples(historySize + kHistoryHeadroom);
    std::fill(history, history + historySize + kHistoryHeadroom, 0.0f);
}

void Fir::init(const std::string& filterName, std::shared_ptr<DSPContext>& filterContext) {
    Filter::init(filterName, filterContext);
    packedCoefficients.reserve(2 * 64);
    packedCoefficients.assign(std::max<size_t>(numberOfGroups, 1), Group{{0.0f, 0.0f, 0.0f, 0.0f}});
    ensureHistory();
    sizePorts();
}

void Fir::init(const std::string& filterName, const Properties& filterProperties,
               std::shared_ptr<DSPContext>& filterContext) {
    name = filterName;
    context = filterContext.get();
    properties = filterProperties;
    packedCoefficients.reserve(2 * 64);
    packedCoefficients.assign(std::max<size_t>(numberOfGroups, 1), Group{{0.0f, 0.0f, 0.0f, 0.0f}});
    ensureHistory();
    setProperties(properties);
    sizePorts();
}

void Fir::setProperties(const Properties& filterProperties) {
    auto it = filterProperties.find("Coefficients");
    if (it == filterProperties.end()) return;
    auto values = std::make_shared<std::vector<scalar>>();
    parseScalars(it->second, "|", values);
    setCoefficients(values->data(), values->size());
}

void Fir::setCoefficients(const scalar* b, size_t count) {
    if (count > kMaxTaps)
        throw VRNException("Maximum filter order is " + toString(static_cast<int>(kMaxTaps - 1)) +
                           ". You requested: " + toString(count - 1));
    // An empty tap list (an empty Coefficients text) would leave nothing to filter with.
    if (count == 0) throw VRNException("Fir: Size of filter coefficients must be greater than zero.");
    if (!b) throw VRNException("Fir: b cannot be null");
    std::fill(coefficients, coefficients + kMaxTaps, 0.0f);
    std::copy(b, b + count, coefficients);
    length = count;
    numberOfGroups = (count - 1) / 4 + 1;
    packedCoefficients.resize(numberOfGroups);
    for (size_t g = 0; g < numberOfGroups; ++g)
        for (size_t j = 0; j < 4; ++j) packedCoefficients[g].v[j] = coefficients[4 * g + j];
}

void Fir::propertyChanged(const std::string& propertyName, const std::shared_ptr<std::vector<scalar>>& values) {
    if (propertyName != "Coefficients") throw InvalidArgumentException("Fir: Invalid property name " + propertyName);
    if (!values) {
        setCoefficients(nullptr, 0);
        return;
    }
    setCoefficients(values->data(), values->size());
}

void Fir::grow(int frames) {
    if (frames <= maxBlockSize) return;
    scalar* fresh = nullptr;
    try {
        fresh = allocateSamples(static_cast<size_t>(frames) + kHistoryHeadroom);
    } catch (const std::bad_alloc&) {
        throw VRNException("Failed to allocate memory for FIR buffer");
    }
    freeSamples(history);
    history = fresh;
    maxBlockSize = frames;
    historySize = static_cast<size_t>(frames);
    std::fill(history, history + historySize + kHistoryHeadroom, 0.0f);
    freeSamples(buffer);
    buffer = nullptr;
    buffer = allocateSamples(static_cast<size_t>(frames));
    std::fill(buffer, buffer + frames, 0.0f);
    if (outputs.empty()) outputs.resize(1);
    outputs[0] = buffer;
}

void Fir::setMaxBlockSize(int size) {
    if (size < 1) throw VRNException("Fir: Invalid maxBlockSize" + toString(size));
    grow(size);
}

void Fir::reset() {
    if (history) std::fill(history, history + historySize + kHistoryHeadroom, 0.0f);
}

void Fir::takeInputs(const scalar* in, size_t n) const {
    std::memcpy(history + presentPosition(), in, n * sizeof(scalar));
}

void Fir::slide(size_t n) {
    const size_t kept = length > 0 ? length - 1 : 0;
    const size_t present = presentPosition();
    std::memmove(history + present - kept, history + present + n - kept, kept * sizeof(scalar));
}

void Fir::process(const std::vector<scalar*>& inputs, std::vector<scalar*>& filterOutputs, size_t framesPerBuffer) {
    process(inputs[static_cast<size_t>(inputIndex)], filterOutputs[0], framesPerBuffer);
}

scalar* Fir::process(scalar* in, size_t framesPerBuffer) {
    process(in, buffer, framesPerBuffer);
    return buffer;
}

void Fir::process(const scalar* in, scalar* out, size_t framesPerBuffer) {
    if (framesPerBuffer == 0 || !in || !out) return;
    takeInputs(in, framesPerBuffer);
    const scalar* present = history + presentPosition();
    for (size_t i = 0; i < framesPerBuffer; ++i)
        out[i] = innerProduct(packedCoefficients.data(), numberOfGroups, present + i);
    slide(framesPerBuffer);
}

scalar Fir::process(scalar in) {
    scalar* present = history + presentPosition();
    *present = in;
    const scalar out = innerProduct(packedCoefficients.data(), numberOfGroups, present);
    slide(1);
    return out;
}

void Fir::process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t, int) {
    scalar* present = history + presentPosition();
    *present = (*inputs)[0];
    iterationResults[0] = innerProduct(packedCoefficients.data(), numberOfGroups, present);
}

void Fir::endIteration(int frameIndex) {
    slide(1);
    buffer[frameIndex] = iterationResults[0];
}

// ---- PolyphaseDownsampler ----

namespace {

// Reads Factor for a polyphase filter: required and positive.
size_t readFactor(const Properties& properties, const std::string& typeName, const std::string& filterName) {
    int value = 0;
    getProperty(properties, "Factor", value, toInt,
                InvalidArgumentException("Factor is not defined. " + typeName + " name=" + filterName));
    if (value <= 0)
        throw InvalidArgumentException("Factor must be greater than 0. " + toString(value) + " " + typeName +
                                       " name=" + filterName);
    return static_cast<size_t>(value);
}

}  // namespace

void PolyphaseDownsampler::init(const std::string& filterName, const Properties& filterProperties,
                                std::shared_ptr<DSPContext>& filterContext) {
    factor = readFactor(filterProperties, "PolyphaseDownsampler", filterName);
    Fir::init(filterName, filterProperties, filterContext);
}

scalar PolyphaseDownsampler::process(scalar) { return 0.0f; }

void PolyphaseDownsampler::process(const scalar* in, scalar* out, size_t framesPerBuffer) {
    if (framesPerBuffer == 0 || !in || !out) return;
    takeInputs(in, framesPerBuffer);
    const scalar* present = history + presentPosition();
    size_t written = 0;
    for (size_t i = 0; i < framesPerBuffer; i += factor)
        out[written++] = innerProduct(packedCoefficients.data(), numberOfGroups, present + i);
    slide(framesPerBuffer);
}

void PolyphaseDownsampler::process(const std::shared_ptr<std::vector<scalar>>&, size_t, int) {
    throw OperationNotSupportedException("PolyphaseDownsampler: Iteration is not supported.");
}

std::vector<scalar>& PolyphaseDownsampler::getLastIterationResults() {
    throw OperationNotSupportedException("PolyphaseDownsampler: getLastIterationResult is not supported.");
}

void PolyphaseDownsampler::endIteration(int) {
    throw OperationNotSupportedException("PolyphaseDownsampler: endIteration is not supported.");
}

void PolyphaseDownsampler::setMaxBlockSize(int size) {
    if (factor == 0) throw InvalidArgumentException("Factor is not defined. PolyphaseDownsampler name=" + name);
    Fir::setMaxBlockSize(size);
}

// ---- PolyphaseUpsampler ----

void PolyphaseUpsampler::init(const std::string& filterName, const Properties& filterProperties,
                              std::shared_ptr<DSPContext>& filterContext) {
    factor = readFactor(filterProperties, "PolyphaseUpsampler", filterName);
    // Until taps arrive every phase is one group of zeros.
    groupsPerPhase = 1;
    inputWindow.reserve(64);
    inputWindow.assign(1, Group{{0.0f, 0.0f, 0.0f, 0.0f}});
    name = filterName;
    packedCoefficients.reserve(2 * 64);
    packedCoefficients.assign(factor, Group{{0.0f, 0.0f, 0.0f, 0.0f}});
    Fir::init(filterName, filterProperties, filterContext);
    if (length == 0) packedCoefficients.assign(factor, Group{{0.0f, 0.0f, 0.0f, 0.0f}});
}

scalar PolyphaseUpsampler::process(scalar) { throw OperationNotSupportedException(""); }

void PolyphaseUpsampler::setCoefficients(const scalar* b, size_t count) {
    if (count == 0) throw VRNException("PolyphaseUpsampler: Size of filter coefficients must be greater than zero.");
    if (!b) throw VRNException("PolyphaseUpsampler: b cannot be null");
    if (factor == 0) throw InvalidArgumentException("Factor is not defined. PolyphaseUpsampler name=" + name);
    const size_t rounded = (count + factor - 1) / factor * factor;
    if (rounded > kMaxTaps)
        throw VRNException("PolyphaseUpsampler: Maximum filter order is " + toString(static_cast<int>(kMaxTaps - 1)) +
                           ". You requested: " + toString(rounded - 1));
    std::fill(coefficients, coefficients + kMaxTaps, 0.0f);
    std::copy(b, b + count, coefficients);
    length = rounded;
    numberOfGroups = (rounded - 1) / 4 + 1;
    const size_t tapsPerPhase = rounded / factor;
    groupsPerPhase = (tapsPerPhase - 1) / 4 + 1;
    packedCoefficients.assign(factor * groupsPerPhase, Group{{0.0f, 0.0f, 0.0f, 0.0f}});
    inputWindow.assign(groupsPerPhase, Group{{0.0f, 0.0f, 0.0f, 0.0f}});
    for (size_t phase = 0; phase < factor; ++phase)
        for (size_t m = 0; m < tapsPerPhase; ++m) {
            const size_t k = phase + m * factor;
            packedCoefficients[phase * groupsPerPhase + m / 4].v[m % 4] = k < count ? b[k] : 0.0f;
        }
}

void PolyphaseUpsampler::process(const scalar* in, scalar* out, size_t framesPerBuffer) {
    if (framesPerBuffer == 0 || !in || !out) return;
    takeInputs(in, framesPerBuffer);
    const size_t tapsPerPhase = length / factor;
    const scalar* present = history + presentPosition();
    scalar* window = inputWindow[0].v;  // the places past tapsPerPhase stay zero
    for (size_t i = 0; i < framesPerBuffer; ++i) {
        const scalar* newest = present + i;
        for (size_t j = 0; j < tapsPerPhase; ++j) window[j] = newest[-static_cast<long>(j)];
        for (size_t phase = 0; phase < factor; ++phase)
            out[i * factor + phase] =
                laneProduct(packedCoefficients.data() + phase * groupsPerPhase, inputWindow.data(), groupsPerPhase);
    }
    slide(framesPerBuffer);
}

void PolyphaseUpsampler::process(const std::shared_ptr<std::vector<scalar>>&, size_t, int) {
    throw OperationNotSupportedException("PolyphaseUpsampler: Iteration is not supported.");
}

std::vector<scalar>& PolyphaseUpsampler::getLastIterationResults() {
    throw OperationNotSupportedException("PolyphaseUpsampler: getLastIterationResults is not supported.");
}

void PolyphaseUpsampler::endIteration(int) {
    throw OperationNotSupportedException("PolyphaseUpsampler: endIteration is not supported.");
}

void PolyphaseUpsampler::setMaxBlockSize(int size) {
    if (factor == 0) throw InvalidArgumentException("Factor is not defined. PolyphaseUpsampler name=" + name);
    if (size < 1) throw VRNException("Fir: Invalid maxBlockSize" + toString(size));
    grow(size * static_cast<int>(factor));
}

}  // namespace vrn
