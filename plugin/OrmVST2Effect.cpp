#include "plugin/OrmVST2Effect.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <string>

#include "amp/AmpData.h"
#include "amp/CouplingNetworks.h"
#include "amp/FilterWrapper.h"
#include "amp/NetworkHandlers.h"
#include "engine/Context.h"
#include "engine/DSPGraph.h"
#include "engine/Graph.h"
#include "filters/BiQuad.h"
#include "filters/FirstOrderIIR.h"
#include "filters/Gain.h"
#include "filters/LookupTableFilter.h"
#include "filters/WaveConvolver.h"
#include "plugin/DenormalGuard.h"
#include "plugin/OrmEditor.h"

using vrn::scalar;

OrmVST2Effect::OrmVST2Effect(audioMasterCallback master, std::shared_ptr<vrn::Driver> systemDriver)
    : AudioEffectX(master, 1, static_cast<int32_t>(systemDriver->getControls()->size())) {
    canProcessReplacing(true);
    programsAreChunks(false);
    setFlag(effFlagsHasEditor, true);

    driver = systemDriver;
    controls.reset();
    inputs = std::make_shared<std::vector<scalar*>>(2, nullptr);
    controls = driver->getControls();

    wireNetworks();
    glideContinuousControls();
    loadTubeCurves();
    loadImpulseResponses();

    setUniqueID(kUniqueId);
    setNumInputs(2);
    setNumOutputs(2);
    canDoubleReplacing(false);

    attachValueFunctions();

    for (auto& graph : *driver->getGraphs()) {
        auto* dspGraph = dynamic_cast<vrn::DSPGraph*>(graph.get());
        if (dspGraph && dspGraph->getDSPContext())
            for (vrn::Filter* filter : dspGraph->getDSPContext()->getElements()) filters.emplace_back(dspGraph, filter);
    }

    setEditor(new OrmEditor(this, controls));
}

OrmVST2Effect::~OrmVST2Effect() {
    releaseSharedHandle();
    inputs.reset();
    controls.reset();
    driver.reset();
}

template <typename T>
T& OrmVST2Effect::element(const std::string& graph, const std::string& name) {
    vrn::Element* found = driver->getGraph(graph)->getContext()->getElement(name);
    T* typed = dynamic_cast<T*>(found);
    if (!typed) throw vrn::VRNException("OrmVST2Effect: " + graph + "/" + name + " has an unexpected type");
    return *typed;
}

namespace {
// How long a knob's new value takes to arrive (see glideContinuousControls).
constexpr double kGlideSeconds = 0.02;

std::shared_ptr<VolumeControl> glidingVolumeControl() {
    auto network = std::make_shared<VolumeControl>();
    network->setGlideTime(kGlideSeconds);
    return network;
}

std::shared_ptr<VolCtrlPropertiesHandler> glidingVolCtrlHandler(vrn::Filter* filter) {
    auto handler = std::make_shared<VolCtrlPropertiesHandler>(filter, *ampdata::gridTableYg());
    handler->setGlideTime(kGlideSeconds);
    return handler;
}
}  // namespace

void OrmVST2Effect::wireNetworks() {
    // Volume networks first, then the interstage networks; one object per element, none shared.
    // The volume networks' wiper and feedback gain glide (see glideContinuousControls).
    element<FilterWrapper>("V2-out-Rg-lowCPU", "VC").setCalculator(glidingVolumeControl());
    {
        vrn::BiQuad& filter = element<vrn::BiQuad>("V2-out-Rg", "VC");
        filter.setPropertiesHandler(glidingVolCtrlHandler(&filter));
    }
    element<FilterWrapper>("V2-out-Rg-lowCPU_S", "VC").setCalculator(glidingVolumeControl());
    {
        vrn::BiQuad& filter = element<vrn::BiQuad>("V2-out-Rg_S", "VC");
        filter.setPropertiesHandler(glidingVolCtrlHandler(&filter));
    }
    {
        vrn::FirstOrderIIR& filter = element<vrn::FirstOrderIIR>("V2-out-Rg", "V2V3");
        filter.setPropertiesHandler(std::make_shared<V2V3PropertiesHandler>(&filter));
    }
    element<FilterWrapper>("V2-out-Rg-lowCPU", "V2V3").setCalculator(std::make_shared<V2V3Coupling>());
    {
        vrn::FirstOrderIIR& filter = element<vrn::FirstOrderIIR>("V2-out-Rg_S", "V2V3");
        filter.setPropertiesHandler(std::make_shared<V2V3PropertiesHandler>(&filter));
    }
    element<FilterWrapper>("V2-out-Rg-lowCPU_S", "V2V3").setCalculator(std::make_shared<V2V3Coupling>());
}

