// The plug-in as a host sees it before any audio: the record, the dispatcher's answers, the
// parameters' texts and defaults, written down from what a host reads.

#include <cstring>

#include <gtest/gtest.h>

#include "support/AllocationCounter.h"
#include "plugin/PluginHost.h"

using namespace testhost;

TEST(PluginIdentity, RecordAndEntry) {
    ASSERT_EQ(module().alias, module().entry);  // "main" is the same function
    // Nothing else leaves the module: neither the engine nor the effect's own functions.
    for (const char* hidden :
         {"_ZN3vrn6Driver6createEv", "createEffectInstance", "_Z20createEffectInstancePFlP7AEffectiilPvfE"})
        EXPECT_EQ(dlsym(module().handle, hidden), nullptr) << hidden;
    // A host that refuses the version query, or gives no callback, gets no instance.
    EXPECT_EQ(module().entry(refusingHost), nullptr);
    EXPECT_EQ(module().entry(nullptr), nullptr);

    const int queries = versionQueries();
    Instance plugin;
    EXPECT_EQ(versionQueries(), queries + 1);
    const AEffect& e = *plugin.effect;
    const int32_t flagsShown = effFlagsCanReplacing | effFlagsCanDoubleReplacing | effFlagsProgramChunks |
                               effFlagsIsSynth | effFlagsHasEditor;
    const struct {
        const char* field;
        int64_t value, expected;
    } record[] = {
        {"magic", e.magic, 0x56737450},          {"uniqueID", e.uniqueID, 0x71377674},
        {"numPrograms", e.numPrograms, 1},       {"numParams", e.numParams, 8},
        {"numInputs", e.numInputs, 2},           {"numOutputs", e.numOutputs, 2},
        {"version", e.version, 1},               {"initialDelay", e.initialDelay, 0},
        {"ioRatio", e.ioRatio == 1.0f, 1},       {"object", e.object != nullptr, 1},
        {"processReplacing", e.processReplacing != nullptr, 1},
        {"flags", e.flags & flagsShown, effFlagsCanReplacing | effFlagsHasEditor},
    };
    for (const auto& row : record) EXPECT_EQ(row.value, row.expected) << row.field;
}

TEST(PluginIdentity, DispatcherAnswers) {
    Instance plugin;
    char buffer[64];
    ERect* rect = nullptr;
    const struct {
        const char* what;
        int32_t opcode, index;
        intptr_t value;
        void* ptr;
        intptr_t expected;
    } answers[] = {
        {"vendor version", effGetVendorVersion, 0, 0, nullptr, 1100},
        {"interface version", effGetVstVersion, 0, 0, nullptr, 2400},
        {"identify", effIdentify, 0, 0, nullptr, 0x4E764566},
        {"category", effGetPlugCategory, 0, 0, nullptr, 0},
        {"can do MIDI", effCanDo, 0, 0, const_cast<char*>("receiveVstEvents"), 0},
        {"can do bypass", effCanDo, 0, 0, const_cast<char*>("bypass"), 0},
        {"tail", effGetTailSize, 0, 0, nullptr, 0},
        {"automatable", effCanBeAutomated, 3, 0, nullptr, 1},
        {"text to value", effString2Parameter, 0, 0, const_cast<char*>("0.5"), 0},
        {"chunk", effGetChunk, 0, 0, buffer, 0},
        {"meter", effGetVu, 0, 0, nullptr, 0},
        {"bypass", effSetBypass, 0, 1, nullptr, 0},
        {"MIDI program", effGetCurrentMidiProgram, 0, 0, nullptr, -1},
        {"MIDI inputs", effGetNumMidiInputChannels, 0, 0, nullptr, 0},
        {"total samples", effSetTotalSampleToProcess, 0, 4321, nullptr, 4321},
        {"parameter properties", effGetParameterProperties, 0, 0, buffer, 0},
        {"effect name", effGetEffectName, 0, 0, buffer, 0},
        {"product", effGetProductString, 0, 0, buffer, 0},
        {"second program ignored", effSetProgram, 0, 1, nullptr, 0},
        {"program", effGetProgram, 0, 0, nullptr, 0},
        {"key without an open editor", effEditKeyDown, 'a', 0, nullptr, 0},
        {"beyond the table", 80, 0, 0, nullptr, 0},
        {"far beyond", 1000, 0, 0, nullptr, 0},
        {"editor size", effEditGetRect, 0, 0, &rect, 1},
    };
    std::memset(buffer, 'x', sizeof(buffer));
    for (const auto& a : answers) EXPECT_EQ(plugin.dispatch(a.opcode, a.index, a.value, a.ptr), a.expected) << a.what;
    EXPECT_EQ(buffer[0], 'x');  // no name, product or properties: nothing written
    // The editor's size is known before any window exists: the panel picture's 1000 by 400.
    ASSERT_NE(rect, nullptr);
    const std::vector<int> corners = {rect->left, rect->top, rect->right, rect->bottom};
    EXPECT_EQ(corners, std::vector<int>({0, 0, 1000, 400}));
}

