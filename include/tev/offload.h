/* SPDX-License-Identifier: BSD-3-Clause */
/* Whole factorizations through a sink (libtev_offload, which has all of libtev, too). This process factors panels and
 * takes a share of the updates, the sink does the rest; the matrix lies in memory that both see. C11 and C++20.
 *
 * Arguments after the handle are those of the reference LAPACK routine, as in tev/lapack.h; what is wrong with one is
 * reported there, too. A matrix from tev_offload_allocate is worked on where it lies; any other is copied there and
 * back.
 *
 * One handle serves one thread at a time. The same call on the same numbers of threads gives the same bits. */
#ifndef TEV_OFFLOAD_H
#define TEV_OFFLOAD_H

#include "tev/types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tev_offload tev_offload;

/* What a call returns. `info` tells what became of the matrix when it is TEV_OFFLOAD_OK. */
enum {
  TEV_OFFLOAD_OK = 0,
  TEV_OFFLOAD_INVALID = 1, /* a null handle or pointer */
  TEV_OFFLOAD_SYSTEM = 2,  /* no memory, no such sink, a sink that refuses to start */
  TEV_OFFLOAD_ENDED = 3    /* the sink died under way. A matrix from tev_offload_allocate is half factored; any other is
                              as it was. Later calls on the handle run in this process. */
};

/* Zeros are good defaults, but for the sink. */
typedef struct tev_offload_options {
  const char* sink;         /* path of the sink; NULL: there is none, everything runs in this process */
  const char* library_path; /* directories put before LD_LIBRARY_PATH of the sink; may be NULL */
  int32_t sink_threads; /* size of the sink's team; 0: all processors but one, at least one. The calling thread takes
                           one processor: more than are left fight for them */
  int32_t
      trust_features;  /* 1: the sink's and this process's kernels are those that the processor has the features for */
  int32_t finish_here; /* 1: where the sink dies, a call starts again in this process and returns TEV_OFFLOAD_OK; a
                          matrix from tev_offload_allocate is copied for that before it is touched */
} tev_offload_options;

/* On failure *handle is NULL, and tev_offload_last_error(NULL) tells the calling thread why. */
TEV_EXPORT int tev_offload_open(const tev_offload_options* options, tev_offload** handle);

/* Ends the sink. All memory of the handle is gone. NULL is allowed. */
TEV_EXPORT void tev_offload_close(tev_offload* handle);

/* What went wrong in the handle's last call that failed, in words; "" when none did. */
TEV_EXPORT const char* tev_offload_last_error(const tev_offload* handle);

/* Seconds that the sink was busy since the handle was opened; 0 without a sink. */
TEV_EXPORT double tev_offload_busy_seconds(tev_offload* handle);

/* 1 while there is a sink that lives, else 0. */
TEV_EXPORT int tev_offload_has_sink(const tev_offload* handle);

/* Zeroed memory that the sink sees, too, page-aligned; NULL when there is none. */
TEV_EXPORT void* tev_offload_allocate(tev_offload* handle, size_t bytes);
TEV_EXPORT void tev_offload_release(tev_offload* handle, void* memory);

#define TEV_OFFLOAD_ROUTINES(p, T)                                                                                   \
  /* A = P L U, m x n. */                                                                                            \
  TEV_EXPORT int tev_offload_##p##getrf(tev_offload* handle, const int64_t* m, const int64_t* n, T* a,               \
                                        const int64_t* lda, int64_t* ipiv, int64_t* info);                           \
  /* A = L L^H or U^H U. In the complex precisions in this process. */                                               \
  TEV_EXPORT int tev_offload_##p##potrf(tev_offload* handle, const char* uplo, const int64_t* n, T* a,               \
                                        const int64_t* lda, int64_t* info);                                          \
  /* A = Q R, m x n; tau: min(m, n) elements. */                                                                     \
  TEV_EXPORT int tev_offload_##p##geqrf(tev_offload* handle, const int64_t* m, const int64_t* n, T* a,               \
                                        const int64_t* lda, T* tau, int64_t* info);                                  \
  /* A X = B: getrf or potrf, and when info is 0 the solution, in this process. */                                   \
  TEV_EXPORT int tev_offload_##p##gesv(tev_offload* handle, const int64_t* n, const int64_t* nrhs, T* a,             \
                                       const int64_t* lda, int64_t* ipiv, T* b, const int64_t* ldb, int64_t* info);  \
  TEV_EXPORT int tev_offload_##p##posv(tev_offload* handle, const char* uplo, const int64_t* n, const int64_t* nrhs, \
                                       T* a, const int64_t* lda, T* b, const int64_t* ldb, int64_t* info);

TEV_OFFLOAD_ROUTINES(s, float)
TEV_OFFLOAD_ROUTINES(d, double)
TEV_OFFLOAD_ROUTINES(c, tev_complex8)
TEV_OFFLOAD_ROUTINES(z, tev_complex16)
#undef TEV_OFFLOAD_ROUTINES

#ifdef __cplusplus
}
#endif

#endif
