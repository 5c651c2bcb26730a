#include "filters/WaveConvolver.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <stdexcept>

#include <soxr.h>

#include "filters/AudioFileRead.h"

namespace vrn {

namespace {

const std::shared_ptr<ElementMeta> kMeta = std::make_shared<BasicFilterMeta>();

// Samples at or below this magnitude at the end of a response are cut off.
const scalar kTailThreshold = 1e-15f;

// Input goes to the rate converter in chunks of this many samples.
const size_t kResampleChunk = 128;

}  // namespace

WaveConvolver::WaveConvolver()
    : convolver(new Convolver()), impulseResponses(std::make_shared<std::vector<std::string>>()) {}

void WaveConvolver::propertyChanged(const std::string& propertyName, scalar value) {
    if (propertyName != "Selected") return;
    selected = static_cast<int32_t>(std::lround(value));
    if (static_cast<uint32_t>(selected) > impulseResponses->size())
        throw VRNException("WaveConvolver: Invalid selection: " + toString(static_cast<int>(selected)) +
                           " max selection value " + toString(impulseResponses->size()));
    load();
}

void WaveConvolver::propertyChanged(const std::string&, const std::shared_ptr<std::vector<scalar>>&) {}

void WaveConvolver::init(const std::string&, std::shared_ptr<DSPContext>&) {
    throw OperationNotSupportedException("WaveConvolver: init(name, context) is not yet implemented.");
}

void WaveConvolver::init(const std::string& filterName, const Properties& filterProperties,
                         std::shared_ptr<DSPContext>& filterContext) {
    name = filterName;
    properties = filterProperties;
    context = filterContext.get();

    auto names = properties.find("ImpulseResponses");
    if (names == properties.end())
        throw VRNException("WaveConvolver: ImpulseResponses is not defined. WaveConvolver name=" + name);
    parseWords(names->second, "|", impulseResponses);

    auto where = properties.find("Location");
    if (where == properties.end()) throw VRNException("WaveConvolver: Missing Location property.");
    if (where->second == "Memory")
        location = Memory;
    else if (where->second == "File")
        location = File;
    else if (where->second == "Dll")
        location = Dll;
    else
        throw InvalidArgumentException("WaveConvolver: Invalid Location property " + where->second);

    auto it = properties.find("Selected");
    if (it != properties.end()) selected = toInt(it->second);
    it = properties.find("Scale");
    if (it != properties.end()) scale = toBool(it->second);
    it = properties.find("Gain");
    if (it != properties.end()) gain = toScalar(it->second);

    if (location == Dll) {
        it = properties.find("DllResourceType");
        if (it == properties.end()) throw VRNException("WaveConvolver: Missing DllResourceType property.");
        dllResourceType = it->second;
    }
    it = properties.find("MaxIRRate");
    if (it != properties.end()) {
        maxIRRate = toScalar(it->second);
        if (!(maxIRRate > 0.0f))
            throw InvalidArgumentException("WaveConvolver: MaxIRRate must be greater than 0. WaveConvolver name=" + name +
                                           " MaxIRRate=" + it->second);
    }
    convolver->init(name, properties, filterContext);
    maxIRSize = convolver->getMaxIRSize();
}

const std::string& WaveConvolver::selectedName() const {
    if (selected < 0 || static_cast<size_t>(selected) >= impulseResponses->size())
        throw std::out_of_range("invalid vector<T> subscript");
    return (*impulseResponses)[static_cast<size_t>(selected)];
}

void WaveConvolver::load() {
    std::vector<scalar> ir;
    switch (location) {
        case Memory: {
            const std::string& irName = selectedName();
            auto samples = responses.find(irName);
            if (samples == responses.end() || !samples->second)
                throw VRNException("WaveConvolver: Unknown impulse response " + irName);
            scalar rate = responseRates[irName];
            // The stored response stays untouched, so that later loads start from the same data.
            if (rate == samplingRate)
                ir = *samples->second;
            else
                ir = resample(*samples->second, rate, samplingRate);
            break;
        }
        case File:
        case Dll: {
            std::string source = selectedName();
            // Name and type in front of the separator, as the description's users have it.
            if (location == Dll) source += dllResourceType + "|";
            stk::AudioFileRead reader(source);
            if (location == File)
                reader.openFile();
            else
                reader.openResource();
            stk::StkFrames frames(reader.getBufferFrames(), reader.getChannels());
            reader.read(frames);
            // The first channel is the response; the others are dropped.
            ir.resize(frames.frames());
            for (size_t i = 0; i < ir.size(); ++i) ir[i] = frames(i, 0);
            if (frames.dataRate() != samplingRate) ir = resample(ir, frames.dataRate(), samplingRate);
            break;
        }
        default:
            throw VRNException("WaveConvolver: Unknown Location type: " + toString(static_cast<int>(location)));
    }

    size_t tail = 0;
    while (tail < ir.size() && std::fabs(ir[ir.size() - 1 - tail]) <= kTailThreshold) ++tail;
    if (tail) ir.resize(ir.size() - tail);
    // A limit given at a rate keeps its length in time: a response cut to a fixed count of samples
    // would, at 384 kHz, end inside the cabinet's own 22 ms of delay and fall silent.
    if (maxIRRate > 0.0f && samplingRate > 0.0f) {
        const double scaled = std::round(static_cast<double>(maxIRSize) * samplingRate / maxIRRate);
        convolver->setMaxIRSize(static_cast<uint64_t>(std::max(1.0, scaled)));
    }
    if (ir.size() > convolver->getMaxIRSize()) ir.resize(static_cast<size_t>(convolver->getMaxIRSize()));

    // "Scale" removes the mean; the level is the business of the gain.
    if (scale && !ir.empty()) {
        scalar sum = 0.0f;
        for (scalar x : ir) sum += x;
        scalar mean = sum / static_cast<scalar>(ir.size());
        if (mean != 0.0f)
            for (scalar& x : ir) x -= mean;
    }
    for (scalar& x : ir) x *= gain;

    convolver->propertyChanged("ImpulseResponse", std::make_shared<std::vector<scalar>>(std::move(ir)));
    // Old audio must not ring through the new response.
    convolver->reset();
}

std::vector<scalar> WaveConvolver::resample(const std::vector<scalar>& samples, double src, double dst) {
    const size_t n = samples.size();
    const size_t m = static_cast<size_t>(dst / src * static_cast<double>(n) + 0.5);
    std::vector<scalar> result;
    result.reserve(m);
    if (m == 0) return result;

    // Linear phase, pass band to 0.98 of the lower Nyquist frequency (a 2 % transition band),
    // 30 bits of precision for a stop band beyond 180 dB, double precision throughout.  The
    // converter drops its own delay: output sample 0 lines up with input sample 0.
    soxr_quality_spec_t quality = soxr_quality_spec(SOXR_32_BITQ, SOXR_LINEAR_PHASE);
    quality.precision = 30.0;
    quality.passband_end = 0.98;
    quality.stopband_begin = 1.0;
    soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
    soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    soxr_error_t error = nullptr;
    soxr_t converter = soxr_create(src, dst, 1, &error, &io, &quality, &runtime);
    if (error || !converter) {
        if (converter) soxr_delete(converter);
        throw VRNException(std::string("WaveConvolver: Cannot resample the impulse response: ") +
                           (error ? error : "unknown error"));
    }

    // For ratios that are not whole, the converter's first output samples come out distorted
    // (by 6 % at sample 0 for 44100 to 48000 Hz).  Whole periods of the two rates' common grid
    // are fed as silence first and their output dropped, so that the response starts in the
    // converter's steady state and stays on the grid.
    size_t leadIn = 0, leadOut = 0;
    const double srcWhole = std::round(src), dstWhole = std::round(dst);
    if (srcWhole == src && dstWhole == dst && src >= 1.0 && dst >= 1.0) {
        const uint64_t common = std::gcd(static_cast<uint64_t>(srcWhole), static_cast<uint64_t>(dstWhole));
        const uint64_t period = static_cast<uint64_t>(srcWhole) / common;
        if (period > 1 && period <= 65536) {
            const uint64_t periods = (1024 + period - 1) / period;
            leadIn = static_cast<size_t>(period * periods);
            leadOut = static_cast<size_t>(static_cast<uint64_t>(dstWhole) / common * periods);
        }
    }

    const double level = src / dst;
    const size_t room = static_cast<size_t>(std::ceil(static_cast<double>(kResampleChunk) * dst / src)) + 64;
    std::vector<double> chunk(kResampleChunk), converted(room);
    size_t next = 0;
    while (result.size() < m) {
        // The input, then zeros for as long as the converter still owes output.
        for (size_t i = 0; i < kResampleChunk; ++i, ++next)
            chunk[i] = next >= leadIn && next - leadIn < n ? static_cast<double>(samples[next - leadIn]) : 0.0;
        size_t offset = 0;
        do {
            size_t used = 0, produced = 0;
            error = soxr_process(converter, chunk.data() + offset, kResampleChunk - offset, &used, converted.data(),
                                 converted.size(), &produced);
            if (error) break;
            for (size_t i = 0; i < produced && result.size() < m; ++i) {
                if (leadOut) {
                    --leadOut;
                    continue;
                }
                result.push_back(static_cast<scalar>(converted[i] * level));
            }
            offset += used;
            if (used == 0 && produced == 0) break;
        } while (offset < kResampleChunk && result.size() < m);
        if (error) break;
    }
    soxr_delete(converter);
    if (error) throw VRNException(std::string("WaveConvolver: Cannot resample the impulse response: ") + error);
    return result;
}

void WaveConvolver::addImpulseResponse(const ImpulseResponseRecord& record) {
    responseRates[record.name] = record.samplingRate;
    responses[record.name] = record.samples;
}

void WaveConvolver::setSamplingRate(scalar rate) {
    if (rate == samplingRate) return;
    samplingRate = rate;
    load();
}

void WaveConvolver::process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) {
    convolver->process(inputs, framesPerBuffer);
}

