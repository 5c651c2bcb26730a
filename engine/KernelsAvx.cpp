// The AVX form of the kernels: eight lanes, the tail by masked loads and stores (vmaskmovps),
// which neither read nor write the masked-out lanes.  Only reached after CPUID has shown AVX.
#include "engine/KernelsInternal.h"

#ifdef ORM_KERNELS_X86

#include <cmath>

#include <immintrin.h>

#if defined(_MSC_VER) && !defined(__clang__)
#define ORM_TARGET
#else
#define ORM_TARGET __attribute__((target("avx")))
#endif

namespace vrn {
namespace kernels {
namespace avx {

namespace {

typedef __m256 V;
constexpr int kLanes = 8;

ORM_TARGET inline V vzero() { return _mm256_setzero_ps(); }
ORM_TARGET inline V vset1(scalar v) { return _mm256_set1_ps(v); }
ORM_TARGET inline V vload(const scalar* p) { return _mm256_loadu_ps(p); }
ORM_TARGET inline void vstore(scalar* p, V v) { _mm256_storeu_ps(p, v); }
ORM_TARGET inline V vadd(V a, V b) { return _mm256_add_ps(a, b); }
ORM_TARGET inline V vmul(V a, V b) { return _mm256_mul_ps(a, b); }

// Lanes below count are on: the lane indices compared with count.
ORM_TARGET inline __m256i laneMask(int count) {
    const V indices = _mm256_setr_ps(0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 7.0f);
    return _mm256_castps_si256(_mm256_cmp_ps(indices, _mm256_set1_ps(static_cast<scalar>(count)), _CMP_LT_OQ));
}

ORM_TARGET inline V vloadTail(const scalar* p, int count) { return _mm256_maskload_ps(p, laneMask(count)); }
ORM_TARGET inline void vstoreTail(scalar* p, V v, int count) { _mm256_maskstore_ps(p, laneMask(count), v); }

ORM_TARGET inline scalar vsum(V v) {
    __m128 s = _mm_add_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1));
    s = _mm_add_ps(s, _mm_movehl_ps(s, s));
    s = _mm_add_ss(s, _mm_shuffle_ps(s, s, 1));
    return _mm_cvtss_f32(s);
}

}  // namespace

#include "engine/KernelsVector.inc"

}  // namespace avx
}  // namespace kernels
}  // namespace vrn

#endif
