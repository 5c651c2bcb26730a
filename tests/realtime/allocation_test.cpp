// Steady-state blocks allocate nothing: not in the Driver, not in the graphs, not in the filters,
// not when control values change between blocks.

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "support/AllocationCounter.h"
#include "support/TestSupport.h"

using namespace vrn;

TEST(Allocation, SteadyStateDriverBlocksAllocateNothing) {
    std::ifstream file(std::string(ORM_SOURCE_DIR) + "/examples/tube-stage.xml");
    std::stringstream description;
    description << file.rdbuf();
    auto driver = orm_test::loadSystem(description.str());
    driver->setSamplingRate(48000.0f);
    driver->setMaxBlockSize(256);
    std::vector<scalar> left(256, 0.1f), right(256, -0.1f);
    std::vector<scalar*> inputs{left.data(), right.data()};
    driver->process(inputs, 256);  // the first block delivers the initial control values

    auto& controls = *driver->getControls();
    orm_test::AllocationScope scope;
    for (int block = 0; block < 200; ++block) {
        if (block % 10 == 0) {
            // The control's writer runs elsewhere; only its delivery is on the audio path.
            orm_test::allocationCounting() = false;
            controls[0]->setValue(block % 20 == 0 ? 0.0f : 1.0f);
            controls[1]->setValue(0.01f * static_cast<float>(block % 100));
            orm_test::allocationCounting() = true;
        }
        driver->process(inputs, static_cast<size_t>(64 + block % 193));
    }
    EXPECT_EQ(0, scope.count());
}

TEST(Allocation, TheCounterSeesAllocations) {
    orm_test::AllocationScope scope;
    auto* leakCheck = new std::vector<int>(10);
    delete leakCheck;
    EXPECT_EQ(2, scope.count());
}
