// The recursive filters against a double-precision difference equation: block, sample and
// iteration paths, the pipelined cascade, coefficient changes and messages.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <sstream>

#include "filters/BiQuad.h"
#include "filters/FirstOrderIIR.h"
#include "filters/Iir.h"
#include "filters/ThirdOrderIIR.h"
#include "tests/filters_iir/Reference.h"

using namespace vrn;
using ormtest::DifferenceEquation;

namespace {

using Coefficients = std::vector<float>;
using Entries = std::initializer_list<std::pair<const std::string, std::string>>;

Properties props(Entries entries) {
    Properties p;
    p.insert(entries);
    return p;
}

// Nine digits give back the same float.
std::string text(const Coefficients& values) {
    std::ostringstream joined;
    joined.precision(9);
    for (size_t k = 0; k < values.size(); ++k) joined << (k ? "|" : "") << values[k];
    return joined.str();
}

// A filter of type F with the coefficients a and b and further properties, initialised and sized.
template <typename F>
std::unique_ptr<F> make(const Coefficients& a, const Coefficients& b, Entries extra = {}) {
    auto filter = std::make_unique<F>();
    auto context = std::make_shared<DSPContext>();
    Properties properties = props(extra);
    properties["A"] = text(a);
    properties["B"] = text(b);
    filter->init("f", properties, context);
    filter->setMaxBlockSize(256);
    return filter;
}

// Runs a signal through a filter's block kernel in pieces of the given sizes, cycling.
std::vector<scalar> runBlocks(Filter& filter, const std::vector<scalar>& in, const std::vector<size_t>& sizes) {
    std::vector<scalar> out(in.size());
    for (size_t pos = 0, k = 0; pos < in.size();) {
        const size_t n = std::min(sizes[k++ % sizes.size()], in.size() - pos);
        filter.process(in.data() + pos, out.data() + pos, n);
        pos += n;
    }
    return out;
}

const Coefficients kThirdA = {-1.76004188f, 1.18289326f, -0.27805992f};
const Coefficients kThirdB = {0.01809893f, 0.0542968f, 0.0542968f, 0.01809893f};

}  // namespace

TEST(RecursiveFilters, AgreeWithDoublePrecisionReferenceInAnyBlocking) {
    // Rounding noise grows with 1/(distance of the poles from the unit circle): the DC block's
    // pole at 0.9995 amplifies the float error of each step, and a fifth order in direct form at a
    // low corner more (its poles crowd near z = 0.75).  Tolerances are about ten times the figures
    // measured.  Blocks shorter than the order make the history slide over several blocks.
    struct Case {
        const char* name;
        std::function<std::unique_ptr<Filter>()> make;
        Coefficients a, b;
        double tolerance;
    };
    const Coefficients dcA = {-0.9995f}, dcB = {1, -1}, bqA = {-0.69973803f, 0.25949518f},
                       bqB = {0.13993929f, 0.27987857f, 0.13993929f},
                       fifthA = {-2.9754221f, 3.8060181f, -2.5452529f, 0.8811250f, -0.1254306f},
                       fifthB = {0.0012826f, 0.0064129f, 0.0128258f, 0.0128258f, 0.0064129f, 0.0012826f},
                       sixthA = {-0.5f, 0.1f, -0.05f, 0.02f, 0.01f, -0.003f},
                       sixthB = {0.3f, 0.2f, 0.1f, 0.05f, -0.02f, 0.01f, 0.004f};
    const Case cases[] = {
        {"DC block", [&] { return make<FirstOrderIIR>(dcA, dcB); }, dcA, dcB, 1e-5},
        {"Iir order 1", [&] { return make<Iir>(dcA, dcB, {{"Order", "1"}}); }, dcA, dcB, 1e-5},
        {"BiQuad", [&] { return make<BiQuad>(bqA, bqB); }, bqA, bqB, 2e-6},
        {"third order", [&] { return make<ThirdOrderIIR>(kThirdA, kThirdB, {{"InputIndex", "2"}}); }, kThirdA, kThirdB, 2e-6},
        {"Iir order 5", [&] { return make<Iir>(fifthA, fifthB, {{"Order", "5"}}); }, fifthA, fifthB, 5e-5},
        {"Iir order 6", [&] { return make<Iir>(sixthA, sixthB, {{"Order", "6"}}); }, sixthA, sixthB, 2e-6},
    };
    const auto in = ormtest::testSignal(4000);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        // The sample step, and the passes of an iteration: two wrong guesses first, then the true
        // input; only the last pass counts and none moves the state.
        auto stepper = c.make(), iterated = c.make();
        DifferenceEquation reference(c.a, c.b);
        auto sample = std::make_shared<std::vector<scalar>>(1);
        std::vector<scalar> steps(in.size());
        double worst = 0;
        for (size_t i = 0; i < in.size(); ++i) {
            steps[i] = stepper->process(in[i]);
            for (int pass = 0; pass < 3; ++pass) {
                (*sample)[0] = pass == 2 ? in[i] : 5.0f;
                iterated->process(sample, i % 256, pass);
            }
            iterated->endIteration(static_cast<int>(i % 256));
            ASSERT_EQ(iterated->getOutput(0)[i % 256], iterated->getLastIterationResults()[0]) << i;
            worst = std::max(worst, std::fabs(iterated->getLastIterationResults()[0] - reference.step(in[i])));
        }
        // The block kernel in any blocking; it gives the sample step's bits (Iir's scalar form does nothing).
        for (const std::vector<size_t>& sizes : {std::vector<size_t>{64, 3, 17, 1}, {1}, {256}}) {
            const auto out = runBlocks(*c.make(), in, sizes);
            if (!dynamic_cast<Iir*>(stepper.get())) {
                EXPECT_EQ(out, steps) << "blocks of " << sizes[0];
            }
            DifferenceEquation blockReference(c.a, c.b);
            for (size_t i = 0; i < in.size(); ++i) worst = std::max(worst, std::fabs(out[i] - blockReference.step(in[i])));
        }
        EXPECT_LT(worst, c.tolerance);
    }
    EXPECT_EQ(make<ThirdOrderIIR>(kThirdA, kThirdB, {{"InputIndex", "2"}})->getInputIndex(), 2);
}

