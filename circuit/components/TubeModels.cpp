#include "circuit/components/TubeModels.h"

#include <algorithm>
#include <cmath>

#include "circuit/Component.h"
#include "engine/Exceptions.h"

namespace vrn {

namespace {

double readDouble(const Properties& properties, const std::string& model, const std::string& key) {
    auto it = properties.find(key);
    if (it == properties.end()) throw VRNException(model + ": " + key + " is not defined.");
    return parseDouble(it->second);
}

void readOptional(const Properties& properties, const std::string& key, scalar& value) {
    auto it = properties.find(key);
    if (it != properties.end()) value = toScalar(it->second);
}

bool readFlag(const Properties& properties, const std::string& key) {
    auto it = properties.find(key);
    return it != properties.end() && toBool(it->second);
}

void checkNonNegative(const char* key, double value) {
    if (value < 0)
        throw InvalidArgumentException(std::string("Triode: ") + key + " must be greater than or equal to 0. " + key +
                                       "=" + toString(value));
}

// ln(1 + e^x) and e^x/(1 + e^x), exact in double beyond the point where e^x would swamp 1.
inline double softplus(double x) { return x > 40.0 ? x : std::log(1.0 + std::exp(x)); }
inline double logistic(double x) { return x > 40.0 ? 1.0 : std::exp(x) / (1.0 + std::exp(x)); }

VRNException notImplemented(const char* model) {
    return VRNException(std::string(model) + "::setProperty is not yet implemented.");
}

std::string tooLarge(const char* what, double entries, const char* steps, const std::string& type,
                     const std::string& name) {
    std::string count = std::isfinite(entries) ? toString(static_cast<size_t>(entries)) : std::string("infinitely many");
    return type + ": the " + what + " table would hold " + count + " entries, more than " +
           toString(static_cast<size_t>(kMaxTableEntries)) + "; raise " + steps + ". " + type + " name=" + name;
}

}  // namespace

void checkTubeTables(const Properties& properties, const std::string& type, const std::string& name, bool anodeTable) {
    if (readFlag(properties, "DoNotInterpolate")) return;
    const std::string named = ". " + type + " name=" + name;
    auto positive = [&](const char* key, scalar value) {
        if (!(value > 0))
            throw InvalidArgumentException(std::string(key) + " must be greater than 0" + named +
                                           ", value=" + toString(static_cast<double>(value)));
    };
    auto has = [&](const char* key) { return properties.count(key) != 0; };
    // The defaults of the models: the anode steps in 0.2 V, the grid in 10 mV, up to 8 V.
    scalar gridStep = 0.01f, gridMax = 8.0f;
    readOptional(properties, "DeltaVgk", gridStep);
    readOptional(properties, "VgkMax", gridMax);
    if (anodeTable) {
        scalar plateStep = 10.0f, anodeStep = 0.2f;
        readOptional(properties, "DeltaVpk", plateStep);
        readOptional(properties, "DeltaVgk", anodeStep);
        positive("DeltaVpk", plateStep);
        positive("DeltaVgk", anodeStep);
        if (has("VgkMax") && has("VgkMin") && has("VpMax")) {
            scalar vgkMin = toScalar(properties.at("VgkMin")), vpMax = toScalar(properties.at("VpMax"));
            if (!(vgkMin < gridMax))
                throw InvalidArgumentException("VgkMax must be greater than VgkMin. VgkMax=" +
                                               toString(static_cast<double>(gridMax)) +
                                               " VgkMin=" + toString(static_cast<double>(vgkMin)) + named);
            if (!(vpMax > 0))
                throw InvalidArgumentException("Triode: VpMax must be greater than 0. VpMax=" +
                                               toString(static_cast<double>(vpMax)) + named);
            double rows = std::trunc((static_cast<double>(gridMax) - vgkMin) / anodeStep) + 1.0;
            double columns = std::trunc(static_cast<double>(vpMax) / plateStep) + 1.0;
            if (!(rows * columns <= kMaxTableEntries))
                throw InvalidArgumentException(tooLarge("anode current", rows * columns, "DeltaVgk or DeltaVpk", type, name));
        }
    }
    // The grid table runs from Vgk + Vc = 0 up to VgkMax.
    positive("DeltaVgk", gridStep);
    if (!(gridMax >= 0))
        throw InvalidArgumentException("VgkMax cannot be negative: the grid current table starts at 0 V" + named +
                                       ", value=" + toString(static_cast<double>(gridMax)));
    double gridEntries = std::trunc(static_cast<double>(gridMax) / gridStep) + 2.0;
    if (!(gridEntries <= kMaxTableEntries))
        throw InvalidArgumentException(tooLarge("grid current", gridEntries, "DeltaVgk", type, name));
}

// --- NKTriodeAnodeCurrent

NKTriodeAnodeCurrent::NKTriodeAnodeCurrent() : derivativeValues(std::make_shared<std::vector<scalar>>(2, 0.0f)) {}

void NKTriodeAnodeCurrent::setProperty(const std::string&, double) { throw notImplemented("NKTriodeAnodeCurrent"); }

void NKTriodeAnodeCurrent::setProperties(const Properties& properties) {
    const std::string model = "NKTriodeAnodeCurrent";
    vct = readDouble(properties, model, "Vct");
    kp = readDouble(properties, model, "Kp");
    kvb = readDouble(properties, model, "Kvb");
    mu = readDouble(properties, model, "mu");
    ex = readDouble(properties, model, "Ex");
    kg = readDouble(properties, model, "Kg");
    doNotInterpolate = readFlag(properties, "DoNotInterpolate");
    if (!doNotInterpolate) {
        vgkMax = static_cast<scalar>(readDouble(properties, model, "VgkMax"));
        vgkMin = static_cast<scalar>(readDouble(properties, model, "VgkMin"));
        vpMax = static_cast<scalar>(readDouble(properties, model, "VpMax"));
    }
    readOptional(properties, "DeltaVpk", deltaVpk);
    readOptional(properties, "DeltaVgk", deltaVgk);
    inverseDeltaVpk = 1.0f / deltaVpk;
    inverseDeltaVgk = 1.0f / deltaVgk;

    checkNonNegative("Vct", vct);
    checkNonNegative("Kp", kp);
    checkNonNegative("Kvb", kvb);
    checkNonNegative("mu", mu);
    checkNonNegative("Ex", ex);
    checkNonNegative("Kg", kg);
    if (!doNotInterpolate) {
        if (!(vgkMin < vgkMax))
            throw InvalidArgumentException("VgkMax must be greater than VgkMin. VgkMax=" +
                                           toString(static_cast<double>(vgkMax)) +
                                           " VgkMin=" + toString(static_cast<double>(vgkMin)));
        if (!(vpMax > 0))
            throw InvalidArgumentException("Triode: VpMax must be greater than 0. VpMax=" +
                                           toString(static_cast<double>(vpMax)));
        buildTables();
    }
}

double NKTriodeAnodeCurrent::formulaCurrent(double vgk, double vpk) const {
    double s = std::sqrt(kvb + vpk * vpk);
    double e1 = (vpk / kp) * softplus(kp * (1.0 / mu + (vgk + vct) / s));
    double sg = e1 >= 0 ? 1.0 : -1.0;
    return std::pow(e1, ex) * (1.0 + sg) / kg;
}

double NKTriodeAnodeCurrent::formulaDIdVgk(double vgk, double vpk) const {
    double s = std::sqrt(kvb + vpk * vpk);
    double x = kp * (1.0 / mu + (vgk + vct) / s);
    double e1 = (vpk / kp) * softplus(x);
    double sg = e1 >= 0 ? 1.0 : -1.0;
    return std::pow(e1, ex - 1.0) * (ex / kg) * (1.0 + sg) * vpk * logistic(x) / s;
}

double NKTriodeAnodeCurrent::formulaDIdVpk(double vgk, double vpk) const {
    double s2 = kvb + vpk * vpk;
    double x = kp * (1.0 / mu + vgk / std::sqrt(s2));
    double e1 = (vpk / kp) * softplus(x);
    double sg = e1 >= 0 ? 1.0 : -1.0;
    return (ex / kg) * (1.0 + sg) * std::pow(e1, ex - 1.0) *
           (softplus(x) / kp - logistic(x) * vgk * vpk * vpk * std::pow(s2, -1.5));
}

scalar NKTriodeAnodeCurrent::lookup(const std::vector<scalar>& table, scalar vgk, scalar vpk) const {
    int column = std::min(columns - 2, static_cast<int>(vpk * inverseDeltaVpk));
    int row = std::min(rows - 2, static_cast<int>((vgk - vgkMin) * inverseDeltaVgk));
    scalar x0 = static_cast<scalar>(column) * deltaVpk;
    scalar y0 = static_cast<scalar>(row) * deltaVgk + vgkMin;
    scalar x1 = x0 + deltaVpk;
    scalar y1 = y0 + deltaVgk;
    const size_t base = static_cast<size_t>(row) * static_cast<size_t>(columns) + static_cast<size_t>(column);
    scalar f00 = table[base];
    scalar f01 = table[base + 1];
    scalar f10 = table[base + static_cast<size_t>(columns)];
    scalar f11 = table[base + static_cast<size_t>(columns) + 1];
    return (((vgk - y0) * f10 + (y1 - vgk) * f00) * (x1 - vpk) + (y1 - vgk) * f01 * (vpk - x0) +
            (vgk - y0) * f11 * (vpk - x0)) /
           (deltaVgk * deltaVpk);
}

void NKTriodeAnodeCurrent::buildTables() {
    // The operations take the formula while the tables are filled.
    doNotInterpolate = true;
    rows = static_cast<int>((vgkMax - vgkMin) * (1.0f / deltaVgk)) + 1;
    columns = static_cast<int>(vpMax * (1.0f / deltaVpk)) + 1;
    size_t size = static_cast<size_t>(rows) * static_cast<size_t>(columns);
    currentTable.assign(size, 0.0f);
    dVgkTable.assign(size, 0.0f);
    dVpkTable.assign(size, 0.0f);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < columns; ++c) {
            scalar vgk = static_cast<scalar>(r) * deltaVgk + vgkMin;
            scalar vpk = static_cast<scalar>(c) * deltaVpk;
            size_t i = static_cast<size_t>(r) * static_cast<size_t>(columns) + static_cast<size_t>(c);
            scalar ip = current(vgk, vpk);
            currentTable[i] = ip >= 1e-9f ? ip : 0.0f;
            dVgkTable[i] = dIdVgk(vgk, vpk);
            dVpkTable[i] = dIdVpk(vgk, vpk);
        }
    doNotInterpolate = false;
}

