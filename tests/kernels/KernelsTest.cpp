// The vector kernels at every instruction-set level this processor runs, against the plain loops
// and against double-precision arithmetic.

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <limits>
#include <random>
#include <vector>

#include "engine/Exceptions.h"
#include "engine/Kernels.h"
#include "engine/KernelsInternal.h"
#include "support/TestSupport.h"

using namespace vrn;

namespace {

constexpr scalar kGuard = -12345.5f;
constexpr int kGuardLength = 16;
constexpr int kMaxLength = 67;
constexpr double kEpsilon = std::numeric_limits<scalar>::epsilon();

// Runs body at each level with code of its own that this processor can run, the plain loops
// first, then restores detection.
template <typename F>
void forEachLevel(F&& body) {
    for (int level = kernels::kPlainLevel; level <= 2; ++level) {
        if (!kernels::canRun(level)) continue;
        kernels::forceLevel(level);
        body(level);
    }
    kernels::forceLevel(-1);
}

std::vector<scalar> randomVector(std::mt19937& random, size_t n, size_t guard = kGuardLength) {
    std::uniform_real_distribution<scalar> value(-1.0f, 1.0f);
    std::vector<scalar> v(n + guard, kGuard);
    for (size_t i = 0; i < n; ++i) v[i] = value(random);
    return v;
}

bool guardIntact(const std::vector<scalar>& v, size_t n) {
    for (size_t i = n; i < v.size(); ++i)
        if (v[i] != kGuard) return false;
    return true;
}

// Places arrays so that their last element sits right before a page that may not be touched.
struct PageEdge {
    size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    char* base = static_cast<char*>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    bool usable = base != MAP_FAILED && mprotect(base + page, page, PROT_NONE) == 0;
    ~PageEdge() {
        if (base != MAP_FAILED) munmap(base, 2 * page);
    }
    scalar* place(const scalar* values, int n) {
        scalar* p = reinterpret_cast<scalar*>(base + page) - n;
        if (n > 0) std::memcpy(p, values, static_cast<size_t>(n) * sizeof(scalar));
        return p;
    }
};

}  // namespace

TEST(Kernels, VectorPrimitivesMatchPlainLoopsAtEveryLevel) {
    const int detected = kernels::detectLevel();
    EXPECT_TRUE(detected >= 0 && detected <= 4) << detected;
    // ORM_KERNELS picks a level at the first call; a name this processor cannot run, or none, detects.
    const char* given = std::getenv("ORM_KERNELS");
    const std::string saved = given ? given : "";
    const std::pair<const char*, int> requests[] = {{"plain", kernels::kPlainLevel}, {"sse2", 0}, {"avx512", detected}};
    for (const auto& [name, expected] : requests) {
        setenv("ORM_KERNELS", name, 1);
        kernels::forceLevel(-1);
        EXPECT_EQ(kernels::currentLevel(), expected) << name;
    }
    if (given) setenv("ORM_KERNELS", saved.c_str(), 1); else unsetenv("ORM_KERNELS");
    kernels::forceLevel(-1);

    std::mt19937 random(7);
    forEachLevel([&](int level) {
        EXPECT_EQ(kernels::currentLevel(), level);
        for (size_t n = 0; n <= kMaxLength; ++n) {
            const int length = static_cast<int>(n);
            std::vector<scalar> a = randomVector(random, n), b = randomVector(random, n);
            const std::vector<scalar> a0 = a, b0 = b;
            double exact = 0.0, magnitude = 0.0;
            for (size_t i = 0; i < n; ++i) {
                exact += double(a[i]) * double(b[i]);
                magnitude += std::fabs(double(a[i]) * double(b[i]));
            }
            // Any summation order is within n ulps of the exact sum of magnitudes.
            const double bound = n * kEpsilon * magnitude + 1e-30;
            const scalar dot = sdot(a.data(), b.data(), length);
            EXPECT_LE(std::fabs(dot - exact), bound) << "level " << level << " n " << n;
            EXPECT_LE(std::fabs(dot - kernels::plain::sdot(a.data(), b.data(), length)), 2 * bound) << level << " " << n;

            // Element-wise kernels do exactly the plain loops' operations, and stop at n.
            std::vector<scalar> y = b, yPlain = b, x = a, xPlain = a;
            saxpy(length, 0.37f, a.data(), y.data());
            kernels::plain::saxpy(length, 0.37f, a.data(), yPlain.data());
            sscal(length, -1.75f, x.data());
            kernels::plain::sscal(length, -1.75f, xPlain.data());
            EXPECT_EQ(y, yPlain) << "saxpy level " << level << " n " << n;
            EXPECT_EQ(x, xPlain) << "sscal level " << level << " n " << n;
            EXPECT_TRUE(guardIntact(y, n) && guardIntact(x, n)) << level << " " << n;
            EXPECT_TRUE(a == a0 && b == b0) << "inputs changed, level " << level << " n " << n;
        }
    });
}

