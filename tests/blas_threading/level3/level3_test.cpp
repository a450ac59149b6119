// SPDX-License-Identifier: BSD-3-Clause
// gemm, symm, trmm and trsm in all precisions, judged by host/check.h.
//   Exact     whole-number operands: every sum is representable, so results match bit for bit. Finds index mistakes.
//   Rounding  random operands within the error bound of any order of summation.
//   Special   NaN, infinity, zero scalars. That unread parts are not read is in every case: they are NaN.
//   Memory    rows between m and the leading dimension keep their bits; operands end at an unmapped page: every case.
//   Team      the bits do not depend on the team; calls from inside a parallel region.
//   Argument  which argument a report names, in which order they are tested.
#include <gtest/gtest.h>
#include <omp.h>

#include <array>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "blas_threading/level3/tile_product.h"
#include "blas_threading/level3/triangle.h"
#include "host/check.h"
#include "tests/support/blas_case.h"

namespace tev::test {
namespace {

constexpr uint64_t kSeed = 20240229;

constexpr operation kOperations[] = {operation::gemm, operation::symm, operation::trmm, operation::trsm};

// Every combination of the letters of each position: {"NT", "UL"} gives NU, NL, TU, TL.
std::vector<std::string> combinations(const std::vector<std::string>& positions) {
  std::vector<std::string> all = {""};
  for (const std::string& letters : positions) {
    std::vector<std::string> longer;
    for (const std::string& start : all)
      for (char letter : letters) longer.push_back(start + letter);
    all = longer;
  }
  return all;
}

std::vector<std::string> options_of(operation op) {
  if (op == operation::gemm) return combinations({"NTC", "NTC"});
  if (op == operation::symm) return combinations({"LR", "UL"});
  return combinations({"LR", "UL", "NTC", "NU"});
}

struct shape {
  int64_t m, n, k;
};

// Around the tile, the blocks mc, nc, kc, the diagonal block; narrow, deep, long. Those above kForkWork form a team.
template <class T>
std::vector<shape> gemm_shapes() {
  using blas::blocking;
  constexpr int64_t mr = blocking<T>::mr, nr = blocking<T>::nr;
  constexpr int64_t mc = blocking<T>::mc, nc = blocking<T>::nc, kc = blocking<T>::kc;
  return {{0, 3, 2},
          {3, 0, 2},
          {3, 2, 0},
          {-1, 3, 2},
          {3, 2, -1},
          {1, 1, 1},
          {2, 3, 5},
          {7, 5, 17},
          {mr, nr, 3},
          {2 * mr + 1, 3 * nr - 1, 2},
          {mc, nc, kc},
          {mc - 1, 9, kc - 1},
          {mc + 1, nc + 1, kc + 1},
          {5, nc - 1, 2 * kc + 3},
          {700, 1, 401},
          {1, 700, 401},
          {3, 5, 40000},
          {2 * mc + 3, 2 * nc + 5, 17}};
}

std::vector<shape> square_operand_shapes() {
  constexpr int64_t d = blas::kDiagonalBlock;
  return {{0, 3, 0},
          {3, 0, 0},
          {1, 1, 0},
          {2, 1, 0},
          {3, 5, 0},
          {17, 7, 0},
          {d - 1, d + 1, 0},
          {d, d, 0},
          {d + 1, 2 * d - 1, 0},
          {2 * d + 3, d + 9, 0},
          {2, 3 * d + 1, 0},
          {3 * d + 1, 2, 0},
          {1, 600, 0},
          {600, 1, 0}};
}

// alpha and beta: 0, 1 or anything.
template <class T>
T random_scalar(engine& random, values kind) {
  const auto choice = random() % 4;
  return choice < 2 ? T(static_cast<real_part_t<T>>(choice)) : random_element<T>(random, kind);
}

template <class T>
class Level3 : public testing::Test {
 protected:
  ~Level3() override { omp_set_num_threads(omp_get_num_procs()); }

  // Judges a result; `exactly`: no rounding at all.
  static void judge(const blas_case<T>& x, const matrix<T>& result, bool exactly = false) {
    const host::verdict verdict = host::check(x.p, result.data(), 1);
    EXPECT_TRUE(verdict.passed && !(exactly && verdict.worst > 0)) << x << ": " << verdict.text;
    EXPECT_TRUE(result.padding_is_intact()) << x;
  }

