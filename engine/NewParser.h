#pragma once
// Reads a system description (XML) into graphs, their wiring, the system outputs and the controls,
// for the Driver to take over.  Load time only.

#include <istream>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <pugixml.hpp>

#include "engine/Control.h"
#include "engine/DSPElementFactory.h"
#include "engine/Graph.h"

namespace vrn {

class ComponentFactory;
class NewParser;

typedef std::vector<std::shared_ptr<Graph>> GraphList;
typedef std::vector<std::shared_ptr<std::vector<int>>> IndexTable;
typedef std::vector<std::shared_ptr<Control>> ControlList;

// Reads one graph of one Type from its XML node.
class GraphParser {
public:
    explicit GraphParser(NewParser& parser) : parser(parser) {}
    virtual ~GraphParser() {}
    virtual std::shared_ptr<Graph> parse(const pugi::xml_node& graphNode, const std::string& graphName) = 0;

protected:
    NewParser& parser;
};

class NewParser {
public:
    NewParser(const std::shared_ptr<DSPElementFactory>& dspElementFactory,
              const std::shared_ptr<ComponentFactory>& componentFactory);
    virtual ~NewParser();

    void parse(std::istream& description);

    const std::shared_ptr<GraphList>& getGraphs() const { return graphs; }
    const std::shared_ptr<IndexTable>& getInputGraphs() const { return inputGraphs; }
    const std::shared_ptr<IndexTable>& getInputNodes() const { return inputNodes; }
    const std::shared_ptr<std::vector<int>>& getOutputGraphs() const { return outputGraphs; }
    const std::shared_ptr<std::vector<int>>& getOutputNodes() const { return outputNodes; }
    const std::shared_ptr<ControlList>& getControls() const { return controls; }

    // For the graph parsers.
    const std::shared_ptr<DSPElementFactory>& getDSPElementFactory() const { return dspElementFactory; }
    const std::shared_ptr<ComponentFactory>& getComponentFactory() const { return componentFactory; }
    // The graph parser being run names the outputs of its graph, in output index order.
    void setOutputNames(std::vector<std::string> names) { pendingOutputNames = std::move(names); }

private:
    void parseGraphs(const pugi::xml_document& document);
    void parseGraphInputs(const pugi::xml_document& document);
    void parseSystemOutputs(const pugi::xml_document& document);
    void parseControls(const pugi::xml_document& document);
    int findOutputNode(int graph, const std::string& node) const;

    std::shared_ptr<DSPElementFactory> dspElementFactory;
    std::shared_ptr<ComponentFactory> componentFactory;
    std::unique_ptr<GraphParser> dspGraphParser;
    std::unique_ptr<GraphParser> circuitParser;

    std::shared_ptr<GraphList> graphs;
    std::shared_ptr<IndexTable> inputGraphs;
    std::shared_ptr<IndexTable> inputNodes;
    std::shared_ptr<std::vector<int>> outputGraphs;
    std::shared_ptr<std::vector<int>> outputNodes;
    std::shared_ptr<ControlList> controls;

    std::unordered_map<std::string, int> graphIndices;
    std::vector<std::vector<std::string>> graphOutputNames;
    std::vector<std::string> pendingOutputNames;
};

}  // namespace vrn