TEST(Kernels, NothingPastTheLastElementIsTouched) {
    PageEdge edgeA, edgeB;
    if (!edgeA.usable || !edgeB.usable) GTEST_SKIP() << "no protected pages here";
    std::mt19937 random(11);
    forEachLevel([&](int) {
        for (int n = 0; n <= kMaxLength; ++n) {
            std::vector<scalar> a = randomVector(random, n, 0), b = randomVector(random, n, 0);
            scalar* pa = edgeA.place(a.data(), n);
            scalar* pb = edgeB.place(b.data(), n);
            EXPECT_EQ(sdot(pa, pb, n), sdot(a.data(), b.data(), n));
            saxpy(n, 0.5f, pa, pb);
            sscal(n, 2.0f, pa);
        }
        // A diagonally dominant matrix whose last column ends at the edge, and vectors likewise.
        for (int n = 1; n <= 20; ++n) {
            std::vector<scalar> m = randomVector(random, static_cast<size_t>(n * n), 0);
            for (int i = 0; i < n; ++i) m[static_cast<size_t>(i + n * i)] += 4.0f;
            std::vector<int> pivots(static_cast<size_t>(n));
            scalar* pm = edgeA.place(m.data(), n * n);
            ASSERT_EQ(ludcmp(n, pm, n, pivots.data()), 0);
            std::vector<scalar> rhs = randomVector(random, n, 0), solution(static_cast<size_t>(n));
            EXPECT_EQ(lubksb(n, pm, n, pivots.data(), edgeB.place(solution.data(), n), rhs.data()), 0);
        }
    });
}

TEST(Kernels, LuMatchesPlainLoopsWithPaddedColumns) {
    // Every variant eliminates in the plain loops' order with the same reciprocal, so factors,
    // pivots and solutions are the plain loops' to the bit, on any processor.  The residual
    // against the original matrix in double bounds what the plain loops themselves promise.
    std::mt19937 random(5);
    forEachLevel([&](int level) {
        double worstResidual = 0.0;
        for (int n = 1; n <= kMaxLength; ++n) {
            const int lda = n + 3;
            const size_t size = static_cast<size_t>(lda * n);
            auto at = [lda](int i, int j) { return static_cast<size_t>(i + lda * j); };
            std::vector<scalar> a(size + kGuardLength, kGuard);
            std::vector<scalar> values = randomVector(random, size, 0);
            for (int j = 0; j < n; ++j)
                for (int i = 0; i < n; ++i) a[at(i, j)] = values[at(i, j)];
            const std::vector<scalar> original = a;
            std::vector<scalar> plainA = a;
            std::vector<int> pivots(static_cast<size_t>(n)), plainPivots(static_cast<size_t>(n));
            ASSERT_EQ(ludcmp(n, a.data(), lda, pivots.data()), 0);
            ASSERT_EQ(kernels::plain::ludcmp(n, plainA.data(), lda, plainPivots.data()), 0);
            EXPECT_EQ(pivots, plainPivots) << "level " << level << " n " << n;
            EXPECT_EQ(a, plainA) << "level " << level << " n " << n << " (the padding too)";

            std::vector<scalar> b = randomVector(random, n, 0);
            std::vector<scalar> x(static_cast<size_t>(n + kGuardLength), kGuard), plainX = x;
            EXPECT_EQ(lubksb(n, a.data(), lda, pivots.data(), x.data(), b.data()), 0);
            kernels::plain::lubksb(n, plainA.data(), lda, plainPivots.data(), plainX.data(), b.data());
            EXPECT_EQ(x, plainX) << "level " << level << " n " << n;
            // Relative to |A| |x| + |b|: float rounding times the growth of the elimination.
            for (int i = 0; i < n; ++i) {
                double sum = -double(b[i]), scale = std::fabs(double(b[i]));
                for (int j = 0; j < n; ++j) {
                    sum += original[at(i, j)] * double(x[j]);
                    scale += std::fabs(original[at(i, j)] * double(x[j]));
                }
                worstResidual = std::max(worstResidual, std::fabs(sum) / scale);
            }
        }
        EXPECT_LE(worstResidual, 2e-5) << "level " << level;
    });
}

