#include "engine/Element.h"

namespace vrn {

Element::~Element() {}

void Element::propertiesChanged(const Properties&) {
    throw OperationNotSupportedException("propertiesChanged is not supported. Element: " + name);
}

void Element::propertyChanged(const std::string&, scalar) {
    throw OperationNotSupportedException("propertyChanged(scalar) is not supported. Element: " + name);
}

void Element::propertyChanged(const std::string&, const std::shared_ptr<std::vector<scalar>>&) {
    throw OperationNotSupportedException("propertyChanged(vector) is not supported. Element: " + name);
}

const std::string& Element::getName() const { return name; }

int BasicFilterMeta::getInputIndex(const std::string& portName) {
    if (portName == "in") return 0;
    throw InvalidArgumentException("Invalid input port name: " + portName + ". Expected \"in\".");
}

int BasicFilterMeta::getOutputIndex(const std::string& portName) {
    if (portName == "out") return 0;
    throw InvalidArgumentException("Invalid output port name: " + portName + ". Expected \"out\".");
}

void Filter::propertyChanged(const std::string& propertyName, scalar value) {
    if (!handler)
        throw OperationNotSupportedException("propertyChanged(scalar) is not supported. Filter: " + name);
    handler->propertyChanged(propertyName, value);
}

void Filter::init(const std::string& filterName, std::shared_ptr<DSPContext>& filterContext) {
    name = filterName;
    context = filterContext.get();
}

void Filter::setSamplingRate(scalar rate) {
    if (handler) handler->setSamplingRate(rate);
}

void Filter::setPropertiesHandler(const std::shared_ptr<PropertiesHandler>& newHandler) {
    handler = newHandler;
    if (!properties.empty()) handler->propertiesChanged(properties);
}

}  // namespace vrn
