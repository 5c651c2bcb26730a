#pragma once
// Counts heap allocations while armed, by replacing the global operator new in the test program
// that includes this header (include it from exactly one file of a program).

#include <atomic>
#include <cstdlib>
#include <new>

namespace orm_test {

inline std::atomic<bool>& allocationCounting() {
    static std::atomic<bool> armed{false};
    return armed;
}
inline std::atomic<long>& allocationCount() {
    static std::atomic<long> count{0};
    return count;
}

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

void* operator new(std::size_t size) {
    if (orm_test::allocationCounting().load(std::memory_order_relaxed)) ++orm_test::allocationCount();
    if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
