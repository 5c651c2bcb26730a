// The dense kernels at the sizes of a circuit's unknowns (4 to 40), per instruction-set level
// (-1: the plain loops), so the dispatch's gain and its call overhead can be seen.

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "engine/Kernels.h"
#include "engine/KernelsInternal.h"

using namespace vrn;

namespace {

std::vector<scalar> randomValues(size_t count, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<scalar> value(-1.0f, 1.0f);
    std::vector<scalar> values(count);
    for (auto& v : values) v = value(random);
    return values;
}

// A well-conditioned n×n matrix, column-major.
std::vector<scalar> dominantMatrix(int n) {
    std::vector<scalar> m = randomValues(static_cast<size_t>(n * n), 1);
    for (int i = 0; i < n; ++i) m[static_cast<size_t>(i + n * i)] += static_cast<scalar>(n);
    return m;
}

// Returns false (and marks the run skipped) for a level this processor cannot run.
bool selectLevel(benchmark::State& state, int level) {
    if (level >= 0 && !kernels::canRun(level)) {
        state.SkipWithError("level not supported by this processor");
        return false;
    }
    kernels::forceLevel(level < 0 ? -1 : level);
    return true;
}

void sizes(benchmark::internal::Benchmark* b) {
    for (int level : {-1, 0, 1, 2})
        for (int n : {4, 7, 8, 13, 16, 24, 40}) b->Args({level, n});
}

void BM_sdot(benchmark::State& state) {
    const int level = static_cast<int>(state.range(0)), n = static_cast<int>(state.range(1));
    if (!selectLevel(state, level)) return;
    std::vector<scalar> a = randomValues(static_cast<size_t>(n), 2), b = randomValues(static_cast<size_t>(n), 3);
    for (auto _ : state) {
        scalar r = level < 0 ? kernels::plain::sdot(a.data(), b.data(), n) : sdot(a.data(), b.data(), n);
        benchmark::DoNotOptimize(r);
        benchmark::ClobberMemory();
    }
    kernels::forceLevel(-1);
}
BENCHMARK(BM_sdot)->Apply(sizes);

void BM_saxpy(benchmark::State& state) {
    const int level = static_cast<int>(state.range(0)), n = static_cast<int>(state.range(1));
    if (!selectLevel(state, level)) return;
    std::vector<scalar> x = randomValues(static_cast<size_t>(n), 2), y = randomValues(static_cast<size_t>(n), 3);
    for (auto _ : state) {
        if (level < 0)
            kernels::plain::saxpy(n, 1e-3f, x.data(), y.data());
        else
            saxpy(n, 1e-3f, x.data(), y.data());
        benchmark::ClobberMemory();
    }
    kernels::forceLevel(-1);
}
BENCHMARK(BM_saxpy)->Apply(sizes);

// One factorisation and one solve, as a Newton iteration does.
void BM_ludcmpLubksb(benchmark::State& state) {
    const int level = static_cast<int>(state.range(0)), n = static_cast<int>(state.range(1));
    if (!selectLevel(state, level)) return;
    const std::vector<scalar> matrix = dominantMatrix(n);
    std::vector<scalar> a(matrix.size()), b = randomValues(static_cast<size_t>(n), 4), x(static_cast<size_t>(n));
    std::vector<int> pivots(static_cast<size_t>(n));
    for (auto _ : state) {
        a = matrix;
        if (level < 0) {
            kernels::plain::ludcmp(n, a.data(), n, pivots.data());
            kernels::plain::lubksb(n, a.data(), n, pivots.data(), x.data(), b.data());
        } else {
            ludcmp(n, a.data(), n, pivots.data());
            lubksb(n, a.data(), n, pivots.data(), x.data(), b.data());
        }
        benchmark::ClobberMemory();
    }
    kernels::forceLevel(-1);
}
BENCHMARK(BM_ludcmpLubksb)->Apply(sizes);

void BM_PackedMatrixMultiply(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    const std::vector<scalar> matrix = dominantMatrix(n);
    PackedMatrix packed(matrix.data(), n, n);
    std::vector<scalar> x = randomValues(static_cast<size_t>(n), 5), y(static_cast<size_t>(n));
    for (auto _ : state) {
        packed.multiply(x.data(), y.data(), n, n);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_PackedMatrixMultiply)->Arg(4)->Arg(8)->Arg(13)->Arg(24)->Arg(40);

}  // namespace
