#include "amp/OrmFactory.h"

#include <functional>
#include <unordered_map>

#include "amp/FilterWrapper.h"
#include "amp/Newton.h"

namespace {

// Complete when the module loads and never changed, so instances need no guard.
const std::unordered_map<std::string, std::function<vrn::Filter*()>> kTypes = {
    {"Newton", [] { return static_cast<vrn::Filter*>(new Newton()); }},
    {"FilterWrapper", [] { return static_cast<vrn::Filter*>(new FilterWrapper()); }},
};

}  // namespace

vrn::Filter* OrmFactory::create(const std::string& type) {
    auto it = kTypes.find(type);
    if (it == kTypes.end()) throw vrn::VRNException("Unknown element type: " + type);
    return it->second();
}

bool OrmFactory::isSupported(const std::string& type) { return kTypes.count(type) != 0; }
