#pragma once
// The processor's instruction-set features, read by CPUID.  The one place that knows how to ask.

namespace vrn {

struct CpuFeatures {
    bool sse2 = false;
    bool sse41 = false;
    bool avx = false;
    bool f16c = false;
    bool rdrand = false;
    bool avx2 = false;
};

// Any thread, no allocation.  All false on a processor that is not x86.
CpuFeatures readCpuFeatures();

}  // namespace vrn
