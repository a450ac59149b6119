// SPDX-License-Identifier: BSD-3-Clause
// Extensions that are made of the library's routines. Each takes a call (shim/routines.h).
#pragma once

#include <algorithm>
#include <cstdint>

#include "shim/library.h"

namespace tev::shim {

template <class E>
struct routines_of;
#define TEV_ROUTINES_OF(E, p)                        \
  template <>                                        \
  struct routines_of<E> {                            \
    static auto gemm() { return library().p##gemm; } \
    static auto scal() { return library().p##scal; } \
    static auto copy() { return library().p##copy; } \
    static auto axpy() { return library().p##axpy; } \
  };
TEV_ROUTINES_OF(float, s)
TEV_ROUTINES_OF(double, d)
TEV_ROUTINES_OF(tev_complex8, c)
TEV_ROUTINES_OF(tev_complex16, z)
#undef TEV_ROUTINES_OF

template <class E>
bool is_zero(const E& x) {
  if constexpr (requires { x.real; })
    return x.real == 0 && x.imag == 0;
  else
    return x == 0;
}

template <class E>
E one_of() {
  if constexpr (requires(E x) { x.real; })
    return {1, 0};
  else
    return 1;
}

// y := alpha x + beta y; beta = 0 does not read y.
template <class Call>
void compose_axpby(const Call& x) {
  using routines = routines_of<typename Call::element>;
  if (!is_zero(*x.beta)) {
    routines::scal()(&x.n, x.beta, x.y, &x.incy);
    return routines::axpy()(&x.n, x.alpha, x.x, &x.incx, x.y, &x.incy);
  }
  routines::copy()(&x.n, x.x, &x.incx, x.y, &x.incy);
  routines::scal()(&x.n, x.alpha, x.y, &x.incy);
}

// One triangle of C := alpha op(A) op(B) + beta C, by blocks of columns. What lies beside the block on the diagonal is
// a product; the block is made in a square of its own, of which the triangle is kept.
//
//   U:  P P P      L:  D . .      D: on the diagonal, P: beside it
//       D P P          P D .
//       . D P          P P D
template <class Call>
void compose_gemmtr(const Call& x) {
  using E = typename Call::element;
  constexpr int64_t kBlock = 32;  // callers may have small stacks
  const auto gemm = routines_of<E>::gemm();
  const auto multiply = [&](int64_t row, int64_t rows, int64_t column, int64_t columns, const E* beta, E* c,
                            int64_t ldc) {
    if (rows < 1) return;
    gemm(&x.transa, &x.transb, &rows, &columns, &x.k, x.alpha, x.a + (x.transa == 'N' ? row : row * x.lda), &x.lda,
         x.b + (x.transb == 'N' ? column * x.ldb : column), &x.ldb, beta, c, &ldc);
  };
  const auto at = [&](int64_t i, int64_t j) { return x.c + i + j * x.ldc; };
  const bool upper = x.uplo == 'U';
  const E one = one_of<E>(), zero = {};
  E square[kBlock * kBlock];
  for (int64_t j = 0; j < x.n; j += kBlock) {
    const int64_t columns = std::min(kBlock, x.n - j), below = j + columns;
    multiply(upper ? 0 : below, upper ? j : x.n - below, j, columns, x.beta, at(upper ? 0 : below, j), x.ldc);
    multiply(j, columns, j, columns, &zero, square, kBlock);
    for (int64_t i = 0; i < columns; ++i) {
      const int64_t first = upper ? 0 : i, count = upper ? i + 1 : columns - i, next = 1;
      E* const kept = at(j + first, j + i);
      const E* const made = square + first + i * kBlock;
      if (is_zero(*x.beta)) {
        routines_of<E>::copy()(&count, made, &next, kept, &next);
      } else {
        routines_of<E>::scal()(&count, x.beta, kept, &next);
        routines_of<E>::axpy()(&count, &one, made, &next, kept, &next);
      }
    }
  }
}

}  // namespace tev::shim
