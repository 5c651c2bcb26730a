#include "engine/Kernels.h"

#include <cmath>
#include <utility>

#include "engine/Exceptions.h"

namespace vrn {

namespace {

// One Newton step on a reciprocal estimate, as the vector code refines its 12-bit estimate.
inline scalar reciprocal(scalar d) {
    scalar r = 1.0f / d;
    return (2.0f - d * r) * r;
}

}  // namespace

scalar sdot(const scalar* a, const scalar* b, int n) {
    scalar sum = 0.0f;
    for (int i = 0; i < n; ++i) sum += a[i] * b[i];
    return sum;
}

void saxpy(int n, scalar alpha, const scalar* x, scalar* y) {
    for (int i = 0; i < n; ++i) y[i] += alpha * x[i];
}

void sscal(int n, scalar alpha, scalar* x) {
    for (int i = 0; i < n; ++i) x[i] *= alpha;
}

int ludcmp(int n, scalar* a, int lda, int* pivots) {
    for (int i = 0; i < n; ++i) pivots[i] = i;
    if (n < 1) return 0;
    auto at = [&](int i, int j) -> scalar& { return a[i + static_cast<long>(lda) * j]; };
    for (int k = 0; k < n; ++k) {
        int p = k;
        scalar m = std::fabs(at(k, k));
        for (int i = k + 1; i < n; ++i)
            if (std::fabs(at(i, k)) > m) {
                m = std::fabs(at(i, k));
                p = i;
            }
        if (p != k) {
            std::swap(pivots[k], pivots[p]);
            for (int j = 0; j < n; ++j) std::swap(at(k, j), at(p, j));
        }
        scalar d = at(k, k);
        if (!(std::fabs(d) >= 1e-20f)) return -1;
        scalar r = reciprocal(d);
        for (int i = k + 1; i < n; ++i) at(i, k) *= r;
        for (int j = k + 1; j < n; ++j)
            for (int i = k + 1; i < n; ++i) at(i, j) -= at(k, j) * at(i, k);
    }
    return 0;
}

int lubksb(int n, const scalar* a, int lda, const int* pivots, scalar* x, const scalar* b) {
    auto at = [&](int i, int j) { return a[i + static_cast<long>(lda) * j]; };
    for (int i = 0; i < n; ++i) x[i] = b[pivots[i]];
    for (int k = 0; k < n - 1; ++k)
        for (int i = k + 1; i < n; ++i) x[i] -= x[k] * at(i, k);
    for (int k = n - 1; k >= 0; --k) {
        x[k] *= reciprocal(at(k, k));
        for (int i = 0; i < k; ++i) x[i] -= x[k] * at(i, k);
    }
    return 0;
}

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
}

}  // namespace vrn
