// SPDX-License-Identifier: BSD-3-Clause
// Cholesky and what stands on it.
#include "factorizations/cholesky.h"
#include "factorizations/team_steps.h"
#include "tests/factorizations/factored.h"
#include "tests/support/in_child.h"
#include "tests/support/scarce_memory.h"

namespace tev::test {
namespace {

template <class T>
class Cholesky : public testing::Test {};
TYPED_TEST_SUITE(Cholesky, Elements);

bool stored(char uplo, int64_t i, int64_t j) { return uplo == 'L' ? i >= j : i <= j; }

// Hermitian and positive definite, by a dominant diagonal or barely; scaled from both sides by factors of the kind.
// NaN wherever it must not be read.
template <class T>
matrix<T> definite_matrix(char uplo, int64_t n, const kind& k, engine& random) {
  using R = real_part_t<T>;
  matrix<T> a(n, n);
  const auto scale = [&](int64_t i) {
    return std::sqrt(static_cast<R>(k.factor(i, i, std::numeric_limits<R>::max_exponent)));
  };
  for (int64_t j = 0; j < n; ++j)
    for (int64_t i = 0; i < n; ++i) {
      if (!stored(uplo, i, j)) continue;
      a(i, j) = random_element<T>(random, values::fractions) * scale(i) * scale(j);
      if (i != j) continue;
      a(j, j) = scale(j) * scale(j) * (static_cast<R>(2 * n) + R(1));
      if constexpr (kIsComplex<T>) a(j, j).imag(std::numeric_limits<R>::quiet_NaN());
    }
  return a;
}

// All of the Hermitian matrix, or of the factor L or U: its triangle.
template <class T>
wide_matrix<wide_t<T>> whole(char uplo, const matrix<T>& a, bool hermitian) {
  wide_matrix<wide_t<T>> w(a.rows(), a.columns());
  for (int64_t j = 0; j < a.columns(); ++j)
    for (int64_t i = 0; i < a.rows(); ++i) {
      if (!stored(uplo, i, j)) continue;
      w(i, j) = a(i, j);
      if (hermitian) w(j, i) = i == j ? wide_t<T>(std::real(a(j, j))) : conjugate(wide_t<T>(a(i, j)));
    }
  return w;
}

// Or by a plan of the test's.
template <class T>
int64_t potrf(char uplo, matrix<T>& a, const lapack::plan* p = nullptr) {
  const int64_t n = a.rows(), lda = a.ld();
  int64_t info = 7;
  if (p != nullptr) {
    lapack::cholesky_factorization<c_element_t<T>> cholesky(uplo, {at(a), n, n, lda}, p->width);
    lapack::run_on_team(cholesky, cholesky.panels(), cholesky.panels(), *p);
    return cholesky.info();
  }
  TEV_LAPACK(potrf)(&uplo, &n, at(a), &lda, &info);
  return info;
}

template <class T>
void factor_and_judge(char uplo, int64_t n, const kind& k, engine& random, const lapack::plan* p = nullptr) {
  const std::string what = (p ? name_of(*p) : "") + std::string(k.name) + ' ' + uplo + ' ' + std::to_string(n);
  const matrix<T> start = definite_matrix<T>(uplo, n, k, random);
  matrix<T> a = start, again = start;
  ASSERT_EQ(potrf(uplo, a, p), 0) << what;
  if (p != nullptr) {  // whoever takes the blocks, the bits are the same
    potrf(uplo, again, p);
    EXPECT_TRUE(again.same_bits(a)) << what;
  }
  const wide_matrix<wide_t<T>> factor = whole(uplo, a, false), other = adjoint(factor);
  expect_product<T>(whole(uplo, start, true), uplo == 'L' ? factor : other, uplo == 'L' ? other : factor, n + 4, random,
                    what);
  EXPECT_TRUE(a.padding_is_intact()) << what;
  for (int64_t j = 0; j < n; ++j)
    for (int64_t i = 0; i < n; ++i)
      ASSERT_EQ(stored(uplo, i, j), a(i, j) == a(i, j)) << what << " at " << i << ", " << j;
}

TYPED_TEST(Cholesky, FactorsOfEveryKindOfMatrix) {
  engine random(15);
  for (const kind& k : kKinds)
    for (const char uplo : {'L', 'U'})
      for (int64_t n = 0; n <= 70; n += 1 + static_cast<int64_t>(random() % 4))
        factor_and_judge<TypeParam>(uplo, n, k, random);
}

TYPED_TEST(Cholesky, FactorsOverATeam) {
  engine random(16);
  for (const auto& [n, threads] : {std::pair(256, 2), {300, 5}}) {
    const own_threads team(threads);
    for (const char uplo : {'L', 'U'}) factor_and_judge<TypeParam>(uplo, n, kKinds[0], random);
  }
  for (const lapack::plan& p : kPlans)
    for (const char uplo : {'L', 'U'})
      for (const int64_t n : {0, 64, 97}) factor_and_judge<TypeParam>(uplo, n, kKinds[0], random, &p);
}

// Zero, negative, NaN: the first pivot that is not above zero is reported; what was factored before it stays.
TYPED_TEST(Cholesky, TheFirstMinorThatIsNotPositiveIsReported) {
  using R = real_part_t<TypeParam>;
  engine random(17);
  const own_threads team(3);
  for (const char uplo : {'l', 'u'})
    for (const int64_t n : {1, 5, 60, 300})
      for (const R pivot : {R(0), R(-1), std::numeric_limits<R>::quiet_NaN()}) {
        const int64_t bad = n * 2 / 3;
        matrix<TypeParam> a = definite_matrix<TypeParam>(uplo == 'l' ? 'L' : 'U', n, kKinds[4], random);
        for (int64_t i = 0; i < n; ++i)
          if (i != bad) (stored(uplo == 'l' ? 'L' : 'U', i, bad) ? a(i, bad) : a(bad, i)) = TypeParam(0);
        a(bad, bad) = pivot;
        EXPECT_EQ(potrf(uplo, a), bad + 1) << uplo << n;
        if (bad > 0) EXPECT_GT(std::real(a(bad - 1, bad - 1)), R(0));
      }
}

// ---- What stands on the factor -------------------------------------------------------------------------------------

// |A x - b| within roundings of |L| |L^H| |x|; the inverse the same for its columns, and its norm is estimated.
TYPED_TEST(Cholesky, SolvesInvertsAndEstimatesTheCondition) {
  using T = TypeParam;
  using R = real_part_t<T>;
  engine random(18);
  const own_threads team(2);
  for (const char uplo : {'L', 'U'})
    for (const int64_t n : {0, 1, 3, 9, 40, 300}) {
      const std::string what = uplo + std::to_string(n);
      const matrix<T> start = definite_matrix<T>(uplo, n, kKinds[0], random);
      const auto wide = whole(uplo, start, true);
      const int64_t lda = start.ld(), sides = 3;
      matrix<T> a = start, b(n, sides);
      b.fill(random, values::fractions);
      matrix<T> x = b, again = b;
      int64_t info = 7;
      TEV_LAPACK(posv)(&uplo, &n, &sides, at(a), &lda, at(x), &lda, &info);
      EXPECT_EQ(info, 0) << what;
      TEV_LAPACK(potrs)(&uplo, &n, &sides, at(a), &lda, at(again), &lda, &info);
      EXPECT_TRUE(info == 0 && again.same_bits(x)) << what;
      const auto factor = moduli(whole(uplo, a, false)), other = adjoint(factor);
      const auto size = uplo == 'L' ? factor * other : other * factor;
      expect_close<T>(wide * widened(x), widened(b), size * moduli(widened(x)), 4 * n + 8, what);
      if (n == 0) continue;

      matrix<T> inverse = a;
      TEV_LAPACK(potri)(&uplo, &n, at(inverse), &lda, &info);
      EXPECT_EQ(info, 0) << what;
      EXPECT_TRUE(inverse.padding_is_intact()) << what;
      const auto all = whole(uplo, inverse, true), probe = probes<T>(n, random);
      expect_close<T>(wide * (all * probe), probe, size * (moduli(all) * moduli(probe)), 8 * n + 8, what + " inverse");

      double anorm = 0, norm_of_inverse = 0;
      for (int64_t j = 0; j < n; ++j) {
        double sum = 0, sum_of_inverse = 0;
        for (int64_t i = 0; i < n; ++i) {
          sum += static_cast<double>(std::abs(wide(i, j)));
          sum_of_inverse += static_cast<double>(std::abs(all(i, j)));
        }
        anorm = std::max(anorm, sum), norm_of_inverse = std::max(norm_of_inverse, sum_of_inverse);
      }
      const R given = static_cast<R>(anorm);
      R rcond = 7;
      matrix<T> work(3 * n, 1);
      extra_work<T> extra(static_cast<size_t>(n));
      TEV_LAPACK(pocon)(&uplo, &n, at(a), &lda, &given, &rcond, at(work), extra.data(), &info);
      const double truth = 1 / (anorm * norm_of_inverse);
      EXPECT_TRUE(info == 0 && rcond >= truth * 0.999 && rcond <= truth * 10) << what << ' ' << rcond << ' ' << truth;
    }
}

TEST_IN_CHILD(CholeskyMemory, AnyRequestMayFail, {"TEV_DISABLE_FAST_MM", "1"}) {
  scarce_memory::install();
  const own_threads three(3);
  engine random(3);
  scarce_memory::fail_each(20, [&] { factor_and_judge<double>('U', 280, kKinds[0], random); });
}

}  // namespace
}  // namespace tev::test
