#pragma once
// The effect a host holds: one Driver running the built-in system, its controls as the host's
// parameters, and the mono and stereo ways of passing host buffers through it.

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/Driver.h"
#include "plugin/AudioEffectX.h"
#include "plugin/gui/AEffGUIEditor.h"

// It is also the editor's EditorHost: the window reads values and reports moves through it.
class OrmVST2Effect : public AudioEffectX, public EditorHost {
public:
    static constexpr int32_t kUniqueId = 0x71377674;  // q7vt
    static constexpr int32_t kVendorVersion = 1100;
    static constexpr const char* kVendor = "Tarnvale";
    // The sampling rates an instance takes from a host; others are ignored.
    static constexpr float kLowestRate = 1000.0f;
    static constexpr float kHighestRate = 768000.0f;

    // Load time, on the host's thread: wires the system's elements and the controls' value functions.
    OrmVST2Effect(audioMasterCallback audioMaster, std::shared_ptr<vrn::Driver> driver);
    ~OrmVST2Effect() override;

    void open() override;
    // Spins until a running block has ended.
    void suspend() override;
    void resume() override;
    // While suspended; no lock.
    void setSampleRate(float rate) override;
    void setBlockSize(int32_t size) override;

    // Audio thread, no allocation, no lock.
    void processReplacing(float** inputs, float** outputs, int32_t sampleFrames) override;

    // Any thread: the value reaches the elements at the start of the next block.
    void setParameter(int32_t index, float value) override;
    float getParameter(int32_t index) override;
    void getParameterName(int32_t index, char* text) override;

    // From the editor, GUI thread: the adaptor's own forms, which tell the host.
    void setParameterAutomated(int32_t index, float value) override { AudioEffectX::setParameterAutomated(index, value); }
    bool beginEdit(int32_t index) override { return AudioEffectX::beginEdit(index); }
    bool endEdit(int32_t index) override { return AudioEffectX::endEdit(index); }
    AudioEffect* getAudioEffect() override { return this; }

    bool setSpeakerArrangement(VstSpeakerArrangement* input, VstSpeakerArrangement* output) override;
    bool getVendorString(char* text) override;
    int32_t getVendorVersion() override { return kVendorVersion; }

    const std::shared_ptr<vrn::Driver>& getDriver() const { return driver; }

private:
    // Load time: the named element of the named graph, of the type the amplifier expects there.
    template <typename T>
    T& element(const std::string& graph, const std::string& name);
    // Calculators behind the low-CPU wrappers and per-sample handlers on the high-CPU filters.
    void wireNetworks();
    // The gains behind the four knobs move to a new value over 20 ms instead of jumping.
    void glideContinuousControls();
    // The ten tube tables, each element with its own copy of its curve.
    void loadTubeCurves();
    // The cabinet response "u87", held in memory by both convolvers.
    void loadImpulseResponses();
    void attachValueFunctions();
    // Resume: brings a new instance, or one with a new rate, to its quiet operating point.
    void settle();

    std::atomic<uint8_t> stateChanged{1};
    std::atomic<uint8_t> monoArrangement{0};
    std::atomic<uint8_t> stereoOff{1};
    std::shared_ptr<vrn::Driver> driver;
    std::shared_ptr<vrn::ControlList> controls;
    std::shared_ptr<std::vector<vrn::scalar*>> inputs;
    // Whether the chain stands at its operating point for the current rate.
    bool settled = false;
    // The output level under which the settling chain counts as still: -140 dBFS.
    static constexpr float kStill = 1e-7f;
};

// The module's one piece of state shared among instances; nothing assigns the handle yet.
void releaseSharedHandle();

// Load time: builds the system from the built-in description and the effect around it.
AudioEffect* createEffectInstance(audioMasterCallback audioMaster);
