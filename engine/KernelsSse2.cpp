// The SSE2 form of the kernels: four lanes, the tail loaded and stored by the element (movss,
// movq), never past the last one.
#include "engine/KernelsInternal.h"

#ifdef ORM_KERNELS_X86

#include <cmath>

#include <emmintrin.h>

#if defined(_MSC_VER) && !defined(__clang__)
#define ORM_TARGET
#else
#define ORM_TARGET __attribute__((target("sse2")))
#endif

namespace vrn {
namespace kernels {
namespace sse2 {

namespace {

typedef __m128 V;
constexpr int kLanes = 4;

ORM_TARGET inline V vzero() { return _mm_setzero_ps(); }
ORM_TARGET inline V vset1(scalar v) { return _mm_set1_ps(v); }
ORM_TARGET inline V vload(const scalar* p) { return _mm_loadu_ps(p); }
ORM_TARGET inline void vstore(scalar* p, V v) { _mm_storeu_ps(p, v); }
ORM_TARGET inline V vadd(V a, V b) { return _mm_add_ps(a, b); }
ORM_TARGET inline V vmul(V a, V b) { return _mm_mul_ps(a, b); }

// count is 1 to 3: the elements go into their lanes one load at a time, the rest stay zero.
ORM_TARGET inline V vloadTail(const scalar* p, int count) {
    if (count == 1) return _mm_load_ss(p);
    const V low = _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));  // movq: no alignment
    return count == 2 ? low : _mm_movelh_ps(low, _mm_load_ss(p + 2));
}

ORM_TARGET inline void vstoreTail(scalar* p, V v, int count) {
    if (count == 1) {
        _mm_store_ss(p, v);
        return;
    }
    _mm_storel_epi64(reinterpret_cast<__m128i*>(p), _mm_castps_si128(v));
    if (count == 3) _mm_store_ss(p + 2, _mm_movehl_ps(v, v));
}

ORM_TARGET inline scalar vsum(V v) {
    V s = _mm_add_ps(v, _mm_movehl_ps(v, v));
    s = _mm_add_ss(s, _mm_shuffle_ps(s, s, 1));
    return _mm_cvtss_f32(s);
}

}  // namespace

#include "engine/KernelsVector.inc"

}  // namespace sse2
}  // namespace kernels
}  // namespace vrn

#endif
