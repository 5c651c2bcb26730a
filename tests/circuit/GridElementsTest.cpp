// GridClamp, GridCurrentLoad and a pentode with a free plate: DC operating points against their
// closed forms.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "Support.h"

using namespace circuittest;

namespace {

const std::string kNewtonDC =
    R"(<Analysis Type="DC"><Solver Type="NewtonRaphson"><Properties RelativeTollerance="1e-7" AbsoluteTollerance="1e-7" MaxIterations="200"/></Solver></Analysis>)";

}  // namespace

TEST(GridElements, ClampHoldsTheGridAtTheDriveButNotAboveTheCathode) {
    // The grid follows the drive up to the cathode (0.5 V) plus the offset; a grounded grid is refused.
    auto clamp = [](const std::string& offset) {
        auto circuit = parseCircuit(element("VoltageInputSource", "Vin", "InputNumber=\"0\"", {"in", "GND"}) +
                                    element("Battery", "Bk", "Voltage=\"0.5\"", {"k", "GND"}) +
                                    element("GridClamp", "Clamp", offset, {"g", "in", "k"}) +
                                    element("Resistor", "R1", "Resistance=\"1000\"", {"g", "x"}) +
                                    element("Resistor", "R2", "Resistance=\"1000\"", {"x", "GND"}) +
                                    "<Output><Node Name=\"g\"/></Output>" + kNewtonDC);
        circuit->init();
        return circuit;
    };
    EXPECT_EQ(run(*clamp(""), {-2.0f, 0.25f, 0.5f, 0.75f, 40.0f}), (std::vector<float>{-2.0f, 0.25f, 0.5f, 0.5f, 0.5f}));
    EXPECT_FLOAT_EQ(0.75f, run(*clamp("Offset=\"0.25\""), {3.0f})[0]);
    EXPECT_NE("", messageOf([] { parseCircuit(element("GridClamp", "Clamp", "", {"GND", "in", "k"}) + kNewtonDC); }));
    EXPECT_NE("", messageOf([] { parseCircuit(element("GridClamp", "Clamp", "", {"g", "in"}) + kNewtonDC); }));
}

TEST(GridElements, CurrentLoadDrawsItsPowerLawThroughALoad) {
    // 10 V through 1 kΩ, loaded by 1e-3·(v(in) - 1 + 0.5)^1.5: the node falls by 1000·I, below
    // ground once I passes 10 mA.
    auto circuit = parseCircuit(element("VoltageInputSource", "Vin", "InputNumber=\"0\"", {"in", "GND"}) +
                                element("Battery", "B", "Voltage=\"10\"", {"s", "GND"}) +
                                element("Battery", "Bk", "Voltage=\"1\"", {"k", "GND"}) +
                                element("Resistor", "R", "Resistance=\"1000\"", {"s", "p"}) +
                                element("GridCurrentLoad", "Ig", "Igc=\"1e-3\" N=\"1.5\" Vc=\"0.5\"", {"p", "in", "k"}) +
                                "<Output><Node Name=\"p\"/></Output>" + kNewtonDC);
    circuit->init();
    const std::vector<float> vin = {-3.0f, 0.5f, 1.5f, 4.5f, 9.5f, 4.5f};
    const std::vector<float> out = run(*circuit, vin);
    for (size_t i = 0; i < vin.size(); ++i) {
        const double v = vin[i] - 1.0 + 0.5;
        const double expected = 10.0 - 1000.0 * (v > 0 ? 1e-3 * std::pow(v, 1.5) : 0.0);
        EXPECT_NEAR(expected, out[i], 1e-4 * std::max(1.0, std::fabs(expected))) << vin[i];
    }
    EXPECT_LT(out[4], -15.0f);  // 10 - 27: below ground
    EXPECT_NE("", messageOf([] { parseCircuit(element("GridCurrentLoad", "Ig", "N=\"1.5\"", {"p", "in", "k"}) + kNewtonDC); }));
    EXPECT_NE("", messageOf([] {
        parseCircuit(element("GridCurrentLoad", "Ig", "Igc=\"1e-3\" N=\"0.5\"", {"p", "in", "k"}) + kNewtonDC);
    }));
}

