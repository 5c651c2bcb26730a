// DSP graphs: running order, the three processing methods with feedback, Off and Bypass requests,
// graph properties, and the sliding Buffer.

#include <gtest/gtest.h>

#include <cmath>

#include "engine/Buffer.h"
#include "engine/DSPGraph.h"
#include "support/TestSupport.h"

using namespace vrn;
using orm_test::loadError;
using orm_test::loadSystem;

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
std::string fixedPointGraph(const std::string& maxIterations) {
    return loopGraph("<Properties ProcessingMethod=\"Iterative\" RelativeTollerance=\"1e-6\" AbsoluteTollerance=\"1e-6\""
                     " MaxIterations=\"" + maxIterations + "\"/>", "R");
}

std::vector<scalar> run(const std::shared_ptr<Driver>& driver, std::vector<scalar> input, int output = 0) {
    std::vector<scalar*> inputs{input.data(), input.data()};
    driver->process(inputs, input.size());
    scalar* out = driver->getOutputs()[static_cast<size_t>(output)];
    return std::vector<scalar>(out, out + input.size());
}

DSPGraph& dspGraph(const std::shared_ptr<Driver>& driver, const std::string& name) {
    return dynamic_cast<DSPGraph&>(*driver->getGraph(name));
}

}  // namespace

TEST(DSPGraph, BlockRefusesFeedbackAndSequentialDelaysItByOneSample) {
    EXPECT_EQ("Filters do not form a DAG.", loadError(loopGraph("")));

    auto driver = loadSystem(loopGraph("<Properties ProcessingMethod=\"Sequential\"/>"));
    driver->setMaxBlockSize(8);
    // The element first in the description (D) reads G's output of the previous sample:
    // y[n] = x[n] + 0.5·y[n−1].
    std::vector<scalar> y = run(driver, {1, 0, 0, 0, 2, 0});
    EXPECT_EQ((std::vector<scalar>{1, 0.5f, 0.25f, 0.125f, 2.0625f, 1.03125f}), y);
    std::vector<scalar> next = run(driver, {0, 0});  // the state carries across blocks
    EXPECT_FLOAT_EQ(1.03125f / 2, next[0]);
}

TEST(DSPGraph, IterativeConvergesToTheFixedPoint) {
    auto driver = loadSystem(fixedPointGraph("100"));
    driver->setMaxBlockSize(4);
    std::vector<scalar> y = run(driver, {1, 1, 1, 1});
    for (scalar value : y) EXPECT_NEAR(2.0f, value, 1e-5f);

    // One pass a sample: far from converged on the first sample.
    auto single = loadSystem(fixedPointGraph("1"));
    single->setMaxBlockSize(4);
    EXPECT_FLOAT_EQ(1.0f, run(single, {1})[0]);
}

TEST(DSPGraph, RunningOrderFollowsTheWiresNotTheDocument) {
    // C reads B, B reads A, but they stand as C, B, A.
    std::string xml =
        "<System><Graphs><Graph Name=\"Chain\" Type=\"DSP\"><NumberOfInputs>1</NumberOfInputs>"
        "<Inputs><Input Graph=\"System\" Node=\"0\"/></Inputs>"
        "<Element Type=\"Gain\" Name=\"C\"><Properties Gain=\"3\"/><Inputs><Input Port=\"in\" Element=\"B\" Output=\"out\"/></Inputs></Element>"
        "<Element Type=\"Gain\" Name=\"B\"><Properties Gain=\"2\"/><Inputs><Input Port=\"in\" Element=\"A\" Output=\"out\"/></Inputs></Element>"
        "<Element Type=\"Gain\" Name=\"A\"><Properties Gain=\"0.5\"/><Inputs><Input Port=\"in\" Element=\"Graph\" Output=\"0\"/></Inputs></Element>"
        "<Output><Node Name=\"out\" Element=\"C\" Index=\"0\"/></Output></Graph></Graphs>"
        "<Outputs><Output Graph=\"Chain\" Node=\"out\"/></Outputs></System>";
    auto driver = loadSystem(xml);
    driver->setMaxBlockSize(4);
    EXPECT_EQ((std::vector<int>{2, 1, 0}), dspGraph(driver, "Chain").getFilterOrder());
    EXPECT_EQ((std::vector<scalar>{3, 6}), run(driver, {1, 2}));
}

TEST(DSPGraph, OffAndBypassRequestsByIndex) {
    auto driver = loadSystem(orm_test::systemOf(orm_test::gainGraph("A", "System", "0", 2.0),
                                                "<Output Graph=\"A\" Node=\"out\"/>"));
    driver->setMaxBlockSize(4);
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
    EXPECT_EQ((std::vector<scalar>{2, 4}), run(driver, {1, 2}));
    graph.setProperty("Suspend", 1.0f);  // accepted, and changes nothing
    EXPECT_EQ((std::vector<scalar>{2, 4}), run(driver, {1, 2}));
    EXPECT_VRN_MESSAGE(graph.setProperty("Mute", 1.0f), InvalidArgumentException, "Graph: Unknown property Mute");
    EXPECT_VRN_MESSAGE(graph.setProperty("_", 1.0f), InvalidArgumentException, "Graph: Unknown property _");
}

