// The Driver: graph order, rates and block sizes from the multiplier chain, control delivery,
// refusals, and no allocation in steady state.

#include <gtest/gtest.h>

#include "support/TestSupport.h"

using namespace vrn;
using orm_test::gainGraph;
using orm_test::loadError;
using orm_test::loadSystem;
using orm_test::systemOf;

namespace {

std::string switchGraph(const std::string& name, const std::string& first, const std::string& second) {
    return "<Graph Name=\"" + name + "\" Type=\"DSP\"><NumberOfInputs>2</NumberOfInputs><Inputs>"
           "<Input Graph=\"" + first + "\" Node=\"out5\"/><Input Graph=\"" + second + "\" Node=\"out5\"/></Inputs>"
           "<Element Type=\"Switch\" Name=\"S\"><Properties NumberOfInputs=\"2\" Position=\"0\"/><Inputs>"
           "<Input Port=\"in_0\" Element=\"Graph\" Output=\"0\"/><Input Port=\"in_1\" Element=\"Graph\" Output=\"1\"/>"
           "</Inputs></Element><Output><Node Name=\"out\" Element=\"S\" Port=\"out\"/></Output></Graph>";
}

std::string branch(const std::string& name, const std::string& source, const std::string& off) {
    std::string graph = gainGraph(name, source, "out", 1.0);
    graph.replace(graph.find("Name=\"out\""), 10, "Name=\"out5\"");
    return graph.replace(graph.find("<NumberOfInputs>"), 0, "<Properties Off=\"" + off + "\"/>");
}

// One channel wired as the shipped amplifier, built from Gains and a Switch.
std::string channel(const std::string& s, const std::string& input) {
    return gainGraph("G1" + s, "System", input, 1.0, "Multiplier=\"2.0\"") + gainGraph("V1" + s, "G1" + s, "out") +
           branch("V2-out-Rg" + s, "V1" + s, "true") + branch("V2-out-Rg-lowCPU" + s, "V1" + s, "false") +
           switchGraph("Switch" + s, "V2-out-Rg-lowCPU" + s, "V2-out-Rg" + s) +
           gainGraph("G2" + s, "Switch" + s, "out", 1.0, "Multiplier=\"0.5\"") +
           gainGraph("out DC block" + s, "G2" + s, "out") + gainGraph("WaveConvolver" + s, "out DC block" + s, "out");
}

std::string amplifierShape(const std::string& controls = "") {
    return systemOf(channel("", "0") + channel("_S", "1"),
                    "<Output Graph=\"WaveConvolver\" Node=\"out\"/><Output Graph=\"WaveConvolver_S\" Node=\"out\"/>",
                    controls);
}

std::vector<scalar> run(const std::shared_ptr<Driver>& driver, std::vector<scalar> left, size_t output = 0) {
    std::vector<scalar> right = left;
    std::vector<scalar*> inputs{left.data(), right.data()};
    driver->process(inputs, left.size());
    scalar* out = driver->getOutputs()[output];
    return std::vector<scalar>(out, out + left.size());
}

}  // namespace

TEST(Driver, OrdersTheAmplifierGraphsSecondChannelFirst) {
    auto driver = loadSystem(amplifierShape());
    EXPECT_EQ((std::vector<int>{8, 9, 11, 10, 12, 13, 14, 15, 0, 1, 3, 2, 4, 5, 6, 7}), driver->getOrder());
    EXPECT_EQ(2u, driver->getNumberOfInputs());
    EXPECT_EQ(2u, driver->getNumberOfOutputs());
    EXPECT_EQ((std::vector<double>{1, 2, 2, 2, 2, 2, 1, 1, 1, 2, 2, 2, 2, 2, 1, 1}), driver->getMultipliers());
}

TEST(Driver, RatesAndBlockSizesFollowTheMultipliers) {
    auto driver = loadSystem(amplifierShape());
    driver->setSamplingRate(48000.0f);
    driver->setMaxBlockSize(5);
    EXPECT_FLOAT_EQ(96000.0f, driver->getGraph("V1")->getContext()->getSamplingRate());
    EXPECT_FLOAT_EQ(48000.0f, driver->getGraph("G1")->getContext()->getSamplingRate());
    EXPECT_EQ(10, driver->getGraph("G2")->getMaxBlockSize());
    EXPECT_EQ(5, driver->getGraph("out DC block")->getMaxBlockSize());

    // A change of multipliers takes effect at the next block, before any graph runs.
    driver->getGraph("G1")->setMultiplier(4.0);
    driver->getGraph("G2")->setMultiplier(0.25);
    driver->getGraph("G1_S")->setMultiplier(4.0);
    driver->getGraph("G2_S")->setMultiplier(0.25);
    driver->invalidateMultipliers();
    EXPECT_FLOAT_EQ(96000.0f, driver->getGraph("V1")->getContext()->getSamplingRate());
    std::vector<scalar> out = run(driver, {1, 2, 3, 4, 5});
    EXPECT_EQ((std::vector<scalar>{1, 2, 3, 4, 5}), out);
    EXPECT_FLOAT_EQ(192000.0f, driver->getGraph("V1")->getContext()->getSamplingRate());
    EXPECT_EQ(20, driver->getGraph("Switch")->getMaxBlockSize());
    EXPECT_DOUBLE_EQ(4.0, driver->getMultipliers()[1]);

    // Switching a resampling graph out changes the rates behind it, too.
    driver->getGraph("G1")->setProperty("Bypass", 1.0f);
    driver->getGraph("G2")->setProperty("Bypass", 1.0f);
    run(driver, {1, 2, 3});
    EXPECT_FLOAT_EQ(48000.0f, driver->getGraph("V1")->getContext()->getSamplingRate());
}

