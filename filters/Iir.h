#pragma once
// Direct form I recursion of any order on the dot-product kernel:
// y[n] = b0 x[n] + ... + bN x[n-N] - a1 y[n-1] - ... - aN y[n-N], A = a1|...|aN, B = b0|...|bN.
// The coefficients are stored reversed and the history kept in time order, so each output is two
// plain dot products over contiguous samples.

#include "engine/BufferedFilter.h"

namespace vrn {

class Iir : public BufferedFilter {
public:
    Iir() : BufferedFilter("Iir") {}
    ~Iir() override;

    // Program code: sizes the port lists; the order comes by propertyChanged("Order", …).
    void init(const std::string& name, std::shared_ptr<DSPContext>& context) override;
    // Load time: "Order", "A", "B".
    void init(const std::string& name, const Properties& properties, std::shared_ptr<DSPContext>& context) override;
    // "Order": rounded; clears the history once there is a block size.
    void propertyChanged(const std::string& name, scalar value) override;
    // "A" or "B": the history is kept.
    void propertyChanged(const std::string& name, const std::shared_ptr<std::vector<scalar>>& values) override;

    using BufferedFilter::process;
    // Has no sample-by-sample form: answers 0.
    scalar process(scalar in) override;
    void process(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs, size_t framesPerBuffer) override;
    // Audio thread: the kernel into the filter's buffer, which it returns.
    scalar* process(scalar* in, size_t framesPerBuffer) override;
    // Audio thread, no allocation.  in and out must be different arrays.
    void process(const scalar* in, scalar* out, size_t framesPerBuffer) override;
    void process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t frameIndex, int iteration) override;
    void endIteration(int frameIndex) override;

    // Rates mean nothing to a filter with given coefficients; a handler is not told either.
    void setSamplingRate(scalar) override {}
    // Load time or between blocks: a larger size reallocates and clears the history.
    void setMaxBlockSize(int size) override;
    std::shared_ptr<ElementMeta> getMeta() override;
    void reset() override;

    // a1..aN and b0..bN, in the order of the properties.
    virtual void setA(const std::vector<scalar>& a);
    virtual void setB(const std::vector<scalar>& b);
    // At least 1.  Coefficient vectors are not resized here.
    virtual void setOrder(int order);

    int getOrder() const { return static_cast<int>(numberOfCoefficients) - 1; }

private:
    void allocateHistory();
    void readList(const char* key, size_t expected, std::vector<scalar>& values);

    size_t numberOfCoefficients = 0;
    std::vector<scalar> a;  // reversed: a[0] multiplies y[n-N]
    std::vector<scalar> b;  // reversed: b[0] multiplies x[n-N]
    scalar* x = nullptr;    // N past inputs, oldest first, then room for a block's first N inputs
    scalar* y = nullptr;    // the same for outputs
};

}  // namespace vrn
