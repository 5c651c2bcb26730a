// The coupling and volume networks, low-CPU calculators and high-CPU handlers alike: their
// coefficients against the analog networks through the bilinear transform (worked values from
// scipy), both CPU modes while the grid does not conduct, and the handlers' tracking of the load.
// Then gliding controls: a gain, the volume network and the volume handler move to a new value in
// a straight line over their glide time once audio has passed, arrive exactly at the value they
// would have jumped to, and take a value at once before any audio and when their rate changes.

#include <gtest/gtest.h>

#include <cmath>

#include "amp/CouplingNetworks.h"
#include "amp/FilterWrapper.h"
#include "amp/NetworkHandlers.h"
#include "engine/Context.h"
#include "filters/BiQuad.h"
#include "filters/FirstOrderIIR.h"
#include "filters/Gain.h"
#include "support/TestSupport.h"

using namespace vrn;

namespace {

enum Kind { kVolumeLow, kVolumeHigh, kInterstageLow, kInterstageHigh };

// ohms: the grid's resistance, one value for the whole table (high CPU); 0: the built-in "yd".
struct Network {
    Kind kind;
    double rate;
    scalar wiper, gain, ohms;
};

Properties props(std::initializer_list<std::pair<const std::string, std::string>> list) {
    Properties p;
    for (auto& kv : list) p.insert(kv);
    return p;
}

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

}  // namespace

