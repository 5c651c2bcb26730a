// The system description format: what it reads and every message for what it cannot.

#include <gtest/gtest.h>

#include "support/TestSupport.h"

using namespace vrn;
using orm_test::gainGraph;
using orm_test::loadError;
using orm_test::loadSystem;
using orm_test::systemOf;

namespace {

const std::string kOutput = "<Output Graph=\"A\" Node=\"out\"/>";

std::string withGraph(const std::string& graph, const std::string& outputs = "") { return systemOf(graph, outputs); }

std::string element(const std::string& inputs, const std::string& extra = "") {
    return "<Graph Name=\"A\" Type=\"DSP\"><NumberOfInputs>1</NumberOfInputs><Inputs><Input Graph=\"System\" Node=\"0\"/></Inputs>"
           "<Element Type=\"Gain\" Name=\"G\"><Properties Gain=\"1\"/><Inputs>" + inputs + "</Inputs></Element>" + extra +
           "</Graph>";
}

std::string control(const std::string& attributes, const std::string& body) {
    return "<Controls><Control " + attributes + ">" + body + "</Control></Controls>";
}

}  // namespace

TEST(Parser, GraphLevelMessages) {
    EXPECT_EQ("Cannot load xml document. Error: Start-end tags mismatch", loadError("<System></Graphs>"));
    EXPECT_EQ("Cannot load xml document. Error: Unknown error", loadError(""));
    EXPECT_EQ("No graphs to parse.", loadError("<System><Graphs/></System>"));
    EXPECT_EQ("No graphs to parse.", loadError("<System><Graphs><!-- <Graph Name=\"A\" Type=\"DSP\"/> --></Graphs></System>"));
    EXPECT_EQ("Graph name is not specified", loadError(withGraph("<Graph Type=\"DSP\"/>")));
    EXPECT_EQ("\"System\" is a reserved graph name.", loadError(withGraph("<Graph Name=\"System\" Type=\"DSP\"/>")));
    EXPECT_EQ("Graph type is not specified", loadError(withGraph("<Graph Name=\"A\"/>")));
    EXPECT_EQ("Graph type dsp is not a valid type. Graph: A", loadError(withGraph("<Graph Name=\"A\" Type=\"dsp\"/>")));
    EXPECT_EQ("No elements in graph A", loadError(withGraph("<Graph Name=\"A\" Type=\"DSP\"/>")));
    for (const char* multiplier : {"0", "-1", ""})
        EXPECT_EQ(std::string("Invalid Graph Multiplier. Graph: A Multiplier: ") + multiplier,
                  loadError(withGraph(gainGraph("A", "System", "0", 1.0, std::string("Multiplier=\"") + multiplier + "\""))));
}

TEST(Parser, GraphInputsAndSystemOutputs) {
    EXPECT_EQ("Input without a graph name.", loadError(withGraph(gainGraph("A", "System", "0").replace(
                                                 gainGraph("A", "System", "0").find("Graph=\"System\""), 14, ""))));
    EXPECT_EQ("Invalid input graph: B", loadError(withGraph(gainGraph("A", "B", "out"))));
    EXPECT_EQ("Cannot find output node x", loadError(withGraph(gainGraph("A", "System", "0") + gainGraph("B", "A", "x"))));
    EXPECT_EQ("Output without a Graph name.", loadError(systemOf(gainGraph("A", "System", "0"), "<Output Node=\"out\"/>")));
    EXPECT_EQ("Invalid system output graph name B", loadError(systemOf(gainGraph("A", "System", "0"), "<Output Graph=\"B\" Node=\"out\"/>")));
    EXPECT_EQ("Output without a Node name.", loadError(systemOf(gainGraph("A", "System", "0"), "<Output Graph=\"A\"/>")));
    EXPECT_EQ("Cannot find output node o for graph A",
              loadError(systemOf(gainGraph("A", "System", "0"), "<Output Graph=\"A\" Node=\"o\"/>")));

    // A source may stand later in the document; "System" nodes are host channels.
    auto driver = loadSystem(systemOf(gainGraph("B", "A", "out", 3.0) + gainGraph("A", "System", "1", 2.0),
                                      "<Output Graph=\"B\" Node=\"out\"/>"));
    driver->setMaxBlockSize(2);
    std::vector<scalar> left{1}, right{5};
    std::vector<scalar*> inputs{left.data(), right.data()};
    driver->process(inputs, 1);
    EXPECT_EQ(30.0f, driver->getOutputs()[0][0]);
}

