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

// A graph that subtracts the outputs of two other graphs.
std::string twoInputs(const std::string& name, const std::string& first, const std::string& second) {
    return "<Graph Name=\"" + name + "\" Type=\"DSP\"><NumberOfInputs>2</NumberOfInputs><Inputs>"
           "<Input Graph=\"" + first + "\" Node=\"out\"/><Input Graph=\"" + second + "\" Node=\"out\"/></Inputs>"
           "<Element Type=\"DifferentialFilter\" Name=\"G\"><Properties Gain=\"1\"/><Inputs>"
           "<Input Port=\"plus\" Element=\"Graph\" Output=\"0\"/><Input Port=\"minus\" Element=\"Graph\" Output=\"1\"/>"
           "</Inputs></Element><Output><Node Name=\"out\" Element=\"G\" Port=\"out\"/></Output></Graph>";
}

std::string up(const std::string& name, const std::string& source, const char* multiplier) {
    return gainGraph(name, source, "out", 1.0, std::string("Multiplier=\"") + multiplier + "\"");
}

// Up ×2, Mid, Down ×0.5, Out: the middle runs at twice the host's rate.
const std::string kResampled = systemOf(gainGraph("Up", "System", "0", 1.0, "Multiplier=\"2\"") + gainGraph("Mid", "Up", "out") +
                                            up("Down", "Mid", "0.5") + gainGraph("Out", "Down", "out"),
                                        "<Output Graph=\"Out\" Node=\"out\"/>");

std::vector<scalar> run(const std::shared_ptr<Driver>& driver, std::vector<scalar> left, size_t output = 0) {
    std::vector<scalar> right = left;
    std::vector<scalar*> inputs{left.data(), right.data()};
    driver->process(inputs, left.size());
    scalar* out = driver->getOutputs()[output];
    return std::vector<scalar>(out, out + left.size());
}

}  // namespace

// The graphs run after every graph they read; each runs at the rate its sources hand on, and gets
// floor(frames·multiplier + 0.5) frames of a block.
TEST(Driver, OrdersGraphsByTheirWiresAndDerivesTheirRates) {
    const struct {
        const char* label;
        std::string graphs;
        std::vector<int> order;
        std::vector<double> multipliers;
    } cases[] = {
        {"chain written backwards", gainGraph("C", "B", "out") + gainGraph("B", "A", "out") + gainGraph("A", "System", "0"),
         {2, 1, 0}, {1, 1, 1}},
        {"diamond", twoInputs("D", "B", "C") + gainGraph("C", "A", "out") + gainGraph("B", "A", "out") +
                        gainGraph("A", "System", "0"),
         {3, 2, 1, 0}, {1, 1, 1, 1}},
        {"resampled diamond", up("A", "System", "2") + twoInputs("D", "B", "C") + gainGraph("B", "A", "out") +
                                  gainGraph("C", "A", "out") + up("E", "D", "0.5") + twoInputs("F", "E", "System"),
         {0, 3, 2, 1, 4, 5}, {1, 2, 2, 2, 2, 1}},
        {"half rate", up("Down", "System", "0.5") + gainGraph("Half", "Down", "out") + up("Up", "Half", "2"),
         {0, 1, 2}, {1, 0.5, 0.5}},
        {"two sources of the host", gainGraph("B", "System", "1") + gainGraph("A", "System", "0") + twoInputs("C", "A", "B"),
         {1, 0, 2}, {1, 1, 1}},
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
            EXPECT_EQ(c.multipliers[g] == 0.5 ? 3 : static_cast<int>(5 * c.multipliers[g]), graph.getMaxBlockSize());
        }
    }
}

TEST(Driver, ChangedMultipliersTakeEffectAtTheNextBlock) {
    auto driver = loadSystem(kResampled);
    driver->setSamplingRate(48000.0f);
    driver->setMaxBlockSize(5);
    EXPECT_EQ(1u, driver->getNumberOfInputs());
    EXPECT_EQ(1u, driver->getNumberOfOutputs());
    driver->getGraph("Up")->setMultiplier(4.0);
    driver->getGraph("Down")->setMultiplier(0.25);
    driver->invalidateMultipliers();
    EXPECT_FLOAT_EQ(96000.0f, driver->getGraph("Mid")->getContext()->getSamplingRate());
    EXPECT_EQ((std::vector<scalar>{1, 2, 3, 4, 5}), run(driver, {1, 2, 3, 4, 5}));
    EXPECT_FLOAT_EQ(192000.0f, driver->getGraph("Mid")->getContext()->getSamplingRate());
    EXPECT_EQ(20, driver->getGraph("Mid")->getMaxBlockSize());
    EXPECT_EQ((std::vector<double>{1, 4, 4, 1}), driver->getMultipliers());

    // Switching a resampling graph out changes the rates behind it, too.
    driver->getGraph("Up")->setProperty("Bypass", 1.0f);
    driver->getGraph("Down")->setProperty("Bypass", 1.0f);
    run(driver, {1, 2, 3});
    EXPECT_FLOAT_EQ(48000.0f, driver->getGraph("Mid")->getContext()->getSamplingRate());
    EXPECT_EQ(5, driver->getGraph("Mid")->getMaxBlockSize());
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
        "<Property Name=\"Gain\" Graph=\"A\" Element=\"G\"/></Properties></Control>"
        "<Control Name=\"Stereo\" DisplayName=\"Stereo\" Value=\"0\"><Properties>"
        "<Property Name=\"Bypass\" Graph=\"B\"/><Property Name=\"Bypass_1\" Graph=\"B\"/>"
        "</Properties></Control></Controls>";
    auto driver = loadSystem(systemOf(gainGraph("A", "System", "0") + gainGraph("B", "A", "out", 3.0),
                                      "<Output Graph=\"B\" Node=\"out\"/>", controls));
    driver->setMaxBlockSize(4);
    auto& list = *driver->getControls();
    ASSERT_EQ(2u, list.size());
    EXPECT_EQ(1, list[1]->getIndex());
    EXPECT_EQ((std::vector<scalar>{1.5f}), run(driver, {1}));  // initial values arrive with the first block
    EXPECT_FALSE(driver->getGraph("B")->isBypassed());

    list[0]->setValue(0.25f);
    list[1]->setPropertyFunction((*list[1]->getProperties())[1], [](float v) { return 1.0f - v; });
    EXPECT_EQ((std::vector<scalar>{0.25f}), run(driver, {1}));
    EXPECT_TRUE(driver->getGraph("B")->isBypassed());  // request 1 holds it
    EXPECT_EQ(0.25f, list[0]->getValue());
    EXPECT_EQ(2, (*list[1]->getProperties())[1]->index);
}