TEST(RecursiveFilters, PipelinedCascadeEqualsSectionsOneAfterAnotherBitForBit) {
    // Different sections (the interpolator's first one differs), counts that use the lanes (4, 8,
    // 16) and ones that do not (3, 20), blocks shorter than the cascade and in place; the states
    // handed back carry over from block to block.
    const auto in = ormtest::testSignal(1500);
    for (size_t count : {3u, 4u, 8u, 16u, 20u}) {
        auto makeAll = [count] {
            std::vector<std::unique_ptr<BiQuad>> all;
            for (size_t s = 0; s < count; ++s)
                all.push_back(make<BiQuad>({-1.6f + 0.01f * s, 0.7f}, {0.05f * (s + 1), 0.1f, 0.05f}));
            return all;
        };
        auto reference = makeAll();
        std::vector<scalar> expected(in);
        for (auto& section : reference) section->process(expected.data(), expected.data(), expected.size());
        for (const std::vector<size_t>& sizes : {std::vector<size_t>{2}, {7, 1, 256}}) {
            auto all = makeAll();
            std::vector<BiQuad*> pointers;
            for (auto& section : all) pointers.push_back(section.get());
            std::vector<scalar> out(in);
            for (size_t pos = 0, k = 0; pos < out.size();) {
                const size_t n = std::min(sizes[k++ % sizes.size()], out.size() - pos);
                BiQuad::processCascade(pointers.data(), count, out.data() + pos, out.data() + pos, n);
                pos += n;
            }
            EXPECT_EQ(out, expected) << count << " sections, blocks of " << sizes[0];
        }
    }
}

TEST(RecursiveFilters, CoefficientChangesKeepTheState) {
    // During a signal the old state meets the new coefficients: "A" then "B", between blocks.
    const auto in = ormtest::testSignal(400);
    const Coefficients a = {-1.6f, 0.7f}, b = {0.05f, 0.1f, 0.05f};
    std::unique_ptr<Filter> filters[] = {make<BiQuad>(a, b), make<Iir>(a, b, {{"Order", "2"}})};
    for (auto& f : filters) {
        DifferenceEquation reference(a, b);
        std::vector<scalar> out(in.size());
        f->process(in.data(), out.data(), 200);
        f->propertyChanged("A", std::make_shared<std::vector<scalar>>(std::vector<scalar>{-0.7f, 0.26f}));
        f->propertyChanged("B", std::make_shared<std::vector<scalar>>(std::vector<scalar>{0.14f, 0.28f, 0.14f}));
        f->process(in.data() + 200, out.data() + 200, 200);
        double worst = 0;
        for (size_t i = 0; i < in.size(); ++i) {
            if (i == 200) reference.setCoefficients({-0.7f, 0.26f}, {0.14f, 0.28f, 0.14f});
            worst = std::max(worst, std::fabs(out[i] - reference.step(in[i])));
        }
        EXPECT_LT(worst, 1e-5);
    }
    // A new order is rounded and clears the history.
    auto* iir = dynamic_cast<Iir*>(filters[1].get());
    iir->propertyChanged("Order", 2.4f);
    EXPECT_EQ(iir->getOrder(), 2);
}

TEST(RecursiveFilters, FirstOrderTakesTheFirstOfSurplusAValues) {
    EXPECT_EQ(make<FirstOrderIIR>({1, 2}, {1, 0})->getA()[0], 1.0f);
}
