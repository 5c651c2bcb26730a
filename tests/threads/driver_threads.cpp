// Suspension from another thread while blocks run (control values written meanwhile: the plugin
// threads test).  Built and run under ThreadSanitizer by the test script.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "support/TestSupport.h"

using namespace vrn;

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
