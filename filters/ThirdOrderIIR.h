#pragma once
// Third-order recursion, direct form I, with A = a1|a2|a3 and B = b0|b1|b2|b3.

#include "filters/FixedOrderIIR.h"

namespace vrn {

class ThirdOrderIIR : public FixedOrderIIR<3> {
public:
    ThirdOrderIIR() : FixedOrderIIR<3>("ThirdOrderIIR") {}

    using FixedOrderIIR<3>::init;

    using FixedOrderIIR<3>::process;
    // One step outside any block; moves the state, does not touch the buffer.
    scalar process(scalar in) override;
    // Audio thread: the kernel into the filter's buffer, which it returns.
    scalar* process(scalar* in, size_t framesPerBuffer) override;
    // Audio thread, no allocation.  in and out must be different arrays.
    void process(const scalar* in, scalar* out, size_t framesPerBuffer) override;

    // Kept from the properties; the filter always reads its first input.
    int getInputIndex() const { return inputIndex; }

protected:
    void readMore() override;

private:
    int inputIndex = 0;
};

}  // namespace vrn
