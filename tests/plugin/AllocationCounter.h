#pragma once
// Counts heap allocations made anywhere in the process (the loaded module included) while
// switched on, and remembers which blocks are freed while tracking is on.

#include <atomic>
#include <cstddef>

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
