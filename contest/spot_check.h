// SPDX-License-Identifier: BSD-3-Clause
// Some elements of a result against plain sums in double precision: enough to see that a library was called as it
// wants to be, and computes at all.
#pragma once

#include <cmath>
#include <complex>
#include <cstdint>
#include <functional>
#include <limits>
#include <type_traits>
#include <utility>
#include <vector>

#include "contest/operations.h"

namespace tev::contest {

template <class T>
using real_of = decltype(std::abs(T{}));
template <class T>
inline constexpr bool kComplex = !std::is_same_v<T, real_of<T>>;
template <class T>
using wide = std::conditional_t<kComplex<T>, std::complex<double>, double>;

// A matrix by its elements (row, column).
template <class T>
using matrix = std::function<wide<T>(int64_t, int64_t)>;

template <class T>
wide<T> conjugate(wide<T> x) {
  if constexpr (kComplex<T>) return std::conj(x);
  return x;
}

// N, T or C.
template <class T>
matrix<T> turned(matrix<T> x, char letter) {
  if (letter == 'N') return x;
  return [x, letter](int64_t i, int64_t j) { return letter == 'C' ? conjugate<T>(x(j, i)) : x(j, i); };
}

inline bool is_stored(char uplo, int64_t i, int64_t j) { return uplo == 'U' ? i <= j : i >= j; }

template <class T>
matrix<T> triangle(matrix<T> x, char uplo) {
  return [x, uplo](int64_t i, int64_t j) { return is_stored(uplo, i, j) ? x(i, j) : wide<T>(0); };
}

// Symmetric or hermitian, of which one triangle is stored; a hermitian diagonal counts as real.
template <class T>
matrix<T> mirrored(matrix<T> x, char uplo, bool hermitian) {
  return [x, uplo, hermitian](int64_t i, int64_t j) {
    if (hermitian && i == j) return wide<T>(std::real(x(i, i)));
    if (is_stored(uplo, i, j)) return x(i, j);
    return hermitian ? conjugate<T>(x(j, i)) : x(j, i);
  };
}

// The products whose sum is compared, and with what. Whatever the triangle, (i, j) of `expected` is compared only where
// it is stored.
template <class T>
struct identity {
  std::vector<std::pair<matrix<T>, matrix<T>>> products;
  int64_t depth;
  matrix<T> expected;
};

// `before` is C as it was before the call, `after` as it is now.
template <class T>
identity<T> identity_of(const operation& op, const level3_case& c, const matrix<T>& a, const matrix<T>& b,
                        const matrix<T>& before, const matrix<T>& after) {
  const std::string& l = c.letters;
  const auto on_its_side = [&](const matrix<T>& special, const matrix<T>& other) {
    return l[0] == 'L' ? std::pair(special, other) : std::pair(other, special);
  };
  // op(X) op(Y)^T of the rank updates.
  const auto update = [&](const matrix<T>& x, const matrix<T>& y) {
    const char other = op.hermitian ? 'C' : 'T';
    return std::pair(turned<T>(x, l[1]), turned<T>(y, l[1] == 'N' ? other : 'N'));
  };
  switch (op.kind) {
    case shape::product:
      return {{{turned<T>(a, l[0]), turned<T>(b, l[1])}}, c.k, after};
    case shape::symmetric:
      return {{on_its_side(mirrored<T>(a, l[1], op.hermitian), b)}, order_of(c), after};
    case shape::rank_k:
      return {{update(a, a)}, c.k, after};
    case shape::rank_2k:
      return {{update(a, b), update(b, a)}, c.k, after};
    case shape::triangular: {
      const matrix<T> triangular = turned<T>(triangle<T>(a, l[1]), l[2]);
      return {{on_its_side(triangular, op.solves ? after : before)}, order_of(c), op.solves ? before : after};
    }
  }
}

template <class T>
bool holds(const identity<T>& sum, int64_t i, int64_t j) {
  const wide<T> expected = sum.expected(i, j);
  wide<T> total = 0;
  double moduli = std::abs(expected);
  for (const auto& [left, right] : sum.products)
    for (int64_t p = 0; p < sum.depth; ++p) {
      const wide<T> term = left(i, p) * right(p, j);
      total += term;
      moduli += std::abs(term);
    }
  const double epsilon = std::numeric_limits<real_of<T>>::epsilon();
  return std::abs(total - expected) <= 4 * static_cast<double>(sum.depth + 8) * epsilon * moduli;
}

template <class T>
bool looks_right(const operation& op, const level3_case& c, const identity<T>& sum) {
  const bool one_triangle = op.kind == shape::rank_k || op.kind == shape::rank_2k;
  for (int64_t probe = 0; probe < 8; ++probe) {
    const int64_t element = probe * 104729 % (c.m * c.n);
    int64_t i = element % c.m, j = element / c.m;
    if (one_triangle && !is_stored(c.letters[0], i, j)) std::swap(i, j);
    if (!holds(sum, i, j)) return false;
  }
  return true;
}

}  // namespace tev::contest
