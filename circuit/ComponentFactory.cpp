#include "circuit/ComponentFactory.h"

#include "circuit/components/Amplifiers.h"
#include "circuit/components/GridElements.h"
#include "circuit/components/Passive.h"
#include "circuit/components/Sources.h"
#include "circuit/components/Tubes.h"

namespace vrn {

namespace {

template <typename T>
std::function<Component*()> maker() {
    return [] { return static_cast<Component*>(new T()); };
}

const std::unordered_map<std::string, std::function<Component*()>> kBuiltInComponents = {
    {"LookupTableAmp", maker<LookupTableAmp>()},
    {"OpAmp", maker<OpAmp>()},
    {"IdealDifferentialAmplifier", maker<IdealDifferentialAmplifier>()},
    {"IdealAmplifier", maker<IdealAmplifier>()},
    {"Potentiometer", maker<Potentiometer>()},
    {"Triode", maker<Triode>()},
    {"Pentode", maker<Pentode>()},
    {"VoltageInputSource", maker<VoltageInputSource>()},
    {"Battery", maker<Battery>()},
    {"Capacitor", maker<Capacitor>()},
    {"Resistor", maker<Resistor>()},
    {"GridClamp", maker<GridClamp>()},
    {"GridCurrentLoad", maker<GridCurrentLoad>()},
};

}  // namespace

const std::unordered_map<std::string, std::function<Component*()>>& ComponentFactory::builtInTypes() {
    return kBuiltInComponents;
}

Component* ComponentFactory::create(const std::string& type) {
    auto it = kBuiltInComponents.find(type);
    if (it != kBuiltInComponents.end()) return it->second();
    for (const auto& factory : pluginFactories)
        if (factory->isSupported(type)) return factory->create(type);
    throw VRNException("Unknown element type: " + type);
}

void ComponentFactory::addFactory(const std::shared_ptr<PluginComponentFactory>& factory) {
    pluginFactories.push_back(factory);
}

}  // namespace vrn
