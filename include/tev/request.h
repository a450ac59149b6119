/* SPDX-License-Identifier: BSD-3-Clause */
/* What a host writes to the sink: the card request block and the argument records of the workers.
 *
 * One block is the miscellaneous data of one run-function call to `ueaa_prv_card_invoke`. All integers are
 * little-endian. The first word says what the rest means; fields of different requests overlap:
 *
 *   byte 0      4        8               12       264            30264            31280 ...            32320
 *   +-----------+--------+---------------+--------+--------------+----------------+---------------------+
 *   | code 6    | device | devices       | library search path, NUL-terminated ...                      |
 *   | code 7    | function name, NUL-terminated ...                                                      |
 *   | code 1    | param. | worker name [256]      | record       | relocation     | post mode, pinning  |
 *   +-----------+--------+---------------+--------+--------------+----------------+---------------------+
 *
 * Host and sink include this header; every offset that crosses the boundary is asserted below. C11 and C++20. */
#ifndef TEV_REQUEST_H
#define TEV_REQUEST_H

#include "tev/types.h"

/* Request codes. Any other code is ignored by the sink. */
enum { TEV_REQUEST_FINALISE = 0, TEV_REQUEST_INVOKE = 1, TEV_REQUEST_INITIALISE = 6, TEV_REQUEST_CALL = 7 };

/* What an invoke request does with the seconds that it took; any other value adds, too. */
enum { TEV_POST_NONE = 0, TEV_POST_ADD = 1, TEV_POST_REPLACE = 2 };

enum {
  TEV_REQUEST_BYTES = 32320,
  TEV_REQUEST_BUFFERS = 127,     /* buffers of one invoke request, at most */
  TEV_REQUEST_PROCESSORS = 1024, /* bytes of the processor mask */
  TEV_WORKER_NAME_BYTES = 256,
  TEV_WORKER_RECORD_BYTES = 30000
};

/* Code 6: tell the sink which device it is. */
typedef struct tev_initialise_request {
  uint32_t code;
  uint32_t device;          /* this device, counted from 0 */
  uint32_t devices;         /* how many the host drives */
  char library_path[32308]; /* directories for optional libraries, colon-separated */
} tev_initialise_request;

/* Code 7: call a function of the sink with (return-value buffer, its length). */
typedef struct tev_call_request {
  uint32_t code;
  char name[32316];
} tev_call_request;

/* Code 1: run a worker on the buffers that come with the call. */
typedef struct tev_invoke_request {
  uint32_t code;
  uint32_t parameter; /* second argument of the worker; its meaning belongs to the worker */
  char worker[TEV_WORKER_NAME_BYTES];
  unsigned char record[TEV_WORKER_RECORD_BYTES];  /* first argument of the worker: one of the records below */
  uint64_t relocation[TEV_REQUEST_BUFFERS];       /* bytes added to the address of buffer i, modulo 2^64 */
  int32_t post_mode;                              /* TEV_POST_... */
  uint8_t processor_mask[TEV_REQUEST_PROCESSORS]; /* byte j nonzero: processor j + 1 may take a team thread */
  int32_t processor_count;                        /* mask bytes to examine */
  int32_t thread_count;                           /* size of the team; read when pinning only */
  int32_t pin;                                    /* nonzero: bind thread t to the (t+1)-th allowed processor */
} tev_invoke_request;

typedef union tev_card_request {
  uint32_t code;
  tev_initialise_request initialise;
  tev_call_request call;
  tev_invoke_request invoke;
} tev_card_request;

/* A worker: (its record, the request's parameter, addresses of the buffers, how many). What it returns is ignored. */
typedef void tev_worker(void* record, uint32_t parameter, uint64_t* buffers, uint32_t buffer_count);

/* Record of `configure_device_threading_worker`. What says where threads run (KMP_AFFINITY, OMP_PLACES, OMP_PROC_BIND,
 * KMP_HW_SUBSET) must come before the first request that computes, pins or reports. */
typedef struct tev_threading_record {
  char settings[1024];  /* OpenMP settings, NUL-terminated, as kmp_set_defaults takes them */
  int32_t thread_count; /* size of the team; 0 or less leaves it as it is */
} tev_threading_record;

