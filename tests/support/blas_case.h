// SPDX-License-Identifier: BSD-3-Clause
// One level-3 call with operands of its own: everything that the routine must not read is NaN (the unread triangle, a
// unit diagonal, C when beta is 0), and every operand is a guarded matrix.
#pragma once

#include "blas_threading/blas_calls.h"
#include "host/kinds.h"
#include "tests/support/matrix.h"

namespace tev::test {

using host::operation;
using host::problem;

template <class T>
struct routines : blas::blas_calls<c_element_t<T>> {
  using element = c_element_t<T>;
};

inline bool in_place(operation op) { return op == operation::trmm || op == operation::trsm; }
inline bool is_hermitian(operation op) {
  return op == operation::hemm || op == operation::herk || op == operation::her2k;
}
inline bool is_rank_2k(operation op) { return op == operation::syr2k || op == operation::her2k; }
inline bool is_rank_k(operation op) { return op == operation::syrk || op == operation::herk || is_rank_2k(op); }

// The real scalars are the first parts of the complex ones.
template <class R, class T, class E>
void call_hermitian(const problem<T>& p, E* result, const R& r) {
  const auto real = [](const T& x) { return reinterpret_cast<const real_part_t<T>*>(&x); };
  switch (p.op) {
    case operation::hemm:
      return r.hemm(&p.side, &p.uplo, &p.m, &p.n, in(&p.alpha), in(p.a), &p.lda, in(p.b), &p.ldb, in(&p.beta), result,
                    &p.ldc);
    case operation::herk:
      return r.herk(&p.uplo, &p.transa, &p.n, &p.k, real(p.alpha), in(p.a), &p.lda, real(p.beta), result, &p.ldc);
    default:
      return r.her2k(&p.uplo, &p.transa, &p.n, &p.k, in(&p.alpha), in(p.a), &p.lda, in(p.b), &p.ldb, real(p.beta),
                     result, &p.ldc);
  }
}

// Calls a routine whose arguments begin with those of a product.
template <class T, class F, class... More>
auto call_product(const problem<T>& p, T* result, F* routine, More... more) {
  return routine(&p.transa, &p.transb, &p.m, &p.n, &p.k, in(&p.alpha), in(p.a), &p.lda, in(p.b), &p.ldb, in(&p.beta),
                 out(result), &p.ldc, more...);
}

// Calls the routine of r; `result` holds C, or B of trmm and trsm.
template <class T, class R = routines<T>>
void call(const problem<T>& p, T* result, const R& r = {}) {
  c_element_t<T>* const c = out(result);
  switch (p.op) {
    case operation::gemm:
      return r.gemm(&p.transa, &p.transb, &p.m, &p.n, &p.k, in(&p.alpha), in(p.a), &p.lda, in(p.b), &p.ldb, in(&p.beta),
                    c, &p.ldc);
    case operation::symm:
      return r.symm(&p.side, &p.uplo, &p.m, &p.n, in(&p.alpha), in(p.a), &p.lda, in(p.b), &p.ldb, in(&p.beta), c,
                    &p.ldc);
    case operation::trmm:
      return r.trmm(&p.side, &p.uplo, &p.transa, &p.diag, &p.m, &p.n, in(&p.alpha), in(p.a), &p.lda, c, &p.ldb);
    case operation::trsm:
      return r.trsm(&p.side, &p.uplo, &p.transa, &p.diag, &p.m, &p.n, in(&p.alpha), in(p.a), &p.lda, c, &p.ldb);
    case operation::syrk:
      return r.syrk(&p.uplo, &p.transa, &p.n, &p.k, in(&p.alpha), in(p.a), &p.lda, in(&p.beta), c, &p.ldc);
    case operation::syr2k:
      return r.syr2k(&p.uplo, &p.transa, &p.n, &p.k, in(&p.alpha), in(p.a), &p.lda, in(p.b), &p.ldb, in(&p.beta), c,
                     &p.ldc);
    default:
      if constexpr (kIsComplex<T>) call_hermitian(p, c, r);
  }
}

// Of each option of an operation, in the order of an option string, the letters that it takes; none of an operation
// that the precision has not.
template <class T>
std::vector<std::string_view> letters_of(operation op) {
  if (is_hermitian(op) && !kIsComplex<T>) return {};
  if (op == operation::gemm) return {"NTC", "NTC"};
  if (in_place(op)) return {"LR", "UL", "NTC", "NU"};
  if (is_rank_k(op)) return {"UL", is_hermitian(op) ? "NC" : kIsComplex<T> ? "NT" : "NTC"};
  return {"LR", "UL"};
}

// Every combination of them.
template <class T>
std::vector<std::string> options_of(operation op) {
  std::vector<std::string> all(letters_of<T>(op).empty() ? 0 : 1);
  for (const std::string_view letters : letters_of<T>(op)) {
    std::vector<std::string> longer;
    for (const std::string& start : all)
      for (const char next : letters) longer.push_back(start + next);
    all = longer;
  }
  return all;
}

// An option string has transa, transb (gemm), side, uplo (symm, hemm), side, uplo, transa, diag (trmm, trsm) or uplo,
// transa (the rank-k updates, whose m is n). Scalars that a Hermitian result wants real lose their imaginary part.
template <class T>
problem<T> problem_of(operation op, const std::string& options, int64_t m, int64_t n, int64_t k, T alpha, T beta) {
  problem<T> p = {.op = op, .m = m, .n = n, .k = k, .alpha = alpha, .beta = beta};
  if (op == operation::gemm) return p.transa = options[0], p.transb = options[1], p;
  if (is_rank_k(op)) {
    p.uplo = options[0], p.transa = options[1], p.m = n;
    if (is_hermitian(op)) p.beta = T(std::real(beta));
    if (op == operation::herk) p.alpha = T(std::real(alpha));
    return p;
  }
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
    if (is_rank_k(p.op))
      hide_unread_part(c);
    else if (p.op != operation::gemm)
      hide_unread_part(a);
    p.a = a.data(), p.lda = a.ld();
    p.b = b.data(), p.ldb = b.ld();
    p.c = c.data(), p.ldc = c.ld();
  }

