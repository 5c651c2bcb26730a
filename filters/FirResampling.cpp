#include <cmath>

#include "filters/Fir.h"

namespace vrn {

// ---- Kaiser design ----

namespace kaiser {

double besselI0(double x) {
    const double ax = std::fabs(x);
    if (ax < 3.75) {
        // Abramowitz and Stegun 9.8.1: |error| < 1.6e-7.
        double t = x / 3.75;
        t *= t;
        return 1.0 + t * (3.5156229 + t * (3.0899424 + t * (1.2067492 + t * (0.2659732 + t * (0.0360768 + t * 0.0045813)))));
    }
    // Abramowitz and Stegun 9.8.2: |error| of x^½ e^-x I0(x) < 1.9e-7.
    const double t = 3.75 / ax;
    const double p =
        0.39894228 +
        t * (0.01328592 +
             t * (0.00225319 +
                  t * (-0.00157565 +
                       t * (0.00916281 + t * (-0.02057706 + t * (0.02635537 + t * (-0.01647633 + t * 0.00392377)))))));
    return std::exp(ax) / std::sqrt(ax) * p;
}

double beta(double attenuation) {
    // Kaiser's 21-to-50 dB branch serves every attenuation; his 0.1102 (A - 8.7) branch above
    // 50 dB is not used, which gives a slightly narrower window there.
    return 0.5842 * std::pow(attenuation - 21.0, 0.4) + 0.07886 * (attenuation - 21.0);
}

scalar window(int m, int taps, double windowBeta) {
    const double r = 2.0 * m / (taps - 1);
    const scalar value = static_cast<scalar>(besselI0(windowBeta * std::sqrt(1.0 - r * r)) / besselI0(windowBeta));
    return std::isfinite(value) ? value : 0.0f;
}

void design(scalar* taps, int order, scalar relativeCorner, scalar attenuation, size_t factor) {
    const double windowBeta = beta(attenuation);
    const scalar w = relativeCorner * 6.2831855f;
    const int half = (order - 1) / 2;
    const scalar gain = static_cast<scalar>(factor);
    for (int i = 0; i <= half; ++i) {
        const int m = half - i;
        // The ideal low-pass, sin(m w) / (m π), with its limit 2 fc at the centre.
        const scalar ideal = m == 0 ? w * 0.31830987f : std::sin(static_cast<scalar>(m) * w) / (static_cast<scalar>(m) * 3.1415927f);
        const scalar tap = window(m, order, windowBeta) * gain * ideal;
        taps[i] = tap;
        taps[order - 1 - i] = tap;
    }
    scalar sum = 0.0f;
    for (int i = 0; i < order; ++i) sum += taps[i];
    const scalar normalise = 1.0f / sum;
    for (int i = 0; i < order; ++i) taps[i] *= normalise;
}

}  // namespace kaiser

// ---- Settings shared by the resampling filters ----

int KaiserResamplerSettings::read(const std::string& typeName, const Properties& properties) {
    const std::string prefix = typeName + ": ";
    auto find = [&](const char* key) { return properties.find(key); };

    auto relative = find("RelativeCornerFrequency");
    if (relative != properties.end()) {
        useAbsoluteCorner = false;
        relativeCorner = toScalar(relative->second);
        if (relativeCorner < 0.0f || relativeCorner >= 1.0f)
            throw InvalidArgumentException(prefix +
                                           "RelativeCornerFrequency must be between 0 and 1. RelativeCornerFrequency=" +
                                           relative->second);
    }
    auto absolute = find("AbsoluteCornerFrequency");
    if (absolute != properties.end()) {
        if (!useAbsoluteCorner)
            throw InvalidArgumentException(
                prefix + "RelativeCornerFrequency and AbsoluteCornerFrequency are defined. Only one is allowed.");
        absoluteCorner = toScalar(absolute->second);
        if (absoluteCorner < 0.0f)
            throw InvalidArgumentException(prefix +
                                           "AbsoluteCornerFrequency must be greater than 0. AbsoluteCornerFrequency=" +
                                           absolute->second);
    }
    if (relativeCorner == -1.0f && absoluteCorner == -1.0f)
        throw VRNException(prefix + "Either RelativeCornerFrequency or AbsoluteCornerFrequency must be specified.");

    auto orderText = find("Order");
    if (orderText == properties.end()) throw VRNException(prefix + "Order must be specified");
    order = toInt(orderText->second);
    if (order < 1)
        throw InvalidArgumentException(prefix + "Order must be greater than zero. Order=" + orderText->second);

    auto factorText = find("Factor");
    if (factorText == properties.end()) throw VRNException(prefix + "Factor must be specified");
    const int factor = toInt(factorText->second);
    if (factor <= 0)
        throw InvalidArgumentException(prefix + "Factor must be greater than 0. Factor=" + factorText->second);

    auto attenuationText = find("Attenuation");
    if (attenuationText == properties.end()) throw VRNException(prefix + "Attenuation must be specified");
    attenuation = toScalar(attenuationText->second);
    if (attenuation <= 1.0f)
        throw InvalidArgumentException(prefix + "Attenuation must be greater than 1. Attenuation=" +
                                       attenuationText->second);
    return factor;
}

void KaiserResamplerSettings::design(size_t factor) {
    kaiser::design(designed->data(), order, relativeCorner, attenuation, factor);
}

namespace {

// The taps are rounded up to a whole number per phase, and the caller's map shows it: the
// description's Order then states the length actually used.
void roundOrder(KaiserResamplerSettings& settings, const Properties& properties, int factor) {
    const int rounded = ((settings.order - 1) / factor + 1) * factor;
    const_cast<Properties&>(properties)["Order"] = toString(rounded);
    settings.designed = std::make_shared<std::vector<scalar>>(static_cast<size_t>(rounded), 0.0f);
}

}  // namespace

// ---- ResamplingDecimator ----

void ResamplingDecimator::init(const std::string& filterName, const Properties& filterProperties,
                               std::shared_ptr<DSPContext>& filterContext) {
    name = filterName;
    const int readFactor = settings.read("ResamplingDecimator", filterProperties);
    roundOrder(settings, filterProperties, readFactor);
    PolyphaseDownsampler::init(filterName, filterProperties, filterContext);
    if (!settings.useAbsoluteCorner) {
        settings.relativeCorner /= static_cast<scalar>(factor);
        settings.design(factor);
        Fir::setCoefficients(settings.designed->data(), static_cast<size_t>(settings.order));
    }
}

void ResamplingDecimator::setSamplingRate(scalar rate) {
    PolyphaseDownsampler::setSamplingRate(rate);
    if (!settings.useAbsoluteCorner) return;
    reset();
    // rate is the high rate here, so the corner lands factor times below the property's value.
    settings.relativeCorner = settings.absoluteCorner / rate / static_cast<scalar>(factor);
    settings.design(factor);
    Fir::setCoefficients(settings.designed->data(), static_cast<size_t>(settings.order));
}

// ---- ResamplingUpsampler ----

void ResamplingUpsampler::init(const std::string& filterName, const Properties& filterProperties,
                               std::shared_ptr<DSPContext>& filterContext) {
    name = filterName;
    const int readFactor = settings.read("ResamplingUpsampler", filterProperties);
    roundOrder(settings, filterProperties, readFactor);
    PolyphaseUpsampler::init(filterName, filterProperties, filterContext);
    if (!settings.useAbsoluteCorner) {
        settings.relativeCorner /= static_cast<scalar>(factor);
        designAndApply();
    }
}

void ResamplingUpsampler::designAndApply() {
    settings.design(factor);
    // The zeros stuffed between the samples cost a factor in level; the taps give it back.
    std::vector<scalar>& taps = *settings.designed;
    for (int i = 0; i < settings.order; ++i) taps[static_cast<size_t>(i)] *= static_cast<scalar>(factor);
    setCoefficients(taps.data(), static_cast<size_t>(settings.order));
}

void ResamplingUpsampler::setSamplingRate(scalar rate) {
    PolyphaseUpsampler::setSamplingRate(rate);
    if (!settings.useAbsoluteCorner) return;
    reset();
    settings.relativeCorner = settings.absoluteCorner / rate / static_cast<scalar>(factor);
    designAndApply();
}

}  // namespace vrn
