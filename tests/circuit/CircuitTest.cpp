// Numbering, stamps, run-time changes and failure paths of the netlist; the grid clamp and a
// pentode with a free plate against their closed forms.  GridCurrentLoad's power laws (N of 1,
// 1.5 and 3, negative Vc and Igc) are pinned by the tube curves' regeneration test in tests/amp.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <sstream>
#include <tuple>

#include "Netlists.h"
#include "Support.h"
#include "support/TestSupport.h"
#include "circuit/components/Passive.h"
#include "circuit/components/TubeModels.h"
#include "circuit/components/Tubes.h"

using namespace circuittest;

namespace {

const std::string R1 = element("Resistor", "R1", "Resistance='1'", {"a", "GND"});

vrn::Properties properties(std::initializer_list<std::pair<const char*, const char*>> values) {
    vrn::Properties result;
    for (const auto& value : values) result[value.first] = value.second;
    return result;
}

vrn::Element& part(vrn::Circuit& circuit, const char* name) { return *circuit.getMNAContext()->getElement(name); }

const std::string kNewtonDC = dc(newton("1e-7", 200));

std::string battery(const char* name, const char* volts, const char* node) {
    return element("Battery", name, std::string("Voltage='") + volts + "'", {node, "GND"});
}

}  // namespace

TEST(Circuit, NumbersGroundFixedNodesAndExtraRows) {
    // A floating battery takes an extra row; fixed nodes go to the tail whatever their order.
    auto circuit = parseCircuit(element("Resistor", "R1", "Resistance='1000'", {"a", "b"}) +
                                    element("Battery", "B1", "Voltage='2' UseFixedVoltage='false'", {"b", "c"}) +
                                    element("Resistor", "R2", "Resistance='1000'", {"c", "gnd"}) +
                                    element("Resistor", "R3", "Resistance='1'", {"gnd", "0"}) +
                                    element("Battery", "B2", "Voltage='10'", {"a", "GND"}) + outputs({"b", "c"}) + dc(),
                                0);
    circuit->init();
    // K = 3 ordinary nodes (b, c, gnd: the small letters are not ground), E = 1, F = 1.
    EXPECT_EQ(circuit->getMNAContext()->getSize(), 5);
    EXPECT_EQ(circuit->getMNAContext()->getNodes().at("a"), 4);
    // 10 V, then 2 V across the battery: 8 V over 2001 Ω.
    auto out = runAll(*circuit, {{0.0f}});
    EXPECT_NEAR(out[0][0], 10.0 - 1000.0 * 8.0 / 2001.0, 1e-4);
    EXPECT_NEAR(out[1][0], 1001.0 * 8.0 / 2001.0, 1e-4);
}

TEST(Circuit, InputSourcesReadTheirOwnInputUpToTheLast) {
    // The last of two inputs is a valid InputNumber; each source follows its own input.
    auto circuit = parseCircuit(inputSource("InputNumber='1'") +
                                    element("VoltageInputSource", "V0", "InputNumber='0'", {"b", "GND"}) +
                                    element("Resistor", "R1", "Resistance='1000'", {"in", "c"}) +
                                    element("Resistor", "R2", "Resistance='1000'", {"c", "b"}) + outputs({"in", "b", "c"}) +
                                    dc(),
                                2);
    circuit->init();
    auto out = runAll(*circuit, {{1.0f, 2.0f}, {-3.0f, 5.0f}});
    EXPECT_EQ(out, (std::vector<std::vector<float>>{{-3.0f, 5.0f}, {1.0f, 2.0f}, {-1.0f, 3.5f}}));
}

