#pragma once
// Vector primitives on raw scalar arrays.  Audio thread safe: no allocation, no locks.

#include "engine/Types.h"

namespace vrn {

// Sum of a[i]*b[i].
scalar sdot(const scalar* a, const scalar* b, int n);
// y[i] += alpha*x[i].
void saxpy(int n, scalar alpha, const scalar* x, scalar* y);
// x[i] *= alpha.
void sscal(int n, scalar alpha, scalar* x);

}  // namespace vrn
