#include "circuit/CircuitParser.h"

#include "circuit/Circuit.h"
#include "circuit/ComponentFactory.h"
#include "circuit/solvers/Solvers.h"
#include "engine/DSPGraphParser.h"

namespace vrn {

namespace {

// The registered components first, then what the parser's factory adds.
Component* createComponent(const std::string& type, const std::shared_ptr<ComponentFactory>& factory) {
    auto builtIn = ComponentFactory::builtInTypes().find(type);
    if (builtIn != ComponentFactory::builtInTypes().end()) return builtIn->second();
    if (factory) return factory->create(type);
    throw VRNException("Unknown element type: " + type);
}

}  // namespace

std::shared_ptr<Solver> CircuitParser::parseSolver(const pugi::xml_node& solverNode, const char* missingType) {
    pugi::xml_attribute typeAttribute = solverNode.attribute("Type");
    if (!typeAttribute) throw VRNException(missingType);
    std::string type = typeAttribute.value();
    std::shared_ptr<Solver> solver = makeSolver(type);
    pugi::xpath_node propertiesNode = solverNode.select_node("./Properties");
    if (!propertiesNode && type != "Linear")
        throw VRNException("InitilaCondition Solver's properties are not defined.");
    Properties properties;
    if (propertiesNode) properties = attributesOf(propertiesNode.node());
    solver->setProperties(properties);
    return solver;
}

std::shared_ptr<Graph> CircuitParser::parse(const pugi::xml_node& graphNode, const std::string& graphName) {
    auto circuit = std::make_shared<Circuit>();
    auto context = std::make_shared<MNAContext>();
    circuit->setContext(context);
    context->setGraph(circuit.get());
    circuit->setType(1);
    circuit->setName(graphName);
    try {
        parseInto(*circuit, context, graphNode, graphName);
    } catch (...) {
        // The graph and its context hold each other: a graph that is never handed over is let go.
        context->setGraph(nullptr);
        throw;
    }
    return circuit;
}

void CircuitParser::parseInto(Circuit& circuit, const std::shared_ptr<MNAContext>& context,
                              const pugi::xml_node& graphNode, const std::string& graphName) {

    pugi::xpath_node_set elementNodes = graphNode.select_nodes("Element");
    if (elementNodes.empty()) throw VRNException("No elements in graph " + graphName);
    for (const pugi::xpath_node& elementNode : elementNodes) {
        pugi::xml_node node = elementNode.node();
        std::unique_ptr<Component> component(createComponent(node.attribute("Type").value(), parser.getComponentFactory()));
        std::string elementName = node.attribute("Name").value();
        if (elementName.empty()) throw VRNException("Element name is not specified in graph " + graphName);
        Properties properties;
        pugi::xpath_node propertiesNode = node.select_node("./Properties");
        if (propertiesNode) properties = attributesOf(propertiesNode.node());
        auto nodeNames = std::make_shared<std::vector<std::string>>();
        for (const pugi::xpath_node& terminal : node.select_nodes("./Node")) {
            pugi::xml_attribute nodeName = terminal.node().attribute("Name");
            if (!nodeName) throw VRNException("Element: " + elementName + ". Node without a name.");
            nodeNames->push_back(nodeName.value());
        }
        if (nodeNames->empty()) throw VRNException("Element: " + elementName + ". No Nodes specified.");
        component->init(elementName, properties, nodeNames, context);
        Component* owned = component.release();
        try {
            context->addElement(owned);
        } catch (...) {
            // A refused name leaves the component with us; anything later is owned by the context.
            if (!context->getComponents().empty() && context->getComponents().back() == owned) throw;
            delete owned;
            throw;
        }
    }

    auto outputNames = std::make_shared<std::vector<std::string>>();
    for (const pugi::xpath_node& outputNode : graphNode.select_nodes("./Output/Node")) {
        pugi::xml_attribute nodeName = outputNode.node().attribute("Name");
        if (!nodeName) throw VRNException("Output Node without a name.");
        outputNames->push_back(nodeName.value());
    }
    if (!outputNames->empty()) context->setOutputNames(outputNames);
    circuit.setNumberOfOutputs(static_cast<int>(outputNames->size()));
    parser.setOutputNames(*outputNames);

    pugi::xml_node inputCount = graphNode.child("NumberOfInputs");
    if (inputCount) circuit.setNumberOfInputs(toInt(inputCount.first_child().value()));

    pugi::xml_node analysisNode = graphNode.child("Analysis");
    if (!analysisNode) throw VRNException("Analysis node is missing in the graph " + graphName);
    pugi::xml_attribute analysisType = analysisNode.attribute("Type");
    if (!analysisType) throw VRNException("Analysis Type attribute is missing in the graph " + graphName);
    std::string type = analysisType.value();
    std::unique_ptr<Analysis> analysis(new Analysis());
    if (type == "AC") {
        analysis->type = 1;
        pugi::xml_node condition = analysisNode.child("InitialCondition");
        if (!condition) throw VRNException("InitialCondition node is missing in the graph " + graphName);
        pugi::xml_attribute conditionType = condition.attribute("Type");
        if (!conditionType) throw VRNException("InitialCondition Type attribute is missing in the graph " + graphName);
        std::string conditionText = conditionType.value();
        if (conditionText == "Zero") {
            analysis->initialCondition = 1;
        } else if (conditionText == "User") {
            analysis->initialCondition = 2;
        } else if (conditionText == "OperatingPoint") {
            pugi::xml_node dcSolver = condition.child("Solver");
            if (!dcSolver) throw VRNException("InitialCondition Solver is not defined.");
            analysis->dcSolver = parseSolver(dcSolver, "InitialCondition Solver type is not defined.");
            analysis->initialCondition = 0;
        } else {
            throw VRNException("Invalid InitialCondition Type attribute " + conditionText + " in the graph " + graphName);
        }
    } else if (type != "DC") {
        throw VRNException("Invalid analysis Type attribute " + type + " in the graph " + graphName);
    }
    pugi::xml_node solverNode = analysisNode.child("Solver");
    if (!solverNode) throw VRNException("Analysis Solver is not defined.");
    analysis->solver = parseSolver(solverNode, "Analysis Solver type is not defined.");
    circuit.setAnalysis(std::move(analysis));
}

}  // namespace vrn
