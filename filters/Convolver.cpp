#include "filters/Convolver.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include <fftw3.h>

#include "engine/AlignedMemory.h"
#include "engine/Kernels.h"

namespace vrn {

namespace {

// Several plug-in instances may plan from different threads; FFTW's planner is not reentrant
// until told so.  Plans are estimated, never measured: a measured plan depends on timing, so the
// same render could differ in its last bits from run to run, and measuring a new size stalls the
// thread that asks for it for up to half a second.
void preparePlanner() {
    static std::once_flag once;
    std::call_once(once, [] { fftwf_make_planner_thread_safe(); });
}

constexpr unsigned kPlanning = FFTW_ESTIMATE;

// product = a·b over bins complex values, interleaved.  Plain loop with no aliasing, which the
// compiler turns into vector code.
void spectrumProduct(const scalar* __restrict a, const scalar* __restrict b, scalar* __restrict product,
                     size_t bins) {
    for (size_t k = 0; k < bins; ++k) {
        const scalar ar = a[2 * k], ai = a[2 * k + 1];
        const scalar br = b[2 * k], bi = b[2 * k + 1];
        product[2 * k] = ar * br - ai * bi;
        product[2 * k + 1] = ar * bi + ai * br;
    }
}

uint64_t smooth(uint64_t q) {
    if (q <= 1) return 1;
    if (q % 2 == 0) return 2 * smooth(q / 2);
    if (q % 3 == 0) return 3 * smooth(q / 3);
    if (q % 5 == 0) return 5 * smooth(q / 5);
    return 2 * smooth((q + 1) / 2);
}

}  // namespace

// The forward (real to complex) and backward (complex to real) transforms of one length, made
// on the convolver's own 64-byte aligned arrays and run on others of the same alignment.
struct Convolver::TransformPlan {
    TransformPlan(int n, scalar* real, scalar* complex) {
        preparePlanner();
        auto* bins = reinterpret_cast<fftwf_complex*>(complex);
        forward = fftwf_plan_dft_r2c_1d(n, real, bins, kPlanning | FFTW_PRESERVE_INPUT);
        backward = fftwf_plan_dft_c2r_1d(n, bins, real, kPlanning | FFTW_DESTROY_INPUT);
        if (!forward || !backward) {
            release();
            throw VRNException("Convolver: Cannot plan a transform of size " + toString(n));
        }
    }
    ~TransformPlan() { release(); }
    void release() {
        if (forward) fftwf_destroy_plan(forward);
        if (backward) fftwf_destroy_plan(backward);
        forward = backward = nullptr;
    }
    void toSpectrum(scalar* in, scalar* out) const {
        fftwf_execute_dft_r2c(forward, in, reinterpret_cast<fftwf_complex*>(out));
    }
    void toTime(scalar* in, scalar* out) const {
        fftwf_execute_dft_c2r(backward, reinterpret_cast<fftwf_complex*>(in), out);
    }

