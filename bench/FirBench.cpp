// The FIR family per input sample on blocks of 256: the direct form and the polyphase
// resamplers at the factors the amplifier oversamples by.

#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "engine/Context.h"
#include "filters/Fir.h"

using namespace vrn;

namespace {

constexpr int kBlock = 256;

std::vector<scalar> noise(size_t n) {
    std::mt19937 random(1);
    std::uniform_real_distribution<scalar> value(-1.0f, 1.0f);
    std::vector<scalar> v(n);
    for (auto& x : v) x = value(random);
    return v;
}

void perInputSample(benchmark::State& state) {
    // CPU seconds per input sample (shown with its SI prefix, e.g. "11.1n").
    state.counters["per_sample"] = benchmark::Counter(static_cast<double>(state.iterations()) * kBlock,
                                                      benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_Fir(benchmark::State& state) {
    const size_t taps = static_cast<size_t>(state.range(0));
    auto context = std::make_shared<DSPContext>();
    Fir fir;
    fir.init("f", Properties(), context);
    std::vector<scalar> h = noise(taps);
    fir.setCoefficients(h.data(), taps);
    fir.setMaxBlockSize(kBlock);
    std::vector<scalar> in = noise(kBlock);
    for (auto _ : state) {
        benchmark::DoNotOptimize(fir.process(in.data(), kBlock));
        benchmark::ClobberMemory();
    }
    perInputSample(state);
}
BENCHMARK(BM_Fir)->Arg(16)->Arg(64)->Arg(256);

template <typename T>
void resampler(benchmark::State& state) {
    const int factor = static_cast<int>(state.range(0));
    auto context = std::make_shared<DSPContext>();
    Properties p;
    p["Factor"] = std::to_string(factor);
    p["Order"] = std::to_string(24 * factor - 1);
    p["Attenuation"] = "70";
    p["RelativeCornerFrequency"] = "0.45";
    T filter;
    filter.init("r", p, context);
    filter.setMaxBlockSize(kBlock);
    std::vector<scalar> in = noise(kBlock);
    for (auto _ : state) {
        benchmark::DoNotOptimize(filter.process(in.data(), kBlock));
        benchmark::ClobberMemory();
    }
    perInputSample(state);
}

void BM_ResamplingUpsampler(benchmark::State& state) { resampler<ResamplingUpsampler>(state); }
void BM_ResamplingDecimator(benchmark::State& state) { resampler<ResamplingDecimator>(state); }
BENCHMARK(BM_ResamplingUpsampler)->Arg(2)->Arg(4)->Arg(8);
BENCHMARK(BM_ResamplingDecimator)->Arg(2)->Arg(4)->Arg(8);

}  // namespace
