#pragma once
// The pieces behind the dispatching kernels of Kernels.h: the instruction-set level and the
// variants for each level.  For the kernels' own sources, tests and benchmarks; not for filters.

#include "engine/Types.h"

namespace vrn {
namespace kernels {

// 0: SSE2, 1: SSE4.1, 2: AVX, 3: AVX with F16C and RDRAND, 4: the same with AVX2.  Levels 3 and 4
// run the AVX code.  Aborts the process on a processor without SSE2.
int detectLevel();
// The straight loops of namespace plain, chosen only on request: their sums run in one order on
// every processor, so whatever they compute is the same everywhere (the data generators use them).
constexpr int kPlainLevel = -2;
// The level the kernels use now.  On first use: the level named by the environment variable
// ORM_KERNELS ("plain", "sse2", "sse4.1", "avx") where this processor runs it, else the detected one.
int currentLevel();
// Every kernel runs the code of this level from now on (a level the processor cannot run ends in
// an illegal instruction).  -1 detects again at the next call.
void forceLevel(int level);
// Whether this processor runs the code of a level; false for every vector level off x86.
bool canRun(int level);
// The reciprocal every variant scales a pivot column by.  A correctly rounded quotient refined by
// one Newton step: the processor's own estimate (rcpss) differs between makers in its last bits,
// and the elimination carries that into the factors, so the estimate would make every result
// depend on the processor.  One division a pivot costs nothing beside the elimination.
inline scalar refinedReciprocal(scalar d) {
    const scalar r = 1.0f / d;
    return (2.0f - d * r) * r;
}

// The reference: straight loops in the order the vector forms follow.
namespace plain {
scalar sdot(const scalar* a, const scalar* b, int n);
void saxpy(int n, scalar alpha, const scalar* x, scalar* y);
void sscal(int n, scalar alpha, scalar* x);
int ludcmp(int n, scalar* a, int lda, int* pivots);
int lubksb(int n, const scalar* a, int lda, const int* pivots, scalar* x, const scalar* b);
}  // namespace plain

#define ORM_KERNEL_VARIANT_DECLARATIONS                                        \
    scalar sdot(const scalar* a, const scalar* b, int n);                      \
    void saxpy(int n, scalar alpha, const scalar* x, scalar* y);               \
    void sscal(int n, scalar alpha, scalar* x);                                \
    int ludcmp(int n, scalar* a, int lda, int* pivots);                        \
    int lubksb(int n, const scalar* a, int lda, const int* pivots, scalar* x, const scalar* b);

#if defined(__x86_64__) || defined(_M_X64)
#define ORM_KERNELS_X86 1
namespace sse2 {
ORM_KERNEL_VARIANT_DECLARATIONS
}
namespace sse41 {
ORM_KERNEL_VARIANT_DECLARATIONS
}
namespace avx {
ORM_KERNEL_VARIANT_DECLARATIONS
}
#endif

#undef ORM_KERNEL_VARIANT_DECLARATIONS

}  // namespace kernels
}  // namespace vrn