void OrmVST2Effect::glideContinuousControls() {
    // The host and the editor deliver a control at a block boundary, and a gain or a network
    // coefficient that jumped there would put a step into the wave: a click for a knob turned by
    // hand, zipper noise under automation.  So the elements behind the four knobs (Input, Volume,
    // Feedback, Output) move to a new value over 20 ms instead, the gains sample by sample and the
    // volume networks in stretches of a few dozen samples.  The switches stay immediate: their
    // positions have no in-between.
    for (const char* graph : {"G1", "G1_S"}) element<vrn::Gain>(graph, "InputGain").setGlideTime(kGlideSeconds);
    for (const char* graph : {"V2-out-Rg-lowCPU", "V2-out-Rg-lowCPU_S"})
        element<vrn::Gain>(graph, "GlobalFB").setGlideTime(kGlideSeconds);
    for (const char* graph : {"out DC block", "out DC block_S"})
        element<vrn::Gain>(graph, "Gain").setGlideTime(kGlideSeconds);
}

void OrmVST2Effect::loadTubeCurves() {
    struct Load {
        const char* graph;
        const char* name;
        const char* vinMin;
        const char* vinMax;
        const char* deltaV;
        char curve;
    };
    // The range given here replaces the description's: it is the curve's own grid.  The _S
    // partner gets the same curve, as its own copy.
    const Load loads[] = {
        {"V1", "V1", "-8", "8", "0.01", 'A'},
        {"V1_S", "V1", "-8", "8", "0.01", 'A'},
        {"V2-out-Rg-lowCPU", "V2", "-8", "100", "0.02", 'B'},
        {"V2-out-Rg-lowCPU_S", "V2", "-8", "100", "0.02", 'B'},
        {"V2-out-Rg", "V2", "-8", "80", "0.02", 'C'},
        {"V2-out-Rg_S", "V2", "-8", "80", "0.02", 'C'},
        {"V2-out-Rg-lowCPU", "V3", "-40", "100", "0.01", 'D'},
        {"V2-out-Rg-lowCPU_S", "V3", "-40", "100", "0.01", 'D'},
        {"V2-out-Rg", "V3", "-40", "100", "0.01", 'E'},
        {"V2-out-Rg_S", "V3", "-40", "100", "0.01", 'E'},
    };
    for (const Load& load : loads) {
        vrn::Element& stage = element<vrn::LookupTableFilter>(load.graph, load.name);
        vrn::Properties range;
        range["VinMin"] = load.vinMin;
        range["VinMax"] = load.vinMax;
        range["DeltaV"] = load.deltaV;
        stage.propertiesChanged(range);
        stage.propertyChanged("Vout", ampdata::tubeCurve(load.curve));
    }
}

void OrmVST2Effect::loadImpulseResponses() {
    for (const char* graph : {"WaveConvolver", "WaveConvolver_S"}) {
        const AmpImpulseResponse response = ampdata::u87();
        vrn::ImpulseResponseRecord record;
        record.name = response.name;
        record.samplingRate = response.samplingRate;
        record.samples = response.samples;
        element<vrn::WaveConvolver>(graph, "WV").addImpulseResponse(record);
    }
}

