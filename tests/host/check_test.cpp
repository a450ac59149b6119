// SPDX-License-Identifier: BSD-3-Clause
// The judge itself: right results pass, single wrong elements do not.
#include "host/check.h"

#include "tests/support/blas_case.h"

namespace tev::test {
namespace {

using host::check;
using host::verdict;

// A = [2 3; . 4] (upper), B = [5 7; 6 8], by hand.
TEST(Check, AgreesWithHandCalculation) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::vector<double> a = {2, nan, 3, 4}, full = {2, 1, 3, 4}, b = {5, 6, 7, 8};
  struct example {
    operation op;
    const char* options;
    std::vector<double> result;
  };
  for (const example& e :
       {example{operation::gemm, "NN", {28, 29, 38, 39}}, example{operation::gemm, "TN", {16, 39, 22, 53}},
        example{operation::gemm, "NT", {31, 33, 36, 38}}, example{operation::symm, "LU", {28, 39, 38, 53}},
        example{operation::symm, "RU", {31, 36, 43, 50}}, example{operation::trmm, "LUNN", {28, 24, 38, 32}},
        example{operation::trmm, "RUTU", {26, 30, 7, 8}}, example{operation::trmm, "RUNN", {10, 12, 43, 50}},
        example{operation::trsm, "LUNN", {0.25, 1.5, 0.5, 2}}, example{operation::trsm, "LUTU", {5, -9, 7, -13}},
        example{operation::syrk, "UN", {13, nan, 14, 17}}, example{operation::syrk, "LT", {5, 10, nan, 25}},
        example{operation::syr2k, "UN", {62, nan, 69, 76}}}) {
    problem<double> p = problem_of(e.op, e.options, 2, 2, 2, 1.0, 0.0);
    p.a = e.op == operation::gemm || is_rank_k(e.op) ? full.data() : a.data(), p.b = b.data(),
    p.lda = p.ldb = p.ldc = 2;
    EXPECT_EQ(check(p, e.result.data(), 1).worst, 0) << e.options << ": " << check(p, e.result.data(), 1).text;
    std::vector<double> wrong = e.result;
    wrong[3] += 1e-6;
    EXPECT_FALSE(check(p, wrong.data(), 1).passed) << e.options;
  }
}

// A = [1+i 2], B = [i 3]: A A^H, A B^H + B A^H with alpha = i and with alpha = 1, and a product with the Hermitian
// matrix [2 1+i; . 3] (upper). Diagonals keep nothing imaginary.
TEST(Check, KnowsHermitianResults) {
  using T = std::complex<double>;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::vector<T> a = {T(1, 1), 2}, b = {T(0, 1), 3}, h = {T(2, nan), nan, T(1, 1), T(3, nan)};
  const auto passes = [](problem<T> p, std::vector<T> result) { return check(p, result.data(), 1).passed; };
  problem<T> p = problem_of<T>(operation::herk, "UN", 1, 1, 2, 1, 0);
  p.a = a.data(), p.b = b.data(), p.lda = p.ldb = p.ldc = 1;
  EXPECT_TRUE(passes(p, {6}) && !passes(p, {T(6, 1e-30)}) && !passes(p, {T(4, 2)}));
  p.op = operation::her2k;
  EXPECT_TRUE(passes(p, {14}));
  p.alpha = T(0, 1);  // i (7 - i) and its conjugate
  EXPECT_TRUE(passes(p, {2}) && !passes(p, {T(0, 14)}));
  p = problem_of<T>(operation::hemm, "LU", 2, 1, 0, 1, 0);
  p.a = h.data(), p.b = b.data(), p.lda = p.ldb = p.ldc = 2;
  EXPECT_TRUE(passes(p, {T(3, 5), T(10, 1)}) && !passes(p, {T(3, 5), T(8, 1)}));
}

template <class T>
class CheckOf : public testing::Test {
 protected:
  static blas_case<T> example(operation op, const std::string& options) {
    engine random(7);
    return {problem_of<T>(op, options, 9, 8, 10, T(2), T(3)), random, values::fractions};
  }
  static bool passes(const problem<T>& p, const matrix<T>& result) { return check(p, result.data(), 2).passed; }
};

TYPED_TEST_SUITE(CheckOf, Elements);

// The bound of gemm, written out: an error of half of it passes, twice of it does not, and the place is named.
TYPED_TEST(CheckOf, KnowsTheBound) {
  using T = TypeParam;
  using R = real_part_t<T>;
  const auto modulus = [](T x) { return static_cast<double>(std::abs(std::real(x)) + std::abs(std::imag(x))); };
  engine random(9);
  const blas_case<T> x(problem_of<T>(operation::gemm, "NN", 9, 8, 10, T(2), T(1)), random, values::whole);
  double moduli = modulus(x.c(4, 5));
  for (int64_t l = 0; l < 10; ++l) moduli += 2 * modulus(x.a(4, l)) * modulus(x.b(l, 5));
  const double n = kIsComplex<T> ? 28 : 14, u = static_cast<double>(std::numeric_limits<R>::epsilon()) / 2;
  const double bound = n * u / (1 - n * u) * moduli;
  // Exact results of whole numbers are below 2^9, so an error of half the bound is several units in their last place.
  for (double share : {0.5, 2.0}) {
    matrix<T> result = x.run();
    result(4, 5) += T(static_cast<R>(share * bound));
    const verdict found = check(x.p, result.data(), 3);
    EXPECT_EQ(found.passed, share < 1) << found.text;
    EXPECT_NEAR(found.worst, share, 0.45) << found.text;
    EXPECT_EQ(found.row, 4);
    EXPECT_EQ(found.column, 5);
  }
}

TYPED_TEST(CheckOf, FindsNanAndInfinityOutOfPlace) {
  using T = TypeParam;
  const T nan = nan_element<T>(), infinity(std::numeric_limits<real_part_t<T>>::infinity());
  for (operation op : {operation::gemm, operation::symm, operation::trmm, operation::trsm})
    for (T wrong : {nan, infinity}) {
      const blas_case<T> x = this->example(op, op == operation::gemm ? "NN" : "LUNN");
      const matrix<T> result = x.run();
      result(1, 2) = wrong;
      const verdict found = check(x.p, result.data(), 1);
      EXPECT_FALSE(found.passed) << x;
      EXPECT_EQ(found.row + 10 * found.column, 21) << x;
      EXPECT_EQ(found.text.find("singular") != std::string::npos, op == operation::trsm) << found.text;
    }

  // The other way round: the product says NaN or infinity and the result does not.
  const blas_case<T> x = this->example(operation::gemm, "NN");
  for (T source : {nan, infinity}) {
    x.b(3, 3) = source;
    const matrix<T> result = x.run();
    EXPECT_TRUE(this->passes(x.p, result));
    result(0, 3) = T(1);
    EXPECT_FALSE(this->passes(x.p, result));
    result(0, 3) = -infinity * x.a(0, 3);
    EXPECT_EQ(this->passes(x.p, result), kIsComplex<T> || std::isnan(std::abs(source)));
  }
}

TYPED_TEST(CheckOf, AnInfiniteAlphaLeavesNothingFinite) {
  using T = TypeParam;
  const T infinity(std::numeric_limits<real_part_t<T>>::infinity());
  for (operation op : {operation::gemm, operation::symm, operation::trmm, operation::trsm}) {
    blas_case<T> x = this->example(op, op == operation::gemm ? "NN" : "LUNN");
    x.p.alpha = infinity;
    const matrix<T> result = x.run();
    for (const auto& [element, right] :
         {std::pair(result(1, 2), true), {-result(1, 2), true}, {nan_element<T>(), true}, {T(1), false}}) {
      result(1, 2) = element;
      EXPECT_EQ(this->passes(x.p, result), right) << x << ": " << element;
    }
  }
}

TEST(Check, TellsASingularMatrix) {
  engine random(10);
  blas_case<double> x(problem_of(operation::trsm, "LUNN", 4, 3, 0, 1.0, 0.0), random, values::fractions);
  x.a(2, 2) = 0;
  EXPECT_NE(check(x.p, x.run().data(), 1).text.find("singular"), std::string::npos);
}

TEST(Check, ReportsProgressUpToOne) {
  engine random(11);
  const blas_case<double> x(problem_of(operation::gemm, "NN", 20, 50, 30, 1.0, 0.0), random, values::fractions);
  std::vector<double> shares = {0};
  check(x.p, x.run().data(), 3, [&](double share) { shares.push_back(share); });
  EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
  EXPECT_EQ(shares.back(), 1);
}

}  // namespace
}  // namespace tev::test
