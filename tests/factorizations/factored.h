// SPDX-License-Identifier: BSD-3-Clause
// Matrices that try a factorization, and how its factors are judged: their product, applied to a few vectors, in the
// next wider type.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>

#include "tests/support/strided.h"
#include "tests/support/wide.h"
#include "tev/service.h"

namespace tev::test {

using Elements = testing::Types<float, double, std::complex<float>, std::complex<double>>;

template <class T>
c_element_t<T>* at(const matrix<T>& a) {
  return reinterpret_cast<c_element_t<T>*>(a.data());
}

struct own_threads {
  explicit own_threads(int32_t n) : before(tev_serv_set_num_threads_local(n)) {}
  ~own_threads() { tev_serv_set_num_threads_local(before); }
  int32_t before;
};

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

}  // namespace tev::test
