#pragma once
// Scales its input by a linear factor, the property "Gain".

#include "engine/BufferedFilter.h"
#include "engine/Glide.h"

namespace vrn {

class Gain : public BufferedFilter {
public:
    Gain() : BufferedFilter("Gain") {}

    void init(const std::string& name, std::shared_ptr<DSPContext>& context) override;
    void init(const std::string& name, const Properties& properties, std::shared_ptr<DSPContext>& context) override;
    // "Gain": takes effect at the next sample, or glides there when a glide time is set.
    void propertyChanged(const std::string& name, scalar value) override;
    using BufferedFilter::propertyChanged;
    // Load time: a new "Gain" moves there in a straight line over `seconds` once audio has
    // passed (0, the default: at once).
    void setGlideTime(scalar seconds);
    void setSamplingRate(scalar rate) override;

    using BufferedFilter::process;
    void process(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs, size_t framesPerBuffer) override;
    // Audio thread, no allocation; in and out may be the same array.  A null input is silence.
    void process(const scalar* in, scalar* out, size_t framesPerBuffer) override;
    void process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t frameIndex, int iteration) override;

    std::shared_ptr<ElementMeta> getMeta() override;
    // A glide under way ends at its target.
    void reset() override;
    scalar getGain() const { return gain; }
    scalar getTargetGain() const { return static_cast<scalar>(glide.target()); }

private:
    scalar gain = 0;
    scalar rate = 0;
    Glide glide;
};

}  // namespace vrn