TEST(Circuit, ResistorPotentiometerRunTimeChangesAndFaults) {
    auto circuit = parseCircuit(inputSource() + element("Resistor", "R1", "Resistance='0'", {"in", "a"}) +
                                element("Potentiometer", "P1", "Resistance='10000' Wiper='0'", {"a", "w", "GND"}) +
                                element("Battery", "B1", "Voltage='3' UseFixedVoltage='false'", {"x", "GND"}) +
                                element("Resistor", "R2", "Resistance='100'", {"x", "GND"}) + outputs({"w", "x"}) + dc());
    std::vector<float*> none;
    EXPECT_EQ(messageOf([&] { circuit->process(none, none, 1); }), "Circuit is not initialized. Circuit Name: C");
    circuit->init();
    EXPECT_FLOAT_EQ(dynamic_cast<vrn::Resistor&>(part(*circuit, "R1")).getConductance(), 1.0e12f);
    auto expect = [&](float wiper, float battery) {
        auto out = runAll(*circuit, {{1.0f}});
        EXPECT_NEAR(out[0][0], wiper, 1e-5);
        EXPECT_NEAR(out[1][0], battery, 1e-5);
        EXPECT_FALSE(circuit->getMNAContext()->isMatrixChanged());
    };
    // Wiper 0 is taken as 0.001: the wiper sits 10 Ω below the top.
    expect(0.999f, 3.0f);
    part(*circuit, "P1").propertyChanged("Wiper", 0.25f);
    EXPECT_TRUE(circuit->getMNAContext()->isMatrixChanged());
    // A changed battery voltage waits for propertiesChanged; the matrix update still runs.
    part(*circuit, "B1").propertyChanged("Voltage", 5.0f);
    expect(0.75f, 3.0f);
    part(*circuit, "B1").propertiesChanged(properties({{"Voltage", "5"}, {"UseFixedVoltage", "false"}}));
    // Wiper 1 is taken as 0.999, 10 Ω above the bottom.
    part(*circuit, "P1").propertyChanged("Wiper", 1.0f);
    expect(0.001f, 5.0f);

    // Refused at run time.
    const std::pair<std::function<void()>, const char*> faults[] = {
        {[&] { circuit->process(none, 65); }, "Circuit name: C maxBlockSize: 64 input size: 65"},
        {[&] { circuit->setMaxBlockSize(0); }, "Graph: Invalid maxBlockSize0"},
        {[&] { part(*circuit, "Vin").propertyChanged("Gain", 1.0f); }, "Invalid property name: Gain. VoltageInputSource"},
        {[&] { part(*circuit, "P1").propertyChanged("Wiper", 1.0001f); }, "Potentiometer name=P1, value=1.0001"},
    };
    for (const auto& [fault, message] : faults) {
        const std::string text = messageOf(fault);
        EXPECT_NE(text.find(message), std::string::npos) << text;
    }
}

TEST(Circuit, CapacitorCompanionFromOperatingPointAndFromZero) {
    const std::string rc = element("Resistor", "R1", "Resistance='1000'", {"in", "out"}) +
                           element("Capacitor", "C1", "Capacitance='1e-6'", {"out", "GND"}) + outputs({"out"});
    auto at1kHz = [](const std::string& graph) {
        auto circuit = parseCircuit(graph);
        circuit->setSamplingRate(1000.0f);
        circuit->init();
        return circuit;
    };
    // From the operating point the capacitor starts at rest: a step-free start at 1 V DC offset.
    auto circuit = at1kHz(inputSource("InputNumber='0' DCOffset='1'") + rc + analysis(linear()));
    auto& capacitor = dynamic_cast<vrn::Capacitor&>(part(*circuit, "C1"));
    for (float v : run(*circuit, std::vector<float>(4, 0.0f))) EXPECT_NEAR(v, 1.0f, 1e-6);
    EXPECT_FLOAT_EQ(capacitor.getConductance(), 2e-3f);
    EXPECT_NEAR(capacitor.getHistory(), -2e-3f, 1e-9);
    capacitor.propertyChanged("Capacitance", 2e-6f);
    EXPECT_FLOAT_EQ(capacitor.getConductance(), 4e-3f);

    // From zero: the trapezoidal step response of RC = 1 ms at 1 kHz, the input held at 1 from
    // sample 0.  H(z) = (1 + z⁻¹)/(3 - z⁻¹): y0 = 1/3, y[n] = (2 + y[n-1])/3.
    std::vector<float> y = run(*at1kHz(inputSource() + rc + fromZero()), std::vector<float>(5, 1.0f));
    double expected = 1.0 / 3.0;
    for (size_t n = 0; n < y.size(); ++n, expected = (2.0 + expected) / 3.0) EXPECT_NEAR(y[n], expected, 1e-6) << n;
    // Unless told otherwise the context runs at 48 kHz.
    auto unset = parseCircuit(inputSource() + rc + fromZero());
    unset->init();
    EXPECT_FLOAT_EQ(dynamic_cast<vrn::Capacitor&>(part(*unset, "C1")).getConductance(), 2e-6f * 48000.0f);
}

