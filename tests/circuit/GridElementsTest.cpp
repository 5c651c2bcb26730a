// GridClamp, GridCurrentLoad and a pentode with a free plate: DC operating points against their
// closed forms.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

#include "Netlists.h"
#include "Support.h"

using namespace circuittest;

namespace {

const std::string kNewtonDC = dc(newton("1e-7", 200));

std::string battery(const char* name, const char* volts, const char* node) {
    return element("Battery", name, std::string("Voltage='") + volts + "'", {node, "GND"});
}

}  // namespace

TEST(GridElements, ClampHoldsTheGridAtTheDriveButNotAboveTheCathode) {
    // The grid follows the drive up to the cathode (0.5 V) plus the offset.
    auto clamp = [](const std::string& offset) {
        return inputSource() + battery("Bk", "0.5", "k") + element("GridClamp", "Clamp", offset, {"g", "in", "k"}) +
               element("Resistor", "R1", "Resistance='1000'", {"g", "x"}) +
               element("Resistor", "R2", "Resistance='1000'", {"x", "GND"}) + outputs({"g"}) + kNewtonDC;
    };
    EXPECT_EQ(solve(clamp(""), {-2.0f, 0.25f, 0.5f, 0.75f, 40.0f}), (std::vector<float>{-2.0f, 0.25f, 0.5f, 0.5f, 0.5f}));
    EXPECT_FLOAT_EQ(0.75f, solve(clamp("Offset='0.25'"), {3.0f})[0]);
}

TEST(GridElements, CurrentLoadsDrawTheirPowerLawsThroughALoad) {
    // 10 V through 1 kΩ into p, loaded by Igc·(v(in) - v(k) + Vc)^N with the cathode at 1 V.
    const std::string supply = inputSource() + battery("B", "10", "s") + battery("Bk", "1", "k") +
                               element("Resistor", "R", "Resistance='1000'", {"s", "p"}) + outputs({"p"}) + kNewtonDC;
    struct Load {
        std::string elements;
        std::function<double(double)> current;  // of v(in) - v(k)
        std::vector<float> vin;
    } const loads[] = {
        // One power law from 0.5 V below the cathode: the node falls below ground once I passes 10 mA.
        {element("GridCurrentLoad", "Ig", "Igc='1e-3' N='1.5' Vc='0.5'", {"p", "in", "k"}),
         [](double x) { return x + 0.5 > 0 ? 1e-3 * std::pow(x + 0.5, 1.5) : 0.0; },
         {-3.0f, 0.5f, 1.5f, 4.5f, 9.5f, 4.5f}},
        // Two ramps (N = 1) from 1 V and 3 V above the cathode, +2 mA/V then -3 mA/V: the current
        // rises to 4 mA at 3 V and falls after, pushing current into the node beyond 5.67 V.
        {element("GridCurrentLoad", "Up", "Igc='2e-3' N='1' Vc='-1'", {"p", "in", "k"}) +
             element("GridCurrentLoad", "Down", "Igc='-3e-3' N='1' Vc='-3'", {"p", "in", "k"}),
         [](double x) { return 2e-3 * std::max(0.0, x - 1.0) - 3e-3 * std::max(0.0, x - 3.0); },
         {0.0f, 2.0f, 3.0f, 4.0f, 5.0f, 8.0f}},
    };
    for (const Load& load : loads) {
        const std::vector<float> out = solve(load.elements + supply, load.vin);
        for (size_t i = 0; i < load.vin.size(); ++i) {
            const double expected = 10.0 - 1000.0 * load.current(load.vin[i] - 1.0);
            EXPECT_NEAR(expected, out[i], 1e-4 * std::max(1.0, std::fabs(expected))) << load.vin[i];
        }
    }
}

TEST(GridElements, FreePentodePlateSeesItsOwnVoltageAndIsCutOffBelowTheCathode) {
    // A 6V6GT with a free plate, 7400 Ω to 600 V and loaded by the grid current Igc·vgk^1.5, the
    // cathode at 18.2974 V, the grid swept up from cut-off as the stage curves are.  Once the grid
    // rises above the plate the tube still sees the plate's own voltage, so the solution satisfies
    // Koren's law there: (600 - vp) / 7400 = Ip(vgk, vpk, vsk) + Ig(vgk).  Far above, the grid
    // current takes the plate below the cathode, where the tube draws nothing.
    auto stage = [](const char* clampPlate) {
        return inputSource() + battery("Supply", "600", "s") + battery("Bk", "18.2974", "k") + battery("Bs", "305", "sc") +
               element("IdealAmplifier", "A", "Gain='1'", {"in", "g"}) +
               element("GridCurrentLoad", "Ig", "Igc='2.2e-4' N='1.5'", {"p", "in", "k"}) +
               element("Resistor", "Rp", "Resistance='7400'", {"s", "p"}) +
               element("Pentode", "V", std::string("Type='GE6V6GT' ClampPlate='") + clampPlate + "'", {"p", "sc", "g", "k"}) +
               outputs({"p"}) + kNewtonDC;
    };
    std::vector<float> vin;
    for (int i = 0; i <= 200; ++i) vin.push_back(0.5f * static_cast<float>(i));
    const std::vector<float> out = solve(stage("false"), vin);
    const double vgk = 38.5 - 18.2974, vpk = out[77] - 18.2974, vsk = 305.0 - 18.2974;
    const double e1 = vsk / 38.07 * std::log1p(std::exp(38.07 * (1.0 / 12.67 + vgk / vsk)));
    const double ip = std::atan(vpk / 30.2) * std::pow(e1, 1.198) / 915.0 * 2.0;
    EXPECT_LT(out[77], 38.5f);
    EXPECT_NEAR((600.0 - out[77]) / 7400.0, ip + 2.2e-4 * std::pow(vgk, 1.5), 1e-5);
    EXPECT_NEAR(600.0 - 7400.0 * 2.2e-4 * std::pow(100.0 - 18.2974, 1.5), out[200], 0.01);
    // Below the grid current the free and the clamped plate are the same stage.
    EXPECT_NEAR(out[0], solve(stage("true"), {0.0f})[0], 1e-3);
}
