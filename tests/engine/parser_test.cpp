// The system description format: what it reads, and every message for what it cannot load
// (from the parser, the graphs' checks and the Driver's).

#include <gtest/gtest.h>

#include "support/TestSupport.h"

using namespace vrn;
using orm_test::gainGraph;
using orm_test::loadError;
using orm_test::loadSystem;
using orm_test::systemOf;

namespace {

const std::string kOutput = "<Output Graph=\"A\" Node=\"out\"/>";

std::string edit(std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
}

std::string graphOf(const std::string& body, const std::string& properties = "") {
    return "<Graph Name=\"A\" Type=\"DSP\">" + properties +
           "<NumberOfInputs>1</NumberOfInputs><Inputs><Input Graph=\"System\" Node=\"0\"/></Inputs>" + body + "</Graph>";
}

// One Gain G reading the given inputs, then extra (an Output section).
std::string element(const std::string& inputs, const std::string& extra = "") {
    return systemOf(graphOf("<Element Type=\"Gain\" Name=\"G\"><Properties Gain=\"1\"/><Inputs>" + inputs +
                            "</Inputs></Element>" + extra), "");
}

std::string switchWith(const std::string& inputs, const std::string& port) {
    return systemOf(graphOf("<Element Type=\"Switch\" Name=\"S\"><Properties NumberOfInputs=\"" + inputs +
                            "\"/><Inputs><Input Port=\"" + port + "\" Element=\"Graph\" Output=\"0\"/></Inputs></Element>"
                            "<Output><Node Name=\"out\" Element=\"S\" Port=\"out\"/></Output>"), kOutput);
}

std::string iterative(const std::string& tolerances) {
    return element("<Input Port=\"in\" Element=\"Graph\" Output=\"0\"/>").replace(
        std::string("<System><Graphs><Graph Name=\"A\" Type=\"DSP\">").size(), 0,
        "<Properties ProcessingMethod=\"Iterative\" " + tolerances + "/>");
}

std::string control(const std::string& attributes, const std::string& properties) {
    return systemOf(gainGraph("A", "System", "0"), kOutput,
                    "<Controls><Control " + attributes + ">" + properties + "</Control></Controls>");
}

std::string binding(const std::string& properties) {
    return control("Name=\"C\" DisplayName=\"D\" Value=\"0\"", "<Properties>" + properties + "</Properties>");
}

// A graph "Both" reading the host and graph Up, whose multiplier is given.
std::string mixedRates(const std::string& multiplier, const std::string& outputs) {
    return systemOf(gainGraph("Up", "System", "0", 1.0, "Multiplier=\"" + multiplier + "\"") +
                        "<Graph Name=\"Both\" Type=\"DSP\"><NumberOfInputs>2</NumberOfInputs><Inputs>"
                        "<Input Graph=\"System\" Node=\"0\"/><Input Graph=\"Up\" Node=\"out\"/></Inputs>"
                        "<Element Type=\"Gain\" Name=\"G\"><Properties Gain=\"1\"/><Inputs>"
                        "<Input Port=\"in\" Element=\"Graph\" Output=\"0\"/></Inputs></Element>"
                        "<Output><Node Name=\"out\" Element=\"G\" Port=\"out\"/></Output></Graph>",
                    outputs);
}

}  // namespace

