// The recursive filters against a double-precision difference equation, block against sample
// paths, coefficient changes, the per-sample handler path, the iteration protocol and messages.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "engine/DSPElementFactory.h"
#include "filters/BiQuad.h"
#include "filters/FirstOrderIIR.h"
#include "filters/Iir.h"
#include "filters/ThirdOrderIIR.h"
#include "tests/filters_iir/Reference.h"

using namespace vrn;
using ormtest::DifferenceEquation;

namespace {

template <typename F>
std::unique_ptr<F> make(const Properties& properties, int maxBlock = 256) {
    auto filter = std::make_unique<F>();
    auto context = ormtest::makeContext();
    filter->init("f", properties, context);
    filter->setMaxBlockSize(maxBlock);
    return filter;
}

Properties props(std::initializer_list<std::pair<const std::string, std::string>> list) {
    Properties p;
    for (auto& kv : list) p.insert(kv);
    return p;
}

template <typename F>
std::string initMessage(const Properties& properties) {
    F filter;
    auto context = ormtest::makeContext();
    try {
        filter.init("x", properties, context);
    } catch (const VRNException& e) {
        return e.getMessage();
    }
    return "";
}

std::string message(const std::function<void()>& action) {
    try {
        action();
    } catch (const VRNException& e) {
        return e.getMessage();
    }
    return "";
}

// Runs a signal through a filter's block kernel in pieces of the given sizes, cycling.
std::vector<scalar> runBlocks(Filter& filter, const std::vector<scalar>& in, const std::vector<size_t>& sizes) {
    std::vector<scalar> out(in.size());
    size_t pos = 0, k = 0;
    while (pos < in.size()) {
        size_t n = std::min(sizes[k++ % sizes.size()], in.size() - pos);
        filter.process(in.data() + pos, out.data() + pos, n);
        pos += n;
    }
    return out;
}

// Largest |float - double| over a run, relative to the signal's peak.
double worstAgainstReference(const std::vector<scalar>& out, DifferenceEquation& reference, const std::vector<scalar>& in) {
    double worst = 0;
    for (size_t i = 0; i < in.size(); ++i) worst = std::max(worst, std::fabs(out[i] - reference.step(in[i])));
    return worst;
}

}  // namespace

TEST(RecursiveFilters, DcBlockImpulseResponse) {
    auto filter = make<FirstOrderIIR>(props({{"A", "-0.9995"}, {"B", "1.0|-1.0"}}));
    std::vector<scalar> in(64, 0.0f), out(64);
    in[0] = 1.0f;
    filter->process(in.data(), out.data(), in.size());
    EXPECT_EQ(out[0], 1.0f);
    EXPECT_FLOAT_EQ(out[1], -1.0f + 0.9995f);
    // After the first sample the response is -(1 - a) a^(n-1): a slow exponential decay.
    for (int n = 1; n < 64; ++n) EXPECT_NEAR(out[n], -(1 - 0.9995) * std::pow(0.9995, n - 1), 1e-6) << n;
}

TEST(RecursiveFilters, BlockKernelEqualsSampleStepsBitForBit) {
    const auto in = ormtest::testSignal(1000);
    const std::vector<std::vector<size_t>> pieces = {{1}, {2}, {3}, {1, 2, 3}, {4}, {5, 64, 7}, {1000}};
    auto check = [&](auto makeOne) {
        auto reference = makeOne();
        std::vector<scalar> expected(in.size());
        for (size_t i = 0; i < in.size(); ++i) expected[i] = reference->process(in[i]);
        for (const auto& sizes : pieces) {
            auto filter = makeOne();
            EXPECT_EQ(runBlocks(*filter, in, sizes), expected);
        }
    };
    check([] { return make<FirstOrderIIR>(props({{"A", "-0.95"}, {"B", "0.3|0.2"}})); });
    check([] { return make<BiQuad>(props({{"A", "-1.6|0.7"}, {"B", "0.05|0.1|0.05"}})); });
    check([] {
        return make<ThirdOrderIIR>(props({{"A", "-1.76004188|1.18289326|-0.27805992"},
                                          {"B", "0.01809893|0.0542968|0.0542968|0.01809893"},
                                          {"InputIndex", "0"}}));
    });
}

