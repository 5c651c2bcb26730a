// The plug-in as a host sees it before any audio: the record, the dispatcher's answers, the
// parameters' texts and defaults, written down from what a host reads.

#include <cstring>

#include <gtest/gtest.h>

#include "support/AllocationCounter.h"
#include "plugin/PluginHost.h"

using namespace testhost;

TEST(PluginIdentity, WhatAHostReads) {
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
    char buffer[64] = {};
    ERect* rect = nullptr;
    VstSpeakerArrangement mono{}, *place = &mono;
    mono.numChannels = 1;
    auto ask = [&](int32_t opcode, int32_t index = 0, intptr_t value = 0, void* ptr = nullptr) {
        return int64_t(plugin.dispatch(opcode, index, value, ptr));
    };
    // In order: a row may depend on the ones before it.  (The record's counts, flags and ids: the
    // independent host, which reads them by raw offsets.)
    const struct {
        const char* what;
        int64_t answer, expected;
    } rows[] = {
        {"version queries", versionQueries() - queries, 1},
        {"vendor version", ask(effGetVendorVersion), 1100},
        {"vendor without a place to write", ask(effGetVendorString), 0},
        {"vendor", ask(effGetVendorString, 0, 0, buffer), 1},
        {"a second program", ask(effSetProgram, 0, 1), 0},
        {"is ignored", ask(effGetProgram), 0},
        // Arrangements with a place missing: the one given is cleared, or nothing changes.
        {"arrangement asked", ask(effGetSpeakerArrangement, 0, reinterpret_cast<intptr_t>(&place)), 0},
        {"place cleared", place == nullptr, 1},
        {"arrangement without input", ask(effSetSpeakerArrangement, 0, 0, &mono), 1},
        {"arrangement without output", ask(effSetSpeakerArrangement, 0, reinterpret_cast<intptr_t>(&mono)), 1},
        {"key without an open editor", ask(effEditKeyDown, 'a'), 0},
        {"opcode beyond the table", ask(80), 0},
        // Known before any window exists: the panel picture's 1000 by 400.
        {"editor size", ask(effEditGetRect, 0, 0, &rect), 1},
        {"editor width", rect ? rect->right - rect->left : -1, 1000},
        {"editor height", rect ? rect->bottom - rect->top : -1, 400},
    };
    for (const auto& row : rows) EXPECT_EQ(row.answer, row.expected) << row.what;
    EXPECT_STREQ(buffer, "Tarnvale");
}

TEST(PluginIdentity, ParameterTextsDefaultsAndValues) {
    // Names are cut to the eight characters hosts reserve.
    const struct {
        const char* name;
        float defaultValue, value;
    } parameters[8] = {{"Volume", 0.5f, 0.0f},   {"Feedback", 1.0f, 0.25f}, {"Output", 0.5f, 0.3173f},
                       {"Oversamp", 0.5f, 1.0f}, {"Cabinet", 1.0f, 0.0f},   {"CPU", 0.0f, 1.0f},
                       {"Input", 0.5f, 0.999f},  {"Stereo", 0.0f, 1.0f}};
    Instance plugin;
    // What the host's buffer holds, with nothing written past eight characters.
    auto text = [&](int32_t opcode, int32_t index) {
        char buffer[16];
        std::memset(buffer, '#', sizeof(buffer));
        plugin.dispatch(opcode, index, 0, buffer);
        EXPECT_EQ(buffer[8], '#') << "wrote past eight characters: " << opcode << " " << index;
        return std::string(buffer, strnlen(buffer, 8));
    };
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(text(effGetParamName, i), parameters[i].name) << i;
        EXPECT_EQ(plugin.getParameter(i), parameters[i].defaultValue) << i;
        plugin.setParameter(i, parameters[i].value);
    }
    // Indices out of range are ignored, and read as 0.
    for (int index : {8, -1, 100}) {
        EXPECT_EQ(text(effGetParamName, index), "########") << index;
        plugin.setParameter(index, 0.7f);
        EXPECT_EQ(plugin.getParameter(index), 0.0f) << index;
    }
    for (int i = 0; i < 8; ++i) EXPECT_EQ(plugin.getParameter(i), parameters[i].value) << i;
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
