// What the dispatcher's fuzz target found, kept as calls a host may make: each must return
// without undefined behaviour (this suite runs under UBSan in the test command).

#include <cmath>

#include <gtest/gtest.h>

#include "plugin/PluginHost.h"

using testhost::Instance;

TEST(PluginFuzzFindings, KeyCodesWithModifiersOutOfRange) {
    // The modifiers of a key come as a float; -2.6712e7 was converted to a byte unchecked.
    Instance plugin;
    plugin.start();
    for (float modifiers : {-2.6712e7f, std::nanf(""), INFINITY, 1e9f, 256.0f, -1.0f, 0.0f, 255.0f})
        for (int32_t opcode : {effEditKeyDown, effEditKeyUp}) {
            plugin.dispatch(opcode, 'a', 1000, nullptr, modifiers);
            plugin.dispatch(opcode, -5, -7, nullptr, modifiers);
        }
    EXPECT_EQ(plugin.close(), 1);
}
