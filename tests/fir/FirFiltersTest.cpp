// Fir and the polyphase filters against direct double-precision convolution, their lengths and
// rates, their refusals word for word.

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "engine/Context.h"
#include "filters/Fir.h"

using namespace vrn;

namespace {

std::shared_ptr<DSPContext> newContext() { return std::make_shared<DSPContext>(); }

std::vector<scalar> randomSignal(size_t n, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<scalar> value(-1.0f, 1.0f);
    std::vector<scalar> v(n);
    for (auto& x : v) x = value(random);
    return v;
}

std::string joined(const std::vector<scalar>& taps) {
    std::string text;
    for (scalar t : taps) text += std::to_string(t) + "|";
    return text;
}

// y[n] = sum h[k] x[n-k] in double, zero before the start.
std::vector<double> convolve(const std::vector<double>& h, const std::vector<double>& x) {
    std::vector<double> y(x.size(), 0.0);
    for (size_t n = 0; n < x.size(); ++n)
        for (size_t k = 0; k < h.size() && k <= n; ++k) y[n] += h[k] * x[n - k];
    return y;
}

template <typename F>
std::string messageOf(F&& f) {
    try {
        f();
    } catch (const VRNException& e) {
        return e.getMessage();
    }
    return "<no exception>";
}

// Block lengths that wander between 1 and 64, multiples of step.
std::vector<size_t> blockLengths(size_t total, size_t step, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<size_t> pick(1, 64 / step);
    std::vector<size_t> lengths;
    for (size_t done = 0; done < total;) {
        size_t n = std::min(total - done, pick(random) * step);
        lengths.push_back(n);
        done += n;
    }
    return lengths;
}

}  // namespace

TEST(Fir, BlocksSamplesAndIterationsAgreeWithDirectConvolution) {
    for (size_t taps : {1u, 3u, 4u, 37u, 256u}) {
        const std::vector<scalar> h = randomSignal(taps, 1);
        // The taps go in as text and come back as parsed: the reference uses what was parsed.
        Properties p;
        p["Coefficients"] = joined(h);
        auto context = newContext();
        Fir block, sample, iterated;
        block.init("f", p, context);
        sample.init("f", p, context);
        iterated.init("f", p, context);
        for (Fir* f : {&block, &sample, &iterated}) f->setMaxBlockSize(64);
        ASSERT_EQ(block.getLength(), taps);
        std::vector<double> hd(block.getCoefficients(), block.getCoefficients() + taps);

        const std::vector<scalar> x = randomSignal(3000, 2);
        const std::vector<double> expected = convolve(hd, std::vector<double>(x.begin(), x.end()));
        double sumAbsH = 0.0;
        for (double v : hd) sumAbsH += std::fabs(v);
        // Each output sums taps products of |x| <= 1 in float, in four lanes.
        const double bound = (static_cast<double>(taps) / 4 + 4) * 1.2e-7 * sumAbsH;

        size_t at = 0;
        auto in = std::make_shared<std::vector<scalar>>(1);
        std::vector<scalar*> inputs(1);
        double worst = 0.0;
        for (size_t n : blockLengths(x.size(), 1, 3)) {
            inputs[0] = const_cast<scalar*>(x.data() + at);
            block.process(inputs, n);
            const scalar* out = block.getOutput(0);
            for (size_t i = 0; i < n; ++i) {
                worst = std::max(worst, std::fabs(out[i] - expected[at + i]));
                EXPECT_EQ(sample.process(x[at + i]), out[i]);
                (*in)[0] = x[at + i];
                iterated.process(in, i, 0);
                iterated.process(in, i, 1);  // a repeated pass must not advance the state
                EXPECT_EQ(iterated.getLastIterationResults()[0], out[i]);
                iterated.endIteration(static_cast<int>(i));
            }
            at += n;
        }
        EXPECT_LE(worst, bound) << taps << " taps";
    }
}

TEST(Fir, CoefficientChangesKeepTheDelayLineAndResetClearsIt) {
    auto context = newContext();
    Properties p;
    p["Coefficients"] = "1|0|0";
    Fir fir;
    fir.init("f", p, context);
    fir.setMaxBlockSize(8);
    scalar in[4] = {1, 2, 3, 4}, out[4];
    fir.process(in, out, 4);
    EXPECT_EQ(out[3], 4.0f);
    // Taps of a pure delay by two now see the inputs already in the line.
    fir.propertyChanged("Coefficients", std::make_shared<std::vector<scalar>>(std::vector<scalar>{0, 0, 1}));
    scalar zeros[2] = {0, 0};
    fir.process(zeros, out, 2);
    EXPECT_EQ(out[0], 3.0f);
    EXPECT_EQ(out[1], 4.0f);
    fir.process(in, out, 4);
    fir.reset();
    fir.process(zeros, out, 2);
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_EQ(out[1], 0.0f);
}

