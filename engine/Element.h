#pragma once
// Element: the root of everything in a graph.  Filter: an element of a DSP graph.
// ElementMeta: the ports of an element by name and index.  PropertiesHandler: the hook by which
// a filter's coefficients follow a control or the signal.

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "engine/Exceptions.h"
#include "engine/Types.h"

namespace vrn {

class DSPContext;

class Element {
public:
    virtual ~Element() = 0;
    // Load time or between blocks; the defaults refuse.
    virtual void propertiesChanged(const Properties& properties);
    virtual void propertyChanged(const std::string& name, scalar value);
    // The element shares the vector and does not copy it unless it says so.
    virtual void propertyChanged(const std::string& name, const std::shared_ptr<std::vector<scalar>>& values);
    virtual const std::string& getName() const;

protected:
    std::string name;
};

class ElementMeta {
public:
    virtual ~ElementMeta() {}
    virtual int getInputIndex(const std::string& portName) = 0;
    virtual int getNumberOfInputs() = 0;
    virtual int getOutputIndex(const std::string& portName) = 0;
    virtual int getNumberOfOutputs() = 0;
};

// One input "in", one output "out".
class BasicFilterMeta : public ElementMeta {
public:
    int getInputIndex(const std::string& portName) override;
    int getNumberOfInputs() override { return 1; }
    int getOutputIndex(const std::string& portName) override;
    int getNumberOfOutputs() override { return 1; }
};

class PropertiesHandler {
public:
    virtual ~PropertiesHandler() {}
    virtual void propertiesChanged(const Properties& properties) = 0;
    virtual void propertyChanged(const std::string& name, scalar value) = 0;
    virtual void setSamplingRate(scalar rate) = 0;
    // True when the filter must run sample by sample through update.
    virtual bool isPerSample() = 0;
    // Audio thread, before each sample on the per-sample path: may send new coefficients.
    virtual void update(scalar in, scalar lastOut) = 0;
};

class Filter : public Element {
public:
    ~Filter() override {}

    void propertyChanged(const std::string& name, scalar value) override;
    using Element::propertyChanged;

    // Made by program code, without properties.
    virtual void init(const std::string& name, std::shared_ptr<DSPContext>& context);
    // The parser's form: reads and checks the properties, sizes outputs and iterationResults.
    virtual void init(const std::string& name, const Properties& properties,
                      std::shared_ptr<DSPContext>& context) = 0;

    // One step on one sample outside any block; does not touch the block buffer.
    virtual scalar process(scalar in) = 0;
    // Audio thread, no allocation: one pointer per input port (null when unconnected).
    virtual void process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) = 0;
    virtual void process(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs,
                         size_t framesPerBuffer) = 0;
    virtual scalar* process(scalar* in, size_t framesPerBuffer) = 0;
    // The block kernel.
    virtual void process(const scalar* in, scalar* out, size_t framesPerBuffer) = 0;

    virtual void setSamplingRate(scalar rate);

    // One pass of an iteration: must not advance the state, so it can be repeated.
    virtual void process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t frameIndex, int iteration) = 0;
    virtual std::vector<scalar>& getLastIterationResults() = 0;
    // After the last pass of a sample: commits the state and stores the result.
    virtual void endIteration(int frameIndex) = 0;

    // Load time or between blocks: buffers only grow; pointers from getOutputs move when they do.
    virtual void setMaxBlockSize(int size) = 0;
    virtual scalar* getOutput(int index) = 0;
    virtual std::vector<scalar*>& getOutputs() = 0;
    virtual std::shared_ptr<ElementMeta> getMeta() = 0;
    // Clears the signal state; coefficients stay.
    virtual void reset() = 0;
    virtual void setPropertiesHandler(const std::shared_ptr<PropertiesHandler>& handler);

protected:
    // The context owns its filters: a plain pointer, so that the two do not keep each other.
    DSPContext* context = nullptr;
    int maxBlockSize = 0;
    std::shared_ptr<PropertiesHandler> handler;
    Properties properties;
};

}  // namespace vrn
