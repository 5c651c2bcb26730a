// DSP graphs and the Driver: running orders, the three processing methods with feedback, Off and
// Bypass requests, rates and block sizes from the multiplier chain, control delivery, refusals.

#include <gtest/gtest.h>

#include <functional>

#include "engine/Buffer.h"
#include "engine/DSPGraph.h"
#include "support/TestSupport.h"

using namespace vrn;
using orm_test::gainGraph;
using orm_test::loadError;
using orm_test::loadSystem;
using orm_test::messageOf;
using orm_test::systemOf;

namespace {

// y = x − G·(what G reads): G reads D itself (a one-sample loop where the method allows it) or
// R, a Relaxation of D (Iterative only), which the method drives to the fixed point.
std::string loopGraph(const std::string& graphProperties, const std::string& through = "D") {
    return "<System><Graphs><Graph Name=\"Loop\" Type=\"DSP\">" + graphProperties +
           "<NumberOfInputs>1</NumberOfInputs><Inputs><Input Graph=\"System\" Node=\"0\"/></Inputs>"
           "<Element Type=\"DifferentialFilter\" Name=\"D\"><Properties Gain=\"1\"/><Inputs>"
           "<Input Port=\"plus\" Element=\"Graph\" Output=\"0\"/><Input Port=\"minus\" Element=\"G\" Output=\"out\"/>"
           "</Inputs></Element>"
           "<Element Type=\"Gain\" Name=\"G\"><Properties Gain=\"-0.5\"/><Inputs>"
           "<Input Port=\"in\" Element=\"" + through + "\" Output=\"out\"/></Inputs></Element>" +
           (through == "R" ? "<Element Type=\"Relaxation\" Name=\"R\"><Properties Relaxation=\"0.5\"/><Inputs>"
                             "<Input Port=\"in\" Element=\"D\" Output=\"out\"/></Inputs></Element>" : "") +
           "<Output><Node Name=\"out\" Element=\"D\" Port=\"out\"/></Output></Graph></Graphs>"
           "<Outputs><Output Graph=\"Loop\" Node=\"out\"/></Outputs></System>";
}

// x = 0.5·x + 1, iterated to its fixed point 2.
std::string fixedPointGraph(const std::string& maxIterations, const std::string& tolerance = "1e-6") {
    return loopGraph("<Properties ProcessingMethod=\"Iterative\" RelativeTollerance=\"" + tolerance +
                     "\" AbsoluteTollerance=\"" + tolerance + "\" MaxIterations=\"" + maxIterations + "\"/>", "R");
}

// A graph that subtracts the outputs of two other graphs (of the host when they are "System").
std::string twoInputs(const std::string& name, const std::string& first, const std::string& second) {
    return "<Graph Name=\"" + name + "\" Type=\"DSP\"><NumberOfInputs>2</NumberOfInputs><Inputs>"
           "<Input Graph=\"" + first + "\" Node=\"out\"/><Input Graph=\"" + second + "\" Node=\"out\"/></Inputs>"
           "<Element Type=\"DifferentialFilter\" Name=\"G\"><Properties Gain=\"1\"/><Inputs>"
           "<Input Port=\"plus\" Element=\"Graph\" Output=\"0\"/><Input Port=\"minus\" Element=\"Graph\" Output=\"1\"/>"
           "</Inputs></Element><Output><Node Name=\"out\" Element=\"G\" Port=\"out\"/></Output></Graph>";
}

// A Gain graph reading node "out" (channel 0 of the host) with this multiplier.
std::string up(const std::string& name, const std::string& source, const char* multiplier) {
    return gainGraph(name, source, "out", 1.0, std::string("Multiplier=\"") + multiplier + "\"");
}

// Up ×2, Mid, Down ×0.5, Out: the middle runs at twice the host's rate.
const std::string kResampled =
    systemOf(up("Up", "System", "2") + gainGraph("Mid", "Up", "out") + up("Down", "Mid", "0.5") + gainGraph("Out", "Down", "out"),
             "<Output Graph=\"Out\" Node=\"out\"/>");

// Graph A: the host's channel 0 times gain.
std::string single(double gain) {
    return systemOf(gainGraph("A", "System", "0", gain), "<Output Graph=\"A\" Node=\"out\"/>");
}

std::shared_ptr<Driver> ready(const std::string& xml, int maxBlockSize = 4) {
    auto driver = loadSystem(xml);
    driver->setMaxBlockSize(maxBlockSize);
    return driver;
}

std::vector<scalar> run(const std::shared_ptr<Driver>& driver, std::vector<scalar> left, size_t output = 0) {
    std::vector<scalar> right = left;
    std::vector<scalar*> inputs{left.data(), right.data()};
    driver->process(inputs, left.size());
    scalar* out = driver->getOutputs()[output];
    return std::vector<scalar>(out, out + left.size());
}

}  // namespace