TEST(RecursiveFilters, AgreeWithDoublePrecisionReference) {
    const auto in = ormtest::testSignal(4000);
    const std::vector<size_t> sizes = {64, 3, 17, 1};
    // Rounding noise grows with 1/(distance of the poles from the unit circle): the DC block's
    // pole at 0.9995 amplifies the float error of each step about 2000 times, and a fifth order in
    // direct form at a low corner is worse still (its poles crowd near z = 0.75).
    double worst = 0, worstDcBlock = 0, worstOrder5 = 0;
    {
        auto f = make<FirstOrderIIR>(props({{"A", "-0.9995"}, {"B", "1|-1"}}));
        DifferenceEquation r(std::vector<double>{-0.9995f}, std::vector<double>{1, -1});
        worstDcBlock = worstAgainstReference(runBlocks(*f, in, sizes), r, in);
    }
    {
        auto f = make<BiQuad>(props({{"A", "-0.69973803|0.25949518"}, {"B", "0.13993929|0.27987857|0.13993929"}}));
        DifferenceEquation r(std::vector<float>{-0.69973803f, 0.25949518f},
                             std::vector<float>{0.13993929f, 0.27987857f, 0.13993929f});
        worst = std::max(worst, worstAgainstReference(runBlocks(*f, in, sizes), r, in));
    }
    {
        auto f = make<ThirdOrderIIR>(props({{"A", "-1.76004188|1.18289326|-0.27805992"},
                                             {"B", "0.01809893|0.0542968|0.0542968|0.01809893"},
                                             {"InputIndex", "2"}}));
        EXPECT_EQ(f->getInputIndex(), 2);
        DifferenceEquation r(std::vector<float>{-1.76004188f, 1.18289326f, -0.27805992f},
                             std::vector<float>{0.01809893f, 0.0542968f, 0.0542968f, 0.01809893f});
        worst = std::max(worst, worstAgainstReference(runBlocks(*f, in, sizes), r, in));
    }
    {
        // Order 5: a Butterworth low-pass at 0.1, as the design produces it.
        const std::vector<float> a = {-2.9754221f, 3.8060181f, -2.5452529f, 0.8811250f, -0.1254306f};
        const std::vector<float> b = {0.0012826f, 0.0064129f, 0.0128258f, 0.0128258f, 0.0064129f, 0.0012826f};
        Properties p = props({{"Order", "5"}});
        std::string at, bt;
        for (float v : a) at += toString(static_cast<double>(v)) + "|";
        for (float v : b) bt += toString(static_cast<double>(v)) + "|";
        p["A"] = at;
        p["B"] = bt;
        auto f = make<Iir>(p);
        DifferenceEquation r(a, b);
        worstOrder5 = worstAgainstReference(runBlocks(*f, in, {2, 3, 64, 4, 1}), r, in);
    }
    std::printf("[ figures  ] worst |float - double reference| over 4000 samples: DC block %.3g, "
                "BiQuad and third order %.3g, Iir order 5 %.3g\n", worstDcBlock, worst, worstOrder5);
    EXPECT_LT(worstDcBlock, 2e-4);
    EXPECT_LT(worstOrder5, 5e-4);
    EXPECT_LT(worst, 2e-5);
}

TEST(RecursiveFilters, IirOfOrderOneMatchesFirstOrder) {
    const auto in = ormtest::testSignal(500);
    auto first = make<FirstOrderIIR>(props({{"A", "-0.9"}, {"B", "0.5|0.25"}}));
    auto iir = make<Iir>(props({{"Order", "1"}, {"A", "-0.9"}, {"B", "0.5|0.25"}}));
    auto a = runBlocks(*first, in, {7});
    auto b = runBlocks(*iir, in, {1, 5, 64});
    for (size_t i = 0; i < in.size(); ++i) EXPECT_NEAR(a[i], b[i], 1e-6) << i;
}