scalar NKTriodeAnodeCurrent::current(scalar vgk, scalar vpk) {
    if (!(vpk > 0)) return 0.0f;
    if (doNotInterpolate || vpk > vpMax) return static_cast<scalar>(formulaCurrent(std::min(vgk, vgkMax), vpk));
    if (vgk < vgkMin) return 0.0f;
    return lookup(currentTable, std::min(vgk, vgkMax), vpk);
}

scalar NKTriodeAnodeCurrent::dIdVgk(scalar vgk, scalar vpk) {
    if (!(vpk > 0)) return 0.0f;
    if (doNotInterpolate) return static_cast<scalar>(formulaDIdVgk(vgk, vpk));
    vpk = std::min(vpk, vpMax);
    if (vgk < vgkMin) return 0.0f;
    return lookup(dVgkTable, std::min(vgk, vgkMax), vpk);
}

scalar NKTriodeAnodeCurrent::dIdVpk(scalar vgk, scalar vpk) {
    if (!(vpk > 0)) return 0.0f;
    if (doNotInterpolate) return static_cast<scalar>(formulaDIdVpk(vgk, vpk));
    vpk = std::min(vpk, vpMax);
    if (vgk < vgkMin) return 0.0f;
    return lookup(dVpkTable, std::min(vgk, vgkMax), vpk);
}

