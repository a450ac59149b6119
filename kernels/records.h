// SPDX-License-Identifier: BSD-3-Clause
// The records that pass between the drivers of matrix products and the kernels of a tier. Plain data: every tier reads
// the same layouts. A record lives for one call, or for one thread's share of one call. T is the element type.
#pragma once

#include <cstdint>

#include "kernels/routine_types.h"

namespace tev::kernels {

// Letters of the BLAS as codes: what Operation's fields hold.
inline constexpr int32_t kNoTrans = 0, kTrans = 1, kConjTrans = 2, kNoSuchTrans = -1;

// Bits of an operand's copy mode. C of a product has 0.
inline constexpr int32_t kCopyPlain = 1, kCopyTrans = 2, kCopyConjTrans = 4;
// Of a symmetric or triangular matrix besides: the triangle that is stored, or written, and whether the diagonal is 1.
inline constexpr int32_t kCopyLower = 8, kCopyUpper = 16, kCopyNonUnit = 32, kCopyUnit = 64;
// Of a Hermitian matrix, read or written, besides: what is mirrored is conjugated, and the diagonal is real.
inline constexpr int32_t kCopyHermitian = 128;

// What a product is part of. 0, 1 and 7 are fixed by the drivers; the others never leave the process.
inline constexpr int32_t kOpGemm = 0, kOpSymm = 1, kOpSyrk = 4, kOpSyr2k = 5, kOpTrmm = 7, kOpTrsm = 8;

// side: L 0, R 1. uplo: U 0, L 1. diag: U 0, N 1. Not applicable: 2. Another letter: -1.
inline constexpr int32_t kAbsent = 2;

// Drivers (strategy::strategy) and the modes by which a parallel driver asks for them.
inline constexpr int32_t kFullCopy = 2, kACopied = 4, kNoCopy = 16, kPartitioned32 = 32, kPartitioned128 = 128;

struct operand;

// Address of element (i, j) of op(X); i, j count from the operand's data.
using address_fn = void*(int64_t i, int64_t j, const operand*);

// A matrix as it enters the product: A is m x k, B is k x n, C is m x n, whatever the transposition.
struct operand {
  void* data;             // element (0, 0) of the block
  int64_t rows, columns;  // of op(X)
  int64_t ld;             // elements between stored columns
  int64_t row_offset;     // start of the block inside the matrix, 0 at entry
  int64_t column_offset;
  int64_t extent;        // m (A, C) or k (B) at entry; partitioners leave it, drivers narrow their own copies
  int64_t element_size;  // bytes: 4 s, 8 d, 8 c, 16 z
  int32_t copy_mode;     // kCopyPlain ...
  address_fn* at;        // getPointer_notrans or getPointer_trans
};

// One product, shared by all routines of one call.
template <class T>
struct operation {
  int32_t op_a, op_b;  // kNoTrans, kTrans, kConjTrans, kNoSuchTrans (addressed as transposed, not conjugated)
  T alpha, beta;
  int64_t m, n, k;
  operand a, b, c;
  int32_t from_right;        // nonzero: the triangular or symmetric operand multiplies from the right
  int32_t side, uplo, diag;  // kAbsent, or the letter's code
  int32_t code;              // kOpGemm ...
};

struct strategy;
using check_strategy_fn = int32_t(strategy*);  // 1 when nothing had to be changed

struct strategy {
  int32_t first;          // 0; check_strategy: 2, or 4 with kNoCopy
  int32_t strategy_code;  // 0; kFullCopy, kACopied, kNoCopy, 32, 128. check_strategy turns 0 into kFullCopy
  int32_t third;          // 0; check_strategy: 4
  int32_t pack;           // 2: the caller keeps packed operands across calls
  int32_t wide_block;     // nonzero: larger kc and nc caps (avx512_zel s)
  int64_t mr, nr, ku;     // register tile, unroll of k
  int64_t padded_mr, padded_nr, padded_ku;  // rounded up to multiples of 8 by check_strategy
  check_strategy_fn* check;
};

struct panel;

// Address of position p of row (A) or column (B) s of a packed panel; s lies in a strip of full height.
using panel_address_fn = void*(int64_t s, int64_t p, const panel*);

// A packed panel as the buffers describe it.
struct panel {
  panel_address_fn* at;  // getPointer_buffer
  int64_t offset;        // 0
  int64_t kc, extent;    // extent: mc or nc
  int64_t strip_stride;  // elements: mr or nr times kc rounded up to ku
  int64_t ku, strip;     // strip: mr or nr
  int64_t padded_kc;     // kc rounded up to ku
  int64_t element_size;
  void* data;  // bytes; 0 until the get routine ran
};

struct buffers;
using buffers_fn = int32_t(buffers*);  // 0 done, 1 unknown mode or no memory
using set_buffers_fn = int32_t(void* base, buffers*);

// Where the packed panels of one product live.
struct buffers {
  void* base;  // what the allocator returned; 0 until get, 0 again after free
  panel a, b;
  int64_t a_alignment, b_alignment;  // 128 bytes each
  int32_t mode;                      // 1 A, 2 B, 3 A and B, 4 one B per thread, 5 one A per thread
  int64_t mc, nc, kc;
  int64_t a_offset;         // 1664 bytes
  int64_t large_alignment;  // 2 MiB
  int64_t b_offset;         // 768 bytes
  int64_t page_alignment;   // 4096 bytes
  int64_t reserved;         // 1
  buffers_fn* get;
  set_buffers_fn* set;  // or null
  buffers_fn* free;
  int64_t threads;        // modes 4 and 5
  int64_t thread_stride;  // bytes between the panels of two threads, modes 4 and 5
};

// What a copy routine packs into: the packed panel's address and, written by the routine, the extents of what it
// packed: (walked dimension, strip dimension).
struct packed {
  void* data;
  int64_t depth, width;
};

template <class T>
struct kernel_info;

template <class T>
using copy_fn = void(const operand* source, packed* target, const T* scalar);
// Prepares the diagonal of a packed triangle, of the block that was packed: what to divide by, or that it is 1.
using diagonal_scale_fn = void(const operand* source, packed* target);
template <class T>
using ker0_fn = void(const int64_t* k, const T* a_panel, const T* b_panel, const T* beta, const operand* c);
// Packs `across` rows or columns in strips over `walked` positions, each element times the scalar.
template <class T>
using copy_ea_fn = void(const int64_t* walked, const int64_t* across, const T* scalar, const T* source,
                        const int64_t* ld, T* target);
template <class T>
using mscale_wrapper_fn = void(const operand* c, const T* beta);
// 0; 2 when memory was short: nothing was computed, use kernel_info::fallback.
template <class T>
using driver_fn = int32_t(const operation<T>*, const operand* a, const operand* b, const operand* c, buffers*,
                          const kernel_info<T>*);

// The routines that compute one operation on one tier, and the numbers that choose among them.
template <class T>
struct kernel_info {
  int64_t element_size;
  int32_t count_a, count_b;      // 4 and 4
  strategy plan;                 // mb = plan.mr, nb = plan.nr for partitions in whole blocks
  mscale_wrapper_fn<T>* mscale;  // of all of C, or of the triangle that its copy mode names
  copy_fn<T>* copy_a;            // null where an operation has no such routine, as the three below
  copy_fn<T>* copy_b;
  ker0_fn<T>* ker0;
  diagonal_scale_fn* diagonal_scale;  // TRMM, TRSM; else null
  driver_fn<T>* driver;               // the whole product
  driver_fn<T>* packed_product;       // A packed already (shared panel), B packed by this call; or null
  driver_fn<T>* fallback;             // unpacked: needs no memory
  // For callers that choose themselves; the drivers know it from the shape.
  driver_fn<T>* pst;     // skinny and shallow shapes
  int64_t pst_m, pst_n;  // with fewer rows and fewer columns pst beats packing
};

// How the threads of a parallel driver share a product, as map_thread_to_kernel reads it.
struct thread_info {
  int32_t mode;  // 0 full copy, 1 A copied, 3 strategy 32, 5 no copy; any other: full copy
};

using map_thread_to_kernel_fn = int32_t(const thread_info*, strategy*);
using initialize_buffers_fn = int32_t(const operand* a, const operand* b, const strategy*, buffers*);
template <class T>
using initialize_kernel_info_fn = int32_t(const operation<T>*, const operand* a, const operand* b, const operand* c,
                                          const strategy*, kernel_info<T>*);

// A tier's api_support, API versions and counts.
using number_fn = int32_t();

}  // namespace tev::kernels

extern "C" {

// element (i, j) of op(X): data + (i + j ld) or data + (i ld + j), in elements.
tev::kernels::address_fn getPointer_notrans;
tev::kernels::address_fn getPointer_trans;

// data + (s / strip) strip_stride + p strip + s % strip, in elements.
tev::kernels::panel_address_fn getPointer_buffer;

}  // extern "C"