TEST(Circuit, LookupTableAmpAndIdealAmplifiers) {
    auto circuit = parseCircuit(
        inputSource() +
        element("LookupTableAmp", "L1", "VinMin='-1' VinMax='1' DeltaV='0.5' Vout='-2|-1|0|1|2' UseInputCurrent='0'",
                {"in", "out"}) +
        element("IdealAmplifier", "A1", "Gain='3'", {"in", "tripled"}) +
        element("IdealDifferentialAmplifier", "A2", "Gain='2'", {"out", "in", "diff"}) +
        // With only fixed nodes the netlist would have nothing to solve.
        element("Resistor", "R1", "Resistance='1000'", {"diff", "load"}) +
        element("Resistor", "R2", "Resistance='1000'", {"load", "GND"}) + outputs({"out", "tripled", "diff"}) +
        dc(newton("1e-6", 10)));
    circuit->init();
    // Below the table, the flat first cell, two interpolated points, past the end.
    const std::vector<float> in = {-2.0f, -0.75f, 0.25f, 0.6f, 5.0f}, table = {-2.0f, -2.0f, 0.5f, 1.2f, 2.0f};
    auto out = runAll(*circuit, {in});
    EXPECT_EQ(out[0], table);
    EXPECT_FLOAT_EQ(out[1][3], 1.8f);
    EXPECT_NEAR(out[2][3], 2.0f * (1.2f - 0.6f), 1e-5);
}

TEST(Circuit, FailedSampleRepeatsTheLastSolutionIsCountedAndBypassWins) {
    // The cathode follows -in; above a grounded screen the pentode's current is not a number, and
    // that sample repeats the last good solution.  The output is the input node itself.
    auto circuit = parseCircuit(inputSource() + element("IdealAmplifier", "A1", "Gain='-1'", {"in", "k"}) +
                                element("Pentode", "V1", "Type='KT66'", {"p", "GND", "g", "k"}) +
                                element("Resistor", "Rp", "Resistance='1000'", {"p", "GND"}) +
                                element("Resistor", "Rg", "Resistance='1000'", {"g", "GND"}) + outputs({"in"}) +
                                dc(newton("1e-6", 10)));
    circuit->init();
    EXPECT_EQ(run(*circuit, {0.25f, -0.5f, -0.75f}), (std::vector<float>{0.25f, 0.25f, 0.25f}));
    EXPECT_EQ(circuit->getFailedSamples(), 2u);
    circuit->setBypass(true, 0);
    circuit->setOff(true, 0);
    EXPECT_EQ(run(*circuit, {1.0f, 2.0f}), (std::vector<float>{1.0f, 2.0f}));
    circuit->setBypass(false, 0);
    EXPECT_EQ(run(*circuit, {1.0f, 2.0f}), (std::vector<float>{0.0f, 0.0f}));

    // A solution that is not a number is a failed sample too, never an output.
    auto linear = parseCircuit(rcLowPass());
    linear->init();
    part(*linear, "Vin").propertyChanged("DCOffset", std::nanf(""));
    std::vector<float> held = run(*linear, {1.0f, 1.0f});
    EXPECT_TRUE(std::isfinite(held[0]) && held[0] == held[1]) << held[0];
    EXPECT_EQ(linear->getFailedSamples(), 2u);
}

TEST(Circuit, SolverToleranceOfTenSwitchesTheIterationOff) {
    // A 1 V divider solved from zero: with an absolute tolerance of 10 or more (so large that 1
    // is lost in it for SuccessiveApproximations) the solution stays where it starts; below, one
    // step solves the linear netlist.
    const std::string divider = element("Battery", "B1", "Voltage='1'", {"a", "GND"}) +
                                element("Resistor", "R1", "Resistance='1000'", {"a", "b"}) +
                                element("Resistor", "R2", "Resistance='1000'", {"b", "GND"}) + outputs({"b"});
    const std::string relaxations = "InitialRelaxation='1' MinRelaxation='1' MaxRelaxation='1' Growth='1' Reduction='1' ";
    const std::tuple<std::string, std::string, const char*, float> cases[] = {
        {"NewtonRaphson", "", "10", 0.0f},       {"NewtonRaphson", "", "9.99", 0.5f},
        {"SimplifiedNewton", "", "10", 0.0f},    {"SimplifiedNewton", "", "9.99", 0.5f},
        {"SuccessiveApproximations", relaxations, "1e30", 0.0f}, {"SuccessiveApproximations", relaxations, "10", 0.5f}};
    for (const auto& [type, more, tolerance, expected] : cases) {
        std::string solver = "<Solver Type='" + type + "'><Properties " + more + "RelativeTollerance='" + tolerance +
                             "' AbsoluteTollerance='" + tolerance + "' MaxIterations='5'/></Solver>";
        EXPECT_FLOAT_EQ(solve(divider + dc(solver), {0.0f})[0], expected) << type << " " << tolerance;
    }
}

