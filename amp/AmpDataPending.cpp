// Temporary stand-ins, replaced by the generated tube curves and grid table "yg" when those land.
//
// Shapes with the right grids, end points and the features the two CPU modes rely on: each stage
// is a tanh-shaped fall from its cut-off towards saturation; the high-CPU curves C and E equal the
// low-CPU curves B and D until the next grid conducts (1.4 V and 18.3 V), then C rises to
// 137.5 V at 80 V and E falls to -30.3 V at 100 V.  "yg" follows a 3/2-power grid-current law
// from 1.41 V.

#include <cmath>
#include <functional>

#include "amp/AmpData.h"
#include "engine/Exceptions.h"

namespace {

double fall(double v, double cutOff, double saturation, double centre, double width) {
    return saturation + (cutOff - saturation) * 0.5 * (1.0 - std::tanh((v - centre) / width));
}

double stageA(double v) { return fall(v, 260.0, 92.9, 0.0, 1.6); }
double stageB(double v) { return fall(v, 260.0, 96.0, 0.0, 1.8); }
double stageC(double v) { return stageB(v) + (v > 1.4 ? 41.6 * std::pow((v - 1.4) / 78.6, 1.5) : 0.0); }
double stageD(double v) { return fall(v, 599.08, 42.8, 2.0, 14.0); }
double stageE(double v) { return stageD(v) - (v > 18.3 ? 73.1 * std::pow((v - 18.3) / 81.7, 1.5) : 0.0); }

std::shared_ptr<std::vector<vrn::scalar>> sample(const std::function<double(double)>& stage, double vinMin,
                                                 double deltaV, size_t entries) {
    auto table = std::make_shared<std::vector<vrn::scalar>>(entries);
    for (size_t i = 0; i < entries; ++i) (*table)[i] = static_cast<vrn::scalar>(stage(vinMin + deltaV * double(i)));
    return table;
}

}  // namespace

namespace ampdata {

std::shared_ptr<std::vector<vrn::scalar>> tubeCurve(char curve) {
    switch (curve) {
        case 'A': return sample(stageA, -8.0, 0.01, 1601);
        case 'B': return sample(stageB, -8.0, 0.02, 5401);
        case 'C': return sample(stageC, -8.0, 0.02, 4401);
        case 'D': return sample(stageD, -40.0, 0.01, 14001);
        case 'E': return sample(stageE, -40.0, 0.01, 14001);
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
