#pragma once
// Recursive filter design: s-plane poles and zeros of a Bessel, Butterworth or Chebyshev
// prototype, moved to the wanted band, pre-warped and mapped to z by the bilinear or the
// matched z-transform, then multiplied out into direct form coefficients.  Also two-pole
// resonators and a proportional integrator.  Doubles throughout; only the results are scalars.
// Load time or a rate change only: a run allocates.

#include <bitset>
#include <cstdint>
#include <memory>
#include <vector>

#include "engine/Types.h"

namespace vrn {
namespace filterdesign {

// Bit numbers in DesignContext::options.
enum Options {
    BIQUAD = 0,
    BESSEL = 1,
    BUTTERWORTH = 2,
    CHEBYSHEV = 3,
    LOWPASS = 4,
    HIGHPASS = 5,
    BANDPASS = 6,
    BANDSTOP = 7,
    ALLPASS = 8,
    NO_PREWARP = 13,
    MATCHED_Z = 14
};

struct DesignContext {
    virtual ~DesignContext() {}
    uint64_t order = 0;
    // The result: a1..aN and b0..bN with y[n] = sum b[k] x[n-k] - sum a[k-1] y[n-k].
    std::shared_ptr<std::vector<scalar>> a;
    std::shared_ptr<std::vector<scalar>> b;
    std::bitset<15> options;
};

struct IirDesignContext : public DesignContext {
    // family: BESSEL, BUTTERWORTH or CHEBYSHEV; band has no effect, the design is a low-pass;
    // fc1 in cycles per sample.  Throws InvalidArgumentException on a bad argument.
    IirDesignContext(Options family, Options band, uint64_t order, double fc1);
    double fc1 = 0;
    double fc2 = 0;
    double ripple = 0;  // dB, below 0 for Chebyshev
    uint8_t reserved[12] = {};
};

// Runs the design; a and b of the context hold the result afterwards.  Failures of the core are
// standard-library exceptions (invalid_argument, out_of_range, domain_error, runtime_error).
void design(const std::shared_ptr<DesignContext>& context);

// The flags of the core, for callers that need more than the low-pass front-end.
namespace core {
constexpr int kBessel = 0x1;
constexpr int kButterworth = 0x2;
constexpr int kChebyshev = 0x4;
constexpr int kResonator = 0x8;
constexpr int kProportionalIntegrator = 0x10;
constexpr int kLowPass = 0x20;
constexpr int kHighPass = 0x40;
constexpr int kBandPass = 0x80;
constexpr int kBandStop = 0x100;
constexpr int kAllPass = 0x200;
constexpr int kCornerFrequency = 0x400;
constexpr int kSelectPoles = 0x800;  // travels with kPoleMask; the mask alone decides
constexpr int kOrder = 0x1000;
constexpr int kPoleMask = 0x2000;
constexpr int kNoPrewarp = 0x4000;
constexpr int kMatchedZ = 0x8000;
constexpr int kExtraZeros = 0x10000;
}  // namespace core

// A request to the core.  Frequencies are fractions of the sampling rate.
struct CoreRequest {
    int options = 0;
    int order = 0;
    double alpha1 = 0;
    double alpha2 = 0;
    double alphaZ = 0;      // the extra pair of zeros
    unsigned polemask = 0;  // with kPoleMask: which left-half-plane candidates to keep
    double ripple = 0;      // Chebyshev, dB, negative
    double qfactor = 0;     // resonators
    bool infq = false;      // a resonator of infinite Q
};

// The core: a gets N values, b N + 1 (the zeros' coefficients, then zero padding).  Normalised to
// unity gain at DC, whatever the band.
void designCore(const CoreRequest& request, std::vector<scalar>& a, std::vector<scalar>& b);

}  // namespace filterdesign
}  // namespace vrn