TEST(Parser, ElementMessages) {
    EXPECT_EQ("Unknown element type: Valve",
              loadError(withGraph("<Graph Name=\"A\" Type=\"DSP\"><Element Type=\"Valve\" Name=\"V\"/></Graph>")));
    EXPECT_EQ("Element name is not specified. Graph: A",
              loadError(withGraph("<Graph Name=\"A\" Type=\"DSP\"><Element Type=\"Gain\"><Properties Gain=\"1\"/></Element></Graph>")));
    EXPECT_EQ("Input without a Port name.", loadError(withGraph(element("<Input Element=\"Graph\" Output=\"0\"/>"))));
    EXPECT_EQ("Input without an Element name.", loadError(withGraph(element("<Input Port=\"in\" Output=\"0\"/>"))));
    EXPECT_EQ("Cannot find input filter with name H", loadError(withGraph(element("<Input Port=\"in\" Element=\"H\" Output=\"0\"/>"))));
    EXPECT_EQ("Input without an Output port.", loadError(withGraph(element("<Input Port=\"in\" Element=\"Graph\"/>"))));
    EXPECT_EQ("Invalid input port name: inn. Expected \"in\".",
              loadError(withGraph(element("<Input Port=\"inn\" Element=\"Graph\" Output=\"0\"/>"))));
    EXPECT_EQ("Output Node without a name.", loadError(withGraph(element("", "<Output><Node Element=\"G\" Port=\"out\"/></Output>"))));
    EXPECT_EQ("Output Node without an Element attribute.", loadError(withGraph(element("", "<Output><Node Name=\"o\" Port=\"out\"/></Output>"))));
    EXPECT_EQ("Cannot find output filter with name H",
              loadError(withGraph(element("", "<Output><Node Name=\"o\" Element=\"H\" Port=\"out\"/></Output>"))));
    EXPECT_EQ("Output Node without a Port or an Index attribute.",
              loadError(withGraph(element("", "<Output><Node Name=\"o\" Element=\"G\"/></Output>"))));
    auto switchWith = [](const std::string& port) {
        return withGraph("<Graph Name=\"A\" Type=\"DSP\"><Element Type=\"Switch\" Name=\"S\">"
                         "<Properties NumberOfInputs=\"2\"/><Inputs><Input Port=\"" + port +
                         "\" Element=\"Graph\" Output=\"0\"/></Inputs></Element></Graph>");
    };
    EXPECT_EQ("SwitchMeta: Invalid input port in_2, NumberOfInputs=2", loadError(switchWith("in_2")));
    EXPECT_EQ("Invalid input port name: in0. INput port name must start with \"in_\" followed by a number.",
              loadError(switchWith("in0")));
}

TEST(Parser, ControlMessages) {
    const std::string graph = gainGraph("A", "System", "0");
    auto error = [&](const std::string& controls) { return loadError(systemOf(graph, kOutput, controls)); };
    const std::string properties = "<Properties><Property Name=\"Gain\" Graph=\"A\" Element=\"G\"/></Properties>";
    EXPECT_EQ("Control without a name.", error(control("DisplayName=\"D\" Value=\"0\"", properties)));
    EXPECT_EQ("Control without a display name. Control name: C", error(control("Name=\"C\" Value=\"0\"", properties)));
    EXPECT_EQ("Control without a Value. Control name: C", error(control("Name=\"C\" DisplayName=\"D\"", properties)));
    EXPECT_EQ("Control without properties. Control name: C", error(control("Name=\"C\" DisplayName=\"D\" Value=\"0\"", "")));
    EXPECT_EQ("Property without a name.",
              error(control("Name=\"C\" DisplayName=\"D\" Value=\"0\"", "<Properties><Property Graph=\"A\"/></Properties>")));
    EXPECT_EQ("Property without a graph. Property name: Gain",
              error(control("Name=\"C\" DisplayName=\"D\" Value=\"0\"", "<Properties><Property Name=\"Gain\"/></Properties>")));
    EXPECT_EQ("Unknown property type scalar",
              error(control("Name=\"C\" DisplayName=\"D\" Value=\"0\"",
                            "<Properties><Property Name=\"Gain\" Graph=\"A\" Element=\"G\" Type=\"scalar\"/></Properties>")));
}

TEST(Parser, ReadsTheDocumentAsWritten) {
    // Spaces around "=", comments, unknown attributes and children, Port and Index node forms,
    // the first of two nodes of one name, controls with their widget data.
    std::string xml =
        "<?xml version=\"1.0\"?><System><!-- a comment --><Graphs>"
        "<Graph Name=\"A\" Type=\"DSP\" Colour=\"red\"><NumberOfInputs>1</NumberOfInputs><Remark>ignored</Remark>"
        "<Inputs><Input Graph=\"System\" Node=\"abc\"/></Inputs>"
        "<Element Type=\"Gain\" Name=\"1\"><Properties Gain = \"0.25\" InputIndex=\"0\"/>"
        "<Inputs><Input Port=\"in\" Element=\"Graph\" Output=\"0\"/></Inputs></Element>"
        "<Element Type=\"Gain\" Name=\"2\"><Properties Gain=\"4\"/>"
        "<Inputs><Input Port=\"in\" Element=\"1\" Output=\"out\"/></Inputs></Element>"
        "<Output><Node Name=\"x\" Element=\"1\" Index=\"0\"/><Node Name=\"x\" Element=\"2\" Port=\"out\"/></Output></Graph>"
        "</Graphs><Outputs><Output Graph=\"A\" Node=\"x\"/></Outputs>"
        "<Controls><Control Name=\"Vol\" DisplayName=\"Output\" Value=\"0.75\">"
        "<UIProperties Image=\"knob.png\" ControlType=\"CAnimKnob\" X=\"465\" Y=\"272\" Width=\"66\" Height=\"66\""
        " NumberOfImages=\"101\" HeightOfOneImage=\"66\"/>"
        "<Properties><Property Name=\"Gain\" Graph=\"A\" Element=\"2\" Type=\"Scalar\"/></Properties></Control></Controls>"
        "</System>";
    auto driver = loadSystem(xml);
    driver->setMaxBlockSize(2);
    std::vector<scalar> x{2};
    std::vector<scalar*> inputs{x.data()};  // Node "abc" reads as host channel 0
    driver->process(inputs, 1);
    EXPECT_EQ(0.5f, driver->getOutputs()[0][0]);  // the first node named x: element 1
    auto& control = *(*driver->getControls())[0];
    EXPECT_EQ("Output", control.getDisplayName());
    EXPECT_EQ(0.75f, control.getValue());
    EXPECT_EQ("knob.png", control.getImage());
    EXPECT_EQ(101, control.getNumberOfImages());
    EXPECT_EQ(465, control.getX());
    EXPECT_EQ(66, control.getHeight());
}
