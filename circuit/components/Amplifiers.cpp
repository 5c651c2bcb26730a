#include "circuit/components/Amplifiers.h"

#include <cmath>

#include "circuit/MNAContext.h"

namespace vrn {

namespace {

bool isGround(const std::string& node) { return node == "0" || node == "GND"; }

InvalidArgumentException groundedNode(const std::string& type, const std::string& component) {
    return InvalidArgumentException(type + " cannot have a grounded node. " + type + " name=" + component);
}

InvalidArgumentException invalidName(const std::string& property, const std::string& type,
                                     const std::string& component) {
    return InvalidArgumentException("propertyChanged: Invalid property name: " + property + ". " + type +
                                    " name=" + component);
}

scalar readGain(const Properties& properties, const std::string& type, const std::string& component) {
    scalar gain = 0.0f;
    getProperty(properties, "Gain", gain, toScalar, VRNException("Gain is not defined. " + type + " name=" + component));
    return gain;
}

}  // namespace

// --- IdealAmplifier

void IdealAmplifier::init(const std::string& componentName, const Properties& properties,
                          const std::shared_ptr<std::vector<std::string>>& names,
                          const std::shared_ptr<MNAContext>& mnaContext) {
    bind(componentName, names, mnaContext);
    checkNodeCount("IdealAmplifier", 2, "two");
    if (isGround((*names)[0]) || isGround((*names)[1])) throw groundedNode("IdealAmplifier", name);
    fixedNode = names->back();
    gain = readGain(properties, "IdealAmplifier", name);
}

void IdealAmplifier::propertiesChanged(const Properties& properties) {
    gain = readGain(properties, "IdealAmplifier", name);
}

void IdealAmplifier::propertyChanged(const std::string& property, scalar value) {
    if (property != "Gain") throw invalidName(property, "IdealAmplifier", name);
    gain = value;
}

scalar* IdealAmplifier::getRhs(std::vector<scalar>& x) {
    rhs[0] = 0.0f;
    rhs[1] = x[static_cast<size_t>((*nodeIndices)[0])] * gain;
    return rhs;
}

// --- IdealDifferentialAmplifier

void IdealDifferentialAmplifier::init(const std::string& componentName, const Properties& properties,
                                      const std::shared_ptr<std::vector<std::string>>& names,
                                      const std::shared_ptr<MNAContext>& mnaContext) {
    bind(componentName, names, mnaContext);
    checkNodeCount("IdealDifferentialAmplifier", 3, "three");
    if (isGround((*names)[0]) || isGround((*names)[1])) throw groundedNode("IdealDifferentialAmplifier", name);
    fixedNode = names->back();
    gain = readGain(properties, "IdealDifferentialAmplifier", name);
}

void IdealDifferentialAmplifier::propertiesChanged(const Properties& properties) {
    gain = readGain(properties, "IdealDifferentialAmplifier", name);
}

void IdealDifferentialAmplifier::propertyChanged(const std::string& property, scalar value) {
    if (property != "Gain") throw invalidName(property, "IdealDifferentialAmplifier", name);
    gain = value;
}

scalar* IdealDifferentialAmplifier::getRhs(std::vector<scalar>& x) {
    const std::vector<int>& nodes = *nodeIndices;
    rhs[0] = 0.0f;
    rhs[1] = 0.0f;
    rhs[2] = (x[static_cast<size_t>(nodes[0])] - x[static_cast<size_t>(nodes[1])]) * gain;
    return rhs;
}

// --- OpAmp

OpAmp::OpAmp() : bRows{b[0], b[1], b[2]}, cRows{c[0]} {}

void OpAmp::init(const std::string& componentName, const Properties& properties,
                 const std::shared_ptr<std::vector<std::string>>& names,
                 const std::shared_ptr<MNAContext>& mnaContext) {
    bind(componentName, names, mnaContext);
    checkNodeCount("OpAmp", 3, "three");
    if (isGround((*names)[1])) throw groundedNode("OpAmp", name);
    setGain(readGain(properties, "OpAmp", name));
}

void OpAmp::setGain(scalar value) {
    c[0][0] = value;
    c[0][1] = -1.0f;
    c[0][2] = -value;
}

void OpAmp::propertiesChanged(const Properties& properties) {
    setGain(readGain(properties, "OpAmp", name));
    context->setMatrixChanged(true);
}

void OpAmp::propertyChanged(const std::string& property, scalar value) {
    if (property != "Gain") throw invalidName(property, "OpAmp", name);
    setGain(value);
    context->setMatrixChanged(true);
}

// --- LookupTableAmp

LookupTableAmp::LookupTableAmp()
    : vout(std::make_shared<std::vector<scalar>>()),
      iin(std::make_shared<std::vector<scalar>>()),
      dIin(std::make_shared<std::vector<scalar>>()),
      jacobianRows{jacobian[0], jacobian[1]} {}

void LookupTableAmp::init(const std::string& componentName, const Properties& properties,
                          const std::shared_ptr<std::vector<std::string>>& names,
                          const std::shared_ptr<MNAContext>& mnaContext) {
    bind(componentName, names, mnaContext);
    checkNodeCount("LookupTableAmp", 2, "two");
    if (isGround((*names)[0]) || isGround((*names)[1])) throw groundedNode("LookupTableAmp", name);
    fixedNode = (*names)[1];
    getProperty(properties, "VinMin", vinMin, toScalar, VRNException("VinMin is not defined. LookupTableAmp name=" + name));
    getProperty(properties, "VinMax", vinMax, toScalar, VRNException("VinMax is not defined. LookupTableAmp name=" + name));
    getProperty(properties, "DeltaV", deltaV, toScalar, VRNException("DeltaV is not defined. LookupTableAmp name=" + name));
    if (!(deltaV > 0)) throw InvalidArgumentException("DeltaV must be greater than 0. LookupTableAmp name=" + name);
    inverseDeltaV = 1.0f / deltaV;
    if (!(vinMin < vinMax))
        throw InvalidArgumentException("VinMax must be greater than VinMin. LookupTableAmp name=" + name +
                                       ", VinMin=" + toString(static_cast<double>(vinMin)) +
                                       ", VinMax=" + toString(static_cast<double>(vinMax)));
    const double entries = std::trunc((static_cast<double>(vinMax) - vinMin) / deltaV) + 1.0;
    if (!(entries <= kMaxTableEntries))
        throw InvalidArgumentException(
            "LookupTableAmp: the table would hold " +
            (std::isfinite(entries) ? toString(static_cast<size_t>(entries)) : std::string("infinitely many")) +
            " entries, more than " + toString(static_cast<size_t>(kMaxTableEntries)) +
            "; raise DeltaV. LookupTableAmp name=" + name);
    auto useCurrent = properties.find("UseInputCurrent");
    if (useCurrent != properties.end()) useInputCurrent = toInt(useCurrent->second) == 1;
    size_t capacity = static_cast<size_t>(std::trunc((vinMax - vinMin) / deltaV)) + 5;
    vout->reserve(capacity);
    iin->reserve(capacity);
    auto voutText = properties.find("Vout");
    if (voutText == properties.end()) throw VRNException("Vout is not defined. LookupTableAmp name=" + name);
    parseScalars(voutText->second, "|", vout);
    auto iinText = properties.find("Iin");
    if (useInputCurrent && iinText != properties.end()) parseScalars(iinText->second, "|", iin);
    checkTables(*vout, *iin, "");
    if (useInputCurrent && iinText != properties.end()) rebuildDerivatives();
}

void LookupTableAmp::checkTables(const std::vector<scalar>& out, const std::vector<scalar>& current,
                                 const char* prefix) const {
    const std::string named = " LookupTableAmp name=" + name;
    if (out.empty()) throw InvalidArgumentException(std::string(prefix) + "Vout holds no values." + named);
    if (!current.empty() && current.size() < out.size())
        throw InvalidArgumentException(std::string(prefix) + "Iin must hold at least as many values as Vout." + named +
                                       ", Iin=" + toString(current.size()) + ", Vout=" + toString(out.size()));
    for (const std::vector<scalar>* table : {&out, &current})
        for (scalar value : *table)
            if (!std::isfinite(value))
                throw InvalidArgumentException(std::string(prefix) + (table == &out ? "Vout" : "Iin") +
                                               " holds a value that is not a number." + named +
                                               ", value=" + toString(static_cast<double>(value)));
}

void LookupTableAmp::rebuildDerivatives() {
    const std::vector<scalar>& i = *iin;
    size_t n = i.size();
    // Same size: refilled in place, so a table swap between blocks does not allocate.
    if (dIin->size() != n) dIin = std::make_shared<std::vector<scalar>>(n, 0.0f);
    std::vector<scalar>& d = *dIin;
    if (n >= 2) {
        d[0] = (i[1] - i[0]) / deltaV;
        for (size_t k = 1; k + 1 < n; ++k) d[k] = (i[k + 1] - i[k - 1]) / deltaV * 0.5f;
        d[n - 1] = (i[n - 1] - i[n - 2]) / deltaV;
    }
}

void LookupTableAmp::propertyChanged(const std::string& property, const std::shared_ptr<std::vector<scalar>>& values) {
    auto present = [&] {
        if (!values)
            throw InvalidArgumentException("propertyChanged: " + property + " holds no values. LookupTableAmp name=" + name);
    };
    if (property == "Vout") {
        present();
        checkTables(*values, *iin, "propertyChanged: ");
        vout = values;
    } else if (property == "Iin") {
        if (!useInputCurrent) return;
        present();
        checkTables(*vout, *values, "propertyChanged: ");
        iin = values;
        rebuildDerivatives();
    } else {
        throw invalidName(property, "LookupTableAmp", name);
    }
}

namespace {

// The first cell is flat; past the end the last entry holds.
inline scalar interpolate(const std::vector<scalar>& table, long i, scalar v, scalar deltaV) {
    return table[static_cast<size_t>(i)] +
           (v - static_cast<scalar>(i) * deltaV) * (table[static_cast<size_t>(i) + 1] - table[static_cast<size_t>(i)]) /
               deltaV;
}

}  // namespace

scalar* LookupTableAmp::getRhs(std::vector<scalar>& x) {
    scalar v = x[static_cast<size_t>((*nodeIndices)[0])] - vinMin;
    long i = static_cast<long>(v * inverseDeltaV);
    const std::vector<scalar>& out = *vout;
    const std::vector<scalar>& current = *iin;
    const bool withCurrent = useInputCurrent && !current.empty();
    if (i < 1) {
        rhs[0] = withCurrent ? -current[0] : 0.0f;
        rhs[1] = out[0];
    } else if (i < static_cast<long>(out.size()) - 1) {
        rhs[0] = withCurrent ? -interpolate(current, i, v, deltaV) : 0.0f;
        rhs[1] = interpolate(out, i, v, deltaV);
    } else {
        rhs[0] = withCurrent ? -current.back() : 0.0f;
        rhs[1] = out.back();
    }
    return rhs;
}

scalar** LookupTableAmp::getJacobian(std::vector<scalar>& x) {
    scalar v = x[static_cast<size_t>((*nodeIndices)[0])] - vinMin;
    long i = static_cast<long>(v * inverseDeltaV);
    const std::vector<scalar>& d = *dIin;
    if (d.empty()) {
        jacobian[0][0] = 0.0f;
    } else if (i < 1) {
        jacobian[0][0] = d[0];
    } else if (i < static_cast<long>(d.size()) - 1) {
        jacobian[0][0] = interpolate(d, i, v, deltaV);
    } else {
        jacobian[0][0] = d.back();
    }
    return jacobianRows;
}

}  // namespace vrn
