// The SSE4.1 form of the kernels: four lanes, the tail inserted into and extracted from lanes
// (insertps, extractps), so no load or store reaches past the last element.
#include "engine/KernelsInternal.h"

#ifdef ORM_KERNELS_X86

#include <cmath>
#include <cstring>

#include <smmintrin.h>

#if defined(_MSC_VER) && !defined(__clang__)
#define ORM_TARGET
#else
#define ORM_TARGET __attribute__((target("sse4.1")))
#endif

namespace vrn {
namespace kernels {
namespace sse41 {

namespace {

typedef __m128 V;
constexpr int kLanes = 4;

ORM_TARGET inline V vzero() { return _mm_setzero_ps(); }
ORM_TARGET inline V vset1(scalar v) { return _mm_set1_ps(v); }
ORM_TARGET inline V vload(const scalar* p) { return _mm_loadu_ps(p); }
ORM_TARGET inline void vstore(scalar* p, V v) { _mm_storeu_ps(p, v); }
ORM_TARGET inline V vadd(V a, V b) { return _mm_add_ps(a, b); }
ORM_TARGET inline V vmul(V a, V b) { return _mm_mul_ps(a, b); }

// count is 1 to 3; the lanes from count on are zero.
ORM_TARGET inline V vloadTail(const scalar* p, int count) {
    V v = _mm_load_ss(p);
    if (count > 1) v = _mm_insert_ps(v, _mm_load_ss(p + 1), 0x10);
    if (count > 2) v = _mm_insert_ps(v, _mm_load_ss(p + 2), 0x20);
    return v;
}

ORM_TARGET inline void vstoreTail(scalar* p, V v, int count) {
    _mm_store_ss(p, v);
    if (count > 1) {
        int bits = _mm_extract_ps(v, 1);
        std::memcpy(p + 1, &bits, sizeof(bits));
    }
    if (count > 2) {
        int bits = _mm_extract_ps(v, 2);
        std::memcpy(p + 2, &bits, sizeof(bits));
    }
}

ORM_TARGET inline scalar vsum(V v) {
    V s = _mm_add_ps(v, _mm_movehl_ps(v, v));
    s = _mm_add_ss(s, _mm_shuffle_ps(s, s, 1));
    return _mm_cvtss_f32(s);
}

}  // namespace

#include "engine/KernelsVector.inc"

}  // namespace sse41
}  // namespace kernels
}  // namespace vrn

#endif
