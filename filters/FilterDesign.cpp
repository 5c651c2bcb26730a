#include "filters/FilterDesign.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <stdexcept>

#include "engine/Exceptions.h"

namespace vrn {
namespace filterdesign {

namespace {

typedef std::complex<double> Complex;

constexpr double kPi = 3.14159265358979323846;
constexpr size_t kMaxRoots = 512;

// Poles of the Bessel prototypes for orders 1 to 10 (one of each conjugate pair), normalised to
// unit delay at DC; order n starts at entry n*n/4.
const Complex kBesselPoles[30] = {
    {-1.00000000000, 0.00000000000}, {-1.10160133059, 0.63600982476}, {-1.32267579991, 0.00000000000},
    {-1.04740916101, 0.99926443628}, {-1.37006783055, 0.41024971749}, {-0.99520876435, 1.25710573945},
    {-1.50231627145, 0.00000000000}, {-1.38087732586, 0.71790958763}, {-0.95767654856, 1.47112432073},
    {-1.57149040362, 0.32089637422}, {-1.38185809760, 0.97147189071}, {-0.93065652295, 1.66186326894},
    {-1.68436817927, 0.00000000000}, {-1.61203876622, 0.58924450693}, {-1.37890321680, 1.19156677780},
    {-0.90986778062, 1.83645135304}, {-1.75740840040, 0.27286757510}, {-1.63693941813, 0.82279562514},
    {-1.37384121764, 1.38835657588}, {-0.89286971885, 1.99832584364}, {-1.85660050123, 0.00000000000},
    {-1.80717053496, 0.51238373057}, {-1.65239648458, 1.03138956698}, {-1.36758830979, 1.56773371224},
    {-0.87839927616, 2.14980052431}, {-1.92761969145, 0.24162347108}, {-1.84219624443, 0.72725759772},
    {-1.66181024140, 1.22110021857}, {-1.36069227838, 1.73350574267}, {-0.86575690171, 2.29260483098},
};

int bitCount(int value) {
    int count = 0;
    for (unsigned v = static_cast<unsigned>(value); v; v &= v - 1) ++count;
    return count;
}

// The working record of one run.
struct Run {
    int order = 0;
    double rawAlpha1 = 0, rawAlpha2 = 0, rawAlphaZ = 0;
    int options = 0;
    unsigned polemask = 0;
    double ripple = 0;
    double qfactor = 0;
    bool infq = false;
    std::vector<Complex> sPoles, sZeros, zPoles, zZeros;
    Complex dcGain, fcGain, hfGain;
    std::vector<double> xcoeffs, ycoeffs;
    double warpedAlpha1 = 0, warpedAlpha2 = 0;

