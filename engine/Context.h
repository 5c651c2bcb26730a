#pragma once
// What the elements of one graph share: the rate, the Driver, the graph, and the elements.

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "engine/Element.h"

namespace vrn {

class Driver;
class Graph;

class Context {
public:
    virtual ~Context() {}
    virtual scalar getSamplingRate() { return samplingRate; }
    virtual void setSamplingRate(scalar rate) { samplingRate = rate; }
    virtual Element* getElement(std::string name) = 0;
    virtual void addElement(Element* element) = 0;
    // The Driver and the graph own the context, not the other way round: plain pointers, so that
    // releasing a system frees it.
    virtual Driver* getDriver() { return driver; }
    virtual void setDriver(Driver* newDriver) { driver = newDriver; }
    virtual Graph* getGraph() { return graph; }
    virtual void setGraph(Graph* newGraph) { graph = newGraph; }

protected:
    scalar samplingRate = -1.0f;
    Driver* driver = nullptr;
    Graph* graph = nullptr;
};

// The context of a DSPGraph.  Owns its filters; their order is the graph's filter index.
class DSPContext : public Context {
public:
    DSPContext();
    ~DSPContext() override;

    // Stores, then passes the rate to every filter in order.
    void setSamplingRate(scalar rate) override;
    Element* getElement(std::string name) override;
    // Load time: takes ownership of a Filter; names are unique within the context.
    void addElement(Element* element) override;
    void setMaxBlockSize(int size);

    const std::vector<Filter*>& getElements() const { return elements; }

private:
    std::unordered_map<std::string, Element*> elementMap;
    std::vector<Filter*> elements;
};

}  // namespace vrn
