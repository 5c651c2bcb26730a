#pragma once
// The cabinet stage: a Convolver together with where its responses come from (memory, a WAV
// file, a module resource), their preparation for the running rate, and the choice among them.

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "filters/Convolver.h"

namespace vrn {

// An impulse response held in memory under a name, at its own sampling rate.
struct ImpulseResponseRecord {
    std::string name;
    scalar samplingRate = 0.0f;
    std::shared_ptr<std::vector<scalar>> samples;
};

class WaveConvolver : public Filter {
public:
    enum Location { Memory = 0, File = 1, Dll = 2 };

    WaveConvolver();

    // "Selected" reloads (load time, allocates); every other name is ignored.
    void propertyChanged(const std::string& name, scalar value) override;
    void propertyChanged(const std::string& name, const std::shared_ptr<std::vector<scalar>>& values) override;
    void init(const std::string& name, std::shared_ptr<DSPContext>& context) override;
    void init(const std::string& name, const Properties& properties, std::shared_ptr<DSPContext>& context) override;

    // Audio thread, no allocation: the convolver's.
    void process(const std::vector<scalar*>& inputs, size_t framesPerBuffer) override;
    void process(const std::vector<scalar*>& inputs, std::vector<scalar*>& outputs, size_t framesPerBuffer) override;
    scalar process(scalar in) override;
    scalar* process(scalar* in, size_t framesPerBuffer) override;
    void process(const scalar* in, scalar* out, size_t framesPerBuffer) override;

    // Load time: a new rate reloads the selected response and resamples it if need be.
    void setSamplingRate(scalar rate) override;

    void process(const std::shared_ptr<std::vector<scalar>>& inputs, size_t frameIndex, int iteration) override;
    std::vector<scalar>& getLastIterationResults() override;
    void endIteration(int frameIndex) override;

    void setMaxBlockSize(int size) override;
    scalar* getOutput(int index) override;
    std::vector<scalar*>& getOutputs() override;
    std::shared_ptr<ElementMeta> getMeta() override;
    void reset() override;

    // Stores (or replaces) a response under its name; the next load finds it.  Loads nothing.
    void addImpulseResponse(const ImpulseResponseRecord& record);

    // A response at rate src as it sounds at rate dst: linear-phase rate conversion with no delay,
    // truncate(dst/src·n + 0.5) samples, scaled by src/dst so that the convolution keeps its level.
    static std::vector<scalar> resample(const std::vector<scalar>& samples, double src, double dst);

    Convolver& getConvolver() { return *convolver; }
    int32_t getSelected() const { return selected; }

private:
    void load();
    const std::string& selectedName() const;

    std::string dllResourceType;
    std::unique_ptr<Convolver> convolver;
    bool scale = false;
    Location location = Memory;
    int32_t selected = 0;
    scalar samplingRate = 0.0f;
    scalar gain = 1.0f;
    // "MaxIRRate": the rate at which MaxIRSize counts samples, so that the limit is a length in
    // time; 0 (absent) counts at whatever rate runs.
    scalar maxIRRate = 0.0f;
    uint64_t maxIRSize = 0;
    std::unordered_map<std::string, scalar> responseRates;
    std::unordered_map<std::string, std::shared_ptr<std::vector<scalar>>> responses;
    std::shared_ptr<std::vector<std::string>> impulseResponses;
};

}  // namespace vrn
