// Convolver: the transform sizes, equality with a direct double-precision convolution over
// blocks of varying length, the rebuild rules, its messages, and no allocation per block.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <random>

#include "engine/Context.h"
#include "filters/Convolver.h"

#include "support/AllocationCounter.h"

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
    auto v = std::make_shared<std::vector<scalar>>(n);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    for (auto& x : *v) x = uniform(random);
    return v;
}

template <typename F>
std::string messageOf(F f) {
    try {
        f();
    } catch (const VRNException& e) {
        return e.getMessage();
    }
    return "(no failure)";
}

}  // namespace

TEST(Convolver, TransformSizes) {
    // Block size, response length and the transform length they call for.
    const uint64_t table[][3] = {{64, 8192, 9216},   {128, 8192, 10240}, {4096, 8192, 12288},
                                 {1, 1, 64},         {1, 64, 64},        {1, 65, 128}};
    for (const auto& row : table) EXPECT_EQ(Convolver::transformSize(row[0], row[1]), row[2]) << row[0];
    // Every size is a multiple of 64 with factors 2, 3, 5 only, and long enough.
    for (uint64_t b = 1; b <= 4096; b = b * 3 + 1)
        for (uint64_t l = 1; l <= 20000; l = l * 5 + 3) {
            uint64_t n = Convolver::transformSize(b, l);
            EXPECT_GE(n, b - 1 + l);
            EXPECT_EQ(n % 64, 0u);
            uint64_t q = n / 64;
            for (uint64_t p : {2, 3, 5})
                while (q % p == 0) q /= p;
            EXPECT_EQ(q, 1u) << n;
        }
}

TEST(Convolver, EqualsDirectConvolutionOverBlocksOfVaryingLength) {
    std::mt19937 random(2024);
    double worst = 0.0;
    const int cases[][2] = {{64, 8192}, {1024, 8192}, {1000, 37}, {333, 1}, {4096, 3000}};
    for (const auto& c : cases) {
        const int maxBlock = c[0], length = c[1];
        auto convolver = makeConvolver(8192);
        convolver->setMaxBlockSize(maxBlock);
        auto ir = randomVector(random, static_cast<size_t>(length));
        convolver->propertyChanged("ImpulseResponse", ir);
        EXPECT_EQ(convolver->getFFTSize(), Convolver::transformSize(maxBlock, length));

        std::vector<double> input;
        double peak = 0.0, error = 0.0;
        std::uniform_int_distribution<int> lengths(0, maxBlock);
        // Enough blocks that the input runs past the response's length by half again.
        const int blocks = std::max(12, std::min(400, static_cast<int>(std::ceil(3.0 * length / maxBlock))));
        for (int block = 0; block < blocks; ++block) {
            int frames = block == 1 ? maxBlock : lengths(random);
            auto in = randomVector(random, static_cast<size_t>(frames));
            std::vector<scalar*> inputs{in->data()};
            convolver->process(inputs, static_cast<size_t>(frames));
            const scalar* out = convolver->getOutput(0);
            for (int i = 0; i < frames; ++i) {
                input.push_back((*in)[static_cast<size_t>(i)]);
                // The block's own input is part of its output: y[t] = Σ h[k]·x[t - k].
                const long t = static_cast<long>(input.size()) - 1;
                double reference = 0.0;
                for (long k = 0; k < length && k <= t; ++k)
                    reference += static_cast<double>((*ir)[static_cast<size_t>(k)]) * input[static_cast<size_t>(t - k)];
                peak = std::max(peak, std::fabs(reference));
                error = std::max(error, std::fabs(reference - out[i]));
            }
        }
        worst = std::max(worst, error / peak);
        EXPECT_LT(error / peak, 2e-6) << maxBlock << " " << length;
    }
    std::printf("[ figures  ] worst relative error over all cases: %.3g\n", worst);
}