const std::shared_ptr<std::vector<scalar>>& NKTriodeAnodeCurrent::derivatives(scalar vgk, scalar vpk) {
    (*derivativeValues)[0] = dIdVgk(vgk, vpk);
    (*derivativeValues)[1] = dIdVpk(vgk, vpk);
    return derivativeValues;
}

// --- PowerLawGridCurrent

void PowerLawGridCurrent::setProperty(const std::string&, double) { throw notImplemented("PowerLawGridCurrent"); }

void PowerLawGridCurrent::setProperties(const Properties& properties) {
    const std::string model = "PowerLawGridCurrent";
    vc = readDouble(properties, model, "Vc");
    igc = readDouble(properties, model, "Igc");
    auto n = properties.find("N");
    if (n == properties.end()) throw VRNException("PowerLawGridCurrent: A is not defined.");
    exponent = parseDouble(n->second);
    readOptional(properties, "VgkMax", vgkMax);
    readOptional(properties, "VgkMin", vgkMin);
    readOptional(properties, "DeltaVgk", deltaVgk);
    inverseDeltaVgk = 1.0f / deltaVgk;
    doNotInterpolate = readFlag(properties, "DoNotInterpolate");
    if (doNotInterpolate) return;
    // Indexed by Vgk + Vc from 0: the cut-off region is never looked up.
    tableSize = static_cast<size_t>(vgkMax / deltaVgk) + 2;
    currentTable.assign(tableSize, 0.0f);
    derivativeTable.assign(tableSize, 0.0f);
    for (size_t i = 0; i < tableSize; ++i) {
        // The entry is the model's value at the grid voltage of this v, with its rounding.
        scalar vgk = static_cast<scalar>(static_cast<double>(static_cast<scalar>(i) * deltaVgk) - vc);
        scalar v = static_cast<scalar>(static_cast<double>(vgk) + vc);
        scalar ig = formulaCurrent(v);
        currentTable[i] = ig > 1e-9f ? ig : 0.0f;
        derivativeTable[i] = formulaDerivative(v);
    }
}

