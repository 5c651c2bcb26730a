#pragma once
// The plug-in's element types, added to the engine's factory after its built-in table:
// "Newton" and "FilterWrapper".

#include "engine/DSPElementFactory.h"

class OrmFactory : public vrn::PluginDSPElementFactory {
public:
    // Load time: a new filter owned by the caller.  An unknown name is a VRNException.
    vrn::Filter* create(const std::string& type) override;
    ~OrmFactory() override {}
    bool isSupported(const std::string& type) override;
};
