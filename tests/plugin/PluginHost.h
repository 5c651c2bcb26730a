#pragma once
// A minimal host: loads the built orm module with dlopen and drives it only through the effect
// record and its dispatcher, in the order hosts use.

#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "plugin/vst2/aeffect.h"

namespace testhost {

// How often the plug-in asked the host for its version (it does so before making an instance).
inline std::atomic<int>& versionQueries() {
    static std::atomic<int> count{0};
    return count;
}

inline intptr_t hostCallback(AEffect*, int32_t opcode, int32_t, intptr_t, void*, float) {
    if (opcode != audioMasterVersion) return 0;
    ++versionQueries();
    return 2400;
}

inline intptr_t refusingHost(AEffect*, int32_t, int32_t, intptr_t, void*, float) { return 0; }

typedef AEffect* (*EntryPoint)(audioMasterCallback);

// Loaded once, for the life of the test program.
class Module {
public:
    explicit Module(const char* path = ORM_PLUGIN_PATH) {
        handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
        if (!handle) throw std::runtime_error(std::string("dlopen: ") + dlerror());
        entry = reinterpret_cast<EntryPoint>(dlsym(handle, "VSTPluginMain"));
        alias = reinterpret_cast<EntryPoint>(dlsym(handle, "main"));
        if (!entry) throw std::runtime_error("no VSTPluginMain");
    }

    void* handle = nullptr;
    EntryPoint entry = nullptr;
    EntryPoint alias = nullptr;
};

inline Module& module() {
    static Module loaded;
    return loaded;
}

class Instance {
public:
    explicit Instance(audioMasterCallback callback = hostCallback) : effect(module().entry(callback)) {
        if (!effect) throw std::runtime_error("VSTPluginMain returned null");
    }
    ~Instance() { close(); }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    intptr_t dispatch(int32_t opcode, int32_t index = 0, intptr_t value = 0, void* ptr = nullptr, float opt = 0.0f) {
        return effect->dispatcher(effect, opcode, index, value, ptr, opt);
    }

    // open, rate, block size, resume: what a host does before the first block.
    Instance& start(float rate = 48000.0f, int maxBlock = 512) {
        dispatch(effOpen);
        dispatch(effSetSampleRate, 0, 0, nullptr, rate);
        dispatch(effSetBlockSize, 0, maxBlock);
        dispatch(effMainsChanged, 0, 1);
        return *this;
    }

    void process(float** in, float** out, int32_t frames) { effect->processReplacing(effect, in, out, frames); }
    Instance& setParameter(int32_t index, float value) {
        effect->setParameter(effect, index, value);
        return *this;
    }
    // What the instance counts of itself: blocks that failed, and states cleared after
    // output that was not finite.
    intptr_t failedBlocks() { return dispatch(effVendorSpecific, 0x71377674, 0x6661696c); }  // 'q7vt', 'fail'
    intptr_t recoveries() { return dispatch(effVendorSpecific, 0x71377674, 0x72637672); }    // 'q7vt', 'rcvr'

    float getParameter(int32_t index) { return effect->getParameter(effect, index); }

    // The answer to a speaker arrangement of so many channels on each side.
    intptr_t setArrangement(int inputs, int outputs) {
        VstSpeakerArrangement in{}, out{};
        in.numChannels = inputs;
        out.numChannels = outputs;
        return dispatch(effSetSpeakerArrangement, 0, reinterpret_cast<intptr_t>(&in), &out);
    }

    // Suspends and closes; the record is invalid afterwards.
    intptr_t close() {
        if (!effect) return 0;
        dispatch(effMainsChanged, 0, 0);
        intptr_t result = dispatch(effClose);
        effect = nullptr;
        return result;
    }

    AEffect* effect;
};

// An array of one pointer that ends where a page nobody may read begins: reading a second
// pointer from it faults.
class LonePointer {
public:
    LonePointer() : page(static_cast<size_t>(sysconf(_SC_PAGESIZE))) {
        pages = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED || mprotect(static_cast<char*>(pages) + page, page, PROT_NONE) != 0) std::abort();
    }
    ~LonePointer() { munmap(pages, 2 * page); }
    float** array() { return reinterpret_cast<float**>(static_cast<char*>(pages) + page - sizeof(float*)); }

private:
    size_t page;
    void* pages;
};

// The parameters in the module's order.
enum Parameter { kGain = 0, kFeedback, kVol, kOversampling, kCabinet, kCPU, kInput, kStereo };

// A sine at 48 kHz.
inline std::vector<float> tone(size_t frames, double frequency, double amplitude = 0.5) {
    std::vector<float> samples(frames);
    for (size_t i = 0; i < frames; ++i)
        samples[i] = static_cast<float>(amplitude * std::sin(2 * M_PI * frequency * double(i) / 48000.0));
    return samples;
}

inline double rms(const std::vector<float>& x) {
    double sum = 0;
    for (float v : x) sum += double(v) * v;
    return std::sqrt(sum / double(x.size()));
}

// Every sample finite and below bound: full scale by default.  The stages clip at their
// supplies, so even full drive with the output knob at full stays within a small multiple of it.
inline ::testing::AssertionResult sane(const std::vector<float>& out, float bound = 1.0f) {
    for (size_t i = 0; i < out.size(); ++i)
        if (!std::isfinite(out[i]) || std::fabs(out[i]) >= bound)
            return ::testing::AssertionFailure() << "sample " << i << ": " << out[i];
    return ::testing::AssertionSuccess();
}

// out equals factor * reference within tolerance (float rounding by default) of the block's peak.
inline ::testing::AssertionResult scaled(const std::vector<float>& out, const std::vector<float>& reference,
                                         double factor = 1.0, double tolerance = 1e-6) {
    double peak = 0;
    for (float v : reference) peak = std::fmax(peak, std::fabs(factor * v));
    for (size_t i = 0; i < out.size(); ++i) {
        const double want = factor * reference[i];
        if (std::fabs(out[i] - want) > tolerance * peak + 1e-30)
            return ::testing::AssertionFailure() << "sample " << i << ": " << out[i] << " against " << want;
    }
    return ::testing::AssertionSuccess();
}

// The two outputs of stereo blocks run through an instance.
struct Block {
    explicit Block(size_t frames) : out0(frames), out1(frames) {}
    void run(Instance& plugin, const std::vector<float>& left, const std::vector<float>& right) {
        float* inputs[2] = {const_cast<float*>(left.data()), const_cast<float*>(right.data())};
        float* outputs[2] = {out0.data(), out1.data()};
        plugin.process(inputs, outputs, static_cast<int32_t>(out0.size()));
    }
    std::vector<float> out0, out1;
};

}  // namespace testhost
