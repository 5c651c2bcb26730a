// The plug-in as a host sees it before any audio: identity, dispatcher answers, parameters.

#include <cstring>

#include <gtest/gtest.h>

#include "support/AllocationCounter.h"
#include "plugin/PluginHost.h"

using testhost::Instance;

TEST(PluginIdentity, RecordAndEntry) {
    ASSERT_NE(testhost::module().alias, nullptr);
    EXPECT_EQ(testhost::module().alias, testhost::module().entry);  // "main" is the same function
    // Nothing else leaves the module: neither the engine nor the effect's own functions.
    EXPECT_EQ(dlsym(testhost::module().handle, "_ZN3vrn6Driver6createEv"), nullptr);
    EXPECT_EQ(dlsym(testhost::module().handle, "createEffectInstance"), nullptr);
    EXPECT_EQ(dlsym(testhost::module().handle, "_Z20createEffectInstancePFlP7AEffectiilPvfE"), nullptr);

    const int versionQueries = testhost::callbackLog().versionQueries;
    Instance plugin;
    EXPECT_EQ(testhost::callbackLog().versionQueries, versionQueries + 1);

    AEffect& e = *plugin.effect;
    EXPECT_EQ(e.magic, 0x56737450);
    EXPECT_EQ(e.uniqueID, 0x71377674);
    EXPECT_EQ(e.numPrograms, 1);
    EXPECT_EQ(e.numParams, 8);
    EXPECT_EQ(e.numInputs, 2);
    EXPECT_EQ(e.numOutputs, 2);
    EXPECT_EQ(e.version, 1);
    EXPECT_EQ(e.initialDelay, 0);
    EXPECT_EQ(e.ioRatio, 1.0f);
    EXPECT_NE(e.object, nullptr);
    EXPECT_NE(e.processReplacing, nullptr);
    EXPECT_NE(e.processDoubleReplacing, nullptr);
    EXPECT_TRUE(e.flags & effFlagsCanReplacing);
    EXPECT_FALSE(e.flags & effFlagsCanDoubleReplacing);
    EXPECT_FALSE(e.flags & effFlagsProgramChunks);
    EXPECT_FALSE(e.flags & effFlagsIsSynth);
    EXPECT_TRUE(e.flags & effFlagsHasEditor);

    char vendor[64];
    std::memset(vendor, 'x', sizeof(vendor));
    EXPECT_EQ(plugin.dispatch(effGetVendorString, 0, 0, vendor), 1);
    EXPECT_STREQ(vendor, "Tarnvale");
    EXPECT_EQ(plugin.dispatch(effGetVendorVersion), 1100);
    EXPECT_EQ(plugin.dispatch(effGetVstVersion), 2400);
    EXPECT_EQ(plugin.dispatch(effIdentify), 0x4E764566);

    // No effect name or product string: the calls say so and write nothing.
    char name[64];
    std::memset(name, 'x', sizeof(name));
    EXPECT_EQ(plugin.dispatch(effGetEffectName, 0, 0, name), 0);
    EXPECT_EQ(plugin.dispatch(effGetProductString, 0, 0, name), 0);
    EXPECT_EQ(name[0], 'x');
}

