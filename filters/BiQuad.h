#pragma once
// Second-order recursion, direct form I:
// y[n] = b0 x[n] + b1 x[n-1] + b2 x[n-2] - a1 y[n-1] - a2 y[n-2], with A = a1|a2, B = b0|b1|b2.

#include "filters/FixedOrderIIR.h"

namespace vrn {

class BiQuad : public FixedOrderIIR<2> {
public:
    BiQuad() : FixedOrderIIR<2>("BiQuad") {}

    // Program code: sizes the port lists and clears the state.
    void init(const std::string& name, std::shared_ptr<DSPContext>& context) override;
    using FixedOrderIIR<2>::init;

    using FixedOrderIIR<2>::process;
    // One step outside any block; moves the state, does not touch the buffer.
    scalar process(scalar in) override;
    // Not available on this filter: returns null.
    scalar* process(scalar* in, size_t framesPerBuffer) override;
    // Audio thread, no allocation.  in and out must be different arrays.
    void process(const scalar* in, scalar* out, size_t framesPerBuffer) override;

    // Audio thread, no allocation: in through the sections in order, each one's output the next
    // one's input, into out (which may be in).  Bit for bit what the sections give one after the
    // other; groups of four run side by side in vector lanes, each a sample behind the one before,
    // so that the recursions' latencies overlap.
    static void processCascade(BiQuad* const* sections, size_t count, const scalar* in, scalar* out,
                               size_t framesPerBuffer);
};

}  // namespace vrn
