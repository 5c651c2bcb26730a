#include "plugin/AudioEffect.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "plugin/DenormalGuard.h"

namespace {

constexpr int32_t kNoEffectId = vstFourCC('N', 'o', 'E', 'f');
constexpr int32_t kIdentifyAnswer = vstFourCC('N', 'v', 'E', 'f');

AudioEffect* instanceOf(AEffect* e) { return static_cast<AudioEffect*>(e->object); }

// Opcodes whose ptr is a record or text the plug-in must read or write: without one there is
// nothing to answer.
bool needsPointer(int32_t opcode) {
    switch (opcode) {
        case effSetProgramName:
        case effGetProgramName:
        case effGetParamLabel:
        case effGetParamDisplay:
        case effGetParamName:
        case effEditGetRect:
        case effGetChunk:
        case effSetChunk:
        case effProcessEvents:
        case effString2Parameter:
        case effGetProgramNameIndexed:
        case effGetInputProperties:
        case effGetOutputProperties:
        case effOfflineNotify:
        case effOfflinePrepare:
        case effOfflineRun:
        case effProcessVarIo:
        case effGetEffectName:
        case effGetErrorText:
        case effGetVendorString:
        case effGetProductString:
        case effCanDo:
        case effGetParameterProperties:
        case effGetMidiProgramName:
        case effGetMidiProgramCategory:
        case effGetMidiKeyName:
        case effShellGetNextPlugin:
        case effBeginLoadBank:
        case effBeginLoadProgram:
            return true;
        default:
            return false;
    }
}

// snprintf into a bounded host buffer; maxLength counts the characters without the terminator.
void boundedText(char* text, int32_t maxLength, const char* format, double value) {
    if (maxLength < 0) maxLength = 0;
    char scratch[64];
    std::snprintf(scratch, sizeof(scratch), format, value);
    size_t length = std::strlen(scratch);
    if (length > static_cast<size_t>(maxLength)) length = static_cast<size_t>(maxLength);
    std::memcpy(text, scratch, length);
    text[length] = 0;
}

}  // namespace

AudioEffect::AudioEffect(audioMasterCallback master, int32_t programs, int32_t params)
    : audioMaster(master), numPrograms(programs), numParams(params) {
    std::memset(&cEffect, 0, sizeof(cEffect));
    cEffect.magic = kEffectMagic;
    cEffect.dispatcher = dispatchEffectClass;
    cEffect.process = processClass;
    cEffect.setParameter = setParameterClass;
    cEffect.getParameter = getParameterClass;
    cEffect.numPrograms = programs;
    cEffect.numParams = params;
    cEffect.numInputs = 1;
    cEffect.numOutputs = 2;
    cEffect.flags = effFlagsCanReplacing;
    cEffect.ioRatio = 1.0f;
    cEffect.object = this;
    cEffect.uniqueID = kNoEffectId;
    cEffect.version = 1;
    cEffect.processReplacing = processClassReplacing;
    cEffect.processDoubleReplacing = processClassDoubleReplacing;
}

AudioEffect::~AudioEffect() { delete editor; }

// The host's calls enter here.  A host has no C++ handler around them: every exception ends in
// the thunk, which answers as for a call that did nothing, and the caller's MXCSR comes back.

intptr_t AudioEffect::dispatchEffectClass(AEffect* e, int32_t opcode, int32_t index, intptr_t value, void* ptr,
                                          float opt) {
    if (!e || !e->object) return 0;
    DenormalGuard mode;
    AudioEffect* effect = instanceOf(e);
    if (opcode == effClose) {
        try {
            effect->dispatcher(opcode, index, value, ptr, opt);
        } catch (...) {
        }
        delete effect;
        return 1;
    }
    if (!ptr && needsPointer(opcode)) return 0;
    try {
        return effect->dispatcher(opcode, index, value, ptr, opt);
    } catch (...) {
        return 0;
    }
}

void AudioEffect::processClass(AEffect* e, float** inputs, float** outputs, int32_t sampleFrames) {
    if (!e || !e->object) return;
    DenormalGuard mode;
    try {
        instanceOf(e)->process(inputs, outputs, sampleFrames);
    } catch (...) {
    }
}

void AudioEffect::processClassReplacing(AEffect* e, float** inputs, float** outputs, int32_t sampleFrames) {
    if (!e || !e->object) return;
    DenormalGuard mode;
    try {
        instanceOf(e)->processReplacing(inputs, outputs, sampleFrames);
    } catch (...) {
    }
}

void AudioEffect::processClassDoubleReplacing(AEffect* e, double** inputs, double** outputs, int32_t sampleFrames) {
    if (!e || !e->object) return;
    DenormalGuard mode;
    try {
        instanceOf(e)->processDoubleReplacing(inputs, outputs, sampleFrames);
    } catch (...) {
    }
}

