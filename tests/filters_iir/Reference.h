#pragma once
// Double-precision references for the filter suites: the difference equation written out
// plainly, the frequency response of coefficient vectors on the unit circle, a sine's level
// through a Driver; and small helpers they share.

#include <algorithm>
#include <cmath>
#include <complex>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/TestSupport.h"
#include "engine/Context.h"
#include "engine/Driver.h"
#include "engine/Types.h"

namespace ormtest {

// y[n] = sum b[k] x[n-k] - sum a[k-1] y[n-k], in double precision with its own state.
class DifferenceEquation {
public:
    DifferenceEquation(const std::vector<double>& a, const std::vector<double>& b)
        : a(a), b(b), x(b.size(), 0.0), y(a.size() + 1, 0.0) {}
    template <typename T>
    DifferenceEquation(const std::vector<T>& a, const std::vector<T>& b)
        : DifferenceEquation(std::vector<double>(a.begin(), a.end()), std::vector<double>(b.begin(), b.end())) {}

    void setCoefficients(const std::vector<double>& newA, const std::vector<double>& newB) {
        a = newA;
        b = newB;
    }
    double step(double in) {
        for (size_t k = x.size() - 1; k > 0; --k) x[k] = x[k - 1];
        x[0] = in;
        double out = 0;
        for (size_t k = 0; k < b.size(); ++k) out += b[k] * x[k];
        for (size_t k = 0; k < a.size(); ++k) out -= a[k] * y[k];
        for (size_t k = y.size() - 1; k > 0; --k) y[k] = y[k - 1];
        y[0] = out;
        return out;
    }

private:
    std::vector<double> a, b, x, y;
};

// H(e^{j 2 pi f}) for f in cycles per sample, with a = a1..aN and b = b0..bN.
template <typename T>
std::complex<double> response(const std::vector<T>& a, const std::vector<T>& b, double f) {
    const std::complex<double> zInverse = std::polar(1.0, -2.0 * 3.14159265358979323846 * f);
    std::complex<double> top = 0, bottom = 1, power = 1;
    for (size_t k = 0; k < b.size(); ++k) {
        top += static_cast<double>(b[k]) * power;
        power *= zInverse;
    }
    power = zInverse;
    for (size_t k = 0; k < a.size(); ++k) {
        bottom += static_cast<double>(a[k]) * power;
        power *= zInverse;
    }
    return top / bottom;
}

template <typename T>
double magnitudeDb(const std::vector<T>& a, const std::vector<T>& b, double f) {
    return 20.0 * std::log10(std::abs(response(a, b, f)));
}

// A DSP graph of one element fed by source's node: <Element Type="type" Name="name"> with the
// given properties, its output the graph's node "out".
inline std::string elementGraph(const std::string& graph, const std::string& multiplier, const std::string& type,
                                const std::string& name, const std::string& properties, const std::string& source,
                                const std::string& node) {
    return "<Graph Name=\"" + graph + "\" Type=\"DSP\" Multiplier=\"" + multiplier + "\">" +
           "<NumberOfInputs>1</NumberOfInputs><Inputs><Input Graph=\"" + source + "\" Node=\"" + node + "\"/></Inputs>" +
           "<Element Type=\"" + type + "\" Name=\"" + name + "\"><Properties " + properties + "/>" +
           "<Inputs><Input Port=\"in\" Element=\"Graph\" Output=\"0\"/></Inputs></Element>" +
           "<Output><Node Name=\"out\" Element=\"" + name + "\" Port=\"out\"/></Output></Graph>";
}

// Values uniform in -1..1 from the caller's generator.
inline std::vector<vrn::scalar> randomValues(std::mt19937& random, size_t n) {
    std::uniform_real_distribution<vrn::scalar> uniform(-1.0f, 1.0f);
    std::vector<vrn::scalar> v(n);
    for (auto& x : v) x = uniform(random);
    return v;
}

// A deterministic test signal: a few sines and a step, in -1..1.
inline std::vector<vrn::scalar> testSignal(size_t n) {
    std::vector<vrn::scalar> s(n);
    uint32_t state = 12345;
    for (size_t i = 0; i < n; ++i) {
        state = state * 1664525u + 1013904223u;
        const double noise = (state >> 8) / 16777216.0 - 0.5;
        s[i] = static_cast<vrn::scalar>(0.4 * std::sin(0.05 * i) + 0.2 * std::sin(1.3 * i) + 0.2 * noise +
                                        (i > n / 2 ? 0.1 : 0.0));
    }
    return s;
}

// 1 kHz at 48 kHz, amplitude 0.5, samples from..from+count, through a Driver in blocks of
// wandering length as hosts send them.
inline std::vector<vrn::scalar> renderSine(vrn::Driver& driver, size_t from, size_t count) {
    const size_t lengths[] = {256, 100, 7, 256, 31, 128};
    std::vector<vrn::scalar> in(count), out;
    for (size_t i = 0; i < count; ++i)
        in[i] = static_cast<vrn::scalar>(0.5 * std::sin(2 * 3.14159265358979323846 * 1000.0 * (from + i) / 48000.0));
    for (size_t at = 0, block = 0; at < count; ++block) {
        const size_t n = std::min(lengths[block % 6], count - at);
        std::vector<vrn::scalar*> inputs{in.data() + at};
        driver.process(inputs, n);
        out.insert(out.end(), driver.getOutputs()[0], driver.getOutputs()[0] + n);
        at += n;
    }
    return out;
}

// The level of renderSine's tone in out relative to its input, in dB, by projection on the sine
// and the cosine over whole periods (48 samples) from settle on.
inline double sineGainDb(const std::vector<vrn::scalar>& out, size_t settle) {
    double s = 0, c = 0;
    const size_t end = settle + (out.size() - settle) / 48 * 48;
    for (size_t i = settle; i < end; ++i) {
        s += out[i] * std::sin(2 * 3.14159265358979323846 * i / 48.0);
        c += out[i] * std::cos(2 * 3.14159265358979323846 * i / 48.0);
    }
    return 20 * std::log10(2 * std::sqrt(s * s + c * c) / static_cast<double>(end - settle) / 0.5);
}

}  // namespace ormtest
