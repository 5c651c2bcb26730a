// The LV2 plug-in: a thin adaptor that holds the same effect a VST2 host gets and drives it
// through the effect record, as a host would, so that both formats share every behaviour of
// the effect.  The control ports are mapped onto the effect's parameters when they change, and
// a run of any length goes through in pieces of the block size announced to the effect.

#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "plugin/AudioEffect.h"
#include "plugin/DenormalGuard.h"
#include "plugin/OrmVST2Effect.h"
#include "plugin/lv2/Lv2Ports.h"

namespace {

using orm_lv2::kControlPorts;

// Pieces of our own where the host announces no bound; hosts rarely run longer blocks.
constexpr int32_t kDefaultMaxBlock = 1024;
// What a host may announce: more would be memory for nothing.
constexpr int32_t kLargestMaxBlock = 1 << 16;

struct Instance {
    AEffect* effect = nullptr;
    orm_lv2::PortLayout layout;
    int32_t maxBlock = kDefaultMaxBlock;
    bool active = false;
    const float* controls[kControlPorts] = {};
    // The port values the effect has; NaN until they are first applied.
    float applied[kControlPorts];
    const float* in[2] = {};
    float* out[2] = {};
    float* latency = nullptr;

    intptr_t dispatch(int32_t opcode, int32_t index = 0, intptr_t value = 0, void* ptr = nullptr, float opt = 0) {
        return effect->dispatcher(effect, opcode, index, value, ptr, opt);
    }