TEST(Convolver, RebuildRulesAndHistory) {
    std::mt19937 random(5);
    auto convolver = makeConvolver(100);
    // A response before any block size: nothing is built and nothing runs.
    auto ir = randomVector(random, 300);
    convolver->propertyChanged("ImpulseResponse", ir);
    EXPECT_EQ(convolver->getIRLength(), 100u);
    EXPECT_EQ(convolver->getFFTSize(), 0u);
    std::vector<scalar> silence(16, 0.0f);
    std::vector<scalar*> inputs{silence.data()};
    convolver->process(inputs, 16);

    convolver->setMaxBlockSize(64);
    EXPECT_EQ(convolver->getFFTSize(), 192u);  // 63 + 100 → q = 3
    scalar* out = convolver->getOutput(0);
    // A smaller block size changes nothing.
    convolver->setMaxBlockSize(32);
    EXPECT_EQ(convolver->getFFTSize(), 192u);
    EXPECT_EQ(convolver->getOutput(0), out);

    // An impulse, then a larger block size: the history moves along with the arrays.
    std::vector<scalar> impulse(8, 0.0f);
    impulse[0] = 1.0f;
    inputs[0] = impulse.data();
    convolver->process(inputs, 8);
    for (int i = 0; i < 8; ++i) EXPECT_NEAR(convolver->getOutput(0)[i], (*ir)[static_cast<size_t>(i)], 1e-6);
    convolver->setMaxBlockSize(200);
    EXPECT_EQ(convolver->getFFTSize(), 320u);  // 199 + 100 → q = 5
    EXPECT_EQ(convolver->getCapacity(), 320u);
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

TEST(Convolver, Messages) {
    auto convolver = makeConvolver(10);
    std::shared_ptr<DSPContext> context;
    Convolver bare;
    Properties zero;
    zero["MaxIRSize"] = "0";
    const std::pair<std::function<void()>, const char*> cases[] = {
        {[&] { bare.init("c1", Properties(), context); }, "MaxIRSize is not defined. Convolver name=c1"},
        {[&] { bare.init("c1", zero, context); }, "MaxIRSize must be greater than or equal to 0. Convolver name=c1 MaxIRSize=0"},
        {[&] { convolver->propertyChanged("ImpulseResponse", std::make_shared<std::vector<scalar>>()); },
         "Convolver: Invalid impulse response. IR is empty."},
        {[&] { convolver->propertyChanged("IR", std::make_shared<std::vector<scalar>>(1, 1.0f)); },
         "Convolver: Invalid property. Name=IR"},
        {[&] { convolver->setMaxBlockSize(0); }, "Convolver: Invalid maxBlockSize0"},
        {[&] { convolver->getOutput(1); }, "Convolver: Invalid output index: 1"},
        {[&] { convolver->process(nullptr, 1); }, ""},
        {[&] { convolver->process(std::make_shared<std::vector<scalar>>(1), 0, 0); }, "Convolver: Iteration is not supported."},
        {[&] { convolver->getLastIterationResults(); }, "Convolver: getLastIterationResults is not supported."},
        {[&] { convolver->endIteration(0); }, "Convolver: endIteration is not supported."},
    };
    for (const auto& [call, message] : cases) EXPECT_EQ(messageOf(call), message);
    EXPECT_THROW(convolver->process(nullptr, 1), OperationNotSupportedException);
}

TEST(Convolver, SteadyStateBlocksAllocateNothing) {
    std::mt19937 random(9);
    auto convolver = makeConvolver(8192);
    convolver->setMaxBlockSize(256);
    convolver->propertyChanged("ImpulseResponse", randomVector(random, 8192));
    auto in = randomVector(random, 256);
    std::vector<scalar*> inputs{in->data()};
    std::vector<scalar> out(256);
    std::vector<scalar*> outputs{out.data()};
    orm_test::AllocationScope scope;
    for (int block = 0; block < 50; ++block) {
        convolver->process(inputs, static_cast<size_t>(block * 5 % 257));
        convolver->process(inputs, outputs, 256);
    }
    EXPECT_EQ(scope.count(), 0);
}