TEST(PluginIdentity, DispatcherDefaults) {
    Instance plugin;
    EXPECT_EQ(plugin.dispatch(effGetPlugCategory), 0);
    EXPECT_EQ(plugin.dispatch(effCanDo, 0, 0, const_cast<char*>("receiveVstEvents")), 0);
    EXPECT_EQ(plugin.dispatch(effGetTailSize), 0);
    EXPECT_EQ(plugin.dispatch(effCanBeAutomated, 3), 1);
    EXPECT_EQ(plugin.dispatch(effString2Parameter, 0, 0, const_cast<char*>("0.5")), 0);
    EXPECT_EQ(plugin.dispatch(effGetChunk), 0);
    EXPECT_EQ(plugin.dispatch(effGetVu), 0);
    EXPECT_EQ(plugin.dispatch(effSetBypass, 0, 1), 0);
    EXPECT_EQ(plugin.dispatch(effGetCurrentMidiProgram), -1);
    EXPECT_EQ(plugin.dispatch(effGetNumMidiInputChannels), 0);
    EXPECT_EQ(plugin.dispatch(effSetTotalSampleToProcess, 0, 4321), 4321);
    EXPECT_EQ(plugin.dispatch(effGetParameterProperties, 0), 0);
    EXPECT_EQ(plugin.dispatch(80), 0);  // beyond the table: the base dispatcher's 0
    EXPECT_EQ(plugin.dispatch(1000), 0);

    // The editor's size is known before any window exists: the panel picture's 1000 by 400.
    ERect* rect = nullptr;
    ASSERT_EQ(plugin.dispatch(effEditGetRect, 0, 0, &rect), 1);
    ASSERT_NE(rect, nullptr);
    EXPECT_EQ(rect->left, 0);
    EXPECT_EQ(rect->top, 0);
    EXPECT_EQ(rect->right, 1000);
    EXPECT_EQ(rect->bottom, 400);
    EXPECT_EQ(plugin.dispatch(effEditKeyDown, 'a', 0, nullptr, 0.0f), 0);

    VstSpeakerArrangement dummy{};
    VstSpeakerArrangement* in = &dummy;
    VstSpeakerArrangement* out = &dummy;
    EXPECT_EQ(plugin.dispatch(effGetSpeakerArrangement, 0, reinterpret_cast<intptr_t>(&in), &out), 0);
    EXPECT_EQ(in, nullptr);
    EXPECT_EQ(out, nullptr);

    // One program: a second one is ignored.
    EXPECT_EQ(plugin.dispatch(effGetProgram), 0);
    plugin.dispatch(effSetProgram, 0, 1);
    EXPECT_EQ(plugin.dispatch(effGetProgram), 0);
    plugin.dispatch(effSetProgram, 0, 0);
    EXPECT_EQ(plugin.dispatch(effGetProgram), 0);
    EXPECT_EQ(plugin.text(effGetProgramName), "");

    // Hosts that call resume twice get a running plug-in.
    plugin.start();
    plugin.dispatch(effMainsChanged, 0, 1);
    testhost::Channels io(64, 0.5f);
    EXPECT_NO_THROW(plugin.process(io.pointers, io.pointers, 64));
}

TEST(PluginIdentity, RefusingHostGetsNoInstance) {
    EXPECT_EQ(testhost::module().entry(testhost::refusingHost), nullptr);
    EXPECT_EQ(testhost::module().entry(nullptr), nullptr);
}

TEST(PluginParameters, NamesLabelsAndDisplay) {
    Instance plugin;
    const char* expected[8] = {"Volume", "Feedback", "Output", "Oversamp", "Cabinet", "CPU", "Input", "Stereo"};
    for (int i = 0; i < 8; ++i) {
        char text[32];
        std::memset(text, '#', sizeof(text));
        plugin.dispatch(effGetParamName, i, 0, text);
        // Eight characters at most reach the host's buffer; longer names are cut.
        EXPECT_EQ(std::string(text, strnlen(text, 8)), expected[i]) << i;
        EXPECT_EQ(text[8], '#') << "wrote past eight characters for parameter " << i;

        std::memset(text, '#', sizeof(text));
        plugin.dispatch(effGetParamLabel, i, 0, text);
        EXPECT_EQ(text[0], 0);
        std::memset(text, '#', sizeof(text));
        plugin.dispatch(effGetParamDisplay, i, 0, text);
        EXPECT_EQ(text[0], 0);
    }
    char text[16];
    std::memset(text, '#', sizeof(text));
    plugin.dispatch(effGetParamName, 8, 0, text);
    EXPECT_EQ(text[0], '#');
}

TEST(PluginParameters, RoundTripsAndDefaults) {
    Instance plugin;
    const float defaults[8] = {0.5f, 1.0f, 0.5f, 0.5f, 1.0f, 0.0f, 0.5f, 0.0f};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(plugin.getParameter(i), defaults[i]) << i;

    const float values[8] = {0.0f, 0.25f, 0.3173f, 1.0f, 0.0f, 1.0f, 0.999f, 1.0f};
    for (int i = 0; i < 8; ++i) plugin.setParameter(i, values[i]);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(plugin.getParameter(i), values[i]) << i;

    // Out of range: ignored, and read as 0.
    plugin.setParameter(8, 0.7f);
    plugin.setParameter(-1, 0.7f);
    EXPECT_EQ(plugin.getParameter(8), 0.0f);
    EXPECT_EQ(plugin.getParameter(100), 0.0f);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(plugin.getParameter(i), values[i]) << i;
}

TEST(PluginLifecycle, CloseDeletesTheInstance) {
    AEffect* effect = testhost::module().entry(testhost::hostCallback);
    ASSERT_NE(effect, nullptr);
    effect->dispatcher(effect, effOpen, 0, 0, nullptr, 0.0f);
    allocation::watched = effect->object;
    allocation::watchedFreed = false;
    EXPECT_EQ(effect->dispatcher(effect, effClose, 0, 0, nullptr, 0.0f), 1);
    EXPECT_TRUE(allocation::watchedFreed.load());
    allocation::watched = nullptr;
}
