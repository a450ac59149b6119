/* SPDX-License-Identifier: BSD-3-Clause */
/* BLAS calls and factorizations that run here or in a sink (libtev_offload, which has all of libtev, too). A process
 * has one sink at most, started by the first call that is sent. What is sent is copied into memory that both see, and
 * the result back when the sink is done with it; so whatever becomes of the sink, the operands are as they were, and
 * the call runs here. That is said on standard error, each reason once. C11 and C++20.
 *
 * Any number of threads may call; while one has the sink, the others' calls run here. A forked child starts a sink of
 * its own. */
#ifndef TEV_ROUTED_H
#define TEV_ROUTED_H

#include "tev/types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tev_routing {
  const char* sink;       /* path of the sink; copied */
  int32_t sink_threads;   /* size of its team, at least 1 */
  int32_t host_threads;   /* of a large call that runs here, at least 1 */
  int32_t only_if_faster; /* 1: only calls are sent that are over sooner then, by rates measured at the first; 0: all */
  double threshold;       /* floating-point operations of a call, below which it stays here */
  double timeout;         /* seconds after which a sink that has not answered is ended; 0: a minute, and a second for
                             every 10^9 floating-point operations */
} tev_routing;

/* Before it is called every call runs here. Call it once. */
TEV_EXPORT void tev_routed_set(const tev_routing* routing);

/* 1 when the calling thread's last call of a routine below ran in the sink, else 0; asked again: 0. */
TEV_EXPORT int32_t tev_routed_took_sink(void);

/* Zeroed memory, 64 bytes aligned, that the sink sees, too: operands in it that are only read are not copied. It starts
 * the sink; where there is none it is ordinary memory. NULL when there is none left. Both wait while the sink computes.
 * A forked child sees what the parent writes into it and cannot release it. */
TEV_EXPORT void* tev_routed_allocate(size_t bytes);
TEV_EXPORT void tev_routed_release(void* memory);

/* As those of tev/blas.h and tev/lapack.h. Where a call runs depends on its sizes, and on whether there is anything to
 * compute; equal calls take equal ways as long as the sink lives and is free. Of a factorization the calling thread
 * does the panels and a share; solutions by the factors are made here. */
#define TEV_ROUTED(p, T)                                                                                               \
  TEV_EXPORT void tev_routed_##p##gemm(const char* transa, const char* transb, const int64_t* m, const int64_t* n,     \
                                       const int64_t* k, const T* alpha, const T* a, const int64_t* lda, const T* b,   \
                                       const int64_t* ldb, const T* beta, T* c, const int64_t* ldc);                   \
  TEV_EXPORT void tev_routed_##p##symm(const char* side, const char* uplo, const int64_t* m, const int64_t* n,         \
                                       const T* alpha, const T* a, const int64_t* lda, const T* b, const int64_t* ldb, \
                                       const T* beta, T* c, const int64_t* ldc);                                       \
  TEV_EXPORT void tev_routed_##p##syrk(const char* uplo, const char* trans, const int64_t* n, const int64_t* k,        \
                                       const T* alpha, const T* a, const int64_t* lda, const T* beta, T* c,            \
                                       const int64_t* ldc);                                                            \
  TEV_EXPORT void tev_routed_##p##trmm(const char* side, const char* uplo, const char* transa, const char* diag,       \
                                       const int64_t* m, const int64_t* n, const T* alpha, const T* a,                 \
                                       const int64_t* lda, T* b, const int64_t* ldb);                                  \
  TEV_EXPORT void tev_routed_##p##trsm(const char* side, const char* uplo, const char* transa, const char* diag,       \
                                       const int64_t* m, const int64_t* n, const T* alpha, const T* a,                 \
                                       const int64_t* lda, T* b, const int64_t* ldb);                                  \
  TEV_EXPORT void tev_routed_##p##getrf(const int64_t* m, const int64_t* n, T* a, const int64_t* lda, int64_t* ipiv,   \
                                        int64_t* info);                                                                \
  TEV_EXPORT void tev_routed_##p##gesv(const int64_t* n, const int64_t* nrhs, T* a, const int64_t* lda, int64_t* ipiv, \
                                       T* b, const int64_t* ldb, int64_t* info);                                       \
  TEV_EXPORT void tev_routed_##p##potrf(const char* uplo, const int64_t* n, T* a, const int64_t* lda, int64_t* info);  \
  TEV_EXPORT void tev_routed_##p##posv(const char* uplo, const int64_t* n, const int64_t* nrhs, T* a,                  \
                                       const int64_t* lda, T* b, const int64_t* ldb, int64_t* info);                   \
  TEV_EXPORT void tev_routed_##p##geqrf(const int64_t* m, const int64_t* n, T* a, const int64_t* lda, T* tau, T* work, \
                                        const int64_t* lwork, int64_t* info);                                          \
  TEV_EXPORT void tev_routed_##p##gels(const char* trans, const int64_t* m, const int64_t* n, const int64_t* nrhs,     \
                                       T* a, const int64_t* lda, T* b, const int64_t* ldb, T* work,                    \
                                       const int64_t* lwork, int64_t* info);

TEV_ROUTED(s, float)
TEV_ROUTED(d, double)
TEV_ROUTED(c, tev_complex8)
TEV_ROUTED(z, tev_complex16)
#undef TEV_ROUTED

#ifdef __cplusplus
}
#endif

#endif
