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
};

}  // namespace vrn
