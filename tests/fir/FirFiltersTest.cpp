// Fir and the polyphase filters against direct double-precision convolution, their lengths and
// rates, their refusals word for word.

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>

#include "engine/Context.h"
#include "filters/Fir.h"
#include "tests/filters_iir/Reference.h"

using namespace vrn;

namespace {

std::vector<scalar> randomSignal(size_t n, unsigned seed) {
    std::mt19937 random(seed);
    return ormtest::randomValues(random, n);
}

// A filter of type F with the taps given as text (they come back as parsed) and a factor.
template <typename F>
std::unique_ptr<F> make(const std::vector<scalar>& taps, size_t factor, int maxBlock) {
    Properties p;
    for (scalar t : taps) p["Coefficients"] += std::to_string(t) + "|";
    p["Factor"] = std::to_string(factor);
    auto filter = std::make_unique<F>();
    auto context = std::make_shared<DSPContext>();
    filter->init("f", p, context);
    filter->setMaxBlockSize(maxBlock);
    return filter;
}

// y[n] = sum h[k] x[n-k] in double, zero before the start, from the filter's parsed taps.
template <typename F>
std::vector<double> convolve(const F& filter, size_t taps, const std::vector<double>& x) {
    const scalar* h = filter.getCoefficients();
    std::vector<double> y(x.size(), 0.0);
    for (size_t n = 0; n < x.size(); ++n)
        for (size_t k = 0; k < taps && k <= n; ++k) y[n] += double(h[k]) * x[n - k];
    return y;
}

// Each output sums taps products of |x| <= 1 in float, in four lanes.
template <typename F>
double roundingBound(const F& filter, size_t taps, size_t factor) {
    double sumAbsH = 0.0;
    for (size_t k = 0; k < taps; ++k) sumAbsH += std::fabs(filter.getCoefficients()[k]);
    return (static_cast<double>(taps) / factor / 4 + 4) * 1.2e-7 * sumAbsH;
}

// Block lengths that wander between 1 and 64, multiples of step.
std::vector<size_t> blockLengths(size_t total, size_t step, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<size_t> pick(1, 64 / step);
    std::vector<size_t> lengths;
    for (size_t done = 0; done < total; done += lengths.back()) lengths.push_back(std::min(total - done, pick(random) * step));
    return lengths;
}

}  // namespace

TEST(Fir, BlocksSamplesAndIterationsAgreeWithDirectConvolution) {
    const std::vector<scalar> x = randomSignal(3000, 2);
    for (size_t taps : {1u, 4u, 37u, 256u}) {
        const std::vector<scalar> h = randomSignal(taps, 1);
        auto block = make<Fir>(h, 0, 64), sample = make<Fir>(h, 0, 64), iterated = make<Fir>(h, 0, 64);
        ASSERT_EQ(block->getLength(), taps);
        const std::vector<double> expected = convolve(*block, taps, std::vector<double>(x.begin(), x.end()));
        auto in = std::make_shared<std::vector<scalar>>(1);
        std::vector<scalar*> inputs(1);
        double worst = 0.0;
        size_t at = 0;
        for (size_t n : blockLengths(x.size(), 1, 3)) {
            inputs[0] = const_cast<scalar*>(x.data() + at);
            block->process(inputs, n);
            const scalar* out = block->getOutput(0);
            for (size_t i = 0; i < n; ++i) {
                worst = std::max(worst, std::fabs(out[i] - expected[at + i]));
                EXPECT_EQ(sample->process(x[at + i]), out[i]);
                (*in)[0] = x[at + i];
                iterated->process(in, i, 0);
                iterated->process(in, i, 1);  // a repeated pass must not advance the state
                EXPECT_EQ(iterated->getLastIterationResults()[0], out[i]);
                iterated->endIteration(static_cast<int>(i));
            }
            at += n;
        }
        EXPECT_LE(worst, roundingBound(*block, taps, 1)) << taps << " taps";
    }

    // New taps meet the inputs already in the delay line; reset clears it.
    auto fir = make<Fir>({1, 0, 0}, 0, 8);
    scalar in[4] = {1, 2, 3, 4}, zeros[2] = {0, 0}, out[4];
    fir->process(in, out, 4);
    EXPECT_EQ(out[3], 4.0f);
    fir->propertyChanged("Coefficients", std::make_shared<std::vector<scalar>>(std::vector<scalar>{0, 0, 1}));
    fir->process(zeros, out, 2);
    EXPECT_EQ(std::vector<scalar>(out, out + 2), (std::vector<scalar>{3, 4}));
    fir->process(in, out, 4);
    fir->reset();
    fir->process(zeros, out, 2);
    EXPECT_EQ(std::vector<scalar>(out, out + 2), (std::vector<scalar>{0, 0}));
}

