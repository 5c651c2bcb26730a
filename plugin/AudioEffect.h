#pragma once
// The first generation of the host adaptor: owns the effect record, routes the record's entry
// points to virtual calls, and answers the opcodes 0 to 24 with defaults an effect overrides.

#include <cstdint>

#include "plugin/AEffEditor.h"
#include "plugin/vst2/aeffect.h"

class AudioEffect {
public:
    AudioEffect(audioMasterCallback audioMaster, int32_t numPrograms, int32_t numParams);
    virtual ~AudioEffect();

    // Host's main thread unless said otherwise.
    virtual intptr_t dispatcher(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt);

    virtual void open() {}
    virtual void close() {}
    virtual void suspend() {}
    virtual void resume() {}

    virtual void setSampleRate(float rate) { sampleRate = rate; }
    virtual void setBlockSize(int32_t size) { blockSize = size; }

    // Host's audio thread.
    virtual void processReplacing(float** inputs, float** outputs, int32_t sampleFrames) = 0;
    virtual void processDoubleReplacing(double**, double**, int32_t) {}

    // Any thread.
    virtual void setParameter(int32_t, float) {}
    virtual float getParameter(int32_t) { return 0.0f; }
    virtual void setParameterAutomated(int32_t index, float value);

    virtual int32_t getProgram() { return curProgram; }
    virtual void setProgram(int32_t program) { curProgram = program; }
    virtual void setProgramName(char*) {}
    virtual void getProgramName(char* name) { *name = 0; }

    virtual void getParameterLabel(int32_t, char* label) { *label = 0; }
    virtual void getParameterDisplay(int32_t, char* text) { *text = 0; }
    virtual void getParameterName(int32_t, char* text) { *text = 0; }

    virtual int32_t getChunk(void**, bool = false) { return 0; }
    virtual int32_t setChunk(void*, int32_t, bool = false) { return 0; }

    virtual void setUniqueID(int32_t id) { cEffect.uniqueID = id; }
    virtual void setNumInputs(int32_t inputs) { cEffect.numInputs = inputs; }
    virtual void setNumOutputs(int32_t outputs) { cEffect.numOutputs = outputs; }

    virtual void canProcessReplacing(bool state = true) { setFlag(effFlagsCanReplacing, state); }
    virtual void canDoubleReplacing(bool state = true) { setFlag(effFlagsCanDoubleReplacing, state); }
    virtual void programsAreChunks(bool state = true) { setFlag(effFlagsProgramChunks, state); }
    virtual void setInitialDelay(int32_t delay) { cEffect.initialDelay = delay; }

    virtual AEffEditor* getEditor() { return editor; }
    virtual void setEditor(AEffEditor* newEditor);
    virtual AEffect* getAeffect() { return &cEffect; }
    virtual float getSampleRate() { return sampleRate; }
    virtual int32_t getBlockSize() { return blockSize; }

    // Questions to the host.
    virtual int32_t getMasterVersion();
    virtual int32_t getCurrentUniqueId();
    virtual void masterIdle();

    // Text forms of values, bounded to the parameter text length.
    virtual void dB2string(float value, char* text, int32_t maxLength);
    virtual void Hz2string(float samples, char* text, int32_t maxLength);
    virtual void ms2string(float samples, char* text, int32_t maxLength);
    virtual void float2string(float value, char* text, int32_t maxLength);
    virtual void int2string(int32_t value, char* text, int32_t maxLength);

    // The old interface.
    virtual void process(float**, float**, int32_t) {}
    virtual float getVu() { return 0.0f; }
    virtual void hasVu(bool state = true) { setFlag(effFlagsHasVu, state); }
    virtual void hasClip(bool state = true) { setFlag(effFlagsHasClip, state); }
    virtual void canMono(bool state = true) { setFlag(effFlagsCanMono, state); }
    virtual void setRealtimeQualities(int32_t qualities) { cEffect.realQualities = qualities; }
    virtual void setOfflineQualities(int32_t qualities) { cEffect.offQualities = qualities; }
    virtual bool isInputConnected(int32_t) { return true; }
    virtual bool isOutputConnected(int32_t) { return true; }

protected:
    void setFlag(int32_t flag, bool state) {
        if (state)
            cEffect.flags |= flag;
        else
            cEffect.flags &= ~flag;
    }

    audioMasterCallback audioMaster;
    AEffEditor* editor = nullptr;
    float sampleRate = 44100.0f;
    int32_t blockSize = 1024;
    int32_t numPrograms;
    int32_t numParams;
    int32_t curProgram = 0;
    AEffect cEffect;

private:
    static intptr_t dispatchEffectClass(AEffect* e, int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt);
    static void processClass(AEffect* e, float** inputs, float** outputs, int32_t sampleFrames);
    static void processClassReplacing(AEffect* e, float** inputs, float** outputs, int32_t sampleFrames);
    static void processClassDoubleReplacing(AEffect* e, double** inputs, double** outputs, int32_t sampleFrames);
    static void setParameterClass(AEffect* e, int32_t index, float value);
    static float getParameterClass(AEffect* e, int32_t index);
};
