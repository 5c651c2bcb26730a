#pragma once
// Dense single-precision kernels on raw scalar arrays, column-major matrices.  Audio thread safe:
// no allocation, no locks.

#include <vector>

#include "engine/Types.h"

namespace vrn {

// Sum of a[i]*b[i].
scalar sdot(const scalar* a, const scalar* b, int n);
// y[i] += alpha*x[i].
void saxpy(int n, scalar alpha, const scalar* x, scalar* y);
// x[i] *= alpha.
void sscal(int n, scalar alpha, scalar* x);
// LU decomposition in place with partial pivoting (unit lower diagonal implicit); element (i, j)
// of the leading n×n block at a[i + lda*j].  Returns 0, or -1 when a pivot is below 1e-20.
int ludcmp(int n, scalar* a, int lda, int* pivots);
// Solves with the factors of ludcmp: x = A⁻¹ b.  x and b are different arrays.  Returns 0.
int lubksb(int n, const scalar* a, int lda, const int* pivots, scalar* x, const scalar* b);

// A matrix packed in groups of four columns for a fast repeated product with a vector.
class PackedMatrix {
public:
    // Load time: data is column-major, rows×columns.
    PackedMatrix(const scalar* data, int rows, int columns);
    // Repacks in place; the dimensions cannot change.
    void updateMatrix(const scalar* data, int rows, int columns);
    // y = M·x; no allocation.
    void multiply(const scalar* x, scalar* y, int xSize, int ySize);

    int getRows() const { return rows; }
    int getColumns() const { return columns; }

private:
    struct alignas(16) Group {
        scalar v[4];
    };
    std::vector<Group> packs;
    std::vector<Group> packedVector;
    int rows = 0;
    int columns = 0;
    int rowGroups = 0;
    int columnGroups = 0;
    bool rowsAreMultipleOfFour = false;
};

}  // namespace vrn
