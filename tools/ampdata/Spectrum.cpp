#include "Spectrum.h"

#include <cmath>
#include <complex>

namespace ampdata_gen {

namespace {
constexpr double kPi = 3.14159265358979323846;

double power(const std::vector<double>& h, double rate, double f, size_t length) {
    // Goertzel-free plain DFT with a rotating phasor renormalised now and then.
    const std::complex<double> w = std::polar(1.0, -2 * kPi * f / rate);
    std::complex<double> phasor(1.0, 0.0), sum(0.0, 0.0);
    for (size_t n = 0; n < length && n < h.size(); ++n) {
        sum += h[n] * phasor;
        phasor *= w;
        if ((n & 1023) == 1023) phasor = std::polar(1.0, -2 * kPi * f * static_cast<double>(n + 1) / rate);
    }
    return std::norm(sum);
}
}  // namespace

std::vector<double> magnitudeDb(const std::vector<double>& h, double rate, const std::vector<double>& frequencies,
                                size_t length) {
    std::vector<double> out;
    for (double f : frequencies) out.push_back(10.0 * std::log10(power(h, rate, f, length) + 1e-300));
    return out;
}

std::vector<double> smoothedDb(const std::vector<double>& h, double rate, const std::vector<double>& frequencies,
                               size_t length, double octaves) {
    std::vector<double> out;
    for (double f : frequencies) {
        const int points = 9;
        double sum = 0;
        for (int k = 0; k < points; ++k) {
            const double band = f * std::pow(2.0, octaves * (static_cast<double>(k) / (points - 1) - 0.5));
            sum += power(h, rate, band, length);
        }
        out.push_back(10.0 * std::log10(sum / points + 1e-300));
    }
    return out;
}

std::vector<double> logFrequencies(double low, double high, int count) {
    std::vector<double> f;
    for (int i = 0; i < count; ++i) f.push_back(low * std::pow(high / low, static_cast<double>(i) / (count - 1)));
    return f;
}

}  // namespace ampdata_gen
