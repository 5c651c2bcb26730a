#include "circuit/components/GridElements.h"

#include <algorithm>
#include <cmath>

#include "circuit/MNAContext.h"

namespace vrn {

namespace {

bool isGround(const std::string& node) { return node == "0" || node == "GND"; }

inline scalar voltage(const std::vector<scalar>& x, int index) {
    return index < 0 ? 0.0f : x[static_cast<size_t>(index)];
}

}  // namespace

// --- GridClamp

void GridClamp::init(const std::string& componentName, const Properties& properties,
                     const std::shared_ptr<std::vector<std::string>>& names,
                     const std::shared_ptr<MNAContext>& mnaContext) {
    bind(componentName, names, mnaContext);
    checkNodeCount("GridClamp", 3, "three");
    if (isGround((*names)[0]))
        throw InvalidArgumentException("GridClamp cannot hold a grounded grid. GridClamp name=" + name);
    fixedNode = (*names)[0];
    propertiesChanged(properties);
}

void GridClamp::propertiesChanged(const Properties& properties) {
    offset = 0.0f;
    auto it = properties.find("Offset");
    if (it != properties.end()) offset = toScalar(it->second);
}

scalar* GridClamp::getRhs(std::vector<scalar>& x) {
    const std::vector<int>& n = *nodeIndices;
    rhs[0] = std::min(voltage(x, n[1]), voltage(x, n[2]) + offset);
    rhs[1] = 0.0f;
    rhs[2] = 0.0f;
    return rhs;
}

// --- GridCurrentLoad

GridCurrentLoad::GridCurrentLoad() : jacobianRows{jacobian[0], jacobian[1], jacobian[2]} {}

void GridCurrentLoad::init(const std::string& componentName, const Properties& properties,
                           const std::shared_ptr<std::vector<std::string>>& names,
                           const std::shared_ptr<MNAContext>& mnaContext) {
    bind(componentName, names, mnaContext);
    checkNodeCount("GridCurrentLoad", 3, "three");
    readProperties(properties);
}

void GridCurrentLoad::propertiesChanged(const Properties& properties) { readProperties(properties); }

void GridCurrentLoad::readProperties(const Properties& properties) {
    auto read = [&](const char* key, double fallback, bool required) {
        auto it = properties.find(key);
        if (it == properties.end()) {
            if (required) throw VRNException(std::string(key) + " is not defined. GridCurrentLoad name=" + name);
            return fallback;
        }
        return parseDouble(it->second);
    };
    igc = read("Igc", 0, true);
    exponent = read("N", 1, true);
    vc = read("Vc", 0, false);
    // A negative Igc pushes the current into the load node instead (a fitted correction).
    if (!std::isfinite(igc) || !(exponent >= 1) || !std::isfinite(exponent))
        throw InvalidArgumentException("GridCurrentLoad: Igc must be a number and N at least 1. GridCurrentLoad name=" +
                                       name);
}

double GridCurrentLoad::controlVoltage(const std::vector<scalar>& x) const {
    const std::vector<int>& n = *nodeIndices;
    return static_cast<double>(voltage(x, n[1])) - static_cast<double>(voltage(x, n[2])) + vc;
}

double GridCurrentLoad::current(const std::vector<scalar>& x) const {
    double v = controlVoltage(x);
    return v > 0 ? igc * std::pow(v, exponent) : 0.0;
}

scalar* GridCurrentLoad::getRhs(std::vector<scalar>& x) {
    scalar i = static_cast<scalar>(current(x));
    rhs[0] = -i;
    rhs[1] = 0.0f;
    rhs[2] = i;
    return rhs;
}

scalar** GridCurrentLoad::getJacobian(std::vector<scalar>& x) {
    double v = controlVoltage(x);
    scalar g = v > 0 ? static_cast<scalar>(exponent * igc * std::pow(v, exponent - 1.0)) : 0.0f;
    jacobian[0][1] = g;
    jacobian[0][2] = -g;
    jacobian[2][1] = -g;
    jacobian[2][2] = g;
    return jacobianRows;
}

}  // namespace vrn
