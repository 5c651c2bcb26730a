#include "amp/AmpData.h"

#include <cstdint>

namespace {

const int16_t kU87Steps[] = {
#include "resources/u87.inc"
};

const vrn::scalar kYdOhms[] = {
#include "resources/yd.inc"
};

}  // namespace

namespace ampdata {

AmpImpulseResponse u87() {
    auto samples = std::make_shared<std::vector<vrn::scalar>>();
    samples->reserve(sizeof kU87Steps / sizeof kU87Steps[0]);
    // Exact: every step is an integer below 2^15, scaled by a power of two.
    for (int16_t step : kU87Steps) samples->push_back(static_cast<vrn::scalar>(step) * (1.0f / 32768.0f));
    return AmpImpulseResponse{"u87", 44100.0f, samples};
}

std::shared_ptr<std::vector<vrn::scalar>> gridTableYd() {
    return std::make_shared<std::vector<vrn::scalar>>(std::begin(kYdOhms), std::end(kYdOhms));
}

}  // namespace ampdata
