// SPDX-License-Identifier: BSD-3-Clause
// One level-3 call with operands of its own: everything that the routine must not read is NaN (the unread triangle, a
// unit diagonal, C when beta is 0), and every operand is a guarded matrix.
#pragma once

#include <algorithm>
#include <cctype>
#include <complex>
#include <cstdint>
#include <ostream>
#include <string>

#include "host/problem.h"
#include "tests/support/matrix.h"
#include "tev/blas.h"

namespace tev::test {

using host::operation;
using host::problem;

// The routines of one precision.
template <class T>
struct routines;
#define TEV_ROUTINES(type, parts, p)                 \
  template <>                                        \
  struct routines<type> {                            \
    using element = parts;                           \
    static constexpr auto gemm = tev_blas_##p##gemm; \
    static constexpr auto symm = tev_blas_##p##symm; \
    static constexpr auto trmm = tev_blas_##p##trmm; \
    static constexpr auto trsm = tev_blas_##p##trsm; \
  };
TEV_ROUTINES(float, float, s)
TEV_ROUTINES(double, double, d)
TEV_ROUTINES(std::complex<float>, tev_complex8, c)
TEV_ROUTINES(std::complex<double>, tev_complex16, z)

inline bool in_place(operation op) { return op == operation::trmm || op == operation::trsm; }

// Calls the routine of R; `result` holds C, or B of trmm and trsm.
template <class T, class R = routines<T>>
void call(const problem<T>& p, T* result) {
  using E = typename R::element;
  const auto in = [](const T* x) { return reinterpret_cast<const E*>(x); };
  E* out = reinterpret_cast<E*>(result);
  switch (p.op) {
    case operation::gemm:
      return R::gemm(&p.transa, &p.transb, &p.m, &p.n, &p.k, in(&p.alpha), in(p.a), &p.lda, in(p.b), &p.ldb,
                     in(&p.beta), out, &p.ldc);
    case operation::symm:
      return R::symm(&p.side, &p.uplo, &p.m, &p.n, in(&p.alpha), in(p.a), &p.lda, in(p.b), &p.ldb, in(&p.beta), out,
                     &p.ldc);
    case operation::trmm:
      return R::trmm(&p.side, &p.uplo, &p.transa, &p.diag, &p.m, &p.n, in(&p.alpha), in(p.a), &p.lda, out, &p.ldb);
    case operation::trsm:
      return R::trsm(&p.side, &p.uplo, &p.transa, &p.diag, &p.m, &p.n, in(&p.alpha), in(p.a), &p.lda, out, &p.ldb);
  }
}

// An option string has transa, transb (gemm), side, uplo (symm) or side, uplo, transa, diag (trmm, trsm).
template <class T>
problem<T> problem_of(operation op, const std::string& options, int64_t m, int64_t n, int64_t k, T alpha, T beta) {
  problem<T> p = {.op = op, .m = m, .n = n, .k = k, .alpha = alpha, .beta = beta};
  if (op == operation::gemm) return p.transa = options[0], p.transb = options[1], p;
  p.side = options[0], p.uplo = options[1];
  if (in_place(op)) p.transa = options[2], p.diag = options[3];
  return p;
}

template <class T>
class blas_case {
 public:
  // Off-diagonal entries of a trsm matrix are small, so that the solution does not grow.
  blas_case(const problem<T>& shape, engine& random, values kind, int64_t padding = matrix<T>::kPadding)
      : p(shape), a(a_rows(), a_columns(), padding), b(b_rows(), b_columns(), padding), c(p.m, p.n, padding) {
    const int64_t order = std::max<int64_t>(a.rows(), 1);
    a.fill(random, kind, p.op == operation::trsm ? T(1) / T(static_cast<real_part_t<T>>(order)) : T(1));
    b.fill(random, kind);
    if (p.beta != T(0)) c.fill(random, kind);
    if (p.op != operation::gemm) hide_unread_part();
    p.a = a.data(), p.lda = a.ld();
    p.b = b.data(), p.ldb = b.ld();
    p.c = c.data(), p.ldc = c.ld();
  }

  // The result matrix as it is before the call.
  matrix<T> start() const { return in_place(p.op) ? b : c; }

  matrix<T> run() const {
    matrix<T> result = start();
    call(p, result.data());
    return result;
  }

  problem<T> p;
  matrix<T> a, b, c;

 private:
  static bool plain(char trans) { return std::toupper(trans) != 'T' && std::toupper(trans) != 'C'; }
  bool gemm() const { return p.op == operation::gemm; }
  int64_t order() const { return std::toupper(p.side) == 'L' ? p.m : p.n; }
  int64_t a_rows() const { return !gemm() ? order() : plain(p.transa) ? p.m : p.k; }
  int64_t a_columns() const { return !gemm() ? order() : plain(p.transa) ? p.k : p.m; }
  int64_t b_rows() const { return !gemm() ? p.m : plain(p.transb) ? p.k : p.n; }
  int64_t b_columns() const { return !gemm() ? p.n : plain(p.transb) ? p.n : p.k; }

  // Complex: now the real part is the larger one, now the imaginary part.
  static T large_pivot(int64_t j) {
    if constexpr (kIsComplex<T>)
      return j % 2 == 0 ? T(2, 0) : T(0, 2);
    else
      return 2;
  }

  void hide_unread_part() {
    const bool upper = std::toupper(p.uplo) == 'U', unit = in_place(p.op) && std::toupper(p.diag) == 'U';
    for (int64_t j = 0; j < a.columns(); ++j) {
      for (int64_t i = 0; i < a.rows(); ++i)
        if (i != j && (i < j) != upper) a(i, j) = nan_element<T>();
      if (unit) a(j, j) = nan_element<T>();
      if (p.op == operation::trsm && !unit) a(j, j) += large_pivot(j);
    }
  }
};

template <class T>
std::ostream& operator<<(std::ostream& out, const blas_case<T>& x) {
  const char* const names[] = {"gemm", "symm", "trmm", "trsm"};
  out << names[static_cast<int>(x.p.op)] << ' ';
  for (char letter : {x.p.transa, x.p.transb, x.p.side, x.p.uplo, x.p.diag})
    if (letter != 0) out << letter;
  return out << ' ' << x.p.m << 'x' << x.p.n << 'x' << x.p.k << " alpha " << x.p.alpha << " beta " << x.p.beta;
}

}  // namespace tev::test
