#include "plugin/AudioEffectX.h"

intptr_t AudioEffectX::dispatcher(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) {
    switch (opcode) {
        case effProcessEvents:
            return processEvents(static_cast<VstEvents*>(ptr));
        case effCanBeAutomated:
            return canParameterBeAutomated(index) ? 1 : 0;
        case effString2Parameter:
            return string2parameter(index, static_cast<char*>(ptr)) ? 1 : 0;
        case effGetNumProgramCategories:
            return getNumCategories();
        case effGetProgramNameIndexed:
            return getProgramNameIndexed(static_cast<int32_t>(value), index, static_cast<char*>(ptr)) ? 1 : 0;
        case effCopyProgram:
            return copyProgram(index) ? 1 : 0;
        case effConnectInput:
            inputConnected(index, value != 0);
            return 1;
        case effConnectOutput:
            outputConnected(index, value != 0);
            return 1;
        case effGetInputProperties:
            return getInputProperties(index, static_cast<VstPinProperties*>(ptr)) ? 1 : 0;
        case effGetOutputProperties:
            return getOutputProperties(index, static_cast<VstPinProperties*>(ptr)) ? 1 : 0;
        case effGetPlugCategory:
            return getPlugCategory();
        case effGetCurrentPosition:
            return reportCurrentPosition();
        case effGetDestinationBuffer:
            return reinterpret_cast<intptr_t>(reportDestinationBuffer());
        case effOfflineNotify:
            return offlineNotify(static_cast<VstAudioFile*>(ptr), static_cast<int32_t>(value), index != 0) ? 1 : 0;
        case effOfflinePrepare:
            return offlinePrepare(static_cast<VstOfflineTask*>(ptr), static_cast<int32_t>(value)) ? 1 : 0;
        case effOfflineRun:
            return offlineRun(static_cast<VstOfflineTask*>(ptr), static_cast<int32_t>(value)) ? 1 : 0;
        case effProcessVarIo:
            return processVariableIo(static_cast<VstVariableIo*>(ptr)) ? 1 : 0;
        case effSetSpeakerArrangement:
            return setSpeakerArrangement(reinterpret_cast<VstSpeakerArrangement*>(value),
                                         static_cast<VstSpeakerArrangement*>(ptr))
                       ? 1
                       : 0;
        case effSetBlockSizeAndSampleRate:
            setBlockSizeAndSampleRate(static_cast<int32_t>(value), opt);
            return 1;
        case effSetBypass:
            return setBypass(value != 0) ? 1 : 0;
        case effGetEffectName:
            return getEffectName(static_cast<char*>(ptr)) ? 1 : 0;
        case effGetErrorText:
            return getErrorText(static_cast<char*>(ptr)) ? 1 : 0;
        case effGetVendorString:
            return getVendorString(static_cast<char*>(ptr)) ? 1 : 0;
        case effGetProductString:
            return getProductString(static_cast<char*>(ptr)) ? 1 : 0;
        case effGetVendorVersion:
            return getVendorVersion();
        case effVendorSpecific:
            return vendorSpecific(index, value, ptr, opt);
        case effCanDo:
            return canDo(static_cast<char*>(ptr));
        case effGetTailSize:
            return getGetTailSize();
        case effIdle:
            return fxIdle();
        case effGetIcon:
            return reinterpret_cast<intptr_t>(getIcon());
        case effSetViewPosition:
            return setViewPosition(index, static_cast<int32_t>(value)) ? 1 : 0;
        case effGetParameterProperties:
            return getParameterProperties(index, static_cast<VstParameterProperties*>(ptr)) ? 1 : 0;
        case effKeysRequired:
            return keysRequired() ? 1 : 0;
        case effGetVstVersion:
            return getVstVersion();
        case effEditKeyDown:
        case effEditKeyUp: {
            if (!editor) return 0;
            VstKeyCode key;
            key.character = index;
            key.virt = static_cast<uint8_t>(value);
            // The modifiers travel as a float: anything but 0..255 (NaN included) means none.
            key.modifier = opt >= 0.0f && opt <= 255.0f ? static_cast<uint8_t>(opt) : 0;
            return (opcode == effEditKeyDown ? editor->onKeyDown(key) : editor->onKeyUp(key)) ? 1 : 0;
        }
        case effSetEditKnobMode:
            return editor && editor->setKnobMode(static_cast<int>(value)) ? 1 : 0;
        case effGetMidiProgramName:
            return getMidiProgramName(index, static_cast<MidiProgramName*>(ptr));
        case effGetCurrentMidiProgram:
            return getCurrentMidiProgram(index, static_cast<MidiProgramName*>(ptr));
        case effGetMidiProgramCategory:
            return getMidiProgramCategory(index, static_cast<MidiProgramCategory*>(ptr));
        case effHasMidiProgramsChanged:
            return hasMidiProgramsChanged(index) ? 1 : 0;
        case effGetMidiKeyName:
            return getMidiKeyName(index, static_cast<MidiKeyName*>(ptr)) ? 1 : 0;
        case effBeginSetProgram:
            return beginSetProgram() ? 1 : 0;
        case effEndSetProgram:
            return endSetProgram() ? 1 : 0;
        case effGetSpeakerArrangement:
            return getSpeakerArrangement(reinterpret_cast<VstSpeakerArrangement**>(value),
                                         static_cast<VstSpeakerArrangement**>(ptr))
                       ? 1
                       : 0;
        case effShellGetNextPlugin:
            return getNextShellPlugin(static_cast<char*>(ptr));
        case effStartProcess:
            return startProcess();
        case effStopProcess:
            return stopProcess();
        case effSetTotalSampleToProcess:
            return setTotalSampleToProcess(static_cast<int32_t>(value));
        case effSetPanLaw:
            return setPanLaw(static_cast<int32_t>(value), opt) ? 1 : 0;
        case effBeginLoadBank:
            return beginLoadBank(static_cast<VstPatchChunkInfo*>(ptr));
        case effBeginLoadProgram:
            return beginLoadProgram(static_cast<VstPatchChunkInfo*>(ptr));
        case effSetProcessPrecision:
            return setProcessPrecision(static_cast<int32_t>(value)) ? 1 : 0;
        case effGetNumMidiInputChannels:
            return getNumMidiInputChannels();
        case effGetNumMidiOutputChannels:
            return getNumMidiOutputChannels();
        default:
            return AudioEffect::dispatcher(opcode, index, value, ptr, opt);
    }
}

