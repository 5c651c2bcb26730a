#pragma once
// The VST2 binary interface as a host sees it: the effect record, the dispatcher and host-callback
// opcodes, the flags and the small records passed through the dispatcher.  Written from the
// published layout for x86-64; the static_asserts below pin the offsets hosts rely on.

#include <cstddef>
#include <cstdint>

struct AEffect;

typedef intptr_t (*audioMasterCallback)(AEffect* effect, int32_t opcode, int32_t index, intptr_t value, void* ptr,
                                        float opt);
typedef intptr_t (*AEffectDispatcherProc)(AEffect* effect, int32_t opcode, int32_t index, intptr_t value, void* ptr,
                                          float opt);
typedef void (*AEffectProcessProc)(AEffect* effect, float** inputs, float** outputs, int32_t sampleFrames);
typedef void (*AEffectProcessDoubleProc)(AEffect* effect, double** inputs, double** outputs, int32_t sampleFrames);
typedef void (*AEffectSetParameterProc)(AEffect* effect, int32_t index, float parameter);
typedef float (*AEffectGetParameterProc)(AEffect* effect, int32_t index);

// Four characters packed big-endian, as the interface writes its tags.
constexpr int32_t vstFourCC(char a, char b, char c, char d) {
    return static_cast<int32_t>((static_cast<uint32_t>(static_cast<unsigned char>(a)) << 24) |
                                (static_cast<uint32_t>(static_cast<unsigned char>(b)) << 16) |
                                (static_cast<uint32_t>(static_cast<unsigned char>(c)) << 8) |
                                static_cast<uint32_t>(static_cast<unsigned char>(d)));
}

constexpr int32_t kEffectMagic = vstFourCC('V', 's', 't', 'P');

struct AEffect {
    int32_t magic;
    AEffectDispatcherProc dispatcher;
    AEffectProcessProc process;  // the old accumulating form
    AEffectSetParameterProc setParameter;
    AEffectGetParameterProc getParameter;
    int32_t numPrograms;
    int32_t numParams;
    int32_t numInputs;
    int32_t numOutputs;
    int32_t flags;
    intptr_t resvd1;
    intptr_t resvd2;
    int32_t initialDelay;
    int32_t realQualities;
    int32_t offQualities;
    float ioRatio;
    void* object;  // the plug-in's own instance
    void* user;    // the host's
    int32_t uniqueID;
    int32_t version;
    AEffectProcessProc processReplacing;
    AEffectProcessDoubleProc processDoubleReplacing;
    char future[56];
};

static_assert(sizeof(void*) == 8, "the record is laid out for 64-bit hosts");
static_assert(offsetof(AEffect, dispatcher) == 8, "AEffect layout");
static_assert(offsetof(AEffect, numPrograms) == 40, "AEffect layout");
static_assert(offsetof(AEffect, flags) == 56, "AEffect layout");
static_assert(offsetof(AEffect, resvd1) == 64, "AEffect layout");
static_assert(offsetof(AEffect, initialDelay) == 80, "AEffect layout");
static_assert(offsetof(AEffect, ioRatio) == 92, "AEffect layout");
static_assert(offsetof(AEffect, object) == 96, "AEffect layout");
static_assert(offsetof(AEffect, uniqueID) == 112, "AEffect layout");
static_assert(offsetof(AEffect, processReplacing) == 120, "AEffect layout");
static_assert(offsetof(AEffect, processDoubleReplacing) == 128, "AEffect layout");
static_assert(sizeof(AEffect) == 192, "AEffect layout");

enum VstAEffectFlags : int32_t {
    effFlagsHasEditor = 1 << 0,
    effFlagsHasClip = 1 << 1,
    effFlagsHasVu = 1 << 2,
    effFlagsCanMono = 1 << 3,
    effFlagsCanReplacing = 1 << 4,
    effFlagsProgramChunks = 1 << 5,
    effFlagsIsSynth = 1 << 8,
    effFlagsNoSoundInStop = 1 << 9,
    effFlagsExtIsAsync = 1 << 10,
    effFlagsExtHasBuffer = 1 << 11,
    effFlagsCanDoubleReplacing = 1 << 12,
};

