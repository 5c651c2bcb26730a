#pragma once
// The FIR family: Fir, the direct-form filter of up to 256 taps with a four-lane inner product;
// PolyphaseDownsampler and PolyphaseUpsampler, which change the rate by an integer factor without
// computing samples that are discarded or known to be zero; ResamplingDecimator and
// ResamplingUpsampler, which design their own taps by the Kaiser window method.

#include <memory>
#include <vector>

#include "engine/BufferedFilter.h"

namespace vrn {

// Kaiser window design, shared by the resampling filters and exposed for checking.
namespace kaiser {

// I0, the modified Bessel function of the first kind of order 0, by the polynomial
// approximations of Abramowitz and Stegun 9.8.1 (|x| < 3.75) and 9.8.2 (beyond).
double besselI0(double x);
// Kaiser's beta for a stop-band attenuation in dB: the formula for 21 to 50 dB, used for every
// attenuation (below 21 dB it is not a number, and so are the taps).
double beta(double attenuation);
// The window at distance m from the centre of a filter of `taps` taps; 0 where not finite.
scalar window(int m, int taps, double beta);
// Fills taps[0..order-1] with a low-pass of corner relativeCorner (a fraction of the sampling
// rate), scaled so that the taps sum to 1.  For an even order the two middle taps are equal.
// No allocation.
void design(scalar* taps, int order, scalar relativeCorner, scalar attenuation, size_t factor);

}  // namespace kaiser

class Fir : public BufferedFilter {
public:
    static constexpr size_t kMaxTaps = 256;

    Fir();
    ~Fir() override;

    // Load time.
    void init(const std::string& name, std::shared_ptr<DSPContext>& context) override;
    void init(const std::string& name, const Properties& properties, std::shared_ptr<DSPContext>& context) override;

    // Audio thread, no allocation.  A block writes nothing when its input is null or n is 0.
    scalar process(scalar in) override;
    using BufferedFilter::process;
    void process(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs, size_t framesPerBuffer) override;
    scalar* process(scalar* in, size_t framesPerBuffer) override;
    void process(const scalar* in, scalar* out, size_t framesPerBuffer) override;
    void process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t frameIndex, int iteration) override;
    void endIteration(int frameIndex) override;

    // "Coefficients": new taps, the delay line kept.
    void propertyChanged(const std::string& name, const std::shared_ptr<std::vector<scalar>>& values) override;
    using BufferedFilter::propertyChanged;
    // Load time or between blocks: grows the delay line and the buffer, clearing the delay line.
    void setMaxBlockSize(int size) override;
    std::shared_ptr<ElementMeta> getMeta() override;
    void reset() override;

    virtual void setProperties(const Properties& properties);
    // Between blocks; allocates nothing once init has run.
    virtual void setCoefficients(const scalar* b, size_t count);

    size_t getLength() const { return length; }
    const scalar* getCoefficients() const { return coefficients; }

protected:
    struct alignas(16) Group {
        scalar v[4];
    };

    // Where the next input goes in history.
    size_t presentPosition() const { return 4 * numberOfGroups - 1; }
    // Moves the last length - 1 inputs of a block of n down in front of the present position.
    void slide(size_t n);
    // The block's inputs go in behind the kept history.
    void takeInputs(const scalar* in, size_t n) const;
    // Grows history to frames + 256 samples and the buffer to frames samples.
    void grow(int frames);
    void ensureHistory();

    int inputIndex = 0;
    size_t numberOfGroups = 1;
    size_t length = 0;
    scalar coefficients[kMaxTaps];
    std::vector<Group> packedCoefficients;
    scalar* history = nullptr;
    size_t historySize = 0;
};

class PolyphaseDownsampler : public Fir {
public:
    void init(const std::string& name, const Properties& properties, std::shared_ptr<DSPContext>& context) override;
    // Does nothing and gives 0.
    scalar process(scalar in) override;
    using Fir::process;
    // Outputs for inputs 0, factor, 2 factor, … of the block: n / factor rounded up.
    void process(const scalar* in, scalar* out, size_t framesPerBuffer) override;
    void process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t frameIndex, int iteration) override;
    std::vector<scalar>& getLastIterationResults() override;
    void endIteration(int frameIndex) override;
    // size counts input frames.
    void setMaxBlockSize(int size) override;
    size_t getFactor() const { return factor; }

protected:
    size_t factor = 0;
};

class PolyphaseUpsampler : public Fir {
public:
    void init(const std::string& name, const Properties& properties, std::shared_ptr<DSPContext>& context) override;
    // Refused: one input makes factor outputs.
    scalar process(scalar in) override;
    using Fir::process;
    // factor outputs per input, phase by phase.
    void process(const scalar* in, scalar* out, size_t framesPerBuffer) override;
    void process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t frameIndex, int iteration) override;
    std::vector<scalar>& getLastIterationResults() override;
    void endIteration(int frameIndex) override;
    // size counts input frames; the buffer holds size × factor.
    void setMaxBlockSize(int size) override;
    // The length is rounded up to a multiple of the factor with zero taps.
    void setCoefficients(const scalar* b, size_t count) override;
    size_t getFactor() const { return factor; }

protected:
    size_t groupsPerPhase = 1;
    std::vector<Group> inputWindow;
    size_t factor = 0;
};

// What the two resampling filters read and design alike.
struct KaiserResamplerSettings {
    int order = 0;
    scalar relativeCorner = -1.0f;
    scalar absoluteCorner = -1.0f;
    scalar attenuation = 0.0f;
    bool useAbsoluteCorner = true;
    std::shared_ptr<std::vector<scalar>> designed;

    // Checks the properties in their order, with messages starting "<typeName>: "; gives the factor.
    int read(const std::string& typeName, const Properties& properties);
    // Designs order taps into designed at the present relativeCorner.
    void design(size_t factor);
};

class ResamplingDecimator : public PolyphaseDownsampler {
public:
    // Load time.  Writes the rounded Order back into the caller's properties.
    void init(const std::string& name, const Properties& properties, std::shared_ptr<DSPContext>& context) override;
    // Between blocks: with an absolute corner, designs anew for the rate.
    void setSamplingRate(scalar rate) override;
    const KaiserResamplerSettings& getSettings() const { return settings; }

private:
    KaiserResamplerSettings settings;
};

class ResamplingUpsampler : public PolyphaseUpsampler {
public:
    // Load time.  Writes the rounded Order back into the caller's properties.
    void init(const std::string& name, const Properties& properties, std::shared_ptr<DSPContext>& context) override;
    // Between blocks: with an absolute corner, designs anew for the rate.
    void setSamplingRate(scalar rate) override;
    const KaiserResamplerSettings& getSettings() const { return settings; }

private:
    void designAndApply();

    KaiserResamplerSettings settings;
};

}  // namespace vrn
