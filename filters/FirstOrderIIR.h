#pragma once
// First-order recursion y = x b0 + x1 b1 - y1 a: the shipped DC block, and the discrete form of
// one-pole networks.

#include "filters/FixedOrderIIR.h"

namespace vrn {

class FirstOrderIIR : public FixedOrderIIR<1> {
public:
    FirstOrderIIR() : FixedOrderIIR<1>("FirstOrderIIR") {}

    // Program code: sizes the port lists; coefficients and state stay zero.
    void init(const std::string& name, std::shared_ptr<DSPContext>& context) override;
    using FixedOrderIIR<1>::init;

    using FixedOrderIIR<1>::process;
    // One step outside any block; moves the state, does not touch the buffer.
    scalar process(scalar in) override;
    // Not available on this filter: returns null.
    scalar* process(scalar* in, size_t framesPerBuffer) override;
    // Audio thread, no allocation.  in and out must be different arrays.
    void process(const scalar* in, scalar* out, size_t framesPerBuffer) override;

protected:
    // Only the start of the text is read, as one number.
    void readA(scalar* values) override;
};

}  // namespace vrn
