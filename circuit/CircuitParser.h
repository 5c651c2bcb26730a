#pragma once
// Reads one graph of the type "MNA": its components, named outputs, number of inputs and the
// analysis with its solvers, into a Circuit.  Load time only.

#include "engine/NewParser.h"

namespace vrn {

class Circuit;
class MNAContext;
class Solver;

class CircuitParser : public GraphParser {
public:
    using GraphParser::GraphParser;
    std::shared_ptr<Graph> parse(const pugi::xml_node& graphNode, const std::string& graphName) override;

private:
    void parseInto(Circuit& circuit, const std::shared_ptr<MNAContext>& context, const pugi::xml_node& graphNode,
                   const std::string& graphName);
    std::shared_ptr<Solver> parseSolver(const pugi::xml_node& solverNode, const char* missingType);
};

}  // namespace vrn
