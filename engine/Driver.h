#pragma once
// The owner and scheduler of a system: parses a description, orders its graphs, derives their
// rates from the multiplier chain, binds the controls, and runs one host block at a time.

#include <atomic>
#include <cstdint>
#include <istream>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <boost/lockfree/spsc_queue.hpp>

#include "engine/Control.h"
#include "engine/DSPElementFactory.h"
#include "engine/Graph.h"
#include "engine/NewParser.h"

namespace vrn {

class ComponentFactory;

// What could be posted to the Driver from another thread; nothing posts yet.
struct DriverMessage {
    int kind = 0;
    int index = 0;
    float value = 0.0f;
};

class Driver {
public:
    // The last outside reference to the Driver frees it with every graph, element and buffer of
    // its system: contexts point back to it without owning it.
    static std::shared_ptr<Driver> create();
    virtual ~Driver();
    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;

    // Audio thread, no allocation in steady state.  False when another call was inside and this
    // one only refreshed the output pointers.  A failure is an exception that leaves the Driver
    // out of the processing state, so that the next block and setSuspended find it free.
    virtual bool process(std::vector<scalar*>& inputs, size_t framesPerBuffer);
    // One pointer per system output, valid until the next block.
    virtual std::vector<scalar*>& getOutputs() { return *outputPointers; }
    virtual std::shared_ptr<Graph>& getGraph(std::string name);
    // Any thread: waits (yielding) until a running block has ended.
    virtual void setSuspended(bool value);
    virtual bool isSuspended() const { return suspended.load() != 0; }
    virtual bool isProcessing() const { return processing.load() != 0; }
    virtual std::shared_ptr<ControlList>& getControls() { return controls; }
    // Audio thread: the rates are recomputed at the start of the next block.
    virtual void invalidateMultipliers() { multipliersChanged.exchange(1); }

    // Load time.  Any failure is an exception and leaves the Driver uninitialised.
    void init(std::istream& description);
    void setDSPElementFactory(const std::shared_ptr<DSPElementFactory>& factory) { dspElementFactory = factory; }
    void setComponentFactory(const std::shared_ptr<ComponentFactory>& factory) { componentFactory = factory; }
    // While suspended (host rules): pass the rate and the block size to every graph.
    void setSamplingRate(float rate);
    void setMaxBlockSize(int size);

    float getSamplingRate() const { return samplingRate; }
    int getMaxBlockSize() const { return maxBlockSize; }
    bool isInitialized() const { return initialized != 0; }
    const std::vector<int>& getOrder() const { return order; }
    const std::vector<double>& getMultipliers() const { return multipliers; }
    const std::shared_ptr<GraphList>& getGraphs() const { return graphs; }
    size_t getNumberOfOutputs() const { return outputGraphs ? outputGraphs->size() : 0; }
    // How many host inputs the description reads: one more than the highest "System" node used.
    size_t getNumberOfInputs() const;

private:
    Driver();
    void computeOrder();
    void computeMultipliers();
    void bindProperties();
    void applyControls();
    void refreshOutputPointers(std::vector<scalar*>& inputs);
    size_t roundedSize(size_t frames, size_t graph) const;

    std::shared_ptr<ComponentFactory> componentFactory;
    std::shared_ptr<DSPElementFactory> dspElementFactory;
    std::unordered_map<std::string, std::shared_ptr<Graph>> graphsByName;
    std::shared_ptr<GraphList> graphs;
    std::shared_ptr<IndexTable> inputGraphs;
    std::shared_ptr<IndexTable> inputNodes;
    std::shared_ptr<std::vector<int>> outputGraphs;
    std::shared_ptr<std::vector<int>> outputNodes;
    std::vector<double> multipliers;
    std::vector<scalar*> inputPointers;
    std::shared_ptr<std::vector<scalar*>> outputPointers;
    std::shared_ptr<std::vector<std::shared_ptr<Graph>>> propertyGraphs;
    std::shared_ptr<std::vector<Element*>> propertyElements;
    std::shared_ptr<PropertyList> properties;
    std::shared_ptr<ControlList> controls;
    std::vector<int> order;
    float samplingRate = 44100.0f;
    int maxBlockSize = -1;
    uint8_t initialized = 0;
    std::atomic<uint8_t> suspended{0};
    std::atomic<uint8_t> processing{0};
    std::atomic<uint8_t> multipliersChanged{0};
    boost::lockfree::spsc_queue<DriverMessage, boost::lockfree::capacity<200>> messageQueue;
};

}  // namespace vrn
