#pragma once
// What the hand-written recursive filters of order 1 to 3 share: coefficients and a direct
// form I state (past inputs and outputs as scalars), the reading of "A" and "B", coefficient
// changes that keep the state, the per-sample handler path and the iteration protocol.
// y[n] = b0 x[n] + ... + bN x[n-N] - a1 y[n-1] - ... - aN y[n-N]; the leading 1 is not stored.

#include "engine/BufferedFilter.h"

namespace vrn {

template <int N>
class FixedOrderIIR : public BufferedFilter {
public:
    // Load time: reads "A" (N values) and "B" (N + 1 values), clears the state.
    void init(const std::string& name, const Properties& properties, std::shared_ptr<DSPContext>& context) override;
    using BufferedFilter::init;
    // "A" or "B": the new values act on the next sample; the delay lines are kept.
    void propertyChanged(const std::string& name, const std::shared_ptr<std::vector<scalar>>& values) override;
    using BufferedFilter::propertyChanged;

    using BufferedFilter::process;
    // Audio thread, no allocation: the handler's per-sample path if it asks for one, else the kernel.
    void process(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs, size_t framesPerBuffer) override;
    // A pass of an iteration: does not move the state.
    void process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t frameIndex, int iteration) override;
    void endIteration(int frameIndex) override;

    std::shared_ptr<ElementMeta> getMeta() override;
    // Clears the delay lines; the coefficients stay.
    void reset() override;
    // Copies N values from a and N + 1 from b; the state is not touched.
    virtual void setCoefficients(const scalar* a, const scalar* b);

    // For tests and tools: the coefficients in use, a1..aN and b0..bN.
    const scalar* getA() const { return a; }
    const scalar* getB() const { return b; }

protected:
    explicit FixedOrderIIR(const char* typeName) : BufferedFilter(typeName) {}
    // How "A" is read at init; FirstOrderIIR reads a single number instead of a list.
    virtual void readA(scalar* values);
    // Properties read after "B" (ThirdOrderIIR's InputIndex).
    virtual void readMore() {}
    void readList(const char* key, size_t expected, scalar* values);
    void clearState();

    scalar a[N] = {};
    scalar b[N + 1] = {};
    scalar x0 = 0;
    scalar x[N] = {};  // x[0] is x[n-1]
    scalar y[N] = {};  // y[0] is y[n-1]
    scalar partialSum = 0;
};

extern template class FixedOrderIIR<1>;
extern template class FixedOrderIIR<2>;
extern template class FixedOrderIIR<3>;

}  // namespace vrn