scalar PowerLawGridCurrent::formulaCurrent(scalar v) const {
    if (v < 0) return 0.0f;
    return static_cast<scalar>(static_cast<double>(static_cast<float>(igc)) * std::pow(static_cast<double>(v), exponent));
}

scalar PowerLawGridCurrent::formulaDerivative(scalar v) const {
    if (v < 0) return 0.0f;
    return static_cast<scalar>((exponent - 1.0) * igc * std::pow(static_cast<double>(v), exponent - 1.0));
}

scalar PowerLawGridCurrent::current(scalar vgk) {
    scalar v = static_cast<scalar>(static_cast<double>(vgk) + vc);
    if (v < 0) return 0.0f;
    if (doNotInterpolate) return formulaCurrent(v);
    if (v >= vgkMax) return currentTable[tableSize - 1];
    size_t i = static_cast<size_t>(v * inverseDeltaVgk);
    return currentTable[i] + (v - static_cast<scalar>(i) * deltaVgk) * (currentTable[i + 1] - currentTable[i]) * inverseDeltaVgk;
}

scalar PowerLawGridCurrent::derivative(scalar vgk) {
    scalar v = static_cast<scalar>(static_cast<double>(vgk) + vc);
    if (v < 0) return 0.0f;
    if (doNotInterpolate) return formulaDerivative(v);
    if (v >= vgkMax) return derivativeTable[tableSize - 1];
    size_t i = static_cast<size_t>(v * inverseDeltaVgk);
    return derivativeTable[i] +
           (v - static_cast<scalar>(i) * deltaVgk) * (derivativeTable[i + 1] - derivativeTable[i]) * inverseDeltaVgk;
}