TEST(RecursiveFilters, IirHistorySlidesOverBlocksShorterThanTheOrder) {
    const std::vector<float> a = {-0.5f, 0.1f, -0.05f, 0.02f, 0.01f, -0.003f};
    const std::vector<float> b = {0.3f, 0.2f, 0.1f, 0.05f, -0.02f, 0.01f, 0.004f};
    Properties p = props({{"Order", "6"}, {"A", "-0.5|0.1|-0.05|0.02|0.01|-0.003"},
                          {"B", "0.3|0.2|0.1|0.05|-0.02|0.01|0.004"}});
    const auto in = ormtest::testSignal(600);
    auto whole = runBlocks(*make<Iir>(p), in, {600});
    for (const std::vector<size_t>& sizes : {std::vector<size_t>{1}, {2, 5}, {3}, {6}, {7, 1, 13}}) {
        auto pieces = runBlocks(*make<Iir>(p), in, sizes);
        for (size_t i = 0; i < in.size(); ++i) ASSERT_NEAR(pieces[i], whole[i], 1e-6) << i;
    }
    DifferenceEquation r(a, b);
    double worst = 0;
    for (size_t i = 0; i < in.size(); ++i) worst = std::max(worst, std::fabs(whole[i] - r.step(in[i])));
    EXPECT_LT(worst, 1e-5);
    // Through the graph's form into its own buffer, and the scalar form that does nothing.
    auto f = make<Iir>(p);
    std::vector<scalar> copy(in.begin(), in.begin() + 10);
    scalar* result = f->process(copy.data(), 10);
    EXPECT_EQ(result, f->getOutput(0));
    EXPECT_FLOAT_EQ(result[9], whole[9]);
    EXPECT_EQ(f->process(1.0f), 0.0f);
}

TEST(RecursiveFilters, CoefficientChangesKeepTheState) {
    // During silence with zero state a new B changes nothing.
    auto quiet = make<BiQuad>(props({{"A", "0.0|0.0"}, {"B", "0.0|0.0|0.0"}}));
    std::vector<scalar> zeros(16, 0.0f), out(16, 1.0f);
    quiet->process(zeros.data(), out.data(), 16);
    quiet->propertyChanged("B", ormtest::values({1.0f, 0.5f, 0.25f}));
    quiet->process(zeros.data(), out.data(), 16);
    for (scalar v : out) EXPECT_EQ(v, 0.0f);

    // During a signal the old state meets the new coefficients: "A" then "B", between blocks.
    const auto in = ormtest::testSignal(400);
    for (int kind = 0; kind < 2; ++kind) {
        std::unique_ptr<Filter> f;
        if (kind == 0)
            f = make<BiQuad>(props({{"A", "-1.6|0.7"}, {"B", "0.05|0.1|0.05"}}));
        else
            f = make<Iir>(props({{"Order", "2"}, {"A", "-1.6|0.7"}, {"B", "0.05|0.1|0.05"}}));
        DifferenceEquation r(std::vector<double>{-1.6f, 0.7f}, std::vector<double>{0.05f, 0.1f, 0.05f});
        std::vector<scalar> o(in.size());
        f->process(in.data(), o.data(), 200);
        f->propertyChanged("A", ormtest::values({-0.7f, 0.26f}));
        f->propertyChanged("B", ormtest::values({0.14f, 0.28f, 0.14f}));
        f->process(in.data() + 200, o.data() + 200, 200);
        double worst = 0;
        for (size_t i = 0; i < in.size(); ++i) {
            if (i == 200) r.setCoefficients({-0.7f, 0.26f}, {0.14f, 0.28f, 0.14f});
            worst = std::max(worst, std::fabs(o[i] - r.step(in[i])));
        }
        EXPECT_LT(worst, 1e-5) << kind;
    }
}

TEST(RecursiveFilters, ResetClearsStateAndKeepsCoefficients) {
    auto f = make<BiQuad>(props({{"A", "-1.6|0.7"}, {"B", "0.05|0.1|0.05"}}));
    const auto in = ormtest::testSignal(100);
    std::vector<scalar> first(100), second(100);
    f->process(in.data(), first.data(), 100);
    f->reset();
    f->process(in.data(), second.data(), 100);
    EXPECT_EQ(first, second);
    EXPECT_FLOAT_EQ(f->getA()[0], -1.6f);

    auto iir = make<Iir>(props({{"Order", "3"}, {"A", "-0.5|0.1|0.01"}, {"B", "1|0.5|0.2|0.1"}}));
    iir->process(in.data(), first.data(), 100);
    iir->reset();
    iir->process(in.data(), second.data(), 100);
    EXPECT_EQ(first, second);
    // A new order clears the history.
    iir->propertyChanged("Order", 2.4f);
    EXPECT_EQ(iir->getOrder(), 2);
}

