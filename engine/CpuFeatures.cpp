#include "engine/CpuFeatures.h"

#if defined(_MSC_VER) && (defined(_M_X64) || defined(_M_IX86))
#include <intrin.h>
#define ORM_CPUID_MSVC 1
#elif defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#define ORM_CPUID_GNU 1
#endif

namespace vrn {

namespace {

// Registers eax, ebx, ecx, edx of a leaf (sub-leaf 0); false when the leaf is beyond the maximum.
bool cpuid(unsigned leaf, unsigned registers[4]) {
#if defined(ORM_CPUID_MSVC)
    int info[4];
    __cpuid(info, 0);
    if (static_cast<unsigned>(info[0]) < leaf) return false;
    __cpuidex(info, static_cast<int>(leaf), 0);
    for (int i = 0; i < 4; ++i) registers[i] = static_cast<unsigned>(info[i]);
    return true;
#elif defined(ORM_CPUID_GNU)
    if (__get_cpuid_max(0, nullptr) < leaf) return false;
    __cpuid_count(leaf, 0, registers[0], registers[1], registers[2], registers[3]);
    return true;
#else
    (void)leaf;
    (void)registers;
    return false;
#endif
}

}  // namespace

CpuFeatures readCpuFeatures() {
    CpuFeatures features;
    unsigned r[4] = {0, 0, 0, 0};
    if (cpuid(1, r)) {
        features.sse2 = (r[3] >> 26) & 1u;
        features.sse41 = (r[2] >> 19) & 1u;
        features.avx = (r[2] >> 28) & 1u;
        features.f16c = (r[2] >> 29) & 1u;
        features.rdrand = (r[2] >> 30) & 1u;
    }
    if (cpuid(7, r)) features.avx2 = (r[1] >> 5) & 1u;
    return features;
}

}  // namespace vrn
