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

// The orm module's panel: what the host's bare 0..1 values mean.
struct Panel {
    const char* name;
    const char* longName;
    Parameter::Kind kind;
    std::vector<std::string> positions;
    const char* what;
};

const Panel kOrmPanel[] = {
    {"Volume", "", Parameter::Knob, {}, "drive: the volume pot between the first and second stage (its lower half covers a tenth of the wiper)"},
    {"Feedback", "", Parameter::Knob, {}, "global negative feedback on the second stage: its gain is 1 at 0/10, 0.61 at 10/10"},
    {"Output", "", Parameter::Knob, {}, "output level, linear, after every tube stage: 10/10 is twice 5/10"},
    {"Oversamp", "Oversampling", Parameter::Switch, {"2x", "4x", "8x"}, "oversampling of the tube stages"},
    {"Cabinet", "", Parameter::Switch, {"off", "on"}, "the cabinet's convolution"},
    {"CPU", "", Parameter::Switch, {"low", "high"}, "low: the networks are computed once per block; high: every sample"},
    {"Input", "", Parameter::Knob, {}, "input gain in front of everything: 0 to 4, 1 at 5/10"},
    {"Stereo", "", Parameter::Switch, {"off", "on"}, "off: the left chain feeds both outputs; on: a second chain for the right"},
};

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
    char vendor[256] = {0};
    dispatch(effGetVendorString, 0, 0, vendor);
    for (int32_t i = 0; i < effect->numParams; ++i) {
        char text[256] = {0};  // a name of eight characters comes without a terminator
        dispatch(effGetParamName, i, 0, text);
        Parameter parameter;
        parameter.index = i;
        parameter.name = text;
        parameter.value = effect->getParameter(effect, i);
        char label[256] = {0};
        dispatch(effGetParamLabel, i, 0, label);
        if (label[0]) parameter.what = std::string("in ") + label;
        described.push_back(parameter);
    }
    const size_t panelSize = sizeof(kOrmPanel) / sizeof(kOrmPanel[0]);
    bool orm = std::string(vendor) == "Tarnvale" && described.size() == panelSize;
    for (size_t i = 0; orm && i < panelSize; ++i) orm = described[i].name == kOrmPanel[i].name;
    for (size_t i = 0; orm && i < panelSize; ++i) {
        described[i].longName = kOrmPanel[i].longName;
        described[i].kind = kOrmPanel[i].kind;
        described[i].positions = kOrmPanel[i].positions;
        described[i].what = kOrmPanel[i].what;
    }
}

VstHost::~VstHost() { close(); }

intptr_t VstHost::dispatch(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) {
    return effect->dispatcher(effect, opcode, index, value, ptr, opt);
}

std::vector<std::string> VstHost::parameterNames() const {
    std::vector<std::string> names;
    for (const Parameter& parameter : described) names.push_back(parameter.name);
    return names;
}

void VstHost::set(const std::string& name, double value) {
    size_t index = described.size();
    for (size_t i = 0; i < described.size() && index == described.size(); ++i) {
        const std::string& known = described[i].name;
        if (known == name || (known.size() == 8 && name.compare(0, 8, known) == 0)) index = i;
    }
    if (index == described.size()) {
        char* end = nullptr;
        errno = 0;
        const long number = std::strtol(name.c_str(), &end, 10);
        if (!name.empty() && *end == '\0' && errno == 0 && number >= 0 && static_cast<size_t>(number) < described.size())
            index = static_cast<size_t>(number);
    }
    if (index == described.size()) {
        std::string known;
        for (size_t i = 0; i < described.size(); ++i) known += (i ? ", " : "") + std::to_string(i) + " " + described[i].name;
        throw std::runtime_error("unknown parameter " + name + " (parameters: " + (known.empty() ? "none" : known) + ")");
    }
    if (value < 0 || value > 1) throw std::runtime_error("parameter values lie in 0..1, got " + std::to_string(value));
    set(index, value);
}

void VstHost::set(size_t index, double value) {
    effect->setParameter(effect, static_cast<int32_t>(index), static_cast<float>(value));
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