namespace {

// Sends new coefficients when the input crosses a threshold, and records what it was shown.
class SwitchingHandler : public PropertiesHandler {
public:
    explicit SwitchingHandler(BiQuad* filter) : filter(filter) {}
    void propertiesChanged(const Properties&) override {}
    void propertyChanged(const std::string&, scalar) override {}
    void setSamplingRate(scalar) override {}
    bool isPerSample() override { return perSample; }
    void update(scalar in, scalar lastOut) override {
        lastOuts.push_back(lastOut);
        const scalar b[3] = {in > 0.5f ? 2.0f : 1.0f, 0.0f, 0.0f};
        const scalar a[2] = {0.0f, 0.0f};
        filter->setCoefficients(a, b);
    }
    BiQuad* filter;
    bool perSample = true;
    std::vector<scalar> lastOuts;
};

}  // namespace

TEST(RecursiveFilters, PerSampleHandlerChangesActOnTheSampleInHand) {
    auto f = make<BiQuad>(props({{"A", "0|0"}, {"B", "1|0|0"}}));
    auto handler = std::make_shared<SwitchingHandler>(f.get());
    f->setPropertiesHandler(handler);
    std::vector<scalar> in = {0.1f, 0.9f, 0.2f, 0.7f, 0.3f};
    std::vector<scalar*> inputs = {in.data()};
    f->process(inputs, 5);
    const scalar* out = f->getOutput(0);
    EXPECT_EQ(std::vector<scalar>(out, out + 5), (std::vector<scalar>{0.1f, 1.8f, 0.2f, 1.4f, 0.3f}));
    EXPECT_EQ(handler->lastOuts, (std::vector<scalar>{0.0f, 0.1f, 1.8f, 0.2f, 1.4f}));
    // A handler that answers false leaves the kernel to run on the coefficients as they stand.
    handler->perSample = false;
    f->process(inputs, 5);
    EXPECT_EQ(std::vector<scalar>(out, out + 5), (std::vector<scalar>{0.1f, 0.9f, 0.2f, 0.7f, 0.3f}));
    EXPECT_EQ(handler->lastOuts.size(), 5u);
}

TEST(RecursiveFilters, IterationPassesDoNotMoveTheState) {
    const auto in = ormtest::testSignal(50);
    auto step = make<ThirdOrderIIR>(props({{"A", "-1.2|0.5|-0.1"}, {"B", "0.2|0.3|0.1|0.05"}, {"InputIndex", "0"}}));
    auto iterated = make<ThirdOrderIIR>(props({{"A", "-1.2|0.5|-0.1"}, {"B", "0.2|0.3|0.1|0.05"}, {"InputIndex", "0"}}));
    auto iir = make<Iir>(props({{"Order", "3"}, {"A", "-1.2|0.5|-0.1"}, {"B", "0.2|0.3|0.1|0.05"}}));
    auto sample = std::make_shared<std::vector<scalar>>(1);
    for (size_t i = 0; i < in.size(); ++i) {
        const scalar expected = step->process(in[i]);
        for (int pass = 0; pass < 3; ++pass) {
            // A wrong guess first, then the true input: only the last pass counts.
            (*sample)[0] = pass == 2 ? in[i] : 5.0f;
            iterated->process(sample, i, pass);
            iir->process(sample, i, pass);
        }
        // The iteration sums b0 x last, so it may differ from the step in the last bits.
        EXPECT_NEAR(iterated->getLastIterationResults()[0], expected, 1e-6);
        EXPECT_NEAR(iir->getLastIterationResults()[0], expected, 1e-6);
        iterated->endIteration(static_cast<int>(i));
        iir->endIteration(static_cast<int>(i));
        EXPECT_EQ(iterated->getOutput(0)[i], iterated->getLastIterationResults()[0]);
    }
}

