#pragma once
// A minimal host: loads the built orm module with dlopen and drives it only through the effect
// record and its dispatcher, in the order hosts use.

#include <dlfcn.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "plugin/vst2/aeffect.h"

namespace testhost {

// What the plug-in asked of the host, for tests that look at the callback traffic.
struct CallbackLog {
    std::atomic<int> versionQueries{0};
    std::atomic<int> automations{0};
    std::atomic<int> lastAutomatedIndex{-1};
    std::atomic<float> lastAutomatedValue{0.0f};
};

inline CallbackLog& callbackLog() {
    static CallbackLog log;
    return log;
}

inline intptr_t hostCallback(AEffect*, int32_t opcode, int32_t index, intptr_t, void*, float opt) {
    switch (opcode) {
        case audioMasterVersion:
            ++callbackLog().versionQueries;
            return 2400;
        case audioMasterAutomate:
            ++callbackLog().automations;
            callbackLog().lastAutomatedIndex = index;
            callbackLog().lastAutomatedValue = opt;
            return 0;
        default:
            return 0;
    }
}

inline intptr_t refusingHost(AEffect*, int32_t, int32_t, intptr_t, void*, float) { return 0; }

typedef AEffect* (*EntryPoint)(audioMasterCallback);

class Module {
public:
    explicit Module(const char* path = ORM_PLUGIN_PATH) {
        handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
        if (!handle) throw std::runtime_error(std::string("dlopen: ") + dlerror());
        entry = reinterpret_cast<EntryPoint>(dlsym(handle, "VSTPluginMain"));
        alias = reinterpret_cast<EntryPoint>(dlsym(handle, "main"));
        if (!entry) throw std::runtime_error("no VSTPluginMain");
    }
    // The module stays loaded for the life of the test program.
    ~Module() {}
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

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
    void start(float rate = 48000.0f, int maxBlock = 512) {
        dispatch(effOpen);
        dispatch(effSetSampleRate, 0, 0, nullptr, rate);
        dispatch(effSetBlockSize, 0, maxBlock);
        dispatch(effMainsChanged, 0, 1);
    }

    void process(float** in, float** out, int32_t frames) { effect->processReplacing(effect, in, out, frames); }
    void setParameter(int32_t index, float value) { effect->setParameter(effect, index, value); }
    // What the instance counts of itself: blocks that failed, and states cleared after
    // output that was not finite.
    intptr_t failedBlocks() { return dispatch(effVendorSpecific, 0x71377674, 0x6661696c); }  // 'q7vt', 'fail'
    intptr_t recoveries() { return dispatch(effVendorSpecific, 0x71377674, 0x72637672); }    // 'q7vt', 'rcvr'

    float getParameter(int32_t index) { return effect->getParameter(effect, index); }

    std::string text(int32_t opcode, int32_t index = 0) {
        char buffer[256];
        std::memset(buffer, 0, sizeof(buffer));
        dispatch(opcode, index, 0, buffer);
        return buffer;
    }

    void setArrangement(int inputs, int outputs) {
        VstSpeakerArrangement in{}, out{};
        in.numChannels = inputs;
        out.numChannels = outputs;
        lastArrangementAnswer = dispatch(effSetSpeakerArrangement, 0, reinterpret_cast<intptr_t>(&in), &out);
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
    intptr_t lastArrangementAnswer = 0;
};

// A stereo pair of host buffers.
struct Channels {
    explicit Channels(size_t frames, float fill = 0.0f) : left(frames, fill), right(frames, fill) {
        pointers[0] = left.data();
        pointers[1] = right.data();
    }
    std::vector<float> left, right;
    float* pointers[2];
};

}  // namespace testhost
