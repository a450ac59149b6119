// SPDX-License-Identifier: BSD-3-Clause
// Level 1 and 2 of every tier that this processor can run, in all precisions, against plain sums in a wider type.
//   Exact     whole numbers: results match bit for bit.
//   Rounding  fractions, within the bound of host/check.h.
//   Special   NaN where a plain sum has it and nowhere else; zero scalars and empty sizes; odd increments.
//   Memory    operands end at an unmapped page; gaps between elements and rows below a matrix hold NaN and keep it.

#include "kernels/routine_types.h"
#include "tests/support/addresses.h"
#include "tests/support/tier_kernels.h"
#include "tests/support/vector_checks.h"

namespace tev::test {
namespace {

constexpr uint64_t kSeed = 20240229;

// The routines of one tier and precision; gerc is null in s and d.
template <class T>
struct tier_routines {
  using E = c_element_t<T>;
  explicit tier_routines(const std::string& of_tier) : tier(of_tier) {}
  kernel_address named(const char* name) const { return find_kernel(tier, name, kLetter<T>); }
  std::string tier;
  kernels::axpy_fn<E>* axpy = named("x?axpy");
  kernels::copy_vector_fn<E>* copy = named("x?copy");
  kernels::scal_fn<E>* scal = named("x?scal");
  kernels::gemv_fn<E>* gemv = named("x?gemv");
  kernels::gemmger_fn<E>* gemmger = named("x?gemmger");
  kernels::ger_fn<E>* geru = named(kIsComplex<T> ? "x?geru" : "x?ger");
  kernels::ger_fn<E>* gerc = named("x?gerc");
  kernels::swap_fn<E>* swap = named("x?swap");
};

template <class T>
class Vectors : public testing::Test {
 protected:
  // body(routines) for every tier that this processor can run.
  template <class Body>
  static void each_tier(const Body& body) {
    for (const std::string& tier : tiers_with<T>("x?axpy")) {
      SCOPED_TRACE(tier);
      body(tier_routines<T>(tier));
      if (testing::Test::HasFailure()) return;
    }
  }
};

TYPED_TEST_SUITE(Vectors, Elements);

const std::vector<int64_t>& lengths() {
  static const std::vector<int64_t> all = [] {
    std::vector<int64_t> n = {63, 64, 65, 100, 127, 129, 1000};
    for (int64_t i = -1; i < 36; ++i) n.push_back(i);
    return n;
  }();
  return all;
}

constexpr std::array<std::array<int64_t, 2>, 7> kIncrements = {
    {{1, 1}, {1, 3}, {-2, 1}, {-1, -1}, {3, -2}, {-1, 2}, {0, 1}}};

TYPED_TEST(Vectors, Level1IsTheLoop) {
  this->each_tier([](const auto& r) {
    engine random(kSeed);
    for (const int64_t n : lengths())
      for (const auto [incx, incy] : kIncrements) {
        expect_level1<TypeParam>(r, n, incx, incy, random);
        if (testing::Test::HasFailure()) return;
      }
  });
}

// Also those that are stored past the caches; from any place, to lower ones of the same array.
TYPED_TEST(Vectors, LongCopiesMoveDown) {
  using T = TypeParam;
  this->each_tier([](const auto& r) {
    const int64_t one = 1, most = (13 << 20) / int64_t{sizeof(T)};
    guarded_array<T> array(static_cast<size_t>(most + 70));
    for (const int64_t n : {int64_t{1001}, most})
      for (const int64_t distance : {1, 3, 70}) {
        T* const to = array.data() + (most + 70 - n - distance);
        for (int64_t i = 0; i < n + distance; ++i) to[i] = T(static_cast<float>(i % 1013));
        r.copy(&n, in(to + distance), &one, out(to), &one);
        for (int64_t i = 0; i < n + distance; ++i)
          ASSERT_EQ(to[i], T(static_cast<float>((i < n ? i + distance : i) % 1013)))
              << n << ' ' << distance << ' ' << i;
      }
  });
}

// Around the vectors and groups of columns; across segments, which are 16 KiB of a column.
const std::array<std::array<int64_t, 2>, 22> kShapes = {
    {{0, 3},  {3, 0},   {-1, 2},  {1, 1},   {1, 9},   {2, 5},   {3, 8},   {4, 17},  {7, 3},    {8, 8},     {9, 4},
     {15, 7}, {16, 16}, {17, 11}, {31, 13}, {33, 25}, {64, 12}, {65, 31}, {131, 6}, {1030, 9}, {2055, 11}, {4099, 5}}};

TYPED_TEST(Vectors, Gemv) {
  this->each_tier([](const auto& r) {
    engine random(kSeed);
    for (const values kind : {values::whole, values::fractions})
      for (const char trans : {'N', 'T', 'C', 'n', 't', 'c'})
        for (const auto [m, n] : kShapes) {
          const auto [incx, incy] = kIncrements[random() % 6];
          expect_gemv<TypeParam>(r.gemv, trans, m, n, incx, incy, random, kind);
          if (testing::Test::HasFailure()) return;
        }
  });
}

TYPED_TEST(Vectors, RankOne) {
  this->each_tier([](const auto& r) {
    engine random(kSeed);
    for (const values kind : {values::whole, values::fractions})
      for (const std::string letters : {"NN", "TT", "NC", "Cn", "cc", "ger", "gerc"})
        for (const auto [m, n] : kShapes) {
          if (letters == "gerc" && r.gerc == nullptr) continue;
          const auto [incx, incy] = kIncrements[random() % 6];
          expect_rank_1<TypeParam>(r, letters, m, n, incx, incy, random, kind);
          if (testing::Test::HasFailure()) return;
        }
  });
}

// One NaN reaches what a plain sum lets it reach, also through zeros; nothing else.
TYPED_TEST(Vectors, NansGoWhereSumsTakeThem) {
  using T = TypeParam;
  this->each_tier([](const auto& r) {
    engine random(kSeed);
    const int64_t m = 37, n = 21, i0 = 18, j0 = 12, one = 1;
    const T unit(1), zero(0), nan = nan_element<T>();
    const auto is_nan = [](T v) { return v != v; };
    for (const char trans : {'N', 'T', 'C'}) {
      const bool plain = trans == 'N';
      matrix<T> a(m, n);
      a.fill(random, values::whole);
      a(i0, j0) = nan;
      strided<T> x(plain ? n : m, 1), y(plain ? m : n, 1);
      for (int64_t i = 0; i < (plain ? n : m); ++i) x[i] = T(0);
      const int64_t lda = a.ld();
      r.gemv(&trans, &m, &n, in(&unit), at(a), &lda, x.address(), &one, in(&zero), y.address(), &one);
      for (int64_t i = 0; i < (plain ? m : n); ++i) EXPECT_EQ(is_nan(y[i]), i == (plain ? i0 : j0)) << trans << i;
      r.gemv(&trans, &m, &n, in(&zero), at(a), &lda, x.address(), &one, in(&nan), y.address(), &one);
      for (int64_t i = 0; i < (plain ? m : n); ++i) EXPECT_TRUE(is_nan(y[i])) << trans << i;
    }
    matrix<T> c(m, n);
    c.fill(random, values::whole);
    strided<T> x(m, 1), y(n, 1);
    x.fill(random, values::whole);
    for (int64_t j = 0; j < n; ++j) y[j] = T(0);
    x[i0] = nan;
    const int64_t ldc = c.ld();
    r.geru(&m, &n, in(&unit), x.address(), &one, y.address(), &one, at(c), &ldc);
    for (int64_t j = 0; j < n; ++j)
      for (int64_t i = 0; i < m; ++i) EXPECT_EQ(is_nan(c(i, j)), i == i0) << i << ' ' << j;
    r.axpy(&m, in(&nan), x.address(), &one, x.address(), &one);
    for (int64_t i = 0; i < m; ++i) EXPECT_TRUE(is_nan(x[i]));
  });
}

TEST(Reproducible, GemvGivesTheSameBitsAtEveryAddress) {
  constexpr int64_t m = 301, n = 43, one = 1;
  const double alpha = 1.5, beta = 0;
  kernels::gemv_fn<double>* const gemv = tier_routines<double>("cnr_def").gemv;
  for (const char trans : {'N', 'T'})
    expect_same_bits_at_every_address<double>({m * n, m, m}, [&](const auto& at) {
      gemv(&trans, &m, &n, &alpha, at[0], &m, at[1], &one, &beta, at[2], &one);
      return std::vector(at[2], at[2] + (trans == 'N' ? m : n));
    });
}

}  // namespace
}  // namespace tev::test