TEST(DSPGraph, BlockRefusesFeedbackAndSequentialDelaysItByOneSample) {
    EXPECT_EQ("Filters do not form a DAG.", loadError(loopGraph("")));
    auto driver = ready(loopGraph("<Properties ProcessingMethod=\"Sequential\"/>"), 8);
    run(driver, {});  // no frames: the state stays
    // The element first in the description (D) reads G's output of the previous sample:
    // y[n] = x[n] + 0.5·y[n−1].
    EXPECT_EQ((std::vector<scalar>{1, 0.5f, 0.25f, 0.125f, 2.0625f, 1.03125f}), run(driver, {1, 0, 0, 0, 2, 0}));
    EXPECT_FLOAT_EQ(1.03125f / 2, run(driver, {0, 0})[0]);  // the state carries across blocks
}

TEST(DSPGraph, IterativeConvergesToTheFixedPoint) {
    for (scalar value : run(ready(fixedPointGraph("100")), {1, 1, 1, 1})) EXPECT_NEAR(2.0f, value, 1e-5f);
    // One pass a sample: far from converged on the first sample.
    EXPECT_FLOAT_EQ(1.0f, run(ready(fixedPointGraph("1")), {1})[0]);
    // Worked by hand, running D, R, G: D = 1 − G, R = (R + D)/2, G = −R/2 give D = 1, 1.25, 1.4375 on
    // the first sample; the step 0.1875 is within both tolerances (0.2, and 0.2·1.4375): it stops.
    // Between samples R extrapolates to 2·1.15625 − 0; then D = 1.578125, 1.97265625 (a step of
    // 0.39: on), 1.9794921875 (0.007: stop).
    EXPECT_EQ((std::vector<scalar>{1.4375f, 1.9794921875f}), run(ready(fixedPointGraph("100", "0.2")), {1, 1}));
}

TEST(DSPGraph, RunningOrderFollowsTheWiresNotTheDocument) {
    auto gain = [](const char* name, const char* value, const char* source, const char* output) {
        return std::string("<Element Type=\"Gain\" Name=\"") + name + "\"><Properties Gain=\"" + value +
               "\"/><Inputs><Input Port=\"in\" Element=\"" + source + "\" Output=\"" + output + "\"/></Inputs></Element>";
    };
    // C reads B, B reads A, but they stand as C, B, A.
    auto driver = ready(systemOf("<Graph Name=\"Chain\" Type=\"DSP\"><NumberOfInputs>1</NumberOfInputs>"
                                 "<Inputs><Input Graph=\"System\" Node=\"0\"/></Inputs>" +
                                     gain("C", "3", "B", "out") + gain("B", "2", "A", "out") + gain("A", "0.5", "Graph", "0") +
                                     "<Output><Node Name=\"out\" Element=\"C\" Index=\"0\"/></Output></Graph>",
                                 "<Output Graph=\"Chain\" Node=\"out\"/>"));
    EXPECT_EQ((std::vector<int>{2, 1, 0}), dynamic_cast<DSPGraph&>(*driver->getGraph("Chain")).getFilterOrder());
    EXPECT_EQ((std::vector<scalar>{3, 6}), run(driver, {1, 2}));
}

TEST(DSPGraph, OffAndBypassRequestsByIndex) {
    auto driver = ready(single(2.0));
    Graph& graph = *driver->getGraph("A");
    EXPECT_EQ((std::vector<scalar>{2, 4}), run(driver, {1, 2}));
    graph.setProperty("Bypass", 1.0f);
    EXPECT_EQ((std::vector<scalar>{1, 2}), run(driver, {1, 2}));
    graph.setProperty("Off", 0.51f);  // bypass wins over off
    EXPECT_EQ((std::vector<scalar>{1, 2}), run(driver, {1, 2}));
    graph.setProperty("Bypass", 0.5f);  // 0.5 clears
    EXPECT_EQ((std::vector<scalar>{0, 0}), run(driver, {1, 2}));
    graph.setProperty("Off_1", 1.0f);
    graph.setProperty("Off_0", 0.0f);
    EXPECT_TRUE(graph.isOff());  // entry 1 still holds it
    graph.setProperty("Off_1_2", 0.0f);  // three words: index 0
    EXPECT_TRUE(graph.isOff());
    graph.setProperty("Off__1", 0.0f);  // empty pieces dropped: index 1
    EXPECT_FALSE(graph.isOff());
    graph.setProperty("Suspend", 1.0f);  // accepted, and changes nothing
    EXPECT_EQ((std::vector<scalar>{2, 4}), run(driver, {1, 2}));
}

