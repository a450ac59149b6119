// SPDX-License-Identifier: BSD-3-Clause
// Types of the routines that every tier has, in the calling style of the reference BLAS: everything by address.
// Dispatch entry points and tier routines are declared with the same alias, so they cannot drift apart.
#pragma once

#include <cstdint>

#include "tev/types.h"

namespace tev::kernels {

// The real type of a complex one's parts.
template <class T>
using real_part = decltype(T::real);

// C := alpha op(A) op(B) + beta C.
template <class T>
using gemm_fn = void(const char* transa, const char* transb, const int64_t* m, const int64_t* n, const int64_t* k,
                     const T* alpha, const T* a, const int64_t* lda, const T* b, const int64_t* ldb, const T* beta,
                     T* c, const int64_t* ldc);

// One product computed by all threads of a team that is already running: every thread calls with its own number *ithr
// of *nthr. `barrier` is the team's (tev_barrier_wait). The first of the four words is the address of a work area that
// the team shares; the others and the last argument (2) are handed on by the caller. 0; 1 when memory was short.
template <class T>
using gemm_team_fn = int32_t(const char* transa, const char* transb, const int64_t* m, const int64_t* n,
                             const int64_t* k, const T* alpha, const T* a, const int64_t* lda, const T* b,
                             const int64_t* ldb, const T* beta, T* c, const int64_t* ldc, const int64_t* ithr,
                             const int64_t* nthr, void* barrier, uint64_t shared, uint64_t, uint64_t, uint64_t,
                             int32_t two);

// C := beta C, m x n.
template <class T>
using mscale_fn = void(const int64_t* m, const int64_t* n, const T* beta, T* c, const int64_t* ldc);

// Level 1 and 2. A negative increment walks from the far end.
template <class T>
using axpy_fn = void(const int64_t* n, const T* alpha, const T* x, const int64_t* incx, T* y, const int64_t* incy);
template <class T>
using copy_vector_fn = void(const int64_t* n, const T* x, const int64_t* incx, T* y, const int64_t* incy);
template <class T>
using scal_fn = void(const int64_t* n, const T* alpha, T* x, const int64_t* incx);
template <class T>
using swap_fn = void(const int64_t* n, T* x, const int64_t* incx, T* y, const int64_t* incy);
template <class T>
using dot_fn = T(const int64_t* n, const T* x, const int64_t* incx, const T* y, const int64_t* incy);
using dot_in_double_fn = double(const int64_t* n, const float* x, const int64_t* incx, const float* y,
                                const int64_t* incy);
// The number, from 0, of the first element whose modulus is the largest, |re| + |im| of a complex one. NaN is passed
// over; 0 when there is nothing else.
template <class T>
using iamax_fn = int64_t(const int64_t* n, const T* x, const int64_t* incx);
// (x, y) := (h[0] x + h[2] y, h[1] x + h[3] y).
template <class T>
using rotate_fn = void(const int64_t* n, T* x, const int64_t* incx, T* y, const int64_t* incy, const T* h);
template <class T>
using gemv_fn = void(const char* trans, const int64_t* m, const int64_t* n, const T* alpha, const T* a,
                     const int64_t* lda, const T* x, const int64_t* incx, const T* beta, T* y, const int64_t* incy);
template <class T>
using ger_fn = void(const int64_t* m, const int64_t* n, const T* alpha, const T* x, const int64_t* incx, const T* y,
                    const int64_t* incy, T* a, const int64_t* lda);

// y += alpha A x, as far as it comes from columns [*begin, *end) of the triangle uplo of A and their mirror images. A
// is symmetric, in the complex precisions Hermitian; x and y have no gaps.
template <class T>
using symv_columns_fn = void(const char* uplo, const int64_t* n, const int64_t* begin, const int64_t* end,
                             const T* alpha, const T* a, const int64_t* lda, const T* x, T* y);

// C := alpha op(x) op(y)^T + beta C: a product with k = 1. x has m elements, y has n; "C" conjugates its vector.
template <class T>
using gemmger_fn = void(const char* transa, const char* transb, const int64_t* m, const int64_t* n, const T* alpha,
                        const T* x, const int64_t* incx, const T* y, const int64_t* incy, const T* beta, T* c,
                        const int64_t* ldc);

// Level 3. symm and hemm:
template <class T>
using symm_fn = void(const char* side, const char* uplo, const int64_t* m, const int64_t* n, const T* alpha, const T* a,
                     const int64_t* lda, const T* b, const int64_t* ldb, const T* beta, T* c, const int64_t* ldc);
// The last two words are ignored.
template <class T>
using syrk_fn = void(const char* uplo, const char* trans, const int64_t* n, const int64_t* k, const T* alpha,
                     const T* a, const int64_t* lda, const T* beta, T* c, const int64_t* ldc, int64_t, int64_t);
// With real scalars.
template <class T>
using herk_fn = void(const char* uplo, const char* trans, const int64_t* n, const int64_t* k, const real_part<T>* alpha,
                     const T* a, const int64_t* lda, const real_part<T>* beta, T* c, const int64_t* ldc, int64_t,
                     int64_t);
template <class T>
using syr2k_fn = void(const char* uplo, const char* trans, const int64_t* n, const int64_t* k, const T* alpha,
                      const T* a, const int64_t* lda, const T* b, const int64_t* ldb, const T* beta, T* c,
                      const int64_t* ldc);
template <class T>
using her2k_fn = void(const char* uplo, const char* trans, const int64_t* n, const int64_t* k, const T* alpha,
                      const T* a, const int64_t* lda, const T* b, const int64_t* ldb, const real_part<T>* beta, T* c,
                      const int64_t* ldc);
// trmm and trsm.
template <class T>
using triangular_fn = void(const char* side, const char* uplo, const char* transa, const char* diag, const int64_t* m,
                           const int64_t* n, const T* alpha, const T* a, const int64_t* lda, T* b, const int64_t* ldb);

}  // namespace tev::kernels

extern "C" {

// All threads of a team meet here; role is 0 for one of them. The layer above has it.
void tev_barrier_wait(void* barrier, int64_t role, int64_t team);

}  // extern "C"
