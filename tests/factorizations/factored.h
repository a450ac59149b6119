// SPDX-License-Identifier: BSD-3-Clause
// Matrices that try a factorization, and how its factors are judged: their product, applied to a few vectors, in the
// next wider type.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "factorizations/steps.h"
#include "tests/support/own_threads.h"
#include "tests/support/strided.h"
#include "tests/support/wide.h"
#include "tev/service.h"

namespace tev::test {

using Elements = testing::Types<float, double, std::complex<float>, std::complex<double>>;

template <class T>
c_element_t<T>* at(const matrix<T>& a) {
  return reinterpret_cast<c_element_t<T>*>(a.data());
}

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

// The arguments of a call that are checked, by their positions.
struct arguments : std::map<int, int64_t> {
  using std::map<int, int64_t>::map;
  const char* letter(int position) { return reinterpret_cast<const char*>(&at(position)); }  // its lowest byte
};

struct checked_routine {
  const char* name;
  arguments right;
  std::function<void(arguments, int64_t* info)> call;
};

inline std::string g_report;

// How a leading dimension, or a length of work, is known among them: all matrices have an order of 2.
inline constexpr int64_t kLeadingDimension = 3;

// Every argument that is checked is made wrong, with all that are checked after it, and must be the one that is
// reported: a letter that is none, -1, or a leading dimension below the order.
template <class T>
void expect_argument_errors(const std::vector<checked_routine>& routines) {
  const auto before = tev_serv_set_xerbla([](const char* name, const int32_t* info, int32_t length) {
    g_report = std::string(name, static_cast<size_t>(length)) + ' ' + std::to_string(*info);
  });
  const char letter = "SDCZ"[(sizeof(real_part_t<T>) == 8) + 2 * kIsComplex<T>];
  for (const checked_routine& r : routines) {
    int64_t info = 7;
    g_report.clear();
    r.call(r.right, &info);
    EXPECT_TRUE(g_report.empty() && info == 0) << r.name << ": " << g_report << ' ' << info;
    arguments wrong = r.right;
    for (auto a = wrong.rbegin(); a != wrong.rend(); ++a) {
      a->second = a->second >= 'A' ? '?' : a->second == kLeadingDimension ? 1 : -1;
      r.call(wrong, &info);
      EXPECT_EQ(g_report, letter + std::string(r.name) + ' ' + std::to_string(a->first));
      EXPECT_EQ(info, -a->first) << r.name;
    }
  }
  tev_serv_set_xerbla(before);
}

}  // namespace tev::test