TEST(PluginIdentity, TextsAndDefaults) {
    // Names are cut to the eight characters hosts reserve; labels, displays and the program's
    // name are empty.
    const struct {
        const char* name;
        float defaultValue;
    } parameters[8] = {{"Volume", 0.5f}, {"Feedback", 1.0f}, {"Output", 0.5f}, {"Oversamp", 0.5f},
                       {"Cabinet", 1.0f}, {"CPU", 0.0f},     {"Input", 0.5f},  {"Stereo", 0.0f}};
    Instance plugin;
    // What the host's buffer holds, with nothing written past limit characters.
    auto text = [&](int32_t opcode, int32_t index, size_t limit = 8) {
        char buffer[32];
        std::memset(buffer, '#', sizeof(buffer));
        plugin.dispatch(opcode, index, 0, buffer);
        EXPECT_EQ(buffer[limit], '#') << "wrote past " << limit << " characters: " << opcode << " " << index;
        return std::string(buffer, strnlen(buffer, limit));
    };
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(text(effGetParamName, i), parameters[i].name) << i;
        EXPECT_EQ(text(effGetParamLabel, i), "") << i;
        EXPECT_EQ(text(effGetParamDisplay, i), "") << i;
        EXPECT_EQ(plugin.getParameter(i), parameters[i].defaultValue) << i;
    }
    EXPECT_EQ(text(effGetParamName, 8), "########");
    EXPECT_EQ(text(effGetParamName, -1), "########");
    EXPECT_EQ(text(effGetProgramName, 0), "");
    EXPECT_EQ(text(effGetVendorString, 0, 9), "Tarnvale");
    EXPECT_EQ(plugin.dispatch(effGetVendorString, 0, 0, nullptr), 0);  // no place to write to
}

TEST(PluginIdentity, ParametersRoundTrip) {
    Instance plugin;
    const float values[8] = {0.0f, 0.25f, 0.3173f, 1.0f, 0.0f, 1.0f, 0.999f, 1.0f};
    for (int i = 0; i < 8; ++i) plugin.setParameter(i, values[i]);
    // Indices out of range are ignored, and read as 0.
    for (int index : {8, -1, 100}) {
        plugin.setParameter(index, 0.7f);
        EXPECT_EQ(plugin.getParameter(index), 0.0f) << index;
    }
    for (int i = 0; i < 8; ++i) EXPECT_EQ(plugin.getParameter(i), values[i]) << i;
}

TEST(PluginIdentity, CloseDeletesTheInstance) {
    AEffect* effect = module().entry(hostCallback);
    ASSERT_NE(effect, nullptr);
    effect->dispatcher(effect, effOpen, 0, 0, nullptr, 0.0f);
    allocation::watched = effect->object;
    allocation::watchedFreed = false;
    EXPECT_EQ(effect->dispatcher(effect, effClose, 0, 0, nullptr, 0.0f), 1);
    EXPECT_TRUE(allocation::watchedFreed.load());
    allocation::watched = nullptr;
}
