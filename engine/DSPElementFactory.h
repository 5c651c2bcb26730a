#pragma once
// Turns a type name of a system description into a new filter.  The built-in table comes first;
// a plug-in's factories add types of their own after it.

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "engine/Element.h"

namespace vrn {

class PluginDSPElementFactory {
public:
    virtual Filter* create(const std::string& type) = 0;
    virtual ~PluginDSPElementFactory() {}
    virtual bool isSupported(const std::string& type) = 0;
};

class DSPElementFactory {
public:
    // Load time: a new filter, owned by the caller, not yet initialised.
    Filter* create(const std::string& type);
    void addFactory(const std::shared_ptr<PluginDSPElementFactory>& factory);

    // The process-wide table of built-in types, filled when the module loads.
    static const std::unordered_map<std::string, std::function<Filter*()>>& builtInTypes();

private:
    std::vector<std::shared_ptr<PluginDSPElementFactory>> pluginFactories;
};

}  // namespace vrn
