// The vector kernels at every instruction-set level this processor runs, against the plain loops
// and against double-precision arithmetic.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#ifdef __linux__
#include <sys/mman.h>
#include <unistd.h>
#endif

#include "engine/Exceptions.h"
#include "engine/Kernels.h"
#include "engine/KernelsInternal.h"

using namespace vrn;

namespace {

constexpr scalar kGuard = -12345.5f;
constexpr int kGuardLength = 16;
constexpr int kMaxLength = 67;

// The levels with code of their own this processor can run, and always the plain form.
std::vector<int> runnableLevels() {
    std::vector<int> levels;
    for (int level = 0; level <= 2; ++level)
        if (kernels::canRun(level)) levels.push_back(level);
    return levels;
}

// Restores detection when a test ends, whatever it forced.
struct LevelGuard {
    ~LevelGuard() { kernels::forceLevel(-1); }
};

std::vector<scalar> randomVector(std::mt19937& random, int n, int guard = kGuardLength) {
    std::uniform_real_distribution<scalar> value(-1.0f, 1.0f);
    std::vector<scalar> v(static_cast<size_t>(n + guard), kGuard);
    for (int i = 0; i < n; ++i) v[static_cast<size_t>(i)] = value(random);
    return v;
}

bool guardIntact(const std::vector<scalar>& v, int n) {
    for (size_t i = static_cast<size_t>(n); i < v.size(); ++i)
        if (v[i] != kGuard) return false;
    return true;
}

// Arrays whose last element sits right before a page that may not be touched at all.
class PageEdge {
public:
    PageEdge() {
#ifdef __linux__
        page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        void* memory = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) return;
        base = static_cast<char*>(memory);
        if (mprotect(base + page, page, PROT_NONE) != 0) return;
        usable = true;
#endif
    }
    ~PageEdge() {
#ifdef __linux__
        if (base) munmap(base, 2 * page);
#endif
    }
    bool isUsable() const { return usable; }
    // n floats ending at the protected page, filled from values.
    scalar* place(const scalar* values, int n) {
        scalar* p = reinterpret_cast<scalar*>(base + page) - n;
        if (n > 0) std::memcpy(p, values, static_cast<size_t>(n) * sizeof(scalar));
        return p;
    }

private:
    char* base = nullptr;
    size_t page = 0;
    bool usable = false;
};

}  // namespace

TEST(Kernels, DetectionAndForcing) {
    LevelGuard restore;
    const int detected = kernels::detectLevel();
    EXPECT_GE(detected, 0);
    EXPECT_LE(detected, 4);
    kernels::forceLevel(-1);
    EXPECT_EQ(kernels::currentLevel(), detected);
    EXPECT_TRUE(kernels::canRun(0));
    kernels::forceLevel(0);
    EXPECT_EQ(kernels::currentLevel(), 0);
    std::printf("[ info ] processor level %d\n", detected);
}

