// The LV2 plug-in against the VST2 module it adapts: the same panel setting must reach the same
// element values and so the same samples, whatever the run lengths and buffer sharing the LV2
// host chooses; and a run allocates nothing.

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "lv2/Lv2Host.h"
#include "plugin/OrmSystemDescription.h"
#include "plugin/PluginHost.h"
#include "plugin/lv2/Lv2Ports.h"
#include "support/AllocationCounter.h"

namespace {

constexpr double kRate = 48000;

// A few plucked strings, each a decaying fundamental with its octave, left; the right channel is
// the same phrase later and softer, so that a second chain has something of its own to play.
std::vector<float> plucks(size_t frames, size_t delay, float level) {
    const double notes[] = {82.41, 110.0, 146.83, 196.0};
    std::vector<float> out(frames, 0.0f);
    for (size_t i = delay; i < frames; ++i) {
        const double t = double(i - delay) / kRate;
        const int note = int(t / 0.25);
        const double since = t - note * 0.25;
        const double phase = 2 * M_PI * notes[note % 4] * since;
        out[i] = float(level * std::exp(-since * 6) * (std::sin(phase) + 0.3 * std::sin(2 * phase)));
    }
    return out;
}

struct Stereo {
    explicit Stereo(size_t frames) : left(frames, 0.0f), right(frames, 0.0f) {}
    std::vector<float> left, right;
    std::vector<float*> pointers() { return {left.data(), right.data()}; }
};

// Port values in panel units, and the 0..1 values a VST2 host sets for the same panel.
struct Setting {
    const char* what;
    std::vector<float> ports;
    std::vector<float> parameters;
};

const std::vector<Setting> settings = {
    {"defaults", {5, 10, 5, 4, 1, 0, 5, 0}, {0.5f, 1.0f, 0.5f, 0.5f, 1.0f, 0.0f, 0.5f, 0.0f}},
    {"2x low CPU", {7, 4, 5, 2, 1, 0, 6, 0}, {0.7f, 0.4f, 0.5f, 0.0f, 1.0f, 0.0f, 0.6f, 0.0f}},
    {"4x high CPU", {7, 4, 5, 4, 1, 1, 6, 0}, {0.7f, 0.4f, 0.5f, 0.5f, 1.0f, 1.0f, 0.6f, 0.0f}},
    {"8x high CPU", {9, 3, 4, 8, 1, 1, 8, 0}, {0.9f, 0.3f, 0.4f, 1.0f, 1.0f, 1.0f, 0.8f, 0.0f}},
    {"8x low CPU, no cabinet", {3, 10, 6, 8, 0, 0, 3, 0}, {0.3f, 1.0f, 0.6f, 1.0f, 0.0f, 0.0f, 0.3f, 0.0f}},
    {"stereo", {6, 6, 5, 4, 1, 0, 6, 1}, {0.6f, 0.6f, 0.5f, 0.5f, 1.0f, 0.0f, 0.6f, 1.0f}},
};

TEST(Lv2Ports, PanelUnitsMapOntoTheControlValues) {
    struct Row {
        uint32_t port;
        float value, control;
    };
    // Knobs divide by ten (7 gives the float nearest 0.7, as a VST2 host's 0.7 is) and stop at
    // their ends; the factor takes the nearest of 2, 4 and 8; a toggle is on above zero.
    const Row rows[] = {
        {0, 0.0f, 0.0f},  {0, 7.0f, 0.7f},   {0, 10.0f, 1.0f},  {0, -3.0f, 0.0f}, {1, 12.0f, 1.0f},
        {6, 2.5f, 0.25f}, {3, 2.0f, 0.0f},   {3, 2.9f, 0.0f},   {3, 3.0f, 0.5f},  {3, 4.0f, 0.5f},
        {3, 5.9f, 0.5f},  {3, 6.0f, 1.0f},   {3, 8.0f, 1.0f},   {3, 64.0f, 1.0f}, {3, -1.0f, 0.0f},
        {4, 0.0f, 0.0f},  {4, -1.0f, 0.0f},  {4, 0.01f, 1.0f},  {5, 1.0f, 1.0f},  {7, 1.0f, 1.0f},
    };
    for (const Row& row : rows)
        EXPECT_EQ(orm_lv2::toControlValue(row.port, row.value), row.control)
            << orm_lv2::kControls[row.port].symbol << " = " << row.value;
    EXPECT_TRUE(std::isnan(orm_lv2::toControlValue(0, NAN)));
    EXPECT_TRUE(std::isnan(orm_lv2::toControlValue(orm_lv2::kControlPorts, 1.0f)));

    // What the editor's widgets send comes back as the port value that shows it.
    const float widgetValues[] = {0.0f, 0.5f, 1.0f};
    const float factors[] = {2.0f, 4.0f, 8.0f};
    for (int i = 0; i < 3; ++i) EXPECT_EQ(orm_lv2::toPortValue(3, widgetValues[i]), factors[i]);
    for (float panel : {0.0f, 3.0f, 7.0f, 10.0f})
        EXPECT_FLOAT_EQ(orm_lv2::toPortValue(0, orm_lv2::toControlValue(0, panel)), panel);
    EXPECT_EQ(orm_lv2::toPortValue(4, 0.4f), 0.0f);
    EXPECT_EQ(orm_lv2::toPortValue(4, 0.6f), 1.0f);
}

TEST(Lv2Ports, FollowTheDescriptionsControlsInOrder) {
    pugi::xml_document document;
    const std::string text = makeOrmSystemDescription();
    ASSERT_TRUE(document.load_buffer(text.data(), text.size()));
    pugi::xpath_node_set controls = document.select_nodes("/System/Controls/Control");
    ASSERT_EQ(controls.size(), orm_lv2::kControlPorts);
    for (uint32_t i = 0; i < orm_lv2::kControlPorts; ++i) {
        pugi::xml_node control = controls[i].node();
        const orm_lv2::ControlPort& port = orm_lv2::kControls[i];
        EXPECT_STREQ(port.control, control.attribute("Name").value());
        EXPECT_STREQ(port.name, control.attribute("DisplayName").value());
        // The port's default is the control's initial value, shown in panel units.
        EXPECT_EQ(orm_lv2::toControlValue(i, port.defaultValue), control.attribute("Value").as_float()) << port.symbol;
    }
}

// Renders `input` through the LV2 plug-in in runs of the given lengths (repeated), the block
// bound announced or not.
Stereo renderLv2(const Setting& setting, Stereo& input, bool mono, const std::vector<uint32_t>& runs, int32_t maxBlock,
                 bool inPlace = false) {
    const size_t frames = input.left.size();
    Stereo output(frames);
    if (inPlace) output = input;
    // As hosts do, the control ports are filled before the instance is activated.
    lv2host::Plugin plugin(mono, maxBlock, kRate, setting.ports);
    std::vector<float*> in = inPlace ? output.pointers() : input.pointers();
    std::vector<float*> out = output.pointers();
    for (size_t done = 0, k = 0; done < frames; ++k) {
        const uint32_t length = uint32_t(std::min<size_t>(runs[k % runs.size()], frames - done));
        plugin.run(in, out, done, length);
        done += length;
    }
    EXPECT_EQ(plugin.latency, 0.0f);
    return output;
}

// The same through the VST2 module as a host drives it, in blocks of `block`.
Stereo renderVst2(const Setting& setting, Stereo& input, bool monoInput, int block) {
    const size_t frames = input.left.size();
    Stereo output(frames);
    testhost::Instance plugin;
    // The parameters set before the effect resumes, as hosts restore a session.
    plugin.dispatch(effOpen);
    plugin.dispatch(effSetSampleRate, 0, 0, nullptr, float(kRate));
    plugin.dispatch(effSetBlockSize, 0, block);
    for (size_t i = 0; i < setting.parameters.size(); ++i) plugin.setParameter(int32_t(i), setting.parameters[i]);
    plugin.dispatch(effMainsChanged, 0, 1);
    for (size_t done = 0; done < frames; done += size_t(block)) {
        float* in[2] = {input.left.data() + done, (monoInput ? input.left.data() : input.right.data()) + done};
        float* out[2] = {output.left.data() + done, output.right.data() + done};
        plugin.process(in, out, int32_t(std::min<size_t>(size_t(block), frames - done)));
    }
    return output;
}

float worstDifference(const std::vector<float>& a, const std::vector<float>& b) {
    float worst = 0;
    for (size_t i = 0; i < a.size(); ++i) worst = std::max(worst, std::fabs(a[i] - b[i]));
    return worst;
}

Stereo phrase(size_t frames) {
    Stereo input(frames);
    input.left = plucks(frames, 0, 0.4f);
    input.right = plucks(frames, 2000, 0.25f);
    return input;
}

TEST(Lv2Plugin, PlaysEverySettingSampleForSampleAsTheVst2Module) {
    // The same blocks on both sides: the same engine must give the same bits.
    Stereo input = phrase(size_t(kRate * 0.6));
    for (const Setting& setting : settings) {
        SCOPED_TRACE(setting.what);
        Stereo vst2 = renderVst2(setting, input, false, 256);
        Stereo lv2 = renderLv2(setting, input, false, {256}, 256);
        EXPECT_EQ(worstDifference(lv2.left, vst2.left), 0.0f);
        EXPECT_EQ(worstDifference(lv2.right, vst2.right), 0.0f);
    }
    // The mono plug-in is the module's one chain: the left output of a mono signal.
    for (const Setting& setting : {settings[0], settings[3]}) {
        SCOPED_TRACE(std::string("mono ") + setting.what);
        Stereo vst2 = renderVst2(setting, input, true, 256);
        Stereo lv2 = renderLv2(setting, input, true, {256}, 256);
        EXPECT_EQ(worstDifference(lv2.left, vst2.left), 0.0f);
    }
}

TEST(Lv2Plugin, AnyRunLengthAndBuffersSharedWithTheInput) {
    Stereo input = phrase(size_t(kRate * 0.5));
    const Setting& setting = settings[2];
    Stereo reference = renderLv2(setting, input, false, {256}, 256);
    float peak = 0;
    for (float x : reference.left) peak = std::max(peak, std::fabs(x));
    ASSERT_GT(peak, 0.01f);
    // Runs of no length, one frame, odd lengths and longer than the bound: the engine then runs
    // other pieces than 256.  A gliding knob's network is recomputed at points that follow the
    // pieces, so the output depends on how a host cuts the blocks only within float rounding.
    const std::vector<uint32_t> runs = {0, 1, 7, 300, 3000, 64, 1500, 0, 999};
    for (int32_t bound : {0, 1024, 100}) {
        SCOPED_TRACE("announced bound " + std::to_string(bound));
        Stereo pieces = renderLv2(setting, input, false, runs, bound);
        EXPECT_LE(worstDifference(pieces.left, reference.left), 1e-6f * peak);
        EXPECT_LE(worstDifference(pieces.right, reference.right), 1e-6f * peak);
        // In place: the output ports on the input buffers give the very same samples.
        Stereo shared = renderLv2(setting, input, false, runs, bound, true);
        EXPECT_EQ(worstDifference(shared.left, pieces.left), 0.0f);
        EXPECT_EQ(worstDifference(shared.right, pieces.right), 0.0f);
    }
}

TEST(Lv2Plugin, RunAllocatesNothingAlsoWhenKnobsAndTogglesMove) {
    Stereo input = phrase(4096);
    Stereo output(4096);
    lv2host::Plugin plugin(false, 512, kRate);
    std::vector<float*> in = input.pointers(), out = output.pointers();
    for (int warm = 0; warm < 4; ++warm) plugin.run(in, out, 0, 512);
    orm_test::AllocationScope scope;
    for (int block = 0; block < 32; ++block) {
        plugin.controls[0] = float(block % 11);         // Volume
        plugin.controls[6] = float((block * 3) % 11);   // Input
        plugin.controls[4] = float(block / 8 % 2);      // Cabinet
        plugin.controls[5] = float(block / 16 % 2);     // CPU
        plugin.run(in, out, size_t(block % 4) * 512, 512);
    }
    EXPECT_EQ(scope.count(), 0);
}

TEST(Lv2Plugin, DescriptorsNameBothPlugins) {
    ASSERT_NE(lv2host::descriptor(0), nullptr);
    ASSERT_NE(lv2host::descriptor(1), nullptr);
    EXPECT_STREQ(lv2host::descriptor(0)->URI, orm_lv2::kPluginUri);
    EXPECT_STREQ(lv2host::descriptor(1)->URI, orm_lv2::kMonoPluginUri);
    EXPECT_EQ(lv2host::descriptor(2), nullptr);
    // A rate that is no rate gives no instance, and no exception.
    const LV2_Feature* none[] = {nullptr};
    for (double rate : {0.0, -48000.0, double(NAN)})
        EXPECT_EQ(lv2host::descriptor(0)->instantiate(lv2host::descriptor(0), rate, ORM_LV2_BUNDLE, none), nullptr);
}

}  // namespace