PowerLawTriodeGridCurrent::PowerLawTriodeGridCurrent()
    : derivativeValues(std::make_shared<std::vector<scalar>>(2, 0.0f)) {}

void PowerLawTriodeGridCurrent::setProperty(const std::string&, double) {
    throw notImplemented("PowerLawTriodeGridCurrent");
}

const std::shared_ptr<std::vector<scalar>>& PowerLawTriodeGridCurrent::derivatives(scalar vgk, scalar) {
    (*derivativeValues)[0] = grid.derivative(vgk);
    return derivativeValues;
}

PowerLawPentodeGridCurrent::PowerLawPentodeGridCurrent()
    : derivativeValues(std::make_shared<std::vector<scalar>>(3, 0.0f)) {}

void PowerLawPentodeGridCurrent::setProperty(const std::string&, double) {
    throw notImplemented("PowerLawPentodeGridCurrent");
}

const std::shared_ptr<std::vector<scalar>>& PowerLawPentodeGridCurrent::derivatives(scalar vgk, scalar, scalar) {
    (*derivativeValues)[0] = grid.derivative(vgk);
    return derivativeValues;
}

// --- Pentode anode and screen

namespace {

struct PentodeParameters {
    double vct, kp, kvb, mu, ex, kg1, kg2;
};

PentodeParameters readPentode(const Properties& properties, const std::string& model) {
    PentodeParameters p;
    p.vct = readDouble(properties, model, "Vct");
    p.kp = readDouble(properties, model, "Kp");
    p.kvb = readDouble(properties, model, "Kvb");
    p.mu = readDouble(properties, model, "mu");
    p.ex = readDouble(properties, model, "Ex");
    p.kg1 = readDouble(properties, model, "Kg1");
    p.kg2 = readDouble(properties, model, "Kg2");
    checkNonNegative("Vct", p.vct);
    checkNonNegative("Kp", p.kp);
    checkNonNegative("Kvb", p.kvb);
    checkNonNegative("mu", p.mu);
    checkNonNegative("Ex", p.ex);
    checkNonNegative("Kg1", p.kg1);
    checkNonNegative("Kg2", p.kg2);
    return p;
}

// Koren's pentode drive term E1 = (Vsk/Kp)·ln(1 + exp(Kp·(1/mu + Vgk/Vsk))), zero without screen voltage.
inline double pentodeE1(scalar vgk, scalar vsk, double kp, double mu) {
    return vsk != 0 ? (vsk / kp) * softplus(kp * (1.0 / mu + static_cast<double>(vgk) / vsk)) : 0.0;
}

}  // namespace

NKPentodeAnodeCurrent::NKPentodeAnodeCurrent() : derivativeValues(std::make_shared<std::vector<scalar>>(3, 0.0f)) {}

void NKPentodeAnodeCurrent::setProperty(const std::string&, double) { throw notImplemented("NKPentodeAnodeCurrent"); }

void NKPentodeAnodeCurrent::setProperties(const Properties& properties) {
    PentodeParameters p = readPentode(properties, "NKPentodeAnodeCurrent");
    vct = p.vct;
    kp = p.kp;
    kvb = p.kvb;
    mu = p.mu;
    ex = p.ex;
    kg1 = p.kg1;
    kg2 = p.kg2;
}

scalar NKPentodeAnodeCurrent::current(scalar vgk, scalar vpk, scalar vsk) {
    double e1 = pentodeE1(vgk, vsk, kp, mu);
    double sg = e1 >= 0 ? 1.0 : -1.0;
    return static_cast<scalar>(std::atan(vpk / kvb) * (std::pow(e1, ex) / kg1) * (1.0 + sg));
}

