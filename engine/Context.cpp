#include "engine/Context.h"

namespace vrn {

DSPContext::DSPContext() : elementMap(8) {
    samplingRate = 0.0f;
    elementMap.max_load_factor(1.0f);
}

DSPContext::~DSPContext() {
    for (Filter* filter : elements) delete filter;
    elements.clear();
    elementMap.clear();
}

void DSPContext::setSamplingRate(scalar rate) {
    samplingRate = rate;
    for (Filter* filter : elements) filter->setSamplingRate(rate);
}

Element* DSPContext::getElement(std::string elementName) {
    auto it = elementMap.find(elementName);
    if (it == elementMap.end())
        throw InvalidArgumentException("DSOContext: Cannot find element with name " + elementName);
    return it->second;
}

void DSPContext::addElement(Element* element) {
    Filter* filter = dynamic_cast<Filter*>(element);
    if (!filter) throw InvalidArgumentException("DSPContext: Only filters can be added. Element: " + element->getName());
    if (!elementMap.emplace(filter->getName(), filter).second)
        throw VRNException("DSPContext: Duplicate element name: " + filter->getName());
    elements.push_back(filter);
}

void DSPContext::setMaxBlockSize(int size) {
    for (Filter* filter : elements) filter->setMaxBlockSize(size);
}

}  // namespace vrn
