// A host from the fuzzer: a sequence of dispatcher calls (opcodes, indices, values, rates,
// block sizes), parameter changes and blocks against one instance of the plug-in, made and
// closed through the module's entry as a host does.  Pointers are valid (a host passes its
// own buffers); everything else is the fuzzer's.  A crash, a hang, a sanitizer report or an
// exception that leaves a call into the plug-in is a finding: a host has no handler for it.
//
// ORM_FUZZ_TOLERATE_EXCEPTIONS=1 lets such exceptions pass (the instance is then abandoned),
// to search past a known one.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz/FuzzInput.h"
#include "plugin/vst2/aeffect.h"

extern "C" AEffect* VSTPluginMain(audioMasterCallback audioMaster);

namespace {

constexpr int32_t kLargestBlock = 8192;

intptr_t host(AEffect*, int32_t opcode, int32_t, intptr_t, void*, float) {
    return opcode == audioMasterVersion ? 2400 : 0;
}

bool tolerant() {
    static const bool value = std::getenv("ORM_FUZZ_TOLERATE_EXCEPTIONS") != nullptr;
    return value;
}

float rate(fuzz::Input& in) {
    static const float usual[] = {22050.0f, 44100.0f, 48000.0f, 88200.0f, 96000.0f, 176400.0f, 192000.0f};
    const uint8_t kind = in.byte();
    if (kind < 160) return usual[kind % 7];
    if (kind < 250) return static_cast<float>(in.u32() % 400000u);
    return in.anyFloat();
}

struct Session {
    AEffect* effect = nullptr;
    int32_t blockSize = 0;
    std::vector<float> left = std::vector<float>(kLargestBlock), right = std::vector<float>(kLargestBlock);
    std::vector<float> out0 = std::vector<float>(kLargestBlock), out1 = std::vector<float>(kLargestBlock);
    VstSpeakerArrangement arrangements[2] = {};
    VstSpeakerArrangement* slots[2] = {nullptr, nullptr};
    char scratch[4096] = {};

    intptr_t dispatch(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) {
        return effect->dispatcher(effect, opcode, index, value, ptr, opt);
    }

    void call(fuzz::Input& in) {
        int32_t opcode = in.byte() % (effGetNumMidiOutputChannels + 1);
        // Closing ends the session (below); opening the window needs a display (the editor's
        // own suites drive it).
        if (opcode == effClose || opcode == effEditOpen) opcode = effIdle;
        const uint8_t indexKind = in.byte();
        const int32_t index = indexKind < 240 ? static_cast<int8_t>(in.byte()) : static_cast<int32_t>(in.u32());
        intptr_t value = static_cast<int16_t>(in.u16());
        float opt = in.parameter();
        std::memset(scratch, 0, sizeof(scratch));
        const uint8_t textLength = in.byte() % 48;
        for (uint8_t i = 0; i < textLength; ++i) scratch[i] = static_cast<char>(in.byte());
        void* ptr = scratch;
        switch (opcode) {
            case effSetSampleRate:
                opt = rate(in);
                break;
            case effSetBlockSize:
            case effSetBlockSizeAndSampleRate:
                value = in.byte() < 250 ? 1 + in.u16() % kLargestBlock : static_cast<int16_t>(in.u16());
                if (opcode == effSetBlockSizeAndSampleRate) opt = rate(in);
                break;
            case effSetSpeakerArrangement:
                for (auto& arrangement : arrangements) arrangement.numChannels = static_cast<int8_t>(in.byte());
                value = reinterpret_cast<intptr_t>(&arrangements[0]);
                ptr = &arrangements[1];
                break;
            case effGetSpeakerArrangement:
                value = reinterpret_cast<intptr_t>(&slots[0]);
                ptr = &slots[1];
                break;
            default:
                break;
        }
        dispatch(opcode, index, value, ptr, opt);
        // Blocks stay within the buffers here (shorter than announced is what hosts do).
        if ((opcode == effSetBlockSize || opcode == effSetBlockSizeAndSampleRate) && value > 0)
            blockSize = static_cast<int32_t>(std::min<intptr_t>(value, kLargestBlock));
    }

    void block(fuzz::Input& in) {
        // Blocks as long as announced or shorter, as hosts send them.
        const int32_t frames = blockSize > 0 ? static_cast<int32_t>(in.u16() % (blockSize + 1)) : 0;
        const uint8_t shape = in.byte();
        const float level = in.parameter();
        for (int32_t i = 0; i < frames; ++i) {
            left[i] = level * std::sin(0.05f * static_cast<float>(i));
            right[i] = (shape & 8) ? in.anyFloat() : -left[i];
        }
        float* inputs[2] = {left.data(), (shape & 1) ? left.data() : (shape & 2) ? nullptr : right.data()};
        float* outputs[2] = {out0.data(), (shape & 4) ? out0.data() : (shape & 16) ? nullptr : out1.data()};
        effect->processReplacing(effect, inputs, outputs, frames);
    }

    void step(fuzz::Input& in) {
        switch (in.byte() % 8) {
            case 0:
            case 1:
                call(in);
                break;
            case 2:
                effect->setParameter(effect, static_cast<int32_t>(in.byte() % 10) - 1, in.parameter());
                break;
            case 3:
                (void)effect->getParameter(effect, static_cast<int32_t>(in.byte() % 10) - 1);
                break;
            case 7:
                dispatch(effMainsChanged, 0, in.byte() & 1, nullptr, 0.0f);
                break;
            default:
                block(in);
                break;
        }
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input in(data, size);
    Session session;
    session.effect = VSTPluginMain(host);
    if (!session.effect) return 0;
    try {
        for (int steps = 0; steps < 48 && !in.empty(); ++steps) session.step(in);
        session.dispatch(effMainsChanged, 0, 0, nullptr, 0.0f);
        session.dispatch(effClose, 0, 0, nullptr, 0.0f);
    } catch (...) {
        if (!tolerant()) throw;
        // The instance may be stuck: it is left as it is.
    }
    return 0;
}
