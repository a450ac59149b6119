// SPDX-License-Identifier: BSD-3-Clause
// LU and what stands on it.
#include <numeric>
#include <vector>

#include "tests/factorizations/factored.h"
#include "tev/lapack.h"

namespace tev::test {
namespace {

template <class T>
struct lu_of;
#define TEV_LU_OF(T, p)                                  \
  template <>                                            \
  struct lu_of<T> {                                      \
    static constexpr auto getrf = tev_lapack_##p##getrf; \
  };
TEV_LU_OF(float, s)
TEV_LU_OF(double, d)
TEV_LU_OF(std::complex<float>, c)
TEV_LU_OF(std::complex<double>, z)

template <class T>
class Lu : public testing::Test {};
TYPED_TEST_SUITE(Lu, Elements);

template <class T>
auto modulus1(const T& x) {
  return std::abs(std::real(x)) + std::abs(std::imag(x));
}

template <class T>
struct factored_lu {
  explicit factored_lu(const matrix<T>& start)
      : a(start), pivots(static_cast<size_t>(std::min(a.rows(), a.columns()))) {
    const int64_t m = a.rows(), n = a.columns(), lda = a.ld();
    lu_of<T>::getrf(&m, &n, at(a), &lda, pivots.data(), &info);
  }

  int64_t order() const { return std::ssize(pivots); }
  wide_matrix<wide_t<T>> lower() const {
    wide_matrix<wide_t<T>> l(a.rows(), order());
    for (int64_t j = 0; j < order(); ++j)
      for (int64_t i = j; i < a.rows(); ++i) l(i, j) = i == j ? wide_t<T>(1) : wide_t<T>(a(i, j));
    return l;
  }
  wide_matrix<wide_t<T>> upper() const {
    wide_matrix<wide_t<T>> u(order(), a.columns());
    for (int64_t j = 0; j < a.columns(); ++j)
      for (int64_t i = 0; i <= std::min(j, order() - 1); ++i) u(i, j) = a(i, j);
    return u;
  }
  wide_matrix<wide_t<T>> interchanged(wide_matrix<wide_t<T>> x) const {
    for (int64_t i = 0; i < order(); ++i)
      for (int64_t j = 0; j < x.columns; ++j) std::swap(x(i, j), x(pivots[static_cast<size_t>(i)] - 1, j));
    return x;
  }

  matrix<T> a;
  std::vector<int64_t> pivots;
  int64_t info = 7;
};

// P A = L U; and a pivot was the largest of its column when that was divided by it: no candidate l(i, j) u(j, j) is
// larger beyond rounding.
template <class T>
void judge(const matrix<T>& start, const factored_lu<T>& f, engine& random, const std::string& what) {
  expect_product<T>(f.interchanged(widened(start)), f.lower(), f.upper(), f.order() + 4, random, what);
  EXPECT_TRUE(f.a.padding_is_intact()) << what;
  int64_t first_zero = 0;
  for (int64_t j = f.order() - 1; j >= 0; --j) {
    const wide_t<T> pivot = f.a(j, j);
    EXPECT_TRUE(f.pivots[static_cast<size_t>(j)] > j && f.pivots[static_cast<size_t>(j)] <= f.a.rows()) << what;
    if (pivot == wide_t<T>(0)) {
      first_zero = j + 1;
      continue;
    }
    for (int64_t i = j + 1; i < f.a.rows(); ++i)
      ASSERT_TRUE(modulus1(wide_t<T>(f.a(i, j)) * pivot) <= modulus1(pivot) * (1 + rounding_bound<T>(8)))
          << what << " at " << i << ", " << j;
  }
  EXPECT_EQ(f.info, first_zero) << what;
}

struct shape {
  int64_t m, n;
  int threads;
};

template <class T>
void factor_and_judge(const shape& s, const kind& k, engine& random) {
  const own_threads team(s.threads);
  matrix<T> start(s.m, s.n);
  fill(start, k, random);
  judge(start, factored_lu<T>(start), random,
        std::string(k.name) + ' ' + std::to_string(s.m) + 'x' + std::to_string(s.n));
}

TYPED_TEST(Lu, FactorsOfEveryKindOfMatrix) {
  engine random(5);
  for (const kind& k : kKinds)
    for (int64_t n = 0; n <= 70; n += 1 + static_cast<int64_t>(random() % 6))
      for (const int64_t m : {n, n / 2, n + static_cast<int64_t>(random() % 40)})
        factor_and_judge<TypeParam>({m, n, 2}, k, random);
}

TYPED_TEST(Lu, FactorsOverATeam) {
  engine random(6);
  for (const shape& s : {shape{256, 256, 2}, {257, 320, 2}, {600, 321, 3}, {300, 500, 5}, {1025, 1024, 2}})
    factor_and_judge<TypeParam>(s, kKinds[0], random);
}

TYPED_TEST(Lu, SameBitsInEveryCall) {
  engine random(7);
  const own_threads team(3);
  matrix<TypeParam> start(400, 410);
  start.fill(random, values::fractions);
  const factored_lu<TypeParam> first(start);
  for (int i = 0; i < 3; ++i) {
    const factored_lu<TypeParam> again(start);
    EXPECT_TRUE(again.a.same_bits(first.a) && again.pivots == first.pivots);
  }
}

// Of equal candidates the first is taken, and a column of zeros is reported and passed over.
TYPED_TEST(Lu, SingularMatricesAreReportedByPosition) {
  engine random(8);
  for (const int64_t n : {1, 2, 9, 40, 300}) {
    matrix<TypeParam> ones(n, n), zero_column(n, n);
    for (int64_t j = 0; j < n; ++j) std::fill_n(&ones(0, j), n, TypeParam(1));
    const factored_lu<TypeParam> f(ones);
    EXPECT_EQ(f.info, n == 1 ? 0 : 2);
    std::vector<int64_t> in_place(static_cast<size_t>(n));
    std::iota(in_place.begin(), in_place.end(), 1);
    EXPECT_EQ(f.pivots, in_place);
    zero_column.fill(random, values::fractions);
    std::fill_n(&zero_column(0, n / 2), n, TypeParam(0));
    const factored_lu<TypeParam> g(zero_column);
    EXPECT_EQ(g.info, n / 2 + 1);
    judge(zero_column, g, random, "column of zeros");
  }
}

TYPED_TEST(Lu, NanReachesWhatDependsOnIt) {
  engine random(9);
  matrix<TypeParam> a(30, 30);
  a.fill(random, values::fractions);
  a(3, 12) = nan_element<TypeParam>();
  const factored_lu<TypeParam> f(a);
  EXPECT_FALSE(f.a(20, 11) != f.a(20, 11));
  EXPECT_TRUE(f.a(29, 29) != f.a(29, 29));
  EXPECT_EQ(f.info, 0);
}

}  // namespace
}  // namespace tev::test
