#pragma once
// Counts heap allocations while armed.  A program that uses it links a file that replaces the
// global operator new (as tests/realtime/allocation_counter.cpp does).

#include <atomic>

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
