#pragma once
// Turns a component type name of an "MNA" graph into a new component.  The built-in table comes
// first; factories of additional components may be added after it.

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "circuit/Component.h"

namespace vrn {

class PluginComponentFactory {
public:
    virtual Component* create(const std::string& type) = 0;
    virtual ~PluginComponentFactory() {}
    virtual bool isSupported(const std::string& type) = 0;
};

class ComponentFactory {
public:
    // Load time: a new component, owned by the caller, not yet initialised.
    Component* create(const std::string& type);
    void addFactory(const std::shared_ptr<PluginComponentFactory>& factory);

    // The process-wide table of built-in types, filled when the module loads.
    static const std::unordered_map<std::string, std::function<Component*()>>& builtInTypes();

private:
    std::vector<std::shared_ptr<PluginComponentFactory>> pluginFactories;
};

}  // namespace vrn