void WaveConvolver::process(const std::vector<scalar*>& inputs, std::vector<scalar*>& filterOutputs,
                            size_t framesPerBuffer) {
    convolver->process(inputs, filterOutputs, framesPerBuffer);
}

scalar WaveConvolver::process(scalar) { throw OperationNotSupportedException(""); }
scalar* WaveConvolver::process(scalar*, size_t) { throw OperationNotSupportedException(""); }
void WaveConvolver::process(const scalar*, scalar*, size_t) { throw OperationNotSupportedException(""); }

void WaveConvolver::process(const std::shared_ptr<std::vector<scalar>>&, size_t, int) {
    throw OperationNotSupportedException("WaveConvolver: Iteration is not supported.");
}

std::vector<scalar>& WaveConvolver::getLastIterationResults() {
    throw OperationNotSupportedException("WaveConvolver: getLastIterationResults is not supported.");
}

void WaveConvolver::endIteration(int) {
    throw OperationNotSupportedException("WaveConvolver: endIteration is not supported.");
}

void WaveConvolver::setMaxBlockSize(int size) {
    maxBlockSize = std::max(maxBlockSize, size);
    convolver->setMaxBlockSize(size);
}

scalar* WaveConvolver::getOutput(int index) { return convolver->getOutput(index); }
std::vector<scalar*>& WaveConvolver::getOutputs() { return convolver->getOutputs(); }
std::shared_ptr<ElementMeta> WaveConvolver::getMeta() { return kMeta; }
void WaveConvolver::reset() { convolver->reset(); }

}  // namespace vrn
