#include "engine/DSPElementFactory.h"

#include "filters/BiQuad.h"
#include "filters/DifferentialFilter.h"
#include "filters/FirstOrderIIR.h"
#include "filters/Fir.h"
#include "filters/Gain.h"
#include "filters/Iir.h"
#include "filters/IirResamplers.h"
#include "filters/LookupTableFilter.h"
#include "filters/Mixer.h"
#include "filters/Relaxation.h"
#include "filters/Switch.h"
#include "filters/ThirdOrderIIR.h"

namespace vrn {

namespace {

template <typename T>
std::function<Filter*()> maker() {
    return [] { return static_cast<Filter*>(new T()); };
}

const std::unordered_map<std::string, std::function<Filter*()>> kBuiltInTypes = {
    {"Switch", maker<Switch>()},
    {"Relaxation", maker<Relaxation>()},
    {"DifferentialFilter", maker<DifferentialFilter>()},
    {"Mixer", maker<Mixer>()},
    {"Gain", maker<Gain>()},
    {"LookupTableFilter", maker<LookupTableFilter>()},
    {"FirstOrderIIR", maker<FirstOrderIIR>()},
    {"BiQuad", maker<BiQuad>()},
    {"ThirdOrderIIR", maker<ThirdOrderIIR>()},
    {"Iir", maker<Iir>()},
    {"IirInterpolator", maker<IirInterpolator>()},
    {"IirDecimator", maker<IirDecimator>()},
    {"Fir", maker<Fir>()},
    {"PolyphaseDownsampler", maker<PolyphaseDownsampler>()},
    {"PolyphaseUpsampler", maker<PolyphaseUpsampler>()},
    {"ResamplingDecimator", maker<ResamplingDecimator>()},
    {"ResamplingUpsampler", maker<ResamplingUpsampler>()},
};

}  // namespace

const std::unordered_map<std::string, std::function<Filter*()>>& DSPElementFactory::builtInTypes() {
    return kBuiltInTypes;
}

Filter* DSPElementFactory::create(const std::string& type) {
    auto it = kBuiltInTypes.find(type);
    if (it != kBuiltInTypes.end()) return it->second();
    for (const auto& factory : pluginFactories)
        if (factory->isSupported(type)) return factory->create(type);
    throw VRNException("Unknown element type: " + type);
}

void DSPElementFactory::addFactory(const std::shared_ptr<PluginDSPElementFactory>& factory) {
    pluginFactories.push_back(factory);
}

}  // namespace vrn
