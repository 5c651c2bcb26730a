#include "filters/IirResamplers.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "engine/AlignedMemory.h"
#include "engine/Context.h"
#include "engine/Driver.h"
#include "engine/Graph.h"
#include "filters/BiQuad.h"
#include "filters/Iir.h"

namespace vrn {

namespace {
const std::shared_ptr<ElementMeta> kMeta = std::make_shared<BasicFilterMeta>();
}

IirResampler::~IirResampler() { freeSamples(samples); }

std::shared_ptr<ElementMeta> IirResampler::getMeta() { return kMeta; }

void IirResampler::refuse(const std::string& what) const {
    throw OperationNotSupportedException(std::string(typeName) + ": " + what);
}

void IirResampler::init(const std::string&, std::shared_ptr<DSPContext>&) {
    // Both classes answer with the decimator's words.
    throw OperationNotSupportedException(
        "IirDecimator: init(const std::string &name, std::shared_ptr<DSPContext> &context) is not supported.");
}

void IirResampler::init(const std::string& filterName, const Properties& filterProperties,
                        std::shared_ptr<DSPContext>& filterContext) {
    const std::string type_(typeName);
    context = filterContext.get();

    getProperty(filterProperties, "CornerFrequency", cornerFrequency, toScalar,
                VRNException(type_ + ": CornerFrequency is not defined"));
    designable = true;
    if (!(cornerFrequency >= 0))
        throw InvalidArgumentException(type_ + ": cornerFrequency must be greater than 0. CornerFrequency=" +
                                       toString(static_cast<double>(cornerFrequency)));

    std::string typeText;
    getProperty(filterProperties, "Type", typeText, toText, VRNException(type_ + ": Type must be specified"));
    if (typeText == "BiQuad")
        type = filterdesign::BIQUAD;
    else if (typeText == "Bessel")
        type = filterdesign::BESSEL;
    else if (typeText == "Butterworth")
        type = filterdesign::BUTTERWORTH;
    else
        throw InvalidArgumentException(type_ + ": Unknown Type: " + typeText);

    if (type != filterdesign::BIQUAD) {
        getProperty(filterProperties, "Order", order, toInt, VRNException(type_ + ": Order must be specified"));
        if (order < 1)
            throw InvalidArgumentException(type_ + ": Order must be greater than zero. Order=" + toString(order));
    }
    getProperty(filterProperties, "Factor", factor, toInt, VRNException(type_ + ": Factor must be specified"));
    if (factor < 1) throw InvalidArgumentException(type_ + ": Factor must be greater than 0. Factor=" + toString(factor));
    auto cascadeText = filterProperties.find("Cascade");
    if (cascadeText != filterProperties.end()) {
        cascade = toInt(cascadeText->second);
        if (cascade < 2)
            throw InvalidArgumentException(type_ + ": Cascade must be greater than 1. Cascade=" + toString(cascade));
    }

    sections.clear();
    for (int i = 0; i < cascade; ++i) {
        std::shared_ptr<Filter> section;
        if (type == filterdesign::BIQUAD || order == 2) {
            section = std::make_shared<BiQuad>();
        } else {
            section = std::make_shared<Iir>();
            section->propertyChanged("Order", static_cast<scalar>(order));
            // Zero coefficients of the right lengths: silence until the first design.
            section->propertyChanged("A", std::make_shared<std::vector<scalar>>(static_cast<size_t>(order), 0.0f));
            section->propertyChanged("B", std::make_shared<std::vector<scalar>>(static_cast<size_t>(order) + 1, 0.0f));
        }
        section->init(sectionName + toString(i), filterContext);
        sections.push_back(section);
    }
    biquads.clear();
    for (auto& section : sections)
        if (auto* biquad = dynamic_cast<BiQuad*>(section.get())) biquads.push_back(biquad);
    if (biquads.size() != sections.size()) biquads.clear();

    name = filterName;
    properties = filterProperties;
}

void IirResampler::setSamplingRate(scalar rate) {
    if (!designable) return;
    // Both sides design for the high rate; the low rate is the interpolator's input and the
    // decimator's output.  A corner at or above the low rate's Nyquist frequency would pass
    // images and aliases, and at low host rates (8 kHz with a 20 kHz corner) lies even above the
    // high rate's, where nothing can be designed and the amplifier fell silent: such a corner is
    // pulled down to 0.9 of the low rate's Nyquist frequency.  Corners below it are kept as given.
    const scalar high = interpolating ? rate * static_cast<scalar>(factor) : rate;
    const scalar lowNyquist = 0.5f * high / static_cast<scalar>(factor);
    if (cornerFrequency >= lowNyquist)
        relativeFrequency = 0.9f * lowNyquist / high;
    else
        relativeFrequency = interpolating ? cornerFrequency / rate / static_cast<scalar>(factor) : cornerFrequency / rate;
    design();
}

void IirResampler::design() {
    // A corner at or above the Nyquist limit designs nothing; the old coefficients stay.
    if (!(0.5f > relativeFrequency)) return;
    if (type == filterdesign::BIQUAD) throw InvalidArgumentException(std::string(typeName) + ": BiQuads are not yet supported!");
    auto designContext = std::make_shared<filterdesign::IirDesignContext>(
        type, filterdesign::LOWPASS, static_cast<uint64_t>(order), static_cast<double>(relativeFrequency));
    // Bessel keeps its flat delay only without the bilinear transform's frequency warping.
    if (type == filterdesign::BESSEL) designContext->options.set(filterdesign::MATCHED_Z);
    filterdesign::design(designContext);
    for (auto& section : sections) {
        section->propertyChanged("A", designContext->a);
        section->propertyChanged("B", designContext->b);
    }
    if (interpolating) {
        // Zero stuffing divides the level by the factor; the first section gives it back.
        auto scaled = std::make_shared<std::vector<scalar>>(*designContext->b);
        for (int k = 0; k <= order && static_cast<size_t>(k) < scaled->size(); ++k)
            (*scaled)[static_cast<size_t>(k)] *= static_cast<scalar>(factor);
        sections.front()->propertyChanged("B", scaled);
    }
}

void IirResampler::propertyChanged(const std::string& propertyName, scalar value) {
    if (propertyName != "Factor") throw InvalidArgumentException("IirInterpolator: Unknown property " + propertyName);
    // A whole factor, and the graph's rate follows the factor the resampler really runs at: a
    // fractional value would leave the chain's rates unpaired.
    const scalar rounded = std::floor(value + 0.5f);
    if (!(rounded >= 1.0f && rounded <= static_cast<scalar>(kLargestFactor)))
        throw InvalidArgumentException(std::string(typeName) + ": Factor must be a whole number from 1 to " +
                                       toString(kLargestFactor) + ". Factor=" + toString(static_cast<double>(value)));
    factor = static_cast<int>(rounded);
    if (!context) return;
    Graph* graph = context->getGraph();
    if (graph) graph->setMultiplier(interpolating ? static_cast<double>(factor) : 1.0 / static_cast<double>(factor));
    Driver* driver = context->getDriver();
    if (driver) driver->invalidateMultipliers();
}

void IirResampler::process(const std::vector<scalar*>& inputs, std::vector<scalar*>& filterOutputs,
                           size_t framesPerBuffer) {
    process(inputs, framesPerBuffer);
    const size_t count = interpolating ? static_cast<size_t>(factor) * framesPerBuffer
                                       : framesPerBuffer / static_cast<size_t>(factor);
    scalar* source = getOutput(0);
    if (count > 0 && filterOutputs[0] != source) std::memmove(filterOutputs[0], source, count * sizeof(scalar));
}

scalar IirResampler::process(scalar) { refuse("process(scalar in) is not supported."); }
scalar* IirResampler::process(scalar*, size_t) {
    refuse("process(scalar* in, size_t framesPerBuffer) is not supported.");
}
void IirResampler::process(const scalar*, scalar*, size_t) {
    refuse("process(const scalar* in, scalar* out, size_t framesPerBuffer) is not supported.");
}
void IirResampler::process(const std::shared_ptr<std::vector<scalar>>&, size_t, int) {
    refuse("Iteration is not supported.");
}
std::vector<scalar>& IirResampler::getLastIterationResults() { refuse("getLastIterationResults is not supported."); }
void IirResampler::endIteration(int) { refuse("endIteration is not supported."); }

void IirResampler::reset() {
    for (auto& section : sections) section->reset();
}

void IirInterpolator::setMaxBlockSize(int n) {
    if (n < 1) throw VRNException("IirInterpolator: Invalid maxBlockSize" + toString(n));
    const int m = factor * n;
    if (m <= maxBlockSize) return;
    maxBlockSize = m;
    for (auto& section : sections) section->setMaxBlockSize(m);
    freeSamples(samples);
    samples = nullptr;
    samples = allocateSamples(static_cast<size_t>(m));
    std::fill(samples, samples + m, 0.0f);
}

void IirInterpolator::process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) {
    if (factor < 1) throw VRNException("IirInterpolator: Invalid factor " + toString(factor));
    const size_t n = static_cast<size_t>(factor) * framesPerBuffer;
    if (n > static_cast<size_t>(std::max(maxBlockSize, 0)))
        throw InvalidArgumentException("IirInterpolator: framesPerBuffer (" + toString(framesPerBuffer) +
                                       ") is greater than maxBlockSize (" + toString(maxBlockSize) + ").");
    if (n == 0) return;
    std::fill(samples, samples + n, 0.0f);
    const scalar* in = inputs.empty() ? nullptr : inputs[0];
    if (in)
        for (size_t k = 0; k < framesPerBuffer; ++k) samples[static_cast<size_t>(factor) * k] = in[k];
    runSections(samples, n);
}

