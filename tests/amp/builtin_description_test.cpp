// The built-in amplifier as the module holds it, against tables written from what the amplifier is, and the
// eight controls' value functions as a host sets them.  The effect object behind the module's record gives the Driver.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <stdexcept>
#include <string>
#include <tuple>
#include <typeinfo>
#include <vector>

#include "amp/FilterWrapper.h"
#include "engine/DSPGraph.h"
#include "filters/BiQuad.h"
#include "filters/FirstOrderIIR.h"
#include "filters/Gain.h"
#include "filters/IirResamplers.h"
#include "filters/LookupTableFilter.h"
#include "filters/Switch.h"
#include "filters/WaveConvolver.h"
#include "plugin/OrmVST2Effect.h"

using namespace vrn;

namespace {

intptr_t host(AEffect*, int32_t op, int32_t, intptr_t, void*, float) { return op == audioMasterVersion ? 2400 : 0; }

// UBSan's type check on the cast would need the effect's type information, which only the module holds.
__attribute__((no_sanitize("vptr"))) Driver* driverOf(AEffect* effect) {
    return static_cast<OrmVST2Effect*>(static_cast<AudioEffect*>(effect->object))->getDriver().get();
}

// One instance at 48 kHz, blocks of 256, not resumed: nothing has run, the Driver holds the system as parsed.
struct Amp {
    Amp() {
        static void* module = dlopen(ORM_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
        if (!module) throw std::runtime_error(std::string("dlopen: ") + dlerror());
        effect = reinterpret_cast<AEffect* (*)(audioMasterCallback)>(dlsym(module, "VSTPluginMain"))(host);
        if (!effect) throw std::runtime_error("the module made no instance");
        effect->dispatcher(effect, effSetSampleRate, 0, 0, nullptr, 48000.0f);
        effect->dispatcher(effect, effSetBlockSize, 0, 256, nullptr, 0.0f);
        driver = driverOf(effect);
        for (size_t g = 0; g < driver->getGraphs()->size(); ++g) index[(*driver->getGraphs())[g]->getName()] = g;
    }
    ~Amp() { effect->dispatcher(effect, effClose, 0, 0, nullptr, 0.0f); }

    template <typename T>
    T* element(const std::string& graph, const std::string& name) {
        return dynamic_cast<T*>(driver->getGraph(graph)->getContext()->getElement(name));
    }

    AEffect* effect;
    Driver* driver;
    std::map<std::string, size_t> index;  // of each graph in the Driver's list
};

// The left chain (the right one's graphs are the same with "_S"): per graph its own multiplier, its input rate
// over the host's as parsed (oversampling 2x), its source, whether it is off, its elements in the order they run.
typedef std::vector<std::pair<const char*, const std::type_info*>> Elements;
const std::tuple<const char*, double, double, const char*, bool, Elements> kChain[] = {
    {"G1", 2.0, 1, "System", false, {{"InputGain", &typeid(Gain)}, {"1", &typeid(IirInterpolator)}}},
    {"V1", 1.0, 2, "G1", false, {{"V1", &typeid(LookupTableFilter)}}},
    {"V2-out-Rg", 1.0, 2, "V1", true, {{"VC", &typeid(BiQuad)}, {"V2", &typeid(LookupTableFilter)},
                                       {"V2V3", &typeid(FirstOrderIIR)}, {"V3", &typeid(LookupTableFilter)}}},
    {"V2-out-Rg-lowCPU", 1.0, 2, "V1", false, {{"VC", &typeid(FilterWrapper)}, {"GlobalFB", &typeid(Gain)},
      {"V2", &typeid(LookupTableFilter)}, {"V2V3", &typeid(FilterWrapper)}, {"V3", &typeid(LookupTableFilter)}}},
    {"Switch", 1.0, 2, "V2-out-Rg-lowCPU", false, {{"S", &typeid(Switch)}}},
    {"G2", 0.5, 2, "Switch", false, {{"1", &typeid(IirDecimator)}}},
    {"out DC block", 1.0, 1, "G2", false, {{"DC block", &typeid(FirstOrderIIR)}, {"Gain", &typeid(Gain)}}},
    {"WaveConvolver", 1.0, 1, "out DC block", false, {{"WV", &typeid(WaveConvolver)}}},
};

// The tube stages' grids in force, those of the curves loaded at start-up: VinMin, VinMax, DeltaV.
const std::tuple<const char*, const char*, float, float, float> kTables[] = {
    {"V1", "V1", -8, 8, 0.01f},         {"V2-out-Rg-lowCPU", "V2", -8, 100, 0.02f},
    {"V2-out-Rg", "V2", -8, 80, 0.02f}, {"V2-out-Rg-lowCPU", "V3", -40, 100, 0.01f},
    {"V2-out-Rg", "V3", -40, 100, 0.01f},
};

// The controls in the host's order: name, display name, value at load, and the targets as
// "property graph$/element" (a bare graph: the graph's own), $ standing for each chain's suffix.
typedef std::vector<const char*> Names;
const std::tuple<const char*, const char*, float, Names, Names> kControls[] = {
    {"Gain", "Volume", 0.5f, {"Wiper V2-out-Rg$/VC", "Wiper V2-out-Rg-lowCPU$/VC"}, {"", "_S"}},
    {"Feedback", "Feedback", 1.0f, {"Gain V2-out-Rg$/VC", "Gain V2-out-Rg-lowCPU$/GlobalFB"}, {"", "_S"}},
    {"Vol", "Output", 0.5f, {"Gain out DC block$/Gain"}, {"", "_S"}},
    {"Oversampling", "Oversampling", 0.5f, {"Factor G1$/1", "Factor G2$/1"}, {"", "_S"}},
    {"Cabinet", "Cabinet", 1.0f, {"Bypass WaveConvolver$"}, {"", "_S"}},
    {"CPU", "CPU", 0.0f, {"Position Switch$/S", "Off V2-out-Rg-lowCPU$", "Off V2-out-Rg$"}, {"", "_S"}},
    {"Input", "Input", 0.5f, {"Gain G1$/InputGain"}, {"", "_S"}},
    // Off, the right chain is bypassed; its cabinet by a request of its own beside Cabinet's.
    {"Stereo", "Stereo", 0.0f,
     {"Bypass G1$", "Bypass V1$", "Bypass V2-out-Rg-lowCPU$", "Bypass V2-out-Rg$", "Bypass G2$",
      "Bypass out DC block$", "Bypass_1 WaveConvolver$"}, {"_S"}},
};

// The controls' values where the elements receive them: Output 0 to 0.002 in a straight line; Volume 0 to 0.1
// over the knob's lower half, 0.1 to 1 over the upper; Oversampling 2, 4, 8 at 0, 0.5, 1 and the nearest between;
// Feedback 1 down to its floor, 0.61; Input 0 to 1 (unity) over the lower half, 1 to 4 over the upper.  Switches
// are on from the middle up: Cabinet and Stereo on lift their bypasses (1: bypassed), CPU on selects the high-CPU
// branch and turns the low-CPU one off.  In order; Stereo off at the end holds the right cabinet bypassed by a
// request of its own, whatever Cabinet says.
constexpr float kBelow = 1.0f / 1024;
const std::tuple<const char*, float, float> kValues[] = {
    {"Stereo", 0, 1}, {"Stereo", 0.5f - kBelow, 1}, {"Stereo", 0.5f, 0}, {"Stereo", 1, 0},
    {"Vol", 0, 0}, {"Vol", 0.5f, 0.001f}, {"Vol", 1, 0.002f},
    {"Gain", 0, 0}, {"Gain", 0.25f, 0.05f}, {"Gain", 0.5f - kBelow, 0.0998046875f}, {"Gain", 0.5f, 0.1f},
    {"Gain", 0.5f + kBelow, 0.1017578125f}, {"Gain", 1, 1},
    {"Oversampling", 0, 2}, {"Oversampling", 0.25f - kBelow, 2}, {"Oversampling", 0.25f, 4},
    {"Oversampling", 0.75f - kBelow, 4}, {"Oversampling", 0.75f, 8}, {"Oversampling", 1, 8},
    {"Feedback", 0, 1}, {"Feedback", 0.5f, 0.805f}, {"Feedback", 1, 0.61f},
    {"Input", 0, 0}, {"Input", 0.25f, 0.5f}, {"Input", 0.5f - kBelow, 0.998046875f}, {"Input", 0.5f, 1},
    {"Input", 0.5f + kBelow, 1.005859375f}, {"Input", 0.75f, 2.5f}, {"Input", 1, 4},
    {"Cabinet", 0, 1}, {"Cabinet", 0.5f - kBelow, 1}, {"Cabinet", 0.5f, 0}, {"Cabinet", 1, 0},
    {"CPU", 0, 0}, {"CPU", 0.5f - kBelow, 0}, {"CPU", 0.5f, 1}, {"CPU", 1, 1}, {"Stereo", 0, 1}, {"Cabinet", 1, 0},
};

// The largest difference between a buffer and what expected() makes of each of its indices.
template <typename F>
float worst(const scalar* got, size_t frames, F expected) {
    float largest = 0.0f;
    for (size_t i = 0; i < frames; ++i) largest = std::fmax(largest, std::fabs(got[i] - expected(i)));
    return largest;
}

}  // namespace

TEST(BuiltinDescription, IsTheAmplifier) {
    Amp amp;
    ASSERT_EQ(amp.driver->getGraphs()->size(), 2 * std::size(kChain));
    std::vector<size_t> runs(amp.driver->getOrder().size());
    for (size_t k = 0; k < runs.size(); ++k) runs[static_cast<size_t>(amp.driver->getOrder()[k])] = k;
    for (const std::string suffix : {"", "_S"}) {
        for (const auto& [name, multiplier, rate, source, off, elements] : kChain) {
            SCOPED_TRACE(name + suffix);
            const size_t g = amp.index.at(name + suffix);
            auto* graph = dynamic_cast<DSPGraph*>((*amp.driver->getGraphs())[g].get());
            ASSERT_NE(graph, nullptr);
            EXPECT_EQ(std::make_tuple(graph->getMultiplier(), amp.driver->getMultipliers()[g], graph->isOff()),
                      std::make_tuple(multiplier, rate, off));
            // Every graph runs after its source, and its elements in the order of their wires.
            EXPECT_TRUE(std::string(source) == "System" || runs[amp.index.at(source + suffix)] < runs[g]);
            const std::vector<Filter*>& filters = graph->getDSPContext()->getElements();
            ASSERT_EQ(filters.size(), elements.size());
            for (size_t k = 0; k < filters.size(); ++k) {
                const Filter& filter = *filters[static_cast<size_t>(graph->getFilterOrder()[k])];
                EXPECT_EQ(filter.getName(), elements[k].first);
                EXPECT_EQ(typeid(filter), *elements[k].second) << filter.getName();
            }
        }
        // The resamplers at factor 2, designed at 96 kHz: cascades of second-order sections.
        for (const auto& [graph, corner, sections] :
             {std::make_tuple("G1", 15000.0f, 4u), std::make_tuple("G2", 20000.0f, 8u)}) {
            SCOPED_TRACE(graph + suffix);
            auto* resampler = amp.element<IirResampler>(graph + suffix, "1");
            ASSERT_NE(resampler, nullptr);
            EXPECT_EQ(resampler->getFactor(), 2);
            EXPECT_FLOAT_EQ(resampler->getRelativeFrequency(), corner / 96000.0f);
            EXPECT_EQ(resampler->getSections().size(), sections);
            // Butterworth by the bilinear transform prewarped to the corner: its second feedback coefficient.
            const double k = std::tan(M_PI * corner / 96000.0);
            const double a2 = (1 - M_SQRT2 * k + k * k) / (1 + M_SQRT2 * k + k * k);
            for (const auto& section : resampler->getSections())
                EXPECT_NEAR(dynamic_cast<BiQuad&>(*section).getA()[1], a2, 1e-6);  // a BiQuad, or bad_cast
        }
        for (const auto& [graph, name, vinMin, vinMax, deltaV] : kTables) {
            SCOPED_TRACE(graph + suffix + "/" + name);
            auto* table = amp.element<LookupTableFilter>(graph + suffix, name);
            ASSERT_NE(table, nullptr);
            const std::vector<scalar>& values = *table->getValues();
            ASSERT_EQ(values.size(), static_cast<size_t>(std::lround((vinMax - vinMin) / deltaV)) + 1);
            // Half-way between grid points the table gives the mean of its neighbours.
            for (size_t cell = 1; cell + 2 < values.size(); cell += values.size() / 7) {
                const float mean = 0.5f * (values[cell] + values[cell + 1]);
                const float x = vinMin + (static_cast<float>(cell) + 0.5f) * deltaV;
                const float tolerance = 0.01f * std::fabs(values[cell + 1] - mean) + 1e-6f * std::fabs(mean);
                EXPECT_NEAR(table->process(x), mean, tolerance) << cell;
            }
        }
    }
    const ControlList& controls = *amp.driver->getControls();
    ASSERT_EQ(controls.size(), std::size(kControls));
    for (size_t c = 0; c < controls.size(); ++c) {
        const auto& [name, display, value, targets, chains] = kControls[c];
        SCOPED_TRACE(name);
        EXPECT_EQ(std::make_tuple(controls[c]->getName(), controls[c]->getDisplayName(), controls[c]->getValue()),
                  std::make_tuple(std::string(name), std::string(display), value));
        std::vector<std::string> expected, bound;
        for (const char* suffix : chains)
            for (std::string target : targets) expected.push_back(target.replace(target.find('$'), 1, suffix));
        for (const auto& property : *controls[c]->getProperties()) {
            // An element's property reaches the element of that name in that graph.
            const std::string element = property->element ? "/" + property->elementName : "";
            Context& context = *property->graph->getContext();
            EXPECT_EQ(property->element, element.empty() ? nullptr : context.getElement(property->elementName));
            bound.push_back(property->name + " " + property->graph->getName() + element);
        }
        EXPECT_EQ(bound, expected);
    }
}

TEST(BuiltinDescription, SignalsTakeTheWiredPaths) {
    Amp amp;
    amp.effect->setParameter(amp.effect, 7, 1.0f);  // Stereo: both chains run
    std::vector<float> in[2] = {std::vector<float>(256), std::vector<float>(256)}, out[2] = {in[0], in[1]};
    float *inputs[2] = {in[0].data(), in[1].data()}, *outputs[2] = {out[0].data(), out[1].data()};
    // 8 blocks, so that the gains' 20 ms glides from their load-time values are over.
    for (int block = 0; block < 8; ++block) {
        for (size_t i = 0; i < 256; ++i) {
            in[0][i] = 0.5f * std::sin(0.05f * static_cast<float>(block * 256 + static_cast<int>(i)));
            in[1][i] = -0.3f * in[0][i];
        }
        amp.effect->processReplacing(amp.effect, inputs, outputs, 256);
    }
    for (size_t channel = 0; channel < 2; ++channel) {
        const std::string suffix = channel ? "_S" : "";
        SCOPED_TRACE(suffix);
        auto signal = [&](const char* g, const char* e) { return amp.element<Filter>(g + suffix, e)->getOutputs()[0]; };
        // The channel's input at unity gain, the tube stage after the interpolator, the switch.
        EXPECT_EQ(worst(signal("G1", "InputGain"), 256, [&](size_t i) { return in[channel][i]; }), 0.0f);
        auto* v1 = amp.element<LookupTableFilter>("V1" + suffix, "V1");
        const scalar* interpolated = signal("G1", "1");
        const scalar* lowCpu = signal("V2-out-Rg-lowCPU", "V3");
        EXPECT_LE(worst(signal("V1", "V1"), 1024, [&](size_t i) { return v1->process(interpolated[i]); }), 1e-5f);
        EXPECT_EQ(worst(signal("Switch", "S"), 1024, [&](size_t i) { return lowCpu[i]; }), 0.0f);
        // Back at the host's rate: the DC block on the decimator, the output gain, the cabinet.
        const scalar* x = signal("G2", "1");
        const scalar* y = signal("out DC block", "DC block");
        EXPECT_LE(worst(y + 1, 255, [&](size_t i) { return x[i + 1] - x[i] + 0.9995f * y[i]; }), 1e-5f);
        EXPECT_LE(worst(signal("out DC block", "Gain"), 256, [&](size_t i) { return 0.001f * y[i]; }), 1e-9f);
        EXPECT_EQ(worst(signal("WaveConvolver", "WV"), 256, [&](size_t i) { return out[channel][i]; }), 0.0f);
    }
}

TEST(BuiltinDescription, ValueFunctionsReachTheElements) {
    Amp amp;
    const ControlList& controls = *amp.driver->getControls();
    for (const auto& [name, x, expected] : kValues) {
        SCOPED_TRACE(std::string(name) + " at " + std::to_string(x));
        size_t c = 0;
        while (c < controls.size() && controls[c]->getName() != name) ++c;
        ASSERT_LT(c, controls.size());
        amp.effect->setParameter(amp.effect, static_cast<int32_t>(c), x);
        amp.effect->processReplacing(amp.effect, nullptr, nullptr, 0);  // delivers the controls
        for (const auto& property : *controls[c]->getProperties()) {
            const std::string& graph = property->graph->getName();
            SCOPED_TRACE(property->name + " of " + graph + "/" + property->elementName);
            // CPU turns the high-CPU graphs off where it turns the low-CPU ones on.
            const bool highCpu = property->name == "Off" && (graph == "V2-out-Rg" || graph == "V2-out-Rg_S");
            const float value = highCpu ? 1 - expected : expected;
            EXPECT_FLOAT_EQ(property->scalarValue, value);
            auto* gain = dynamic_cast<Gain*>(property->element);
            auto* resampler = dynamic_cast<IirResampler*>(property->element);
            EXPECT_FLOAT_EQ(gain ? gain->getTargetGain() : value, value);
            EXPECT_EQ(resampler ? resampler->getFactor() : value, value);
            EXPECT_EQ(resampler ? amp.driver->getMultipliers()[amp.index.at("V1")] : value, value);
            const bool flag = property->name == "Off" ? property->graph->isOff() : property->graph->isBypassed();
            const bool held = graph == "WaveConvolver_S" && amp.effect->getParameter(amp.effect, 7) < 0.5f;
            EXPECT_TRUE(property->element || flag == (value == 1 || held));
        }
    }
}