TEST(Kernels, VectorPrimitivesMatchPlainLoops) {
    LevelGuard restore;
    std::mt19937 random(7);
    for (int level : runnableLevels()) {
        kernels::forceLevel(level);
        double worstDot = 0.0;
        for (int n = 0; n <= kMaxLength; ++n) {
            std::vector<scalar> a = randomVector(random, n), b = randomVector(random, n);
            const std::vector<scalar> a0 = a, b0 = b;
            double exact = 0.0, magnitude = 0.0;
            for (int i = 0; i < n; ++i) {
                exact += double(a[i]) * double(b[i]);
                magnitude += std::fabs(double(a[i]) * double(b[i]));
            }
            // Each summation order is within n ulps of the exact sum of magnitudes.
            const double bound = n * double(std::numeric_limits<scalar>::epsilon()) * magnitude;
            const scalar dot = sdot(a.data(), b.data(), n);
            const scalar reference = kernels::plain::sdot(a.data(), b.data(), n);
            EXPECT_LE(std::fabs(double(dot) - exact), bound + 1e-30) << "level " << level << " n " << n;
            EXPECT_LE(std::fabs(double(dot) - double(reference)), 2 * bound + 1e-30) << "level " << level << " n " << n;
            if (magnitude > 0) worstDot = std::max(worstDot, std::fabs(double(dot) - double(reference)) / magnitude);
            EXPECT_EQ(a, a0);
            EXPECT_EQ(b, b0);

            // Element-wise kernels do the plain loops' operations exactly.
            std::vector<scalar> y = b, yPlain = b;
            saxpy(n, 0.37f, a.data(), y.data());
            kernels::plain::saxpy(n, 0.37f, a.data(), yPlain.data());
            EXPECT_EQ(y, yPlain) << "saxpy level " << level << " n " << n;
            EXPECT_TRUE(guardIntact(y, n));
            EXPECT_EQ(a, a0);

            std::vector<scalar> x = a, xPlain = a;
            sscal(n, -1.75f, x.data());
            kernels::plain::sscal(n, -1.75f, xPlain.data());
            EXPECT_EQ(x, xPlain) << "sscal level " << level << " n " << n;
            EXPECT_TRUE(guardIntact(x, n));
        }
        std::printf("[ info ] level %d: worst |sdot - plain| / sum|a b| = %.3g\n", level, worstDot);
    }
}

TEST(Kernels, NothingPastTheLastElementIsTouched) {
    LevelGuard restore;
    PageEdge edgeA, edgeB;
    if (!edgeA.isUsable() || !edgeB.isUsable()) GTEST_SKIP() << "no protected pages here";
    std::mt19937 random(11);
    for (int level : runnableLevels()) {
        kernels::forceLevel(level);
        for (int n = 0; n <= kMaxLength; ++n) {
            std::vector<scalar> a = randomVector(random, n, 0), b = randomVector(random, n, 0);
            scalar* pa = edgeA.place(a.data(), n);
            scalar* pb = edgeB.place(b.data(), n);
            EXPECT_EQ(sdot(pa, pb, n), sdot(a.data(), b.data(), n));
            saxpy(n, 0.5f, pa, pb);
            sscal(n, 2.0f, pa);
        }
        // A matrix whose last column ends at the edge, and vectors likewise.
        for (int n = 1; n <= 20; ++n) {
            std::vector<scalar> m(static_cast<size_t>(n * n));
            std::uniform_real_distribution<scalar> value(-1.0f, 1.0f);
            for (auto& v : m) v = value(random);
            for (int i = 0; i < n; ++i) m[static_cast<size_t>(i + n * i)] += 4.0f;
            std::vector<int> pivots(static_cast<size_t>(n));
            scalar* pm = edgeA.place(m.data(), n * n);
            ASSERT_EQ(ludcmp(n, pm, n, pivots.data()), 0);
            std::vector<scalar> rhs = randomVector(random, n, 0);
            std::vector<scalar> solution(static_cast<size_t>(n));
            scalar* px = edgeB.place(solution.data(), n);
            EXPECT_EQ(lubksb(n, pm, n, pivots.data(), px, rhs.data()), 0);
        }
    }
}

