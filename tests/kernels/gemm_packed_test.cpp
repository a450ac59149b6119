// SPDX-License-Identifier: BSD-3-Clause
// The sequential product of every tier on shapes that it packs, in all precisions. The tiers of the processor compute
// the same problem; operands end at an unmapped page, and the rows below C keep their bits.
//   Exact     whole numbers: no rounding. Edges of tiles, several blocks in each direction
//   Rounding  fractions, against sums in a wider type
//   Special   NaN and infinity, beta and alpha of zero, nothing to sum
#include <gtest/gtest.h>

#include <complex>
#include <limits>
#include <string>

#include "tests/support/judge.h"
#include "tests/support/tier_kernels.h"

namespace tev::test {
namespace {

template <class T>
T number(int re, int im) {
  if constexpr (kIsComplex<T>)
    return {static_cast<real_part_t<T>>(re), static_cast<real_part_t<T>>(im)};
  else
    return static_cast<T>(re);
}

template <class T>
class PackedGemm : public testing::Test {
 protected:
  static void expect_right_on_every_tier(const blas_case<T>& x, bool exactly) {
    for (const std::string& tier : tiers_with<T>("x?gemm")) {
      const matrix<T> result = x.start();
      call(x.p, result.data(), kernel_calls<T>{find_kernel(tier, "x?gemm", kLetter<T>)});
      EXPECT_TRUE(is_right(x, result, exactly)) << tier;
    }
  }
};
using precisions = testing::Types<float, double, std::complex<float>, std::complex<double>>;
TYPED_TEST_SUITE(PackedGemm, precisions);

// Remainders of every strip width; k about the thresholds and caps of the panels; rows beyond the largest block.
TYPED_TEST(PackedGemm, ExactInBlocksAndEdges) {
  using T = TypeParam;
  const struct {
    const char* letters;
    int64_t m, n, k;
  } kCases[] = {{"NN", 239, 95, 47},  {"NT", 199, 77, 129}, {"TN", 73, 223, 257}, {"CT", 209, 81, 385},
                {"NC", 75, 211, 193}, {"CN", 196, 83, 97},  {"TC", 206, 74, 769}, {"NN", 10010, 73, 3}};
  engine random(1009);
  int turn = 0;
  for (const auto& [letters, m, n, k] : kCases) {
    const T alpha = turn % 2 == 0 ? T(1) : number<T>(2, -1), beta = number<T>(turn % 3 - 1, turn % 3 == 0 ? 1 : 0);
    this->expect_right_on_every_tier(
        blas_case<T>(problem_of(operation::gemm, letters, m, n, k, alpha, beta), random, values::whole), true);
    ++turn;
  }
}

TYPED_TEST(PackedGemm, Rounding) {
  using T = TypeParam;
  engine random(1);
  const T alpha = number<T>(3, 2) / T(7), beta = number<T>(-1, 4) / T(3);
  this->expect_right_on_every_tier(
      blas_case<T>(problem_of(operation::gemm, "NT", 203, 99, 401, alpha, beta), random, values::fractions), false);
}

TYPED_TEST(PackedGemm, SpecialValuesAndNothingToSum) {
  using T = TypeParam;
  engine random(2);
  const struct {
    T alpha, beta;
    int64_t k;
    bool is_infinite;
  } kCases[] = {{T(1), T(0), 60, false}, {T(1), nan_element<T>(), 60, false},
                {T(0), T(0), 60, false}, {T(0), T(1), 60, false},
                {T(1), T(0), 0, false},  {T(1), T(1), 0, false},
                {T(1), T(1), 60, true}};
  for (const auto& [alpha, beta, k, is_infinite] : kCases) {
    blas_case<T> x(problem_of(operation::gemm, "NN", 205, 79, k, alpha, beta), random, values::whole);
    if (alpha == T(0)) x.p.a = x.p.b = nullptr;
    if (is_infinite) x.a(204, 3) = T(std::numeric_limits<real_part_t<T>>::infinity());
    this->expect_right_on_every_tier(x, true);
  }
}

}  // namespace
}  // namespace tev::test
