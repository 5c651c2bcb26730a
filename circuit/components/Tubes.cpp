#include "circuit/components/Tubes.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "circuit/MNAContext.h"

namespace vrn {

namespace {

std::function<Properties()> entry(std::initializer_list<std::pair<const char*, const char*>> list) {
    std::vector<std::pair<const char*, const char*>> values(list);
    return [values] {
        Properties properties;
        for (const auto& value : values) properties[value.first] = value.second;
        return properties;
    };
}

const std::unordered_map<std::string, std::function<Properties()>> kTriodes = {
    {"12AX7", entry({{"Vct", "0.0"}, {"Kp", "600.0"}, {"Kvb", "300.0"}, {"mu", "100.0"}, {"Ex", "1.4"},
                     {"Kg", "1060.0"}, {"Vc", "0.53"}, {"VgkMax", "4.0"}, {"VgkMin", "-8.0"}, {"VpMax", "400.0"},
                     {"Igc", "3.14e-4"}, {"N", "3.0"}, {"DeltaVpk", "2"}, {"DeltaVgk", "0.01"}})},
    {"12AY7", entry({{"Vct", "0.0"}, {"Kp", "409.96"}, {"Kvb", "300.0"}, {"mu", "44.16"}, {"Ex", "1.113"},
                     {"Kg", "1192.4"}, {"Vc", "0.53"}, {"VgkMax", "8.0"}, {"VgkMin", "-11.0"}, {"VpMax", "400.0"},
                     {"Igc", "3.14e-4"}, {"N", "3.0"}})},
};

const std::unordered_map<std::string, std::function<Properties()>> kPentodes = {
    {"JJEL34", entry({{"Vct", "0.0"}, {"Kp", "51.85"}, {"Kvb", "25.4"}, {"mu", "11.5"}, {"Ex", "1.35"},
                      {"Kg1", "650.2"}, {"Kg2", "6000.0"}, {"Vc", "0.53"}, {"VgkMax", "8.0"}, {"VgkMin", "-8.0"},
                      {"VpMax", "650.0"}, {"Igc", "3.14e-4"}, {"N", "3.0"}})},
    {"5881", entry({{"Vct", "0.0"}, {"Kp", "53.86"}, {"Kvb", "14.4"}, {"mu", "8.35"}, {"Ex", "1.484"},
                    {"Kg1", "2507.1"}, {"Kg2", "4500.0"}, {"Vc", "0.53"}, {"VgkMax", "8.0"}, {"VgkMin", "-8.0"},
                    {"VpMax", "650.0"}, {"Igc", "3.14e-4"}, {"N", "3.0"}})},
    {"GE6L6GC", entry({{"Vct", "0.0"}, {"Kp", "30.98"}, {"Kvb", "19.4"}, {"mu", "9.88"}, {"Ex", "1.442"},
                       {"Kg1", "1686.6"}, {"Kg2", "4500.0"}, {"Vc", "0.0"}, {"VgkMax", "20.0"}, {"VgkMin", "-40.0"},
                       {"DeltaVgk", "0.01"}, {"VpMax", "650.0"}, {"Igc", "1.0e-3"}, {"N", "1.23"}})},
    {"KT66", entry({{"Vct", "0.0"}, {"Kp", "34.89"}, {"Kvb", "22.3"}, {"mu", "11.68"}, {"Ex", "1.197"},
                    {"Kg1", "510.9"}, {"Kg2", "4500.0"}, {"Vc", "0.53"}, {"VgkMax", "8.0"}, {"VgkMin", "-8.0"},
                    {"VpMax", "650.0"}, {"Igc", "3.14e-4"}, {"N", "3.0"}})},
    {"GE6V6GT", entry({{"Vct", "0.00"}, {"Kp", "38.07"}, {"Kvb", "30.2"}, {"mu", "12.67"}, {"Ex", "1.198"},
                       {"Kg1", "915.0"}, {"Kg2", "4500"}, {"Vc", "0.0"}, {"VgkMax", "30.0"}, {"VgkMin", "-40.0"},
                       {"DeltaVgk", "0.01"}, {"VpMax", "650.0"}, {"Igc", "2.2e-4"}, {"N", "1.5"}})},
};

// What the netlist states wins over the catalogue.
Properties merge(const Properties& properties, const std::unordered_map<std::string, std::function<Properties()>>& table,
                 const char* kind) {
    Properties merged = properties;
    auto type = properties.find("Type");
    if (type == properties.end()) return merged;
    auto found = table.find(type->second);
    if (found == table.end())
        throw InvalidArgumentException(std::string("Invalid built-in ") + kind + " type: " + type->second);
    for (const auto& value : found->second()) merged.insert(value);
    return merged;
}

inline scalar voltage(const std::vector<scalar>& x, int index) {
    return index < 0 ? 0.0f : x[static_cast<size_t>(index)];
}

// The plate may move by at most a factor of two per step: damping against the exponentials.
inline scalar limitStep(scalar v, scalar last) {
    if (last > 0) v = std::min(std::max(v, 0.5f * last), 2.0f * last);
    return v;
}

}  // namespace

const std::unordered_map<std::string, std::function<Properties()>>& builtInTriodes() { return kTriodes; }
const std::unordered_map<std::string, std::function<Properties()>>& builtInPentodes() { return kPentodes; }

// --- Triode

Triode::Triode() : jacobianRows{jacobian[0], jacobian[1], jacobian[2]} {}

void Triode::init(const std::string& componentName, const Properties& properties,
                  const std::shared_ptr<std::vector<std::string>>& names,
                  const std::shared_ptr<MNAContext>& mnaContext) {
    bind(componentName, names, mnaContext);
    checkNodeCount("Triode", 3, "three");
    Properties merged = merge(properties, kTriodes, "triode");
    checkTubeTables(merged, "Triode", name, true);
    anode.reset(new NKTriodeAnodeCurrent());
    anode->setProperties(merged);
    grid.reset(new PowerLawTriodeGridCurrent());
    grid->setProperties(merged);
}

void Triode::setNodeIndices(const std::shared_ptr<std::vector<int>>& indices) {
    Component::setNodeIndices(indices);
    for (size_t i = 0; i < 3 && i < indices->size(); ++i) live[i] = (*indices)[i] >= 0;
}

void Triode::prepare(std::vector<scalar>& x) {
    const std::vector<int>& n = *nodeIndices;
    vp = voltage(x, n[0]);
    vg = voltage(x, n[1]);
    vk = voltage(x, n[2]);
    vp = std::max(vp, 0.0f);
    vk = std::max(vk, 0.0f);
    vp = std::max(vp, std::max(vg, vk));
    vp = limitStep(vp, lastVp);
    lastVp = vp;
    if (live[2]) x[static_cast<size_t>(n[2])] = vk;
    if (live[0]) x[static_cast<size_t>(n[0])] = vp;
}

scalar* Triode::getRhs(std::vector<scalar>& x) {
    prepare(x);
    scalar vgk = vg - vk;
    scalar vpk = vp - vk;
    scalar ig = grid->current(vgk, vpk);
    scalar ip = anode->current(vgk, vpk);
    rhs[0] = -ip;
    rhs[1] = -ig;
    rhs[2] = ip + ig;
    return rhs;
}

scalar** Triode::getJacobian(std::vector<scalar>& x) {
    prepare(x);
    scalar vgk = vg - vk;
    scalar vpk = vp - vk;
    const std::vector<scalar>& d = *anode->derivatives(vgk, vpk);
    scalar a = d[0];
    scalar b = d[1];
    scalar g = grid->dIdVgk(vgk, vpk);
    jacobian[0][0] = b;
    jacobian[0][1] = a;
    jacobian[0][2] = -a - b;
    jacobian[1][0] = 0.0f;
    jacobian[1][1] = g;
    jacobian[1][2] = -g;
    jacobian[2][0] = -b;
    jacobian[2][1] = -a - g;
    jacobian[2][2] = a + b + g;
    return jacobianRows;
}

// --- Pentode

Pentode::Pentode() : jacobianRows{jacobian[0], jacobian[1], jacobian[2], jacobian[3]} {}

void Pentode::init(const std::string& componentName, const Properties& properties,
                   const std::shared_ptr<std::vector<std::string>>& names,
                   const std::shared_ptr<MNAContext>& mnaContext) {
    bind(componentName, names, mnaContext);
    checkNodeCount("Pentode", 4, "four");
    Properties merged = merge(properties, kPentodes, "pentode");
    checkTubeTables(merged, "Pentode", name, false);
    anode.reset(new NKPentodeAnodeCurrent());
    anode->setProperties(merged);
    grid.reset(new PowerLawPentodeGridCurrent());
    grid->setProperties(merged);
    screen.reset(new NKPentodeScreenCurrent());
    screen->setProperties(merged);
    auto clamp = merged.find("ClampPlate");
    clampPlate = clamp == merged.end() || clamp->second != "false";
}

void Pentode::setNodeIndices(const std::shared_ptr<std::vector<int>>& indices) {
    Component::setNodeIndices(indices);
    for (size_t i = 0; i < 4 && i < indices->size(); ++i) live[i] = (*indices)[i] >= 0;
}

void Pentode::prepare(std::vector<scalar>& x) {
    const std::vector<int>& n = *nodeIndices;
    vp = voltage(x, n[0]);
    vs = voltage(x, n[1]);
    vg = voltage(x, n[2]);
    vk = voltage(x, n[3]);
    plateCutOff = false;
    if (!clampPlate) plateCutOff = vp < std::max(vk, 0.0f);
    vp = std::max(vp, 0.0f);
    vs = std::max(vs, 0.0f);
    vk = std::max(vk, 0.0f);
    if (!clampPlate) {
        // A free plate sees its own voltage down to the cathode (below it the tube is cut off),
        // whatever the grid does; the solution keeps the free one.
        vp = std::max(vp, vk);
        if (live[3]) x[static_cast<size_t>(n[3])] = vk;
        if (live[1]) x[static_cast<size_t>(n[1])] = vs;
        return;
    }
    vp = std::max(vp, std::max(vg, vk));
    vp = limitStep(vp, lastVp);
    lastVp = vp;
    if (live[3]) x[static_cast<size_t>(n[3])] = vk;
    if (live[0]) x[static_cast<size_t>(n[0])] = vp;
    if (live[1]) x[static_cast<size_t>(n[1])] = vs;
}

namespace {

void checkRhs(scalar value, const char* which, scalar vg, scalar vp, scalar vk) {
    if (std::isfinite(value)) return;
    throw VRNException(std::string("Pentode: rhs[") + which + "] is not a valid number: " +
                       toString(static_cast<double>(value)) + ", vg=" + toString(static_cast<double>(vg)) +
                       ", vp=" + toString(static_cast<double>(vp)) + ", vk=" + toString(static_cast<double>(vk)));
}

void checkDerivative(scalar value, const char* which, scalar vg, scalar vp, scalar vk, scalar vs) {
    if (std::isfinite(value)) return;
    throw VRNException(std::string("Pentode: ") + which + " is not a valid number: " +
                       toString(static_cast<double>(value)) + ", vg=" + toString(static_cast<double>(vg)) +
                       ", vp=" + toString(static_cast<double>(vp)) + ", vk=" + toString(static_cast<double>(vk)) +
                       ", vs=" + toString(static_cast<double>(vs)));
}

}  // namespace

scalar* Pentode::getRhs(std::vector<scalar>& x) {
    prepare(x);
    scalar vgk = vg - vk, vpk = vp - vk, vsk = vs - vk;
    scalar ig = grid->current(vgk, vpk, vsk);
    scalar is = screen->current(vgk, vpk, vsk);
    scalar ip = anode->current(vgk, vpk, vsk);
    rhs[0] = -ip;
    rhs[1] = -is;
    rhs[2] = -ig;
    rhs[3] = ip + is + ig;
    checkRhs(rhs[0], "p", vg, vp, vk);
    checkRhs(rhs[1], "s", vg, vp, vk);
    checkRhs(rhs[2], "g", vg, vp, vk);
    checkRhs(rhs[3], "k", vg, vp, vk);
    return rhs;
}

scalar** Pentode::getJacobian(std::vector<scalar>& x) {
    prepare(x);
    scalar vgk = vg - vk, vpk = vp - vk, vsk = vs - vk;
    const std::vector<scalar>& gd = *grid->derivatives(vgk, vpk, vsk);
    scalar g = gd[0];
    const std::vector<scalar>& ad = *anode->derivatives(vgk, vpk, vsk);
    scalar ag = ad[0], ap = ad[1], as = ad[2];
    // A free plate below its floor draws nothing, whatever it does.
    if (plateCutOff) ap = 0.0f;
    const std::vector<scalar>& sd = *screen->derivatives(vgk, vpk, vsk);
    scalar sg = sd[0], ss = sd[2];
    checkDerivative(g, "dIgdV", vg, vp, vk, vs);
    checkDerivative(ag, "dIpdVgk", vg, vp, vk, vs);
    checkDerivative(ap, "dIpdVpk", vg, vp, vk, vs);
    checkDerivative(as, "dIpdVsk", vg, vp, vk, vs);
    checkDerivative(sg, "dIsdVgk", vg, vp, vk, vs);
    checkDerivative(ss, "dIsdVsk", vg, vp, vk, vs);
    scalar(&j)[4][4] = jacobian;
    j[0][0] = ap;
    j[0][1] = as;
    j[0][2] = ag;
    j[0][3] = -ag - ap - as;
    j[1][0] = 0.0f;
    j[1][1] = ss;
    j[1][2] = sg;
    j[1][3] = -sg - ss;
    j[2][0] = 0.0f;
    j[2][1] = 0.0f;
    j[2][2] = g;
    j[2][3] = -g;
    j[3][0] = -ap;
    j[3][1] = -ss;
    j[3][2] = -ag - g - sg;
    j[3][3] = ap + ag + as + g + sg + ss;
    return jacobianRows;
}

}  // namespace vrn
