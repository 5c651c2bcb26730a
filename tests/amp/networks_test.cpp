// The coupling and volume networks, low-CPU calculators and high-CPU handlers alike: their
// coefficients against the analog networks through the bilinear transform (worked values from
// scipy, and a double-precision sweep), the two CPU modes' agreement while the grid does not
// conduct, and the handlers' tracking of the grid load.

#include <gtest/gtest.h>

#include <cmath>
#include <complex>

#include "amp/CouplingNetworks.h"
#include "amp/NetworkHandlers.h"
#include "engine/Context.h"
#include "filters/BiQuad.h"
#include "filters/FirstOrderIIR.h"
#include "support/TestSupport.h"

using namespace vrn;
typedef std::complex<double> cplx;

namespace {

const double kPi = 3.14159265358979323846;

enum Kind { kVolumeLow, kVolumeHigh, kInterstageLow, kInterstageHigh };

// ohms: the grid's resistance, one value for the whole table (high CPU); 0: the built-in "yd".
struct Network {
    Kind kind;
    double rate;
    scalar wiper, gain, ohms;
};

template <typename F>
std::shared_ptr<F> carrier() {
    auto filter = std::make_shared<F>();
    auto context = std::make_shared<DSPContext>();
    filter->init("net", context);
    filter->setMaxBlockSize(512);
    return filter;
}

// The network as the plug-in builds it, after one sample of silence: b0..bN, then a1..aN.
std::vector<double> coefficients(const Network& s) {
    const scalar rate = static_cast<scalar>(s.rate);
    std::shared_ptr<Filter> filter;
    if (s.kind == kVolumeLow) {
        VolumeControl network;
        network.setSamplingRate(rate);
        network.propertyChanged("Wiper", s.wiper);
        filter = network.getFilter();
    } else if (s.kind == kInterstageLow) {
        V2V3Coupling network;
        network.setSamplingRate(rate);
        filter = network.getFilter();
    } else if (s.kind == kVolumeHigh) {
        filter = carrier<BiQuad>();
        VolCtrlPropertiesHandler handler(filter.get(), std::vector<scalar>(1001, s.ohms));
        handler.propertyChanged("Wiper", s.wiper);
        handler.propertyChanged("Gain", s.gain);
        handler.setSamplingRate(rate);
        handler.update(0.0f, 0.0f);
    } else {
        filter = carrier<FirstOrderIIR>();
        auto handler = s.ohms > 0 ? std::make_unique<V2V3PropertiesHandler>(filter.get(), std::vector<scalar>(601, s.ohms))
                                  : std::make_unique<V2V3PropertiesHandler>(filter.get());
        handler->setSamplingRate(rate);
        handler->update(0.0f, 0.0f);
    }
    std::vector<double> c;
    if (auto* biquad = dynamic_cast<BiQuad*>(filter.get()))
        c = {biquad->getB()[0], biquad->getB()[1], biquad->getB()[2], biquad->getA()[0], biquad->getA()[1]};
    else if (auto* first = dynamic_cast<FirstOrderIIR*>(filter.get()))
        c = {first->getB()[0], first->getB()[1], first->getA()[0]};
    return c;
}

// The volume network from its components: Rs, C1 and the upper track in series into the wiper,
// the lower track, C2 and the grid conductance y from the wiper to ground.
cplx volumeNetwork(cplx s, double wiper, double y, double gain) {
    using namespace volumenetwork;
    const cplx series = Rs + 1.0 / (s * C1) + (1.0 - wiper) * Rp;
    const cplx shunt = 1.0 / (1.0 / (wiper * Rp) + s * C2 + y);
    return gain * shunt / (series + shunt);
}

// The interstage network: Ra and Cc in series into the grid, Rb and y from the grid to ground.
cplx interstageNetwork(cplx s, double y) {
    using namespace interstagenetwork;
    const cplx shunt = 1.0 / (1.0 / Rb + y);
    return shunt / (Ra + 1.0 / (s * Cc) + shunt);
}

// The digital filter's response from its coefficients (b0..bN, a1..aN), evaluated in double.
cplx digital(const std::vector<double>& c, cplx z) {
    const size_t order = c.size() / 2;
    cplx num = 0, den = 1, zi = 1;
    for (size_t k = 0; k <= order; ++k) {
        num += c[k] * zi;
        if (k > 0) den += c[order + k] * zi;
        zi /= z;
    }
    return num / den;
}

}  // namespace