  // Every option and shape, with scalars, team size and the case of the letters by chance.
  static void sweep(operation op, values kind) {
    engine random(kSeed);
    for (std::string options : options_of(op))
      for (const shape& s : op == operation::gemm ? gemm_shapes<T>() : square_operand_shapes()) {
        if (random() % 3 == 0)
          for (char& letter : options) letter = static_cast<char>(std::tolower(letter));
        const int threads = std::array{1, 2, 3, 7}[random() % 4];
        const T alpha = random_scalar<T>(random, kind);
        const T beta = in_place(op) ? T(0) : random_scalar<T>(random, kind);
        const blas_case<T> x(problem_of(op, options, s.m, s.n, s.k, alpha, beta), random, kind);
        omp_set_num_threads(threads);
        judge(x, x.run(), kind == values::whole);
        if (testing::Test::HasFailure()) FAIL() << threads << " threads, seed " << kSeed;
      }
  }

  // A case of ordinary size with alpha = 2.
  static blas_case<T> ordinary(operation op, const std::string& options, T beta, uint64_t seed = kSeed) {
    engine random(seed);
    return blas_case<T>(problem_of(op, options, 70, 75, 80, T(2), beta), random, values::fractions);
  }
};

using Elements = testing::Types<float, double, std::complex<float>, std::complex<double>>;
TYPED_TEST_SUITE(Level3, Elements);

TYPED_TEST(Level3, ExactGemm) { this->sweep(operation::gemm, values::whole); }
TYPED_TEST(Level3, ExactSymm) { this->sweep(operation::symm, values::whole); }
TYPED_TEST(Level3, ExactTrmm) { this->sweep(operation::trmm, values::whole); }

TYPED_TEST(Level3, RoundingGemm) { this->sweep(operation::gemm, values::fractions); }
TYPED_TEST(Level3, RoundingSymm) { this->sweep(operation::symm, values::fractions); }
TYPED_TEST(Level3, RoundingTrmm) { this->sweep(operation::trmm, values::fractions); }
TYPED_TEST(Level3, RoundingTrsm) { this->sweep(operation::trsm, values::fractions); }

TYPED_TEST(Level3, SpecialZeroAlphaReadsNoOperand) {
  using T = TypeParam;
  for (operation op : kOperations)
    for (T beta : {T(0), T(1), T(3)}) {
      blas_case<T> x = this->ordinary(op, options_of(op).front(), beta);
      x.p.alpha = T(0), x.p.a = nullptr, x.p.b = nullptr;
      this->judge(x, x.run());
    }
}

TYPED_TEST(Level3, SpecialEmptySumWithBetaOneKeepsBits) {
  using T = TypeParam;
  blas_case<T> x = this->ordinary(operation::gemm, "NN", T(1));
  x.c(3, 4) = nan_element<T>();
  x.p.k = 0;
  EXPECT_TRUE(x.run().same_bits(x.c));
}

TYPED_TEST(Level3, SpecialNanBetaReachesEveryElement) {
  using T = TypeParam;
  for (operation op : {operation::gemm, operation::symm})
    for (T alpha : {T(0), T(1)}) {
      blas_case<T> x = this->ordinary(op, options_of(op).front(), T(1));
      x.p.alpha = alpha, x.p.beta = nan_element<T>();
      const matrix<T> result = x.run();
      for (int64_t j = 0; j < result.columns(); ++j)
        for (int64_t i = 0; i < result.rows(); ++i) ASSERT_TRUE(std::isnan(std::abs(result(i, j)))) << x;
    }
}

// One infinity and one zero in each operand: NaN where they meet, infinities elsewhere in that row or column, and
// nothing in elements that the infinity does not contribute to, such as those beside a triangle.
TYPED_TEST(Level3, SpecialInfinitiesSpreadAsSumsSay) {
  using T = TypeParam;
  const T infinity(std::numeric_limits<real_part_t<T>>::infinity());
  for (operation op : {operation::gemm, operation::symm, operation::trmm})
    for (const std::string& options : options_of(op)) {
      blas_case<T> x = this->ordinary(op, options, in_place(op) ? T(0) : T(1));
      x.b(20, 30) = infinity, x.b(66, 40) = T(0);
      const bool lower = std::toupper(x.p.uplo) == 'L';
      x.a(lower ? 66 : 10, lower ? 10 : 66) = infinity;
      this->judge(x, x.run());
    }
}

// As in the reference, alpha meets an operand before the product, and the moduli of a complex divisor are not squared.
TYPED_TEST(Level3, SpecialIntermediatesDoNotOverflow) {
  using T = TypeParam;
  using R = real_part_t<T>;
  const R large = std::sqrt(std::numeric_limits<R>::max());
  engine random(kSeed);
  blas_case<T> product(problem_of<T>(operation::symm, "LU", 5, 6, 0, T(1 / large), T(0)), random, values::fractions);
  std::fill_n(&product.a(0, 0), 5, T(large * 4));
  product.b(0, 0) = T(large);
  EXPECT_TRUE(std::isfinite(std::abs(product.run()(0, 0))));

  for (const R factor : {large * 16, 1 / large / 16}) {
    blas_case<T> solution(problem_of<T>(operation::trsm, "LUNN", 1, 9, 0, T(1), T(0)), random, values::fractions);
    solution.a(0, 0) *= factor;
    solution.b.fill(random, values::fractions, T(factor));
    this->judge(solution, solution.run());
  }
}

TYPED_TEST(Level3, TeamDoesNotChangeBits) {
  using T = TypeParam;
  for (operation op : {operation::symm, operation::trmm, operation::trsm})
    for (const std::string& options : options_of(op)) {
      const blas_case<T> x = this->ordinary(op, options, in_place(op) ? T(0) : T(3));
      omp_set_num_threads(1);
      const matrix<T> alone = x.run();
      for (int threads : {2, 3, 7}) {
        omp_set_num_threads(threads);
        ASSERT_TRUE(x.run().same_bits(alone)) << x << ", " << threads << " threads";
      }
    }
}

TYPED_TEST(Level3, TeamOfOneInsideParallelRegion) {
  using T = TypeParam;
  for (operation op : kOperations) {
    const std::string options = options_of(op).back();
    const blas_case<T> first = this->ordinary(op, options, T(0), 1), second = this->ordinary(op, options, T(0), 2);
    matrix<T> first_result = first.start(), second_result = second.start();
    const int levels = omp_get_max_active_levels();
    omp_set_max_active_levels(2);
    omp_set_num_threads(3);
#pragma omp parallel sections num_threads(2)
    {
#pragma omp section
      call(first.p, first_result.data());
#pragma omp section
      call(second.p, second_result.data());
    }
    omp_set_max_active_levels(levels);
    this->judge(first, first_result);
    this->judge(second, second_result);
  }
}

// Starts with every argument wrong and puts one right after the other.
TYPED_TEST(Level3, ArgumentErrorsAreReportedInOrder) {
  using T = TypeParam;
  const std::string precision = !kIsComplex<T> ? (sizeof(T) == 4 ? "S" : "D") : (sizeof(T) == 8 ? "C" : "Z");
  for (operation op : {operation::symm, operation::trmm, operation::trsm})
    for (const std::string& options : {"LUNN", "rltu"}) {
      engine random(kSeed);
      const blas_case<T> x(problem_of<T>(op, options, 5, 4, 0, T(2), T(3)), random, values::fractions);
      const bool symm = op == operation::symm;
      const std::string name = precision + (symm ? "SYMM" : op == operation::trmm ? "TRMM" : "TRSM");
      const int64_t order = options[0] == 'L' ? x.p.m : x.p.n;

      problem<T> p = x.p;
      p.side = p.uplo = p.transa = p.diag = 'X';
      p.m = p.n = -1;
      p.lda = order - 1, p.ldb = p.ldc = x.p.m - 1;
      const matrix<T> result = x.start();
      const auto expect = [&](int position) {
        testing::internal::CaptureStdout();
        call(p, result.data());
        const std::string report = testing::internal::GetCapturedStdout();
        EXPECT_NE(report.find(" " + std::to_string(position) + " "), std::string::npos) << name << ": " << report;
        EXPECT_NE(report.find(" " + name + "."), std::string::npos) << name << ": " << report;
      };
      expect(1), p.side = x.p.side;
      expect(2), p.uplo = x.p.uplo;
      if (!symm) expect(3), p.transa = x.p.transa;
      if (!symm) expect(4), p.diag = x.p.diag;
      expect(symm ? 3 : 5), p.m = x.p.m;
      expect(symm ? 4 : 6), p.n = x.p.n;
      expect(symm ? 7 : 9), p.lda = order;
      expect(symm ? 9 : 11), p.ldb = x.p.m;
      if (symm) expect(12);
      EXPECT_TRUE(result.same_bits(x.start())) << name;
    }
}

}  // namespace
}  // namespace tev::test