    fftwf_plan forward = nullptr;
    fftwf_plan backward = nullptr;
};

Convolver::Convolver() : outputs(1, nullptr), meta(std::make_shared<BasicFilterMeta>()) {}

Convolver::~Convolver() {
    plan.reset();
    freeSamples(spectrum);
    freeSamples(timeBuffer);
    freeSamples(accumulator);
    freeSamples(output);
}

uint64_t Convolver::transformSize(uint64_t blockSize, uint64_t length) {
    uint64_t span = blockSize - 1 + length;
    uint64_t q = (span + 63) / 64;
    return 64 * smooth(q);
}

void Convolver::init(const std::string& filterName, std::shared_ptr<DSPContext>& filterContext) {
    Filter::init(filterName, filterContext);
}

void Convolver::init(const std::string& filterName, const Properties& filterProperties,
                     std::shared_ptr<DSPContext>& filterContext) {
    name = filterName;
    properties = filterProperties;
    context = filterContext.get();
    int size = 0;
    getProperty(properties, "MaxIRSize", size, toInt, VRNException("MaxIRSize is not defined. Convolver name=" + name));
    if (size < 1)
        throw InvalidArgumentException("MaxIRSize must be greater than or equal to 0. Convolver name=" + name +
                                       " MaxIRSize=" + toString(size));
    maxIRSize = static_cast<uint64_t>(size);
    outputs.assign(1, output);
}

void Convolver::propertyChanged(const std::string& propertyName, const std::shared_ptr<std::vector<scalar>>& values) {
    if (propertyName != "ImpulseResponse")
        throw InvalidArgumentException("Convolver: Invalid property. Name=" + propertyName);
    if (!values || values->empty()) throw InvalidArgumentException("Convolver: Invalid impulse response. IR is empty.");
    response = *values;
    irLength = std::min<uint64_t>(response.size(), maxIRSize);
    if (maxBlockSize == 0) return;
    rebuild();
}

void Convolver::setMaxBlockSize(int size) {
    if (size < 1) throw VRNException("Convolver: Invalid maxBlockSize" + toString(size));
    if (size <= maxBlockSize) return;
    maxBlockSize = size;
    if (irLength != 0) rebuild();
}

void Convolver::rebuild() {
    const uint64_t n = transformSize(static_cast<uint64_t>(maxBlockSize), irLength);
    if (n > capacity) {
        // Room for the N/2 + 1 complex bins of a spectrum.
        const size_t values = static_cast<size_t>(n) + 2;
        plan.reset();
        freeSamples(spectrum);
        spectrum = nullptr;
        freeSamples(timeBuffer);
        timeBuffer = nullptr;
        freeSamples(accumulator);
        accumulator = nullptr;
        spectrum = allocateSamples(values);
        timeBuffer = allocateSamples(values);
        accumulator = allocateSamples(values);
        std::fill(spectrum, spectrum + values, 0.0f);
        std::fill(accumulator, accumulator + values, 0.0f);
        // The old history goes to the end of the new one, so that its samples stay the newest.
        std::unique_ptr<Buffer> longer(new Buffer(static_cast<size_t>(n)));
        if (history) longer->push(history->getData(), history->getSize());
        history = std::move(longer);
        freeSamples(output);
        output = nullptr;
        output = allocateSamples(static_cast<size_t>(n));
        std::fill(output, output + n, 0.0f);
        outputs.assign(1, output);
    }
    fftSize = n;
    plan.reset();
    plan.reset(new TransformPlan(static_cast<int>(n), timeBuffer, accumulator));
    std::fill(timeBuffer, timeBuffer + n + 2, 0.0f);
    std::copy(response.begin(), response.begin() + static_cast<long>(irLength), timeBuffer);
    plan->toSpectrum(timeBuffer, spectrum);
    capacity = std::max(n, capacity);
}

void Convolver::process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) {
    if (fftSize == 0) return;
    const scalar* in = inputs.empty() ? nullptr : inputs[0];
    if (in) {
        history->push(in, framesPerBuffer);
    } else {
        std::fill(output, output + framesPerBuffer, 0.0f);
        history->push(output, framesPerBuffer);
    }
    if (framesPerBuffer == 0) return;
    // Overlap-save: the circular wrap spoils only the first irLength - 1 values of the result,
    // and N >= maxBlockSize - 1 + irLength keeps the block's own samples, at the end, clean.
    plan->toSpectrum(history->getData(), timeBuffer);
    spectrumProduct(timeBuffer, spectrum, accumulator, static_cast<size_t>(fftSize / 2 + 1));
    plan->toTime(accumulator, timeBuffer);
    std::memcpy(output, timeBuffer + (fftSize - framesPerBuffer), framesPerBuffer * sizeof(scalar));
    // FFTW's transforms are unnormalised: the round trip gains N.
    sscal(static_cast<int>(framesPerBuffer), 1.0f / static_cast<scalar>(fftSize), output);
}

void Convolver::process(const std::vector<scalar*>& inputs, std::vector<scalar*>& filterOutputs,
                        size_t framesPerBuffer) {
    process(inputs, framesPerBuffer);
    if (fftSize == 0 || framesPerBuffer == 0 || filterOutputs.empty() || !filterOutputs[0]) return;
    if (filterOutputs[0] != output) std::memmove(filterOutputs[0], output, framesPerBuffer * sizeof(scalar));
}

scalar Convolver::process(scalar) { throw OperationNotSupportedException(""); }
scalar* Convolver::process(scalar*, size_t) { throw OperationNotSupportedException(""); }
void Convolver::process(const scalar*, scalar*, size_t) { throw OperationNotSupportedException(""); }

void Convolver::setSamplingRate(scalar) { reset(); }

void Convolver::process(const std::shared_ptr<std::vector<scalar>>&, size_t, int) {
    throw OperationNotSupportedException("Convolver: Iteration is not supported.");
}

std::vector<scalar>& Convolver::getLastIterationResults() {
    throw OperationNotSupportedException("Convolver: getLastIterationResults is not supported.");
}

void Convolver::endIteration(int) { throw OperationNotSupportedException("Convolver: endIteration is not supported."); }

scalar* Convolver::getOutput(int index) {
    if (index != 0) throw InvalidArgumentException("Convolver: Invalid output index: " + toString(index));
    return output;
}

void Convolver::reset() {
    if (history) history->clear();
}

}  // namespace vrn