TEST(Parser, LoadFailuresNameTheirCause) {
    const std::string gain = gainGraph("A", "System", "0");
    const std::string wired = "<Input Port=\"in\" Element=\"Graph\" Output=\"0\"/>";
    const std::string named = "Name=\"C\" DisplayName=\"D\" Value=\"0\"";
    const std::string property = "<Properties><Property Name=\"Gain\" Graph=\"A\" Element=\"G\"/></Properties>";
    const struct {
        std::string description;
        std::string message;  // "" when it loads
    } cases[] = {
        {"<System></Graphs>", "Cannot load xml document. Error: Start-end tags mismatch"},
        {"", "Cannot load xml document. Error: Unknown error"},
        {"<System><Graphs/></System>", "No graphs to parse."},
        {"<System><Graphs><!-- <Graph Name=\"A\" Type=\"DSP\"/> --></Graphs></System>", "No graphs to parse."},
        {systemOf("<Graph Type=\"DSP\"/>", ""), "Graph name is not specified"},
        {systemOf("<Graph Name=\"System\" Type=\"DSP\"/>", ""), "\"System\" is a reserved graph name."},
        {systemOf("<Graph Name=\"A\"/>", ""), "Graph type is not specified"},
        {systemOf("<Graph Name=\"A\" Type=\"dsp\"/>", ""), "Graph type dsp is not a valid type. Graph: A"},
        {systemOf("<Graph Name=\"A\" Type=\"DSP\"/>", ""), "No elements in graph A"},
        {edit(systemOf(gain, kOutput), "Type=\"DSP\"", "Type=\"DSP\" Multiplier=\"0\""),
         "Invalid Graph Multiplier. Graph: A Multiplier: 0"},
        {edit(systemOf(gain, kOutput), "Type=\"DSP\"", "Type=\"DSP\" Multiplier=\"-1\""),
         "Invalid Graph Multiplier. Graph: A Multiplier: -1"},
        {edit(systemOf(gain, kOutput), "Type=\"DSP\"", "Type=\"DSP\" Multiplier=\"\""),
         "Invalid Graph Multiplier. Graph: A Multiplier: "},
        // Graph inputs and system outputs.
        {systemOf(edit(gain, "Graph=\"System\"", ""), ""), "Input without a graph name."},
        {systemOf(edit(gain, "Node=\"0\"", ""), ""), "Input without a Node name."},
        {systemOf(gainGraph("A", "B", "out"), ""), "Invalid input graph: B"},
        {systemOf(gain + gainGraph("B", "A", "x"), ""), "Cannot find output node x"},
        {systemOf(gain, "<Output Node=\"out\"/>"), "Output without a Graph name."},
        {systemOf(gain, "<Output Graph=\"B\" Node=\"out\"/>"), "Invalid system output graph name B"},
        {systemOf(gain, "<Output Graph=\"A\"/>"), "Output without a Node name."},
        {systemOf(gain, "<Output Graph=\"A\" Node=\"o\"/>"), "Cannot find output node o for graph A"},
        // Elements, their wiring and the graph's output nodes.
        {systemOf(graphOf("<Element Type=\"Valve\" Name=\"V\"/>"), ""), "Unknown element type: Valve"},
        {systemOf(graphOf("<Element Type=\"Gain\"><Properties Gain=\"1\"/></Element>"), ""),
         "Element name is not specified. Graph: A"},
        {element("<Input Element=\"Graph\" Output=\"0\"/>"), "Input without a Port name."},
        {element("<Input Port=\"in\" Output=\"0\"/>"), "Input without an Element name."},
        {element("<Input Port=\"in\" Element=\"H\" Output=\"0\"/>"), "Cannot find input filter with name H"},
        {element("<Input Port=\"in\" Element=\"Graph\"/>"), "Input without an Output port."},
        {element("<Input Port=\"inn\" Element=\"Graph\" Output=\"0\"/>"), "Invalid input port name: inn. Expected \"in\"."},
        {element(wired, "<Output><Node Element=\"G\" Port=\"out\"/></Output>"), "Output Node without a name."},
        {element(wired, "<Output><Node Name=\"o\" Port=\"out\"/></Output>"), "Output Node without an Element attribute."},
        {element(wired, "<Output><Node Name=\"o\" Element=\"H\" Port=\"out\"/></Output>"),
         "Cannot find output filter with name H"},
        {element(wired, "<Output><Node Name=\"o\" Element=\"G\"/></Output>"),
         "Output Node without a Port or an Index attribute."},
        {element(wired, "<Output><Node Name=\"o\" Element=\"G\" Index=\"1\"/></Output>"),
         "DSPGraph: Invalid output index 1 of element G. Graph: A"},
        {element(wired, "<Output><Node Name=\"o\" Element=\"G\" Index=\"-1\"/></Output>"),
         "DSPGraph: Invalid output index -1 of element G. Graph: A"},
        {element("<Input Port=\"in\" Element=\"Graph\" Output=\"1\"/>"),
         "DSPGraph: Invalid graph input 1 for element G. Graph: A, number of inputs: 1"},
        {element("<Input Port=\"in\" Element=\"Graph\" Output=\"-3\"/>"),
         "DSPGraph: Invalid graph input -3 for element G. Graph: A, number of inputs: 1"},
        {edit(element(wired), "<NumberOfInputs>1", "<NumberOfInputs>0"),
         "Invalid number of outputs for DSPGraph A, number of outputs: 0"},
        {switchWith("2", "in_2"), "SwitchMeta: Invalid input port in_2, NumberOfInputs=2"},
        {switchWith("2", "in0"),
         "Invalid input port name: in0. INput port name must start with \"in_\" followed by a number."},
        {switchWith("4096", "in_4095"), ""},  // the most ports an element may have
        {switchWith("4097", "in_0"), "Element S has too many input ports: 4097. Graph: A"},
        // The processing method's properties.
        {edit(element(wired), "<NumberOfInputs>", "<Properties ProcessingMethod=\"block\"/><NumberOfInputs>"),
         "DSPGraph: Invalid ProcessingMethod property block"},
        {iterative(""), "DSPGraph: RelativeTollerance is not defined."},
        {iterative("RelativeTollerance=\"0\""), "DSPGraph: RelativeTollerance must be greater than 0. relativeTollerance=0"},
        {iterative("RelativeTollerance=\"1\""), "DSPGraph: AbsoluteTollerance is not defined."},
        {iterative("RelativeTollerance=\"1\" AbsoluteTollerance=\"0\""),
         "DSPGraph: AbsoluteTollerance must be greater than 0. AbsoluteTollerance=0"},
        {iterative("RelativeTollerance=\"1\" AbsoluteTollerance=\"1\""), "DSPGraph: MaxIterations is not defined."},
        {iterative("RelativeTollerance=\"1\" AbsoluteTollerance=\"1\" MaxIterations=\"0\""),
         "DSPGraph: MaxIterations must be greater than 0. MaxIterations=0"},
        {iterative("RelativeTollerance=\"1e-9\" AbsoluteTollerance=\"1e-9\" MaxIterations=\"1\""), ""},
        // Controls and what they bind to.
        {control("DisplayName=\"D\" Value=\"0\"", property), "Control without a name."},
        {control("Name=\"C\" Value=\"0\"", property), "Control without a display name. Control name: C"},
        {control("Name=\"C\" DisplayName=\"D\"", property), "Control without a Value. Control name: C"},
        {control(named, ""), "Control without properties. Control name: C"},
        {binding("<Property Graph=\"A\"/>"), "Property without a name."},
        {binding("<Property Name=\"Gain\"/>"), "Property without a graph. Property name: Gain"},
        {binding("<Property Name=\"Gain\" Graph=\"A\" Element=\"G\" Type=\"scalar\"/>"), "Unknown property type scalar"},
        {binding("<Property Name=\"Gain\" Graph=\"A\" Element=\"G\"/><Property Name=\"Gain\" Graph=\"A\" Element=\"G\"/>"),
         "Driver: Multiple definitions of the same property. Property name: Gain graph: A element: G"},
        {binding("<Property Name=\"Gain\" Graph=\"B\" Element=\"G\"/>"),
         "Invalid Property: Invalid graph name B. Property, name=Gain"},
        {binding("<Property Name=\"Gain\" Graph=\"A\" Element=\"H\"/>"),
         "Invalid Property: Invalid element name H. Property, name=Gain"},
        {binding("<Property Name=\"Bypass\" Graph=\"A\"/><Property Name=\"Bypass_1\" Graph=\"A\"/>"), ""},
        // Rates and the order of the graphs.
        {systemOf(gainGraph("Up", "System", "0", 1.0, "Multiplier=\"2\""), "<Output Graph=\"Up\" Node=\"out\"/>"),
         "Invalid multiplier. Expected 1 but got 2"},
        {mixedRates("2", ""), "Invalid input multipliers for graphBoth"},
        {mixedRates("1.0000001", ""), "Invalid input multipliers for graphBoth"},
        {mixedRates("1.00000000001", "<Output Graph=\"Both\" Node=\"out\"/>"), ""},
        {systemOf(gainGraph("Self", "Self", "out"), ""), "Graphs do not form a DAG."},
        {systemOf(gainGraph("A", "B", "out") + gainGraph("B", "A", "out"), ""), "Graphs do not form a DAG."},
    };
    for (const auto& c : cases) EXPECT_EQ(c.message, loadError(c.description)) << c.description;
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
        " NumberOfImages=\"101\" HeightOfOneImage=\"66.5\"/>"
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
    EXPECT_EQ("CAnimKnob", control.getControlType());
    EXPECT_EQ(101, control.getNumberOfImages());
    EXPECT_EQ(465, control.getX());
    EXPECT_EQ(66, control.getHeight());
    EXPECT_DOUBLE_EQ(66.5, control.getHeightOfOneImage());
}