/* Record of `ueaa_prv_query_device_time_worker`, written by the worker. */
typedef struct tev_device_time_record {
  double seconds; /* busy time posted before this request */
} tev_device_time_record;

/* Records of `tev_blas_?gemm_ao_worker`: C := alpha op(A) op(B) + beta C. Buffers: A, B, C. */
typedef struct tev_sgemm_record {
  char transa, transb; /* 'N', 'T', 'C' */
  int64_t m, n, k;
  float alpha;
  int64_t lda, ldb;
  float beta;
  int64_t ldc;
} tev_sgemm_record;

typedef struct tev_dgemm_record {
  char transa, transb; /* 'N', 'T', 'C' */
  int64_t m, n, k;
  double alpha;
  int64_t lda, ldb;
  double beta;
  int64_t ldc;
} tev_dgemm_record;

typedef struct tev_cgemm_record {
  char transa, transb; /* 'N', 'T', 'C' */
  int64_t m, n, k;
  tev_complex8 alpha;
  int64_t lda, ldb;
  tev_complex8 beta;
  int64_t ldc;
} tev_cgemm_record;

typedef struct tev_zgemm_record {
  char transa, transb; /* 'N', 'T', 'C' */
  int64_t m, n, k;
  tev_complex16 alpha;
  int64_t lda, ldb;
  tev_complex16 beta;
  int64_t ldc;
} tev_zgemm_record;

/* Records of `tev_blas_?symm_ao_worker`, `?trmm`, `?trsm`; each reads its own fields. Buffers: A, B and for symm C. */
typedef struct tev_slevel3_record {
  char side, transa, uplo, diag; /* 'L' 'R', 'N' 'T' 'C', 'U' 'L', 'N' 'U' */
  int64_t m, n, unused;
  float alpha, beta;
  int64_t lda, ldb, ldc;
} tev_slevel3_record;

typedef struct tev_dlevel3_record {
  char side, transa, uplo, diag; /* 'L' 'R', 'N' 'T' 'C', 'U' 'L', 'N' 'U' */
  int64_t m, n, unused;
  double alpha, beta;
  int64_t lda, ldb, ldc;
} tev_dlevel3_record;

typedef struct tev_clevel3_record {
  char side, transa, uplo, diag; /* 'L' 'R', 'N' 'T' 'C', 'U' 'L', 'N' 'U' */
  int64_t m, n, unused;
  tev_complex8 alpha, beta;
  int64_t lda, ldb, ldc;
} tev_clevel3_record;

typedef struct tev_zlevel3_record {
  char side, transa, uplo, diag; /* 'L' 'R', 'N' 'T' 'C', 'U' 'L', 'N' 'U' */
  int64_t m, n, unused;
  tev_complex16 alpha, beta;
  int64_t lda, ldb, ldc;
} tev_zlevel3_record;

/* Record of `tev_lapack_?getrf_worker`, one block step of an LU factorization: interchanges, then a triangular solve,
 * then C := C - A B. Buffers: the columns to interchange, their pivots (int64_t, from 1), the unit lower triangle, the
 * right-hand block that the solve overwrites, A, B and C. The same in every precision. */
typedef struct tev_getrf_record {
  int64_t update_n, update_m, update_k;
  int64_t update_lda, update_ldb, update_ldc;
  int64_t solve_m, solve_n;
  int64_t solve_lda, solve_ldb; /* of the triangle, of the right-hand block */
  int64_t swap_n, swap_lda;
  int64_t swap_k1, swap_k2; /* the first and the last row that is interchanged with its pivot, from 1 */
  int64_t update_guards[2]; /* the update happens only when the first is less than the second */
} tev_getrf_record;

/* An option of a step. */
typedef struct tev_option_slot {
  char letter;
  char unused[7];
} tev_option_slot;

/* Sixteen slots of 8 bytes as each of the step workers reads them. Slots without a name are not read. */
typedef union tev_step_slots {
  struct {
    tev_option_slot transa, transb; /* 'N', 'T', 'C' */
    int64_t m, n, k, lda, ldb, ldc;
  } gemm;
  struct {
    tev_option_slot side, uplo, transa, diag; /* 'L' 'R', 'U' 'L', 'N' 'T' 'C', 'N' 'U' */
    int64_t m, n, lda, ldb;
  } trsm;
  struct {
    tev_option_slot uplo, trans; /* 'U' 'L', 'N' 'T' */
    int64_t n, k, lda, ldc;
  } syrk;
  struct {
    tev_option_slot side, trans, direct, storev; /* 'L' 'R', 'N' 'T' 'C', 'F' 'B', 'C' 'R' */
    int64_t m, n, k, ldv, ldt, ldc, ldwork;
  } larfb;
  uint64_t slots[16];
} tev_step_slots;

