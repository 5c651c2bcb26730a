// FilterWrapper with its calculator, and the Newton loop solver against loops worked by hand.

#include <gtest/gtest.h>

#include <cmath>

#include "amp/CouplingNetworks.h"
#include "amp/FilterWrapper.h"
#include "amp/Newton.h"
#include "engine/Context.h"
#include "engine/DSPElementFactory.h"

using namespace vrn;

namespace {

Properties props(std::initializer_list<std::pair<const std::string, std::string>> list) {
    Properties p;
    for (auto& kv : list) p.insert(kv);
    return p;
}

}  // namespace

// A wrapped volume network: the listed properties (malformed numbers read as 0) and later changes
// are kept until the network is wired, then reach it as a whole set; after that, changes go to
// the network.  (In the built-in description and its audio: the amp and amp_system suites.)
TEST(FilterWrapper, DeliversPropertiesAtWiring) {
    auto context = std::make_shared<DSPContext>();
    FilterWrapper alone;
    alone.init("VC", props({{"PropertyNames", "Wiper|Missing|Bad"}, {"Wiper", "0.25"}, {"Bad", "x1"}}), context);
    EXPECT_EQ((std::unordered_map<std::string, scalar>{{"Wiper", 0.25f}, {"Bad", 0.0f}}), alone.getWrappedProperties());
    alone.propertyChanged("Wiper", 0.75f);
    auto network = std::make_shared<VolumeControl>();
    alone.setCalculator(network);
    EXPECT_EQ(0.75, network->getWiper());
    EXPECT_EQ(network->getFilter(), alone.getFilter());
    alone.propertyChanged("Wiper", 0.5f);
    EXPECT_EQ(0.5, network->getWiper());
    EXPECT_EQ(0.75f, alone.getWrappedProperties().at("Wiper"));
}

namespace {

std::shared_ptr<Filter> stage(const char* type, const Properties& p) {
    std::shared_ptr<Filter> filter(DSPElementFactory().create(type));
    auto context = std::make_shared<DSPContext>();
    filter->init(type, p, context);
    return filter;
}

// A table of f(v) on [-4, 4] in steps of 0.001 (a single segment of `slope` when f is null).
std::shared_ptr<Filter> table(double (*f)(double), scalar slope = 0) {
    auto filter = stage("LookupTableFilter", f ? props({{"VinMin", "-4"}, {"VinMax", "4"}, {"DeltaV", "0.001"}})
                                              : props({{"VinMin", "-4"}, {"VinMax", "4"}, {"DeltaV", "8"}}));
    auto values = std::make_shared<std::vector<scalar>>(f ? 8001 : 2, slope);
    for (size_t i = 0; f && i < values->size(); ++i) (*values)[i] = static_cast<scalar>(f(-4.0 + 0.001 * double(i)));
    filter->propertyChanged("Vout", values);
    return filter;
}

}  // namespace

TEST(Newton, SolvesItsLoopsAsWorkedByHand) {
    // The loop y = F(x - G(y)), F and G with their slope tables.  Worked values: the linear loop
    // y = 2 (x - y) by hand (Newton's step is exact on it; a relaxation r moves the estimate by
    // r of the way per pass); tanh(1.5 - 0.5 y) = y by root finding (scipy brentq), 0.800423;
    // one Newton step y - g(y) / g'(y) from a start held at a bound, by hand in double;
    // the one-pole low pass y[n] = 0.5 (x - y[n]) + 0.5 y[n-1], i.e. y[n] = (x + y[n-1]) / 3.
    enum Loop { kEmpty, kLinear, kTanh, kLowPass };
    struct Row {
        const char* what;
        Loop loop;
        Properties options;
        scalar passes;  // the control "MaxIterations", rounded to the nearest; 0: left at 50
        std::vector<scalar> in;
        std::vector<double> out;
        double tolerance;
    };
    const Row rows[] = {
        {"no stages: y = x - y", kEmpty, {}, 0, {3, 5}, {1.5, 2.5}, 0},
        {"no pass", kEmpty, {}, 0.4f, {3, 5}, {0, 0}, 0},
        {"linear, negative", kLinear, props({{"FeedbackType", "Negative"}}), 0, {3, -1.5}, {2, -1}, 0},
        {"relaxation 0.5, one pass", kLinear, props({{"Relaxation", "0.5"}}), 0.6f, {3, 3}, {1, 1.5}, 0},
        {"relaxation 0.5, two passes", kLinear, props({{"Relaxation", "0.5"}}), 1.6f, {3, 3}, {1.5, 1.875}, 0},
        {"tanh", kTanh, {}, 0, {1.5f}, {0.800423032}, 2e-6},
        {"tanh, one pass from 0", kTanh, {}, 1.4f, {1.5f}, {0.830142154}, 2e-6},
        {"tanh held at most 0.3", kTanh, props({{"MaxValue", "0.3"}}), 0, {1.5f}, {0.813457395}, 2e-6},
        {"tanh held at least -0.3", kTanh, props({{"MinValue", "-0.3"}}), 0, {-1.5f}, {-0.813457395}, 2e-6},
        {"low pass", kLowPass, {}, 0, {1, 1, 1, 0, -1, 2},
         {0.333333333, 0.444444444, 0.481481481, 0.160493827, -0.279835391, 0.573388203}, 1e-6},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        Properties p = props({{"RelativeError", "1e-6"}, {"AbsoluteError", "1e-7"}, {"MaxIterations", "50"},
                              {"FeedbackType", "Positive"}});
        for (const auto& option : row.options) p[option.first] = option.second;
        Newton newton;
        auto context = std::make_shared<DSPContext>();
        newton.init("N", p, context);
        if (row.passes > 0) newton.propertyChanged("MaxIterations", row.passes);
        if (row.loop == kLinear) {
            newton.addForwardFilter(stage("Gain", props({{"Gain", "2"}})));
            newton.addForwardDerivative(table(nullptr, 2));
        } else if (row.loop == kTanh) {
            newton.addForwardFilter(table([](double v) { return std::tanh(v); }));
            newton.addForwardDerivative(table([](double v) { return 1.0 - std::tanh(v) * std::tanh(v); }));
        } else if (row.loop == kLowPass) {
            newton.addForwardFilter(stage("FirstOrderIIR", props({{"A", "-0.5"}, {"B", "0.5|0"}})));
            newton.addForwardDerivative(table(nullptr, 0.5f));  // d out / d in = b0
        }
        if (row.loop != kEmpty) {
            newton.addFeedbackFilter(stage("Gain", props({{"Gain", row.loop == kTanh ? "0.5" : "1"}})));
            newton.addFeedbackDerivative(table(nullptr, row.loop == kTanh ? 0.5f : 1.0f));
        }
        newton.setMaxBlockSize(16);
        std::vector<scalar> out(row.in.size());
        newton.process(row.in.data(), out.data(), row.in.size());
        for (size_t n = 0; n < out.size(); ++n) EXPECT_NEAR(row.out[n], out[n], row.tolerance) << "sample " << n;
    }
}
