#pragma once
// The second generation of the host adaptor: the opcodes 25 to 79 with their defaults.  Opcodes
// below and above that range go to the first generation.

#include "plugin/AudioEffect.h"

class AudioEffectX : public AudioEffect {
public:
    AudioEffectX(audioMasterCallback audioMaster, int32_t numPrograms, int32_t numParams)
        : AudioEffect(audioMaster, numPrograms, numParams) {}
    ~AudioEffectX() override {}

    intptr_t dispatcher(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) override;

    virtual bool canParameterBeAutomated(int32_t) { return true; }
    virtual bool string2parameter(int32_t, char*) { return false; }
    virtual bool getParameterProperties(int32_t, VstParameterProperties*) { return false; }

    // Towards the host: a gesture on one parameter starts and ends.
    virtual bool beginEdit(int32_t index);
    virtual bool endEdit(int32_t index);

    virtual int32_t getNumCategories() { return 1; }
    virtual bool getProgramNameIndexed(int32_t, int32_t, char*) { return false; }
    virtual bool copyProgram(int32_t) { return false; }
    virtual bool beginSetProgram() { return false; }
    virtual bool endSetProgram() { return false; }
    virtual int32_t beginLoadBank(VstPatchChunkInfo*) { return 0; }
    virtual int32_t beginLoadProgram(VstPatchChunkInfo*) { return 0; }

    virtual void inputConnected(int32_t, bool) {}
    virtual void outputConnected(int32_t, bool) {}

    // Host notifications.
    virtual bool ioChanged();
    virtual bool updateDisplay();
    virtual bool sizeWindow(int32_t width, int32_t height);
    virtual double updateSampleRate();
    virtual int32_t updateBlockSize();

    virtual bool getInputProperties(int32_t, VstPinProperties*) { return false; }
    virtual bool getOutputProperties(int32_t, VstPinProperties*) { return false; }

    virtual bool setSpeakerArrangement(VstSpeakerArrangement*, VstSpeakerArrangement*) { return false; }
    // Hosts may pass null for either place.
    virtual bool getSpeakerArrangement(VstSpeakerArrangement** input, VstSpeakerArrangement** output) {
        if (input) *input = nullptr;
        if (output) *output = nullptr;
        return false;
    }
    virtual void setBlockSizeAndSampleRate(int32_t size, float rate) {
        blockSize = size;
        sampleRate = rate;
    }

    virtual bool setBypass(bool) { return false; }
    virtual bool setPanLaw(int32_t, float) { return false; }
    virtual bool setProcessPrecision(int32_t) { return false; }
    virtual int32_t getNumMidiInputChannels() { return 0; }
    virtual int32_t getNumMidiOutputChannels() { return 0; }

    virtual int32_t processEvents(VstEvents*) { return 0; }
    virtual int32_t reportCurrentPosition() { return 0; }
    virtual float* reportDestinationBuffer() { return nullptr; }
    virtual bool offlineNotify(VstAudioFile*, int32_t, bool) { return false; }
    virtual bool offlinePrepare(VstOfflineTask*, int32_t) { return false; }
    virtual bool offlineRun(VstOfflineTask*, int32_t) { return false; }
    virtual bool processVariableIo(VstVariableIo*) { return false; }
    virtual int32_t getGetTailSize() { return 0; }
    virtual int32_t fxIdle() { return 0; }
    virtual void* getIcon() { return nullptr; }
    virtual bool setViewPosition(int32_t, int32_t) { return false; }
    virtual bool keysRequired() { return false; }
    virtual int32_t startProcess() { return 0; }
    virtual int32_t stopProcess() { return 0; }
    virtual int32_t setTotalSampleToProcess(int32_t value) { return value; }
    virtual int32_t getNextShellPlugin(char*) { return 0; }

    virtual bool getEffectName(char*) { return false; }
    virtual bool getErrorText(char*) { return false; }
    virtual bool getVendorString(char*) { return false; }
    virtual bool getProductString(char*) { return false; }
    virtual int32_t getVendorVersion() { return 0; }
    virtual intptr_t vendorSpecific(int32_t, intptr_t, void*, float) { return 0; }
    virtual int32_t canDo(char*) { return 0; }
    virtual int32_t getVstVersion() { return 2400; }
    virtual int32_t getPlugCategory() {
        return (cEffect.flags & effFlagsIsSynth) ? kPlugCategSynth : kPlugCategUnknown;
    }

    virtual int32_t getMidiProgramName(int32_t, MidiProgramName*) { return 0; }
    virtual int32_t getCurrentMidiProgram(int32_t, MidiProgramName*) { return -1; }
    virtual int32_t getMidiProgramCategory(int32_t, MidiProgramCategory*) { return 0; }
    virtual bool hasMidiProgramsChanged(int32_t) { return false; }
    virtual bool getMidiKeyName(int32_t, MidiKeyName*) { return false; }
};
