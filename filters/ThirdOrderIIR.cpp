#include "filters/ThirdOrderIIR.h"

namespace vrn {

void ThirdOrderIIR::readMore() {
    // The messages name BiQuad: descriptions and tools match on these texts as they are.
    getProperty(properties, "InputIndex", inputIndex, toInt,
                InvalidArgumentException("InputIndex is not defined. BiQuad name=" + name));
    if (inputIndex < 0)
        throw InvalidArgumentException("InputIndex must be greater than or equal to 0. BiQuad name=" + name +
                                       " InputIndex=" + toString(inputIndex));
}

scalar ThirdOrderIIR::process(scalar in) {
    const scalar out =
        x[0] * b[1] + in * b[0] + x[1] * b[2] + x[2] * b[3] - y[0] * a[0] - y[1] * a[1] - y[2] * a[2];
    x0 = in;
    x[2] = x[1];
    x[1] = x[0];
    x[0] = in;
    y[2] = y[1];
    y[1] = y[0];
    y[0] = out;
    return out;
}

scalar* ThirdOrderIIR::process(scalar* in, size_t framesPerBuffer) {
    process(static_cast<const scalar*>(in), buffer, framesPerBuffer);
    return buffer;
}

void ThirdOrderIIR::process(const scalar* in, scalar* out, size_t framesPerBuffer) {
    if (framesPerBuffer == 0 || !in || !out) return;
    const scalar b0 = b[0], b1 = b[1], b2 = b[2], b3 = b[3], a1 = a[0], a2 = a[1], a3 = a[2];
    scalar x1 = x[0], x2 = x[1], x3 = x[2], y1 = y[0], y2 = y[1], y3 = y[2];
    size_t i = 0;
    // Same arithmetic as process(scalar), four samples per round with the history in registers.
    for (; i + 4 <= framesPerBuffer; i += 4) {
        const scalar i0 = in[i], i1 = in[i + 1], i2 = in[i + 2], i3 = in[i + 3];
        const scalar o0 = x1 * b1 + i0 * b0 + x2 * b2 + x3 * b3 - y1 * a1 - y2 * a2 - y3 * a3;
        const scalar o1 = i0 * b1 + i1 * b0 + x1 * b2 + x2 * b3 - o0 * a1 - y1 * a2 - y2 * a3;
        const scalar o2 = i1 * b1 + i2 * b0 + i0 * b2 + x1 * b3 - o1 * a1 - o0 * a2 - y1 * a3;
        const scalar o3 = i2 * b1 + i3 * b0 + i1 * b2 + i0 * b3 - o2 * a1 - o1 * a2 - o0 * a3;
        out[i] = o0;
        out[i + 1] = o1;
        out[i + 2] = o2;
        out[i + 3] = o3;
        x3 = i1;
        x2 = i2;
        x1 = i3;
        y3 = o1;
        y2 = o2;
        y1 = o3;
    }
    for (; i < framesPerBuffer; ++i) {
        const scalar i0 = in[i];
        const scalar o0 = x1 * b1 + i0 * b0 + x2 * b2 + x3 * b3 - y1 * a1 - y2 * a2 - y3 * a3;
        out[i] = o0;
        x3 = x2;
        x2 = x1;
        x1 = i0;
        y3 = y2;
        y2 = y1;
        y1 = o0;
    }
    x0 = x1;
    x[0] = x1;
    x[1] = x2;
    x[2] = x3;
    y[0] = y1;
    y[1] = y2;
    y[2] = y3;
}

}  // namespace vrn
