// The system description format: what it reads, and a message for each check that refuses a load
// (in the parser, the graphs and the Driver).

#include <gtest/gtest.h>

#include "support/TestSupport.h"

using namespace vrn;
using orm_test::gainGraph;
using orm_test::loadError;
using orm_test::loadSystem;
using orm_test::systemOf;

namespace {

std::string edit(std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
}

std::string graphOf(const std::string& body) {
    return "<Graph Name=\"A\" Type=\"DSP\"><NumberOfInputs>1</NumberOfInputs><Inputs><Input Graph=\"System\" Node=\"0\"/>"
           "</Inputs>" + body + "</Graph>";
}

// A description that loads, using every part of the format once: each case below edits it.
const std::string kValid =
    "<System><Graphs><Graph Name=\"A\" Type=\"DSP\" Multiplier=\"1\"><Properties ProcessingMethod=\"Block\"/>"
    "<NumberOfInputs>1</NumberOfInputs><Inputs><Input Graph=\"System\" Node=\"0\"/></Inputs>"
    "<Element Type=\"Gain\" Name=\"G\"><Properties Gain=\"2\"/><Inputs><Input Port=\"in\" Element=\"Graph\" Output=\"0\"/>"
    "</Inputs></Element><Element Type=\"Switch\" Name=\"S\"><Properties NumberOfInputs=\"2\"/><Inputs>"
    "<Input Port=\"in_1\" Element=\"G\" Output=\"out\"/></Inputs></Element>"
    "<Output><Node Name=\"out\" Element=\"G\" Port=\"out\"/><Node Name=\"s\" Element=\"S\" Index=\"0\"/></Output></Graph>"
    "<Graph Name=\"B\" Type=\"DSP\"><NumberOfInputs>1</NumberOfInputs><Inputs><Input Graph=\"A\" Node=\"s\"/></Inputs>"
    "<Element Type=\"Gain\" Name=\"H\"><Properties Gain=\"1\"/><Inputs><Input Port=\"in\" Element=\"Graph\" Output=\"0\"/>"
    "</Inputs></Element><Output><Node Name=\"out\" Element=\"H\" Port=\"out\"/></Output></Graph></Graphs>"
    "<Outputs><Output Graph=\"B\" Node=\"out\"/></Outputs><Controls><Control Name=\"C\" DisplayName=\"D\" Value=\"0\">"
    "<Properties><Property Name=\"Gain\" Graph=\"A\" Element=\"G\" Type=\"Scalar\"/><Property Name=\"Bypass\" Graph=\"B\"/>"
    "</Properties></Control></Controls></System>";

// kValid with the first `from` replaced by `to` (and the first `from2` of the result by `to2`).
std::string e(const std::string& from, const std::string& to, const std::string& from2 = "", const std::string& to2 = "") {
    return from2.empty() ? edit(kValid, from, to) : edit(edit(kValid, from, to), from2, to2);
}

}  // namespace

