// The 12AX7 common-cathode stage at 192 kHz, per solver, tables on and off: ns per sample is
// 1e9 / items_per_second.

#include <benchmark/benchmark.h>

#include "../tests/circuit/Netlists.h"
#include "../tests/circuit/Support.h"

namespace {

void triodeStage(benchmark::State& state, const std::string& solver, bool tables) {
    auto circuit = circuittest::parseCircuit(circuittest::triodeStage(solver, tables));
    circuit->setSamplingRate(192000.0f);
    circuit->init();
    const size_t block = 256;
    circuit->setMaxBlockSize(static_cast<int>(block));
    std::vector<float> input = circuittest::sine(0.5, 1000.0, 192000.0, 192 * block);
    size_t position = 0;
    for (auto _ : state) {
        std::vector<float*> inputs{input.data() + position};
        circuit->process(inputs, block);
        benchmark::DoNotOptimize(circuit->getOutput(0)[0]);
        position = (position + block) % input.size();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(block));
}

}  // namespace

BENCHMARK_CAPTURE(triodeStage, Newton_tables, circuittest::newton(), true);
BENCHMARK_CAPTURE(triodeStage, Newton_formula, circuittest::newton(), false);
BENCHMARK_CAPTURE(triodeStage, Linear_tables, circuittest::linear(), true);
BENCHMARK_CAPTURE(triodeStage, Linear_formula, circuittest::linear(), false);
BENCHMARK_CAPTURE(triodeStage, SimplifiedNewton_tables, circuittest::simplifiedNewton(), true);
BENCHMARK_CAPTURE(triodeStage, SimplifiedNewton_formula, circuittest::simplifiedNewton(), false);
BENCHMARK_CAPTURE(triodeStage, SuccessiveApproximations_tables, circuittest::successiveApproximations(), true);
BENCHMARK_CAPTURE(triodeStage, SuccessiveApproximations_formula, circuittest::successiveApproximations(), false);