    // The control ports' values that the effect does not have yet, as its 0..1 parameters.
    void applyControls() {
        for (uint32_t i = 0; i < kControlPorts; ++i) {
            if (!controls[i]) continue;
            const float value = *controls[i];
            if (value == applied[i] || std::isnan(value)) continue;
            applied[i] = value;
            effect->setParameter(effect, static_cast<int32_t>(i), orm_lv2::toControlValue(i, value));
        }
    }
};

// The block bound from the host's options, if it gives one with a type we can read.
int32_t announcedMaxBlock(const LV2_Feature* const* features) {
    const LV2_URID_Map* map = nullptr;
    const LV2_Options_Option* options = nullptr;
    for (int i = 0; features && features[i]; ++i) {
        if (!std::strcmp(features[i]->URI, LV2_URID__map)) map = static_cast<const LV2_URID_Map*>(features[i]->data);
        if (!std::strcmp(features[i]->URI, LV2_OPTIONS__options))
            options = static_cast<const LV2_Options_Option*>(features[i]->data);
    }
    if (!map || !options) return 0;
    const LV2_URID maxLength = map->map(map->handle, LV2_BUF_SIZE__maxBlockLength);
    const LV2_URID intType = map->map(map->handle, "http://lv2plug.in/ns/ext/atom#Int");
    for (const LV2_Options_Option* option = options; option->key || option->value; ++option) {
        if (option->key == maxLength && option->type == intType && option->size == sizeof(int32_t) && option->value)
            return *static_cast<const int32_t*>(option->value);
    }
    return 0;
}

LV2_Handle instantiate(const LV2_Descriptor* descriptor, double rate, const char*, const LV2_Feature* const* features) {
    if (!(rate > 0) || !std::isfinite(rate)) return nullptr;
    // The elements are made in the plug-in's floating-point mode; the host's thread gets its own back.
    DenormalGuard mode;
    Instance* self = nullptr;
    try {
        self = new Instance;
        std::fill(std::begin(self->applied), std::end(self->applied), NAN);
        const bool mono = !std::strcmp(descriptor->URI, orm_lv2::kMonoPluginUri);
        self->layout = mono ? orm_lv2::kMonoLayout : orm_lv2::kStereoLayout;
        const int32_t announced = announcedMaxBlock(features);
        if (announced > 0) self->maxBlock = std::min(announced, kLargestMaxBlock);

        AudioEffect* effect = createEffectInstance(nullptr);
        if (!effect) throw std::bad_alloc();
        self->effect = effect->getAeffect();
        self->dispatch(effOpen);
        self->dispatch(effSetSampleRate, 0, 0, nullptr, static_cast<float>(rate));
        self->dispatch(effSetBlockSize, 0, self->maxBlock);
        if (mono) {
            // One chain, its output on the one port: the effect's mono use, as a VST2 host declares it.
            VstSpeakerArrangement one{};
            one.numChannels = 1;
            self->dispatch(effSetSpeakerArrangement, 0, reinterpret_cast<intptr_t>(&one), &one);
        }
        return self;
    } catch (...) {
        if (self && self->effect) {
            try {
                self->dispatch(effClose);
            } catch (...) {
            }
        }
        delete self;
        return nullptr;
    }
}

void connectPort(LV2_Handle handle, uint32_t port, void* data) {
    Instance& self = *static_cast<Instance*>(handle);
    if (port < kControlPorts)
        self.controls[port] = static_cast<const float*>(data);
    else if (port >= self.layout.audioIn && port < self.layout.audioIn + self.layout.channels)
        self.in[port - self.layout.audioIn] = static_cast<const float*>(data);
    else if (port >= self.layout.audioOut && port < self.layout.audioOut + self.layout.channels)
        self.out[port - self.layout.audioOut] = static_cast<float*>(data);
    else if (port == self.layout.latency)
        self.latency = static_cast<float*>(data);
}

void activate(LV2_Handle handle) {
    Instance& self = *static_cast<Instance*>(handle);
    DenormalGuard mode;
    try {
        // Hosts fill the control ports before they activate: the effect starts at the panel they
        // ask for, as a VST2 host sets the parameters before it resumes.  run() takes later changes.
        self.applyControls();
        self.dispatch(effMainsChanged, 0, 1);
        self.active = true;
    } catch (...) {
    }
}

void deactivate(LV2_Handle handle) {
    Instance& self = *static_cast<Instance*>(handle);
    DenormalGuard mode;
    try {
        self.dispatch(effMainsChanged, 0, 0);
    } catch (...) {
    }
    self.active = false;
}

// Audio thread: no allocation, no lock.  A parameter change costs what it costs a VST2 host.
void run(LV2_Handle handle, uint32_t frames) {
    Instance& self = *static_cast<Instance*>(handle);
    if (self.latency) *self.latency = 0.0f;
    const uint32_t channels = self.layout.channels;
    for (uint32_t c = 0; c < channels; ++c)
        if (!self.in[c] || !self.out[c]) return;
    // In the mono plug-in both chains are offered the one input and the effect writes one output.
    const float* in1 = channels == 2 ? self.in[1] : self.in[0];
    float* out1 = channels == 2 ? self.out[1] : self.out[0];
    uint32_t done = 0;
    try {
        self.applyControls();
        // A host that runs before activating gets silence.
        while (self.active && done < frames) {
            const uint32_t piece = std::min(frames - done, static_cast<uint32_t>(self.maxBlock));
            // The effect reads a piece's input before it writes that piece's output, so the host's
            // buffers may be the same memory.
            float* inputs[2] = {const_cast<float*>(self.in[0]) + done, const_cast<float*>(in1) + done};
            float* outputs[2] = {self.out[0] + done, out1 + done};
            self.effect->processReplacing(self.effect, inputs, outputs, static_cast<int32_t>(piece));
            done += piece;
        }
    } catch (...) {
        // The host gets no exception, and silence for what did not play.
    }
    for (uint32_t c = 0; c < channels && done < frames; ++c)
        std::memset(self.out[c] + done, 0, (frames - done) * sizeof(float));
}

void cleanup(LV2_Handle handle) {
    Instance* self = static_cast<Instance*>(handle);
    DenormalGuard mode;
    try {
        self->dispatch(effClose);
    } catch (...) {
    }
    delete self;
}

const void* extensionData(const char*) { return nullptr; }

const LV2_Descriptor kDescriptors[] = {
    {orm_lv2::kPluginUri, instantiate, connectPort, activate, run, deactivate, cleanup, extensionData},
    {orm_lv2::kMonoPluginUri, instantiate, connectPort, activate, run, deactivate, cleanup, extensionData},
};

}  // namespace

extern "C" LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(uint32_t index) {
    return index < sizeof(kDescriptors) / sizeof(kDescriptors[0]) ? &kDescriptors[index] : nullptr;
}
