#pragma once
// Graph: one node of a system, with its inputs and outputs, its rate multiplier against the
// host's rate, and Off/Bypass requests by index.

#include <memory>
#include <string>
#include <vector>

#include "engine/Context.h"

namespace vrn {

class Graph {
public:
    virtual ~Graph() {}
    virtual const std::string& getName() const { return name; }
    virtual void setName(const std::string& newName) { name = newName; }
    virtual int getType() const { return type; }
    virtual void setType(int newType) { type = newType; }
    virtual std::shared_ptr<Context> getContext() = 0;
    virtual int getNumberOfOutputs() const { return numberOfOutputs; }
    virtual int getNumberOfInputs() const { return numberOfInputs; }
    virtual void setNumberOfInputs(int number);
    virtual void setMaxBlockSize(int size) = 0;
    virtual void setSamplingRate(scalar rate) = 0;
    virtual void getResult(std::string outputName);
    virtual scalar* getOutput(int index);
    virtual std::vector<scalar*>& getOutputs() { return outputs; }
    // Audio thread: frame counts are in this graph's input rate.
    virtual void process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) = 0;
    virtual void process(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs,
                         size_t framesPerBuffer) = 0;
    virtual void init() = 0;
    virtual void setOff(bool on, int index);
    virtual void setSuspend(bool on);
    virtual void setBypass(bool on, int index);
    virtual void setInputMultiplier(double value);
    virtual double getInputMultiplier() const { return inputMultiplier; }
    virtual void setOutputMultiplier(double value) { outputMultiplier = value; }
    // A graph that is switched out does not change the rate.
    virtual double getOutputMultiplier() const { return (off || bypass) ? inputMultiplier : outputMultiplier; }
    virtual void setMultiplier(double value);
    virtual double getMultiplier() const { return multiplier; }
    virtual void setProperties(const Properties& properties);
    // How a control reaches a graph: "Off", "Bypass", "Suspend", optionally "_<index>".
    virtual void setProperty(const std::string& name, scalar value);

    int getMaxBlockSize() const { return maxBlockSize; }
    bool isOff() const { return off; }
    bool isBypassed() const { return bypass; }

protected:
    // Marks the Driver's rates for recomputation when switching this graph changes them.
    void multipliersMayHaveChanged();

    std::string name;
    int type = 0;
    int numberOfInputs = 0;
    int numberOfOutputs = 0;
    int maxBlockSize = -1;
    double multiplier = 1.0;
    double inputMultiplier = 1.0;
    double outputMultiplier = 1.0;
    std::vector<scalar*> outputs;
    bool off = false;
    bool bypass = false;
    bool suspended = false;
    std::vector<bool> bypassRequests = std::vector<bool>(1, false);
    std::vector<bool> offRequests = std::vector<bool>(1, false);

    friend class DSPGraphParser;
};

}  // namespace vrn
