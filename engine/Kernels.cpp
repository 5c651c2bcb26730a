#include "engine/Kernels.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "engine/CpuFeatures.h"
#include "engine/Exceptions.h"
#include "engine/KernelsInternal.h"

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#include <xmmintrin.h>
#define ORM_PACKED_SSE2 1
#endif

namespace vrn {

namespace kernels {

namespace {
// -1 until the first kernel call.  Two threads may detect at once; both store the same value.
std::atomic<int> level{-1};
}  // namespace

int detectLevel() {
#ifdef ORM_KERNELS_X86
    const CpuFeatures cpu = readCpuFeatures();
    if (cpu.avx && cpu.f16c && cpu.rdrand && cpu.avx2) return 4;
    if (cpu.avx && cpu.f16c && cpu.rdrand) return 3;
    if (cpu.avx) return 2;
    if (cpu.sse41) return 1;
    if (cpu.sse2) return 0;
    std::abort();
#else
    return 0;
#endif
}

namespace {

// The level ORM_KERNELS asks for, or -1 for none (or one this processor cannot run).
int requestedLevel() {
    const char* name = std::getenv("ORM_KERNELS");
    if (!name) return -1;
    static const struct {
        const char* name;
        int level;
    } kNames[] = {{"plain", kPlainLevel}, {"sse2", 0}, {"sse4.1", 1}, {"avx", 2}};
    for (const auto& entry : kNames)
        if (std::strcmp(name, entry.name) == 0) return canRun(entry.level) ? entry.level : -1;
    return -1;
}

}  // namespace

int currentLevel() {
    int value = level.load(std::memory_order_relaxed);
    if (value == -1) {
        value = requestedLevel();
        if (value == -1) value = detectLevel();
        level.store(value, std::memory_order_relaxed);
    }
    if (value < kPlainLevel) std::abort();
    return value;
}

void forceLevel(int value) { level.store(value, std::memory_order_relaxed); }

bool canRun(int value) {
    if (value == kPlainLevel) return true;
#ifdef ORM_KERNELS_X86
    return value >= 0 && value <= detectLevel();
#else
    return false;
#endif
}

}  // namespace kernels

// Each entry: one integer test, then a direct call.
#ifdef ORM_KERNELS_X86
#define ORM_DISPATCH(call)                                        \
    const int selected = kernels::currentLevel();                 \
    if (selected >= 2) return kernels::avx::call;                 \
    if (selected == 1) return kernels::sse41::call;               \
    if (selected == 0) return kernels::sse2::call;                \
    return kernels::plain::call;
#else
#define ORM_DISPATCH(call) return kernels::plain::call;
#endif

scalar sdot(const scalar* a, const scalar* b, int n) { ORM_DISPATCH(sdot(a, b, n)) }

void saxpy(int n, scalar alpha, const scalar* x, scalar* y) { ORM_DISPATCH(saxpy(n, alpha, x, y)) }

void sscal(int n, scalar alpha, scalar* x) { ORM_DISPATCH(sscal(n, alpha, x)) }

int ludcmp(int n, scalar* a, int lda, int* pivots) { ORM_DISPATCH(ludcmp(n, a, lda, pivots)) }

int lubksb(int n, const scalar* a, int lda, const int* pivots, scalar* x, const scalar* b) {
    ORM_DISPATCH(lubksb(n, a, lda, pivots, x, b))
}

#undef ORM_DISPATCH

PackedMatrix::PackedMatrix(const scalar* data, int matrixRows, int matrixColumns)
    : rows(matrixRows),
      columns(matrixColumns),
      rowGroups(((matrixRows - 1) >> 2) + 1),
      columnGroups(((matrixColumns - 1) >> 2) + 1),
      rowsAreMultipleOfFour((matrixRows & 3) == 0) {
    packs.resize(static_cast<size_t>(columnGroups) * static_cast<size_t>(rows));
    packedVector.resize(static_cast<size_t>(columnGroups));
    updateMatrix(data, matrixRows, matrixColumns);
}

void PackedMatrix::updateMatrix(const scalar* data, int matrixRows, int matrixColumns) {
    if (matrixRows != rows || matrixColumns != columns)
        throw VRNException("Changing matrix dimensions is not allowed in updateMatrix. Old dimensions mxn=" +
                           toString(rows) + "x" + toString(columns) + ". New dimensions mxn" + toString(matrixRows) +
                           "x" + toString(matrixColumns));
    for (int g = 0; g < columnGroups; ++g)
        for (int r = 0; r < rows; ++r)
            for (int lane = 0; lane < 4; ++lane) {
                int c = 4 * g + lane;
                packs[static_cast<size_t>(g) * rows + r].v[lane] =
                    c < columns ? data[r + static_cast<long>(rows) * c] : 0.0f;
            }
}

void PackedMatrix::multiply(const scalar* x, scalar* y, int xSize, int ySize) {
    if (xSize != columns)
        throw VRNException("Invalid size of the x vector in matrix-vector product. Expected " + toString(columns) +
                           ", got " + toString(xSize) + ".");
    if (ySize != rows)
        throw VRNException("Invalid size of the y vector in matrix-vector product. Expected " + toString(rows) +
                           ", got " + toString(ySize) + ".");
    for (int g = 0; g < columnGroups; ++g)
        for (int lane = 0; lane < 4; ++lane) {
            int c = 4 * g + lane;
            packedVector[static_cast<size_t>(g)].v[lane] = c < columns ? x[c] : 0.0f;
        }
#ifdef ORM_PACKED_SSE2
    // Four lanes are SSE2, which every x86-64 has: no dispatch.
    const __m128* matrix = reinterpret_cast<const __m128*>(packs.data());
    const __m128* vector = reinterpret_cast<const __m128*>(packedVector.data());
    const size_t blockStride = static_cast<size_t>(rows);
    for (int r = 0; r < rows; ++r) {
        __m128 acc = _mm_setzero_ps();
        int g = 0;
        for (; g + 1 < columnGroups; g += 2) {
            const __m128* p0 = matrix + static_cast<size_t>(g) * blockStride + r;
            const __m128* p1 = p0 + blockStride;
            if (g + 2 < columnGroups) _mm_prefetch(reinterpret_cast<const char*>(p1 + blockStride), _MM_HINT_T0);
            acc = _mm_add_ps(acc, _mm_add_ps(_mm_mul_ps(*p1, vector[g + 1]), _mm_mul_ps(*p0, vector[g])));
        }
        if (g < columnGroups) acc = _mm_add_ps(acc, _mm_mul_ps(matrix[static_cast<size_t>(g) * blockStride + r], vector[g]));
        // Upper pair onto the lower pair, then the two remaining lanes.
        __m128 pairs = _mm_add_ps(acc, _mm_movehl_ps(acc, acc));
        y[r] = _mm_cvtss_f32(_mm_add_ss(pairs, _mm_shuffle_ps(pairs, pairs, 1)));
    }
#else
    for (int r = 0; r < rows; ++r) {
        scalar acc[4] = {0, 0, 0, 0};
        int g = 0;
        for (; g + 1 < columnGroups; g += 2) {
            const Group& p0 = packs[static_cast<size_t>(g) * rows + r];
            const Group& p1 = packs[static_cast<size_t>(g + 1) * rows + r];
            for (int lane = 0; lane < 4; ++lane)
                acc[lane] += p1.v[lane] * packedVector[static_cast<size_t>(g + 1)].v[lane] +
                             p0.v[lane] * packedVector[static_cast<size_t>(g)].v[lane];
        }
        if (g < columnGroups) {
            const Group& p0 = packs[static_cast<size_t>(g) * rows + r];
            for (int lane = 0; lane < 4; ++lane) acc[lane] += p0.v[lane] * packedVector[static_cast<size_t>(g)].v[lane];
        }
        scalar low = acc[0] + acc[2];
        scalar high = acc[1] + acc[3];
        y[r] = low + high;
    }
#endif
}

}  // namespace vrn
