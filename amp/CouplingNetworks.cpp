#include "amp/CouplingNetworks.h"

#include <algorithm>

using vrn::scalar;

namespace {
const std::string kA("A");
const std::string kB("B");
// A gliding wiper gets new coefficients this often, in samples at the network's rate: a step
// of a few hundredths of a dB, a few hundred recomputations in a glide at the highest rates.
constexpr size_t kGlideStride = 32;
}  // namespace

// Both networks round the numerator constant and the denominator to scalar, then divide once:
// the reciprocal stays in double so that only the final product is rounded again.

VolumeControl::VolumeControl()
    : filter(std::make_shared<vrn::BiQuad>()),
      B(std::make_shared<std::vector<scalar>>(3, 0.0f)),
      A(std::make_shared<std::vector<scalar>>(2, 0.0f)) {}

void VolumeControl::propertiesChanged(const std::unordered_map<std::string, scalar>& properties) {
    auto it = properties.find("Wiper");
    if (it == properties.end()) return;
    glide.jump(it->second);
    wiper = glide.value();
    recompute();
}

void VolumeControl::propertyChanged(const std::string& name, scalar value) {
    if (name != "Wiper") throw vrn::VRNException("VolumeControl: Unknown property " + name);
    glide.setTarget(value);
    wiper = glide.value();
    recompute();
}

void VolumeControl::setSamplingRate(scalar rate) {
    T = 2.0 * static_cast<double>(rate);
    glide.setRate(rate);
    wiper = glide.value();
    recompute();
}

void VolumeControl::setGlideTime(double seconds) {
    // T is 1 until the first rate: no glide before the network knows its rate.
    glide.setTime(seconds, T > 1.0 ? T / 2.0 : 0.0);
}

size_t VolumeControl::advance(size_t frames) {
    glide.start();
    if (!glide.moving()) return frames;
    const size_t n = std::min(frames, kGlideStride);
    // The stretch runs with the wiper it ends at.
    wiper = glide.advance(n);
    recompute();
    return n;
}

void VolumeControl::recompute() {
    const double Rl = wiper * Rp;
    const double Ru = (1.0 - wiper) * Rp;
    const double D1 = C1 * (Rp + Rs) + C2 * Rl;
    const double D2 = C1 * C2 * Rl * (Rs + Ru);
    const double a0 = 1.0 + D1 * T + D2 * T * T;
    const double p = T * C1 * Rl;
    const double r = 1.0 / static_cast<double>(static_cast<scalar>(a0));
    std::vector<scalar>& b = *B;
    std::vector<scalar>& a = *A;
    b[0] = static_cast<scalar>(static_cast<double>(static_cast<scalar>(p)) * r);
    b[1] = 0.0f;
    b[2] = static_cast<scalar>(static_cast<double>(static_cast<scalar>(-p)) * r);
    a[0] = static_cast<scalar>(2.0 * (1.0 - D2 * T * T) / a0);
    a[1] = static_cast<scalar>((1.0 - D1 * T + D2 * T * T) / a0);
    filter->propertyChanged(kA, A);
    filter->propertyChanged(kB, B);
}

V2V3Coupling::V2V3Coupling()
    : filter(std::make_shared<vrn::FirstOrderIIR>()),
      B(std::make_shared<std::vector<scalar>>(2, 0.0f)),
      A(std::make_shared<std::vector<scalar>>(1, 0.0f)) {}

void V2V3Coupling::propertiesChanged(const std::unordered_map<std::string, scalar>&) { recompute(); }

void V2V3Coupling::propertyChanged(const std::string&, scalar) { recompute(); }

void V2V3Coupling::setSamplingRate(scalar rate) {
    T = 2.0 * static_cast<double>(rate);
    recompute();
}

void V2V3Coupling::recompute() {
    const double K = T * Cc;
    const double p = K * Rb;
    const double D = -p - K * Ra - 1.0;
    const double r = 1.0 / static_cast<double>(static_cast<scalar>(D));
    std::vector<scalar>& b = *B;
    b[0] = static_cast<scalar>(static_cast<double>(static_cast<scalar>(-p)) * r);
    b[1] = static_cast<scalar>(static_cast<double>(static_cast<scalar>(p)) * r);
    (*A)[0] = static_cast<scalar>((K * (Ra + Rb) - 1.0) / D);
    filter->propertyChanged(kA, A);
    filter->propertyChanged(kB, B);
}
