/* SPDX-License-Identifier: BSD-3-Clause */
/* Whole factorizations through a sink (libtev_offload, which has all of libtev, too). This process factors panels and
 * takes a share of the updates, the sink does the rest; the matrix lies in memory that both see. What follows a
 * factorization (solutions, inverses, estimates) runs in this process, as do matrices of fewer than 512 rows or
 * columns. C11 and C++20.
 *
 * Arguments after the handle are those of the reference LAPACK routine, as in tev/lapack.h, without its work arrays;
 * what is wrong with one is reported there, too. A matrix from tev_offload_allocate is worked on where it lies; any
 * other is copied there and back.
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
  TEV_OFFLOAD_SYSTEM = 2,  /* no memory, no such sink, a sink that refuses to start; a matrix may be half factored */
  TEV_OFFLOAD_ENDED = 3    /* the sink died under way. A matrix from tev_offload_allocate is half factored; any other is
                              as it was, but for gels, which may have scaled both. Later calls on the handle run in
                              this process. */
};

/* Zeros are good defaults, but for the sink. Host and sink compute at the same time: more threads than processors fight
 * for them. */
typedef struct tev_offload_options {
  /* Path of the sink; NULL: there is none, everything runs in this process. */
  const char* sink;
  /* Directories put before LD_LIBRARY_PATH of the sink; may be NULL. */
  const char* library_path;
  /* Size of the sink's team; 0: as many as host_threads leaves of this process's processors, at least one. */
  int32_t sink_threads;
  /* 1: the sink's and this process's kernels are those that the processor has the features for. */
  int32_t trust_features;
  /* 1: where the sink dies, a call starts again in this process and returns TEV_OFFLOAD_OK; a matrix from
   * tev_offload_allocate is copied for that before it is touched. */
  int32_t finish_here;
  /* Threads of this process beside the sink's: the calling one, which factors the panels, and helpers with the updates;
   * 0: one. Without a sink the threads of each call; 0: as tev/service.h says. */
  int32_t host_threads;
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

/* Zeroed memory that the sink, where there is one, sees, too; NULL when there is none. */
TEV_EXPORT void* tev_offload_allocate(tev_offload* handle, size_t bytes);
TEV_EXPORT void tev_offload_release(tev_offload* handle, void* memory);

/* How far a factorization is: `done` of its `parts`, which are panels or, where it is not divided into such, as on one
 * thread, columns. Called by the calling thread after each of them, or each few columns. */
typedef void tev_offload_progress_fn(void* context, int64_t done, int64_t parts);
TEV_EXPORT void tev_offload_set_progress(tev_offload* handle, tev_offload_progress_fn* told, void* context);

/* What a thread did from `begin` to `end`, seconds of CLOCK_MONOTONIC. */
enum {
  TEV_OFFLOAD_PANEL = 0,  /* factored a panel */
  TEV_OFFLOAD_UPDATE = 1, /* applied a panel to blocks first_block to end_block - 1; panel: the number of panels where
                             blocks were finished */
  TEV_OFFLOAD_WAIT = 2,   /* waited; not the sink */
  TEV_OFFLOAD_REQUEST = 3 /* sent an update of these blocks to the sink */
};
typedef struct tev_offload_span {
  int32_t kind;
  int32_t thread; /* of this process, from 0, the calling one; -1: the sink, whose spans are as long as it was busy and
                     end before the next request's begins */
  int64_t panel, first_block, end_block;
  double begin, end;
} tev_offload_span;

/* 1: the spans of each factorization from now on are recorded, which costs a second, empty request beside each; 0: no
 * longer. What was recorded before is dropped. */
TEV_EXPORT void tev_offload_record(tev_offload* handle, int on);

/* What was recorded, unordered, of *count spans; the handle's, until its next call. */
TEV_EXPORT const tev_offload_span* tev_offload_recorded(const tev_offload* handle, size_t* count);

#define TEV_OFFLOAD_ROUTINES(p, T, R)                                                                                  \
  /* A = P L U, m x n; B := op(A)^-1 B by it; both, when info is 0; the inverse in the factors' place; the reciprocal  \
     condition number in the norm 1 or I, of which anorm is A's. */                                                    \
  TEV_EXPORT int tev_offload_##p##getrf(tev_offload* handle, const int64_t* m, const int64_t* n, T* a,                 \
                                        const int64_t* lda, int64_t* ipiv, int64_t* info);                             \
  TEV_EXPORT int tev_offload_##p##getrs(tev_offload* handle, const char* trans, const int64_t* n, const int64_t* nrhs, \
                                        const T* a, const int64_t* lda, const int64_t* ipiv, T* b, const int64_t* ldb, \
                                        int64_t* info);                                                                \
  TEV_EXPORT int tev_offload_##p##gesv(tev_offload* handle, const int64_t* n, const int64_t* nrhs, T* a,               \
                                       const int64_t* lda, int64_t* ipiv, T* b, const int64_t* ldb, int64_t* info);    \
  TEV_EXPORT int tev_offload_##p##getri(tev_offload* handle, const int64_t* n, T* a, const int64_t* lda,               \
                                        const int64_t* ipiv, int64_t* info);                                           \
  TEV_EXPORT int tev_offload_##p##gecon(tev_offload* handle, const char* norm, const int64_t* n, const T* a,           \
                                        const int64_t* lda, const R* anorm, R* rcond, int64_t* info);                  \
  /* A = L L^H or U^H U, and the same by it. */                                                                        \
  TEV_EXPORT int tev_offload_##p##potrf(tev_offload* handle, const char* uplo, const int64_t* n, T* a,                 \
                                        const int64_t* lda, int64_t* info);                                            \
  TEV_EXPORT int tev_offload_##p##potrs(tev_offload* handle, const char* uplo, const int64_t* n, const int64_t* nrhs,  \
                                        const T* a, const int64_t* lda, T* b, const int64_t* ldb, int64_t* info);      \
  TEV_EXPORT int tev_offload_##p##posv(tev_offload* handle, const char* uplo, const int64_t* n, const int64_t* nrhs,   \
                                       T* a, const int64_t* lda, T* b, const int64_t* ldb, int64_t* info);             \
  TEV_EXPORT int tev_offload_##p##potri(tev_offload* handle, const char* uplo, const int64_t* n, T* a,                 \
                                        const int64_t* lda, int64_t* info);                                            \
  TEV_EXPORT int tev_offload_##p##pocon(tev_offload* handle, const char* uplo, const int64_t* n, const T* a,           \
                                        const int64_t* lda, const R* anorm, R* rcond, int64_t* info);                  \
  /* A = Q R, m x n; tau: min(m, n) elements. Least squares or minimum norm by it, max(m, n) rows of B. */             \
  TEV_EXPORT int tev_offload_##p##geqrf(tev_offload* handle, const int64_t* m, const int64_t* n, T* a,                 \
                                        const int64_t* lda, T* tau, int64_t* info);                                    \
  TEV_EXPORT int tev_offload_##p##gels(tev_offload* handle, const char* trans, const int64_t* m, const int64_t* n,     \
                                       const int64_t* nrhs, T* a, const int64_t* lda, T* b, const int64_t* ldb,        \
                                       int64_t* info);

TEV_OFFLOAD_ROUTINES(s, float, float)
TEV_OFFLOAD_ROUTINES(d, double, double)
TEV_OFFLOAD_ROUTINES(c, tev_complex8, float)
TEV_OFFLOAD_ROUTINES(z, tev_complex16, double)
#undef TEV_OFFLOAD_ROUTINES

#ifdef __cplusplus
}
#endif

#endif