TEST(DSPGraph, RefusalsAtRunTime) {
    auto driver = ready(kResampled);
    Graph& up = *driver->getGraph("Up");
    std::vector<scalar> x(11, 1.0f);
    std::vector<scalar*> inputs{x.data()};
    auto uninitialised = Driver::create();
    const std::pair<std::function<void()>, const char*> cases[] = {
        {[&] { up.setProperty("Mute", 1.0f); }, "Graph: Unknown property Mute"},
        {[&] { up.setProperty("_", 1.0f); }, "Graph: Unknown property _"},
        {[&] { up.setProperty("Off_-1", 1.0f); }, "Graph: Unknown property Off_-1"},
        {[&] { driver->getGraph("Down")->setProperty("Suspend", 1.0f); },
         "Graph: Cannot suspend a graph with the multiplier not equal to 1. multiplier=0.5"},
        {[&] { up.getOutput(1); }, "Graph: invalid output index: 1 Number of outputs: 1"},
        {[&] { up.getOutput(-1); }, "Graph: invalid output index: -1 Number of outputs: 1"},
        {[&] { up.setNumberOfInputs(-1); }, "Number of inputs must be greater than zero. Number of inputs =-1"},
        {[&] { up.process(inputs, 4); }, ""},
        {[&] { up.process(inputs, 5); }, "maxBlockSize is less than input size. DSPGraph name: Up maxBlockSize: 4 input size:5"},
        {[&] { up.setMaxBlockSize(0); }, "DSPGraph: Invalid maxBlockSize0"},
        {[&] { driver->getGraph("B"); }, "B is not a valid graph name."},
        {[&] { driver->setMaxBlockSize(0); }, "Driver: maxBlockSize must be greater than zero. maxBlockSize=0"},
        {[&] { run(loadSystem(single(1.0)), {1}); }, "Driver: Cannot process. maxBlockSize is not set."},
        {[&] { uninitialised->process(inputs, 1); }, "Cannot process. Driver is not initialized."},
    };
    for (const auto& [statement, message] : cases) EXPECT_EQ(message, messageOf(statement));
    EXPECT_EQ(4, driver->getMaxBlockSize());
}

TEST(Buffer, SlidesItsWindowForward) {
    EXPECT_VRN_MESSAGE(Buffer(0), InvalidArgumentException, "Buffer size cannot be less than 1. size=0");
    Buffer window(4);
    EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(window.getData()) % 64);
    scalar a[3] = {1, 2, 3}, b[2] = {4, 5};
    window.push(a, 3);
    window.push(b, 2);
    EXPECT_EQ((std::vector<scalar>{2, 3, 4, 5}), std::vector<scalar>(window.getData(), window.getData() + 4));
    window.clear();
    EXPECT_EQ((std::vector<scalar>{0, 0, 0, 0}), std::vector<scalar>(window.getData(), window.getData() + 4));
}