TEST(PolyphaseDownsampler, EqualsEveryFactorthOutputOfTheFullFilter) {
    const std::vector<scalar> h = randomSignal(29, 4), x = randomSignal(2400, 5);
    for (size_t factor : {2u, 3u, 4u}) {
        auto down = make<PolyphaseDownsampler>(h, factor, 64 * static_cast<int>(factor));
        auto full = make<Fir>(h, 0, 64 * static_cast<int>(factor));
        std::vector<scalar> reference(64 * factor);
        std::vector<scalar*> inputs(1);
        size_t at = 0;
        for (size_t n : blockLengths(x.size(), factor, 6)) {
            inputs[0] = const_cast<scalar*>(x.data() + at);
            down->process(inputs, n);
            full->process(x.data() + at, reference.data(), n);
            for (size_t j = 0; j < n / factor; ++j) EXPECT_EQ(down->getOutput(0)[j], reference[j * factor]);
            at += n;
        }
    }
    // 5 frames at factor 2 give 3 outputs.
    auto down = make<PolyphaseDownsampler>({1}, 2, 8);
    scalar in[5] = {1, 2, 3, 4, 5}, out[5] = {0, 0, 0, 0, -7};
    down->process(in, out, 5);
    EXPECT_EQ(std::vector<scalar>(out, out + 5), (std::vector<scalar>{1, 3, 5, 0, -7}));
}

TEST(PolyphaseUpsampler, EqualsFilteringTheZeroStuffedSignal) {
    const std::vector<scalar> x = randomSignal(600, 8);
    for (size_t factor : {2u, 3u, 8u}) {
        for (size_t taps : {3u, 31u, 64u}) {
            auto up = make<PolyphaseUpsampler>(randomSignal(taps, 7), factor, 64);
            EXPECT_EQ(up->getLength(), (taps + factor - 1) / factor * factor);  // padded to whole phases
            std::vector<double> stuffed(x.size() * factor, 0.0);
            for (size_t i = 0; i < x.size(); ++i) stuffed[i * factor] = x[i];
            const std::vector<double> expected = convolve(*up, taps, stuffed);
            const double bound = roundingBound(*up, taps, factor);
            std::vector<scalar*> inputs(1);
            size_t at = 0;
            for (size_t n : blockLengths(x.size(), 1, 9)) {
                inputs[0] = const_cast<scalar*>(x.data() + at);
                up->process(inputs, n);
                for (size_t j = 0; j < n * factor; ++j)
                    ASSERT_NEAR(up->getOutput(0)[j], expected[at * factor + j], bound) << factor << " " << taps;
                at += n;
            }
        }
    }
}

TEST(FirFilters, RefusalsAtTheLimits) {
    auto f = make<Fir>({1}, 0, 4);
    auto up = make<PolyphaseUpsampler>({1, 2, 3}, 3, 8);
    std::vector<scalar> taps(257, 0.5f);
    const std::pair<std::function<void()>, const char*> cases[] = {
        {[&] { f->setCoefficients(taps.data(), 257); }, "Maximum filter order is 255. You requested: 256"},
        {[&] { f->setCoefficients(taps.data(), 0); }, "Fir: Size of filter coefficients must be greater than zero."},
        {[&] { f->setMaxBlockSize(0); }, "Fir: Invalid maxBlockSize0"},
        {[&] { make<PolyphaseDownsampler>({1}, 0, 4); }, "Factor must be greater than 0. 0 PolyphaseDownsampler name=f"},
        {[&] { up->setCoefficients(taps.data(), 256); }, "PolyphaseUpsampler: Maximum filter order is 255. You requested: 257"},
        {[&] { up->setCoefficients(taps.data(), 0); }, "PolyphaseUpsampler: Size of filter coefficients must be greater than zero."},
        // The largest lengths pass.
        {[&] { f->setCoefficients(taps.data(), 256); }, ""},
        {[&] { up->setCoefficients(taps.data(), 255); }, ""},
    };
    for (const auto& [action, expected] : cases) EXPECT_EQ(orm_test::messageOf(action), expected);
    EXPECT_EQ(f->getLength(), 256u);
    EXPECT_EQ(up->getLength(), 255u);
}
