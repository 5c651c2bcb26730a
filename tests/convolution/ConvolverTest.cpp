// Convolver: equality with a direct double-precision convolution over blocks of varying length,
// the rebuild rules and its messages.

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>

#include "engine/Context.h"
#include "filters/Convolver.h"

#include "tests/filters_iir/Reference.h"

using namespace vrn;

namespace {

std::unique_ptr<Convolver> makeConvolver(int maxIRSize) {
    std::unique_ptr<Convolver> convolver(new Convolver());
    Properties properties;
    properties["MaxIRSize"] = std::to_string(maxIRSize);
    std::shared_ptr<DSPContext> context;
    convolver->init("C", properties, context);
    return convolver;
}

std::shared_ptr<std::vector<scalar>> randomVector(std::mt19937& random, size_t n) {
    return std::make_shared<std::vector<scalar>>(ormtest::randomValues(random, n));
}

}  // namespace

TEST(Convolver, EqualsDirectConvolutionOverBlocksOfVaryingLength) {
    // Dense responses through the head and one or two levels; a sparse long one with taps on
    // every edge of the head and the three levels (63/64, 1023/1024, 16383/16384), so that the
    // double-precision reference stays cheap.  Blocks of random length up to the maximum.
    std::mt19937 random(2024);
    struct Case {
        int maxBlock, length;
        bool sparse;
        uint64_t largestTransform;
    };
    const Case cases[] = {{64, 8192, false, 2048}, {1000, 37, false, 0}, {333, 1, false, 0},
                          {17, 65, false, 128},    {4096, 40000, true, 32768}};
    for (const auto& c : cases) {
        auto convolver = makeConvolver(40000);
        convolver->setMaxBlockSize(c.maxBlock);
        auto ir = randomVector(random, static_cast<size_t>(c.length));
        std::vector<long> taps;
        for (long k = 0; k < c.length; ++k) {
            const bool edge = k % 64 == 0 || k % 64 == 63 || k < 70 || k >= c.length - 3;
            if (c.sparse && !edge && random() % 97 != 0) (*ir)[static_cast<size_t>(k)] = 0.0f;
            if ((*ir)[static_cast<size_t>(k)] != 0.0f) taps.push_back(k);
        }
        convolver->propertyChanged("ImpulseResponse", ir);
        EXPECT_EQ(convolver->getFFTSize(), c.largestTransform) << c.length;

        std::vector<double> input;
        double peak = 0.0, error = 0.0;
        std::uniform_int_distribution<int> lengths(0, c.maxBlock);
        // The input runs past the response's length by half again.
        const long total = std::max(6L * c.maxBlock, 3L * c.length / 2 + c.maxBlock);
        for (int block = 0; static_cast<long>(input.size()) < total; ++block) {
            int frames = block == 1 ? c.maxBlock : lengths(random);
            auto in = randomVector(random, static_cast<size_t>(frames));
            std::vector<scalar*> inputs{in->data()};
            convolver->process(inputs, static_cast<size_t>(frames));
            const scalar* out = convolver->getOutput(0);
            for (int i = 0; i < frames; ++i) {
                input.push_back((*in)[static_cast<size_t>(i)]);
                // The block's own input is part of its output: y[t] = Σ h[k]·x[t - k].
                const long t = static_cast<long>(input.size()) - 1;
                double reference = 0.0;
                for (long k : taps) {
                    if (k > t) break;
                    reference += static_cast<double>((*ir)[static_cast<size_t>(k)]) * input[static_cast<size_t>(t - k)];
                }
                peak = std::max(peak, std::fabs(reference));
                error = std::max(error, std::fabs(reference - out[i]));
            }
        }
        // Float transforms: a few ulps of the output's peak.
        EXPECT_LT(error / peak, 2e-6) << c.maxBlock << " " << c.length;
    }
}

TEST(Convolver, RebuildRulesAndHistory) {
    std::mt19937 random(5);
    auto convolver = makeConvolver(100);
    // A response before any block size: nothing is built and nothing runs.
    auto ir = randomVector(random, 300);
    convolver->propertyChanged("ImpulseResponse", ir);
    EXPECT_EQ(convolver->getIRLength(), 100u);
    EXPECT_FALSE(convolver->isReady());
    std::vector<scalar> silence(16, 0.0f);
    std::vector<scalar*> inputs{silence.data()};
    convolver->process(inputs, 16);

    convolver->setMaxBlockSize(64);
    EXPECT_TRUE(convolver->isReady());
    EXPECT_EQ(convolver->getFFTSize(), 128u);  // taps 64..99 in one partition of 64
    scalar* out = convolver->getOutput(0);
    // A smaller block size changes nothing.
    convolver->setMaxBlockSize(32);
    EXPECT_EQ(convolver->getCapacity(), 64u);
    EXPECT_EQ(convolver->getOutput(0), out);

    // An impulse, then a larger block size: the past input stays.
    std::vector<scalar> impulse(8, 0.0f);
    impulse[0] = 1.0f;
    inputs[0] = impulse.data();
    convolver->process(inputs, 8);
    for (int i = 0; i < 8; ++i) EXPECT_NEAR(convolver->getOutput(0)[i], (*ir)[static_cast<size_t>(i)], 1e-6);
    convolver->setMaxBlockSize(200);
    EXPECT_EQ(convolver->getCapacity(), 200u);
    inputs[0] = silence.data();
    convolver->process(inputs, 16);
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(convolver->getOutput(0)[i], (*ir)[static_cast<size_t>(8 + i)], 1e-6);

    // A block of 0 frames yields nothing; reset clears the history, and so does a rate.
    convolver->process(inputs, 0);
    convolver->setSamplingRate(48000.0f);
    convolver->process(inputs, 16);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(convolver->getOutput(0)[i], 0.0f);

    // The output form copies the block to the caller's array.
    std::vector<scalar> mine(8, 5.0f);
    std::vector<scalar*> outputs{mine.data()};
    inputs[0] = impulse.data();
    convolver->process(inputs, outputs, 8);
    EXPECT_NEAR(mine[3], (*ir)[3], 1e-6);
}

TEST(Convolver, RefusalsAtTheLimits) {
    auto convolver = makeConvolver(10);
    EXPECT_EQ(makeConvolver(1)->getMaxIRSize(), 1u);
    const std::pair<std::function<void()>, const char*> cases[] = {
        {[&] { makeConvolver(0); }, "MaxIRSize must be greater than or equal to 0. Convolver name=C MaxIRSize=0"},
        {[&] { convolver->setMaxBlockSize(0); }, "Convolver: Invalid maxBlockSize0"},
    };
    for (const auto& [call, message] : cases) EXPECT_EQ(orm_test::messageOf(call), message);
}