TEST(Circuit, TriodeClampsThePlateAndTablesFollowTheFormula) {
    auto context = std::make_shared<vrn::MNAContext>();
    auto* triode = new vrn::Triode();
    triode->init("V1", properties({{"Type", "12AX7"}}),
                 std::make_shared<std::vector<std::string>>(std::vector<std::string>{"p", "g", "k"}), context);
    context->addElement(triode);
    context->initialize();
    // The plate moves by at most a factor of two per step, and the cathode is never negative.
    std::vector<float> x = {100.0f, -1.0f, 1.0f};
    for (auto [asked, taken] : {std::pair{100.0f, 100.0f}, std::pair{300.0f, 200.0f}, std::pair{10.0f, 100.0f}}) {
        x[0] = asked;
        triode->getRhs(x);
        EXPECT_FLOAT_EQ(x[0], taken);
    }
    x = {100.0f, 0.0f, -2.0f};
    triode->getRhs(x);
    EXPECT_FLOAT_EQ(x[2], 0.0f);

    // The 12AX7 tables (Δvpk 2 V, Δvgk 10 mV) against the formula within 1 % (50 nA near cut-off).
    vrn::Properties formula = vrn::builtInTriodes().at("12AX7")(), tables = formula;
    formula["DoNotInterpolate"] = "true";
    vrn::NKTriodeAnodeCurrent exact, looked;
    exact.setProperties(formula);
    looked.setProperties(tables);
    EXPECT_EQ(looked.getRows() * 1000 + looked.getColumns(), 1201 * 1000 + 201);
    for (float vgk : {-3.0f, -1.5f, -0.73f, 0.0f})
        for (float vpk : {101.0f, 183.3f, 250.0f}) {
            float ip = exact.current(vgk, vpk), slope = exact.dIdVpk(vgk, vpk);
            EXPECT_NEAR(looked.current(vgk, vpk), ip, 1e-2f * ip + 5e-8f) << vgk << " " << vpk;
            EXPECT_NEAR(looked.dIdVpk(vgk, vpk), slope, 1e-2f * slope + 1e-9f) << vgk << " " << vpk;
        }
    // The formula's slopes against central differences of its current (h = 10 mV).
    for (float vgk : {-2.0f, -0.5f})
        for (float vpk : {120.0f, 250.0f}) {
            float h = 0.01f, gk = (exact.current(vgk + h, vpk) - exact.current(vgk - h, vpk)) / (2 * h),
                  pk = (exact.current(vgk, vpk + h) - exact.current(vgk, vpk - h)) / (2 * h);
            EXPECT_NEAR(exact.dIdVgk(vgk, vpk), gk, 5e-3f * gk) << vgk << " " << vpk;
            EXPECT_NEAR(exact.dIdVpk(vgk, vpk), pk, 5e-3f * pk) << vgk << " " << vpk;
        }
    EXPECT_EQ(looked.current(-9.0f, 200.0f), 0.0f);  // below the table
    EXPECT_EQ(exact.current(-1.0f, 0.0f), 0.0f);
}