  // The result matrix as it is before the call.
  matrix<T> start() const { return in_place(p.op) ? b : c; }

  // The elements that a rank-k update does not write have their bits.
  bool unwritten_is_intact(const matrix<T>& result) const {
    const matrix<T> before = start();
    const bool upper = std::toupper(p.uplo) == 'U';
    for (int64_t j = 0; is_rank_k(p.op) && j < result.columns(); ++j)
      for (int64_t i = 0; i < result.rows(); ++i)
        if (i != j && (i < j) != upper && std::memcmp(&result(i, j), &before(i, j), sizeof(T)) != 0) return false;
    return result.padding_is_intact();
  }

  matrix<T> run() const {
    matrix<T> result = start();
    call(p, result.data());
    return result;
  }

  problem<T> p;
  matrix<T> a, b, c;

 private:
  static bool plain(char trans) { return std::toupper(trans) != 'T' && std::toupper(trans) != 'C'; }
  // Are A and B general matrices?
  bool gemm() const { return p.op == operation::gemm || is_rank_k(p.op); }
  int64_t order() const { return std::toupper(p.side) == 'L' ? p.m : p.n; }
  int64_t a_rows() const { return !gemm() ? order() : plain(p.transa) ? p.m : p.k; }
  int64_t a_columns() const { return !gemm() ? order() : plain(p.transa) ? p.k : p.m; }
  int64_t b_rows() const {
    if (is_rank_k(p.op)) return is_rank_2k(p.op) ? a_rows() : 0;
    return !gemm() ? p.m : plain(p.transb) ? p.k : p.n;
  }
  int64_t b_columns() const {
    if (is_rank_k(p.op)) return is_rank_2k(p.op) ? a_columns() : 0;
    return !gemm() ? p.n : plain(p.transb) ? p.n : p.k;
  }

  // Of the matrix of which one triangle is read.
  void hide_unread_part(matrix<T>& x) {
    const bool upper = std::toupper(p.uplo) == 'U', unit = in_place(p.op) && std::toupper(p.diag) == 'U';
    for (int64_t j = 0; j < x.columns(); ++j) {
      for (int64_t i = 0; i < x.rows(); ++i)
        if (i != j && (i < j) != upper) x(i, j) = nan_element<T>();
      if (unit) x(j, j) = nan_element<T>();
      if constexpr (kIsComplex<T>)
        if (is_hermitian(p.op)) x(j, j).imag(std::numeric_limits<real_part_t<T>>::quiet_NaN());
      // Added to an entry of at most 3, it leaves a pivot; complex: now the real part is the larger one, now the other.
      if (p.op == operation::trsm && !unit) x(j, j) += kIsComplex<T> && j % 2 != 0 ? number<T>(0, 4) : T(4);
    }
  }
};

template <class T>
std::ostream& operator<<(std::ostream& out, const blas_case<T>& x) {
  out << host::name_of(x.p.op) << ' ';
  for (char letter : {x.p.transa, x.p.transb, x.p.side, x.p.uplo, x.p.diag})
    if (letter != 0) out << letter;
  return out << ' ' << x.p.m << 'x' << x.p.n << 'x' << x.p.k << " alpha " << x.p.alpha << " beta " << x.p.beta;
}

}  // namespace tev::test