void OrmVST2Effect::attachValueFunctions() {
    typedef std::function<float(float)> Mapping;
    struct Row {
        const char* name;
        std::vector<size_t> positions;
        Mapping mapping;
    };
    // Switches snap to their positions, whatever value an automation lane or a generic slider
    // sends between them: a two-way switch is on from the middle up, and the oversampling switch
    // takes the factor of its nearest position (2, 4, 8 at 0, 0.5, 1).  Resamplers and the graphs'
    // rates thus always see the same whole factor.
    const Mapping on = [](float x) { return x >= 0.5f ? 1.0f : 0.0f; };
    const Mapping off = [](float x) { return x >= 0.5f ? 0.0f : 1.0f; };
    const Row rows[] = {
        {"Vol", {0, 1}, [](float x) { return x * 0.002f; }},
        // A pot taper with a knee: the lower half covers 0 to 0.1, the upper half 0.1 to 1.
        {"Gain", {0, 1, 2, 3}, [](float x) { return x >= 0.5f ? (x - 0.5f) * 1.8f + 0.1f : x * 0.2f; }},
        {"Oversampling", {0, 1, 2, 3}, [](float x) { return x < 0.25f ? 2.0f : (x < 0.75f ? 4.0f : 8.0f); }},
        {"Feedback", {0, 1, 2, 3}, [](float x) { return 1.0f - x * 0.39f; }},
        {"Cabinet", {0, 1}, off},
        // Position and the low-CPU graphs' Off follow the switch; the high-CPU graphs' Off is its
        // complement.
        {"CPU", {0, 1, 3, 4}, on},
        {"CPU", {2, 5}, off},
        {"Input", {0, 1}, [](float x) { return x > 0.5f ? x * 6.0f - 2.0f : x * 2.0f; }},
        {"Stereo", {0, 1, 2, 3, 4, 5, 6}, off},
    };
    for (auto& control : *controls) {
        for (const Row& row : rows) {
            if (control->getName() != row.name) continue;
            const vrn::PropertyList& properties = *control->getProperties();
            for (size_t position : row.positions)
                if (position < properties.size()) control->setPropertyFunction(properties[position], row.mapping);
        }
        if (control->getName() == "Stereo") stereoOff.exchange(control->getValue() < 0.5f ? 1 : 0);
    }
}

void OrmVST2Effect::open() { stateChanged.exchange(1); }

void OrmVST2Effect::suspend() { driver->setSuspended(true); }

void OrmVST2Effect::resume() {
    driver->setSuspended(false);
    if (!settled) settle();
    stateChanged.exchange(1);
}

void OrmVST2Effect::setSampleRate(float rate) {
    // A rate no host plays at (not a number, zero, negative, beyond 768 kHz) is ignored: the
    // networks, the resamplers and the cabinet's response cannot be designed for it, and the
    // instance keeps the rate it had.
    if (!(rate >= kLowestRate && rate <= kHighestRate)) return;
    // The adaptor's own rate stays at its default: only the Driver needs to know.
    if (rate != driver->getSamplingRate()) settled = false;
    driver->setSamplingRate(rate);
    stateChanged.exchange(1);
}

void OrmVST2Effect::settle() {
    // From a zero state the tube stages drift to their operating points over the first few
    // hundred milliseconds, and the output block lets the move through as a thump.  A new
    // instance, or one with a new rate, therefore runs the chain on silence here, before the
    // host's first block, until it has been still for a while: from then on silence in gives
    // silence out.  The slowest part is the output's DC block, about half a second of audio.
    // The controls' first values reach the elements on the first of these blocks.
    const int block = driver->getMaxBlockSize();
    if (block <= 0) return;  // no block size yet: the first resume after one settles
    const size_t frames = static_cast<size_t>(block);
    const double rate = driver->getSamplingRate();
    const size_t stillFor = static_cast<size_t>(rate * 0.05);
    const size_t atMost = static_cast<size_t>(rate * 4.0);
    std::vector<scalar> silence(frames, 0.0f);
    std::vector<scalar*> channels{silence.data(), silence.data()};
    // Still means: the outputs, and the DC blocks in front of the output gain (which may be 0),
    // under -140 dBFS of full output.
    vrn::Filter* dcBlocks[] = {&element<vrn::Filter>("out DC block", "DC block"),
                               &element<vrn::Filter>("out DC block_S", "DC block")};
    const float outputStill = kStill, dcStill = kStill / 0.002f;
    size_t still = 0;
    try {
        // An empty block delivers the controls.  Then every chain and both branches settle, so
        // that Stereo or CPU switched on later starts quiet as well: the graphs that the switches
        // turn off or bypass run meanwhile, all from the same start, so that equal chains stay
        // equal to the bit.  The cabinets are linear and fed silence once the rest is settled:
        // they stand aside, which saves a third of the work.
        driver->process(channels, 0);
        for (auto& control : *controls)
            for (auto& property : *control->getProperties())
                if (!property->element && property->graph) property->graph->setProperty(property->name, 0.0f);
        for (const char* cabinet : {"WaveConvolver", "WaveConvolver_S"}) driver->getGraph(cabinet)->setProperty("Bypass", 1.0f);
        for (size_t done = 0; done < atMost && still < stillFor; done += frames) {
            driver->process(channels, frames);
            float loudest = 0.0f;
            for (scalar* output : driver->getOutputs())
                for (size_t i = 0; output && i < frames; ++i) loudest = std::max(loudest, std::fabs(output[i]));
            float dcLoudest = 0.0f;
            for (vrn::Filter* dc : dcBlocks) {
                const scalar* x = dc->getOutputs()[0];
                for (size_t i = 0; x && i < frames; ++i) dcLoudest = std::max(dcLoudest, std::fabs(x[i]));
            }
            still = loudest < outputStill && dcLoudest < dcStill ? still + frames : 0;
        }
    } catch (...) {
        // The first real block meets the same failure and deals with it.
        return;
    }
    // The switches' graphs go back to where the controls have them, delivered by one more empty
    // block, so that the host's first block finds nothing to redo.
    for (auto& control : *controls)
        for (auto& property : *control->getProperties())
            if (!property->element && property->graph) {
                control->setValue(control->getValue());
                break;
            }
    try {
        driver->process(channels, 0);
    } catch (...) {
        return;
    }
    settled = true;
}

