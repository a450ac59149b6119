// SPDX-License-Identifier: BSD-3-Clause
// Matrices that try a factorization, and how its factors are judged: their product, applied to a few vectors, in the
// next wider type.
#pragma once

#include "factorizations/steps.h"
#include "tests/support/own_threads.h"
#include "tests/support/precision.h"
#include "tests/support/wide.h"
#include "tev/lapack.h"
#include "tev/service.h"

namespace tev::test {

// Real routines have integers for extra work, complex ones real numbers.
template <class T>
using extra_work = std::vector<std::conditional_t<kIsComplex<T>, real_part_t<T>, int64_t>>;

template <class T>
matrix<T> random_matrix(int64_t rows, int64_t columns, engine& random, values kind = values::fractions) {
  matrix<T> a(rows, columns);
  a.fill(random, kind);
  return a;
}

inline constexpr lapack::plan kPlans[] = {{1, 8, 2, 1},  {2, 8, 1, 2}, {3, 8, 3, 2},
                                          {2, 16, 2, 1}, {5, 7, 4, 3}, {3, 20, 9, 1}};

inline std::string name_of(const lapack::plan& p) {
  return std::to_string(p.threads) + " threads, width " + std::to_string(p.width) + ", group " +
         std::to_string(p.group) + " of " + std::to_string(p.parts) + ", ";
}

// What is done to a random matrix.
struct kind {
  const char* name;
  // A factor of entry (i, j); the extremes are powers of two of the type's range.
  double (*factor)(int64_t i, int64_t j, int largest_exponent);
};
inline constexpr kind kKinds[] = {
    {"random", [](int64_t, int64_t, int) { return 1.0; }},
    {"graded rows", [](int64_t i, int64_t, int) { return std::exp2(-static_cast<double>(i) / 2); }},
    {"graded columns", [](int64_t, int64_t j, int) { return std::exp2(-static_cast<double>(j) / 2); }},
    {"ill-conditioned", [](int64_t i, int64_t j, int) { return std::exp2(-static_cast<double>(i + j) / 2); }},
    {"upper triangular", [](int64_t i, int64_t j, int) { return i <= j ? 1.0 : 0.0; }},
    {"lower triangular", [](int64_t i, int64_t j, int) { return i >= j ? 1.0 : 0.0; }},
    {"huge", [](int64_t, int64_t, int e) { return std::exp2(e - 12); }},
    {"tiny", [](int64_t, int64_t, int e) { return std::exp2(4 - e); }},
};

template <class T>
void fill(matrix<T>& a, const kind& what, engine& random) {
  using R = real_part_t<T>;
  a.fill(random, values::fractions);
  for (int64_t j = 0; j < a.columns(); ++j)
    for (int64_t i = 0; i < a.rows(); ++i)
      a(i, j) *= static_cast<R>(what.factor(i, j, std::numeric_limits<R>::max_exponent));
}

// A few vectors of wide numbers.
template <class T>
wide_matrix<wide_t<T>> probes(int64_t length, engine& random) {
  matrix<T> x(length, 2);
  x.fill(random, values::fractions);
  return widened(x);
}

// |error| <= bound size, and a little for what underflows, which is multiplied by numbers up to `length`.
template <class T, class W, class S>
void expect_close(const wide_matrix<W>& result, const wide_matrix<W>& expected, const wide_matrix<S>& size,
                  int64_t roundings, const std::string& what) {
  const S least = std::numeric_limits<real_part_t<T>>::denorm_min();
  const S bound = rounding_bound<T>(roundings), underflow = least * static_cast<S>(4 * roundings * roundings);
  for (int64_t j = 0; j < result.columns; ++j)
    for (int64_t i = 0; i < result.rows; ++i) {
      const S error = std::abs(result(i, j) - expected(i, j));
      ASSERT_TRUE(error <= bound * size(i, j) + underflow)
          << what << ": " << error << " beside " << bound * size(i, j) << " at " << i << ", " << j;
    }
}

// A x = B C x within so many roundings of |B| |C| |x|.
template <class T, class W>
void expect_product(const wide_matrix<W>& a, const wide_matrix<W>& b, const wide_matrix<W>& c, int64_t roundings,
                    engine& random, const std::string& what) {
  const wide_matrix<W> x = probes<T>(a.columns, random);
  expect_close<T>(b * (c * x), a * x, moduli(b) * (moduli(c) * moduli(x)), roundings, what);
}

// ---- Argument errors -----------------------------------------------------------------------------------------------

// call(&info) of the routine that has these arguments, each made wrong together with all that come behind it: it is the
// one that is reported, by its position. tests/shim/lapack_test.cpp tries the routines that LAPACK has.
inline void expect_argument_errors(const std::string& name, const std::vector<std::pair<int64_t*, int>>& arguments,
                                   const std::function<void(int64_t* info)>& call) {
  for (auto a = arguments.rbegin(); a != arguments.rend(); ++a) {
    int64_t info = 7;
    *a->first = -1;
    testing::internal::CaptureStdout();
    call(&info);
    EXPECT_NE(testing::internal::GetCapturedStdout().find(name + "."), std::string::npos);
    EXPECT_EQ(info, -a->second) << name;
  }
}

}  // namespace tev::test
