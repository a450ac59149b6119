// SPDX-License-Identifier: BSD-3-Clause
#include "blas_threading/alone.h"

#include "blas_threading/element.h"

namespace tev::blas {

namespace {

bool is_hermitian(const operand& x) { return (x.copy_mode & kernels::kCopyHermitian) != 0; }

template <class T>
void call_gemm(const operation<T>& p) {
  const char transa = kernels::letter_of(p.op_a), transb = kernels::letter_of(p.op_b);
  kernel_calls<T>::xgemm(&transa, &transb, &p.m, &p.n, &p.k, &p.alpha, elements<T>(p.a), &p.a.ld, elements<T>(p.b),
                         &p.b.ld, &p.beta, elements<T>(p.c), &p.c.ld);
}

template <class T>
void call_symm(const operation<T>& p) {
  const bool right = p.from_right != 0;
  const operand &symmetric = right ? p.b : p.a, &other = right ? p.a : p.b;
  const char side = right ? 'R' : 'L', uplo = kernels::stored_triangle(&symmetric);
  kernels::symm_fn<T>* routine = kernel_calls<T>::xsymm;
  if constexpr (kComplex<T>)
    if (is_hermitian(symmetric)) routine = kernel_calls<T>::xhemm;
  routine(&side, &uplo, &p.m, &p.n, &p.alpha, elements<T>(symmetric), &symmetric.ld, elements<T>(other), &other.ld,
          &p.beta, elements<T>(p.c), &p.c.ld);
}

template <class T>
void call_rank_k(const operation<T>& p) {
  const bool rank_2k = p.code == kernels::kOpSyr2k;
  const char uplo = kernels::stored_triangle(&p.c), trans = kernels::stored_transposition(&p.a);
  const T *const a = elements<T>(p.a), *const b = elements<T>(p.b);
  T* const c = elements<T>(p.c);
  if constexpr (kComplex<T>)
    if (is_hermitian(p.c))
      return rank_2k ? kernel_calls<T>::xher2k(&uplo, &trans, &p.n, &p.k, &p.alpha, a, &p.a.ld, b, &p.b.ld,
                                               &p.beta.real, c, &p.c.ld)
                     : kernel_calls<T>::xherk(&uplo, &trans, &p.n, &p.k, &p.alpha.real, a, &p.a.ld, &p.beta.real, c,
                                              &p.c.ld, 0, 0);
  if (rank_2k)
    return kernel_calls<T>::xsyr2k(&uplo, &trans, &p.n, &p.k, &p.alpha, a, &p.a.ld, b, &p.b.ld, &p.beta, c, &p.c.ld);
  kernel_calls<T>::xsyrk(&uplo, &trans, &p.n, &p.k, &p.alpha, a, &p.a.ld, &p.beta, c, &p.c.ld, 0, 0);
}

template <class T>
void call_triangular(const operation<T>& p) {
  const bool right = p.from_right != 0;
  const operand& triangle = right ? p.b : p.a;
  const char side = right ? 'R' : 'L', uplo = kernels::stored_triangle(&triangle);
  const char trans = kernels::stored_transposition(&triangle), diag = kernels::stored_diagonal(&triangle);
  (p.code == kernels::kOpTrsm ? kernel_calls<T>::xtrsm : kernel_calls<T>::xtrmm)(
      &side, &uplo, &trans, &diag, &p.m, &p.n, &p.alpha, elements<T>(triangle), &triangle.ld, elements<T>(p.c),
      &p.c.ld);
}

template <class T>
void call_entry(const operation<T>& p) {
  switch (p.code) {
    case kernels::kOpSymm:
      return call_symm(p);
    case kernels::kOpSyrk:
    case kernels::kOpSyr2k:
      return call_rank_k(p);
    case kernels::kOpTrmm:
    case kernels::kOpTrsm:
      return call_triangular(p);
    default:
      return call_gemm(p);
  }
}

}  // namespace

template <class T>
void compute_alone(const operation<T>& p) {
  if (p.m < 1 || p.n < 1) return;
  if (!has_drivers()) return call_entry(p);
  compute_by_driver(p, p.a, p.b, p.c, info_of(p));
}

#define TEV_INSTANTIATE(p, T) template void compute_alone(const operation<T>&);
TEV_FOR_EACH_PRECISION(TEV_INSTANTIATE)
#undef TEV_INSTANTIATE

}  // namespace tev::blas
