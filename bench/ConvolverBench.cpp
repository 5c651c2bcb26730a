// The cabinet stage at the shipped settings: an 8192-sample response, MaxIRSize 8192, one full
// transform per block whatever its length.  Reports ns per sample and the transform size used.

#include <benchmark/benchmark.h>

#include <random>

#include "engine/Context.h"
#include "filters/WaveConvolver.h"

namespace {

void BM_WaveConvolver(benchmark::State& state) {
    const int block = static_cast<int>(state.range(0));
    std::mt19937 random(1);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    auto response = std::make_shared<std::vector<vrn::scalar>>(8192);
    for (auto& x : *response) x = uniform(random);

    vrn::Properties properties;
    properties["Location"] = "Memory";
    properties["ImpulseResponses"] = "cab";
    properties["MaxIRSize"] = "8192";
    properties["Gain"] = "0.25";
    properties["Scale"] = "true";
    std::shared_ptr<vrn::DSPContext> context;
    vrn::WaveConvolver wave;
    wave.init("WV", properties, context);
    wave.addImpulseResponse({"cab", 48000.0f, response});
    wave.setMaxBlockSize(block);
    wave.setSamplingRate(48000.0f);

    std::vector<vrn::scalar> in(static_cast<size_t>(block));
    for (auto& x : in) x = uniform(random);
    std::vector<vrn::scalar*> inputs{in.data()};
    for (auto _ : state) {
        wave.process(inputs, static_cast<size_t>(block));
        benchmark::DoNotOptimize(wave.getOutput(0)[0]);
    }
    state.SetItemsProcessed(state.iterations() * block);
    state.counters["N"] = static_cast<double>(wave.getConvolver().getFFTSize());
    // Seconds per sample, shown in ns.
    state.counters["per sample"] = benchmark::Counter(static_cast<double>(state.iterations()) * block,
                                                     benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

}  // namespace

BENCHMARK(BM_WaveConvolver)->RangeMultiplier(2)->Range(32, 4096)->Unit(benchmark::kMicrosecond);