TEST(CircuitMessages, EveryFaultIsNamedAtLoad) {
    // One row per check; the message must contain the expected text ("": the netlist loads).
    auto ac = [](const std::string& inside) { return R1 + "<Analysis Type='AC'>" + inside + "</Analysis>"; };
    auto faulty = [](const char* type, const std::string& properties, const std::vector<const char*>& nodes) {
        return element(type, "X1", properties, nodes) + dc();
    };
    auto solver = [](const char* type, const std::string& properties) {
        return R1 + dc("<Solver Type='" + std::string(type) + "'><Properties " + properties + "/></Solver>");
    };
    auto table = [](const std::string& properties) {
        return element("LookupTableAmp", "X1", "VinMin='0' VinMax='1' " + properties, {"a", "b"}) + dc();
    };
    auto source = [](const char* number) { return inputSource(number) + R1 + fromZero(); };
    const std::string capacitors = R1 + element("Capacitor", "C1", "Capacitance='1e-6'", {"a", "mid"}) +
                                   element("Capacitor", "C2", "Capacitance='1e-6'", {"mid", "GND"});
    const std::string tolerances = "RelativeTollerance='1' AbsoluteTollerance='1' ";
    const std::vector<const char*> pgk = {"p", "g", "k"}, two = {"a", "GND"}, three = {"a", "b", "c"};
    struct Case {
        std::string graph;
        const char* message;
        int inputs = 1;
    } const cases[] = {
        // The parser.
        {R"(<Analysis Type="DC"/>)", "No elements in graph C"},
        {R"(<Element Type="Resistor" Name="R1"><Node/></Element>)", "Element: R1. Node without a name."},
        {R1 + R"(<Analysis Type="TRAN"/>)", "Invalid analysis Type attribute TRAN in the graph C"},
        {ac(R"(<InitialCondition Type="Rest"/>)"), "Invalid InitialCondition Type attribute Rest in the graph C"},
        {R1 + dc(R"(<Solver Type="Gauss"/>)"), "Unknown solver type: Gauss"},
        // Ignored parts: DC with an InitialCondition, Zero with a solver inside, Linear with Properties.
        {R1 + dc(R"(<InitialCondition Type="Rest"/><Solver Type="Linear"><Properties/></Solver>)"), ""},
        {ac(R"(<InitialCondition Type="Zero"><Solver Type="Gauss"/></InitialCondition><Solver Type="Linear"/>)"), ""},
        // The context and the circuit.
        {element("Battery", "B1", "Voltage='1'", {"0", "GND"}) + dc(), "No MNA nodes."},
        // InputNumber counts from 0 below NumberOfInputs.
        {source("InputNumber='2'"), "out of range. VoltageInputSource name=Vin, InputNumber=2, NumberOfInputs=2", 2},
        {source("InputNumber='-1'"), "out of range. VoltageInputSource name=Vin, InputNumber=-1, NumberOfInputs=2", 2},
        {source("InputNumber='0'"), "out of range. VoltageInputSource name=Vin, InputNumber=0, NumberOfInputs=0", 0},
        // A node between capacitors floats for the operating point, not for a start from zero.
        {capacitors + dc(), "singular matrix: node mid has no DC path to ground in Circuit C"},
        {capacitors + analysis(newton()), "singular matrix: node mid has no DC path to ground in Circuit C"},
        {capacitors + fromZero(), ""},
        {R1 + element("Resistor", "R2", "Resistance='1'", {"x", "y"}) + fromZero(),
         "singular matrix: nodes x, y have no path to ground in Circuit C"},
        // The op-amp's input has no equation of its own; Newton's factorisation names it.
        {inputSource() + element("OpAmp", "U1", "Gain='1000'", {"free", "out", "out"}) +
             element("Resistor", "R2", "Resistance='1'", {"out", "GND"}) + analysis(newton()),
         "ludcmp returned error: -1 at node free"},
        // The components.
        {faulty("Resistor", "", two), "Resistance is not defined. Resistor name=X1"},
        {faulty("Resistor", "Resistance='-2'", two), "Resistance cannot be negative. Resistor name=X1, value=-2"},
        {faulty("Potentiometer", "Resistance='0' Wiper='0.5'", three), "cannot be negative or zero. Potentiometer name=X1"},
        {faulty("Pentode", "Type='KT66'", pgk), "Pentode must have four nodes. Pentode name=X1, nodes=3"},
        {faulty("IdealAmplifier", "Gain='1'", two), "IdealAmplifier cannot have a grounded node. IdealAmplifier name=X1"},
        {faulty("OpAmp", "Gain='1'", {"a", "0", "c"}), "OpAmp cannot have a grounded node. OpAmp name=X1"},
        {faulty("GridClamp", "", {"GND", "in", "k"}), "GridClamp cannot hold a grounded grid. GridClamp name=X1"},
        {faulty("GridCurrentLoad", "Igc='1e-3' N='0.5'", three), "Igc must be a number and N at least 1"},
        {table("DeltaV='0'"), "DeltaV must be greater than 0"},
        {faulty("LookupTableAmp", "VinMin='1' VinMax='1' DeltaV='0.5' Vout='0'", {"a", "b"}),
         "VinMax must be greater than VinMin. LookupTableAmp name=X1, VinMin=1, VinMax=1"},
        {table("DeltaV='1e-9' Vout='0'"), "LookupTableAmp: the table would hold"},
        {table("DeltaV='0.5' Vout='0|1|2' Iin='0|1'"), "as many values as Vout. LookupTableAmp name=X1, Iin=2, Vout=3"},
        {faulty("Triode", "Type='12AX7' mu='-1'", pgk), "Triode: mu must be greater than or equal to 0. mu=-1"},
        {faulty("Triode", "Type='12AX7' VgkMin='4'", pgk), "VgkMax must be greater than VgkMin. VgkMax=4 VgkMin=4"},
        {faulty("Triode", "Type='12AX7' VpMax='0'", pgk), "Triode: VpMax must be greater than 0. VpMax=0. Triode name=X1"},
        {faulty("Triode", "Type='12AX7' DeltaVgk='0'", pgk), "DeltaVgk must be greater than 0. Triode name=X1, value=0"},
        {faulty("Triode", "Type='12AX7' VgkMin='-9' VgkMax='-1'", pgk), "VgkMax cannot be negative"},
        {faulty("Triode", "Type='12AX7' DeltaVpk='1e-6'", pgk), "Triode: the anode current table would hold"},
        {faulty("Pentode", "Type='KT66' DeltaVgk='1e-9'", {"p", "s", "g", "k"}), "Pentode: the grid current table would hold"},
        // The solvers.
        {solver("NewtonRaphson", tolerances + "MaxIterations='1' Relaxation='1.5'"), "or equal to 1. InitialRelaxation=1.5"},
        {solver("NewtonRaphson", tolerances + "MaxIterations='0'"), "MaxIterations must be greater than 0. MaxIterations=0"},
        {solver("SimplifiedNewton", "RelativeTollerance='-1' AbsoluteTollerance='1' MaxIterations='1'"),
         "SimplifiedNewtonSolver: RelativeTollerance must be greater than 0. relativeTollerance=-1"},
    };
    for (const Case& c : cases) {
        const std::string message = messageOf([&] { parseCircuit(c.graph, c.inputs)->init(); });
        if (*c.message == '\0')
            EXPECT_EQ(message, "") << c.graph;
        else
            EXPECT_NE(message.find(c.message), std::string::npos) << message << "\n" << c.graph;
    }
}

