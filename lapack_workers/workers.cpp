// SPDX-License-Identifier: BSD-3-Clause
// The workers tev_lapack_?{getrf,gemm,trsm,syrk,larfb}_worker: steps of a factorization that the host runs. Each hands
// the numbers where the host put them in the record, and the buffers, to the routine of its name. The step workers say
// nothing about a request that is not theirs, and do nothing with it.
#include "blas_threading/kernel_calls.h"
#include "blas_threading/plan.h"
#include "kernels/operation.h"
#include "tev/blas.h"
#include "tev/lapack.h"
#include "tev/request.h"

namespace {

constexpr int64_t kOne = 1;

// The kernel, or for a triangle that is worth a team the front end. It knows no letter but N and T, the kernel takes
// every other for T.
template <class T, class FrontEnd>
void update_triangle(const decltype(tev_step_slots::syrk)& s, const T* alpha, const T* a, const T* beta, T* c,
                     FrontEnd* over_team) {
  if (tev::blas::threads_worth<T>(tev::kernels::kOpSyrk, s.n, s.n, s.k) == 1)
    return tev::blas::kernel_calls<T>::xsyrk(&s.uplo.letter, &s.trans.letter, &s.n, &s.k, alpha, a, &s.lda, beta, c,
                                             &s.ldc, kOne, kOne);
  const char trans = tev::kernels::upper_case(s.trans.letter) == 'N' ? 'N' : 'T';
  over_team(&s.uplo.letter, &trans, &s.n, &s.k, alpha, a, &s.lda, beta, c, &s.ldc);
}

}  // namespace

#define TEV_PASTE_(a, b, c) a##b##c
#define TEV_PASTE(a, b, c) TEV_PASTE_(a, b, c)

#define TEV_P s
#define TEV_T float
#define TEV_REAL(x) x
#include "lapack_workers/workers.exports.inc"
#define TEV_P d
#define TEV_T double
#define TEV_REAL(x) x
#include "lapack_workers/workers.exports.inc"
#define TEV_P c
#define TEV_T tev_complex8
#define TEV_REAL(x) \
  { x, 0 }
#include "lapack_workers/workers.exports.inc"
#define TEV_P z
#define TEV_T tev_complex16
#define TEV_REAL(x) \
  { x, 0 }
#include "lapack_workers/workers.exports.inc"