// The graphs run after every graph they read; each runs at the rate its sources hand on, and gets
// floor(frames·multiplier + 0.5) frames of a block.
TEST(Driver, OrdersGraphsByTheirWiresAndDerivesTheirRates) {
    const struct {
        const char* label;
        std::string graphs;
        std::vector<int> order;
        std::vector<double> multipliers;
        std::vector<int> blockSizes;  // of a 5-frame block
    } cases[] = {
        {"chain written backwards", gainGraph("C", "B", "out") + gainGraph("B", "A", "out") + gainGraph("A", "System", "0"),
         {2, 1, 0}, {1, 1, 1}, {5, 5, 5}},
        {"resampled diamond", up("A", "System", "2") + twoInputs("D", "B", "C") + gainGraph("B", "A", "out") +
                                  gainGraph("C", "A", "out") + up("E", "D", "0.5") + twoInputs("F", "E", "System"),
         {0, 3, 2, 1, 4, 5}, {1, 2, 2, 2, 2, 1}, {5, 10, 10, 10, 10, 5}},
        {"half rate", up("Down", "System", "0.5") + gainGraph("Half", "Down", "out") + up("Up", "Half", "2"),
         {0, 1, 2}, {1, 0.5, 0.5}, {5, 3, 3}},  // 2.5 rounds up
        {"just under half", up("Down", "System", "0.4995") + gainGraph("Half", "Down", "out"),
         {0, 1}, {1, 0.4995}, {5, 2}},  // 2.4975 + 0.5 rounds down
        {"two sources of the host", gainGraph("B", "System", "1") + gainGraph("A", "System", "0") + twoInputs("C", "A", "B"),
         {1, 0, 2}, {1, 1, 1}, {5, 5, 5}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        auto driver = loadSystem(systemOf(c.graphs, ""));
        EXPECT_EQ(c.order, driver->getOrder());
        EXPECT_EQ(c.multipliers, driver->getMultipliers());
        driver->setSamplingRate(48000.0f);
        driver->setMaxBlockSize(5);
        for (size_t g = 0; g < c.multipliers.size(); ++g) {
            Graph& graph = *(*driver->getGraphs())[g];
            EXPECT_FLOAT_EQ(48000.0f * static_cast<float>(c.multipliers[g]), graph.getContext()->getSamplingRate());
            EXPECT_EQ(c.blockSizes[g], graph.getMaxBlockSize());
        }
    }
}

TEST(Driver, ChangedMultipliersTakeEffectAtTheNextBlock) {
    auto driver = loadSystem(kResampled);
    driver->setSamplingRate(48000.0f);
    driver->setMaxBlockSize(5);
    driver->getGraph("Up")->setMultiplier(4.0);
    driver->getGraph("Down")->setMultiplier(0.25);
    driver->invalidateMultipliers();
    EXPECT_FLOAT_EQ(96000.0f, driver->getGraph("Mid")->getContext()->getSamplingRate());
    EXPECT_EQ((std::vector<scalar>{1, 2, 3, 4, 5}), run(driver, {1, 2, 3, 4, 5}));
    EXPECT_FLOAT_EQ(192000.0f, driver->getGraph("Mid")->getContext()->getSamplingRate());
    EXPECT_EQ(20, driver->getGraph("Mid")->getMaxBlockSize());
    EXPECT_EQ((std::vector<double>{1, 4, 4, 1}), driver->getMultipliers());

    // Switching a resampling graph out (off or bypassed) changes the rates behind it, too.
    driver->getGraph("Up")->setProperty("Off", 1.0f);
    driver->getGraph("Down")->setProperty("Bypass", 1.0f);
    run(driver, {1, 2, 3});
    EXPECT_FLOAT_EQ(48000.0f, driver->getGraph("Mid")->getContext()->getSamplingRate());
    EXPECT_EQ(5, driver->getGraph("Mid")->getMaxBlockSize());
}

TEST(Driver, SuspensionAndAFailingBlockLeaveTheDriverFree) {
    auto driver = ready(single(2.0));
    EXPECT_EQ((std::vector<scalar>{2}), run(driver, {1}));  // no sampling rate needed
    driver->setSuspended(true);
    EXPECT_TRUE(driver->isSuspended());
    EXPECT_EQ("Driver: Cannot process. Driver is in the suspend state.", messageOf([&] { run(driver, {1}); }));
    driver->setSuspended(false);
    // Past the graph's block size: the graph refuses, and the Driver is not left busy.
    EXPECT_EQ("maxBlockSize is less than input size. DSPGraph name: A maxBlockSize: 4 input size:9",
              messageOf([&] { run(driver, std::vector<scalar>(9, 1.0f)); }));
    ASSERT_FALSE(driver->isProcessing());
    driver->setSuspended(true);  // would wait for ever on a busy Driver
    driver->setSuspended(false);
    std::vector<scalar> x{2, 3};
    std::vector<scalar*> inputs{x.data()};
    EXPECT_TRUE(driver->process(inputs, 2));  // true: this call ran the block
    EXPECT_EQ(6.0f, driver->getOutputs()[0][1]);
}

TEST(Driver, ControlsReachGraphsAndElementsAtTheNextBlock) {
    std::string controls =
        "<Controls><Control Name=\"Level\" DisplayName=\"Level\" Value=\"0.5\"><Properties>"
        "<Property Name=\"Gain\" Graph=\"A\" Element=\"G\"/></Properties></Control>"
        "<Control Name=\"Stereo\" DisplayName=\"Stereo\" Value=\"0\"><Properties>"
        "<Property Name=\"Bypass\" Graph=\"B\"/><Property Name=\"Bypass_1\" Graph=\"B\"/>"
        "</Properties></Control></Controls>";
    auto driver = ready(systemOf(gainGraph("A", "System", "0") + gainGraph("B", "A", "out", 3.0),
                                 "<Output Graph=\"B\" Node=\"out\"/>", controls));
    auto& list = *driver->getControls();
    ASSERT_EQ(2u, list.size());
    EXPECT_EQ(1, list[1]->getIndex());
    EXPECT_EQ((std::vector<scalar>{1.5f}), run(driver, {1}));  // initial values arrive with the first block
    EXPECT_FALSE(driver->getGraph("B")->isBypassed());

    list[0]->setValue(0.25f);
    list[1]->setPropertyFunction((*list[1]->getProperties())[1], [](float v) { return 1.0f - v; });
    EXPECT_EQ((std::vector<scalar>{0.25f}), run(driver, {1}));
    EXPECT_TRUE(driver->getGraph("B")->isBypassed());  // request 1 holds it
    EXPECT_EQ(2, (*list[1]->getProperties())[1]->index);
}
