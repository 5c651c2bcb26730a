#pragma once
// Flush-to-zero and denormals-are-zero for the span of one host call: recursive filters decaying
// into silence would otherwise crawl through denormal arithmetic.

#include <xmmintrin.h>

#include <cstdint>

class DenormalGuard {
public:
    static constexpr uint32_t kFlushToZero = 1u << 15;
    static constexpr uint32_t kDenormalsAreZero = 1u << 6;

    // Sets both bits on the calling thread for good.
    static void setOnThisThread() { _mm_setcsr(_mm_getcsr() | kFlushToZero | kDenormalsAreZero); }

    DenormalGuard() : saved(_mm_getcsr()) { _mm_setcsr(saved | kFlushToZero | kDenormalsAreZero); }
    ~DenormalGuard() {
        if (restore) _mm_setcsr(saved);
    }
    DenormalGuard(const DenormalGuard&) = delete;
    DenormalGuard& operator=(const DenormalGuard&) = delete;

    // Leaves the bits set when the guard goes: the path on which an engine failure travels on.
    void keepOnExit() { restore = false; }

private:
    uint32_t saved;
    bool restore = true;
};