TEST(Kernels, LuEdgeCases) {
    // {column-major n x n matrix, result}: the limit 1e-20 itself passes, NaN does not, and a zero
    // column stays zero under elimination.  (Dependent columns need not give an exact zero pivot:
    // the refined reciprocal is not exact, and its residue passes the test.)
    const std::pair<std::vector<scalar>, int> cases[] = {
        {{1e-21f}, -1}, {{1e-20f}, 0}, {{std::numeric_limits<scalar>::quiet_NaN()}, -1}, {{1, 2, 0, 0}, -1}};
    forEachLevel([&](int level) {
        auto lu = [&](int n, scalar* a, int* p) { return ludcmp(n, a, std::max(n, 1), p); };
        int pivots[3] = {99, 99, 99};
        scalar unused = 0;
        EXPECT_EQ(lu(0, &unused, pivots), 0);
        EXPECT_EQ(pivots[0], 99);
        for (auto [m, result] : cases)
            EXPECT_EQ(lu(m.size() == 1 ? 1 : 2, m.data(), pivots), result) << "level " << level << " " << m[0];
        // Column 0 holds 1, 3, -3: the upper of the equal maxima is the pivot.
        scalar m[9] = {1, 3, -3, 0, 1, 0, 0, 0, 1};
        EXPECT_EQ(lu(3, m, pivots), 0);
        EXPECT_EQ(pivots[0], 1);
        EXPECT_EQ(m[0], 3.0f);

        scalar four = 4.0f, b = 3.0f, x = 0.0f;
        int p0 = 0;
        EXPECT_EQ(lubksb(1, &four, 1, &p0, &x, &b), 0);
        EXPECT_NEAR(x, 0.75f, 1e-7f);
    });
}

TEST(Kernels, PackedMatrixProductsAndRefusals) {
    std::mt19937 random(3);
    const std::pair<int, int> shapes[] = {{1, 1}, {1, 9}, {3, 13}, {7, 9}, {8, 8}, {40, 40}};
    for (const auto& [rows, columns] : shapes) {
        std::vector<scalar> data = randomVector(random, static_cast<size_t>(rows * columns), 0);
        PackedMatrix matrix(data.data(), rows, columns);
        EXPECT_TRUE(matrix.getRows() == rows && matrix.getColumns() == columns);
        // The second round checks that repacking with the same sizes takes the new values.
        for (int round = 0; round < 2; ++round) {
            std::vector<scalar> x = randomVector(random, columns, 0), y(rows + kGuardLength, kGuard);
            matrix.multiply(x.data(), y.data(), columns, rows);
            EXPECT_TRUE(guardIntact(y, rows));
            for (int r = 0; r < rows; ++r) {
                double exact = 0.0, magnitude = 0.0;
                for (int c = 0; c < columns; ++c) {
                    const double term = double(data[static_cast<size_t>(r + rows * c)]) * x[c];
                    exact += term;
                    magnitude += std::fabs(term);
                }
                EXPECT_LE(std::fabs(y[r] - exact), columns * kEpsilon * magnitude + 1e-30) << rows << "x" << columns;
            }
            data = randomVector(random, static_cast<size_t>(rows * columns), 0);
            matrix.updateMatrix(data.data(), rows, columns);
        }
    }

    std::vector<scalar> ones(6, 1.0f);
    PackedMatrix wide(ones.data(), 2, 3);
    scalar x[3] = {1, 1, 1}, y[2];
    // One dimension changed is enough to refuse.
    EXPECT_VRN_MESSAGE(wide.updateMatrix(ones.data(), 2, 2), VRNException,
                       "Changing matrix dimensions is not allowed in updateMatrix. Old dimensions mxn=2x3. New dimensions mxn2x2");
    EXPECT_VRN_MESSAGE(wide.multiply(x, y, 2, 2), VRNException,
                       "Invalid size of the x vector in matrix-vector product. Expected 3, got 2.");
    EXPECT_VRN_MESSAGE(wide.multiply(x, y, 3, 3), VRNException,
                       "Invalid size of the y vector in matrix-vector product. Expected 2, got 3.");
    wide.multiply(x, y, 3, 2);
    EXPECT_EQ(y[0], 3.0f);
    EXPECT_EQ(y[1], 3.0f);
}
