#pragma once
// Reads one graph of the type "DSP": its properties, elements, their wires and its outputs.

#include "engine/NewParser.h"

namespace vrn {

class DSPGraphParser : public GraphParser {
public:
    using GraphParser::GraphParser;
    std::shared_ptr<Graph> parse(const pugi::xml_node& graphNode, const std::string& graphName) override;
};

// The attributes of a node as a Properties map (empty when the node is empty).
Properties attributesOf(const pugi::xml_node& node);

}  // namespace vrn