scalar NKPentodeAnodeCurrent::dIdVpk(scalar vgk, scalar vpk, scalar vsk) {
    double e1 = pentodeE1(vgk, vsk, kp, mu);
    double sg = e1 >= 0 ? 1.0 : -1.0;
    double ratio = vpk / kvb;
    return static_cast<scalar>(std::pow(e1, ex) * (1.0 + sg) / ((1.0 + ratio * ratio) * kvb * kg1));
}

scalar NKPentodeAnodeCurrent::dIdVgk(scalar vgk, scalar vpk, scalar vsk) {
    if (vsk == 0) return 0.0f;
    double x = kp * (1.0 / mu + static_cast<double>(vgk) / vsk);
    double e1 = pentodeE1(vgk, vsk, kp, mu);
    // The factor is evaluated with plate and screen exchanged.
    double h = ex * current(vgk, vsk, vpk) / e1;
    return static_cast<scalar>(h * logistic(x));
}

scalar NKPentodeAnodeCurrent::dIdVsk(scalar vgk, scalar vpk, scalar vsk) {
    if (vsk == 0) return 0.0f;
    double x = kp * (1.0 / mu + static_cast<double>(vgk) / vsk);
    double e1 = pentodeE1(vgk, vsk, kp, mu);
    double h = ex * current(vgk, vsk, vpk) / e1;
    return static_cast<scalar>(h * (softplus(x) / kp - vgk * logistic(x) / vsk));
}

const std::shared_ptr<std::vector<scalar>>& NKPentodeAnodeCurrent::derivatives(scalar vgk, scalar vpk, scalar vsk) {
    (*derivativeValues)[0] = dIdVgk(vgk, vpk, vsk);
    (*derivativeValues)[1] = dIdVpk(vgk, vpk, vsk);
    (*derivativeValues)[2] = dIdVsk(vgk, vpk, vsk);
    return derivativeValues;
}

NKPentodeScreenCurrent::NKPentodeScreenCurrent() : derivativeValues(std::make_shared<std::vector<scalar>>(3, 0.0f)) {}

void NKPentodeScreenCurrent::setProperty(const std::string&, double) { throw notImplemented("NKPentodeScreenCurrent"); }

void NKPentodeScreenCurrent::setProperties(const Properties& properties) {
    PentodeParameters p = readPentode(properties, "NKPentodeScreenCurrent");
    vct = p.vct;
    kp = p.kp;
    kvb = p.kvb;
    mu = p.mu;
    ex = p.ex;
    kg1 = p.kg1;
    kg2 = p.kg2;
}

scalar NKPentodeScreenCurrent::current(scalar vgk, scalar, scalar vsk) {
    double t = vsk / mu + vgk;
    if (!(t > 0)) return 0.0f;
    return static_cast<scalar>(std::pow(t, 1.5) / kg2);
}

scalar NKPentodeScreenCurrent::dIdVgk(scalar vgk, scalar, scalar vsk) {
    double t = vsk / mu + vgk;
    if (!(t > 0)) return 0.0f;
    return static_cast<scalar>(1.5 * std::sqrt(t) / kg2);
}

scalar NKPentodeScreenCurrent::dIdVsk(scalar vgk, scalar, scalar vsk) {
    double t = vsk / mu + vgk;
    if (!(t > 0)) return 0.0f;
    return static_cast<scalar>(1.5 * std::sqrt(t) / (mu * kg2));
}

const std::shared_ptr<std::vector<scalar>>& NKPentodeScreenCurrent::derivatives(scalar vgk, scalar vpk, scalar vsk) {
    (*derivativeValues)[0] = dIdVgk(vgk, vpk, vsk);
    (*derivativeValues)[1] = 0.0f;
    (*derivativeValues)[2] = dIdVsk(vgk, vpk, vsk);
    return derivativeValues;
}

}  // namespace vrn