/* Records of `tev_lapack_?{gemm,trsm,syrk,larfb}_worker`: one call of the routine of that name. The request's parameter
 * must be the size of the record, and the buffers exactly those of the operation, else nothing happens: A, B, C for
 * gemm; A, B for trsm; A, C for syrk; V, T, C and the work array for larfb. */
typedef struct tev_sstep_record {
  tev_step_slots step;
  float alpha; /* not larfb */
  float beta;  /* gemm, syrk */
  float unused[14];
} tev_sstep_record;

typedef struct tev_dstep_record {
  tev_step_slots step;
  double alpha; /* not larfb */
  double beta;  /* gemm, syrk */
  double unused[14];
} tev_dstep_record;

typedef struct tev_cstep_record {
  tev_step_slots step;
  tev_complex8 alpha; /* not larfb */
  tev_complex8 beta;  /* gemm, syrk */
  tev_complex8 unused[14];
} tev_cstep_record;

typedef struct tev_zstep_record {
  tev_step_slots step;
  tev_complex16 alpha; /* not larfb */
  tev_complex16 beta;  /* gemm, syrk */
  tev_complex16 unused[14];
} tev_zstep_record;

#define TEV_AT(record, field, offset) \
  TEV_STATIC_ASSERT(offsetof(record, field) == (offset), #record "." #field " moved")

TEV_AT(tev_initialise_request, code, 0);
TEV_AT(tev_initialise_request, device, 4);
TEV_AT(tev_initialise_request, devices, 8);
TEV_AT(tev_initialise_request, library_path, 12);
TEV_AT(tev_call_request, code, 0);
TEV_AT(tev_call_request, name, 4);
TEV_AT(tev_invoke_request, code, 0);
TEV_AT(tev_invoke_request, parameter, 4);
TEV_AT(tev_invoke_request, worker, 8);
TEV_AT(tev_invoke_request, record, 264);
TEV_AT(tev_invoke_request, relocation, 30264);
TEV_AT(tev_invoke_request, post_mode, 31280);
TEV_AT(tev_invoke_request, processor_mask, 31284);
TEV_AT(tev_invoke_request, processor_count, 32308);
TEV_AT(tev_invoke_request, thread_count, 32312);
TEV_AT(tev_invoke_request, pin, 32316);
TEV_STATIC_ASSERT(sizeof(tev_card_request) == TEV_REQUEST_BYTES, "the request block changed its size");
TEV_AT(tev_threading_record, settings, 0);
TEV_AT(tev_threading_record, thread_count, 1024);
TEV_AT(tev_device_time_record, seconds, 0);

TEV_AT(tev_sgemm_record, transa, 0);
TEV_AT(tev_sgemm_record, transb, 1);
TEV_AT(tev_sgemm_record, m, 8);
TEV_AT(tev_sgemm_record, n, 16);
TEV_AT(tev_sgemm_record, k, 24);
TEV_AT(tev_sgemm_record, alpha, 32);
TEV_AT(tev_sgemm_record, lda, 40);
TEV_AT(tev_sgemm_record, ldb, 48);
TEV_AT(tev_sgemm_record, beta, 56);
TEV_AT(tev_sgemm_record, ldc, 64);

TEV_AT(tev_dgemm_record, transa, 0);
TEV_AT(tev_dgemm_record, transb, 1);
TEV_AT(tev_dgemm_record, m, 8);
TEV_AT(tev_dgemm_record, n, 16);
TEV_AT(tev_dgemm_record, k, 24);
TEV_AT(tev_dgemm_record, alpha, 32);
TEV_AT(tev_dgemm_record, lda, 40);
TEV_AT(tev_dgemm_record, ldb, 48);
TEV_AT(tev_dgemm_record, beta, 56);
TEV_AT(tev_dgemm_record, ldc, 64);

TEV_AT(tev_cgemm_record, transa, 0);
TEV_AT(tev_cgemm_record, transb, 1);
TEV_AT(tev_cgemm_record, m, 8);
TEV_AT(tev_cgemm_record, n, 16);
TEV_AT(tev_cgemm_record, k, 24);
TEV_AT(tev_cgemm_record, alpha, 32);
TEV_AT(tev_cgemm_record, lda, 40);
TEV_AT(tev_cgemm_record, ldb, 48);
TEV_AT(tev_cgemm_record, beta, 56);
TEV_AT(tev_cgemm_record, ldc, 64);

TEV_AT(tev_zgemm_record, transa, 0);
TEV_AT(tev_zgemm_record, transb, 1);
TEV_AT(tev_zgemm_record, m, 8);
TEV_AT(tev_zgemm_record, n, 16);
TEV_AT(tev_zgemm_record, k, 24);
TEV_AT(tev_zgemm_record, alpha, 32);
TEV_AT(tev_zgemm_record, lda, 48);
TEV_AT(tev_zgemm_record, ldb, 56);
TEV_AT(tev_zgemm_record, beta, 64);
TEV_AT(tev_zgemm_record, ldc, 80);

TEV_AT(tev_slevel3_record, side, 0);
TEV_AT(tev_slevel3_record, transa, 1);
TEV_AT(tev_slevel3_record, uplo, 2);
TEV_AT(tev_slevel3_record, diag, 3);
TEV_AT(tev_slevel3_record, m, 8);
TEV_AT(tev_slevel3_record, n, 16);
TEV_AT(tev_slevel3_record, unused, 24);
TEV_AT(tev_slevel3_record, alpha, 32);
TEV_AT(tev_slevel3_record, beta, 36);
TEV_AT(tev_slevel3_record, lda, 40);
TEV_AT(tev_slevel3_record, ldb, 48);
TEV_AT(tev_slevel3_record, ldc, 56);

TEV_AT(tev_dlevel3_record, side, 0);
TEV_AT(tev_dlevel3_record, transa, 1);
TEV_AT(tev_dlevel3_record, uplo, 2);
TEV_AT(tev_dlevel3_record, diag, 3);
TEV_AT(tev_dlevel3_record, m, 8);
TEV_AT(tev_dlevel3_record, n, 16);
TEV_AT(tev_dlevel3_record, unused, 24);
TEV_AT(tev_dlevel3_record, alpha, 32);
TEV_AT(tev_dlevel3_record, beta, 40);
TEV_AT(tev_dlevel3_record, lda, 48);
TEV_AT(tev_dlevel3_record, ldb, 56);
TEV_AT(tev_dlevel3_record, ldc, 64);

TEV_AT(tev_clevel3_record, side, 0);
TEV_AT(tev_clevel3_record, transa, 1);
TEV_AT(tev_clevel3_record, uplo, 2);
TEV_AT(tev_clevel3_record, diag, 3);
TEV_AT(tev_clevel3_record, m, 8);
TEV_AT(tev_clevel3_record, n, 16);
TEV_AT(tev_clevel3_record, unused, 24);
TEV_AT(tev_clevel3_record, alpha, 32);
TEV_AT(tev_clevel3_record, beta, 40);
TEV_AT(tev_clevel3_record, lda, 48);
TEV_AT(tev_clevel3_record, ldb, 56);
TEV_AT(tev_clevel3_record, ldc, 64);

TEV_AT(tev_zlevel3_record, side, 0);
TEV_AT(tev_zlevel3_record, transa, 1);
TEV_AT(tev_zlevel3_record, uplo, 2);
TEV_AT(tev_zlevel3_record, diag, 3);
TEV_AT(tev_zlevel3_record, m, 8);
TEV_AT(tev_zlevel3_record, n, 16);
TEV_AT(tev_zlevel3_record, unused, 24);
TEV_AT(tev_zlevel3_record, alpha, 32);
TEV_AT(tev_zlevel3_record, beta, 48);
TEV_AT(tev_zlevel3_record, lda, 64);
TEV_AT(tev_zlevel3_record, ldb, 72);
TEV_AT(tev_zlevel3_record, ldc, 80);

TEV_AT(tev_getrf_record, update_n, 0);
TEV_AT(tev_getrf_record, update_m, 8);
TEV_AT(tev_getrf_record, update_k, 16);
TEV_AT(tev_getrf_record, update_lda, 24);
TEV_AT(tev_getrf_record, update_ldb, 32);
TEV_AT(tev_getrf_record, update_ldc, 40);
TEV_AT(tev_getrf_record, solve_m, 48);
TEV_AT(tev_getrf_record, solve_n, 56);
TEV_AT(tev_getrf_record, solve_lda, 64);
TEV_AT(tev_getrf_record, solve_ldb, 72);
TEV_AT(tev_getrf_record, swap_n, 80);
TEV_AT(tev_getrf_record, swap_lda, 88);
TEV_AT(tev_getrf_record, swap_k1, 96);
TEV_AT(tev_getrf_record, swap_k2, 104);
TEV_AT(tev_getrf_record, update_guards, 112);
TEV_STATIC_ASSERT(sizeof(tev_getrf_record) == 128, "the LU record changed its size");

TEV_AT(tev_step_slots, gemm.transa, 0);
TEV_AT(tev_step_slots, gemm.transb, 8);
TEV_AT(tev_step_slots, gemm.m, 16);
TEV_AT(tev_step_slots, gemm.n, 24);
TEV_AT(tev_step_slots, gemm.k, 32);
TEV_AT(tev_step_slots, gemm.lda, 40);
TEV_AT(tev_step_slots, gemm.ldb, 48);
TEV_AT(tev_step_slots, gemm.ldc, 56);
TEV_AT(tev_step_slots, trsm.side, 0);
TEV_AT(tev_step_slots, trsm.uplo, 8);
TEV_AT(tev_step_slots, trsm.transa, 16);
TEV_AT(tev_step_slots, trsm.diag, 24);
TEV_AT(tev_step_slots, trsm.m, 32);
TEV_AT(tev_step_slots, trsm.n, 40);
TEV_AT(tev_step_slots, trsm.lda, 48);
TEV_AT(tev_step_slots, trsm.ldb, 56);
TEV_AT(tev_step_slots, syrk.uplo, 0);
TEV_AT(tev_step_slots, syrk.trans, 8);
TEV_AT(tev_step_slots, syrk.n, 16);
TEV_AT(tev_step_slots, syrk.k, 24);
TEV_AT(tev_step_slots, syrk.lda, 32);
TEV_AT(tev_step_slots, syrk.ldc, 40);
TEV_AT(tev_step_slots, larfb.side, 0);
TEV_AT(tev_step_slots, larfb.trans, 8);
TEV_AT(tev_step_slots, larfb.direct, 16);
TEV_AT(tev_step_slots, larfb.storev, 24);
TEV_AT(tev_step_slots, larfb.m, 32);
TEV_AT(tev_step_slots, larfb.n, 40);
TEV_AT(tev_step_slots, larfb.k, 48);
TEV_AT(tev_step_slots, larfb.ldv, 56);
TEV_AT(tev_step_slots, larfb.ldt, 64);
TEV_AT(tev_step_slots, larfb.ldc, 72);
TEV_AT(tev_step_slots, larfb.ldwork, 80);
TEV_STATIC_ASSERT(sizeof(tev_step_slots) == 128, "the slots of a step changed their size");

TEV_AT(tev_sstep_record, alpha, 128);
TEV_AT(tev_sstep_record, beta, 132);
TEV_STATIC_ASSERT(sizeof(tev_sstep_record) == 192, "a step record changed its size");
TEV_AT(tev_dstep_record, alpha, 128);
TEV_AT(tev_dstep_record, beta, 136);
TEV_STATIC_ASSERT(sizeof(tev_dstep_record) == 256, "a step record changed its size");
TEV_AT(tev_cstep_record, alpha, 128);
TEV_AT(tev_cstep_record, beta, 136);
TEV_STATIC_ASSERT(sizeof(tev_cstep_record) == 256, "a step record changed its size");
TEV_AT(tev_zstep_record, alpha, 128);
TEV_AT(tev_zstep_record, beta, 144);
TEV_STATIC_ASSERT(sizeof(tev_zstep_record) == 384, "a step record changed its size");

#undef TEV_AT

#endif