TEST(Fir, Refusals) {
    auto context = newContext();
    Fir fir;
    fir.init("f", Properties(), context);
    std::vector<scalar> taps(257, 0.5f);
    EXPECT_EQ(messageOf([&] { fir.setCoefficients(taps.data(), 257); }),
              "Maximum filter order is 255. You requested: 256");
    fir.setCoefficients(taps.data(), 256);
    EXPECT_EQ(fir.getLength(), 256u);
    EXPECT_EQ(messageOf([&] { fir.setCoefficients(nullptr, 3); }), "Fir: b cannot be null");
    EXPECT_EQ(messageOf([&] { fir.setCoefficients(taps.data(), 0); }),
              "Fir: Size of filter coefficients must be greater than zero.");
    EXPECT_EQ(messageOf([&] { fir.propertyChanged("B", std::make_shared<std::vector<scalar>>(1, 1.0f)); }),
              "Fir: Invalid property name B");
    EXPECT_EQ(messageOf([&] { fir.setMaxBlockSize(0); }), "Fir: Invalid maxBlockSize0");
    fir.setMaxBlockSize(4);
    EXPECT_EQ(messageOf([&] { fir.getOutput(1); }), "Fir: Invalid output index: 1");
    Properties empty;
    empty["Coefficients"] = "";
    Fir refused;
    EXPECT_EQ(messageOf([&] { refused.init("f", empty, context); }),
              "Fir: Size of filter coefficients must be greater than zero.");
}

TEST(PolyphaseDownsampler, EqualsEveryFactorthOutputOfTheFullFilter) {
    for (size_t factor : {2u, 3u, 4u}) {
        const std::vector<scalar> h = randomSignal(29, 4);
        Properties p;
        p["Coefficients"] = joined(h);
        p["Factor"] = std::to_string(factor);
        auto context = newContext();
        PolyphaseDownsampler down;
        Fir full;
        down.init("d", p, context);
        full.init("f", p, context);
        down.setMaxBlockSize(64 * static_cast<int>(factor));
        full.setMaxBlockSize(64 * static_cast<int>(factor));
        const std::vector<scalar> x = randomSignal(2400, 5);
        std::vector<scalar> reference(64 * factor);
        std::vector<scalar*> inputs(1);
        size_t at = 0;
        for (size_t n : blockLengths(x.size(), factor, 6)) {
            inputs[0] = const_cast<scalar*>(x.data() + at);
            down.process(inputs, n);
            full.process(x.data() + at, reference.data(), n);
            for (size_t j = 0; j < n / factor; ++j) EXPECT_EQ(down.getOutput(0)[j], reference[j * factor]);
            at += n;
        }
    }
}

TEST(PolyphaseDownsampler, BlockLengthsAndRefusals) {
    auto context = newContext();
    Properties p;
    p["Coefficients"] = "1";
    p["Factor"] = "2";
    PolyphaseDownsampler down;
    down.init("d", p, context);
    down.setMaxBlockSize(8);
    scalar in[5] = {1, 2, 3, 4, 5}, out[5] = {0, 0, 0, 0, -7};
    down.process(in, out, 5);  // 5 frames give 3 outputs
    EXPECT_EQ(out[0], 1.0f);
    EXPECT_EQ(out[1], 3.0f);
    EXPECT_EQ(out[2], 5.0f);
    EXPECT_EQ(out[3], 0.0f);
    EXPECT_EQ(down.process(3.0f), 0.0f);
    auto values = std::make_shared<std::vector<scalar>>(1, 1.0f);
    EXPECT_EQ(messageOf([&] { down.process(values, 0, 0); }), "PolyphaseDownsampler: Iteration is not supported.");
    EXPECT_EQ(messageOf([&] { down.getLastIterationResults(); }),
              "PolyphaseDownsampler: getLastIterationResult is not supported.");
    EXPECT_EQ(messageOf([&] { down.endIteration(0); }), "PolyphaseDownsampler: endIteration is not supported.");

    PolyphaseDownsampler other;
    Properties noFactor;
    EXPECT_EQ(messageOf([&] { other.init("x", noFactor, context); }), "Factor is not defined. PolyphaseDownsampler name=x");
    noFactor["Factor"] = "0";
    EXPECT_EQ(messageOf([&] { other.init("x", noFactor, context); }),
              "Factor must be greater than 0. 0 PolyphaseDownsampler name=x");
    PolyphaseDownsampler unset;
    EXPECT_EQ(messageOf([&] { unset.setMaxBlockSize(4); }), "Factor is not defined. PolyphaseDownsampler name=");
}

