#pragma once
// orm-render as a VST2 host: loads a module, finds its entry, and drives the effect only through
// the record and the dispatcher, in the order hosts use (open, rate, block size, resume, blocks,
// suspend, close).

#include <string>
#include <vector>

#include "plugin/vst2/aeffect.h"
#include "tools/orm-render/Renderer.h"

namespace orm_render {

class VstHost : public Renderer {
public:
    // Throws std::runtime_error when the module cannot be loaded or declines to make an effect.
    explicit VstHost(const std::string& modulePath);
    ~VstHost() override;
    VstHost(const VstHost&) = delete;
    VstHost& operator=(const VstHost&) = delete;

    // The orm module built beside this program.
    static std::string defaultModulePath();

    size_t numberOfInputs() const override { return static_cast<size_t>(effect->numInputs); }
    size_t numberOfOutputs() const override { return static_cast<size_t>(effect->numOutputs); }
    // By the name the host sees (at most eight characters; a longer NAME matches on its first
    // eight) or by the parameter's index.
    void set(const std::string& name, double value) override;
    void start(double rate, int maxBlock) override;
    const std::vector<float*>& process(std::vector<float*>& inputs, size_t frames) override;
    void stop() override;

    const std::vector<std::string>& parameterNames() const { return names; }

    // For a host that plays in real time (orm-jack): the effect's record, for its editor and the
    // audio thread, and the suspend that comes before new settings (start() again resumes).
    AEffect* record() const { return effect; }
    void suspend() { dispatch(effMainsChanged, 0, 0); }

private:
    intptr_t dispatch(int32_t opcode, int32_t index = 0, intptr_t value = 0, void* ptr = nullptr, float opt = 0.0f);
    void close();

    void* module = nullptr;
    AEffect* effect = nullptr;
    std::vector<std::string> names;
    std::vector<std::vector<float>> outputBuffers;
    std::vector<float*> outputs;
    std::vector<float*> inputPointers;
    std::vector<float> silence;
    size_t maxBlock = 0;
};

}  // namespace orm_render
