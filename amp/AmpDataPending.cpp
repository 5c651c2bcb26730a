// Temporary stand-ins, replaced by the generated tube curves and grid table "yg" when those land.
//
// Shapes with the right grids and end points so that the amplifier runs and its level is sensible:
// each tube curve is a tanh-shaped monotonic fall from its cut-off value to its value at the top
// of its range, and "yg" follows a 3/2-power grid-current law from 1.41 V.

#include <cmath>

#include "amp/AmpData.h"
#include "engine/Exceptions.h"

namespace {

struct CurveShape {
    double vinMin, deltaV;
    size_t entries;
    double first, last;   // plate volts at the bottom and the top of the range
    double centre, width;  // of the fall, in grid volts
};

std::shared_ptr<std::vector<vrn::scalar>> fall(const CurveShape& c) {
    auto table = std::make_shared<std::vector<vrn::scalar>>(c.entries);
    const double vinMax = c.vinMin + c.deltaV * double(c.entries - 1);
    const double top = std::tanh((c.vinMin - c.centre) / c.width);
    const double bottom = std::tanh((vinMax - c.centre) / c.width);
    for (size_t i = 0; i < c.entries; ++i) {
        const double t = std::tanh((c.vinMin + c.deltaV * double(i) - c.centre) / c.width);
        (*table)[i] = static_cast<vrn::scalar>(c.first + (c.last - c.first) * (t - top) / (bottom - top));
    }
    return table;
}

}  // namespace

namespace ampdata {

std::shared_ptr<std::vector<vrn::scalar>> tubeCurve(char curve) {
    switch (curve) {
        case 'A': return fall({-8.0, 0.01, 1601, 260.0, 92.8997, 0.0, 1.6});
        case 'B': return fall({-8.0, 0.02, 5401, 260.0, 96.2596, 0.0, 1.8});
        case 'C': return fall({-8.0, 0.02, 4401, 260.0, 137.5311, -0.8, 1.8});
        case 'D': return fall({-40.0, 0.01, 14001, 599.0828, 42.8223, 2.0, 14.0});
        case 'E': return fall({-40.0, 0.01, 14001, 599.0828, -30.2877, 4.0, 16.0});
        default: throw vrn::VRNException(std::string("ampdata: no tube curve ") + curve);
    }
}

std::shared_ptr<std::vector<vrn::scalar>> gridTableYg() {
    // Ig = k (V - 1.41)^1.5, k chosen so that 4 V gives about 6155 ohm.
    const double onset = 1.41, k = 1.559e-4;
    auto table = std::make_shared<std::vector<vrn::scalar>>(1001);
    for (size_t i = 0; i < table->size(); ++i) {
        const double v = 0.02 * double(i);
        const double current = v > onset ? k * std::pow(v - onset, 1.5) : 0.0;
        const double ohms = current > 0.0 ? v / current : 1e10;
        (*table)[i] = static_cast<vrn::scalar>(std::fmin(ohms, 1e10));
    }
    return table;
}

}  // namespace ampdata
