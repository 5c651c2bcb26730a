#pragma once
// Counts heap allocations while armed.  A program that uses it links a file that replaces the
// global operator new (tests/support/AllocationCounter.cpp, linked into every test program).

#include <atomic>

// Counts heap allocations made anywhere in the process (a loaded module included, when the test
// program exports its symbols) while switched on, and notes whether a watched block is freed.
namespace allocation {

extern std::atomic<bool> counting;
extern std::atomic<long> count;
extern std::atomic<const void*> watched;
extern std::atomic<bool> watchedFreed;

// RAII: counts allocations during its life.
class Counter {
public:
    Counter() {
        count = 0;
        counting = true;
    }
    ~Counter() { counting = false; }
    long allocations() const { return count.load(); }
};

}  // namespace allocation

namespace orm_test {

std::atomic<bool>& allocationCounting();
std::atomic<long>& allocationCount();

// Counts the allocations made during its lifetime.
class AllocationScope {
public:
    AllocationScope() {
        allocationCount() = 0;
        allocationCounting() = true;
    }
    ~AllocationScope() { allocationCounting() = false; }
    long count() const { return allocationCount().load(); }
};

}  // namespace orm_test
