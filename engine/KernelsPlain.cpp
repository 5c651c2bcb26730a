// The kernels as straight loops: the reference the vector forms are checked against, and the
// form used off x86.
#include <cmath>
#include <utility>

#include "engine/KernelsInternal.h"

namespace vrn {
namespace kernels {
namespace plain {

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
        scalar r = refinedReciprocal(d);
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
        x[k] *= refinedReciprocal(at(k, k));
        for (int i = 0; i < k; ++i) x[i] -= x[k] * at(i, k);
    }
    return 0;
}

}  // namespace plain
}  // namespace kernels
}  // namespace vrn
