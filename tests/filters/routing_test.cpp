// Gain, Mixer, Switch, DifferentialFilter and Relaxation.

#include <gtest/gtest.h>

#include "engine/Context.h"
#include "filters/DifferentialFilter.h"
#include "filters/Gain.h"
#include "filters/Mixer.h"
#include "filters/Relaxation.h"
#include "filters/Switch.h"
#include "support/TestSupport.h"

using namespace vrn;

namespace {

template <typename T>
std::unique_ptr<T> make(std::initializer_list<std::pair<const char*, const char*>> values, int block = 8) {
    auto context = std::make_shared<DSPContext>();
    Properties properties;
    for (const auto& value : values) properties[value.first] = value.second;
    auto filter = std::make_unique<T>();
    filter->init("F", properties, context);
    filter->setMaxBlockSize(block);
    return filter;
}

std::shared_ptr<std::vector<scalar>> samples(std::initializer_list<scalar> values) {
    return std::make_shared<std::vector<scalar>>(values);
}

}  // namespace

TEST(Mixer, SumsScaledInputsAndChecksItsFaders) {
    auto mixer = make<Mixer>({{"Faders", "0.5|0.25"}});
    scalar a[3] = {1, 2, 3}, b[3] = {4, 4, 4};
    std::vector<scalar*> inputs{a, b};
    mixer->process(inputs, 3);
    EXPECT_EQ((std::vector<scalar>{1.5f, 2.0f, 2.5f}), std::vector<scalar>(mixer->getOutput(0), mixer->getOutput(0) + 3));
    mixer->propertyChanged("1", 2.0f);  // no range test at run time
    mixer->propertyChanged("abc", 0.0f);  // reaches fader 0
    mixer->process(inputs, 3);
    EXPECT_EQ(8.0f, mixer->getOutput(0)[0]);
    EXPECT_VRN_MESSAGE(mixer->propertyChanged("2", 1.0f), InvalidArgumentException, "Mixer: Invalid fader index 2");

    EXPECT_VRN_MESSAGE(make<Mixer>({{"Faders", "0.5|1.01"}}), InvalidArgumentException, "Invalid fader value: 1.01");
    EXPECT_VRN_MESSAGE(make<Mixer>({{"Faders", "-0.01|1"}}), InvalidArgumentException, "Invalid fader value: -0.01");
    make<Mixer>({{"Faders", "0|1"}});  // both ends are faders' values
}

TEST(Switch, SelectsOneInputByRoundedPosition) {
    auto sw = make<Switch>({{"NumberOfInputs", "3"}, {"Position", " 1"}});
    scalar a[2] = {1, 1}, b[2] = {2, 2}, c[2] = {3, 3};
    std::vector<scalar*> inputs{a, b, c};
    sw->process(inputs, 2);
    EXPECT_EQ(2.0f, sw->getOutput(0)[1]);
    sw->propertyChanged("Position", 1.49f);
    EXPECT_EQ(1, sw->getPosition());
    sw->propertyChanged("Position", 1.5f);
    EXPECT_EQ(2, sw->getPosition());
    EXPECT_VRN_MESSAGE(sw->propertyChanged("Position", 2.5f), InvalidArgumentException,
                       "Switch: Invalid position 3. NumberOfInputs=3");
    EXPECT_EQ(2, sw->getPosition());  // a refused change leaves the switch as it was
    sw->process(samples({7, 8, 9}), 0, 0);
    EXPECT_EQ(9.0f, sw->getLastIterationResults()[0]);
    EXPECT_EQ(2, sw->getMeta()->getInputIndex("in_2"));
    EXPECT_VRN_MESSAGE(sw->getMeta()->getInputIndex("in_3"), InvalidArgumentException,
                       "SwitchMeta: Invalid input port in_3, NumberOfInputs=3");
    EXPECT_VRN_MESSAGE(make<Switch>({{"NumberOfInputs", "1"}}), InvalidArgumentException,
                       "Switch: NumberOfInputs must be greater than 1.");
}

TEST(DifferentialFilter, ShortAndLongBlocksAgreeWithTheFormula) {
    auto diff = make<DifferentialFilter>({{"Gain", "3"}}, 16);
    scalar p[6] = {1, 2, 3, 4, 5, 6}, m[6] = {0.5f, 0.5f, 1, 1, 2, 8};
    std::vector<scalar*> inputs{p, m};
    for (size_t n : {3u, 6u}) {  // below 4: plain loops; from 4: kernels
        diff->process(inputs, n);
        for (size_t i = 0; i < n; ++i) EXPECT_FLOAT_EQ((p[i] - m[i]) * 3, diff->getOutput(0)[i]) << n << " " << i;
    }
    // A constant in place of one input.
    auto minus = make<DifferentialFilter>({{"Gain", "2"}, {"ConstantValueNode", "minus"}, {"ConstantValue", "1"}}, 16);
    std::vector<scalar*> plusOnly{p, nullptr};
    minus->process(plusOnly, 6);
    for (int i = 0; i < 6; ++i) EXPECT_FLOAT_EQ(2 * (p[i] - 1), minus->getOutput(0)[i]);
    auto plus = make<DifferentialFilter>({{"Gain", "2"}, {"ConstantValueNode", "plus"}, {"ConstantValue", "1"}}, 16);
    std::vector<scalar*> minusOnly{nullptr, m};
    plus->process(minusOnly, 2);
    EXPECT_FLOAT_EQ(2 * (1 - m[1]), plus->getOutput(0)[1]);
    diff->process(samples({5, 1}), 0, 0);
    EXPECT_EQ(12.0f, diff->getLastIterationResults()[0]);
}

TEST(Relaxation, DampsEachPassAndExtrapolatesTheNextSample) {
    auto context = std::make_shared<DSPContext>();
    Properties properties;
    properties["Relaxation"] = "1";
    Relaxation relax;
    relax.init("R", properties, context);
    relax.process(samples({4}), 0, 0);
    EXPECT_EQ(4.0f, relax.getLastIterationResults()[0]);  // factor 1 passes the input through
    relax.endIteration(0);
    EXPECT_EQ(8.0f, relax.getLastIterationResults()[0]);  // 2·4 − 0: straight-line prediction
    relax.setRelaxation(0.5f);
    relax.process(samples({0}), 1, 0);
    EXPECT_EQ(4.0f, relax.getLastIterationResults()[0]);  // halfway from 8 towards 0

    properties["Relaxation"] = "0";
    Relaxation bad;
    EXPECT_VRN_MESSAGE(bad.init("B", properties, context), InvalidArgumentException,
                       "Relaxation: Relaxation must be greater than 0. Relaxation=0 Relaxation name=B");
}