TEST(GridElements, RampsOfNegativeAndPositiveSlopeMakeAPiecewiseLinearCurrent) {
    // Two ramps (N = 1) from 1 V and 3 V above the cathode, +2 mA/V then -3 mA/V: the current
    // rises to 4 mA at 3 V and falls after, pushing current into the node beyond 5.67 V.
    auto circuit = parseCircuit(element("VoltageInputSource", "Vin", "InputNumber=\"0\"", {"in", "GND"}) +
                                element("Battery", "B", "Voltage=\"10\"", {"s", "GND"}) +
                                element("Battery", "Bk", "Voltage=\"1\"", {"k", "GND"}) +
                                element("Resistor", "R", "Resistance=\"1000\"", {"s", "p"}) +
                                element("GridCurrentLoad", "Up", "Igc=\"2e-3\" N=\"1\" Vc=\"-1\"", {"p", "in", "k"}) +
                                element("GridCurrentLoad", "Down", "Igc=\"-3e-3\" N=\"1\" Vc=\"-3\"", {"p", "in", "k"}) +
                                "<Output><Node Name=\"p\"/></Output>" + kNewtonDC);
    circuit->init();
    const std::vector<float> vin = {0.0f, 2.0f, 3.0f, 4.0f, 5.0f, 8.0f};
    const std::vector<float> out = run(*circuit, vin);
    for (size_t i = 0; i < vin.size(); ++i) {
        const double x = vin[i] - 1.0;
        const double current = 2e-3 * std::max(0.0, x - 1.0) - 3e-3 * std::max(0.0, x - 3.0);
        EXPECT_NEAR(10.0 - 1000.0 * current, out[i], 1e-4) << vin[i];
    }
}

TEST(GridElements, FreePentodePlateFallsBelowTheCathodeAndDrawsNothingThere) {
    // A KT66 stage with its grid held at the cathode: the grid current pulled through the 3.9 kΩ
    // load takes the free plate far below ground, where the tube takes no plate current, so the
    // plate is the supply minus the load's drop of that current alone.
    auto stage = [](const char* clampPlate) {
        return parseCircuit(element("VoltageInputSource", "Vin", "InputNumber=\"0\"", {"in", "GND"}) +
                            element("GridClamp", "Clamp", "", {"g", "in", "k"}) +
                            element("Battery", "Supply", "Voltage=\"600\"", {"s", "GND"}) +
                            element("Resistor", "Rp", "Resistance=\"3900\"", {"s", "p"}) +
                            element("Battery", "Bk", "Voltage=\"18.2974\"", {"k", "GND"}) +
                            element("Battery", "Bs", "Voltage=\"285.6\"", {"sc", "GND"}) +
                            element("Pentode", "V", std::string("Type=\"KT66\" ClampPlate=\"") + clampPlate + "\"",
                                    {"p", "sc", "g", "k"}) +
                            element("GridCurrentLoad", "Ig", "Igc=\"2.2e-4\" N=\"1.5\"", {"p", "in", "k"}) +
                            "<Output><Node Name=\"p\"/></Output>" + kNewtonDC);
    };
    auto free = stage("false");
    free->init();
    const std::vector<float> out = run(*free, {0.0f, 100.0f});
    const double drop = 3900.0 * 2.2e-4 * std::pow(100.0 - 18.2974, 1.5);
    EXPECT_NEAR(600.0 - drop, out[1], 0.01);
    EXPECT_LT(out[1], -33.0f);
    // Below the grid current the free and the clamped plate are the same stage.
    auto clamped = stage("true");
    clamped->init();
    EXPECT_NEAR(out[0], run(*clamped, {0.0f})[0], 1e-3);
}

TEST(GridElements, FreePentodePlateSeesItsOwnVoltageWhenTheGridRisesAboveIt) {
    // A 6V6GT with its grid driven 20 V above the cathode pulls its free plate below the grid; the
    // plate current is taken at the plate's own voltage, so the solution satisfies Koren's law
    // there: (600 - vp) / 7400 = Ip(vgk, vp - vk, vsk).
    auto circuit = parseCircuit(element("VoltageInputSource", "Vin", "InputNumber=\"0\"", {"g", "GND"}) +
                                element("Battery", "Supply", "Voltage=\"600\"", {"s", "GND"}) +
                                element("Resistor", "Rp", "Resistance=\"7400\"", {"s", "p"}) +
                                element("Battery", "Bk", "Voltage=\"18.2974\"", {"k", "GND"}) +
                                element("Battery", "Bs", "Voltage=\"305\"", {"sc", "GND"}) +
                                element("Pentode", "V", "Type=\"GE6V6GT\" ClampPlate=\"false\"", {"p", "sc", "g", "k"}) +
                                "<Output><Node Name=\"p\"/></Output>" + kNewtonDC);
    circuit->init();
    // Swept up from cut-off, as the stage curves are.
    std::vector<float> vin;
    for (float v = 0.0f; v <= 38.3f; v += 0.5f) vin.push_back(v);
    const std::vector<float> out = run(*circuit, vin);
    const double vgk = static_cast<double>(vin.back()) - 18.2974, vpk = out.back() - 18.2974, vsk = 305.0 - 18.2974;
    const double e1 = vsk / 38.07 * std::log1p(std::exp(38.07 * (1.0 / 12.67 + vgk / vsk)));
    const double ip = std::atan(vpk / 30.2) * std::pow(e1, 1.198) / 915.0 * 2.0;
    EXPECT_LT(out.back(), vin.back());
    EXPECT_NEAR((600.0 - out.back()) / 7400.0, ip, 1e-5);
}
