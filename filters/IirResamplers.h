#pragma once
// IirInterpolator and IirDecimator: rate change by an integer Factor through a cascade of equal
// recursive low-pass sections designed at run time.  The interpolator stuffs zeros and filters at
// the high rate; the decimator filters at the high rate and keeps every Factor-th sample.  Both
// design for the high rate, so the same corner means the same filter on either side.

#include "engine/Element.h"
#include "filters/BiQuad.h"
#include "filters/FilterDesign.h"

namespace vrn {

class IirResampler : public Filter {
public:
    ~IirResampler() override;

    // The program-code form is not available.
    void init(const std::string& name, std::shared_ptr<DSPContext>& context) override;
    // Load time: "CornerFrequency", "Type", "Order", "Factor", "Cascade"; builds the sections.
    void init(const std::string& name, const Properties& properties, std::shared_ptr<DSPContext>& context) override;
    // A factor beyond any use, where the buffers would no longer fit in memory.
    static constexpr int kLargestFactor = 256;

    // "Factor", on the audio thread between blocks: rounds to a whole factor, sets the graph's
    // multiplier from it and asks the Driver to recompute rates, which designs the sections anew
    // at the next block (allocates).  Outside 1..kLargestFactor: InvalidArgumentException.
    void propertyChanged(const std::string& name, scalar value) override;
    using Filter::propertyChanged;

    using Filter::process;
    scalar process(scalar in) override;
    // Audio thread, no allocation.
    void process(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs, size_t framesPerBuffer) override;
    scalar* process(scalar* in, size_t framesPerBuffer) override;
    void process(const scalar* in, scalar* out, size_t framesPerBuffer) override;
    void process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t frameIndex, int iteration) override;
    std::vector<scalar>& getLastIterationResults() override;
    void endIteration(int frameIndex) override;

    // The graph's input rate; designs with the corner held below the low rate's Nyquist frequency.
    void setSamplingRate(scalar rate) override;
    std::shared_ptr<ElementMeta> getMeta() override;
    void reset() override;

    int getFactor() const { return factor; }
    scalar getRelativeFrequency() const { return relativeFrequency; }
    const std::vector<std::shared_ptr<Filter>>& getSections() const { return sections; }

protected:
    IirResampler(const char* typeName, const char* sectionName, bool interpolating)
        : typeName(typeName), sectionName(sectionName), interpolating(interpolating) {}
    void design();
    [[noreturn]] void refuse(const std::string& what) const;

    const char* typeName;
    const char* sectionName;
    bool interpolating;
    filterdesign::Options type = filterdesign::BUTTERWORTH;
    int order = 2;
    int factor = 1;
    scalar cornerFrequency = -1.0f;
    scalar relativeFrequency = 0;
    bool designable = true;
    int cascade = 1;
    std::vector<std::shared_ptr<Filter>> sections;
    // The same sections when all are BiQuads, which run as one pipelined cascade.
    std::vector<BiQuad*> biquads;
    // Audio thread: in through every section into the last one's buffer; returns that buffer.
    const scalar* runSections(const scalar* in, size_t frames);
    std::vector<scalar*> sectionInputs = std::vector<scalar*>(1, nullptr);
    scalar* samples = nullptr;  // interpolator: the stuffed input; decimator: the kept output
};

class IirInterpolator : public IirResampler {
public:
    IirInterpolator() : IirResampler("IirInterpolator", "interpolation filter ", true) {}

    using IirResampler::process;
    // Audio thread: frames input samples become factor·frames in the last section's buffer.
    void process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) override;
    // Load time or between blocks: n counts input samples; the buffers hold factor·n.
    void setMaxBlockSize(int n) override;
    scalar* getOutput(int index) override;
    std::vector<scalar*>& getOutputs() override;
};

class IirDecimator : public IirResampler {
public:
    IirDecimator() : IirResampler("IirDecimator", "decimation filter ", false), outputs(1, nullptr) {}

    using IirResampler::process;
    // Audio thread: frames high-rate samples become frames / factor (rounded up) in the output.
    void process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) override;
    // Load time or between blocks: n counts high-rate input samples.
    void setMaxBlockSize(int n) override;
    scalar* getOutput(int index) override;
    std::vector<scalar*>& getOutputs() override { return outputs; }

private:
    std::vector<scalar*> outputs;
};

}  // namespace vrn