TEST(PolyphaseUpsampler, EqualsFilteringTheZeroStuffedSignal) {
    for (size_t factor : {2u, 3u, 4u, 8u}) {
        for (size_t taps : {3u, 31u, 64u}) {
            const std::vector<scalar> h = randomSignal(taps, 7);
            Properties p;
            p["Coefficients"] = joined(h);
            p["Factor"] = std::to_string(factor);
            auto context = newContext();
            PolyphaseUpsampler up;
            up.init("u", p, context);
            up.setMaxBlockSize(64);
            EXPECT_EQ(up.getLength(), (taps + factor - 1) / factor * factor);
            std::vector<double> hd(up.getCoefficients(), up.getCoefficients() + taps);

            const std::vector<scalar> x = randomSignal(600, 8);
            std::vector<double> stuffed(x.size() * factor, 0.0);
            for (size_t i = 0; i < x.size(); ++i) stuffed[i * factor] = x[i];
            const std::vector<double> expected = convolve(hd, stuffed);
            double sumAbsH = 0.0;
            for (double v : hd) sumAbsH += std::fabs(v);
            const double bound = (static_cast<double>(taps) / factor / 4 + 4) * 1.2e-7 * sumAbsH;
            std::vector<scalar*> inputs(1);
            size_t at = 0;
            for (size_t n : blockLengths(x.size(), 1, 9)) {
                inputs[0] = const_cast<scalar*>(x.data() + at);
                up.process(inputs, n);
                for (size_t j = 0; j < n * factor; ++j)
                    ASSERT_NEAR(up.getOutput(0)[j], expected[at * factor + j], bound) << factor << " " << taps;
                at += n;
            }
        }
    }
}

TEST(PolyphaseUpsampler, LengthsAndRefusals) {
    auto context = newContext();
    Properties p;
    p["Coefficients"] = "1|2|3";
    p["Factor"] = "2";
    PolyphaseUpsampler up;
    up.init("u", p, context);
    EXPECT_EQ(up.getLength(), 4u);
    EXPECT_EQ(up.getCoefficients()[3], 0.0f);
    EXPECT_EQ(messageOf([&] { up.process(1.0f); }), "");
    EXPECT_THROW(up.process(1.0f), OperationNotSupportedException);
    auto values = std::make_shared<std::vector<scalar>>(1, 1.0f);
    EXPECT_EQ(messageOf([&] { up.process(values, 0, 0); }), "PolyphaseUpsampler: Iteration is not supported.");
    EXPECT_EQ(messageOf([&] { up.getLastIterationResults(); }),
              "PolyphaseUpsampler: getLastIterationResults is not supported.");
    EXPECT_EQ(messageOf([&] { up.endIteration(0); }), "PolyphaseUpsampler: endIteration is not supported.");
    std::vector<scalar> many(256, 1.0f);
    Properties three;
    three["Factor"] = "3";
    PolyphaseUpsampler up3;
    up3.init("u3", three, context);
    EXPECT_EQ(messageOf([&] { up3.setCoefficients(many.data(), 256); }),
              "PolyphaseUpsampler: Maximum filter order is 255. You requested: 257");
    up3.setCoefficients(many.data(), 255);
    EXPECT_EQ(messageOf([&] { up3.setCoefficients(many.data(), 0); }),
              "PolyphaseUpsampler: Size of filter coefficients must be greater than zero.");
    EXPECT_EQ(messageOf([&] { up3.setCoefficients(nullptr, 2); }), "PolyphaseUpsampler: b cannot be null");
    Properties none;
    PolyphaseUpsampler bad;
    EXPECT_EQ(messageOf([&] { bad.init("b", none, context); }), "Factor is not defined. PolyphaseUpsampler name=b");
    none["Factor"] = "0";
    EXPECT_EQ(messageOf([&] { bad.init("b", none, context); }),
              "Factor must be greater than 0. 0 PolyphaseUpsampler name=b");
    // The buffer holds factor outputs per input frame.
    up.setMaxBlockSize(5);
    scalar in[5] = {1, 0, 0, 0, 0};
    up.process(in, up.getOutput(0), 5);
    EXPECT_EQ(up.getOutput(0)[0], 1.0f);
    EXPECT_EQ(up.getOutput(0)[1], 2.0f);
    EXPECT_EQ(up.getOutput(0)[2], 3.0f);
    EXPECT_EQ(up.getOutput(0)[9], 0.0f);
}
