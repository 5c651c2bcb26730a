// The same circuits, driven by the same input, through this simulator and through ngspice's
// transient analysis (trapezoidal, step fixed to the sample period).  The worst difference after
// the first 10 ms (the whole run for a step) is taken as a fraction of the output's peak-to-peak swing.

#include <gtest/gtest.h>

#include <cstdio>

#include "Netlists.h"
#include "Support.h"

using namespace circuittest;

namespace {

struct Case {
    const char* name;
    std::string graph;
    std::string spice;
    std::string source;
    std::vector<float> input;
    double rate;
    double limit;
    double from = 0.010;  // seconds left out at the start
};

Agreement runCase(const Case& c) {
    auto circuit = parseCircuit(c.graph);
    circuit->setSamplingRate(static_cast<float>(c.rate));
    circuit->init();
    std::vector<float> ours = run(*circuit, c.input);
    std::vector<double> reference =
        ngspiceTransient("Vin in 0 " + c.source + "\n" + c.spice, c.graph.find("plate") != std::string::npos ? "plate" : "out",
                         c.rate, c.input.size());
    EXPECT_EQ(reference.size(), c.input.size()) << c.name;
    Agreement a = compare(ours, reference, static_cast<size_t>(c.from * c.rate));
    std::printf("[figure] %-28s worst %.4g V of %.4g V p-p = %.4f %%\n", c.name, a.worst, a.swing, 100.0 * a.fraction());
    return a;
}

class NgspiceAgreement : public ::testing::Test {
protected:
    void SetUp() override {
        if (!haveNgspice()) GTEST_SKIP() << "ngspice is not installed";
    }
};

}  // namespace

TEST_F(NgspiceAgreement, RcFiltersOpAmpStageTriodeAndPentode) {
    const double audio = 48000.0, tubes = 192000.0;  // the tube stages need the finer step
    auto lasting = [](double rate, double seconds) { return static_cast<size_t>(seconds * rate); };
    const size_t na = lasting(audio, 0.05), nt = lasting(tubes, 0.06);
    const std::vector<Case> cases = {
        {"RC low-pass, 1 kHz sine", rcLowPass(), rcLowPassSpice(), spiceSine(1.0, 1000.0), sine(1.0, 1000.0, audio, na), audio, 0.005},
        {"RC low-pass, step", rcLowPass(), rcLowPassSpice(), spiceStep(1.0, audio), step(1.0, na), audio, 0.005, 0.0},
        {"RC high-pass, 1 kHz sine", rcHighPass(), rcHighPassSpice(), spiceSine(1.0, 1000.0), sine(1.0, 1000.0, audio, na), audio, 0.005},
        {"RC high-pass, step", rcHighPass(), rcHighPassSpice(), spiceStep(1.0, audio), step(1.0, na), audio, 0.005, 0.0},
        {"pot into op-amp, 1 kHz sine", potOpAmp(), potOpAmpSpice(), spiceSine(0.5, 1000.0), sine(0.5, 1000.0, audio, na), audio, 0.005},
        {"12AX7 stage, 0.5 V peak", triodeStage(), triodeStageSpice(), spiceSine(0.5, 1000.0), sine(0.5, 1000.0, tubes, nt), tubes, 0.005},
        {"12AX7 stage, 4 V peak", triodeStage(), triodeStageSpice(), spiceSine(4.0, 1000.0), sine(4.0, 1000.0, tubes, nt), tubes, 0.005},
        {"GE6V6GT stage, 2 V peak", pentodeStage(), pentodeStageSpice(), spiceSine(2.0, 1000.0), sine(2.0, 1000.0, tubes, nt), tubes, 0.005},
    };
    for (const Case& c : cases) EXPECT_LT(runCase(c).fraction(), c.limit) << c.name;
}
