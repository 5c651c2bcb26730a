// Replaces the global operator new of this test program so that allocations can be counted.
// Kept apart from the tests so the compiler does not pair our new with library deletes.

#include <cstdlib>
#include <new>

#include "support/AllocationCounter.h"

namespace orm_test {

std::atomic<bool>& allocationCounting() {
    static std::atomic<bool> armed{false};
    return armed;
}

std::atomic<long>& allocationCount() {
    static std::atomic<long> count{0};
    return count;
}

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
