#include "engine/DSPGraphParser.h"

#include <algorithm>

#include "engine/DSPGraph.h"

namespace vrn {

Properties attributesOf(const pugi::xml_node& node) {
    Properties properties;
    for (const pugi::xml_attribute& attribute : node.attributes()) properties[attribute.name()] = attribute.value();
    return properties;
}

namespace {

const int kMaxInputPorts = 4096;

int findElement(const std::vector<std::string>& names, const std::string& name) {
    auto it = std::find(names.begin(), names.end(), name);
    return it == names.end() ? -1 : static_cast<int>(it - names.begin());
}

}  // namespace

std::shared_ptr<Graph> DSPGraphParser::parse(const pugi::xml_node& graphNode, const std::string& graphName) {
    auto graph = std::make_shared<DSPGraph>();
    auto context = std::make_shared<DSPContext>();
    graph->setContext(context);
    context->setGraph(graph.get());
    graph->setType(0);
    graph->setName(graphName);

    pugi::xpath_node propertiesNode = graphNode.select_node("./Properties");
    if (propertiesNode) graph->setProperties(attributesOf(propertiesNode.node()));

    pugi::xpath_node_set elementNodes = graphNode.select_nodes("Element");
    if (elementNodes.empty()) throw VRNException("No elements in graph " + graphName);

    std::vector<std::string> elementNames;
    for (const pugi::xpath_node& elementNode : elementNodes) {
        pugi::xml_node node = elementNode.node();
        std::unique_ptr<Filter> filter(parser.getDSPElementFactory()->create(node.attribute("Type").value()));
        pugi::xml_attribute nameAttribute = node.attribute("Name");
        if (!nameAttribute) throw VRNException("Element name is not specified. Graph: " + graphName);
        std::string elementName = nameAttribute.value();
        Properties properties;
        pugi::xpath_node elementProperties = node.select_node("./Properties");
        if (elementProperties) properties = attributesOf(elementProperties.node());
        filter->init(elementName, properties, context);
        context->addElement(filter.get());
        filter.release();
        elementNames.push_back(elementName);
    }

    const std::vector<Filter*>& filters = context->getElements();
    auto sources = std::make_shared<DSPGraph::PortTable>();
    auto ports = std::make_shared<DSPGraph::PortTable>();
    for (size_t i = 0; i < filters.size(); ++i) {
        std::shared_ptr<ElementMeta> meta = filters[i]->getMeta();
        // Port counts come from properties; a runaway one must fail here, not exhaust memory.
        if (meta->getNumberOfInputs() > kMaxInputPorts)
            throw VRNException("Element " + filters[i]->getName() + " has too many input ports: " +
                               toString(meta->getNumberOfInputs()) + ". Graph: " + graphName);
        // Every port starts unconnected, so a filter reads a null pointer where nothing is wired.
        auto filterSources = std::make_shared<std::vector<int>>(static_cast<size_t>(meta->getNumberOfInputs()), -2);
        auto filterPorts = std::make_shared<std::vector<int>>(static_cast<size_t>(meta->getNumberOfInputs()), -1);
        for (const pugi::xpath_node& inputNode : elementNodes[i].node().select_nodes("./Inputs/Input")) {
            pugi::xml_node input = inputNode.node();
            pugi::xml_attribute port = input.attribute("Port");
            if (!port) throw VRNException("Input without a Port name.");
            pugi::xml_attribute source = input.attribute("Element");
            if (!source) throw VRNException("Input without an Element name.");
            std::string sourceName = source.value();
            int sourceIndex = -1;
            if (sourceName != "Graph") {
                sourceIndex = findElement(elementNames, sourceName);
                if (sourceIndex < 0) throw VRNException("Cannot find input filter with name " + sourceName);
            }
            pugi::xml_attribute output = input.attribute("Output");
            if (!output) throw VRNException("Input without an Output port.");
            size_t portIndex = static_cast<size_t>(meta->getInputIndex(port.value()));
            filterSources->at(portIndex) = sourceIndex;
            filterPorts->at(portIndex) = sourceIndex == -1
                                             ? toInt(output.value())
                                             : filters[static_cast<size_t>(sourceIndex)]->getMeta()->getOutputIndex(output.value());
        }
        sources->push_back(filterSources);
        ports->push_back(filterPorts);
    }

    auto outputFilters = std::make_shared<std::vector<int>>();
    auto outputPorts = std::make_shared<std::vector<int>>();
    std::vector<std::string> outputNames;
    for (const pugi::xpath_node& nodeEntry : graphNode.select_nodes("./Output/Node")) {
        pugi::xml_node node = nodeEntry.node();
        pugi::xml_attribute nodeName = node.attribute("Name");
        if (!nodeName) throw VRNException("Output Node without a name.");
        pugi::xml_attribute element = node.attribute("Element");
        if (!element) throw VRNException("Output Node without an Element attribute.");
        int filterIndex = findElement(elementNames, element.value());
        if (filterIndex < 0) throw VRNException(std::string("Cannot find output filter with name ") + element.value());
        int portIndex;
        if (pugi::xml_attribute port = node.attribute("Port"))
            portIndex = filters[static_cast<size_t>(filterIndex)]->getMeta()->getOutputIndex(port.value());
        else if (pugi::xml_attribute index = node.attribute("Index"))
            portIndex = toInt(index.value());
        else
            throw VRNException("Output Node without a Port or an Index attribute.");
        outputNames.push_back(nodeName.value());
        outputFilters->push_back(filterIndex);
        outputPorts->push_back(portIndex);
    }
    graph->setWiring(sources, ports, outputFilters, outputPorts);
    parser.setOutputNames(outputNames);

    pugi::xml_node inputCount = graphNode.child("NumberOfInputs");
    if (inputCount) graph->setNumberOfInputs(toInt(inputCount.first_child().value()));
    return graph;
}

}  // namespace vrn