TEST(CouplingNetworks, AgreeWithTheAnalogNetworksThroughTheBilinearTransform) {
    // Worked coefficients: scipy.signal.bilinear (no pre-warping) of the analog networks written
    // from their components, H = b(s) / a(s) with, for the volume network (Ru, Rl the upper and
    // lower track, y = 1 / ohms rounded to float as the table holds it):
    //   b = [gain Rl C1, 0], a = [Rl C1 (Rs + Ru) C2, Rl C1 + C1 (Rs + Ru) (1 + y Rl) + Rl C2, 1 + y Rl]
    // and for the interstage network (yt = y + 1 / Rb): b = [Cc, 0], a = [Cc (1 + yt Ra), yt].
    // Printed to 8 decimals; the float coefficients must agree within a float step.
    struct Row {
        Network network;
        std::vector<double> expected;
    };
    const Row rows[] = {
        {{kInterstageLow, 88200, 1, 1, 0}, {0.76056754, -0.76056754, -0.99821834}},
        {{kInterstageHigh, 44100, 1, 1, 2500}, {0.03433816, -0.03433816, -0.98568198}},
        // The built-in table "yd" below its onset: 1e10 ohm.
        {{kInterstageHigh, 88200, 1, 1, 0}, {0.76056353, -0.76056353, -0.99821831}},
        {{kVolumeLow, 88200, 0.5f, 1, 0}, {0.06316590, 0, -0.06316590, -1.73602008, 0.73615029}},
        {{kVolumeLow, 44100, 0.25f, 1, 0}, {0.07032873, 0, -0.07032873, -1.41280174, 0.41338165}},
        {{kVolumeHigh, 88200, 0.5f, 1, 1e10f}, {0.06316569, 0, -0.06316569, -1.73601414, 0.73614436}},
        {{kVolumeHigh, 48000, 0.3f, 0.8f, 2500}, {0.00257806, 0, -0.00257806, -0.06479054, -0.93274777}},
    };
    for (const Row& row : rows) {
        const Network& s = row.network;
        SCOPED_TRACE(::testing::Message() << "kind " << s.kind << " at " << s.rate << " Hz, wiper " << s.wiper << ", gain "
                                          << s.gain << ", " << s.ohms << " ohm");
        const std::vector<double> c = coefficients(s);
        ASSERT_EQ(row.expected.size(), c.size());
        for (size_t k = 0; k < c.size(); ++k) EXPECT_NEAR(row.expected[k], c[k], 1e-7) << "coefficient " << k;
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

TEST(Glide, AGainMovesInAStraightLineOnceAudioHasPassed) {
    // 1 ms at 8 kHz: a glide of 8 samples, the same ramp whether it falls in one block, across
    // blocks, or sample by sample: 1 + 2 k / 8 for k = 1..8, then 3.
    const std::vector<size_t> cases[] = {{4, 16}, {4, 3, 2, 11}, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}};
    for (const std::vector<size_t>& blocks : cases) {
        auto context = std::make_shared<DSPContext>();
        Gain gain;
        gain.init("G", props({{"Gain", "1"}}), context);
        gain.setMaxBlockSize(64);
        gain.setSamplingRate(8000.0f);
        gain.setGlideTime(0.001f);
        gain.propertyChanged("Gain", 0.5f);  // before any audio: a setting, not a move
        EXPECT_EQ(0.5f, gain.getGain());
        gain.propertyChanged("Gain", 1.0f);
        std::vector<scalar> ones(64, 1.0f), out;
        std::vector<scalar*> inputs{ones.data()};
        gain.process(inputs, blocks[0]);  // the frames before the change
        gain.propertyChanged("Gain", 3.0f);
        for (size_t b = 1; b < blocks.size(); ++b) {
            gain.process(inputs, blocks[b]);
            out.insert(out.end(), gain.getOutput(0), gain.getOutput(0) + blocks[b]);
        }
        for (size_t k = 0; k < out.size(); ++k)
            EXPECT_FLOAT_EQ(k < 8 ? 1.0f + 2.0f * float(k + 1) / 8.0f : 3.0f, out[k]) << blocks.size() << " blocks, sample " << k;

        // A glide under way ends at its target on a rate change; without a glide time a value is
        // taken at once; a null input is silence.
        gain.propertyChanged("Gain", 2.0f);
        EXPECT_EQ(3.0f, gain.getGain());
        EXPECT_EQ(2.0f, gain.getTargetGain());
        gain.setSamplingRate(16000.0f);
        EXPECT_EQ(2.0f, gain.getGain());
        gain.setGlideTime(0.0f);
        gain.propertyChanged("Gain", 5.0f);
        EXPECT_EQ(5.0f, gain.getGain());
        scalar silence[4] = {9, 9, 9, 9};
        gain.process(nullptr, silence, 4);
        EXPECT_EQ(0.0f, silence[0] + std::fabs(silence[3]));
    }
}

TEST(Glide, TheVolumeNetworkArrivesAtItsWorkedValues) {
    // At 88200 Hz, 20 ms is 1764 samples; the coefficients move in stretches of 32.
    auto context = std::make_shared<DSPContext>();
    FilterWrapper wrapper;
    wrapper.init("VC", props({{"PropertyNames", "Wiper"}, {"Wiper", "1.0"}}), context);
    auto network = std::make_shared<VolumeControl>();
    network->setGlideTime(0.02);
    wrapper.setCalculator(network);
    wrapper.setMaxBlockSize(512);
    wrapper.setSamplingRate(88200.0f);
    auto* biquad = dynamic_cast<BiQuad*>(network->getFilter().get());
    ASSERT_TRUE(biquad);
    std::vector<scalar> in(512, 0.0f);
    std::vector<scalar*> inputs{in.data()};
    wrapper.process(inputs, 100);
    wrapper.propertyChanged("Wiper", 0.5f);
    EXPECT_NEAR(0.47863637, biquad->getB()[0], 1e-7);  // wiper 1 until audio passes
    wrapper.process(inputs, 512);
    EXPECT_NEAR(1.0 - 0.5 * 512.0 / 1764.0, network->getWiper(), 1e-12);
    for (int block = 0; block < 3; ++block) wrapper.process(inputs, 512);
    EXPECT_EQ(0.5, network->getWiper());
    const std::vector<double> arrived = {biquad->getB()[0], biquad->getB()[1], biquad->getB()[2], biquad->getA()[0], biquad->getA()[1]};
    EXPECT_EQ(coefficients({kVolumeLow, 88200, 0.5f, 1, 0}), arrived);  // as pinned above

    // The audio of a glide is the audio of the same wiper moves made by hand between stretches.
    VolumeControl reference;
    reference.getFilter()->init("R", context);
    reference.setSamplingRate(88200.0f);
    reference.propertyChanged("Wiper", 0.5f);
    std::vector<scalar> tone(100), byHand(100);
    for (size_t i = 0; i < tone.size(); ++i) tone[i] = scalar(std::sin(0.05 * double(i)));
    inputs[0] = tone.data();
    wrapper.reset();
    wrapper.propertyChanged("Wiper", 0.75f);
    wrapper.process(inputs, 100);
    for (size_t at = 0; at < 100; at += 32) {
        const size_t n = std::min<size_t>(32, 100 - at);
        reference.propertyChanged("Wiper", scalar(0.5 + 0.25 * double(at + n) / 1764.0));
        reference.getFilter()->process(tone.data() + at, byHand.data() + at, n);
    }
    for (size_t i = 0; i < 100; ++i) EXPECT_NEAR(byHand[i], wrapper.getOutput(0)[i], 1e-6) << i;
}

TEST(Glide, TheVolumeHandlerArrivesAtItsWorkedValue) {
    auto context = std::make_shared<DSPContext>();
    auto biquad = std::make_shared<BiQuad>();
    biquad->init("VC", context);
    biquad->setMaxBlockSize(512);
    auto handler = std::make_shared<VolCtrlPropertiesHandler>(biquad.get(), std::vector<scalar>(1001, 1e10f));
    handler->setGlideTime(0.02);
    biquad->setPropertiesHandler(handler);
    biquad->setSamplingRate(88200.0f);
    handler->propertyChanged("Wiper", 1.0f);
    handler->propertyChanged("Gain", 1.0f);
    std::vector<scalar> in(512, 0.0f);
    std::vector<scalar*> inputs{in.data()};
    biquad->process(inputs, 64);
    handler->propertyChanged("Wiper", 0.5f);  // the wiper alone: a glide of one value runs too
    biquad->process(inputs, 64);
    // 64 of 1764 samples, in stretches of 32: the wiper has moved by 64 / 1764 of the way.
    EXPECT_NEAR(1.0 - 0.5 * 64.0 / 1764.0, handler->getWiper(), 1e-6);
    EXPECT_EQ(1.0f, handler->getGain());
    for (int block = 0; block < 4; ++block) biquad->process(inputs, 512);
    EXPECT_EQ(0.5, handler->getWiper());
    handler->propertyChanged("Gain", 0.5f);
    biquad->process(inputs, 64);
    EXPECT_NEAR(1.0 - 0.5 * 64.0 / 1764.0, handler->getGain(), 1e-6);  // and the gain alone
    handler->propertyChanged("Gain", 1.0f);
    handler->setSamplingRate(88200.0f);  // ends the glide at once
    handler->setConductance(1e-4);
    EXPECT_NEAR(0.01429448, biquad->getB()[0], 1e-7);
    EXPECT_NEAR(-0.39212557, biquad->getA()[0], 1e-7);
    EXPECT_NEAR(-0.60637161, biquad->getA()[1], 1e-7);
}