TEST(DSPGraph, BypassNeedsAsManyInputsAsOutputsButOffDoesNot) {
    std::string xml =
        "<System><Graphs><Graph Name=\"Two\" Type=\"DSP\"><NumberOfInputs>2</NumberOfInputs>"
        "<Inputs><Input Graph=\"System\" Node=\"0\"/><Input Graph=\"System\" Node=\"1\"/></Inputs>"
        "<Element Type=\"DifferentialFilter\" Name=\"D\"><Properties Gain=\"1\"/><Inputs>"
        "<Input Port=\"plus\" Element=\"Graph\" Output=\"0\"/><Input Port=\"minus\" Element=\"Graph\" Output=\"1\"/>"
        "</Inputs></Element><Output><Node Name=\"out\" Element=\"D\" Port=\"out\"/></Output></Graph></Graphs>"
        "<Outputs><Output Graph=\"Two\" Node=\"out\"/></Outputs></System>";
    auto driver = loadSystem(xml);
    driver->setMaxBlockSize(4);
    Graph& graph = *driver->getGraph("Two");
    graph.setProperty("Bypass", 1.0f);  // accepted when set …
    EXPECT_VRN_MESSAGE(run(driver, {1, 2}), VRNException,
                       "DSPGraph: Cannot bypass a graph that does not have the same number of inputs and outputs. Graph name: Two");
    auto fresh = loadSystem(xml);
    fresh->setMaxBlockSize(4);
    fresh->getGraph("Two")->setProperty("Off", 1.0f);
    EXPECT_EQ((std::vector<scalar>{0, 0}), run(fresh, {1, 2}));
}

TEST(DSPGraph, MultipliersAndSuspension) {
    auto driver = loadSystem(orm_test::systemOf(
        orm_test::gainGraph("Up", "System", "0", 1.0, "Multiplier=\"2\"") +
            orm_test::gainGraph("Down", "Up", "out", 1.0, "Multiplier=\"0.5\""),
        "<Output Graph=\"Down\" Node=\"out\"/>"));
    Graph& up = *driver->getGraph("Up");
    EXPECT_DOUBLE_EQ(2.0, up.getOutputMultiplier());
    up.setProperty("Off", 1.0f);
    EXPECT_DOUBLE_EQ(1.0, up.getOutputMultiplier());  // switched out: the rate does not change
    up.setProperty("Off", 0.0f);
    EXPECT_VRN_MESSAGE(driver->getGraph("Down")->setProperty("Suspend", 1.0f), VRNException,
                       "Graph: Cannot suspend a graph with the multiplier not equal to 1. multiplier=0.5");
    EXPECT_VRN_MESSAGE(up.getOutput(1), InvalidArgumentException, "Graph: invalid output index: 1 Number of outputs: 1");
    EXPECT_VRN_MESSAGE(up.getResult("out"), VRNException, "Graph::getResult(std::string outputName) is not yet implemented.");
    EXPECT_VRN_MESSAGE(up.setNumberOfInputs(-1), InvalidArgumentException,
                       "Number of inputs must be greater than zero. Number of inputs =-1");
}

TEST(DSPGraph, BlockLimitsAndZeroFrames) {
    auto driver = loadSystem(orm_test::systemOf(orm_test::gainGraph("A", "System", "0", 2.0),
                                                "<Output Graph=\"A\" Node=\"out\"/>"));
    driver->setMaxBlockSize(4);
    Graph& graph = *driver->getGraph("A");
    std::vector<scalar> x(5, 1.0f);
    std::vector<scalar*> inputs{x.data()};
    EXPECT_VRN_MESSAGE(graph.process(inputs, 5), VRNException,
                       "maxBlockSize is less than input size. DSPGraph name: A maxBlockSize: 4 input size:5");
    graph.process(inputs, 0);
    EXPECT_VRN_MESSAGE(graph.setMaxBlockSize(0), VRNException, "DSPGraph: Invalid maxBlockSize0");

    auto sequential = loadSystem(loopGraph("<Properties ProcessingMethod=\"Sequential\"/>"));
    sequential->setMaxBlockSize(4);
    run(sequential, {});  // no frames: the state stays
    EXPECT_FLOAT_EQ(1.0f, run(sequential, {1})[0]);

}

TEST(Buffer, SlidesItsWindowForward) {
    EXPECT_VRN_MESSAGE(Buffer(0), InvalidArgumentException, "Buffer size cannot be less than 1. size=0");
    Buffer window(4);
    EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(window.getData()) % 64);
    EXPECT_EQ(4u, window.getCapacity());
    scalar a[3] = {1, 2, 3}, b[2] = {4, 5};
    window.push(a, 3);
    window.push(b, 2);
    EXPECT_EQ((std::vector<scalar>{2, 3, 4, 5}), std::vector<scalar>(window.getData(), window.getData() + 4));
    window.clear();
    EXPECT_EQ((std::vector<scalar>{0, 0, 0, 0}), std::vector<scalar>(window.getData(), window.getData() + 4));
}