void AudioEffect::setParameterClass(AEffect* e, int32_t index, float value) {
    if (!e || !e->object) return;
    DenormalGuard mode;
    try {
        instanceOf(e)->setParameter(index, value);
    } catch (...) {
    }
}

float AudioEffect::getParameterClass(AEffect* e, int32_t index) {
    if (!e || !e->object) return 0.0f;
    DenormalGuard mode;
    try {
        return instanceOf(e)->getParameter(index);
    } catch (...) {
        return 0.0f;
    }
}

intptr_t AudioEffect::dispatcher(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) {
    switch (opcode) {
        case effOpen:
            open();
            return 0;
        case effClose:
            close();
            return 0;
        case effSetProgram:
            if (value < numPrograms) setProgram(static_cast<int32_t>(value));
            return 0;
        case effGetProgram:
            return getProgram();
        case effSetProgramName:
            setProgramName(static_cast<char*>(ptr));
            return 0;
        case effGetProgramName:
            getProgramName(static_cast<char*>(ptr));
            return 0;
        case effGetParamLabel:
            getParameterLabel(index, static_cast<char*>(ptr));
            return 0;
        case effGetParamDisplay:
            getParameterDisplay(index, static_cast<char*>(ptr));
            return 0;
        case effGetParamName:
            getParameterName(index, static_cast<char*>(ptr));
            return 0;
        case effGetVu:
            return static_cast<intptr_t>(getVu() * 32767.0f);
        case effSetSampleRate:
            setSampleRate(opt);
            return 0;
        case effSetBlockSize:
            setBlockSize(static_cast<int32_t>(value));
            return 0;
        case effMainsChanged:
            if (value == 0)
                suspend();
            else
                resume();
            return 0;
        case effEditGetRect:
            return editor && editor->getRect(static_cast<ERect**>(ptr)) ? 1 : 0;
        case effEditOpen:
            return editor && editor->open(ptr) ? 1 : 0;
        case effEditClose:
            if (editor) editor->close();
            return 0;
        case effEditIdle:
            if (editor) editor->idle();
            return 0;
        case effIdentify:
            return kIdentifyAnswer;
        case effGetChunk:
            return getChunk(static_cast<void**>(ptr), index != 0);
        case effSetChunk:
            return setChunk(ptr, static_cast<int32_t>(value), index != 0);
        default:
            // effEditDraw, effEditMouse, effEditKey, effEditTop, effEditSleep and anything unknown.
            return 0;
    }
}

void AudioEffect::setParameterAutomated(int32_t index, float value) {
    setParameter(index, value);
    if (audioMaster) audioMaster(&cEffect, audioMasterAutomate, index, 0, nullptr, value);
}

void AudioEffect::setEditor(AEffEditor* newEditor) {
    editor = newEditor;
    setFlag(effFlagsHasEditor, editor != nullptr);
}

int32_t AudioEffect::getMasterVersion() {
    if (!audioMaster) return 1;
    intptr_t version = audioMaster(&cEffect, audioMasterVersion, 0, 0, nullptr, 0.0f);
    return version ? static_cast<int32_t>(version) : 1;
}

int32_t AudioEffect::getCurrentUniqueId() {
    return audioMaster ? static_cast<int32_t>(audioMaster(&cEffect, audioMasterCurrentId, 0, 0, nullptr, 0.0f)) : 0;
}

void AudioEffect::masterIdle() {
    if (audioMaster) audioMaster(&cEffect, audioMasterIdle, 0, 0, nullptr, 0.0f);
}

void AudioEffect::dB2string(float value, char* text, int32_t maxLength) {
    if (value <= 0.0f) {
        // Silence has no level in decibels.
        const int32_t length = maxLength < 3 ? (maxLength < 0 ? 0 : maxLength) : 3;
        std::memcpy(text, "-oo", static_cast<size_t>(length));
        text[length] = 0;
        return;
    }
    boundedText(text, maxLength, "%.2f", 20.0 * std::log10(static_cast<double>(value)));
}

void AudioEffect::Hz2string(float samples, char* text, int32_t maxLength) {
    if (samples == 0.0f) {
        boundedText(text, maxLength, "%.0f", 0.0);
        return;
    }
    boundedText(text, maxLength, "%.0f", static_cast<double>(getSampleRate()) / samples);
}

void AudioEffect::ms2string(float samples, char* text, int32_t maxLength) {
    boundedText(text, maxLength, "%.3f", samples * 1000.0 / static_cast<double>(getSampleRate()));
}

void AudioEffect::float2string(float value, char* text, int32_t maxLength) {
    boundedText(text, maxLength, "%.3f", static_cast<double>(value));
}

void AudioEffect::int2string(int32_t value, char* text, int32_t maxLength) {
    boundedText(text, maxLength, "%.0f", static_cast<double>(value));
}
