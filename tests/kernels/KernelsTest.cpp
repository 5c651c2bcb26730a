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

#include "engine/Kernels.h"
#include "engine/KernelsInternal.h"

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

// Places arrays so that their last element sits right before a page that may not be touched, so
// that a read past the end faults; where no page can be protected, in an ordinary buffer.
struct PageEdge {
    // Room for the largest matrix, 70 x 67 floats, before the protected page.
    size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE)), room = (70 * 67 * sizeof(scalar) / page + 1) * page;
    char* base = static_cast<char*>(mmap(nullptr, room + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    bool usable = base != MAP_FAILED && mprotect(base + room, page, PROT_NONE) == 0;
    std::vector<scalar> fallback;
    ~PageEdge() {
        if (base != MAP_FAILED) munmap(base, room + page);
    }
    scalar* place(const std::vector<scalar>& values, size_t n) {
        fallback.assign(values.begin(), values.begin() + static_cast<long>(n));
        if (!usable) return fallback.data();
        scalar* p = reinterpret_cast<scalar*>(base + room) - n;
        if (n > 0) std::memcpy(p, values.data(), n * sizeof(scalar));
        return p;
    }
};

}  // namespace

TEST(Kernels, TheEnvironmentPicksTheLevel) {
    // ORM_KERNELS picks a level at the first call; a name this processor cannot run detects.
    const char* given = std::getenv("ORM_KERNELS");
    const std::string saved = given ? given : "";
    const std::pair<const char*, int> requests[] = {
        {"plain", kernels::kPlainLevel}, {"sse2", 0}, {"avx512", kernels::detectLevel()}};
    for (const auto& [name, expected] : requests) {
        setenv("ORM_KERNELS", name, 1);
        kernels::forceLevel(-1);
        EXPECT_EQ(kernels::currentLevel(), expected) << name;
    }
    if (given) setenv("ORM_KERNELS", saved.c_str(), 1); else unsetenv("ORM_KERNELS");
    kernels::forceLevel(-1);
}

TEST(Kernels, EveryKernelEqualsThePlainLoopsAtEveryLevel) {
    // Over every length to 67: the element-wise kernels and the LU factors, pivots and solutions
    // do the plain loops' operations in their order, so they agree to the bit; the dot product
    // may sum in lanes, and any summation order is within n ulps of the exact sum of magnitudes.
    // Inputs end at a protected page, outputs carry a guard.  Odd orders of LU end at the page
    // too, even ones have three rows of padding that must stay as they were.
    PageEdge edgeA, edgeB, edgeM;
    std::mt19937 random(7);
    forEachLevel([&](int level) {
        EXPECT_EQ(kernels::currentLevel(), level);
        double worstResidual = 0.0;
        for (size_t n = 0; n <= kMaxLength; ++n) {
            SCOPED_TRACE(::testing::Message() << "level " << level << " n " << n);
            const int length = static_cast<int>(n);
            const std::vector<scalar> a = randomVector(random, n), b = randomVector(random, n);
            const scalar* pa = edgeA.place(a, n);
            double exact = 0.0, magnitude = 0.0;
            for (size_t i = 0; i < n; ++i) {
                exact += double(a[i]) * double(b[i]);
                magnitude += std::fabs(double(a[i]) * double(b[i]));
            }
            EXPECT_LE(std::fabs(sdot(pa, edgeB.place(b, n), length) - exact), n * kEpsilon * magnitude + 1e-30);

            std::vector<scalar> y = b, yPlain = b, x = a, xPlain = a;
            saxpy(length, 0.37f, pa, y.data());
            kernels::plain::saxpy(length, 0.37f, a.data(), yPlain.data());
            sscal(length, -1.75f, x.data());
            kernels::plain::sscal(length, -1.75f, xPlain.data());
            EXPECT_EQ(y, yPlain);
            EXPECT_EQ(x, xPlain);
            EXPECT_TRUE(guardIntact(y, n) && guardIntact(x, n));
            if (n == 0) continue;

            const size_t lda = n % 2 ? n : n + 3;
            auto at = [lda](size_t i, size_t j) { return i + lda * j; };
            std::vector<scalar> m = randomVector(random, lda * n, 0);
            for (size_t j = 0; j < n; ++j)
                for (size_t i = n; i < lda; ++i) m[at(i, j)] = kGuard;
            scalar* pm = edgeM.place(m, m.size());
            std::vector<scalar> plainM = m;
            std::vector<int> pivots(n), plainPivots(n);
            ASSERT_EQ(ludcmp(length, pm, static_cast<int>(lda), pivots.data()), 0);
            ASSERT_EQ(kernels::plain::ludcmp(length, plainM.data(), static_cast<int>(lda), plainPivots.data()), 0);
            EXPECT_EQ(pivots, plainPivots);
            EXPECT_EQ(std::vector<scalar>(pm, pm + m.size()), plainM) << "(the padding too)";

            std::vector<scalar> solution(n + kGuardLength, kGuard), plainSolution = solution;
            EXPECT_EQ(lubksb(length, pm, static_cast<int>(lda), pivots.data(), solution.data(), edgeB.place(b, n)), 0);
            kernels::plain::lubksb(length, plainM.data(), static_cast<int>(lda), plainPivots.data(), plainSolution.data(),
                                   b.data());
            EXPECT_EQ(solution, plainSolution);
            // Relative to |A| |x| + |b|: float rounding times the growth of the elimination.
            for (size_t i = 0; i < n; ++i) {
                double sum = -double(b[i]), scale = std::fabs(double(b[i]));
                for (size_t j = 0; j < n; ++j) {
                    sum += m[at(i, j)] * double(solution[j]);
                    scale += std::fabs(m[at(i, j)] * double(solution[j]));
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
    });
}
