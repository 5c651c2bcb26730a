#pragma once
// The floating-point mode of one host call: every function the host calls runs in the plug-in's
// own mode and gives the caller's MXCSR back on return, whatever way it returns.  Recursive
// filters decaying into silence would otherwise crawl through denormal arithmetic, and a host
// that unmasks an exception would otherwise see it trap inside the amplifier; the host's own
// arithmetic on that thread must not change.

#include <xmmintrin.h>

#include <cstdint>

class DenormalGuard {
public:
    static constexpr uint32_t kFlushToZero = 1u << 15;
    static constexpr uint32_t kDenormalsAreZero = 1u << 6;
    // Round to nearest, every exception masked, no sticky flags: the processor's reset state.
    static constexpr uint32_t kDefaultMode = 0x1f80u;
    static constexpr uint32_t kMode = kDefaultMode | kFlushToZero | kDenormalsAreZero;

    DenormalGuard() : saved(_mm_getcsr()) { _mm_setcsr(kMode); }
    ~DenormalGuard() { _mm_setcsr(saved); }
    DenormalGuard(const DenormalGuard&) = delete;
    DenormalGuard& operator=(const DenormalGuard&) = delete;

private:
    uint32_t saved;
};
