// ns per sample of the recursive block kernels and of the oversampling pair, and a check that
// silence after a signal (denormal territory) costs no more with flush-to-zero as the plug-in sets it.

#include <benchmark/benchmark.h>
#include <xmmintrin.h>
#include <pmmintrin.h>

#include <cmath>
#include <vector>

#include "engine/Context.h"
#include "filters/BiQuad.h"
#include "filters/Iir.h"
#include "filters/IirResamplers.h"

using namespace vrn;

namespace {

constexpr size_t kBlock = 256;

std::vector<scalar> signal(size_t n) {
    std::vector<scalar> s(n);
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<scalar>(0.5 * std::sin(0.01 * static_cast<double>(i)));
    return s;
}

template <typename F>
void runKernel(benchmark::State& state, F& filter, bool silence) {
    auto in = silence ? std::vector<scalar>(kBlock, 0.0f) : signal(kBlock);
    std::vector<scalar> out(kBlock);
    if (silence) {
        // Ring the filter, then let it decay towards denormals on silence.
        auto loud = signal(kBlock);
        filter.process(loud.data(), out.data(), kBlock);
    }
    for (auto _ : state) {
        filter.process(in.data(), out.data(), kBlock);
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["ns/sample"] = benchmark::Counter(static_cast<double>(state.iterations() * kBlock),
                                                     benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void setFlushToZero(bool on) {
    _MM_SET_FLUSH_ZERO_MODE(on ? _MM_FLUSH_ZERO_ON : _MM_FLUSH_ZERO_OFF);
    _MM_SET_DENORMALS_ZERO_MODE(on ? _MM_DENORMALS_ZERO_ON : _MM_DENORMALS_ZERO_OFF);
}

// range(0): 1 = silence after a signal; range(1): 1 = flush-to-zero and denormals-are-zero.
void BM_BiQuad(benchmark::State& state) {
    setFlushToZero(state.range(1) != 0);
    BiQuad filter;
    auto context = std::make_shared<DSPContext>();
    Properties p;
    p["A"] = "-1.99|0.9901";
    p["B"] = "0.0000025|0.000005|0.0000025";
    filter.init("b", p, context);
    filter.setMaxBlockSize(kBlock);
    runKernel(state, filter, state.range(0) != 0);
    setFlushToZero(false);
}
BENCHMARK(BM_BiQuad)->Args({0, 1})->Args({1, 1})->Args({1, 0});

void BM_IirOrder8(benchmark::State& state) {
    setFlushToZero(true);
    Iir filter;
    auto context = std::make_shared<DSPContext>();
    Properties p;
    p["Order"] = "8";
    p["A"] = "-0.5|0.1|-0.05|0.02|0.01|-0.003|0.001|-0.0005";
    p["B"] = "0.3|0.2|0.1|0.05|-0.02|0.01|0.004|0.002|0.001";
    filter.init("iir", p, context);
    filter.setMaxBlockSize(kBlock);
    runKernel(state, filter, false);
    setFlushToZero(false);
}
BENCHMARK(BM_IirOrder8);

// The shipped cascades: 4 sections at 15 kHz up, 8 sections at 20 kHz down; ns per host sample.
void BM_InterpolatorDecimatorPair(benchmark::State& state) {
    setFlushToZero(true);
    const int factor = static_cast<int>(state.range(0));
    auto context = std::make_shared<DSPContext>();
    auto properties = [&](const char* corner, const char* cascade) {
        Properties p;
        p["CornerFrequency"] = corner;
        p["Factor"] = std::to_string(factor);
        p["Order"] = "2";
        p["Cascade"] = cascade;
        p["Type"] = "Butterworth";
        return p;
    };
    IirInterpolator up;
    up.init("up", properties("15000", "4"), context);
    up.setMaxBlockSize(kBlock);
    up.setSamplingRate(48000);
    IirDecimator down;
    down.init("down", properties("20000", "8"), context);
    down.setMaxBlockSize(static_cast<int>(kBlock) * factor);
    down.setSamplingRate(48000.0f * factor);
    auto in = signal(kBlock);
    std::vector<scalar*> upInputs = {in.data()};
    std::vector<scalar*> downInputs(1);
    for (auto _ : state) {
        up.process(upInputs, kBlock);
        downInputs[0] = up.getOutput(0);
        down.process(downInputs, kBlock * static_cast<size_t>(factor));
        benchmark::DoNotOptimize(down.getOutput(0));
    }
    state.counters["ns/sample"] = benchmark::Counter(static_cast<double>(state.iterations() * kBlock),
                                                     benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    setFlushToZero(false);
}
BENCHMARK(BM_InterpolatorDecimatorPair)->Arg(2)->Arg(4)->Arg(8);

}  // namespace
