// Gliding controls: a gain, the low-CPU volume network and the high-CPU volume handler move to a
// new value in a straight line over their glide time once audio has passed, arrive exactly at the
// value they would have jumped to (the networks' worked values at 88200 Hz, from scipy as in
// networks_test.cpp), and take a value at once before any audio and when their rate changes.

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

Properties props(std::initializer_list<std::pair<const std::string, std::string>> list) {
    Properties p;
    for (auto& kv : list) p.insert(kv);
    return p;
}

}  // namespace

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
        // taken at once; a null input is silence, also while gliding.
        gain.propertyChanged("Gain", 2.0f);
        EXPECT_EQ(3.0f, gain.getGain());
        EXPECT_EQ(2.0f, gain.getTargetGain());
        gain.setSamplingRate(16000.0f);
        EXPECT_EQ(2.0f, gain.getGain());
        gain.setGlideTime(0.0f);
        gain.propertyChanged("Gain", 5.0f);
        EXPECT_EQ(5.0f, gain.getGain());
        gain.setGlideTime(0.001f);
        gain.propertyChanged("Gain", 1.0f);
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
    const double worked[5] = {0.06316590, 0, -0.06316590, -1.73602008, 0.73615029};
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(worked[k], biquad->getB()[k], 1e-7) << "B" << k;
    for (int k = 0; k < 2; ++k) EXPECT_NEAR(worked[3 + k], biquad->getA()[k], 1e-7) << "A" << k + 1;

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
    handler->propertyChanged("Wiper", 0.5f);
    handler->propertyChanged("Gain", 0.5f);
    biquad->process(inputs, 64);
    // 64 of 1764 samples, in stretches of 32: the values have moved by 64 / 1764 of the way.
    EXPECT_NEAR(1.0 - 0.5 * 64.0 / 1764.0, handler->getWiper(), 1e-6);
    EXPECT_NEAR(1.0 - 0.5 * 64.0 / 1764.0, handler->getGain(), 1e-6);
    for (int block = 0; block < 4; ++block) biquad->process(inputs, 512);
    EXPECT_EQ(0.5, handler->getWiper());
    EXPECT_EQ(0.5f, handler->getGain());
    handler->propertyChanged("Gain", 1.0f);
    handler->setSamplingRate(88200.0f);  // ends the glide at once
    handler->setConductance(1e-4);
    EXPECT_NEAR(0.01429448, biquad->getB()[0], 1e-7);
    EXPECT_NEAR(-0.39212557, biquad->getA()[0], 1e-7);
    EXPECT_NEAR(-0.60637161, biquad->getA()[1], 1e-7);
}
