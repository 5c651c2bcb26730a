#include "tools/orm-render/VstHost.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace orm_render {

namespace {

typedef AEffect* (*EntryPoint)(audioMasterCallback);

// What a plain offline host answers: its interface version, its vendor, and nothing else.
intptr_t hostCallback(AEffect*, int32_t opcode, int32_t, intptr_t, void* ptr, float) {
    switch (opcode) {
        case audioMasterVersion:
            return 2400;
        case audioMasterGetVendorString:
            if (ptr) std::strcpy(static_cast<char*>(ptr), "orm-render");
            return 1;
        case audioMasterGetCurrentProcessLevel:
            return 4;  // offline
        default:
            return 0;
    }
}

}  // namespace

std::string VstHost::defaultModulePath() {
    char self[PATH_MAX];
    ssize_t length = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (length <= 0) return "orm.so";
    std::string path(self, static_cast<size_t>(length));
    return path.substr(0, path.find_last_of('/') + 1) + "orm.so";
}

VstHost::VstHost(const std::string& modulePath) {
    module = dlopen(modulePath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!module) throw std::runtime_error(std::string("cannot load ") + modulePath + ": " + dlerror());
    auto entry = reinterpret_cast<EntryPoint>(dlsym(module, "VSTPluginMain"));
    if (!entry) entry = reinterpret_cast<EntryPoint>(dlsym(module, "main"));
    if (!entry) throw std::runtime_error(modulePath + " is not a VST2 module (no VSTPluginMain or main)");
    effect = entry(hostCallback);
    if (!effect) throw std::runtime_error(modulePath + " made no effect");
    if (effect->magic != kEffectMagic) throw std::runtime_error(modulePath + " returned a record without the VST2 magic");
    if (!(effect->flags & effFlagsCanReplacing) || !effect->processReplacing)
        throw std::runtime_error(modulePath + " cannot process replacing");
    dispatch(effOpen);
    for (int32_t i = 0; i < effect->numParams; ++i) {
        char text[256] = {0};  // a name of eight characters comes without a terminator
        dispatch(effGetParamName, i, 0, text);
        names.emplace_back(text);
    }
}

VstHost::~VstHost() { close(); }

intptr_t VstHost::dispatch(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) {
    return effect->dispatcher(effect, opcode, index, value, ptr, opt);
}

void VstHost::set(const std::string& name, double value) {
    int32_t index = -1;
    for (size_t i = 0; i < names.size() && index < 0; ++i)
        if (names[i] == name || (names[i].size() == 8 && name.compare(0, 8, names[i]) == 0)) index = static_cast<int32_t>(i);
    if (index < 0) {
        char* end = nullptr;
        errno = 0;
        long number = std::strtol(name.c_str(), &end, 10);
        if (!name.empty() && *end == '\0' && errno == 0 && number >= 0 && number < effect->numParams)
            index = static_cast<int32_t>(number);
    }
    if (index < 0) {
        std::string known;
        for (size_t i = 0; i < names.size(); ++i) known += (i ? ", " : "") + std::to_string(i) + " " + names[i];
        throw std::runtime_error("unknown parameter " + name + " (parameters: " + (known.empty() ? "none" : known) + ")");
    }
    if (value < 0 || value > 1) throw std::runtime_error("parameter values lie in 0..1, got " + std::to_string(value));
    effect->setParameter(effect, index, static_cast<float>(value));
}

void VstHost::start(double rate, int maxBlockSize) {
    maxBlock = static_cast<size_t>(maxBlockSize);
    outputBuffers.assign(static_cast<size_t>(effect->numOutputs), std::vector<float>(maxBlock, 0.0f));
    outputs.clear();
    for (auto& buffer : outputBuffers) outputs.push_back(buffer.data());
    silence.assign(maxBlock, 0.0f);
    inputPointers.assign(static_cast<size_t>(effect->numInputs), silence.data());
    dispatch(effSetSampleRate, 0, 0, nullptr, static_cast<float>(rate));
    dispatch(effSetBlockSize, 0, maxBlockSize);
    dispatch(effMainsChanged, 0, 1);
}

const std::vector<float*>& VstHost::process(std::vector<float*>& inputs, size_t frames) {
    if (frames > maxBlock) throw std::runtime_error("block larger than the announced maximum");
    for (size_t i = 0; i < inputPointers.size(); ++i) inputPointers[i] = i < inputs.size() ? inputs[i] : silence.data();
    try {
        effect->processReplacing(effect, inputPointers.data(), outputs.data(), static_cast<int32_t>(frames));
    } catch (...) {
        // The module's own exception types are not ours to name.
        throw std::runtime_error("the plug-in failed in a block");
    }
    return outputs;
}

void VstHost::stop() {
    dispatch(effMainsChanged, 0, 0);
    close();
}

void VstHost::close() {
    // effClose deletes the effect; the module stays loaded for the rest of the process, as hosts
    // commonly keep it.
    if (effect) dispatch(effClose);
    effect = nullptr;
}

}  // namespace orm_render