TEST(RecursiveFilters, Messages) {
    EXPECT_EQ(initMessage<BiQuad>(props({{"B", "1|2|3"}})), "A is not defined. BiQuad name=x");
    EXPECT_EQ(initMessage<BiQuad>(props({{"A", "1"}, {"B", "1|2|3"}})),
              "Invalid number of values for A (1). Expected 2. BiQuad name=x");
    EXPECT_EQ(initMessage<BiQuad>(props({{"A", "1|2"}})), "B is not defined. BiQuad name=x");
    EXPECT_EQ(initMessage<FirstOrderIIR>(props({{"A", "0.5"}, {"B", "1"}})),
              "Invalid number of values for B (1). Expected 2. FirstOrderIIR name=x");
    EXPECT_EQ(initMessage<ThirdOrderIIR>(props({{"A", "1|2|3"}, {"B", "1|2|3"}})),
              "Invalid number of values for B (1|2|3). Expected 4. ThirdOrderIIR name=x");
    EXPECT_EQ(initMessage<ThirdOrderIIR>(props({{"A", "1|2|3"}, {"B", "1|2|3|4"}})),
              "InputIndex is not defined. BiQuad name=x");
    EXPECT_EQ(initMessage<ThirdOrderIIR>(props({{"A", "1|2|3"}, {"B", "1|2|3|4"}, {"InputIndex", "-1"}})),
              "InputIndex must be greater than or equal to 0. BiQuad name=x InputIndex=-1");
    auto first = make<FirstOrderIIR>(props({{"A", "1|2"}, {"B", "1|0"}}));
    EXPECT_EQ(first->getA()[0], 1.0f);

    auto biquad = make<BiQuad>(props({{"A", "0.0|0.0"}, {"B", "0.0|0.0|0.0"}}));
    EXPECT_EQ(message([&] { biquad->propertyChanged("A", ormtest::values({1})); }),
              "BiQuad: Invalid number of A values 1");
    EXPECT_EQ(message([&] { biquad->propertyChanged("B", ormtest::values({1, 2})); }),
              "BiQuad: Invalid number of B values 2");
    EXPECT_EQ(message([&] { biquad->propertyChanged("C", ormtest::values({1})); }), "BiQuad: Unknown property C");
    const scalar coefficients[4] = {0, 0, 0, 0};
    EXPECT_EQ(message([&] { biquad->setCoefficients(nullptr, coefficients); }), "BiQuad: a cannot be null");
    EXPECT_EQ(message([&] { biquad->setCoefficients(coefficients, nullptr); }), "BiQuad: b cannot be null");
    EXPECT_EQ(message([&] { biquad->setMaxBlockSize(0); }), "BiQuad: Invalid maxBlockSize0");
    EXPECT_EQ(message([&] { biquad->getOutput(1); }), "BiQuad: Invalid output index: 1");

    EXPECT_EQ(initMessage<Iir>(props({})), "Iir: Order is not defined. Iir name=x");
    EXPECT_EQ(initMessage<Iir>(props({{"Order", "0"}})), "Iir: Order must be greater than 0. Iir name: x Order=0");
    EXPECT_EQ(initMessage<Iir>(props({{"Order", "-1"}})), "Iir: Invalid order-1");
    EXPECT_EQ(initMessage<Iir>(props({{"Order", "2"}})), "Iir: A is not defined. Iir name=x");
    EXPECT_EQ(initMessage<Iir>(props({{"Order", "2"}, {"A", "1"}})),
              "Iir: Invalid number of values for A (1). Expected 2. Iir name=x");
    EXPECT_EQ(initMessage<Iir>(props({{"Order", "2"}, {"A", "1|2"}, {"B", "1"}})),
              "Iir: Invalid number of values for B (1). Expected 3. Iir name=x");
    auto iir = make<Iir>(props({{"Order", "2"}, {"A", "0|0"}, {"B", "1|0|0"}}));
    EXPECT_EQ(message([&] { iir->setA({1}); }), "Iir: Invalid number of \"A\" coefficients. Expected: 2 got: 1");
    EXPECT_EQ(message([&] { iir->setB({1}); }), "Iir: Invalid number of \"B\" coefficients. Expected: 3 got: 1");
    EXPECT_EQ(message([&] { iir->propertyChanged("Gain", 1.0f); }), "Iir: Unknown property Gain");
    iir->setOrder(3);
    scalar in[4] = {1, 0, 0, 0}, out[4];
    EXPECT_EQ(message([&] { iir->process(in, out, 4); }),
              "Iir: Invalid length of \"a\" coefficients. Expecting: 3. Got: 2");
    EXPECT_EQ(message([&] { iir->getOutput(2); }), "Iir: Invalid output index: 2");
}

TEST(RecursiveFilters, FactoryKnowsTheTypes) {
    DSPElementFactory factory;
    for (const char* type : {"FirstOrderIIR", "BiQuad", "ThirdOrderIIR", "Iir"}) {
        std::unique_ptr<Filter> filter(factory.create(type));
        ASSERT_TRUE(filter);
        EXPECT_EQ(filter->getMeta()->getInputIndex("in"), 0);
    }
}