TEST(CircuitUnderDriver, TheGuidesExampleRunsAndAnUndeclaredInputIsNamed) {
    // docs/circuits.md's worked example: gain 0.5 -> the 12AX7 stage -> gain -0.01.
    std::stringstream text;
    text << std::ifstream(std::string(ORM_SOURCE_DIR) + "/docs/circuits.md").rdbuf();
    const std::string document = text.str();
    const size_t start = document.find("```xml\n<System>") + 7;
    ASSERT_GT(start, 7u);
    const std::string system = document.substr(start, document.find("```", start) - start);
    auto driver = orm_test::loadSystem(system);
    driver->setSamplingRate(48000.0f);
    driver->setMaxBlockSize(256);
    std::vector<float> input = sine(1.0, 1000.0, 48000.0, 4608), output;
    for (size_t at = 0; at < input.size(); at += 256) {
        std::vector<float*> inputs{input.data() + at};
        driver->process(inputs, 256);
        output.insert(output.end(), driver->getOutputs()[0], driver->getOutputs()[0] + 256);
    }
    // At the operating point (ngspice: 202.953 V on the plate); about 61 V p-p at 0.5 V peak.
    EXPECT_NEAR(output[0], -2.0295f, 1e-3f);
    auto [low, high] = std::minmax_element(output.begin() + 2400, output.end());
    EXPECT_NEAR(*high - *low, 0.61f, 0.02f);
    // A netlist would drop an input it does not declare.
    const std::string declared = "<Graph Name=\"Stage\" Type=\"MNA\">\n      <NumberOfInputs>1</NumberOfInputs>";
    std::string undeclared = system;
    ASSERT_NE(system.find(declared), std::string::npos);
    undeclared.replace(system.find(declared), declared.size(), "<Graph Name=\"Stage\" Type=\"MNA\">");
    EXPECT_EQ(orm_test::loadError(undeclared), "Inputs are wired to graph Stage, which declares no NumberOfInputs");
}

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