TEST(Kernels, LuMatchesPlainLoopsWithPaddedColumns) {
    LevelGuard restore;
    std::mt19937 random(5);
    std::uniform_real_distribution<scalar> value(-1.0f, 1.0f);
    for (int level : runnableLevels()) {
        kernels::forceLevel(level);
        double worstFactor = 0.0, worstResidual = 0.0;
        for (int n = 1; n <= kMaxLength; ++n) {
            const int lda = n + 3;
            std::vector<scalar> a(static_cast<size_t>(lda * n + kGuardLength), kGuard);
            for (int j = 0; j < n; ++j)
                for (int i = 0; i < n; ++i) a[static_cast<size_t>(i + lda * j)] = value(random);
            const std::vector<scalar> original = a;
            std::vector<scalar> plainA = a;
            std::vector<int> pivots(static_cast<size_t>(n)), plainPivots(static_cast<size_t>(n));
            ASSERT_EQ(ludcmp(n, a.data(), lda, pivots.data()), 0);
            ASSERT_EQ(kernels::plain::ludcmp(n, plainA.data(), lda, plainPivots.data()), 0);
            // Only the reciprocal estimate differs, by an ulp or so; a different pivot would
            // mean a different algorithm.
            EXPECT_EQ(pivots, plainPivots) << "level " << level << " n " << n;
            for (size_t i = 0; i < a.size(); ++i) {
                const bool inside = i < static_cast<size_t>(lda * n) && int(i % lda) < n;
                if (!inside) {
                    EXPECT_EQ(a[i], kGuard) << "padding changed at " << i << ", n " << n;
                } else {
                    // Rounding grows through the elimination; relative to 1 + |entry|.
                    const double d = std::fabs(double(a[i]) - double(plainA[i])) / (1.0 + std::fabs(double(plainA[i])));
                    worstFactor = std::max(worstFactor, d);
                    EXPECT_LE(d, 1e-4) << "level " << level << " n " << n << " at " << i;
                }
            }

            std::vector<scalar> b = randomVector(random, n, 0);
            std::vector<scalar> x(static_cast<size_t>(n + kGuardLength), kGuard), plainX = x;
            EXPECT_EQ(lubksb(n, a.data(), lda, pivots.data(), x.data(), b.data()), 0);
            kernels::plain::lubksb(n, plainA.data(), lda, plainPivots.data(), plainX.data(), b.data());
            EXPECT_TRUE(guardIntact(x, n));
            // The solution against the original matrix, in double: the residual relative to
            // |A| |x| stays at float rounding times a growth factor.
            double worstRelative = 0.0;
            for (int i = 0; i < n; ++i) {
                double sum = -double(b[static_cast<size_t>(i)]), scale = std::fabs(double(b[static_cast<size_t>(i)]));
                for (int j = 0; j < n; ++j) {
                    const double aij = original[static_cast<size_t>(i + lda * j)];
                    sum += aij * double(x[static_cast<size_t>(j)]);
                    scale += std::fabs(aij * double(x[static_cast<size_t>(j)]));
                }
                worstRelative = std::max(worstRelative, std::fabs(sum) / scale);
            }
            EXPECT_LE(worstRelative, 2e-5) << "level " << level << " n " << n;
            worstResidual = std::max(worstResidual, worstRelative);
            for (int i = 0; i < n; ++i) {
                const double scaleX = 1.0 + std::fabs(double(plainX[static_cast<size_t>(i)]));
                EXPECT_NEAR(x[static_cast<size_t>(i)], plainX[static_cast<size_t>(i)], 1e-3 * scaleX);
            }
        }
        std::printf("[ info ] level %d: worst |LU - plain LU| / (1 + |LU|) = %.3g, worst relative residual %.3g\n", level,
                    worstFactor, worstResidual);
    }
}

TEST(Kernels, LuEdgeCases) {
    LevelGuard restore;
    std::vector<int> levels = runnableLevels();
    levels.push_back(-1);  // the plain loops
    for (int level : levels) {
        auto lu = [&](int n, scalar* a, int lda, int* p) {
            if (level < 0) return kernels::plain::ludcmp(n, a, lda, p);
            kernels::forceLevel(level);
            return ludcmp(n, a, lda, p);
        };
        auto solve = [&](int n, const scalar* a, int lda, const int* p, scalar* x, const scalar* b) {
            if (level < 0) return kernels::plain::lubksb(n, a, lda, p, x, b);
            kernels::forceLevel(level);
            return lubksb(n, a, lda, p, x, b);
        };
        int pivots[3] = {99, 99, 99};
        scalar a[9] = {0};
        EXPECT_EQ(lu(0, a, 1, pivots), 0);
        EXPECT_EQ(pivots[0], 99);

        a[0] = 1e-21f;
        EXPECT_EQ(lu(1, a, 1, pivots), -1);
        a[0] = 1e-20f;  // the limit itself passes
        EXPECT_EQ(lu(1, a, 1, pivots), 0);
        a[0] = std::numeric_limits<scalar>::quiet_NaN();
        EXPECT_EQ(lu(1, a, 1, pivots), -1);

        // Column 0 holds 1, 3, -3: the upper of the equal maxima is the pivot.
        scalar m[9] = {1, 3, -3, 0, 1, 0, 0, 0, 1};
        EXPECT_EQ(lu(3, m, 3, pivots), 0);
        EXPECT_EQ(pivots[0], 1);
        EXPECT_EQ(m[0], 3.0f);

        // A zero column stays zero under elimination.  (Dependent columns need not give an exact
        // zero pivot: the refined reciprocal is not exact, and its residue passes the test.)
        scalar singular[4] = {1, 2, 0, 0};
        EXPECT_EQ(lu(2, singular, 2, pivots), -1);

        scalar one = 4.0f, b = 3.0f, x = 0.0f;
        int p0 = 0;
        EXPECT_EQ(solve(1, &one, 1, &p0, &x, &b), 0);
        EXPECT_NEAR(x, 0.75f, 1e-7f);
    }
}

