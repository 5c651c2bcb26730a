#pragma once
// Sums its inputs, each scaled by a fader ("Faders": at least two values from 0 to 1).

#include "engine/BufferedFilter.h"

namespace vrn {

// Announces one port "in" like BasicFilterMeta; the Mixer sums over the whole list it is given.
class MixerMeta : public BasicFilterMeta {};

class Mixer : public BufferedFilter {
public:
    Mixer() : BufferedFilter("Mixer"), meta(std::make_shared<MixerMeta>()) {}

    void init(const std::string& name, const Properties& properties, std::shared_ptr<DSPContext>& context) override;
    using BufferedFilter::init;
    // The name is the fader's number; the value is not range-checked.
    void propertyChanged(const std::string& name, scalar value) override;
    using BufferedFilter::propertyChanged;

    using BufferedFilter::process;
    void process(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs, size_t framesPerBuffer) override;
    void process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t frameIndex, int iteration) override;

    std::shared_ptr<ElementMeta> getMeta() override { return meta; }
    void reset() override {}

private:
    std::shared_ptr<MixerMeta> meta;
    std::shared_ptr<std::vector<scalar>> faders;
};

}  // namespace vrn
