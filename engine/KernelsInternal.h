#pragma once
// The pieces behind the dispatching kernels of Kernels.h: the instruction-set level and the
// variants for each level.  For the kernels' own sources, tests and benchmarks; not for filters.

#include "engine/Types.h"

namespace vrn {
namespace kernels {

// 0: SSE2, 1: SSE4.1, 2: AVX, 3: AVX with F16C and RDRAND, 4: the same with AVX2.  Levels 3 and 4
// run the AVX code.  Aborts the process on a processor without SSE2.
int detectLevel();
// The level the kernels use now; detects it on first use.
int currentLevel();
// Tests and benchmarks only: every kernel runs the code of this level from now on (a level the
// processor cannot run ends in an illegal instruction).  -1 detects again at the next call.
void forceLevel(int level);
// Whether this processor runs the code of a level; false for every level off x86.
bool canRun(int level);

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
