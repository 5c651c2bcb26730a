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
    // effVendorSpecific with index kUniqueId and one of these values answers with a count, so
    // that a host or a test can see what the instance went through.
    static constexpr intptr_t kFailedBlocksQuery = vstFourCC('f', 'a', 'i', 'l');
    static constexpr intptr_t kRecoveriesQuery = vstFourCC('r', 'c', 'v', 'r');
    // The largest piece the engine is sized for: a larger announced block size runs in pieces
    // of this, so that memory stays bounded whatever a host announces.
    static constexpr int32_t kLargestPiece = 8192;

    // Load time, on the host's thread: wires the system's elements and the controls' value functions.
    OrmVST2Effect(audioMasterCallback audioMaster, std::shared_ptr<vrn::Driver> driver);
    ~OrmVST2Effect() override;

    void open() override;
    // Spins until a running block has ended.
    void suspend() override;
    void resume() override;
    // While suspended; no lock.  A rate that is not a positive number, or a size below 1, is
    // ignored.  The block size sizes the input scratch (allocates).
    void setSampleRate(float rate) override;
    void setBlockSize(int32_t size) override;

    // Audio thread, no allocation, no lock.  Blocks longer than the announced size run in pieces
    // of it; a missing or non-finite input sample is silence; a block that fails outputs silence
    // and counts as failed; output that is not finite means the state has gone bad: the block is
    // silence, every filter's state is cleared, and the next block plays again.
    void processReplacing(float** inputs, float** outputs, int32_t sampleFrames) override;

    // Any thread: the value reaches the elements at the start of the next block.  Values beyond
    // 0..1 count as the nearer end; NaN changes nothing.
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
    intptr_t vendorSpecific(int32_t index, intptr_t value, void* ptr, float opt) override;

    // Any thread.
    uint32_t getFailedBlocks() const { return failedBlocks.load(std::memory_order_relaxed); }
    uint32_t getRecoveries() const { return recoveries.load(std::memory_order_relaxed); }

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
    // Audio thread: one piece of at most the announced block size.
    void processPiece(float* in0, float* in1, float* out0, float* out1, size_t frames, bool oneChain);
    // The host's samples if all are finite, else a copy in scratch with silence in their place.
    vrn::scalar* usableInput(float* samples, size_t channel, size_t frames);

    std::atomic<uint8_t> stateChanged{1};
    std::atomic<uint8_t> stereoOff{1};
    // The channels the host passes on each side, 1 or 2, as its last arrangement declared.
    std::atomic<uint8_t> inputChannels{2};
    std::atomic<uint8_t> outputChannels{2};
    std::shared_ptr<vrn::Driver> driver;
    std::shared_ptr<vrn::ControlList> controls;
    std::shared_ptr<std::vector<vrn::scalar*>> inputs;
    // Whether the chain stands at its operating point for the current rate.
    bool settled = false;
    // The output level under which the settling chain counts as still: -140 dBFS.
    static constexpr float kStill = 1e-7f;
    // Audio thread: whether every running filter's latest output is finite.  A recursive state
    // gone to NaN shows there on every block, also where a tube table downstream turns it
    // into a finite constant.
    bool statesFinite() const;
    // Audio thread: every filter back at rest.
    void clearStates();

    // Every filter of the system with the graph it runs in.
    std::vector<std::pair<vrn::Graph*, vrn::Filter*>> filters;
    // Two channels of the announced block size, for inputs that are missing or not finite.
    std::vector<vrn::scalar> scratch;
    size_t scratchFrames = 0;
    std::atomic<uint32_t> failedBlocks{0};
    std::atomic<uint32_t> recoveries{0};
};

// The module's one piece of state shared among instances; nothing assigns the handle yet.
void releaseSharedHandle();

// Load time: builds the system from the built-in description and the effect around it.
AudioEffect* createEffectInstance(audioMasterCallback audioMaster);
