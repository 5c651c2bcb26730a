#include "circuit/components/Passive.h"

#include <algorithm>

#include "circuit/MNAContext.h"

namespace vrn {

namespace {

void setTwoNodeStamp(scalar (&g)[2][2], scalar conductance) {
    g[0][0] = conductance;
    g[0][1] = -conductance;
    g[1][0] = -conductance;
    g[1][1] = conductance;
}

std::string invalidName(const std::string& property, const char* type, const std::string& component) {
    return "propertyChanged: Invalid property name: " + property + ". " + type + " name=" + component;
}

}  // namespace

// --- Resistor

Resistor::Resistor() : gRows{g[0], g[1]} {}

void Resistor::init(const std::string& componentName, const Properties& properties,
                    const std::shared_ptr<std::vector<std::string>>& names,
                    const std::shared_ptr<MNAContext>& mnaContext) {
    bind(componentName, names, mnaContext);
    checkNodeCount("Resistor", 2, "two");
    readProperties(properties);
}

void Resistor::readProperties(const Properties& properties) {
    scalar resistance = 0.0f;
    getProperty(properties, "Resistance", resistance, toScalar,
                VRNException("Resistance is not defined. Resistor name=" + name));
    setResistance(resistance, "");
}

void Resistor::setResistance(scalar value, const char* prefix) {
    if (value < 0)
        throw InvalidArgumentException(std::string(prefix) + "Resistance cannot be negative. Resistor name=" + name +
                                       ", value=" + toString(static_cast<double>(value)));
    // A short stays finite so that the matrix keeps its shape.
    conductance = value > 0 ? 1.0f / value : 1.0e12f;
    setTwoNodeStamp(g, conductance);
}

void Resistor::propertiesChanged(const Properties& properties) {
    readProperties(properties);
    context->setMatrixChanged(true);
}

void Resistor::propertyChanged(const std::string& property, scalar value) {
    if (property != "Resistance") throw InvalidArgumentException(invalidName(property, "Resistor", name));
    setResistance(value, "propertyChanged: ");
    context->setMatrixChanged(true);
}

// --- Capacitor

Capacitor::Capacitor() : gRows{g[0], g[1]} {}

void Capacitor::init(const std::string& componentName, const Properties& properties,
                     const std::shared_ptr<std::vector<std::string>>& names,
                     const std::shared_ptr<MNAContext>& mnaContext) {
    bind(componentName, names, mnaContext);
    checkNodeCount("Capacitor", 2, "two");
    readProperties(properties);
    context->addListener(this);
}

void Capacitor::readProperties(const Properties& properties) {
    scalar value = 0.0f;
    getProperty(properties, "Capacitance", value, toScalar,
                VRNException("Capacitance is not defined. Capacitor name=" + name));
    setCapacitance(value);
}

void Capacitor::setCapacitance(scalar value) {
    if (value < 0)
        throw InvalidArgumentException("propertyChanged: Capacitance cannot be negative. Capacitor name=" + name +
                                       ", value=" + toString(static_cast<double>(value)));
    capacitance = value;
    if (samplingRate > 0) conductance = capacitance * 2.0f * samplingRate;
}

void Capacitor::samplingRateChanged(scalar rate) {
    if (!(rate > 0))
        throw InvalidArgumentException("Capacitor: Invalid sampling rate: " + toString(static_cast<double>(rate)));
    samplingRate = rate;
    conductance = capacitance * 2.0f * rate;
}

void Capacitor::ensureSamplingRate() {
    if (samplingRate > 0) return;
    scalar rate = context->getSamplingRate();
    if (!(rate > 0)) throw VRNException("Capacitor: Sampling Rate has not been set for AC analysis");
    samplingRateChanged(rate);
}

scalar** Capacitor::getG() {
    // An open circuit for the operating point.
    if (context->getAnalysis() == 0) return nullptr;
    ensureSamplingRate();
    setTwoNodeStamp(g, conductance);
    return gRows;
}

scalar* Capacitor::getRhs(std::vector<scalar>&) {
    if (context->getAnalysis() == 0) return nullptr;
    ensureSamplingRate();
    return rhs;
}

void Capacitor::nextSample() {
    if (context->getAnalysis() == 0) return;
    const std::vector<scalar>& solution = context->getSolution();
    const std::vector<int>& nodes = *nodeIndices;
    scalar va = nodes[0] == -1 ? 0.0f : solution[static_cast<size_t>(nodes[0])];
    scalar vb = nodes[1] == -1 ? 0.0f : solution[static_cast<size_t>(nodes[1])];
    scalar v = va - vb;
    if (firstStep) {
        // Seeded from a rest state: the companion carries no current.
        firstStep = false;
        history = -(v * conductance);
    } else {
        history = conductance * (-2.0f) * v - history;
    }
    rhs[0] = -history;
    rhs[1] = history;
}

void Capacitor::analysisChanged(int oldType, int newType) {
    if (oldType != newType && oldType != 1) firstStep = true;
}

void Capacitor::propertiesChanged(const Properties& properties) {
    readProperties(properties);
    context->setMatrixChanged(true);
}

void Capacitor::propertyChanged(const std::string& property, scalar value) {
    if (property != "Capacitance")
        throw InvalidArgumentException("propertyChanged: Invalid property: " + property + ". Capacitor name=" + name);
    setCapacitance(value);
    context->setMatrixChanged(true);
}

// --- Potentiometer

Potentiometer::Potentiometer() : gRows{g[0], g[1], g[2]} {}

void Potentiometer::init(const std::string& componentName, const Properties& properties,
                         const std::shared_ptr<std::vector<std::string>>& names,
                         const std::shared_ptr<MNAContext>& mnaContext) {
    bind(componentName, names, mnaContext);
    checkNodeCount("Potentiometer", 3, "three");
    readProperties(properties);
}

void Potentiometer::readProperties(const Properties& properties) {
    getProperty(properties, "Resistance", resistance, toScalar,
                VRNException("Resistance is not defined. Potentiometer name=" + name));
    if (!(resistance > 0))
        throw InvalidArgumentException("Resistance cannot be negative or zero. Potentiometer name=" + name +
                                       ", value=" + toString(static_cast<double>(resistance)));
    scalar value = 0.0f;
    getProperty(properties, "Wiper", value, toScalar, VRNException("Wiper is not defined. Potentiometer name=" + name));
    setWiper(value);
}

void Potentiometer::setWiper(scalar value) {
    if (!(value >= 0 && value <= 1))
        throw InvalidArgumentException("Wiper value must be between 0 and 1. Potentiometer name=" + name +
                                       ", value=" + toString(static_cast<double>(value)));
    // Both halves stay finite.
    wiper = std::min(std::max(value, 0.001f), 0.999f);
    scalar g1 = 1.0f / (wiper * resistance);
    scalar g2 = 1.0f / ((1.0f - wiper) * resistance);
    g[0][0] = g1;
    g[0][1] = -g1;
    g[0][2] = 0.0f;
    g[1][0] = -g1;
    g[1][1] = g1 + g2;
    g[1][2] = -g2;
    g[2][1] = -g2;
    g[2][2] = g2;
}

void Potentiometer::propertiesChanged(const Properties& properties) {
    readProperties(properties);
    context->setMatrixChanged(true);
}

void Potentiometer::propertyChanged(const std::string& property, scalar value) {
    if (property != "Wiper") throw InvalidArgumentException(invalidName(property, "Potentiometer", name));
    setWiper(value);
    context->setMatrixChanged(true);
}

}  // namespace vrn
