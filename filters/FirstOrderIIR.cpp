#include "filters/FirstOrderIIR.h"

namespace vrn {

void FirstOrderIIR::init(const std::string& filterName, std::shared_ptr<DSPContext>& filterContext) {
    Filter::init(filterName, filterContext);
    sizePorts();
}

void FirstOrderIIR::readA(scalar* values) {
    getProperty(properties, "A", values[0], toScalar,
                InvalidArgumentException("A is not defined. FirstOrderIIR name=" + name));
}

scalar FirstOrderIIR::process(scalar in) {
    const scalar out = in * b[0] + x[0] * b[1] - y[0] * a[0];
    x0 = in;
    x[0] = in;
    y[0] = out;
    return out;
}

scalar* FirstOrderIIR::process(scalar*, size_t) { return nullptr; }

void FirstOrderIIR::process(const scalar* in, scalar* out, size_t framesPerBuffer) {
    if (framesPerBuffer == 0 || !in || !out) return;
    const scalar b0 = b[0], b1 = b[1], a1 = a[0];
    scalar x1 = x[0], y1 = y[0];
    size_t i = 0;
    // Same arithmetic as process(scalar), four samples per round with the history in registers.
    for (; i + 4 <= framesPerBuffer; i += 4) {
        const scalar i0 = in[i], i1 = in[i + 1], i2 = in[i + 2], i3 = in[i + 3];
        const scalar o0 = i0 * b0 + x1 * b1 - y1 * a1;
        const scalar o1 = i1 * b0 + i0 * b1 - o0 * a1;
        const scalar o2 = i2 * b0 + i1 * b1 - o1 * a1;
        const scalar o3 = i3 * b0 + i2 * b1 - o2 * a1;
        out[i] = o0;
        out[i + 1] = o1;
        out[i + 2] = o2;
        out[i + 3] = o3;
        x1 = i3;
        y1 = o3;
    }
    for (; i < framesPerBuffer; ++i) {
        const scalar i0 = in[i];
        const scalar o0 = i0 * b0 + x1 * b1 - y1 * a1;
        out[i] = o0;
        x1 = i0;
        y1 = o0;
    }
    x0 = x1;
    x[0] = x1;
    y[0] = y1;
}

}  // namespace vrn