enum AEffectOpcodes : int32_t {
    effOpen = 0,
    effClose,
    effSetProgram,
    effGetProgram,
    effSetProgramName,
    effGetProgramName,
    effGetParamLabel,
    effGetParamDisplay,
    effGetParamName,
    effGetVu,
    effSetSampleRate,
    effSetBlockSize,
    effMainsChanged,
    effEditGetRect,
    effEditOpen,
    effEditClose,
    effEditDraw,
    effEditMouse,
    effEditKey,
    effEditIdle,
    effEditTop,
    effEditSleep,
    effIdentify,
    effGetChunk,
    effSetChunk,
    effNumOpcodes  // 25: the first opcode of the second interface generation
};

enum AEffectXOpcodes : int32_t {
    effProcessEvents = effNumOpcodes,
    effCanBeAutomated,
    effString2Parameter,
    effGetNumProgramCategories,
    effGetProgramNameIndexed,
    effCopyProgram,
    effConnectInput,
    effConnectOutput,
    effGetInputProperties,
    effGetOutputProperties,
    effGetPlugCategory,
    effGetCurrentPosition,
    effGetDestinationBuffer,
    effOfflineNotify,
    effOfflinePrepare,
    effOfflineRun,
    effProcessVarIo,
    effSetSpeakerArrangement,
    effSetBlockSizeAndSampleRate,
    effSetBypass,
    effGetEffectName,
    effGetErrorText,
    effGetVendorString,
    effGetProductString,
    effGetVendorVersion,
    effVendorSpecific,
    effCanDo,
    effGetTailSize,
    effIdle,
    effGetIcon,
    effSetViewPosition,
    effGetParameterProperties,
    effKeysRequired,
    effGetVstVersion,
    effEditKeyDown,
    effEditKeyUp,
    effSetEditKnobMode,
    effGetMidiProgramName,
    effGetCurrentMidiProgram,
    effGetMidiProgramCategory,
    effHasMidiProgramsChanged,
    effGetMidiKeyName,
    effBeginSetProgram,
    effEndSetProgram,
    effGetSpeakerArrangement,
    effShellGetNextPlugin,
    effStartProcess,
    effStopProcess,
    effSetTotalSampleToProcess,
    effSetPanLaw,
    effBeginLoadBank,
    effBeginLoadProgram,
    effSetProcessPrecision,
    effGetNumMidiInputChannels,
    effGetNumMidiOutputChannels,
};
static_assert(effGetVendorString == 47 && effGetVstVersion == 58 && effGetSpeakerArrangement == 69 &&
                  effGetNumMidiOutputChannels == 79,
              "opcode numbering");

enum AudioMasterOpcodes : int32_t {
    audioMasterAutomate = 0,
    audioMasterVersion = 1,
    audioMasterCurrentId = 2,
    audioMasterIdle = 3,
    audioMasterWantMidi = 6,
    audioMasterGetTime = 7,
    audioMasterIOChanged = 13,
    audioMasterSizeWindow = 15,
    audioMasterGetSampleRate = 16,
    audioMasterGetBlockSize = 17,
    audioMasterGetCurrentProcessLevel = 23,
    audioMasterGetVendorString = 32,
    audioMasterGetProductString = 33,
    audioMasterGetVendorVersion = 34,
    audioMasterCanDo = 37,
    audioMasterUpdateDisplay = 42,
    audioMasterBeginEdit = 43,
    audioMasterEndEdit = 44,
};

enum VstStringLengths {
    kVstMaxProgNameLen = 24,
    kVstMaxParamStrLen = 8,
    kVstMaxVendorStrLen = 64,
    kVstMaxProductStrLen = 64,
    kVstMaxEffectNameLen = 32,
};

enum VstPlugCategory { kPlugCategUnknown = 0, kPlugCategEffect = 1, kPlugCategSynth = 2 };

struct ERect {
    int16_t top;
    int16_t left;
    int16_t bottom;
    int16_t right;
};

struct VstKeyCode {
    int32_t character;
    uint8_t virt;
    uint8_t modifier;
};

struct VstSpeakerProperties {
    float azimuth;
    float elevation;
    float radius;
    float reserved;
    char name[64];
    int32_t type;
    char future[28];
};
static_assert(sizeof(VstSpeakerProperties) == 112, "VstSpeakerProperties layout");

struct VstSpeakerArrangement {
    int32_t type;
    int32_t numChannels;
    VstSpeakerProperties speakers[8];
};

// Records this plug-in receives only as opaque pointers.
struct VstEvents;
struct VstVariableIo;
struct VstOfflineTask;
struct VstAudioFile;
struct VstPinProperties;
struct VstParameterProperties;
struct VstPatchChunkInfo;
struct MidiProgramName;
struct MidiProgramCategory;
struct MidiKeyName;
