#pragma once
// Passes one of its inputs ("in_0", "in_1", …) through: the property "Position".

#include "engine/BufferedFilter.h"

namespace vrn {

class SwitchMeta : public ElementMeta {
public:
    int getInputIndex(const std::string& portName) override;
    int getNumberOfInputs() override { return numberOfInputs; }
    int getOutputIndex(const std::string& portName) override { return BasicFilterMeta().getOutputIndex(portName); }
    int getNumberOfOutputs() override { return 1; }
    virtual void setNumberOfInputs(int number) { numberOfInputs = number; }

private:
    int numberOfInputs = 0;
};

class Switch : public BufferedFilter {
public:
    Switch() : BufferedFilter("Switch"), meta(std::make_shared<SwitchMeta>()) {}

    void propertiesChanged(const Properties& properties) override;
    // "Position": rounded to the nearest input; the change is an immediate jump.
    void propertyChanged(const std::string& name, scalar value) override;
    using BufferedFilter::propertyChanged;

    void init(const std::string& name, std::shared_ptr<DSPContext>& context) override;
    void init(const std::string& name, const Properties& properties, std::shared_ptr<DSPContext>& context) override;

    using BufferedFilter::process;
    void process(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs, size_t framesPerBuffer) override;
    void process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t frameIndex, int iteration) override;

    std::shared_ptr<ElementMeta> getMeta() override { return meta; }
    void reset() override {}
    int getPosition() const { return position; }

private:
    void validate(int inputs, int newPosition) const;

    std::shared_ptr<SwitchMeta> meta;
    int numberOfInputs = -1;
    int position = 0;
};

}  // namespace vrn