TEST(Driver, FramesPerGraphAreRoundedFromTheMultiplier) {
    // A graph at half rate gets floor(5·0.5 + 0.5) = 3 samples of a 5-frame block.
    auto driver = loadSystem(systemOf(gainGraph("Down", "System", "0", 1.0, "Multiplier=\"0.5\"") +
                                          gainGraph("Half", "Down", "out", 1.0) +
                                          gainGraph("Up", "Half", "out", 1.0, "Multiplier=\"2\""),
                                      "<Output Graph=\"Up\" Node=\"out\"/>"));
    driver->setMaxBlockSize(5);
    EXPECT_EQ(3, driver->getGraph("Half")->getMaxBlockSize());
    EXPECT_EQ(3, driver->getGraph("Up")->getMaxBlockSize());
}

TEST(Driver, RefusesInconsistentRatesAndCycles) {
    EXPECT_EQ("Invalid multiplier. Expected 1 but got 2",
              loadError(systemOf(gainGraph("Up", "System", "0", 1.0, "Multiplier=\"2\""), "<Output Graph=\"Up\" Node=\"out\"/>")));
    std::string mixed = gainGraph("Up", "System", "0", 1.0, "Multiplier=\"2\"") +
                        "<Graph Name=\"Both\" Type=\"DSP\"><NumberOfInputs>2</NumberOfInputs><Inputs>"
                        "<Input Graph=\"System\" Node=\"0\"/><Input Graph=\"Up\" Node=\"out\"/></Inputs>"
                        "<Element Type=\"Gain\" Name=\"G\"><Properties Gain=\"1\"/><Inputs>"
                        "<Input Port=\"in\" Element=\"Graph\" Output=\"0\"/></Inputs></Element>"
                        "<Output><Node Name=\"out\" Element=\"G\" Port=\"out\"/></Output></Graph>";
    EXPECT_EQ("Invalid input multipliers for graphBoth", loadError(systemOf(mixed, "")));
    std::string nearlyEqual = mixed;
    nearlyEqual.replace(nearlyEqual.find("Multiplier=\"2\""), 14, "Multiplier=\"1.00000000001\"");
    EXPECT_EQ("", loadError(systemOf(nearlyEqual, "<Output Graph=\"Both\" Node=\"out\"/>")));

    EXPECT_EQ("Graphs do not form a DAG.", loadError(systemOf(gainGraph("Self", "Self", "out"), "")));
    EXPECT_EQ("Graphs do not form a DAG.",
              loadError(systemOf(gainGraph("A", "B", "out") + gainGraph("B", "A", "out"), "")));
}

TEST(Driver, RefusesToProcessUntilReadyAndWhileSuspended) {
    auto driver = loadSystem(systemOf(gainGraph("A", "System", "0", 2.0), "<Output Graph=\"A\" Node=\"out\"/>"));
    EXPECT_VRN_MESSAGE(run(driver, {1}), VRNException, "Driver: Cannot process. maxBlockSize is not set.");
    EXPECT_VRN_MESSAGE(driver->setMaxBlockSize(0), InvalidArgumentException,
                       "Driver: maxBlockSize must be greater than zero. maxBlockSize=0");
    driver->setMaxBlockSize(8);
    EXPECT_VRN_MESSAGE(driver->setMaxBlockSize(-1), InvalidArgumentException,
                       "Driver: maxBlockSize must be greater than zero. maxBlockSize=-1");
    EXPECT_EQ(8, driver->getMaxBlockSize());
    EXPECT_EQ((std::vector<scalar>{2}), run(driver, {1}));  // no sampling rate needed
    driver->setSuspended(true);
    EXPECT_TRUE(driver->isSuspended());
    EXPECT_VRN_MESSAGE(run(driver, {1}), VRNException, "Driver: Cannot process. Driver is in the suspend state.");
    driver->setSuspended(false);
    EXPECT_FALSE(driver->isProcessing());
    EXPECT_EQ((std::vector<scalar>{4}), run(driver, {2}));
    EXPECT_VRN_MESSAGE(driver->getGraph("B"), InvalidArgumentException, "B is not a valid graph name.");

    auto uninitialised = Driver::create();
    std::vector<scalar*> none;
    EXPECT_VRN_MESSAGE(uninitialised->process(none, 1), VRNException, "Cannot process. Driver is not initialized.");
}

