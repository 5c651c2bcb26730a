#pragma once
// A memoryless nonlinearity: each sample is mapped through a table of output values on an evenly
// spaced input grid (the tube stages).  Inputs in the first cell or below give entry 0; inputs at
// or past the last cell give the last entry; between, the table is interpolated linearly.

#include "engine/BufferedFilter.h"

namespace vrn {

class LookupTableFilter : public BufferedFilter {
public:
    LookupTableFilter();

    void propertiesChanged(const Properties& properties) override;
    // "Vout" only: shares the vector; a table can be replaced by one of the same length only.
    void propertyChanged(const std::string& name, const std::shared_ptr<std::vector<scalar>>& values) override;
    using BufferedFilter::propertyChanged;

    void init(const std::string& name, std::shared_ptr<DSPContext>& context) override;
    void init(const std::string& name, const Properties& properties, std::shared_ptr<DSPContext>& context) override;

    // The mapping of one sample; needs a table.
    scalar process(scalar in) override;
    void process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) override;
    void process(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs, size_t framesPerBuffer) override;
    scalar* process(scalar* in, size_t framesPerBuffer) override;
    // Audio thread, no allocation; in and out may be the same array.
    void process(const scalar* in, scalar* out, size_t framesPerBuffer) override;
    void process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t frameIndex, int iteration) override;

    std::shared_ptr<ElementMeta> getMeta() override;
    void reset() override {}

    const std::shared_ptr<std::vector<scalar>>& getValues() const { return values; }

private:
    int inputIndex = 0;
    scalar vinMin = 0;
    scalar vinMax = 0;
    scalar inverseDeltaV = 0;
    scalar deltaV = 0;
    std::shared_ptr<std::vector<scalar>> values;
};

}  // namespace vrn
