// SPDX-License-Identifier: BSD-3-Clause
// ?gels by what characterizes the solution: the residual is orthogonal to the columns of op(A), or zero, and the
// solution is a combination of its rows. ?geqp3 by A P = Q R and by the order of what it takes.

#include "tests/factorizations/factored.h"
#include "tests/factorizations/reflected.h"
#include "tests/support/in_child.h"

namespace tev::test {
namespace {

template <class T>
class LeastSquares : public testing::Test {};
TYPED_TEST_SUITE(LeastSquares, Elements);
template <class T>
class PivotedQr : public testing::Test {};
TYPED_TEST_SUITE(PivotedQr, Elements);

template <class T>
int64_t gels(char trans, const matrix<T>& a, const matrix<T>& b) {
  const int64_t m = a.rows(), n = a.columns(), nrhs = b.columns(), lda = a.ld(), ldb = b.ld();
  int64_t lwork = -1, info = 7;
  matrix<T> length(1, 1);
  TEV_LAPACK(gels)(&trans, &m, &n, &nrhs, at(a), &lda, at(b), &ldb, at(length), &lwork, &info);
  lwork = static_cast<int64_t>(std::real(length(0, 0)));
  TEV_LAPACK(gels)(&trans, &m, &n, &nrhs, at(a), &lda, at(b), &ldb, at(matrix<T>(lwork, 1)), &lwork, &info);
  return info;
}

template <class W>
wide_matrix<W> difference(wide_matrix<W> a, const wide_matrix<W>& b) {
  for (size_t i = 0; i < a.data.size(); ++i) a.data[i] -= b.data[i];
  return a;
}

template <class W>
wide_matrix<W> first_rows(const wide_matrix<W>& a, int64_t rows) {
  wide_matrix<W> result(rows, a.columns);
  for (int64_t j = 0; j < a.columns; ++j)
    for (int64_t i = 0; i < rows; ++i) result(i, j) = a(i, j);
  return result;
}

template <class W>
real_part_t<W> norm(const wide_matrix<W>& a) {
  real_part_t<W> sum = 0;
  for (const real_part_t<W> of_column : column_norms(a)) sum += of_column * of_column;
  return std::sqrt(sum);
}

// |x| <= 30 (m + n) u size, as the reference's test programs judge.
template <class T, class S>
void expect_small(const S& error, const S& size, int64_t length, const std::string& what) {
  const S underflow = std::numeric_limits<real_part_t<T>>::denorm_min() * static_cast<S>(length * length);
  EXPECT_TRUE(error <= static_cast<S>(rounding_bound<T>(30 * length)) * size + underflow)
      << what << ": " << error << " beside " << size;
}

template <class T>
void solve_and_judge(char trans, const matrix<T>& a, const matrix<T>& b, const std::string& what) {
  const auto wide_a = trans == 'N' ? widened(a) : adjoint(widened(a)), start = first_rows(widened(b), wide_a.rows);
  const matrix<T> factored = a;
  ASSERT_EQ(gels(trans, factored, b), 0) << what;
  EXPECT_TRUE(factored.padding_is_intact() && b.padding_is_intact()) << what;
  const auto x = first_rows(widened(b), wide_a.columns), residual = difference(start, wide_a * x);
  const int64_t length = a.rows() + a.columns();
  const auto size = norm(wide_a) * norm(x) + norm(start);
  if (wide_a.rows >= wide_a.columns)
    return expect_small<T>(norm(adjoint(wide_a) * residual), norm(wide_a) * size, length, what);
  expect_small<T>(norm(residual), size, length, what);
  // What is left of x without its projection on the rows, by their orthonormal basis.
  matrix<T> rows(wide_a.columns, wide_a.rows);
  for (int64_t j = 0; j < rows.columns(); ++j)
    for (int64_t i = 0; i < rows.rows(); ++i) rows(i, j) = trans == 'N' ? conjugate(a(j, i)) : a(i, j);
  const auto basis = widened(factored_qr<T>(rows).generate(rows.columns()));
  expect_small<T>(norm(difference(x, basis * (adjoint(basis) * x))), norm(x), length, what + " norm");
}

TYPED_TEST(LeastSquares, BothShapesBothFormsAtAnyScale) {
  using T = TypeParam;
  engine random(25);
  const own_threads team(2);
  // Pairs whose solution is within the range.
  constexpr std::pair<int, int> kPairs[] = {{0, 0}, {2, 0}, {0, 6}, {0, 7}, {6, 6}, {7, 7}, {6, 0}};
  for (const auto& [of_a, of_b] : kPairs) {
    for (const char trans : {'N', kIsComplex<T> ? 'C' : 'T'})
      for (const auto& [m, n] : {std::pair<int64_t, int64_t>{1, 1}, {12, 12}, {31, 9}, {7, 40}, {70, 33}}) {
        matrix<T> a(m, n), b(std::max(m, n), 3);
        fill(a, kKinds[of_a], random);
        fill(b, kKinds[of_b], random);
        solve_and_judge(trans, a, b,
                        std::string(kKinds[of_a].name) + ", " + kKinds[of_b].name + ' ' + trans + std::to_string(m));
      }
  }
}

TYPED_TEST(LeastSquares, ZerosAndSingularTriangles) {
  using T = TypeParam;
  engine random(26);
  for (const auto& [m, n] : {std::pair<int64_t, int64_t>{20, 8}, {8, 20}}) {
    matrix<T> a(m, n), b(20, 2), empty(m, 0);
    for (int64_t j = 0; j < n; ++j) std::fill_n(&a(0, j), m, T(0));
    b.fill(random, values::fractions);
    EXPECT_EQ(gels('N', a, b), 0);  // nothing but the smallest of all
    EXPECT_EQ(norm(widened(b)), 0);
    a(0, 0) = T(1);
    EXPECT_EQ(gels('N', a, b), 2);
    b.fill(random, values::fractions);
    const matrix<T> no_columns(20, 0);
    EXPECT_EQ(gels('N', no_columns, b), 0);
    EXPECT_EQ(norm(widened(b)), 0);
  }
}

// ---- Pivoting ------------------------------------------------------------------------------------------------------

template <class T>
struct pivoted {
  pivoted(const matrix<T>& start, const std::vector<int64_t>& fixed) : f(start), pivots(fixed) {
    const matrix<T> rwork(2 * start.columns(), 1);
    for (int64_t j = 0; j < start.columns(); ++j) std::copy_n(&start(0, j), start.rows(), &f.a(0, j));
    f.run([&](auto* work, const int64_t* lwork) {
      const int64_t m = f.a.rows(), n = f.a.columns(), lda = f.a.ld();
      if constexpr (kIsComplex<T>) TEV_LAPACK(geqp3)
      (&m, &n, at(f.a), &lda, pivots.data(), at(f.tau), work, lwork, reinterpret_cast<real_part_t<T>*>(rwork.data()),
       &f.info);
      else TEV_LAPACK(geqp3)(&m, &n, at(f.a), &lda, pivots.data(), at(f.tau), work, lwork, &f.info);
    });
  }

