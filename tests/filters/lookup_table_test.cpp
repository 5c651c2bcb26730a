// The tube-stage table: grid, interpolation, clamping, and its properties.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "engine/Context.h"
#include "filters/LookupTableFilter.h"
#include "support/TestSupport.h"

using namespace vrn;

namespace {

struct TableFixture : ::testing::Test {
    void SetUp() override {
        Properties properties;
        properties["VinMin"] = "-1";
        properties["VinMax"] = "2";
        properties["DeltaV"] = "0.5";
        properties["Vout"] = "10|20|30|40|40|60|70";
        table.init("V1", properties, context);
        table.setMaxBlockSize(16);
    }
    std::shared_ptr<DSPContext> context = std::make_shared<DSPContext>();
    LookupTableFilter table;
};

}  // namespace

TEST_F(TableFixture, InterpolatesFromTheSecondCellAndClampsAtBothEnds) {
    EXPECT_FLOAT_EQ(25.0f, table.process(-1.0f + 1.5f * 0.5f));  // mean of entries 1 and 2
    EXPECT_EQ(10.0f, table.process(-1.0f + 0.5f * 0.5f));        // the first cell gives entry 0 exactly
    EXPECT_EQ(10.0f, table.process(-1.0f + 0.99f * 0.5f));
    EXPECT_EQ(10.0f, table.process(-100.0f));
    EXPECT_EQ(70.0f, table.process(2.0f));
    EXPECT_EQ(70.0f, table.process(2.2f));    // the last cell, too, gives its entry
    EXPECT_FLOAT_EQ(62.5f, table.process(1.625f));  // a quarter into the cell 60..70
    EXPECT_EQ(70.0f, table.process(1e6f));
    EXPECT_EQ(40.0f, table.process(0.75f));  // a flat cell returns its value without rounding
    // Past the range of int, the processor's conversion gives the lowest int: entry 0.
    EXPECT_EQ(10.0f, table.process(1e12f));
    EXPECT_EQ(10.0f, table.process(std::numeric_limits<float>::quiet_NaN()));
}

TEST_F(TableFixture, BlockKernelMatchesTheSampleMappingInPlace) {
    scalar samples[7] = {-2.0f, -0.75f, -0.2f, 0.1f, 0.6f, 1.3f, 5.0f};
    scalar expected[7];
    for (int i = 0; i < 7; ++i) expected[i] = table.process(samples[i]);
    table.process(samples, samples, 7);  // in and out the same array
    for (int i = 0; i < 7; ++i) EXPECT_EQ(expected[i], samples[i]) << i;

    std::vector<scalar*> inputs{samples};
    table.process(inputs, 7);
    for (int i = 0; i < 7; ++i) EXPECT_EQ(table.process(samples[i]), table.getOutput(0)[i]);
    EXPECT_EQ(nullptr, table.process(samples, static_cast<size_t>(7)));
}

TEST_F(TableFixture, TablesArriveAsSharedVectorsOfOneLength) {
    auto same = std::make_shared<std::vector<scalar>>(7, 1.0f);
    table.propertyChanged("Vout", same);
    EXPECT_EQ(same, table.getValues());  // shared, not copied
    EXPECT_EQ(1.0f, table.process(0.3f));
    EXPECT_VRN_MESSAGE(table.propertyChanged("Vout", std::make_shared<std::vector<scalar>>(8, 1.0f)),
                       InvalidArgumentException,
                       "LookupTableFilter: size of Vout (7) is not equal to the size of values (8 )");
    EXPECT_EQ(same, table.getValues());
    EXPECT_VRN_MESSAGE(table.propertyChanged("Vout", std::make_shared<std::vector<scalar>>()), InvalidArgumentException,
                       "LookupTableFiter: empty Vout values array. ");
    EXPECT_VRN_MESSAGE(table.propertyChanged("Vin", same), InvalidArgumentException,
                       "LookupTableFilter: Unknown property Vin");
}

TEST_F(TableFixture, ChangingTheGridKeepsAndStretchesTheTable) {
    Properties grid;
    grid["DeltaV"] = "1";
    table.propertiesChanged(grid);
    EXPECT_FLOAT_EQ(25.0f, table.process(-1.0f + 1.5f));
    EXPECT_EQ(7u, table.getValues()->size());
}

TEST(LookupTableFilter, SmallTablesAndMissingData) {
    auto context = std::make_shared<DSPContext>();
    LookupTableFilter one;
    one.init("one", context);
    one.propertyChanged("Vout", std::make_shared<std::vector<scalar>>(1, 3.0f));
    EXPECT_EQ(3.0f, one.process(-5.0f));
    EXPECT_EQ(3.0f, one.process(5.0f));

    LookupTableFilter empty;
    empty.init("V2", context);
    empty.setMaxBlockSize(4);
    scalar x[4] = {0, 0, 0, 0};
    empty.process(x, x, 0);  // zero frames without a table: no failure
    EXPECT_VRN_MESSAGE(empty.process(x, x, 4), VRNException, "LookupTableFilter: V2 lookup data is not defined.");
    EXPECT_VRN_MESSAGE(empty.setMaxBlockSize(0), VRNException, "LookupTableFilter: Invalid maxBlockSize0");
}

TEST(LookupTableFilter, RequiresItsGridOnlyWhenPropertiesAreGiven) {
    auto context = std::make_shared<DSPContext>();
    auto initWith = [&](Properties properties) {
        LookupTableFilter filter;
        filter.init("V3", properties, context);
    };
    Properties properties;
    initWith(properties);  // no properties: legal
    properties["VinMin"] = "0";
    EXPECT_VRN_MESSAGE(initWith(properties), InvalidArgumentException, "VinMax is not defined. LookupTableAmp name=V3");
    properties["VinMax"] = "1";
    properties["DeltaV"] = "0";
    EXPECT_VRN_MESSAGE(initWith(properties), InvalidArgumentException,
                       "DeltaV must be greater than 0. LookupTableAmp name=V3");
    properties["DeltaV"] = "0.1";
    properties["UseInputCurrent"] = "true";  // not a property of this filter: ignored
    initWith(properties);
}
