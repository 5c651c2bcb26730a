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

TEST_F(TableFixture, InterpolatesFromTheSecondCellClampsAtBothEndsAndRunsInPlace) {
    // {input, output}: the first and the last cell give their entry exactly, a flat cell its value
    // without rounding; past the range of int, the processor's conversion gives the lowest int.
    const std::pair<scalar, scalar> cases[] = {
        {-1.0f + 1.5f * 0.5f, 25.0f}, {-1.0f + 0.5f * 0.5f, 10.0f}, {-1.0f + 0.99f * 0.5f, 10.0f}, {-100.0f, 10.0f},
        {2.0f, 70.0f}, {2.2f, 70.0f}, {1.625f, 62.5f}, {1e6f, 70.0f}, {0.75f, 40.0f}, {1e12f, 10.0f},
        {std::numeric_limits<float>::quiet_NaN(), 10.0f}};
    std::vector<scalar> in, expected;
    for (const auto& [x, y] : cases) {
        EXPECT_FLOAT_EQ(table.process(x), y) << x;
        in.push_back(x);
        expected.push_back(y);
    }
    // The block kernel, in place, gives the same values, and so does the graph's form.
    std::vector<scalar*> inputs{in.data()};
    table.process(inputs, in.size());
    for (size_t i = 0; i < in.size(); ++i) EXPECT_FLOAT_EQ(table.getOutput(0)[i], expected[i]) << i;
    table.process(in.data(), in.data(), in.size());
    for (size_t i = 0; i < in.size(); ++i) EXPECT_FLOAT_EQ(in[i], expected[i]) << i;
}

TEST_F(TableFixture, TablesArriveAsSharedVectorsOfOneLengthOnAGridThatMayChange) {
    auto same = std::make_shared<std::vector<scalar>>(7, 1.0f);
    table.propertyChanged("Vout", same);
    EXPECT_EQ(same, table.getValues());  // shared, not copied
    EXPECT_EQ(1.0f, table.process(0.3f));

    // A new grid stretches the table as it is.
    table.propertyChanged("Vout", std::make_shared<std::vector<scalar>>(std::vector<scalar>{10, 20, 30, 40, 40, 60, 70}));
    Properties grid;
    grid["DeltaV"] = "1";
    table.propertiesChanged(grid);
    EXPECT_FLOAT_EQ(25.0f, table.process(-1.0f + 1.5f));
}

TEST(LookupTableFilter, SmallTablesMissingDataAndTheGridsChecks) {
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
    EXPECT_VRN_MESSAGE(empty.setMaxBlockSize(0), VRNException, "LookupTableFilter: Invalid maxBlockSize0");

    // The grid is required only when properties are given.
    auto initWith = [&](Properties properties) {
        LookupTableFilter filter;
        filter.init("V3", properties, context);
    };
    Properties properties;
    initWith(properties);
    properties["VinMin"] = "0";
    properties["VinMax"] = "1";
    properties["DeltaV"] = "0";
    EXPECT_VRN_MESSAGE(initWith(properties), InvalidArgumentException,
                       "DeltaV must be greater than 0. LookupTableAmp name=V3");
}
