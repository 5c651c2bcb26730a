// Control values written from another thread while blocks run; suspension from another thread.
// Built and run under ThreadSanitizer by the test script.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "support/TestSupport.h"

using namespace vrn;

TEST(DriverThreads, ControlValuesCrossWithoutLossOrRace) {
    auto driver = orm_test::loadSystem(orm_test::systemOf(
        orm_test::gainGraph("A", "System", "0"), "<Output Graph=\"A\" Node=\"out\"/>",
        "<Controls><Control Name=\"Level\" DisplayName=\"Level\" Value=\"0\"><Properties>"
        "<Property Name=\"Gain\" Graph=\"A\" Element=\"G\"/></Properties></Control></Controls>"));
    driver->setMaxBlockSize(64);
    std::vector<scalar> ones(64, 1.0f);
    std::vector<scalar*> inputs{ones.data()};
    auto control = (*driver->getControls())[0];
    driver->process(inputs, 64);  // delivers the initial value before the writer starts

    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int i = 1; i <= 20000; ++i) control->setValue(static_cast<float>(i) / 20000.0f);
        done = true;
    });
    float last = 0.0f;
    while (!done) {
        driver->process(inputs, 64);
        float now = driver->getOutputs()[0][63];
        EXPECT_GE(now, last);  // values only ever move forward
        last = now;
    }
    writer.join();
    driver->process(inputs, 64);  // the final value is never lost
    EXPECT_EQ(1.0f, driver->getOutputs()[0][0]);
}

TEST(DriverThreads, SuspendWaitsForTheRunningBlock) {
    auto driver = orm_test::loadSystem(
        orm_test::systemOf(orm_test::gainGraph("A", "System", "0"), "<Output Graph=\"A\" Node=\"out\"/>"));
    driver->setMaxBlockSize(512);
    std::vector<scalar> ones(512, 1.0f);
    std::vector<scalar*> inputs{ones.data()};
    std::atomic<int> refused{0}, processed{0};
    std::atomic<bool> stop{false};
    std::thread audio([&] {
        while (!stop) {
            try {
                driver->process(inputs, 512);
                ++processed;
            } catch (const VRNException&) {
                ++refused;
            }
        }
    });
    while (processed.load() == 0) std::this_thread::yield();
    for (int i = 0; i < 50; ++i) {
        driver->setSuspended(true);
        // No block runs while suspended: at most the increment of one that ended just now.
        int before = processed.load();
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        EXPECT_LE(processed.load() - before, 1);
        driver->setSuspended(false);
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    stop = true;
    audio.join();
    EXPECT_GT(refused.load(), 0);
}
