#pragma once
// A small LV2 host for the tests: loads the bundle's plug-in library with dlopen, maps URIs,
// offers the block bound as an option when asked to, and runs an instance over host buffers.
// Beside it the panel settings the suite plays, a phrase to play, and float WAV files.

#include <dlfcn.h>
#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "plugin/lv2/Lv2Ports.h"

namespace lv2host {

constexpr double kRate = 48000;

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
    explicit Plugin(bool mono = false, int32_t maxBlock = 0, const std::vector<float>& ports = {})
        : layout(mono ? orm_lv2::kMonoLayout : orm_lv2::kStereoLayout) {
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
        handle = type->instantiate(type, kRate, bundle().c_str(), maxBlock > 0 ? features : none);
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

// A panel setting as port values in panel units; the mono plug-in's or the stereo one's.
struct Setting {
    const char* what;
    bool mono;
    std::vector<float> ports;
};

// The corners: each oversampling factor, both CPU modes, the cabinet off, two chains, the mono
// plug-in.
inline const std::vector<Setting> settings = {
    {"2x, low CPU, no cabinet", false, {3, 10, 6, 2, 0, 0, 3, 0}},
    {"stereo, 4x, high CPU", false, {6, 6, 5, 4, 1, 1, 6, 1}},
    {"mono, 8x, high CPU", true, {9, 3, 4, 8, 1, 1, 8, 0}},
};

// The 0..1 value a VST2 host sets for the same panel: knobs divided by ten (7 gives the float
// nearest 0.7), the factor's 2, 4 and 8 at 0, 0.5 and 1, the toggles (ports 4, 5, 7) as they are.
inline float vst2Value(uint32_t port, float value) {
    if (port == 3) return (std::log2(value) - 1) / 2;
    return port == 4 || port == 5 || port == 7 ? value : value / 10;
}

struct Stereo {
    explicit Stereo(size_t frames) : left(frames, 0.0f), right(frames, 0.0f) {}
    std::vector<float> left, right;
    std::vector<float*> pointers() { return {left.data(), right.data()}; }
};

// A few plucked strings, each a decaying fundamental with its octave.
inline std::vector<float> plucks(size_t frames, size_t delay, double level) {
    const double notes[] = {82.41, 110.0, 146.83, 196.0};
    std::vector<float> out(frames, 0.0f);
    for (size_t i = delay; i < frames; ++i) {
        const double t = double(i - delay) / kRate;
        const int note = int(t / 0.25);
        const double since = t - note * 0.25;
        const double phase = 2 * M_PI * notes[note % 4] * since;
        out[i] = float(level * std::exp(-since * 6) * (std::sin(phase) + 0.3 * std::sin(2 * phase)));
    }
    return out;
}

// The phrase left; right the same later and softer, so that a second chain plays its own.
inline Stereo phrase(size_t frames) {
    Stereo input(frames);
    input.left = plucks(frames, 0, 0.4);
    input.right = plucks(frames, 2000, 0.25);
    return input;
}

inline float worstDifference(const std::vector<float>& a, const std::vector<float>& b, size_t from = 0) {
    float worst = 0;
    for (size_t i = 0; i < b.size(); ++i) worst = std::max(worst, std::fabs(a[from + i] - b[i]));
    return worst;
}

inline float peak(const std::vector<float>& x) {
    float largest = 0;
    for (float v : x) largest = std::max(largest, std::fabs(v));
    return largest;
}

// A float WAV file's channels (none when it cannot be read), and one written from channels.
inline std::vector<std::vector<float>> readWav(const std::string& path) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file) return {};
    std::vector<float> interleaved(size_t(info.frames) * size_t(info.channels));
    sf_readf_float(file, interleaved.data(), info.frames);
    sf_close(file);
    std::vector<std::vector<float>> channels(size_t(info.channels));
    for (size_t i = 0; i < interleaved.size(); ++i) channels[i % channels.size()].push_back(interleaved[i]);
    return channels;
}

inline bool writeWav(const std::string& path, const std::vector<std::vector<float>>& channels) {
    SF_INFO info{};
    info.samplerate = int(kRate);
    info.channels = int(channels.size());
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file) return false;
    std::vector<float> interleaved;
    for (size_t i = 0; i < channels[0].size(); ++i)
        for (const auto& channel : channels) interleaved.push_back(channel[i]);
    sf_writef_float(file, interleaved.data(), sf_count_t(channels[0].size()));
    return sf_close(file) == 0;
}

}  // namespace lv2host
