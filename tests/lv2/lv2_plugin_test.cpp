// The LV2 plug-in against the VST2 module it adapts: the same panel setting must reach the same
// element values and so the same samples, whatever the run lengths and buffer sharing the LV2
// host chooses; and a run allocates nothing.

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <string>
#include <vector>

#include "lv2/Lv2Host.h"
#include "plugin/OrmSystemDescription.h"
#include "plugin/PluginHost.h"
#include "support/AllocationCounter.h"

namespace {

using namespace lv2host;

TEST(Lv2Ports, PanelUnitsMapOntoTheControlValues) {
    struct Row {
        uint32_t port;
        float value, control;
    };
    // Knobs divide by ten (7 gives the float nearest 0.7, as a VST2 host's 0.7 is) and stop at
    // their ends; the factor takes the nearest of 2, 4 and 8; a toggle is on above zero.
    const Row rows[] = {
        {0, 7.0f, 0.7f}, {0, 10.0f, 1.0f}, {0, -3.0f, 0.0f}, {1, 12.0f, 1.0f}, {6, 2.5f, 0.25f}, {3, 2.9f, 0.0f},
        {1, 10.05f, 1.0f}, {3, 3.0f, 0.5f}, {3, 5.9f, 0.5f}, {3, 6.0f, 1.0f}, {4, 0.0f, 0.0f}, {4, 0.01f, 1.0f}, {7, 1.0f, 1.0f},
    };
    for (const Row& row : rows)
        EXPECT_EQ(orm_lv2::toControlValue(row.port, row.value), row.control)
            << orm_lv2::kControls[row.port].symbol << " = " << row.value;
    EXPECT_TRUE(std::isnan(orm_lv2::toControlValue(0, NAN)));
    EXPECT_TRUE(std::isnan(orm_lv2::toControlValue(orm_lv2::kControlPorts, 1.0f)));

    // What the editor's widgets send (0..1) comes back as the port value that shows it; the
    // factor's and the toggle's borders lie halfway between their positions.
    const Row widgetRows[] = {
        {0, 0.5f, 5.0f},  {0, 1.5f, 10.0f}, {0, -0.1f, 0.0f}, {3, 0.24f, 2.0f},
        {3, 0.25f, 4.0f}, {3, 0.75f, 8.0f}, {4, 0.49f, 0.0f}, {4, 0.5f, 1.0f},
    };
    for (const Row& row : widgetRows)
        EXPECT_EQ(orm_lv2::toPortValue(row.port, row.value), row.control)
            << orm_lv2::kControls[row.port].symbol << " widget at " << row.value;
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
// bound announced or not; in place: the output ports on the input buffers.
Stereo renderLv2(const Setting& setting, const Stereo& input, const std::vector<uint32_t>& runs, int32_t maxBlock,
                 bool inPlace = false) {
    const size_t frames = input.left.size();
    Stereo source = input, output(frames);
    if (inPlace) output = input;
    // As hosts do, the control ports are filled before the instance is activated.
    Plugin plugin(setting.mono, maxBlock, setting.ports);
    for (size_t done = 0, k = 0; done < frames; ++k) {
        const uint32_t length = uint32_t(std::min<size_t>(runs[k % runs.size()], frames - done));
        plugin.run(inPlace ? output.pointers() : source.pointers(), output.pointers(), done, length);
        done += length;
    }
    EXPECT_EQ(plugin.latency, 0.0f);
    return output;
}

// The same through the VST2 module as a host drives it, in blocks of 256; a mono setting feeds
// the left input to both sides.
Stereo renderVst2(const Setting& setting, Stereo input) {
    const size_t frames = input.left.size(), block = 256;
    Stereo output(frames);
    testhost::Instance plugin;
    // The parameters set before the effect resumes, as hosts restore a session.
    plugin.dispatch(effOpen);
    plugin.dispatch(effSetSampleRate, 0, 0, nullptr, float(kRate));
    plugin.dispatch(effSetBlockSize, 0, block);
    for (uint32_t i = 0; i < orm_lv2::kControlPorts; ++i) plugin.setParameter(int32_t(i), vst2Value(i, setting.ports[i]));
    plugin.dispatch(effMainsChanged, 0, 1);
    for (size_t done = 0; done < frames; done += block) {
        float* in[2] = {input.left.data() + done, (setting.mono ? input.left.data() : input.right.data()) + done};
        float* out[2] = {output.left.data() + done, output.right.data() + done};
        plugin.process(in, out, int32_t(std::min(block, frames - done)));
    }
    return output;
}

TEST(Lv2Plugin, PlaysEverySettingSampleForSampleAsTheVst2Module) {
    // The same blocks on both sides: the same engine must give the same bits.  The mono plug-in
    // is the module's one chain: the left output of a mono signal.
    const Stereo input = phrase(size_t(kRate * 0.6));
    for (const Setting& setting : settings) {
        SCOPED_TRACE(setting.what);
        Stereo vst2 = renderVst2(setting, input);
        Stereo lv2 = renderLv2(setting, input, {256}, 256);
        EXPECT_EQ(worstDifference(lv2.left, vst2.left), 0.0f);
        if (!setting.mono) {
            EXPECT_EQ(worstDifference(lv2.right, vst2.right), 0.0f);
        }
    }
}

TEST(Lv2Plugin, AnyRunLengthAndBuffersSharedWithTheInput) {
    const Stereo input = phrase(size_t(kRate * 0.5));
    const Setting& setting = settings[1];
    Stereo reference = renderLv2(setting, input, {256}, 256);
    const float loudest = peak(reference.left);
    ASSERT_GT(loudest, 0.01f);
    // Runs of no length, one frame, odd lengths and longer than the bound: the engine then runs
    // other pieces than 256.  A gliding knob's network is recomputed at points that follow the
    // pieces, so the output depends on how a host cuts the blocks only within float rounding.
    const std::vector<uint32_t> runs = {0, 1, 7, 300, 3000, 64, 1500, 0, 999};
    for (int32_t bound : {0, 1024, 100}) {
        SCOPED_TRACE("announced bound " + std::to_string(bound));
        Stereo pieces = renderLv2(setting, input, runs, bound);
        EXPECT_LE(worstDifference(pieces.left, reference.left), 1e-6f * loudest);
        EXPECT_LE(worstDifference(pieces.right, reference.right), 1e-6f * loudest);
        // In place: the very same samples.
        Stereo shared = renderLv2(setting, input, runs, bound, true);
        EXPECT_EQ(worstDifference(shared.left, pieces.left), 0.0f);
        EXPECT_EQ(worstDifference(shared.right, pieces.right), 0.0f);
    }
}

TEST(Lv2Plugin, RunAllocatesNothingAlsoWhenKnobsAndTogglesMove) {
    Stereo input = phrase(4096), output(4096);
    Plugin plugin(false, 512);
    const std::vector<float*> in = input.pointers(), out = output.pointers();
    for (int warm = 0; warm < 4; ++warm) plugin.run(in, out, 0, 512);
    orm_test::AllocationScope scope;
    for (int block = 0; block < 32; ++block) {
        plugin.controls[0] = float(block % 11);         // Volume
        plugin.controls[4] = float(block / 8 % 2);      // Cabinet
        plugin.controls[5] = float(block / 16 % 2);     // CPU
        plugin.run(in, out, size_t(block % 4) * 512, 512);
    }
    EXPECT_EQ(scope.count(), 0);
}

// The plug-ins' URIs: the LV2 tools find them by those (lv2_tools_test).
TEST(Lv2Plugin, TwoDescriptorsAndNoInstanceAtARateThatIsNone) {
    EXPECT_EQ(descriptor(2), nullptr);
    // A rate that is no rate gives no instance, and no exception.
    const LV2_Feature* none[] = {nullptr};
    for (double rate : {0.0, -48000.0, double(NAN)})
        EXPECT_EQ(descriptor(0)->instantiate(descriptor(0), rate, ORM_LV2_BUNDLE, none), nullptr);
}

}  // namespace
