// Gliding controls: a gain, the low-CPU volume network and the high-CPU volume handler move to
// a new value in a straight line over their glide time once audio has passed, arrive exactly
// at the value they would have jumped to (the networks' worked values at 88200 Hz), and take
// a value at once before any audio and when their rate changes.

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "amp/CouplingNetworks.h"
#include "amp/FilterWrapper.h"
#include "amp/NetworkHandlers.h"
#include "engine/Context.h"
#include "filters/BiQuad.h"
#include "filters/Gain.h"

using namespace vrn;

namespace {

// 1 ms at 8 kHz: a glide of 8 samples.
std::unique_ptr<Gain> glidingGain(scalar start) {
    auto context = std::make_shared<DSPContext>();
    auto gain = std::make_unique<Gain>();
    Properties properties;
    properties["Gain"] = std::to_string(start);
    gain->init("G", properties, context);
    gain->setMaxBlockSize(64);
    gain->setSamplingRate(8000.0f);
    gain->setGlideTime(0.001f);
    return gain;
}

void expectWorked(double target, scalar got, const char* what) { EXPECT_NEAR(target, got, 0.5e-8 + 1e-12) << what; }

}  // namespace

TEST(Glide, AGainMovesInAStraightLineOnceAudioHasPassed) {
    struct Case {
        const char* what;
        size_t firstBlock;  // frames before the change; 0: no audio yet
        std::vector<size_t> blocks;
    };
    // The same ramp whether it falls in one block, across blocks, or sample by sample.
    const Case cases[] = {{"one block", 4, {16}}, {"across blocks", 4, {3, 2, 11}}, {"single samples", 1, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1}}};
    for (const Case& c : cases) {
        auto gain = glidingGain(1.0f);
        std::vector<scalar> ones(64, 1.0f), out;
        gain->process(ones.data(), gain->getOutput(0), c.firstBlock);
        gain->propertyChanged("Gain", 3.0f);
        for (size_t n : c.blocks) {
            std::vector<scalar*> inputs{ones.data()};
            gain->process(inputs, n);
            out.insert(out.end(), gain->getOutput(0), gain->getOutput(0) + n);
        }
        // 1 + 2 k / 8 for k = 1..8, then 3.
        for (size_t k = 0; k < out.size(); ++k)
            EXPECT_FLOAT_EQ(k < 8 ? 1.0f + 2.0f * float(k + 1) / 8.0f : 3.0f, out[k]) << c.what << " sample " << k;
        EXPECT_EQ(3.0f, gain->getGain()) << c.what;
    }
}

TEST(Glide, AGainJumpsBeforeAudioOnARateChangeAndWithoutAGlideTime) {
    auto gain = glidingGain(1.0f);
    gain->propertyChanged("Gain", 0.25f);  // a setting, not a move
    EXPECT_EQ(0.25f, gain->getGain());
    scalar x[4] = {1, 1, 1, 1};
    gain->process(x, x, 4);
    EXPECT_EQ(0.25f, x[3]);

    gain->propertyChanged("Gain", 2.0f);
    EXPECT_EQ(0.25f, gain->getGain());
    EXPECT_EQ(2.0f, gain->getTargetGain());
    gain->setSamplingRate(16000.0f);  // a glide under way ends at its target
    EXPECT_EQ(2.0f, gain->getGain());

    gain->setGlideTime(0.0f);
    gain->propertyChanged("Gain", 5.0f);
    EXPECT_EQ(5.0f, gain->getGain());
    // A null input is silence, also while gliding.
    gain->setGlideTime(0.001f);
    gain->propertyChanged("Gain", 1.0f);
    scalar out[4] = {9, 9, 9, 9};
    gain->process(nullptr, out, 4);
    EXPECT_EQ(0.0f, out[0]);
    EXPECT_EQ(0.0f, out[3]);
}

TEST(Glide, TheVolumeNetworkArrivesAtItsWorkedValues) {
    // At 88200 Hz, 20 ms is 1764 samples; the coefficients move in stretches of 32.
    auto context = std::make_shared<DSPContext>();
    FilterWrapper wrapper;
    Properties properties;
    properties["PropertyNames"] = "Wiper";
    properties["Wiper"] = "1.0";
    wrapper.init("VC", properties, context);
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
    expectWorked(0.47863638, biquad->getB()[0], "wiper 1 B0");

    wrapper.propertyChanged("Wiper", 0.5f);
    expectWorked(0.47863638, biquad->getB()[0], "no audio since the change");
    wrapper.process(inputs, 512);
    // 512 of 1764 samples: the wiper is at 1 - 0.5 * 512 / 1764 at the end of the block.
    EXPECT_NEAR(1.0 - 0.5 * 512.0 / 1764.0, network->getWiper(), 1e-12);
    for (int block = 0; block < 3; ++block) wrapper.process(inputs, 512);
    EXPECT_EQ(0.5, network->getWiper());
    expectWorked(0.06316590, biquad->getB()[0], "wiper 0.5 B0");
    expectWorked(-1.73602009, biquad->getA()[0], "wiper 0.5 A1");
    expectWorked(0.73615026, biquad->getA()[1], "wiper 0.5 A2");

    // The audio of a glide is the audio of the same wiper moves made by hand between stretches.
    auto reference = std::make_shared<VolumeControl>();
    reference->getFilter()->init("R", context);
    reference->getFilter()->setMaxBlockSize(512);
    reference->setSamplingRate(88200.0f);
    reference->propertyChanged("Wiper", 0.5f);
    std::vector<scalar> tone(512);
    for (size_t i = 0; i < tone.size(); ++i) tone[i] = scalar(std::sin(0.05 * double(i)));
    inputs[0] = tone.data();
    wrapper.process(inputs, 512);  // both at rest at 0.5, same state history apart
    wrapper.reset();
    reference->getFilter()->reset();
    wrapper.propertyChanged("Wiper", 0.75f);
    wrapper.process(inputs, 100);
    std::vector<scalar> byHand(100);
    for (size_t at = 0; at < 100; at += 32) {
        const size_t n = std::min<size_t>(32, 100 - at);
        reference->propertyChanged("Wiper", scalar(0.5 + 0.25 * double(at + n) / 1764.0));
        reference->getFilter()->process(tone.data() + at, byHand.data() + at, n);
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

    handler->propertyChanged("Wiper", 0.5f);
    handler->propertyChanged("Gain", 0.5f);
    biquad->process(inputs, 64);
    EXPECT_GT(handler->getWiper(), 0.9);
    EXPECT_GT(handler->getGain(), 0.9f);
    for (int block = 0; block < 4; ++block) biquad->process(inputs, 512);
    EXPECT_EQ(0.5, handler->getWiper());
    EXPECT_EQ(0.5f, handler->getGain());
    handler->propertyChanged("Gain", 1.0f);
    handler->setSamplingRate(88200.0f);  // ends the glide at once
    handler->setConductance(1e-4);
    expectWorked(0.01429448, biquad->getB()[0], "B0");
    expectWorked(-0.39212555, biquad->getA()[0], "A1");
    expectWorked(-0.60637164, biquad->getA()[1], "A2");
}
