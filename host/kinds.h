// SPDX-License-Identifier: BSD-3-Clause
// The four precisions and the operations: letters, names, element types, the count of arithmetic.
#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "host/problem.h"

namespace tev::host {

enum class precision { s, d, c, z };

inline char letter_of(precision p) { return "sdcz"[static_cast<int>(p)]; }
inline bool is_complex(precision p) { return p == precision::c || p == precision::z; }

// As NumPy calls it.
inline const char* type_name(precision p) {
  constexpr const char* kNames[] = {"float32", "float64", "complex64", "complex128"};
  return kNames[static_cast<int>(p)];
}

inline int64_t element_bytes(precision p) {
  constexpr int64_t kBytes[] = {4, 8, 8, 16};
  return kBytes[static_cast<int>(p)];
}

inline const char* name_of(operation op) {
  constexpr const char* kNames[] = {"gemm", "symm",  "trmm",  "trsm",  "hemm",  "syrk",
                                    "herk", "syr2k", "her2k", "larfb", "laswp", "lu_step"};
  return kNames[static_cast<int>(op)];
}

// trmm and trsm write their result over B.
inline bool is_in_place(operation op) { return op == operation::trmm || op == operation::trsm; }

// Steps of a factorization that are no BLAS calls.
inline bool is_lapack(operation op) {
  return op == operation::larfb || op == operation::laswp || op == operation::lu_step;
}

// Has a size k beside m and n.
inline bool has_depth(operation op) { return op == operation::gemm || op == operation::syrk || is_lapack(op); }

// Calls f with a zero of the element type.
template <class F>
decltype(auto) with_type(precision p, F&& f) {
  switch (p) {
    case precision::s:
      return std::forward<F>(f)(float());
    case precision::d:
      return std::forward<F>(f)(double());
    case precision::c:
      return std::forward<F>(f)(std::complex<float>());
    default:
      return std::forward<F>(f)(std::complex<double>());
  }
}

// Floating-point operations as they are usually counted: a multiplication and an addition for each term of a sum, four
// times that for complex numbers. The side of symm, trmm and trsm tells which size the sums have. Of larfb the two
// large products count; interchanges are no arithmetic.
inline double flops(operation op, precision p, char side, int64_t m, int64_t n, int64_t k) {
  const double rows = static_cast<double>(m), columns = static_cast<double>(n), depth = static_cast<double>(k);
  const auto pairs = [&] {  // of a multiplication and an addition
    switch (op) {
      case operation::gemm:
        return rows * columns * depth;
      case operation::syrk:
        return columns * columns * depth / 2;
      case operation::larfb:
        return 2 * rows * columns * depth;
      case operation::laswp:
        return 0.0;
      case operation::lu_step:
        return columns * depth * (depth / 2 + rows - depth);
      default:
        return rows * columns * (side == 'L' ? rows : columns) / (is_in_place(op) ? 2 : 1);
    }
  };
  return 2 * pairs() * (is_complex(p) ? 4 : 1);
}

}  // namespace tev::host