TEST(Parser, LoadFailuresNameTheirCause) {
    // Graph B reads the host's channel 0 first, then graph A at A's multiplier.
    const std::string mixed = "Graph=\"System\" Node=\"0\"/><Input Graph=\"A\"";
    const struct {
        std::string description;
        std::string message;  // "" when it loads
    } cases[] = {
        {kValid, ""},
        {"<System></Graphs>", "Cannot load xml document. Error: Start-end tags mismatch"},
        {"<System><Graphs/></System>", "No graphs to parse."},
        {"<System><Graphs><Graph Name=\"A\" Type=\"DSP\"/></Graphs></System>", "No elements in graph A"},
        {e("Name=\"A\" ", ""), "Graph name is not specified"},
        {e("Name=\"A\"", "Name=\"System\""), "\"System\" is a reserved graph name."},
        {e("Type=\"DSP\"", "Type=\"dsp\""), "Graph type dsp is not a valid type. Graph: A"},
        {e("Multiplier=\"1\"", "Multiplier=\"0\""), "Invalid Graph Multiplier. Graph: A Multiplier: 0"},
        // Graph inputs and system outputs.
        {e("Graph=\"System\" ", ""), "Input without a graph name."},
        {e("Graph=\"A\" Node=\"s\"", "Graph=\"X\" Node=\"s\""), "Invalid input graph: X"},
        {e("Node=\"s\"", "Node=\"x\""), "Cannot find output node x"},
        {e("<Output Graph=\"B\"", "<Output Graph=\"X\""), "Invalid system output graph name X"},
        {e("<Output Graph=\"B\" Node=\"out\"", "<Output Graph=\"B\" Node=\"o\""), "Cannot find output node o for graph B"},
        // Elements, their wiring and the graph's output nodes.
        {e("Type=\"Gain\"", "Type=\"Valve\""), "Unknown element type: Valve"},
        {e("Element=\"G\" Output=\"out\"", "Element=\"X\" Output=\"out\""), "Cannot find input filter with name X"},
        {e("Port=\"in\"", "Port=\"inn\""), "Invalid input port name: inn. Expected \"in\"."},
        {e("in_1", "in_2"), "SwitchMeta: Invalid input port in_2, NumberOfInputs=2"},
        {e("in_1", "in1"), "Invalid input port name: in1. INput port name must start with \"in_\" followed by a number."},
        {e("NumberOfInputs=\"2\"", "NumberOfInputs=\"4096\""), ""},  // the most ports an element may have
        {e("NumberOfInputs=\"2\"", "NumberOfInputs=\"4097\""), "Element S has too many input ports: 4097. Graph: A"},
        {e("Element=\"G\" Port=\"out\"", "Element=\"X\" Port=\"out\""), "Cannot find output filter with name X"},
        {e("Element=\"G\" Port=\"out\"", "Element=\"G\" Port=\"ou\""), "Invalid output port name: ou. Expected \"out\"."},
        {e("Index=\"0\"", ""), "Output Node without a Port or an Index attribute."},
        {e("Index=\"0\"", "Index=\"1\""), "DSPGraph: Invalid output index 1 of element S. Graph: A"},
        {e("Index=\"0\"", "Index=\"-1\""), "DSPGraph: Invalid output index -1 of element S. Graph: A"},
        {e("Output=\"0\"", "Output=\"1\""), "DSPGraph: Invalid graph input 1 for element G. Graph: A, number of inputs: 1"},
        {e("Output=\"0\"", "Output=\"-3\""), "DSPGraph: Invalid graph input -3 for element G. Graph: A, number of inputs: 1"},
        {e("<NumberOfInputs>1", "<NumberOfInputs>0"), "Invalid number of outputs for DSPGraph A, number of outputs: 2"},
        // The processing method's properties.
        {e("\"Block\"", "\"block\""), "DSPGraph: Invalid ProcessingMethod property block"},
        {e("\"Block\"", "\"Iterative\""), "DSPGraph: RelativeTollerance is not defined."},
        {e("\"Block\"", "\"Iterative\" RelativeTollerance=\"0\""),
         "DSPGraph: RelativeTollerance must be greater than 0. relativeTollerance=0"},
        {e("\"Block\"", "\"Iterative\" RelativeTollerance=\"1\" AbsoluteTollerance=\"0\""),
         "DSPGraph: AbsoluteTollerance must be greater than 0. AbsoluteTollerance=0"},
        {e("\"Block\"", "\"Iterative\" RelativeTollerance=\"1\" AbsoluteTollerance=\"1\" MaxIterations=\"0\""),
         "DSPGraph: MaxIterations must be greater than 0. MaxIterations=0"},
        {e("\"Block\"", "\"Iterative\" RelativeTollerance=\"1e-9\" AbsoluteTollerance=\"1e-9\" MaxIterations=\"1\""), ""},
        // Controls and what they bind to.
        {e("<Properties><Property", "<Other><Property", "</Properties></Control>", "</Other></Control>"),
         "Control without properties. Control name: C"},
        {e("Graph=\"A\" Element=\"G\"", "Element=\"G\""), "Property without a graph. Property name: Gain"},
        {e("Type=\"Scalar\"", "Type=\"scalar\""), "Unknown property type scalar"},
        {e("<Property Name=\"Bypass\"", "<Property Name=\"Gain\" Graph=\"A\" Element=\"G\"/><Property Name=\"Bypass\""),
         "Driver: Multiple definitions of the same property. Property name: Gain graph: A element: G"},
        {e("Graph=\"A\" Element=\"G\"", "Graph=\"X\" Element=\"G\""), "Invalid Property: Invalid graph name X. Property, name=Gain"},
        {e("Graph=\"A\" Element=\"G\"", "Graph=\"A\" Element=\"X\""), "Invalid Property: Invalid element name X. Property, name=Gain"},
        {e("Graph=\"B\"/>", "Graph=\"B\"/><Property Name=\"Bypass_1\" Graph=\"B\"/>"), ""},  // two requests, two properties
        // Rates and the order of the graphs.
        {e("Multiplier=\"1\"", "Multiplier=\"2\""), "Invalid multiplier. Expected 1 but got 2"},
        {e("Multiplier=\"1\"", "Multiplier=\"2\"", "Graph=\"A\"", mixed), "Invalid input multipliers for graphB"},
        {e("Multiplier=\"1\"", "Multiplier=\"1.0000000001005\"", "Graph=\"A\"", mixed), "Invalid input multipliers for graphB"},
        {e("Multiplier=\"1\"", "Multiplier=\"1.00000000001\"", "Graph=\"A\"", mixed), ""},
        {e("Graph=\"A\" Node=\"s\"", "Graph=\"B\" Node=\"out\""), "Graphs do not form a DAG."},
        {e("Graph=\"System\" Node=\"0\"", "Graph=\"B\" Node=\"out\""), "Graphs do not form a DAG."},
    };
    for (const auto& c : cases) EXPECT_EQ(c.message, loadError(c.description)) << c.description;
}

