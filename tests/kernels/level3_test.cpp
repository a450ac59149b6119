// SPDX-License-Identifier: BSD-3-Clause
// Level 3 beside gemm of every tier that this processor can run, in all precisions, judged by host/check.h. One table
// has the routines; what they do is in the case that they are called for.
//   Exact     whole numbers: results match bit for bit (not trsm, which divides).
//   Rounding  random operands within the error bound of any order of summation.
//   Memory    unread triangles, unit diagonals and the rows below a matrix are NaN; operands end at an unmapped page.
#include <gtest/gtest.h>

#include <array>
#include <complex>
#include <string>
#include <vector>

#include "tests/support/judge.h"
#include "tests/support/tier_kernels.h"

namespace tev::test {
namespace {

constexpr uint64_t kSeed = 20240229;

constexpr struct {
  const char* name;
  operation op;
} kRoutines[] = {
    {"x?symm", operation::symm},         {"x?trmm", operation::trmm},       {"x?trsm", operation::trsm},
    {"x?syrk", operation::syrk},         {"?syrk_nobufs", operation::syrk}, {"x?syr2k", operation::syr2k},
    {"?syr2k_nobufs", operation::syr2k}, {"x?hemm", operation::hemm},       {"x?herk", operation::herk},
    {"?herk_nobufs", operation::herk},   {"x?her2k", operation::her2k},     {"?her2k_nobufs", operation::her2k}};

// Around the groups of lines, the strips, the diagonal blocks and the orders at which routes change; empty. The second
// number is the depth of a rank-k update.
constexpr std::array<std::array<int64_t, 2>, 24> kShapes = {
    {{0, 3},    {3, 0},    {1, 1},   {2, 3},   {8, 4},   {4, 49},  {5, 17},  {17, 5},
     {32, 24},  {31, 33},  {33, 9},  {63, 2},  {3, 64},  {65, 31}, {7, 97},  {130, 19},
     {19, 161}, {129, 66}, {1, 200}, {11, 40}, {12, 41}, {88, 30}, {89, 37}, {92, 21}}};

// A sweep draws one in so many of its cases, the same for every tier and not for every option.
constexpr uint64_t kOneOf = 9;

std::vector<std::string> options_of(operation op) {
  std::vector<std::string> all;
  for (const char uplo : {'U', 'L'}) {
    if (is_rank_k(op))
      for (const char trans : {'N', is_hermitian(op) ? 'C' : 'T'}) all.push_back({uplo, trans});
    for (const char side : {'L', 'R'}) {
      if (!is_rank_k(op) && !in_place(op)) all.push_back({side, uplo});
      for (const char trans : {'N', 'T', 'C'})
        for (const char diag : {'N', 'U'})
          if (in_place(op)) all.push_back({side, uplo, trans, diag});
    }
  }
  return all;
}

template <class T>
T random_scalar(engine& random, values kind) {
  const auto choice = random() % 5;
  return choice < 2 ? T(static_cast<real_part_t<T>>(choice)) : random_element<T>(random, kind);
}

template <class T>
class TierLevel3 : public testing::Test {};
using Elements = testing::Types<float, double, std::complex<float>, std::complex<double>>;
TYPED_TEST_SUITE(TierLevel3, Elements);

TYPED_TEST(TierLevel3, Routines) {
  using T = TypeParam;
  for (const auto& r : kRoutines)
    for (const std::string& tier : tiers_with<T>(r.name)) {
      const kernel_calls<T> kernel = {find_kernel(tier, r.name, kLetter<T>)};
      engine random(kSeed);
      for (std::string options : options_of(r.op))
        for (const auto [m, n] : kShapes) {
          if (random() % kOneOf != 0) continue;
          const values kind = r.op != operation::trsm && random() % 2 == 0 ? values::whole : values::fractions;
          if (random() % 3 == 0)
            for (char& letter : options) letter = static_cast<char>(letter ^ 0x20);
          const T alpha = random_scalar<T>(random, kind), beta = random_scalar<T>(random, kind);
          const blas_case<T> x(problem_of(r.op, options, m, is_rank_k(r.op) ? m : n, n, alpha, beta), random, kind);
          const matrix<T> result = x.start();
          problem<T> p = x.p;
          if (r.op == operation::syrk && p.transa == 'T' && n % 2 == 1) p.transa = 'C';  // the same there
          call(p, result.data(), kernel);
          ASSERT_TRUE(is_right(x, result, kind == values::whole)) << tier << ' ' << r.name;
        }
    }
}

}  // namespace
}  // namespace tev::test