// Graph A names three outputs; the later graphs and the system outputs pick them by name, and a
// Sequential graph takes three graph inputs from two graphs, in the order they are listed.
TEST(Parser, OutputNodesByNameAndSeveralGraphInputsInOrder) {
    auto gain = [](const std::string& name, const std::string& value) {
        return "<Element Type=\"Gain\" Name=\"" + name + "\"><Properties Gain=\"" + value +
               "\"/><Inputs><Input Port=\"in\" Element=\"Graph\" Output=\"0\"/></Inputs></Element>";
    };
    auto difference = [](const std::string& name, const std::string& plus, const std::string& minus) {
        return "<Element Type=\"DifferentialFilter\" Name=\"" + name + "\"><Properties Gain=\"1\"/><Inputs>" + plus +
               minus + "</Inputs></Element>";
    };
    const std::string graphs =
        graphOf(gain("Ga", "2") + gain("Gb", "3") + gain("Gc", "5") +
                "<Output><Node Name=\"a\" Element=\"Ga\" Port=\"out\"/><Node Name=\"b\" Element=\"Gb\" Port=\"out\"/>"
                "<Node Name=\"c\" Element=\"Gc\" Port=\"out\"/></Output>") +
        edit(gainGraph("B", "System", "1", 7.0), "Name=\"out\"", "Name=\"seven\"") +
        "<Graph Name=\"S\" Type=\"DSP\"><Properties ProcessingMethod=\"Sequential\"/><NumberOfInputs>3</NumberOfInputs>"
        "<Inputs><Input Graph=\"A\" Node=\"c\"/><Input Graph=\"B\" Node=\"seven\"/><Input Graph=\"A\" Node=\"b\"/></Inputs>" +
        difference("D", "<Input Port=\"plus\" Element=\"Graph\" Output=\"0\"/>", "<Input Port=\"minus\" Element=\"E\" Output=\"out\"/>") +
        difference("E", "<Input Port=\"plus\" Element=\"Graph\" Output=\"1\"/>", "<Input Port=\"minus\" Element=\"Graph\" Output=\"2\"/>") +
        "<Output><Node Name=\"y\" Element=\"D\" Port=\"out\"/><Node Name=\"e\" Element=\"E\" Port=\"out\"/></Output></Graph>";
    auto driver = loadSystem(systemOf(graphs, "<Output Graph=\"S\" Node=\"y\"/><Output Graph=\"S\" Node=\"e\"/>"
                                              "<Output Graph=\"A\" Node=\"b\"/><Output Graph=\"A\" Node=\"c\"/>"));
    driver->setSamplingRate(48000.0f);
    driver->setMaxBlockSize(3);
    EXPECT_FLOAT_EQ(48000.0f, driver->getGraph("S")->getContext()->getSamplingRate());
    std::vector<scalar> left{1, 2, 3}, right{10, 20, 30};
    std::vector<scalar*> inputs{left.data(), right.data()};
    auto output = [&](size_t k) { return std::vector<scalar>(driver->getOutputs()[k], driver->getOutputs()[k] + 3); };
    // e = 7·right − 3·left; D comes first in S and reads e of the sample before: y[n] = 5·left[n] − e[n−1].
    for (const std::vector<scalar>& y : {std::vector<scalar>{5, 10 - 67, 15 - 134}, std::vector<scalar>{5 - 201, -57, -119}}) {
        driver->process(inputs, 3);
        EXPECT_EQ(y, output(0));
        EXPECT_EQ((std::vector<scalar>{67, 134, 201}), output(1));
        EXPECT_EQ((std::vector<scalar>{3, 6, 9}), output(2));
        EXPECT_EQ((std::vector<scalar>{5, 10, 15}), output(3));
    }
}