TEST(Kernels, PackedMatrixProducts) {
    std::mt19937 random(3);
    std::uniform_real_distribution<scalar> value(-1.0f, 1.0f);
    const int shapes[][2] = {{5, 5}, {1, 9}, {1, 1}, {7, 9}, {8, 8}, {40, 40}, {3, 13}};
    for (const auto& shape : shapes) {
        const int rows = shape[0], columns = shape[1];
        std::vector<scalar> data(static_cast<size_t>(rows * columns));
        for (auto& v : data) v = value(random);
        PackedMatrix matrix(data.data(), rows, columns);
        EXPECT_EQ(matrix.getRows(), rows);
        EXPECT_EQ(matrix.getColumns(), columns);
        for (int round = 0; round < 2; ++round) {
            std::vector<scalar> x(static_cast<size_t>(columns)), y(static_cast<size_t>(rows + kGuardLength), kGuard);
            for (auto& v : x) v = value(random);
            matrix.multiply(x.data(), y.data(), columns, rows);
            EXPECT_TRUE(guardIntact(y, rows));
            for (int r = 0; r < rows; ++r) {
                double exact = 0.0, magnitude = 0.0;
                for (int c = 0; c < columns; ++c) {
                    const double term = double(data[static_cast<size_t>(r + rows * c)]) * x[static_cast<size_t>(c)];
                    exact += term;
                    magnitude += std::fabs(term);
                }
                EXPECT_LE(std::fabs(y[static_cast<size_t>(r)] - exact),
                          columns * double(std::numeric_limits<scalar>::epsilon()) * magnitude + 1e-30);
            }
            if (rows == 1) {
                EXPECT_NEAR(y[0], sdot(data.data(), x.data(), columns), 1e-5);
            }
            // Repacking with the same sizes takes the new values.
            for (auto& v : data) v = value(random);
            matrix.updateMatrix(data.data(), rows, columns);
        }
    }

    std::vector<scalar> data(6, 1.0f);
    PackedMatrix wide(data.data(), 2, 3);
    try {
        wide.updateMatrix(data.data(), 3, 2);
        ADD_FAILURE() << "a change of dimensions must be refused";
    } catch (const VRNException& e) {
        EXPECT_EQ(e.getMessage(),
                  "Changing matrix dimensions is not allowed in updateMatrix. Old dimensions mxn=2x3. New dimensions mxn3x2");
    }
    scalar x[3] = {1, 1, 1}, y[2];
    try {
        wide.multiply(x, y, 2, 2);
        ADD_FAILURE();
    } catch (const VRNException& e) {
        EXPECT_EQ(e.getMessage(), "Invalid size of the x vector in matrix-vector product. Expected 3, got 2.");
    }
    try {
        wide.multiply(x, y, 3, 3);
        ADD_FAILURE();
    } catch (const VRNException& e) {
        EXPECT_EQ(e.getMessage(), "Invalid size of the y vector in matrix-vector product. Expected 2, got 3.");
    }
    wide.multiply(x, y, 3, 2);
    EXPECT_EQ(y[0], 3.0f);
    EXPECT_EQ(y[1], 3.0f);
}