bool AudioEffectX::beginEdit(int32_t index) {
    return audioMaster && audioMaster(&cEffect, audioMasterBeginEdit, index, 0, nullptr, 0.0f) != 0;
}

bool AudioEffectX::endEdit(int32_t index) {
    return audioMaster && audioMaster(&cEffect, audioMasterEndEdit, index, 0, nullptr, 0.0f) != 0;
}

bool AudioEffectX::ioChanged() {
    return audioMaster && audioMaster(&cEffect, audioMasterIOChanged, 0, 0, nullptr, 0.0f) != 0;
}

bool AudioEffectX::updateDisplay() {
    return audioMaster && audioMaster(&cEffect, audioMasterUpdateDisplay, 0, 0, nullptr, 0.0f) != 0;
}

bool AudioEffectX::sizeWindow(int32_t width, int32_t height) {
    return audioMaster && audioMaster(&cEffect, audioMasterSizeWindow, width, height, nullptr, 0.0f) != 0;
}

double AudioEffectX::updateSampleRate() {
    if (audioMaster) {
        intptr_t rate = audioMaster(&cEffect, audioMasterGetSampleRate, 0, 0, nullptr, 0.0f);
        if (rate > 0) sampleRate = static_cast<float>(rate);
    }
    return sampleRate;
}

int32_t AudioEffectX::updateBlockSize() {
    if (audioMaster) {
        intptr_t size = audioMaster(&cEffect, audioMasterGetBlockSize, 0, 0, nullptr, 0.0f);
        if (size > 0) blockSize = static_cast<int32_t>(size);
    }
    return blockSize;
}
