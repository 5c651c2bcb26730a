// The same circuits, driven by the same input, through this simulator and through ngspice's
// transient analysis (trapezoidal, step fixed to the sample period).  The worst difference after
// the first 10 ms is taken as a fraction of the output's peak-to-peak
// swing.  The triode stage runs under each of the four solvers.

#include <gtest/gtest.h>

#include <cstdlib>
#include <iterator>
#include <map>

#include "Netlists.h"
#include "Support.h"
#include "circuit/solvers/Solvers.h"

using namespace circuittest;

namespace {

int iterationsOf(vrn::Solver& solver) {
    if (auto* s = dynamic_cast<vrn::NewtonSolver*>(&solver)) return s->getLastIterations();
    if (auto* s = dynamic_cast<vrn::SimplifiedNewtonSolver*>(&solver)) return s->getLastIterations();
    if (auto* s = dynamic_cast<vrn::SuccessiveApproximationsSolver*>(&solver)) return s->getLastIterations();
    return 1;
}

}  // namespace

TEST(NgspiceAgreement, OperatingPointsAndTransients) {
    if (std::system("ngspice --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "ngspice is not installed";
    // Linear takes the tube currents at the previous sample: a single explicit pass whose loop
    // gain through the plate resistor is above one here, so it is not bounded.  The
    // per-coordinate secant of SimplifiedNewton stops on a small step rather than a small
    // residual, and lands within a few per cent.  No solver goes past its MaxIterations.
    const double audio = 48000.0, tubes = 192000.0;  // the tube stages need the finer step
    struct Case {
        std::string graph, spice;
        double amplitude, rate;  // of a 1 kHz sine
        double limit;            // as a fraction of the swing; 0: not bounded
        int maxIterations;
    } const cases[] = {
        {rcLowPass(), "R1 in out 1000\nC1 out 0 100n\n", 1.0, audio, 0.005, 1},
        {potOpAmp(), potOpAmpSpice(), 0.5, audio, 0.005, 1},
        {pentodeStage(), pentodeStageSpice(), 2.0, tubes, 0.005, 50},
        {triodeStage(), triodeStageSpice(), 0.5, tubes, 0.005, 50},
        {triodeStage(), triodeStageSpice(), 4.0, tubes, 0.005, 50},
        {triodeStage(newton("1e-6", 2)), triodeStageSpice(), 4.0, tubes, 0.005, 2},
        {triodeStage(linear()), triodeStageSpice(), 4.0, tubes, 0, 1},
        {triodeStage(simplifiedNewton()), triodeStageSpice(), 4.0, tubes, 0.05, 100},
        {triodeStage(successiveApproximations()), triodeStageSpice(), 4.0, tubes, 0.005, 200},
    };
    std::map<std::string, std::vector<double>> references;  // each deck runs once
    for (size_t i = 0; i < std::size(cases); ++i) {
        const Case& c = cases[i];
        SCOPED_TRACE("case " + std::to_string(i));
        const size_t n = static_cast<size_t>(0.05 * c.rate), from = static_cast<size_t>(0.01 * c.rate);
        const std::string node = c.graph.find("plate") != std::string::npos ? "plate" : "out";
        const std::string deck = "Vin in 0 SIN(0 " + std::to_string(c.amplitude) + " 1000)\n" + c.spice;
        if (!references.count(deck)) references[deck] = ngspiceTransient(deck, node, c.rate, n);
        const std::vector<double>& spice = references[deck];
        ASSERT_EQ(spice.size(), n);
        auto circuit = parseCircuit(c.graph);
        circuit->setSamplingRate(static_cast<float>(c.rate));
        circuit->init();
        std::vector<float> output;
        int most = 0;
        for (float sample : sine(c.amplitude, 1000.0, c.rate, n)) {
            output.push_back(run(*circuit, {sample}, 1)[0]);
            most = std::max(most, iterationsOf(*circuit->getAnalysis()->solver));
        }
        // Both start at the operating point: the sine starts at 0 V.
        EXPECT_NEAR(output[0], spice[0], 1e-4 * std::max(1.0, std::fabs(spice[0])));
        if (c.limit > 0) {
            EXPECT_LT(disagreement(output, spice, from), c.limit);
        }
        EXPECT_LE(most, c.maxIterations);
    }
}
