#pragma once
// A filter whose coefficients are functions of named properties and of the sampling rate.
// FilterWrapper stands in a DSP graph, forwards the audio work to an inner filter and hands every
// property and rate change to a WrappedFilterPropertyCalculator, which owns the inner filter and
// rewrites its "A" and "B" vectors.  The calculator runs only on a change, never per sample.

#include <memory>
#include <string>
#include <unordered_map>

#include "engine/Element.h"

class WrappedFilterPropertyCalculator {
public:
    virtual ~WrappedFilterPropertyCalculator() {}
    // The inner filter, made by the calculator's constructor and shared with the wrapper.
    virtual std::shared_ptr<vrn::Filter>& getFilter() = 0;
    // Load time or between blocks: the whole set of the wrapper's named values.
    virtual void propertiesChanged(const std::unordered_map<std::string, vrn::scalar>& properties) = 0;
    virtual void propertyChanged(const std::string& name, vrn::scalar value) = 0;
    // The rate the inner filter runs at (the graph's own rate, oversampling included).
    virtual void setSamplingRate(vrn::scalar rate) = 0;
    // Audio thread, no allocation, before the inner filter runs the next `frames` samples: a
    // calculator whose values glide moves them on and rewrites the coefficients here.  Returns
    // for how many of those frames the coefficients hold (all of them while nothing moves).
    virtual size_t advance(size_t frames) { return frames; }
};

class FilterWrapper : public vrn::Filter {
public:
    typedef std::unordered_map<std::string, vrn::scalar> WrappedProperties;

    FilterWrapper();
    ~FilterWrapper() override;

    // Without a calculator the value is remembered and delivered at setCalculator.
    void propertyChanged(const std::string& name, vrn::scalar value) override;
    using vrn::Filter::propertyChanged;

    void init(const std::string& name, std::shared_ptr<vrn::DSPContext>& context) override;
    // Reads the values named by "PropertyNames" ("a|b|..."); names without a value are skipped.
    void init(const std::string& name, const vrn::Properties& properties,
              std::shared_ptr<vrn::DSPContext>& context) override;

    // Everything below runs the inner filter and needs a wired wrapper.  Audio thread, no allocation.
    vrn::scalar process(vrn::scalar in) override;
    void process(const std::vector<vrn::scalar*>& inputs, size_t framesPerBuffer) override;
    void process(const std::vector<vrn::scalar*>& inputs, std::vector<vrn::scalar*>& outputs,
                 size_t framesPerBuffer) override;
    vrn::scalar* process(vrn::scalar* in, size_t framesPerBuffer) override;
    void process(const vrn::scalar* in, vrn::scalar* out, size_t framesPerBuffer) override;

    // Goes to the calculator only: the inner filter's coefficients carry the rate.
    void setSamplingRate(vrn::scalar rate) override;

    void process(const std::shared_ptr<std::vector<vrn::scalar>>& inputs, size_t frameIndex, int iteration) override;
    std::vector<vrn::scalar>& getLastIterationResults() override;
    void endIteration(int frameIndex) override;
    void setMaxBlockSize(int size) override;
    vrn::scalar* getOutput(int index) override;
    std::vector<vrn::scalar*>& getOutputs() override;
    std::shared_ptr<vrn::ElementMeta> getMeta() override;
    void reset() override;

    // After parsing: attaches the network, delivers the remembered values and initialises the
    // inner filter with the wrapper's name and context.
    void setCalculator(const std::shared_ptr<WrappedFilterPropertyCalculator>& calculator);

    const WrappedProperties& getWrappedProperties() const { return wrappedProperties; }
    const std::shared_ptr<vrn::Filter>& getFilter() const { return filter; }

private:
    // Runs the inner filter over a block in the stretches that the calculator asks for.
    void processInStretches(const vrn::scalar* in, vrn::scalar* out, size_t framesPerBuffer, size_t first);

    WrappedProperties wrappedProperties;
    std::shared_ptr<WrappedFilterPropertyCalculator> calculator;
    std::shared_ptr<vrn::Filter> filter;
};
