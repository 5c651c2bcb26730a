#pragma once
// A small LV2 host for the tests: loads the bundle's plug-in library with dlopen, maps URIs,
// offers the block bound as an option when asked to, and runs an instance over host buffers.

#include <dlfcn.h>
#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>

#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "plugin/lv2/Lv2Ports.h"

namespace lv2host {

inline std::string bundle() { return ORM_LV2_BUNDLE; }

inline LV2_URID mapUri(LV2_URID_Map_Handle handle, const char* uri) {
    auto& uris = *static_cast<std::vector<std::string>*>(handle);
    for (size_t i = 0; i < uris.size(); ++i)
        if (uris[i] == uri) return LV2_URID(i + 1);
    uris.emplace_back(uri);
    return LV2_URID(uris.size());
}

inline const LV2_Descriptor* descriptor(uint32_t index) {
    static void* library = [] {
        void* handle = dlopen((bundle() + "/orm_lv2.so").c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!handle) throw std::runtime_error(std::string("dlopen: ") + dlerror());
        return handle;
    }();
    auto entry = reinterpret_cast<LV2_Descriptor_Function>(dlsym(library, "lv2_descriptor"));
    return entry ? entry(index) : nullptr;
}

// One instance with its ports connected to buffers of its own; audio buffers are the caller's.
class Plugin {
public:
    // maxBlock 0: the host announces no bound.  The control ports hold `ports` (in panel units)
    // when the instance is activated, else the defaults.
    explicit Plugin(bool mono = false, int32_t maxBlock = 0, double rate = 48000, const std::vector<float>& ports = {})
        : mono(mono), layout(mono ? orm_lv2::kMonoLayout : orm_lv2::kStereoLayout) {
        map.handle = &uris;
        map.map = mapUri;
        block = maxBlock;
        options[0] = {LV2_OPTIONS_INSTANCE, 0, mapUri(&uris, LV2_BUF_SIZE__maxBlockLength), sizeof(int32_t),
                      mapUri(&uris, LV2_ATOM__Int), &block};
        options[1] = {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr};
        mapFeature = {LV2_URID__map, &map};
        optionsFeature = {LV2_OPTIONS__options, options};
        const LV2_Feature* features[] = {&mapFeature, &optionsFeature, nullptr};
        const LV2_Feature* none[] = {nullptr};
        type = descriptor(mono ? 1 : 0);
        if (!type) throw std::runtime_error("no descriptor");
        handle = type->instantiate(type, rate, bundle().c_str(), maxBlock > 0 ? features : none);
        if (!handle) throw std::runtime_error("instantiate failed");
        for (uint32_t i = 0; i < orm_lv2::kControlPorts; ++i) {
            controls[i] = i < ports.size() ? ports[i] : orm_lv2::kControls[i].defaultValue;
            type->connect_port(handle, i, &controls[i]);
        }
        type->connect_port(handle, layout.latency, &latency);
        type->activate(handle);
    }
    ~Plugin() {
        type->deactivate(handle);
        type->cleanup(handle);
    }
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    // Runs `frames` from in[c] + offset into out[c] + offset (one channel each for the mono plug-in).
    void run(const std::vector<float*>& in, const std::vector<float*>& out, size_t offset, uint32_t frames) {
        for (uint32_t c = 0; c < layout.channels; ++c) {
            type->connect_port(handle, layout.audioIn + c, in[c] + offset);
            type->connect_port(handle, layout.audioOut + c, out[c] + offset);
        }
        type->run(handle, frames);
    }

    const bool mono;
    const orm_lv2::PortLayout layout;
    float controls[orm_lv2::kControlPorts];
    float latency = -1;

private:
    std::vector<std::string> uris;
    LV2_URID_Map map;
    int32_t block = 0;
    LV2_Options_Option options[2];
    LV2_Feature mapFeature, optionsFeature;
    const LV2_Descriptor* type = nullptr;
    LV2_Handle handle = nullptr;
};

}  // namespace lv2host
