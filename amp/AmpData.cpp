#include "amp/AmpData.h"

#include <cstdint>
#include <stdexcept>
#include <string>

namespace {

const int16_t kU87Steps[] = {
#include "resources/u87.inc"
};

const vrn::scalar kYdOhms[] = {
#include "resources/yd.inc"
};

const vrn::scalar kYgOhms[] = {
#include "resources/yg.inc"
};

const vrn::scalar kCurveA[] = {
#include "resources/tube_curve_a.inc"
};
const vrn::scalar kCurveB[] = {
#include "resources/tube_curve_b.inc"
};
const vrn::scalar kCurveC[] = {
#include "resources/tube_curve_c.inc"
};
const vrn::scalar kCurveD[] = {
#include "resources/tube_curve_d.inc"
};
const vrn::scalar kCurveE[] = {
#include "resources/tube_curve_e.inc"
};

template <size_t N>
std::shared_ptr<std::vector<vrn::scalar>> copyOf(const vrn::scalar (&values)[N]) {
    return std::make_shared<std::vector<vrn::scalar>>(std::begin(values), std::end(values));
}

}  // namespace

namespace ampdata {

AmpImpulseResponse u87() {
    auto samples = std::make_shared<std::vector<vrn::scalar>>();
    samples->reserve(sizeof kU87Steps / sizeof kU87Steps[0]);
    // Exact: every step is an integer below 2^15, scaled by a power of two.
    for (int16_t step : kU87Steps) samples->push_back(static_cast<vrn::scalar>(step) * (1.0f / 32768.0f));
    return AmpImpulseResponse{"u87", 44100.0f, samples};
}

std::shared_ptr<std::vector<vrn::scalar>> gridTableYd() { return copyOf(kYdOhms); }

std::shared_ptr<std::vector<vrn::scalar>> gridTableYg() { return copyOf(kYgOhms); }

std::shared_ptr<std::vector<vrn::scalar>> tubeCurve(char curve) {
    switch (curve) {
        case 'A': return copyOf(kCurveA);
        case 'B': return copyOf(kCurveB);
        case 'C': return copyOf(kCurveC);
        case 'D': return copyOf(kCurveD);
        case 'E': return copyOf(kCurveE);
        default: throw std::invalid_argument(std::string("ampdata::tubeCurve: no curve ") + curve);
    }
}

}  // namespace ampdata