TEST(Driver, AFailingBlockLeavesTheDriverFreeAndAnOwnerFreesIt) {
    auto driver = loadSystem(systemOf(gainGraph("A", "System", "0", 2.0), "<Output Graph=\"A\" Node=\"out\"/>"));
    driver->setMaxBlockSize(4);
    std::vector<scalar> many(9, 1.0f);
    std::vector<scalar*> inputs{many.data()};
    // Past the graph's block size: the graph refuses, and the Driver is not left busy.
    EXPECT_THROW(driver->process(inputs, 9), VRNException);
    ASSERT_FALSE(driver->isProcessing());
    driver->setSuspended(true);  // would wait for ever on a busy Driver
    driver->setSuspended(false);
    EXPECT_TRUE(driver->process(inputs, 3));
    EXPECT_EQ(2.0f, driver->getOutputs()[0][2]);

    // The contexts point back to the Driver without owning it: the last outside reference frees it.
    std::weak_ptr<Driver> watch = driver;
    std::weak_ptr<Graph> graph = driver->getGraph("A");
    driver.reset();
    EXPECT_TRUE(watch.expired());
    EXPECT_TRUE(graph.expired());
}

TEST(Driver, PassesSystemInputsStraightToOutputs) {
    auto driver = loadSystem(systemOf(gainGraph("A", "System", "0", 2.0),
                                      "<Output Graph=\"System\" Node=\"1\"/><Output Graph=\"A\" Node=\"out\"/>"));
    driver->setMaxBlockSize(4);
    std::vector<scalar> left{1, 2}, right{5, 6};
    std::vector<scalar*> inputs{left.data(), right.data()};
    driver->process(inputs, 2);
    EXPECT_EQ(right.data(), driver->getOutputs()[0]);
    EXPECT_EQ(4.0f, driver->getOutputs()[1][1]);
}

TEST(Driver, ControlsReachGraphsAndElementsAtTheNextBlock) {
    std::string controls =
        "<Controls><Control Name=\"Level\" DisplayName=\"Level\" Value=\"0.5\"><Properties>"
        "<Property Name=\"Gain\" Graph=\"out DC block\" Element=\"G\"/><Property Name=\"Gain\" Graph=\"out DC block_S\" Element=\"G\"/>"
        "</Properties></Control>"
        "<Control Name=\"Stereo\" DisplayName=\"Stereo\" Value=\"0\"><Properties>"
        "<Property Name=\"Bypass\" Graph=\"WaveConvolver_S\"/><Property Name=\"Bypass_1\" Graph=\"WaveConvolver_S\"/>"
        "</Properties></Control></Controls>";
    auto driver = loadSystem(amplifierShape(controls));
    driver->setMaxBlockSize(4);
    auto& list = *driver->getControls();
    ASSERT_EQ(2u, list.size());
    EXPECT_EQ(1, list[1]->getIndex());
    EXPECT_EQ((std::vector<scalar>{0.5f}), run(driver, {1}));  // initial values arrive with the first block
    EXPECT_FALSE(driver->getGraph("WaveConvolver_S")->isBypassed());

    list[0]->setValue(0.25f);
    list[1]->setPropertyFunction((*list[1]->getProperties())[1], [](float v) { return 1.0f - v; });
    EXPECT_EQ((std::vector<scalar>{0.25f}), run(driver, {1}));
    EXPECT_TRUE(driver->getGraph("WaveConvolver_S")->isBypassed());  // request 1 holds it
    EXPECT_EQ(0.25f, list[0]->getValue());
    EXPECT_EQ(3, (*list[1]->getProperties())[1]->index);
}

TEST(Driver, RefusesBadPropertyBindings) {
    auto control = [](const std::string& properties) {
        return "<Controls><Control Name=\"C\" DisplayName=\"C\" Value=\"0\"><Properties>" + properties +
               "</Properties></Control></Controls>";
    };
    auto system = [&](const std::string& properties) {
        return systemOf(gainGraph("A", "System", "0"), "<Output Graph=\"A\" Node=\"out\"/>", control(properties));
    };
    EXPECT_EQ("Driver: Multiple definitions of the same property. Property name: Gain graph: A element: G",
              loadError(system("<Property Name=\"Gain\" Graph=\"A\" Element=\"G\"/><Property Name=\"Gain\" Graph=\"A\" Element=\"G\"/>")));
    EXPECT_EQ("Invalid Property: Invalid graph name B. Property, name=Gain",
              loadError(system("<Property Name=\"Gain\" Graph=\"B\" Element=\"G\"/>")));
    EXPECT_EQ("Invalid Property: Invalid element name H. Property, name=Gain",
              loadError(system("<Property Name=\"Gain\" Graph=\"A\" Element=\"H\"/>")));
    EXPECT_EQ("", loadError(system("<Property Name=\"Bypass\" Graph=\"A\"/><Property Name=\"Bypass_1\" Graph=\"A\"/>")));
}