  factored_qr<T> f;
  std::vector<int64_t> pivots;
};

template <class T>
void pivot_and_judge(const matrix<T>& start, const std::vector<int64_t>& fixed, const std::string& what) {
  const pivoted<T> p(start, fixed);
  auto permuted = widened(start);
  std::vector<int64_t> sorted = p.pivots, all(fixed.size());
  std::sort(sorted.begin(), sorted.end());
  std::iota(all.begin(), all.end(), 1);
  ASSERT_EQ(sorted, all) << what;
  for (int64_t j = 0; j < start.columns(); ++j)
    for (int64_t i = 0; i < start.rows(); ++i) permuted(i, j) = start(i, p.pivots[static_cast<size_t>(j)] - 1);
  const auto norms = column_norms(permuted);
  expect_columns_close<T>(p.f.reflected(p.f.upper(), false), permuted, norms, start.rows(), what);
  EXPECT_TRUE(p.f.a.padding_is_intact()) << what;
  const int64_t first = std::count_if(fixed.begin(), fixed.end(), [](int64_t x) { return x != 0; });
  for (int64_t j = 0; j < first; ++j)
    EXPECT_NE(fixed[static_cast<size_t>(p.pivots[static_cast<size_t>(j)] - 1)], 0) << what;
  // No column was longer than the one taken: its part of R from row i on. Norms are known to half the digits.
  const auto r = p.f.upper();
  const auto half = std::sqrt(std::numeric_limits<real_part_t<T>>::epsilon());
  for (int64_t i = first; i < p.f.order(); ++i)
    for (int64_t j = i; j < start.columns(); ++j) {
      real_part_t<wide_t<T>> left = 0;
      for (int64_t l = i; l <= std::min(j, start.rows() - 1); ++l) left += std::norm(r(l, j));
      const auto least =
          norms[static_cast<size_t>(j)] * static_cast<real_part_t<wide_t<T>>>(rounding_bound<T>(30 * start.rows()));
      ASSERT_TRUE(std::sqrt(left) <= std::abs(r(i, i)) * (1 + half) + least) << what << " at " << i << ", " << j;
    }
}

TYPED_TEST(PivotedQr, TakesTheLongestColumnLeft) {
  using T = TypeParam;
  engine random(27);
  const own_threads team(2);
  for (const kind& k : kKinds)
    for (const auto& [m, n] :
         {std::pair<int64_t, int64_t>{0, 3}, {5, 1}, {20, 20}, {9, 40}, {70, 45}, {40, 66}, {400, 150}})
      for (const int every : {0, 7, 1}) {
        if (m == 400 && k.name != kKinds[0].name) continue;
        matrix<T> a(m, n);
        fill(a, k, random);
        if (n > 6)  // and two columns that depend on others
          for (int64_t i = 0; i < m; ++i) a(i, 5) = a(i, 2), a(i, 6) = a(i, 1) + a(i, 3);
        std::vector<int64_t> fixed(static_cast<size_t>(n));
        for (int64_t j = 3; every != 0 && j < n; j += every) fixed[static_cast<size_t>(j)] = 1;
        pivot_and_judge(a, fixed, std::string(k.name) + ' ' + std::to_string(m) + 'x' + std::to_string(n));
      }
}

// Of the routines that have a work array, without memory; and wrong arguments of ?geqp3.
TEST_IN_CHILD(QrArguments, NoMemoryIsReported, {"TEV_DISABLE_FAST_MM", "1"}) {
  using T = double;
  static std::string reported;
  i_malloc = [](size_t) -> void* { return nullptr; };
  i_free = std::free;
  tev_serv_set_xerbla([](const char* name, const int32_t* info, int32_t length) {
    reported = std::string(name, static_cast<size_t>(length)) + ' ' + std::to_string(*info);
  });
  const int64_t m = 5, n = 4, k = 3, lwork = 64;
  T a[64], tau[16], c[64], work[64];
  int64_t pivots[8] = {}, info = 7;
  const auto expect = [&](const char* name) {
    EXPECT_EQ(info, -1089) << name;
    EXPECT_EQ(reported, name + std::string(" 1089"));
  };
  TEV_LAPACK(geqrf)(&m, &n, a, &m, tau, work, &lwork, &info), expect("DGEQRF");
  tev_lapack_dorgqr(&m, &n, &k, a, &m, tau, work, &lwork, &info), expect("DORGQR");
  tev_lapack_dormqr("L", "T", &m, &n, &k, a, &m, tau, c, &m, work, &lwork, &info), expect("DORMQR");
  TEV_LAPACK(gels)("T", &m, &n, &k, a, &m, c, &m, work, &lwork, &info), expect("DGELS");
  tev_lapack_dgeqp3(&m, &n, a, &m, pivots, tau, work, &lwork, &info), expect("DGEQP3");
}

TEST(QrArguments, OfPivoting) {
  int64_t m = 5, n = 4, lda = 5, lwork = 13;
  expect_argument_errors("DGEQP3", {{&m, 1}, {&n, 2}, {&lda, 4}}, [&](int64_t* info) {
    tev_lapack_dgeqp3(&m, &n, nullptr, &lda, nullptr, nullptr, nullptr, &lwork, info);
  });
  m = 5, n = 4, lda = 5, lwork = 12;
  int64_t info = 7;
  tev_lapack_dgeqp3(&m, &n, nullptr, &lda, nullptr, nullptr, nullptr, &lwork, &info);
  EXPECT_EQ(info, -8);
}

TYPED_TEST(PivotedQr, ShowsTheRank) {
  using T = TypeParam;
  engine random(28);
  matrix<T> left(60, 11), right(11, 50), a(60, 50);
  left.fill(random, values::whole), right.fill(random, values::whole);
  const auto product = widened(left) * widened(right);  // of whole numbers: exact
  for (int64_t j = 0; j < 50; ++j)
    for (int64_t i = 0; i < 60; ++i) a(i, j) = T(product(i, j));
  const pivoted<T> p(a, std::vector<int64_t>(50));
  EXPECT_GT(std::abs(p.f.a(10, 10)), 1e-2 * std::abs(p.f.a(0, 0)));
  EXPECT_LT(std::abs(p.f.a(11, 11)), rounding_bound<T>(30 * 60) * std::abs(p.f.a(0, 0)));
}

}  // namespace
}  // namespace tev::test
