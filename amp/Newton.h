#pragma once
// Solves one delay-free feedback loop per sample by Newton-Raphson: for each input x it finds the
// y with y = F(x - G(y)), where F is the chain of forward stages and G the chain of feedback
// stages.  Each stage comes with a derivative filter giving its slope at the same input, so that
// f'(y) = 1 + F'(.)G'(.) is the product of the slopes (chain rule).  The stage lists are filled
// by code; the description has no syntax for them.

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "engine/Element.h"

namespace newtondsp {
enum FeedbackType { Positive = 0, Negative = 1 };
}

class Newton : public vrn::Filter {
public:
    typedef std::vector<std::shared_ptr<vrn::Filter>> FilterList;

    Newton();

    // Stored, and passed to every stage ("MaxIterations" is also rounded into the limit).
    void propertyChanged(const std::string& name, vrn::scalar value) override;
    using vrn::Filter::propertyChanged;
    using vrn::Filter::init;
    // Requires RelativeError, AbsoluteError, MaxIterations, FeedbackType; Relaxation, MaxValue,
    // MinValue are optional.
    void init(const std::string& name, const vrn::Properties& properties,
              std::shared_ptr<vrn::DSPContext>& context) override;

    vrn::scalar process(vrn::scalar in) override;
    void process(const std::vector<vrn::scalar*>& inputs, size_t framesPerBuffer) override;
    void process(const std::vector<vrn::scalar*>& inputs, std::vector<vrn::scalar*>& outputs,
                 size_t framesPerBuffer) override;
    vrn::scalar* process(vrn::scalar* in, size_t framesPerBuffer) override;
    // The solver.  Audio thread, no allocation.
    void process(const vrn::scalar* in, vrn::scalar* out, size_t framesPerBuffer) override;
    void setSamplingRate(vrn::scalar rate) override;

    void process(const std::shared_ptr<std::vector<vrn::scalar>>& inputs, size_t frameIndex, int iteration) override;
    std::vector<vrn::scalar>& getLastIterationResults() override;
    void endIteration(int frameIndex) override;
    void setMaxBlockSize(int size) override;
    vrn::scalar* getOutput(int index) override;
    std::vector<vrn::scalar*>& getOutputs() override;
    std::shared_ptr<vrn::ElementMeta> getMeta() override;
    // Resets the stages; the solution estimate is kept as the next starting point.
    void reset() override;

    // Load time.  A chain's filter and derivative lists must have the same length.
    void addForwardFilter(const std::shared_ptr<vrn::Filter>& filter) { forwardFilters.push_back(filter); }
    void addForwardDerivative(const std::shared_ptr<vrn::Filter>& filter) { forwardDerivatives.push_back(filter); }
    void addFeedbackFilter(const std::shared_ptr<vrn::Filter>& filter) { feedbackFilters.push_back(filter); }
    void addFeedbackDerivative(const std::shared_ptr<vrn::Filter>& filter) { feedbackDerivatives.push_back(filter); }
    FilterList& getForwardFilters() { return forwardFilters; }
    FilterList& getForwardDerivatives() { return forwardDerivatives; }
    FilterList& getFeedbackFilters() { return feedbackFilters; }
    FilterList& getFeedbackDerivatives() { return feedbackDerivatives; }

    vrn::scalar getEstimate() const { return estimate; }
    newtondsp::FeedbackType getFeedbackType() const { return feedbackType; }

private:
    // Runs one pass of every stage of a chain on loopInput and multiplies up the slopes.
    vrn::scalar runChain(FilterList& filters, FilterList& derivatives, size_t frameIndex, int pass);

    std::unordered_map<std::string, vrn::scalar> scalarProperties;
    FilterList forwardFilters;
    FilterList forwardDerivatives;
    FilterList feedbackFilters;
    FilterList feedbackDerivatives;
    std::shared_ptr<std::vector<vrn::scalar>> loopInput;
    vrn::scalar error = 0;
    vrn::scalar denominator = 0;
    vrn::scalar next = 0;
    vrn::scalar estimate = 0;
    vrn::scalar step = 1;
    vrn::scalar convergence = 1;
    vrn::scalar relativeError = 0;
    vrn::scalar absoluteError = 0;
    vrn::scalar relaxation = 1.0f;
    vrn::scalar maxValue = 999999986991104.0f;
    vrn::scalar minValue = -999999986991104.0f;
    int maxIterations = 10;
    newtondsp::FeedbackType feedbackType = newtondsp::Negative;
    std::vector<vrn::scalar> outputBuffer;
    std::vector<vrn::scalar*> outputs;
};