TEST(Parser, ReadsTheDocumentAsWritten) {
    // Spaces around "=", comments, unknown attributes and children, Port and Index node forms,
    // the first of two nodes of one name, a control's value.
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
        "<Properties><Property Name=\"Gain\" Graph=\"A\" Element=\"2\" Type=\"Scalar\"/></Properties></Control></Controls>"
        "</System>";
    auto driver = loadSystem(xml);
    driver->setMaxBlockSize(2);
    std::vector<scalar> x{2};
    std::vector<scalar*> inputs{x.data()};  // Node "abc" reads as host channel 0
    driver->process(inputs, 1);
    EXPECT_EQ(0.5f, driver->getOutputs()[0][0]);  // the first node named x: element 1
    auto& control = *(*driver->getControls())[0];
    EXPECT_EQ(0.75f, control.getValue());
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
                                              "<Output Graph=\"A\" Node=\"b\"/><Output Graph=\"A\" Node=\"c\"/>"
                                              "<Output Graph=\"System\" Node=\"2\"/>"));
    driver->setSamplingRate(48000.0f);
    driver->setMaxBlockSize(3);
    EXPECT_FLOAT_EQ(48000.0f, driver->getGraph("S")->getContext()->getSamplingRate());
    EXPECT_EQ(3u, driver->getNumberOfInputs());  // host channel 2 is only passed on
    std::vector<scalar> left{1, 2, 3}, right{10, 20, 30}, third{0, 0, 0};
    std::vector<scalar*> inputs{left.data(), right.data(), third.data()};
    auto output = [&](size_t k) { return std::vector<scalar>(driver->getOutputs()[k], driver->getOutputs()[k] + 3); };
    // e = 7·right − 3·left; D comes first in S and reads e of the sample before: y[n] = 5·left[n] − e[n−1].
    for (const std::vector<scalar>& y : {std::vector<scalar>{5, 10 - 67, 15 - 134}, std::vector<scalar>{5 - 201, -57, -119}}) {
        driver->process(inputs, 3);
        EXPECT_EQ(y, output(0));
        EXPECT_EQ((std::vector<scalar>{67, 134, 201}), output(1));
        EXPECT_EQ((std::vector<scalar>{3, 6, 9}), output(2));
        EXPECT_EQ((std::vector<scalar>{5, 10, 15}), output(3));
        EXPECT_EQ(third.data(), driver->getOutputs()[4]);  // a host channel is passed on as it is
    }
}
