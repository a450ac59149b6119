// SPDX-License-Identifier: BSD-3-Clause
// tev_blas_?gemm by every route of its front end: sizes of 1, few rows, few columns, stripes, one thread, the drivers;
// on every tier that the processor can run, with teams of any size, and with no memory at all. Whole-number operands:
// every result is exact. Tier, threads and stripes are decided once per process, so each setting has a child process.
#include <gtest/gtest.h>

#include <iostream>
#include <string>
#include <vector>

#include "host/check.h"
#include "tests/support/blas_case.h"
#include "tests/support/each_tier.h"

namespace tev::test {
namespace {

struct shape {
  int64_t m, n, k;
};

// With the three rows of padding, 253 makes a leading dimension of 256.
constexpr shape kShapes[] = {{1, 1, 1},     {1, 1, 9},     {1, 70, 33},    {70, 1, 33},
                             {64, 9, 1},    {65, 9, 1},    {9, 1, 1},      {3, 10, 253},  // level 2
                             {200, 2, 300}, {1001, 3, 50}, {100, 15, 253},                // few columns
                             {50, 40, 30},  {129, 65, 77}};

template <class T>
T general_scalar() {
  if constexpr (kIsComplex<T>)
    return {2, -1};
  else
    return 2;
}

template <class T>
bool is_right(const blas_case<T>& x) {
  const matrix<T> result = x.run();
  const host::verdict verdict = host::check(x.p, result.data(), 1);
  if (verdict.passed && verdict.worst == 0 && result.padding_is_intact()) return true;
  std::cout << x << " (" << sizeof(T) << " bytes): " << verdict.text << '\n';
  return false;
}

// How many products are wrong. Options, shapes and betas meet in all combinations of two.
template <class T>
int failures() {
  engine random(1);
  int wrong = 0, next = 0;
  const T betas[] = {T(0), T(1), general_scalar<T>()};
  for (const char* options : {"NN", "NT", "NC", "TN", "tt", "TC", "CN", "Ct", "CC"})
    for (const shape& s : kShapes) {
      const T beta = betas[next++ % 3];
      const auto p = problem_of<T>(operation::gemm, options, s.m, s.n, s.k, general_scalar<T>(), beta);
      wrong += !is_right(blas_case<T>(p, random, values::whole));
    }
  return wrong;
}

int all_failures() {
  return failures<float>() + failures<double>() + failures<std::complex<float>>() + failures<std::complex<double>>();
}

template <class Body>
void expect_right_on_every_tier(environment settings, Body body) {
  settings.emplace_back("TEV_DYNAMIC", "FALSE");
  on_each_tier(settings, [&](const tier_in_force&) { return body(); });
}

TEST(GemmFrontEnd, TeamsOfAnySize) {
  for (const char* threads : {"1", "3", "16", "64"})
    expect_right_on_every_tier({{"TEV_NUM_THREADS", threads}}, all_failures);
}

TEST(GemmFrontEnd, ATeamSmallerThanAskedFor) {
  expect_right_on_every_tier({{"TEV_NUM_THREADS", "7"}, {"OMP_THREAD_LIMIT", "2"}}, all_failures);
}

TEST(GemmFrontEnd, Stripes) {
  for (const char* stripes : {"2", "9"})
    expect_right_on_every_tier({{"TEV_NUM_THREADS", "5"}, {"TEV_NUM_STRIPES", stripes}}, all_failures);
}

TEST(GemmFrontEnd, WithoutAnyMemory) {
  expect_right_on_every_tier({{"TEV_NUM_THREADS", "3"}}, [] {
    i_malloc = [](size_t) -> void* { return nullptr; };
    return all_failures();
  });
}

// Infinities and NaN beside zero sizes: an empty sum reads no operand, and only a beta of zero overwrites what C holds.
TEST(GemmFrontEnd, AnEmptySumScalesC) {
  expect_right_on_every_tier({{"TEV_NUM_THREADS", "3"}}, [] {
    using T = std::complex<double>;
    engine random(1);
    int wrong = 0;
    for (const shape& s : {shape{1, 7, 0}, {7, 1, -3}, {9, 8, 5}, {1, 1, 1}})
      for (const T beta : {T(0), T(1), T(2, -1), nan_element<T>()}) {
        blas_case<T> x(problem_of<T>(operation::gemm, "CT", s.m, s.n, s.k, T(0), beta), random, values::whole);
        x.p.a = x.p.b = nullptr;
        wrong += !is_right(x);
      }
    return wrong;
  });
}

}  // namespace
}  // namespace tev::test
