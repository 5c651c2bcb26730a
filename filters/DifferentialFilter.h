#pragma once
// out = Gain·(plus − minus), with either port optionally held at a constant value.

#include "engine/BufferedFilter.h"

namespace vrn {

class DifferentialFilterMeta : public ElementMeta {
public:
    int getInputIndex(const std::string& portName) override;
    int getNumberOfInputs() override { return numberOfInputs; }
    int getOutputIndex(const std::string& portName) override { return BasicFilterMeta().getOutputIndex(portName); }
    int getNumberOfOutputs() override { return 1; }

private:
    int numberOfInputs = 2;
};

class DifferentialFilter : public BufferedFilter {
public:
    DifferentialFilter();

    void init(const std::string& name, const Properties& properties, std::shared_ptr<DSPContext>& context) override;
    using BufferedFilter::init;
    // "Gain".
    void propertyChanged(const std::string& name, scalar value) override;
    using BufferedFilter::propertyChanged;

    using BufferedFilter::process;
    // Audio thread, no allocation.  An unconnected port reads as silence.
    void process(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs, size_t framesPerBuffer) override;
    void process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t frameIndex, int iteration) override;

    std::shared_ptr<ElementMeta> getMeta() override;
    void reset() override {}

private:
    scalar gain = 0;
    int plusIndex = 0;
    int minusIndex = 1;
    std::string constantValueNode;
    int constantValueNodeIndex = -1;
    scalar constantValue = 0;
    bool hasConstantValue = false;
};

}  // namespace vrn
