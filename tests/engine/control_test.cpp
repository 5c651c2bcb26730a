// Controls: value functions, the dirty mark, and the spin lock the audio side never waits on.

#include <gtest/gtest.h>

#include "engine/Control.h"
#include "support/TestSupport.h"

using namespace vrn;

namespace {

std::shared_ptr<Property> property(int index, int type = Scalar) {
    auto result = std::make_shared<Property>();
    result->index = index;
    result->type = type;
    return result;
}

}  // namespace

TEST(Control, PropertiesStartWithTheRawValueAndTakeFunctions) {
    Control control("Vol", "Output", 0.5f);
    EXPECT_VRN_MESSAGE(control.setPropertyFunction(property(0), [](float v) { return v; }), VRNException,
                       "Control: Properties are not set.");
    auto list = std::make_shared<PropertyList>(PropertyList{property(0), property(1)});
    control.setProperties(list);
    EXPECT_TRUE(control.isDirty());
    EXPECT_EQ(0.5f, (*list)[1]->scalarValue);
    EXPECT_VRN_MESSAGE(control.setProperties(std::make_shared<PropertyList>()), VRNException,
                       "Control: Properties are already set.");

    control.setPropertyFunction((*list)[1], [](float v) { return v * 0.002f; });
    EXPECT_FLOAT_EQ(0.001f, (*list)[1]->scalarValue);  // applied at once
    control.setPropertyFunction(property(7), [](float) { return 9.0f; });  // another control's: nothing
    EXPECT_EQ(0.5f, (*list)[0]->scalarValue);
    control.setValue(2.0f);  // no range check
    EXPECT_EQ(2.0f, control.getValue());
    EXPECT_FLOAT_EQ(0.004f, (*list)[1]->scalarValue);
    EXPECT_THROW(control.setPropertyFunction((*list)[0], std::function<float(float)>()), std::bad_function_call);
    control.setValue(1.0f);  // the lock was released by the failure
    EXPECT_EQ(1.0f, (*list)[0]->scalarValue);
}

TEST(Control, AudioSideTakesTheLockWithOneTry) {
    Control control("Gain", "Volume", 0.0f);
    control.setProperties(std::make_shared<PropertyList>(PropertyList{property(0, 3)}));
    EXPECT_VRN_MESSAGE(control.setValue(1.0f), VRNException, "Control: Unknown property type: 3");
    ASSERT_TRUE(control.tryLock());
    EXPECT_FALSE(control.tryLock());  // busy: the Driver leaves it for the next block
    control.clearDirtyAndUnlock();
    EXPECT_FALSE(control.isDirty());
    EXPECT_TRUE(control.tryLock());
    control.clearDirtyAndUnlock();
}
