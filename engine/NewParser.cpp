#include "engine/NewParser.h"

#include <iterator>

#include "circuit/CircuitParser.h"
#include "engine/DSPGraphParser.h"

namespace vrn {

NewParser::NewParser(const std::shared_ptr<DSPElementFactory>& dspFactory,
                     const std::shared_ptr<ComponentFactory>& circuitFactory)
    : dspElementFactory(dspFactory ? dspFactory : std::make_shared<DSPElementFactory>()),
      componentFactory(circuitFactory),
      dspGraphParser(new DSPGraphParser(*this)),
      circuitParser(new CircuitParser(*this)),
      graphs(std::make_shared<GraphList>()),
      inputGraphs(std::make_shared<IndexTable>()),
      inputNodes(std::make_shared<IndexTable>()),
      outputGraphs(std::make_shared<std::vector<int>>()),
      outputNodes(std::make_shared<std::vector<int>>()),
      controls(std::make_shared<ControlList>()) {}

NewParser::~NewParser() {}

void NewParser::parse(std::istream& description) {
    std::string text;
    char piece[32768];
    while (description.read(piece, sizeof(piece)) || description.gcount() > 0)
        text.append(piece, static_cast<size_t>(description.gcount()));

    pugi::xml_document document;
    pugi::xml_parse_result result = document.load_buffer(text.data(), text.size());
    if (!result) {
        std::string reason = result.status >= 15 ? "Unknown error" : result.description();
        throw VRNException("Cannot load xml document. Error: " + reason);
    }
    parseGraphs(document);
    graphIndices["System"] = -1;
    parseGraphInputs(document);
    parseSystemOutputs(document);
    parseControls(document);
}

void NewParser::parseGraphs(const pugi::xml_document& document) {
    pugi::xpath_node_set graphNodes = document.select_nodes("/System/Graphs/Graph");
    if (graphNodes.empty()) throw VRNException("No graphs to parse.");
    for (const pugi::xpath_node& entry : graphNodes) {
        pugi::xml_node node = entry.node();
        pugi::xml_attribute nameAttribute = node.attribute("Name");
        if (!nameAttribute) throw VRNException("Graph name is not specified");
        std::string name = nameAttribute.value();
        if (name == "System") throw VRNException("\"System\" is a reserved graph name.");
        pugi::xml_attribute typeAttribute = node.attribute("Type");
        if (!typeAttribute) throw VRNException("Graph type is not specified");
        std::string type = typeAttribute.value();
        GraphParser* graphParser = nullptr;
        if (type == "MNA")
            graphParser = circuitParser.get();
        else if (type == "DSP")
            graphParser = dspGraphParser.get();
        if (!graphParser) throw VRNException("Graph type " + type + " is not a valid type. Graph: " + name);

        pendingOutputNames.clear();
        std::shared_ptr<Graph> graph = graphParser->parse(node, name);
        graphs->push_back(graph);
        graphOutputNames.push_back(pendingOutputNames);
        if (pugi::xml_attribute multiplier = node.attribute("Multiplier")) {
            double value = parseDouble(multiplier.value());
            if (!(value > 0))
                throw VRNException("Invalid Graph Multiplier. Graph: " + name + " Multiplier: " + multiplier.value());
            graph->setMultiplier(value);
        }
        graphIndices[name] = static_cast<int>(graphs->size() - 1);
    }
}

int NewParser::findOutputNode(int graph, const std::string& node) const {
    const std::vector<std::string>& names = graphOutputNames[static_cast<size_t>(graph)];
    for (size_t i = 0; i < names.size(); ++i)
        if (names[i] == node) return static_cast<int>(i);
    return -1;
}

void NewParser::parseGraphInputs(const pugi::xml_document& document) {
    for (const pugi::xpath_node& entry : document.select_nodes("/System/Graphs/Graph")) {
        auto sources = std::make_shared<std::vector<int>>();
        auto nodes = std::make_shared<std::vector<int>>();
        for (const pugi::xpath_node& inputEntry : entry.node().select_nodes("./Inputs/Input")) {
            pugi::xml_node input = inputEntry.node();
            pugi::xml_attribute graphAttribute = input.attribute("Graph");
            if (!graphAttribute) throw VRNException("Input without a graph name.");
            auto source = graphIndices.find(graphAttribute.value());
            if (source == graphIndices.end())
                throw VRNException(std::string("Invalid input graph: ") + graphAttribute.value());
            pugi::xml_attribute nodeAttribute = input.attribute("Node");
            if (!nodeAttribute) throw VRNException("Input without a Node name.");
            int node;
            if (source->second == -1) {
                node = toInt(nodeAttribute.value());
            } else {
                node = findOutputNode(source->second, nodeAttribute.value());
                if (node < 0) throw VRNException(std::string("Cannot find output node ") + nodeAttribute.value());
            }
            sources->push_back(source->second);
            nodes->push_back(node);
        }
        // A netlist would drop wired inputs it does not declare without a word (a DSP graph
        // refuses an element that reads an input the graph lacks).
        const Graph& graph = *(*graphs)[inputGraphs->size()];
        if (!sources->empty() && graph.getType() == 1 && graph.getNumberOfInputs() < 1)
            throw VRNException("Inputs are wired to graph " + graph.getName() + ", which declares no NumberOfInputs");
        inputGraphs->push_back(sources);
        inputNodes->push_back(nodes);
    }
}

void NewParser::parseSystemOutputs(const pugi::xml_document& document) {
    for (const pugi::xpath_node& entry : document.select_nodes("/System/Outputs/Output")) {
        pugi::xml_node output = entry.node();
        pugi::xml_attribute graphAttribute = output.attribute("Graph");
        if (!graphAttribute) throw VRNException("Output without a Graph name.");
        auto source = graphIndices.find(graphAttribute.value());
        if (source == graphIndices.end())
            throw VRNException(std::string("Invalid system output graph name ") + graphAttribute.value());
        pugi::xml_attribute nodeAttribute = output.attribute("Node");
        if (!nodeAttribute) throw VRNException("Output without a Node name.");
        int node;
        if (source->second == -1) {
            node = toInt(nodeAttribute.value());
        } else {
            node = findOutputNode(source->second, nodeAttribute.value());
            if (node < 0)
                throw VRNException(std::string("Cannot find output node ") + nodeAttribute.value() + " for graph " +
                                   graphAttribute.value());
        }
        outputGraphs->push_back(source->second);
        outputNodes->push_back(node);
    }
}

void NewParser::parseControls(const pugi::xml_document& document) {
    pugi::xpath_node controlsNode = document.select_node("/System/Controls");
    if (!controlsNode) return;
    for (const pugi::xpath_node& entry : controlsNode.node().select_nodes("./Control")) {
        pugi::xml_node node = entry.node();
        pugi::xml_attribute nameAttribute = node.attribute("Name");
        if (!nameAttribute) throw VRNException("Control without a name.");
        std::string name = nameAttribute.value();
        pugi::xml_attribute displayName = node.attribute("DisplayName");
        if (!displayName) throw VRNException("Control without a display name. Control name: " + name);
        pugi::xml_attribute value = node.attribute("Value");
        if (!value) throw VRNException("Control without a Value. Control name: " + name);
        auto control = std::make_shared<Control>(name, displayName.value(),
                                                 static_cast<float>(parseDouble(value.value())));
        if (pugi::xpath_node ui = node.select_node("./UIProperties")) {
            Properties uiProperties = attributesOf(ui.node());
            if (!uiProperties.empty()) control->setUIProperties(uiProperties);
        }
        pugi::xpath_node propertiesNode = node.select_node("./Properties");
        if (!propertiesNode) throw VRNException("Control without properties. Control name: " + name);
        auto list = std::make_shared<PropertyList>();
        for (const pugi::xpath_node& propertyEntry : propertiesNode.node().select_nodes("./Property")) {
            pugi::xml_node propertyNode = propertyEntry.node();
            pugi::xml_attribute propertyName = propertyNode.attribute("Name");
            if (!propertyName) throw VRNException("Property without a name.");
            pugi::xml_attribute graphName = propertyNode.attribute("Graph");
            if (!graphName)
                throw VRNException(std::string("Property without a graph. Property name: ") + propertyName.value());
            auto property = std::make_shared<Property>();
            property->name = propertyName.value();
            property->graphName = graphName.value();
            property->elementName = propertyNode.attribute("Element").value();
            if (pugi::xml_attribute type = propertyNode.attribute("Type")) {
                std::string typeName = type.value();
                if (typeName == "Scalar")
                    property->type = Scalar;
                else if (typeName == "Vector")
                    property->type = Vector;
                else
                    throw VRNException("Unknown property type " + typeName);
            }
            list->push_back(property);
        }
        control->setProperties(list);
        control->setIndex(static_cast<int>(controls->size()));
        controls->push_back(control);
    }
}

}  // namespace vrn
