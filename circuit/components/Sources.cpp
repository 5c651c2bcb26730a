#include "circuit/components/Sources.h"

#include "circuit/MNAContext.h"

namespace vrn {

namespace {

bool isGround(const std::string& node) { return node == "0" || node == "GND"; }

}  // namespace

VoltageSource::VoltageSource() : bRows{b[0], b[1]}, cRows{c[0]} {}

void VoltageSource::chooseFixedNode(const char* typeName) {
    checkNodeCount(typeName, 2, "two");
    fixed = false;
    for (const std::string& node : *nodeNames)
        if (!isGround(node)) {
            fixedNode = node;
            fixed = true;
            break;
        }
}

void VoltageSource::fillRhs(scalar u) {
    if (fixed) {
        rhs[0] = u;
        rhs[1] = -u;
        rhs[2] = 0.0f;
    } else {
        rhs[0] = 0.0f;
        rhs[1] = 0.0f;
        rhs[2] = u;
    }
}

// --- Battery

void Battery::init(const std::string& componentName, const Properties& properties,
                   const std::shared_ptr<std::vector<std::string>>& names,
                   const std::shared_ptr<MNAContext>& mnaContext) {
    bind(componentName, names, mnaContext);
    chooseFixedNode("Battery");
    readProperties(properties);
}

void Battery::readProperties(const Properties& properties) {
    getProperty(properties, "Voltage", voltage, toScalar, VRNException("Voltage is not defined. Battery name=" + name));
    auto useFixed = properties.find("UseFixedVoltage");
    if (useFixed != properties.end()) fixed = toBool(useFixed->second);
    fillRhs(voltage);
}

void Battery::propertiesChanged(const Properties& properties) {
    readProperties(properties);
    context->setMatrixChanged(true);
}

void Battery::propertyChanged(const std::string& property, scalar value) {
    if (property != "Voltage")
        throw InvalidArgumentException("propertyChanged: Invalid property name: " + property + ". Battery name=" + name);
    voltage = value;
    context->setMatrixChanged(true);
}

scalar* Battery::getRhs(std::vector<scalar>&) { return rhs; }

// --- VoltageInputSource

void VoltageInputSource::init(const std::string& componentName, const Properties& properties,
                              const std::shared_ptr<std::vector<std::string>>& names,
                              const std::shared_ptr<MNAContext>& mnaContext) {
    bind(componentName, names, mnaContext);
    chooseFixedNode("VoltageInputSource");
    readProperties(properties);
    getProperty(properties, "InputNumber", inputNumber, toInt,
                VRNException("InputNumber is not defined. VoltageInputSource name=" + name));
    context->addListener(this);
}

void VoltageInputSource::readProperties(const Properties& properties) {
    auto offset = properties.find("DCOffset");
    dcOffset = offset != properties.end() ? toScalar(offset->second) : 0.0f;
    auto useFixed = properties.find("UseFixedVoltage");
    if (useFixed != properties.end()) fixed = toBool(useFixed->second);
}

void VoltageInputSource::propertiesChanged(const Properties& properties) { readProperties(properties); }

void VoltageInputSource::propertyChanged(const std::string& property, scalar value) {
    if (property != "DCOffset")
        throw InvalidArgumentException("propertyChanged: Invalid property name: " + property +
                                       ". VoltageInputSource name=" + name);
    dcOffset = value;
}

void VoltageInputSource::checkInputNumber(int numberOfInputs) const {
    if (inputNumber >= 0 && inputNumber < numberOfInputs) return;
    throw InvalidArgumentException("VoltageInputSource: InputNumber out of range. VoltageInputSource name=" + name +
                                   ", InputNumber=" + toString(inputNumber) +
                                   ", NumberOfInputs=" + toString(numberOfInputs));
}

scalar* VoltageInputSource::getRhs(std::vector<scalar>&) {
    if (!inputsTaken) {
        inputs = context->getInputs();
        inputsTaken = true;
    }
    if (inputs) {
        if (inputNumber < 0 || static_cast<size_t>(inputNumber) >= inputs->size())
            throw InvalidArgumentException("VoltageInputSource: InputNumber out of range. VoltageInputSource name=" +
                                           name + ", InputNumber=" + toString(inputNumber));
        input = (*inputs)[static_cast<size_t>(inputNumber)];
    } else {
        input = 0.0f;
    }
    fillRhs(dcOffset + input);
    return rhs;
}

void VoltageInputSource::analysisChanged(int oldType, int newType) {
    if (oldType != newType && oldType != 1) input = 0.0f;
}

}  // namespace vrn