TEST(CouplingNetworks, AgreeWithTheAnalogNetworksThroughTheBilinearTransform) {
    // Worked coefficients: scipy.signal.bilinear (no pre-warping) of the analog networks written
    // from their components, H = b(s) / a(s) with, for the volume network (Ru, Rl the upper and
    // lower track, y = 1 / ohms rounded to float as the table holds it):
    //   b = [gain Rl C1, 0], a = [Rl C1 (Rs + Ru) C2, Rl C1 + C1 (Rs + Ru) (1 + y Rl) + Rl C2, 1 + y Rl]
    // and for the interstage network (yt = y + 1 / Rb): b = [Cc, 0], a = [Cc (1 + yt Ra), yt].
    // Printed to 8 decimals; the float coefficients must agree within a float step.
    // Then the response against the double-precision analog network over 20 Hz to 20 kHz: the
    // poles sit close to z = 1, so a coefficient's rounding (6e-8) moves the low end by up to a
    // few 1e-5 (measured worst: 9.0e-5, the volume network at wiper 0.05).
    struct Row {
        Network network;
        std::vector<double> expected;
    };
    const Row rows[] = {
        {{kInterstageLow, 88200, 1, 1, 0}, {0.76056754, -0.76056754, -0.99821834}},
        {{kInterstageLow, 44100, 1, 1, 0}, {0.75989060, -0.75989060, -0.99643986}},
        {{kInterstageHigh, 88200, 1, 1, 1e4f}, {0.12135075, -0.12135075, -0.99346183}},
        {{kInterstageHigh, 88200, 1, 1, 1e6f}, {0.72250926, -0.72250926, -0.99793515}},
        {{kInterstageHigh, 44100, 1, 1, 2500}, {0.03433816, -0.03433816, -0.98568198}},
        // The built-in table "yd" below its onset: 1e10 ohm.
        {{kInterstageHigh, 88200, 1, 1, 0}, {0.76056353, -0.76056353, -0.99821831}},
        {{kVolumeLow, 88200, 1, 1, 0}, {0.47863637, 0, -0.47863637, -0.99671996, -0.00278671}},
        {{kVolumeLow, 88200, 0.75f, 1, 0}, {0.11380766, 0, -0.11380766, -1.68242368, 0.68258008}},
        {{kVolumeLow, 88200, 0.5f, 1, 0}, {0.06316590, 0, -0.06316590, -1.73602008, 0.73615029}},
        {{kVolumeLow, 88200, 0.05f, 1, 0}, {0.02173692, 0, -0.02173692, -1.09414215, 0.09459024}},
        {{kVolumeLow, 44100, 0.25f, 1, 0}, {0.07032873, 0, -0.07032873, -1.41280174, 0.41338165}},
        {{kVolumeHigh, 88200, 0.5f, 1, 1e10f}, {0.06316569, 0, -0.06316569, -1.73601414, 0.73614436}},
        {{kVolumeHigh, 88200, 0.5f, 1, 1e4f}, {0.01429448, 0, -0.01429448, -0.39212557, -0.60637161}},
        {{kVolumeHigh, 48000, 0.3f, 0.8f, 2500}, {0.00257806, 0, -0.00257806, -0.06479054, -0.93274777}},
        {{kVolumeHigh, 44100, 1, 0.5f, 1e6f}, {0.31049942, 0, -0.31049942, -0.64546878, -0.35197093}},
    };
    for (const Row& row : rows) {
        const Network& s = row.network;
        SCOPED_TRACE(::testing::Message() << "kind " << s.kind << " at " << s.rate << " Hz, wiper " << s.wiper << ", gain "
                                          << s.gain << ", " << s.ohms << " ohm");
        const std::vector<double> c = coefficients(s);
        ASSERT_EQ(row.expected.size(), c.size());
        for (size_t k = 0; k < c.size(); ++k) EXPECT_NEAR(row.expected[k], c[k], 1e-7) << "coefficient " << k;
        const bool volume = s.kind == kVolumeLow || s.kind == kVolumeHigh;
        const double y = s.kind == kVolumeLow || s.kind == kInterstageLow ? 0.0 : 1.0 / (s.ohms > 0 ? s.ohms : 1e10);
        double worst = 0;
        for (int i = 0; i <= 200; ++i) {
            const double f = 20.0 * std::pow(1000.0, i / 200.0);
            const cplx z = std::polar(1.0, 2 * kPi * f / s.rate);
            const cplx p = 2.0 * s.rate * (z - 1.0) / (z + 1.0);
            const cplx expected = volume ? volumeNetwork(p, s.wiper, y, s.gain) : interstageNetwork(p, y);
            worst = std::max(worst, std::abs(digital(c, z) - expected) / std::abs(expected));
        }
        EXPECT_LT(worst, 2e-4);
    }
    // Wiper 0: the network passes nothing.
    const std::vector<double> closed = coefficients({kVolumeLow, 88200, 0, 1, 0});
    for (int k = 0; k < 3; ++k) EXPECT_EQ(0.0, closed[k]) << "wiper 0, B" << k;
    // Without "Wiper" the whole-set form leaves the network as it is.
    VolumeControl volume;
    volume.propertiesChanged({{"Other", 0.3f}});
    EXPECT_EQ(1.0, volume.getWiper());
    volume.propertiesChanged({{"Wiper", 0.25f}});
    EXPECT_EQ(0.25, volume.getWiper());
    EXPECT_VRN_MESSAGE(volume.propertyChanged("Gain", 1.0f), VRNException, "VolumeControl: Unknown property Gain");
}