void OrmVST2Effect::setBlockSize(int32_t size) {
    if (size <= 0) return;
    const int32_t piece = std::min(size, kLargestPiece);
    scratch.assign(2 * static_cast<size_t>(piece), 0.0f);
    scratchFrames = static_cast<size_t>(piece);
    driver->setMaxBlockSize(piece);
}

namespace {

bool allFinite(const float* samples, size_t frames) {
    // On the bits, so that the loop vectorises: an exponent of all ones is infinity or NaN.
    uint32_t bad = 0;
    for (size_t i = 0; i < frames; ++i) {
        uint32_t bits;
        std::memcpy(&bits, samples + i, sizeof(bits));
        bad |= static_cast<uint32_t>((bits & 0x7f800000u) == 0x7f800000u);
    }
    return bad == 0;
}

void silence(float* out0, float* out1, size_t frames) {
    if (out0) std::memset(out0, 0, frames * sizeof(float));
    if (out1) std::memset(out1, 0, frames * sizeof(float));
}

float* offset(float* samples, size_t frames) { return samples ? samples + frames : nullptr; }

}  // namespace

scalar* OrmVST2Effect::usableInput(float* samples, size_t channel, size_t frames) {
    // Without a block size the Driver refuses the block before it reads anything.
    if (frames > scratchFrames) return samples;
    if (samples && allFinite(samples, frames)) return samples;
    scalar* copy = scratch.data() + channel * scratchFrames;
    for (size_t i = 0; i < frames; ++i) copy[i] = samples && std::isfinite(samples[i]) ? samples[i] : 0.0f;
    return copy;
}

void OrmVST2Effect::processReplacing(float** hostInputs, float** hostOutputs, int32_t sampleFrames) {
    DenormalGuard mode;
    // A host that declared one channel on a side passes an array of one pointer there.
    const bool stereoIn = inputChannels.load(std::memory_order_relaxed) == 2;
    const bool stereoOut = outputChannels.load(std::memory_order_relaxed) == 2;
    const bool oneChain = !stereoIn || !stereoOut || stereoOff.load(std::memory_order_relaxed) != 0;
    float* in0 = hostInputs ? hostInputs[0] : nullptr;
    float* in1 = hostInputs && stereoIn ? hostInputs[1] : nullptr;
    float* out0 = hostOutputs ? hostOutputs[0] : nullptr;
    float* out1 = hostOutputs && stereoOut ? hostOutputs[1] : nullptr;
    if (out1 == out0) out1 = nullptr;
    if (in1 == in0) in1 = nullptr;

    const size_t frames = sampleFrames > 0 ? static_cast<size_t>(sampleFrames) : 0;
    const size_t piece = scratchFrames > 0 ? scratchFrames : std::max<size_t>(frames, 1);
    size_t done = 0;
    do {
        const size_t n = std::min(frames - done, piece);
        processPiece(offset(in0, done), offset(in1, done), offset(out0, done), offset(out1, done), n, oneChain);
        done += n;
    } while (done < frames);
}

