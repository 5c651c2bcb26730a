#include "engine/Kernels.h"

namespace vrn {

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

}  // namespace vrn