TEST(CouplingNetworks, HandlersRewriteOnlyWhenTheLoadMovesByATenth) {
    // A table of two loads: 1000 / ratio ohm below `edge` volts, 1000 ohm from there.  The handler
    // settles at `settle` volts, then sees `outputs`; it predicts the next grid voltage as
    // 2 v[n] - v[n-1] and rewrites the coefficients when the conductance has moved by 10 % or more.
    struct Row {
        bool volume;
        double ratio, edge, settle;
        std::vector<scalar> outputs;
        bool written;
    };
    const Row rows[] = {
        {true, 1.095, 10, 15, {5, 5}, false},   {true, 1.105, 10, 15, {5, 5}, true},
        {true, 0.905, 10, 15, {5, 5}, false},   {true, 0.895, 10, 15, {5, 5}, true},
        {false, 1.095, 24, 28, {20, 20}, false}, {false, 1.105, 24, 28, {20, 20}, true},
        {false, 0.905, 24, 28, {20, 20}, false}, {false, 0.895, 24, 28, {20, 20}, true},
        // The prediction decides: 2 * 12.5 - 15 = 10 V lies below an edge at 10.2 V, 10.4 V does not.
        {true, 2, 10.2, 15, {12.5f}, true},     {true, 2, 10.2, 15, {12.7f}, false},
        {false, 2, 24.2, 28, {26}, true},        {false, 2, 24.2, 28, {26.2f}, false},
    };
    const scalar sentinelA[2] = {0.25f, 0.25f}, sentinelB[3] = {1.0f, 2.0f, 3.0f};
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message() << (row.volume ? "volume" : "interstage") << ", ratio " << row.ratio
                                          << ", edge " << row.edge << " V, last output " << row.outputs[0]);
        const double first = row.volume ? 0.0 : 18.0;
        std::vector<scalar> ohms(row.volume ? 1001 : 601);
        for (size_t i = 0; i < ohms.size(); ++i)
            ohms[i] = static_cast<scalar>(first + 0.02 * double(i) < row.edge - 1e-9 ? 1000.0 / row.ratio : 1000.0);
        std::shared_ptr<FixedOrderIIR<2>> biquad = carrier<BiQuad>();
        std::shared_ptr<FixedOrderIIR<1>> firstOrder = carrier<FirstOrderIIR>();
        std::unique_ptr<PropertiesHandler> handler;
        if (row.volume)
            handler = std::make_unique<VolCtrlPropertiesHandler>(biquad.get(), ohms);
        else
            handler = std::make_unique<V2V3PropertiesHandler>(firstOrder.get(), ohms);
        handler->setSamplingRate(48000.0f);
        for (int k = 0; k < 3; ++k) handler->update(0.0f, static_cast<scalar>(row.settle));
        EXPECT_NE(0.0f, row.volume ? biquad->getB()[0] : firstOrder->getB()[0]);  // the first sample writes
        biquad->setCoefficients(sentinelA, sentinelB);
        firstOrder->setCoefficients(sentinelA, sentinelB);
        for (scalar v : row.outputs) handler->update(0.0f, v);
        EXPECT_EQ(row.written, (row.volume ? biquad->getA()[0] : firstOrder->getA()[0]) != 0.25f);
    }
}