void OrmVST2Effect::processPiece(float* in0, float* in1, float* out0, float* out1, size_t frames, bool oneChain) {
    std::vector<scalar*>& channels = *inputs;
    channels[0] = usableInput(in0, 0, frames);
    channels[1] = in1 && !oneChain ? usableInput(in1, 1, frames) : channels[0];
    bool ran = false;
    try {
        ran = driver->process(channels, frames);
    } catch (...) {
        // The host has no use for an exception: this block is silence, and the count tells.
        failedBlocks.fetch_add(1, std::memory_order_relaxed);
    }
    if (frames == 0) return;
    if (!ran) {
        silence(out0, out1, frames);
        return;
    }

    std::vector<scalar*>& results = driver->getOutputs();
    if (!allFinite(results[0], frames) || (!oneChain && !allFinite(results[1], frames)) || !statesFinite()) {
        // A state has run away (a huge input, a filter pushed past its range): start again from
        // rest rather than play nothing for good.
        clearStates();
        recoveries.fetch_add(1, std::memory_order_relaxed);
        silence(out0, out1, frames);
        return;
    }
    const size_t bytes = frames * sizeof(float);
    if (out0) std::memcpy(out0, results[0], bytes);
    if (out1) {
        if (!oneChain)
            std::memcpy(out1, results[1], bytes);
        else if (out0)
            std::memcpy(out1, out0, bytes);
    }
}

bool OrmVST2Effect::statesFinite() const {
    // The first sample of each output: a state that has gone bad spoils every sample after it,
    // and every running filter writes at least one sample per block.
    for (const auto& entry : filters) {
        if (entry.first->isOff() || entry.first->isBypassed()) continue;
        for (scalar* output : entry.second->getOutputs())
            if (output && !std::isfinite(output[0])) return false;
    }
    return true;
}

void OrmVST2Effect::clearStates() {
    for (auto& entry : filters) {
        entry.second->reset();
        // What the bad block left in the buffers would otherwise be found again.
        for (scalar* output : entry.second->getOutputs())
            if (output && !std::isfinite(output[0])) output[0] = 0.0f;
    }
}

void OrmVST2Effect::setParameter(int32_t index, float value) {
    if (index < 0 || static_cast<size_t>(index) >= controls->size()) return;
    if (std::isnan(value)) return;
    value = std::min(1.0f, std::max(0.0f, value));
    vrn::Control& control = *(*controls)[static_cast<size_t>(index)];
    control.setValue(value);
    if (control.getName() == "Stereo") stereoOff.exchange(value < 0.5f ? 1 : 0);
    if (editor) editor->setParameter(index, value);
}

float OrmVST2Effect::getParameter(int32_t index) {
    if (index < 0 || static_cast<size_t>(index) >= controls->size()) return 0.0f;
    return (*controls)[static_cast<size_t>(index)]->getValue();
}

void OrmVST2Effect::getParameterName(int32_t index, char* text) {
    if (index < 0 || static_cast<size_t>(index) >= controls->size()) return;
    // Hosts reserve eight characters: longer names are cut and then carry no terminator.
    const std::string& name = (*controls)[static_cast<size_t>(index)]->getDisplayName();
    const size_t length = std::min(name.size() + 1, static_cast<size_t>(kVstMaxParamStrLen));
    std::memcpy(text, name.c_str(), length);
    if (length < static_cast<size_t>(kVstMaxParamStrLen))
        std::memset(text + length, 0, static_cast<size_t>(kVstMaxParamStrLen) - length);
}

bool OrmVST2Effect::setSpeakerArrangement(VstSpeakerArrangement* input, VstSpeakerArrangement* output) {
    if (input && output) {
        // Each side on its own: what the host declares is what it passes.  One channel on
        // either side runs one chain.
        if (input->numChannels == 1 || input->numChannels == 2)
            inputChannels.exchange(static_cast<uint8_t>(input->numChannels));
        if (output->numChannels == 1 || output->numChannels == 2)
            outputChannels.exchange(static_cast<uint8_t>(output->numChannels));
    }
    return true;
}

intptr_t OrmVST2Effect::vendorSpecific(int32_t index, intptr_t value, void*, float) {
    if (index != kUniqueId) return 0;
    if (value == kFailedBlocksQuery) return static_cast<intptr_t>(getFailedBlocks());
    if (value == kRecoveriesQuery) return static_cast<intptr_t>(getRecoveries());
    return 0;
}

bool OrmVST2Effect::getVendorString(char* text) {
    std::memcpy(text, kVendor, std::strlen(kVendor) + 1);
    return true;
}
