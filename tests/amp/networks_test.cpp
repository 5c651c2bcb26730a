// The coupling and volume networks: worked values at 88200 Hz, the analog networks through the
// bilinear transform in double precision as an independent reference, the handlers' load
// tracking, and the agreement of the two CPU modes while the grid does not conduct.

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>

#include "amp/AmpData.h"
#include "amp/CouplingNetworks.h"
#include "amp/NetworkHandlers.h"
#include "engine/Context.h"
#include "filters/BiQuad.h"
#include "filters/FirstOrderIIR.h"
#include "support/TestSupport.h"

using namespace vrn;
typedef std::complex<double> cplx;

namespace {

const double kRate = 88200.0;
const double kPi = 3.14159265358979323846;

// Worked values are printed to 8 decimals: the coefficient must round to the same digits.
void expectWorked(double target, scalar got, const char* what) {
    EXPECT_NEAR(target, got, 0.5e-8 + 1e-12) << what;
}

template <typename F>
std::shared_ptr<F> carrier() {
    auto filter = std::make_shared<F>();
    auto context = std::make_shared<DSPContext>();
    filter->init("net", context);
    filter->setMaxBlockSize(512);
    return filter;
}

std::vector<scalar> constantTable(size_t entries, scalar ohms) { return std::vector<scalar>(entries, ohms); }

// The volume network from its components: Rs, C1 and the upper track in series into the wiper,
// the lower track, C2 and the grid conductance y from the wiper to ground.
cplx volumeNetwork(cplx s, double wiper, double y, double gain = 1.0) {
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

// The digital filter's response from its float coefficients, evaluated in double.
cplx digital(const scalar* a, const scalar* b, int order, cplx z) {
    cplx num = 0, den = 1, zi = 1;
    for (int k = 0; k <= order; ++k) {
        num += static_cast<double>(b[k]) * zi;
        if (k > 0) den += static_cast<double>(a[k - 1]) * zi;
        zi /= z;
    }
    return num / den;
}

// Worst relative deviation of the digital response from the analog network mapped by
// s = 2 fs (z - 1) / (z + 1), over 20 Hz to 20 kHz.
template <typename Analog>
double worstDeviation(const scalar* a, const scalar* b, int order, Analog analog) {
    double worst = 0;
    for (int i = 0; i <= 200; ++i) {
        const double f = 20.0 * std::pow(1000.0, i / 200.0);
        const cplx z = std::polar(1.0, 2 * kPi * f / kRate);
        const cplx s = 2.0 * kRate * (z - 1.0) / (z + 1.0);
        const cplx expected = analog(s);
        worst = std::max(worst, std::abs(digital(a, b, order, z) - expected) / std::abs(expected));
    }
    return worst;
}

}  // namespace

TEST(CouplingNetworks, WorkedValuesAt88200Hz) {
    V2V3Coupling coupling;
    coupling.setSamplingRate(88200.0f);
    auto* interstage = dynamic_cast<FirstOrderIIR*>(coupling.getFilter().get());
    ASSERT_TRUE(interstage);
    expectWorked(-0.99821836, interstage->getA()[0], "V2V3 A");
    expectWorked(0.76056755, interstage->getB()[0], "V2V3 B0");
    expectWorked(-0.76056755, interstage->getB()[1], "V2V3 B1");

    VolumeControl volume;
    volume.setSamplingRate(88200.0f);
    auto* biquad = dynamic_cast<BiQuad*>(volume.getFilter().get());
    ASSERT_TRUE(biquad);
    const scalar* b = biquad->getB();
    const scalar* a = biquad->getA();
    expectWorked(0.47863638, b[0], "wiper 1 B0");
    EXPECT_EQ(0.0f, b[1]);
    expectWorked(-0.47863638, b[2], "wiper 1 B2");
    expectWorked(-0.99671996, a[0], "wiper 1 A1");
    expectWorked(-0.00278671, a[1], "wiper 1 A2");

    volume.propertyChanged("Wiper", 0.5f);
    expectWorked(0.06316590, b[0], "wiper 0.5 B0");
    expectWorked(-0.06316590, b[2], "wiper 0.5 B2");
    expectWorked(-1.73602009, a[0], "wiper 0.5 A1");
    expectWorked(0.73615026, a[1], "wiper 0.5 A2");

    // Wiper 0: the network passes nothing.
    volume.propertyChanged("Wiper", 0.0f);
    EXPECT_EQ(0.0f, b[0]);
    EXPECT_EQ(0.0f, b[1]);
    EXPECT_EQ(0.0f, b[2]);

    EXPECT_VRN_MESSAGE(volume.propertyChanged("Gain", 1.0f), VRNException, "VolumeControl: Unknown property Gain");
    // Without "Wiper" the whole-set form leaves everything as it is; V2V3 takes any name.
    volume.propertiesChanged({{"Other", 0.3f}});
    EXPECT_DOUBLE_EQ(0.0, volume.getWiper());
    coupling.propertyChanged("Anything", 1.0f);
    expectWorked(-0.99821836, interstage->getA()[0], "V2V3 A after a property");
}

TEST(CouplingNetworks, VolumeHandlerWorkedValueWithGridCurrent) {
    // y = 1e-4 S exactly (a table in float can only give the float nearest to it, which moves A1
    // by one float step; the lookup path is checked against the analog network below).
    auto biquad = carrier<BiQuad>();
    auto handler = std::make_shared<VolCtrlPropertiesHandler>(biquad.get(), constantTable(1001, 1e4f));
    handler->propertyChanged("Wiper", 0.5f);
    handler->propertyChanged("Gain", 1.0f);
    handler->setSamplingRate(88200.0f);
    handler->setConductance(1e-4);
    expectWorked(0.01429448, biquad->getB()[0], "B0");
    EXPECT_EQ(0.0f, biquad->getB()[1]);
    EXPECT_EQ(-biquad->getB()[0], biquad->getB()[2]);
    expectWorked(-0.39212555, biquad->getA()[0], "A1");
    expectWorked(-0.60637164, biquad->getA()[1], "A2");

    EXPECT_VRN_MESSAGE(handler->propertyChanged("Level", 1.0f), VRNException,
                       "VolCtrlPropertiesHandler: Unknown property Level");
    // "Gain" scales the numerator only.
    const scalar unity = biquad->getB()[0];
    handler->propertyChanged("Gain", 0.5f);
    handler->setConductance(1e-4);
    EXPECT_EQ(0.5f * unity, biquad->getB()[0]);
    expectWorked(-0.39212555, biquad->getA()[0], "A1 with gain 0.5");
}

TEST(CouplingNetworks, AgreeWithTheAnalogNetworksThroughTheBilinearTransform) {
    // Float coefficients against the double-precision analog response: the poles sit close to
    // z = 1, so a coefficient's rounding (6e-8) moves the low end by up to a few 1e-5.
    const double tolerance = 2e-4;  // measured worst: 9.0e-5 (VolumeControl, wiper 0.05)
    VolumeControl volume;
    volume.setSamplingRate(static_cast<scalar>(kRate));
    auto* biquad = dynamic_cast<BiQuad*>(volume.getFilter().get());
    for (double wiper : {1.0, 0.75, 0.5, 0.25, 0.05}) {
        volume.propertyChanged("Wiper", static_cast<scalar>(wiper));
        const double worst = worstDeviation(biquad->getA(), biquad->getB(), 2, [&](cplx s) {
            return volumeNetwork(s, static_cast<scalar>(wiper), 0.0);
        });
        EXPECT_LT(worst, tolerance) << "VolumeControl wiper " << wiper;
    }
    V2V3Coupling coupling;
    coupling.setSamplingRate(static_cast<scalar>(kRate));
    auto* first = dynamic_cast<FirstOrderIIR*>(coupling.getFilter().get());
    EXPECT_LT(worstDeviation(first->getA(), first->getB(), 1, [](cplx s) { return interstageNetwork(s, 0.0); }),
              tolerance);

    // The loaded networks, through the handlers.
    for (scalar ohms : {1e4f, 2.5e3f, 1e6f}) {
        const double y = 1.0 / static_cast<double>(ohms);
        auto loadedVolume = carrier<BiQuad>();
        VolCtrlPropertiesHandler volumeHandler(loadedVolume.get(), constantTable(1001, ohms));
        volumeHandler.propertyChanged("Wiper", 0.3f);
        volumeHandler.propertyChanged("Gain", 0.8f);
        volumeHandler.setSamplingRate(static_cast<scalar>(kRate));
        volumeHandler.update(0.0f, 0.0f);
        EXPECT_LT(worstDeviation(loadedVolume->getA(), loadedVolume->getB(), 2,
                                 [&](cplx s) { return volumeNetwork(s, 0.3f, y, 0.8f); }),
                  tolerance)
            << "volume handler, " << ohms << " ohm";
        auto loadedInterstage = carrier<FirstOrderIIR>();
        V2V3PropertiesHandler interstageHandler(loadedInterstage.get(), constantTable(601, ohms));
        interstageHandler.setSamplingRate(static_cast<scalar>(kRate));
        interstageHandler.update(0.0f, 0.0f);
        EXPECT_LT(worstDeviation(loadedInterstage->getA(), loadedInterstage->getB(), 1,
                                 [&](cplx s) { return interstageNetwork(s, y); }),
                  tolerance)
            << "interstage handler, " << ohms << " ohm";
    }
}

TEST(CouplingNetworks, HighCpuEqualsLowCpuWhileTheGridDoesNotConduct) {
    // A grid that draws no current at all (infinite resistance): the two forms of each network
    // are the same function, computed in different orders: within 2 ulps.
    const scalar open = std::numeric_limits<scalar>::infinity();
    auto ulps = [](scalar x, scalar y) { return std::fabs(x - y) / std::fabs(std::nextafter(x, 2 * x + 1) - x); };
    for (double rate : {44100.0, 88200.0, 192000.0}) {
        V2V3Coupling coupling;
        coupling.setSamplingRate(static_cast<scalar>(rate));
        auto* low = dynamic_cast<FirstOrderIIR*>(coupling.getFilter().get());
        auto high = carrier<FirstOrderIIR>();
        V2V3PropertiesHandler handler(high.get(), constantTable(601, open));
        handler.setSamplingRate(static_cast<scalar>(rate));
        handler.update(0.0f, 0.0f);
        EXPECT_LE(ulps(low->getA()[0], high->getA()[0]), 2.0) << rate;
        EXPECT_LE(ulps(low->getB()[0], high->getB()[0]), 2.0) << rate;
        EXPECT_LE(ulps(low->getB()[1], high->getB()[1]), 2.0) << rate;

        VolumeControl volume;
        volume.setSamplingRate(static_cast<scalar>(rate));
        auto* lowVolume = dynamic_cast<BiQuad*>(volume.getFilter().get());
        auto highVolume = carrier<BiQuad>();
        VolCtrlPropertiesHandler volumeHandler(highVolume.get(), constantTable(1001, open));
        volumeHandler.propertyChanged("Gain", 1.0f);
        volumeHandler.setSamplingRate(static_cast<scalar>(rate));
        for (scalar wiper : {1.0f, 0.5f, 0.1f}) {
            volume.propertyChanged("Wiper", wiper);
            volumeHandler.propertyChanged("Wiper", wiper);
            volumeHandler.update(0.0f, 0.0f);
            for (int k = 0; k < 3; ++k) EXPECT_LE(ulps(lowVolume->getB()[k], highVolume->getB()[k]), 2.0) << k;
            // A2 is a small difference of large terms: compare it against the size of A1.
            EXPECT_LE(ulps(lowVolume->getA()[0], highVolume->getA()[0]), 2.0) << rate << " " << wiper;
            EXPECT_NEAR(lowVolume->getA()[1], highVolume->getA()[1], 4e-7) << rate << " " << wiper;
        }
    }

    // Tables at their non-conducting value, 1e10 ohm: the responses agree within 2e-4 (0.002 dB).
    for (scalar wiper : {1.0f, 0.5f}) {
        VolumeControl volume;
        volume.setSamplingRate(static_cast<scalar>(kRate));
        volume.propertyChanged("Wiper", wiper);
        auto* lowVolume = dynamic_cast<BiQuad*>(volume.getFilter().get());
        auto highVolume = carrier<BiQuad>();
        VolCtrlPropertiesHandler volumeHandler(highVolume.get(), constantTable(1001, 1e10f));
        volumeHandler.propertiesChanged(Properties());
        volumeHandler.propertyChanged("Wiper", wiper);
        volumeHandler.propertyChanged("Gain", 1.0f);
        volumeHandler.setSamplingRate(static_cast<scalar>(kRate));
        volumeHandler.update(0.0f, 0.0f);
        EXPECT_LT(worstDeviation(highVolume->getA(), highVolume->getB(), 2,
                                 [&](cplx s) {
                                     const cplx z = (2.0 * kRate + s) / (2.0 * kRate - s);
                                     return digital(lowVolume->getA(), lowVolume->getB(), 2, z);
                                 }),
                  2e-4)
            << wiper;
    }

    // The shipped table "yd" below its onset: 1e-10 S, which moves the interstage pole by a
    // relative 2.2e-5 of yb.  The two modes' audio on a small signal differ by no more than that.
    V2V3Coupling coupling;
    coupling.setSamplingRate(static_cast<scalar>(kRate));
    auto high = carrier<FirstOrderIIR>();
    high->setPropertiesHandler(std::make_shared<V2V3PropertiesHandler>(high.get()));
    high->setSamplingRate(static_cast<scalar>(kRate));
    auto& low = *coupling.getFilter();
    low.init("low", *std::make_shared<std::shared_ptr<DSPContext>>(std::make_shared<DSPContext>()));
    low.setMaxBlockSize(512);
    std::vector<scalar> in(512);
    for (size_t i = 0; i < in.size(); ++i) in[i] = 5.0f * std::sin(2 * static_cast<float>(kPi) * 440.0f * i / 88200.0f);
    std::vector<scalar*> inputs{in.data()};
    low.process(inputs, in.size());
    high->process(inputs, in.size());
    double worst = 0;
    for (size_t i = 0; i < in.size(); ++i)
        worst = std::max(worst, static_cast<double>(std::fabs(low.getOutput(0)[i] - high->getOutput(0)[i])));
    EXPECT_LT(worst, 5.0 * 5e-5);
}

TEST(CouplingNetworks, HandlersWriteOnlyWhenTheLoadMoves) {
    auto filter = carrier<FirstOrderIIR>();
    V2V3PropertiesHandler handler(filter.get());
    handler.setSamplingRate(48000.0f);
    const scalar sentinelA[1] = {0.25f};
    const scalar sentinelB[2] = {1.0f, 2.0f};
    handler.update(0.0f, 0.0f);  // the flag forces the first write
    EXPECT_NE(0.0f, filter->getB()[0]);
    EXPECT_NEAR(1e-10, handler.getConductance(), 1e-16);
    filter->setCoefficients(sentinelA, sentinelB);
    // Below the table, and a constant output above it: nothing is written.
    for (scalar v : {0.0f, -3.0f, 10.0f, 17.9f}) handler.update(0.0f, v);
    handler.update(0.0f, 40.0f);  // moves to the last row: written
    EXPECT_NE(0.25f, filter->getA()[0]);
    filter->setCoefficients(sentinelA, sentinelB);
    for (int k = 0; k < 5; ++k) handler.update(0.0f, 40.0f);
    EXPECT_EQ(0.25f, filter->getA()[0]);
    EXPECT_NEAR(1.0 / 3406.39, handler.getConductance(), 0.005 / 3406.39);  // the 30 V row of "yd"
    // A large move is written: the prediction 2 * 29 - 40 = 18 V lies below the onset.
    handler.update(0.0f, 29.0f);
    EXPECT_NE(0.25f, filter->getA()[0]);
    // A change of rate forces a write at the next sample even without a move.
    filter->setCoefficients(sentinelA, sentinelB);
    handler.update(0.0f, 18.0f);
    handler.update(0.0f, 18.0f);
    filter->setCoefficients(sentinelA, sentinelB);
    handler.update(0.0f, 18.0f);
    EXPECT_EQ(0.25f, filter->getA()[0]);
    handler.setSamplingRate(96000.0f);
    handler.update(0.0f, 18.0f);
    EXPECT_NE(0.25f, filter->getA()[0]);
}
