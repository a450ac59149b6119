// SPDX-License-Identifier: BSD-3-Clause
// LU and what stands on it.

#include "factorizations/lu.h"
#include "factorizations/team_steps.h"
#include "tests/factorizations/factored.h"
#include "tests/support/in_child.h"
#include "tests/support/scarce_memory.h"

namespace tev::test {
namespace {

template <class T>
class Lu : public testing::Test {};
TYPED_TEST_SUITE(Lu, Elements);

template <class T>
auto modulus1(const T& x) {
  return std::abs(std::real(x)) + std::abs(std::imag(x));
}

template <class T>
struct factored_lu {
  // Through getrf, or by a plan of the test's.
  explicit factored_lu(const matrix<T>& start, const lapack::plan* p = nullptr)
      : a(start), pivots(static_cast<size_t>(std::min(a.rows(), a.columns()))) {
    const int64_t m = a.rows(), n = a.columns(), lda = a.ld();
    if (p == nullptr) {
      TEV_LAPACK(getrf)(&m, &n, at(a), &lda, pivots.data(), &info);
      return;
    }
    lapack::lu_factorization<c_element_t<T>> lu({at(a), m, n, lda}, pivots.data(), p->width);
    lapack::run_on_team(lu, lu.division().panels(), lu.division().blocks(), *p);
    info = lu.info();
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

  // P^-1 x.
  template <class W>
  wide_matrix<W> reordered(wide_matrix<W> x) const {
    for (int64_t i = order(); i-- > 0;)
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
  for (const shape& s : {shape{257, 256, 2}, {300, 400, 5}}) factor_and_judge<TypeParam>(s, kKinds[0], random);
}

// Blocks and groups that end anywhere; and whoever takes them, the bits are the same.
TYPED_TEST(Lu, EveryPlanFactors) {
  engine random(7);
  for (const lapack::plan& p : kPlans)
    for (const auto& [m, n] : {std::pair(60, 60), {61, 97}, {97, 61}, {64, 40}}) {
      const matrix<TypeParam> start = random_matrix<TypeParam>(m, n, random);
      const factored_lu<TypeParam> f(start, &p), again(start, &p);
      judge(start, f, random, name_of(p) + std::to_string(m) + 'x' + std::to_string(n));
      EXPECT_TRUE(again.a.same_bits(f.a) && again.pivots == f.pivots) << name_of(p);
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

// ---- What stands on the factors ------------------------------------------------------------------------------------

template <class W>
wide_matrix<W> transposed(const wide_matrix<W>& a, bool conjugated) {
  wide_matrix<W> result = adjoint(a);
  if (!conjugated)
    for (W& x : result.data) x = conjugate(x);
  return result;
}

// |op(A) x - b| <= gamma(3 n + 8) |op(P L U)| |x|: the factors' and two solutions' roundings.
TYPED_TEST(Lu, SolvesSystems) {
  using T = TypeParam;
  engine random(21);
  for (const auto& [n, sides] :
       {std::pair<int64_t, int64_t>(0, 3), {1, 1}, {3, 0}, {10, 1}, {33, 2}, {70, 40}, {300, 33}})
    for (const char trans : {'N', 't', 'C'}) {
      const own_threads team(2);
      const matrix<T> start = random_matrix<T>(n, n, random), b = random_matrix<T>(n, sides, random);
      matrix<T> x = b;
      const int64_t ldb = b.ld();
      int64_t info = 7;
      factored_lu<T> f(start);
      if (trans == 'N') {
        const int64_t lda = start.ld();
        matrix<T> a = start;
        TEV_LAPACK(gesv)(&n, &sides, at(a), &lda, f.pivots.data(), at(x), &ldb, &info);
        EXPECT_TRUE(a.same_bits(f.a));
      } else {
        const int64_t lda = f.a.ld();
        TEV_LAPACK(getrs)(&trans, &n, &sides, at(f.a), &lda, f.pivots.data(), at(x), &ldb, &info);
      }
      EXPECT_EQ(info, 0);
      EXPECT_TRUE(x.padding_is_intact());
      const auto turned = [&](const auto& a) { return trans == 'N' ? a : transposed(a, trans == 'C'); };
      const auto size = f.reordered(moduli(f.lower()) * moduli(f.upper()));
      expect_close<T>(turned(widened(start)) * widened(x), widened(b), turned(size) * moduli(widened(x)), 3 * n + 8,
                      std::string("solve ") + trans + std::to_string(n));
    }
}

template <class T>
double norm_of(const wide_matrix<T>& a, bool of_rows) {
  double largest = 0;
  for (int64_t i = 0; i < a.columns; ++i) {
    double sum = 0;
    for (int64_t j = 0; j < a.rows; ++j) sum += static_cast<double>(std::abs(of_rows ? a(i, j) : a(j, i)));
    largest = std::max(largest, sum);
  }
  return largest;
}

template <class T>
matrix<T> inverse_of(const factored_lu<T>& f, int64_t lwork) {
  matrix<T> x = f.a;
  const int64_t n = x.rows(), lda = x.ld();
  int64_t info = 7, asks = -1;
  matrix<T> work(std::max<int64_t>(lwork, 1), 1, 0);
  TEV_LAPACK(getri)(&n, at(x), &lda, f.pivots.data(), at(work), &asks, &info);
  EXPECT_EQ(work(0, 0), T(static_cast<real_part_t<T>>(std::max<int64_t>(64 * n, 1))));
  TEV_LAPACK(getri)(&n, at(x), &lda, f.pivots.data(), at(work), &lwork, &info);
  EXPECT_EQ(info, 0);
  return x;
}

template <class T>
double condition_of(const factored_lu<T>& f, char norm, double anorm) {
  const int64_t n = f.order(), lda = f.a.ld();
  const auto given = static_cast<real_part_t<T>>(anorm);
  real_part_t<T> rcond = 7;
  int64_t info = 7;
  matrix<T> work(4 * n, 1, 0), a = f.a;
  extra_work<T> extra(static_cast<size_t>(2 * n));
  TEV_LAPACK(gecon)(&norm, &n, at(a), &lda, &given, &rcond, at(work), extra.data(), &info);
  EXPECT_EQ(info, 0);
  return static_cast<double>(rcond);
}

// X A = I within roundings of |X| |L| |U|; and the norm of the inverse is estimated from below, within a factor of 10.
TYPED_TEST(Lu, InvertsAndEstimatesTheCondition) {
  using T = TypeParam;
  engine random(22);
  for (const int64_t n : {1, 2, 9, 30, 70, 300})
    for (const int64_t lwork : {n, 64 * n}) {
      const own_threads team(2);
      const matrix<T> start = random_matrix<T>(n, n, random);
      const factored_lu<T> f(start);
      const matrix<T> x = inverse_of(f, lwork);
      EXPECT_TRUE(x.padding_is_intact());
      const auto wide = widened(start), inverse = widened(x);
      wide_matrix<wide_t<T>> probe = probes<T>(n, random), image = wide * probe;
      const auto size = moduli(inverse) * f.reordered(moduli(f.lower()) * (moduli(f.upper()) * moduli(probe)));
      expect_close<T>(inverse * image, probe, size, 6 * n + 8, "inverse " + std::to_string(n));
      for (const char norm : {'1', 'i'}) {
        const double anorm = norm_of(wide, norm == 'i'), truth = 1 / (anorm * norm_of(inverse, norm == 'i'));
        const double rcond = condition_of(f, norm, anorm);
        EXPECT_TRUE(rcond >= truth * 0.999 && rcond <= truth * 10) << n << norm << rcond << ' ' << truth;
      }
    }
}

TYPED_TEST(Lu, ConditionOfWhatHasNone) {
  using T = TypeParam;
  matrix<T> a(3, 3);
  for (int64_t j = 0; j < 3; ++j)
    for (int64_t i = 0; i < 3; ++i) a(i, j) = T(static_cast<real_part_t<T>>(i == j));
  EXPECT_EQ(condition_of(factored_lu<T>(a), 'O', 0), 0);
  EXPECT_EQ(condition_of(factored_lu<T>(a), 'O', std::numeric_limits<double>::infinity()), 0);
  a(1, 1) = 0;
  EXPECT_EQ(condition_of(factored_lu<T>(a), 'O', 1), 0);
  a(1, 1) = nan_element<T>();
  EXPECT_TRUE(std::isnan(condition_of(factored_lu<T>(a), '1', 1)));
}

// Whole numbers, whose right-hand sides are exact: the true error is within the bound that refinement tells.
TYPED_TEST(Lu, RefinementBoundsTheError) {
  using T = TypeParam;
  using R = real_part_t<T>;
  engine random(23);
  for (const int64_t n : {1, 8, 40})
    for (const char trans : {'n', 'T', 'C'}) {
      const matrix<T> a = random_matrix<T>(n, n, random, values::whole),
                      truth = random_matrix<T>(n, 2, random, values::whole);
      const auto wide = widened(a);
      const auto image = (trans == 'n' ? wide : transposed(wide, trans == 'C')) * widened(truth);
      matrix<T> b(n, 2), x(n, 2), work(3 * n, 1);
      for (int64_t j = 0; j < 2; ++j)
        for (int64_t i = 0; i < n; ++i) {
          b(i, j) = T(image(i, j));
          x(i, j) = truth(i, j) * (R(1) + R(i % 3) / R(1000));
        }
      factored_lu<T> f(a);
      R ferr[2], berr[2];
      extra_work<T> extra(static_cast<size_t>(n));
      const int64_t sides = 2, lda = a.ld(), ldaf = f.a.ld(), ldb = b.ld();
      int64_t info = 7;
      TEV_LAPACK(gerfs)
      (&trans, &n, &sides, at(a), &lda, at(f.a), &ldaf, f.pivots.data(), at(b), &ldb, at(x), &ldb, ferr, berr, at(work),
       extra.data(), &info);
      EXPECT_EQ(info, 0);
      for (int64_t j = 0; j < 2 && f.info == 0; ++j) {
        double error = 0, largest = 0;
        for (int64_t i = 0; i < n; ++i) {
          error = std::max(error, static_cast<double>(modulus1(x(i, j) - truth(i, j))));
          largest = std::max(largest, static_cast<double>(modulus1(x(i, j))));
        }
        EXPECT_LE(berr[j], 4 * std::numeric_limits<R>::epsilon()) << n << trans;
        EXPECT_LE(error, static_cast<double>(ferr[j]) * largest) << n << trans;
        EXPECT_LE(ferr[j], R(n) * R(2000) * std::numeric_limits<R>::epsilon()) << n << trans;
      }
    }
}

// Powers of two far beyond the type, permuted: the factors and the determinant are exact.
TYPED_TEST(Lu, DeterminantsHaveTheirOwnExponent) {
  using T = TypeParam;
  using R = real_part_t<T>;
  for (const int64_t n : {0, 1, 5, 6})
    for (const int exponent : {-90, 3, 100}) {
      matrix<T> a(n, n);
      for (int64_t j = 0; j < n; ++j)
        for (int64_t i = 0; i < n; ++i) a(i, j) = T(i == (j + 1) % n ? R(3) * std::ldexp(R(1), exponent) : R(0));
      factored_lu<T> f(a);
      const int64_t lda = f.a.ld();
      T mantissa;
      int64_t power = 0;
      TEV_LAPACK(getdet)(&n, at(f.a), &lda, f.pivots.data(), out(&mantissa), &power);
      int32_t shift = 0;
      const R sign = n % 2 == 0 && n > 0 ? R(-1) : R(1);  // of a cycle of n
      EXPECT_EQ(mantissa, T(std::frexp(sign * std::pow(R(3), R(n)), &shift))) << n;
      EXPECT_EQ(power, n * exponent + shift) << n;
    }
}

TYPED_TEST(Lu, ArgumentErrorsOfRefinement) {
  using T = TypeParam;
  int64_t n = 2, sides = 1, lda = 2, ldaf = 2, ldb = 2, ldx = 2;
  const matrix<T> work(3 * n, 1);
  expect_argument_errors("GERFS", {{&n, 2}, {&sides, 3}, {&lda, 5}, {&ldaf, 7}, {&ldb, 10}, {&ldx, 12}},
                         [&](int64_t* info) {
                           TEV_LAPACK(gerfs)
                           ("T", &n, &sides, nullptr, &lda, nullptr, &ldaf, nullptr, nullptr, &ldb, nullptr, &ldx,
                            nullptr, nullptr, at(work), nullptr, info);
                         });
}

TEST_IN_CHILD(LuMemory, AnyRequestMayFail, {"TEV_DISABLE_FAST_MM", "1"}) {
  scarce_memory::install();
  const own_threads three(3);
  engine random(3);
  const matrix<double> start = random_matrix<double>(300, 280, random);
  scarce_memory::fail_each(20, [&] { judge(start, factored_lu<double>(start), random, "scarce memory"); });
}

}  // namespace
}  // namespace tev::test
