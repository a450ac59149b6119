// SPDX-License-Identifier: BSD-3-Clause
// One BLAS level-3 call as the host thinks of it: operation, options, sizes, scalars, operands.
#pragma once

#include <complex>
#include <cstdint>

namespace tev::host {

// The last three are steps of a factorization that are no BLAS calls; host/lapack_step.h has them.
enum class operation { gemm, symm, trmm, trsm, hemm, syrk, herk, syr2k, her2k, larfb, laswp, lu_step };

// Column-major operands; T is float, double, std::complex<float> or std::complex<double>.
//
//            A              B                C
//   gemm     op(A) m x k    op(B) k x n      m x n, result
//   symm     m x m, n x n   m x n            m x n, result       (A by side L, R)
//   trmm     m x m, n x n   m x n, result    -
//   trsm     m x m, n x n   m x n, result    -
//   syrk     op(A) n x k    -                n x n, result       (the triangle uplo)
//   syr2k    op(A) n x k    op(B) n x k      n x n, result       (the triangle uplo)
// hemm is as symm, herk as syrk, her2k as syr2k.
template <class T>
struct problem {
  operation op;
  char transa, transb;    // 'N' 'T' 'C'; transb: gemm only
  char side, uplo, diag;  // 'L' 'R', 'U' 'L', 'N' 'U'; not gemm; diag: trmm and trsm only
  int64_t m, n, k;        // k: gemm and the rank-k updates, which have no m
  T alpha, beta;          // beta: not trmm and trsm. Those that a Hermitian result wants real have no imaginary part
  const T* a;
  int64_t lda;
  const T* b;  // trmm, trsm: B before the call
  int64_t ldb;
  const T* c;  // C before the call
  int64_t ldc;
};

}  // namespace tev::host