const scalar* IirResampler::runSections(const scalar* in, size_t frames) {
    if (!biquads.empty()) {
        scalar* out = sections.back()->getOutputs()[0];
        BiQuad::processCascade(biquads.data(), biquads.size(), in, out, frames);
        return out;
    }
    sectionInputs[0] = const_cast<scalar*>(in);
    for (auto& section : sections) {
        section->process(sectionInputs, frames);
        sectionInputs[0] = section->getOutputs()[0];
    }
    return sectionInputs[0];
}

scalar* IirInterpolator::getOutput(int index) {
    if (index != 0) throw InvalidArgumentException("Iir: Invalid output index: " + toString(index));
    return sections.back()->getOutputs()[0];
}

std::vector<scalar*>& IirInterpolator::getOutputs() { return sections.back()->getOutputs(); }

void IirDecimator::setMaxBlockSize(int n) {
    if (n < 1) throw VRNException("IirDecimator: Invalid maxBlockSize" + toString(n));
    if (n <= maxBlockSize) return;
    maxBlockSize = n;
    for (auto& section : sections) section->setMaxBlockSize(n);
    freeSamples(samples);
    samples = nullptr;
    samples = allocateSamples(static_cast<size_t>(n));
    std::fill(samples, samples + n, 0.0f);
    outputs[0] = samples;
}

void IirDecimator::process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) {
    // The interpolator's words serve here too.
    if (factor < 1) throw VRNException("IirInterpolator: Invalid factor " + toString(factor));
    if (framesPerBuffer > static_cast<size_t>(std::max(maxBlockSize, 0)))
        throw InvalidArgumentException("IirDecimator: framesPerBuffer (" + toString(framesPerBuffer) +
                                       ") is greater than maxBlockSize (" + toString(maxBlockSize) + ").");
    if (framesPerBuffer == 0) return;
    sectionInputs[0] = inputs.empty() ? nullptr : inputs[0];
    if (!sectionInputs[0]) {
        // An unconnected input is silence; the sections keep their state.
        std::fill(samples, samples + framesPerBuffer, 0.0f);
        return;
    }
    const scalar* filtered = runSections(sectionInputs[0], framesPerBuffer);
    size_t j = 0;
    for (size_t i = 0; i < framesPerBuffer; i += static_cast<size_t>(factor)) samples[j++] = filtered[i];
}

scalar* IirDecimator::getOutput(int index) {
    if (index != 0) throw InvalidArgumentException("Iir: Invalid output index: " + toString(index));
    return samples;
}

}  // namespace vrn