    bool has(int flag) const { return (options & flag) != 0; }
    void checkOptions();
    void choosePole(const Complex& z);
    void computeSPoles();
    void prewarp();
    void normalise();
    void bilinear();
    void matchedZ();
    void resonator();
    void extraZeros();
    void expand(std::vector<scalar>& a, std::vector<scalar>& b);
};

void Run::checkOptions() {
    using namespace core;
    if (bitCount(options & (kBessel | kButterworth | kChebyshev | kResonator | kProportionalIntegrator)) != 1)
        throw std::invalid_argument("missing filter design method");
    if (has(kResonator)) {
        if (bitCount(options & (kBandPass | kBandStop | kAllPass)) != 1)
            throw std::invalid_argument("missing resonator type");
        if (options & 0xf060) throw std::invalid_argument("options incompatible with 2-pole resonator filter");
    } else if (has(kProportionalIntegrator)) {
        if (options & 0x3e0) throw std::invalid_argument("options incompatible with proportional integrator");
        if (!has(kOrder) || order != 1) throw std::out_of_range("proportional integrator allows only order of 1");
    } else {
        if (bitCount(options & (kLowPass | kHighPass | kBandPass | kBandStop)) != 1)
            throw std::invalid_argument("missing filter type");
        if (has(kAllPass)) throw std::invalid_argument("allpass characteristic avaialable only with 2-pole resonator");
        if (!has(kOrder)) throw std::invalid_argument("missing filter order");
        if (order <= 0 || order > 10) throw std::out_of_range("filter order out of range");
        if (has(kPoleMask) && order < 32 && (polemask >> order) != 0)
            throw std::out_of_range("selected poles out of range");
    }
    if (!has(kCornerFrequency)) throw std::invalid_argument("missing normalized corner frequency");
}

// Only the left half plane is stable; the mask picks among those candidates in turn.
void Run::choosePole(const Complex& z) {
    if (z.real() < 0) {
        if (polemask & 1) sPoles.push_back(z);
        polemask >>= 1;
    }
}

void Run::computeSPoles() {
    using namespace core;
    if (has(kBessel)) {
        int p = (order * order) / 4;
        if (order & 1) choosePole(kBesselPoles[p++]);
        for (int i = 0; i < order / 2; ++i, ++p) {
            choosePole(kBesselPoles[p]);
            choosePole(std::conj(kBesselPoles[p]));
        }
    }
    if (has(kButterworth) || has(kChebyshev)) {
        for (int i = 0; i < 2 * order; ++i) {
            const double angle = (order & 1) ? (i * kPi) / order : ((i + 0.5) * kPi) / order;
            choosePole(Complex(std::cos(angle), std::sin(angle)));
        }
    }
    if (has(kChebyshev)) {
        // The Butterworth circle squeezed into an ellipse: equal ripple in the pass band.
        if (ripple >= 0.0) throw std::domain_error("Chebyshev ripple must be < 0");
        const double e = std::sqrt(std::pow(10.0, -0.1 * ripple) - 1.0);
        const double y = std::asinh(1.0 / e) / order;
        if (!(y > 0)) throw std::domain_error("Chebyshev y must be > 0");
        for (Complex& pole : sPoles) pole = Complex(pole.real() * std::sinh(y), pole.imag() * std::cosh(y));
    }
}

// The bilinear transform squeezes the frequency axis; warping the corners first puts them where asked.
void Run::prewarp() {
    if (has(core::kNoPrewarp) || has(core::kMatchedZ)) {
        warpedAlpha1 = rawAlpha1;
        warpedAlpha2 = rawAlpha2;
    } else {
        warpedAlpha1 = std::tan(kPi * rawAlpha1) / kPi;
        warpedAlpha2 = std::tan(kPi * rawAlpha2) / kPi;
    }
}

void Run::normalise() {
    using namespace core;
    const double w1 = 2 * kPi * warpedAlpha1;
    const double w2 = 2 * kPi * warpedAlpha2;
    const size_t count = sPoles.size();
    if (has(kLowPass)) {
        for (Complex& p : sPoles) p *= w1;
    } else if (has(kHighPass)) {
        for (Complex& p : sPoles) p = w1 / p;
        sZeros.assign(count, Complex(0, 0));
    } else if (has(kBandPass) || has(kBandStop)) {
        const double w0 = std::sqrt(w1 * w2);
        const double bw = w2 - w1;
        std::vector<Complex> poles(2 * count);
        for (size_t i = 0; i < count; ++i) {
            const Complex hba = has(kBandPass) ? 0.5 * sPoles[i] * bw : 0.5 * bw / sPoles[i];
            const Complex t = std::sqrt(1.0 - (w0 / hba) * (w0 / hba));
            poles[i] = hba * (1.0 + t);
            poles[count + i] = hba * (1.0 - t);
        }
        sPoles = poles;
        if (has(kBandPass)) {
            sZeros.assign(count, Complex(0, 0));
        } else {
            sZeros.assign(count, Complex(0, w0));
            sZeros.resize(2 * count, Complex(0, -w0));
        }
    }
}

void Run::bilinear() {
    auto map = [](const Complex& s) { return (2.0 + s) / (2.0 - s); };
    for (const Complex& s : sPoles) zPoles.push_back(map(s));
    for (const Complex& s : sZeros) zZeros.push_back(map(s));
    // The zeros at infinity of the s-plane land on the Nyquist frequency.
    while (zZeros.size() < zPoles.size()) zZeros.push_back(Complex(-1, 0));
}

void Run::matchedZ() {
    for (const Complex& s : sPoles) zPoles.push_back(std::exp(s));
    for (const Complex& s : sZeros) zZeros.push_back(std::exp(s));
}

Complex evaluate(const std::vector<Complex>& zeros, const std::vector<Complex>& poles, const Complex& z) {
    Complex top = 1, bottom = 1;
    for (const Complex& q : zeros) top *= z - q;
    for (const Complex& p : poles) bottom *= z - p;
    return top / bottom;
}

void Run::resonator() {
    using namespace core;
    zZeros = {Complex(1, 0), Complex(-1, 0)};
    const double theta = 2 * kPi * rawAlpha1;
    if (infq) {
        zPoles = {std::polar(1.0, theta), std::polar(1.0, -theta)};
    } else {
        // The zeros at DC and Nyquist pull the peak aside; search the pole angle that puts zero
        // phase back at theta.
        const double r = std::exp(-theta / (2 * qfactor));
        double thm = theta, th1 = 0, th2 = kPi;
        bool converged = false;
        for (int round = 0; round < 50 && !converged; ++round) {
            zPoles = {std::polar(r, thm), std::polar(r, -thm)};
            const Complex g = evaluate(zZeros, zPoles, std::polar(1.0, theta));
            const double phi = g.imag() / g.real();
            if (phi > 0)
                th2 = thm;
            else
                th1 = thm;
            if (std::fabs(phi) < 1e-10) {
                converged = true;
                break;
            }
            thm = 0.5 * (th1 + th2);
        }
        if (!converged) throw std::runtime_error("failed to converge");
    }
    if (has(kBandStop)) {
        zZeros = {std::polar(1.0, theta), std::polar(1.0, -theta)};
    } else if (has(kAllPass)) {
        // Each zero is its pole reflected in the unit circle.
        for (size_t i = 0; i < zZeros.size(); ++i) zZeros[i] = zPoles[i] / std::norm(zPoles[i]);
    }
}

void Run::extraZeros() {
    if (zZeros.size() + 2 > kMaxRoots) throw std::runtime_error("too many zeros");
    zZeros.push_back(std::polar(1.0, 2 * kPi * rawAlphaZ));
    zZeros.push_back(std::polar(1.0, -2 * kPi * rawAlphaZ));
    while (zPoles.size() < zZeros.size()) zPoles.push_back(Complex(0, 0));
}

// The polynomial with the given roots, constant term first.
std::vector<Complex> multiplyOut(const std::vector<Complex>& roots) {
    std::vector<Complex> poly(1, Complex(1, 0));
    for (const Complex& root : roots) {
        poly.push_back(Complex(0, 0));
        for (size_t i = poly.size() - 1; i > 0; --i) poly[i] = poly[i - 1] - root * poly[i];
        poly[0] = -root * poly[0];
    }
    for (const Complex& c : poly)
        if (std::fabs(c.imag()) > 1e-10) throw std::runtime_error("poles/zeros not complex conjugates");
    return poly;
}

Complex evaluatePolynomial(const std::vector<Complex>& poly, const Complex& z) {
    Complex sum = 0;
    for (size_t i = poly.size(); i-- > 0;) sum = sum * z + poly[i];
    return sum;
}

void Run::expand(std::vector<scalar>& a, std::vector<scalar>& b) {
    const std::vector<Complex> top = multiplyOut(zZeros);
    const std::vector<Complex> bot = multiplyOut(zPoles);
    const size_t n = zPoles.size();
    const size_t m = zZeros.size();
    auto gainAt = [&](const Complex& z) { return evaluatePolynomial(top, z) / evaluatePolynomial(bot, z); };
    dcGain = gainAt(Complex(1, 0));
    fcGain = gainAt(std::polar(1.0, kPi * (rawAlpha1 + rawAlpha2)));
    hfGain = gainAt(Complex(-1, 0));
    xcoeffs.assign(m + 1, 0.0);
    ycoeffs.assign(n + 1, 0.0);
    for (size_t i = 0; i <= m; ++i) xcoeffs[i] = (top[i] / bot[n]).real();
    for (size_t i = 0; i <= n; ++i) ycoeffs[i] = -(bot[i] / bot[n]).real();
    const double gain = std::hypot(dcGain.real(), dcGain.imag());
    // Highest power last in the polynomials; the filters want the newest sample first.
    b.assign(n + 1, 0.0f);
    for (size_t k = 0; k <= m && k <= n; ++k) b[k] = static_cast<scalar>(xcoeffs[m - k] / gain);
    a.assign(n, 0.0f);
    for (size_t k = 0; k < n; ++k) a[k] = static_cast<scalar>(-ycoeffs[n - 1 - k]);
}

}  // namespace

void designCore(const CoreRequest& request, std::vector<scalar>& a, std::vector<scalar>& b) {
    using namespace core;
    Run run;
    run.order = request.order;
    run.options = request.options;
    run.rawAlpha1 = request.alpha1;
    run.rawAlpha2 = request.alpha2;
    run.rawAlphaZ = request.alphaZ;
    run.polemask = request.polemask;
    run.ripple = request.ripple;
    run.qfactor = request.qfactor;
    run.infq = request.infq;
    run.sPoles.reserve(kMaxRoots);
    run.sZeros.reserve(kMaxRoots);
    run.zPoles.reserve(kMaxRoots);
    run.zZeros.reserve(kMaxRoots);

    run.checkOptions();
    if (!run.has(kPoleMask)) run.polemask = ~0u;
    if (!run.has(kBandPass) && !run.has(kBandStop)) run.rawAlpha2 = run.rawAlpha1;

    if (run.has(kResonator)) {
        run.resonator();
    } else if (run.has(kProportionalIntegrator)) {
        run.prewarp();
        run.sPoles.push_back(Complex(0, 0));
        run.sZeros.push_back(Complex(-2 * kPi * run.warpedAlpha1, 0));
    } else {
        run.computeSPoles();
        run.prewarp();
        run.normalise();
    }
    if (!run.has(kResonator)) {
        if (run.has(kMatchedZ))
            run.matchedZ();
        else
            run.bilinear();
    }
    if (run.has(kExtraZeros)) run.extraZeros();
    std::vector<scalar> newA, newB;
    run.expand(newA, newB);
    a.swap(newA);
    b.swap(newB);
}

IirDesignContext::IirDesignContext(Options family, Options, uint64_t designOrder, double corner) : fc1(corner) {
    order = designOrder;
    if (family != BESSEL && family != BUTTERWORTH && family != CHEBYSHEV)
        throw InvalidArgumentException(
            "IirDesignContext: family must be one of the following: BESSEL, BUTTERWORTH, CHEBYSHEV.");
    options.set(LOWPASS);
    options.set(family);
    if (family == CHEBYSHEV && !(ripple < 0))
        throw InvalidArgumentException("IirDesignContext: ripple must be less than zero.");
    if (!(fc1 > 0 && fc1 < 0.5)) throw InvalidArgumentException("IirDesignContext: fc1 must be (0, 0.5).");
    if ((options.test(BANDPASS) || options.test(BANDSTOP)) && !(fc2 > 0 && fc2 < 0.5))
        throw InvalidArgumentException("IirDesignContext: fc2 must be (0, 0.5).");
    if (order == 0)
        throw InvalidArgumentException("DesignContext: Invalid filter order: " + toString(static_cast<size_t>(order)));
}

void design(const std::shared_ptr<DesignContext>& context) {
    using namespace core;
    CoreRequest request;
    const std::bitset<15>& options = context->options;
    if (options.test(BESSEL)) request.options |= kBessel;
    if (options.test(BUTTERWORTH)) request.options |= kButterworth;
    if (options.test(CHEBYSHEV)) request.options |= kChebyshev;
    auto* iir = dynamic_cast<IirDesignContext*>(context.get());
    if (iir) {
        if (options.test(CHEBYSHEV)) request.ripple = iir->ripple;
        request.alpha1 = iir->fc1;
        if (options.test(LOWPASS)) request.options |= 0x420;
        if (options.test(HIGHPASS)) request.options |= 0x440;
        if (options.test(BANDPASS)) request.options |= 0x480;
        if (options.test(BANDSTOP)) request.options |= 0x500;
        if (options.test(ALLPASS)) request.options |= 0x600;
        if (options.test(BANDPASS) || options.test(BANDSTOP)) request.alpha2 = iir->fc2;
    }
    if (options.test(NO_PREWARP)) request.options |= kNoPrewarp;
    if (options.test(MATCHED_Z)) request.options |= kMatchedZ;
    request.options |= kOrder;
    request.order = static_cast<int>(std::min<uint64_t>(context->order, 0x7fffffff));
    auto a = std::make_shared<std::vector<scalar>>();
    auto b = std::make_shared<std::vector<scalar>>();
    designCore(request, *a, *b);
    context->a = a;
    context->b = b;
}

}  // namespace filterdesign
}  // namespace vrn
