// SPDX-License-Identifier: BSD-3-Clause
// The older interface of matrix products, of the tiers without fused multiply-add: a driver asks for block sizes, gets
// buffers, packs and multiplies block by block. Copies and kernels have the types of records.h.
#pragma once

#include <cstdint>

#include "kernels/records.h"

namespace tev::kernels {

// The blocks of one product, or of one thread's share. zero_desc comes first, then set_blks_size, then getbufs.
//   A panel: [mb / mr strips][kb][mr]     B panel: [nb / nr strips][kb][nr]
struct block_record {
  int64_t mb, nb, kb;  // elements                                  W set_blks_size  R getbufs, copies, kernels
  void* base;          // bytes; 0 until getbufs, 0 after freebufs  W getbufs        R freebufs
  void* a;             // panel of mb x kb elements of A            W getbufs        R copies, kernels
  void* b;             // panel of kb x nb elements of B            W getbufs        R copies, kernels
};

// Block sizes and register tile for a product of the given extents: fills mb, nb, kb where they are 0, and mr, nr, ku.
using block_info_fn = void(const int64_t* m, const int64_t* n, const int64_t* k, int64_t* mb, int64_t* nb, int64_t* kb,
                           int64_t* mr, int64_t* nr, int64_t* ku);
using zero_record_fn = void(block_record*);
using set_blocks_fn = void(const int64_t* mb, const int64_t* nb, const int64_t* kb, block_record*);
using buffers_size_fn = int64_t(const block_record*);  // bytes that getbufs will ask for; 0: it asks by itself
using get_block_buffers_fn = int32_t(block_record*);   // 0; 2 when memory was short
using free_block_buffers_fn = void(block_record*);

// The packed kernel that suits the extents best.
template <class T>
using optimal_kernel_fn = ker0_fn<T>*(const int64_t* m, const int64_t* n, const int64_t* k);

// Kernel number *index, null beyond the last.
template <class T>
using numbered_kernel_fn = ker0_fn<T>*(const int64_t* index);

// One thread's share, number *ithr of *nthr, of a product.
template <class T>
using gemm_share_fn = void(const char* transa, const char* transb, const int64_t* m, const int64_t* n, const int64_t* k,
                           const T* alpha, const T* a, const int64_t* lda, const T* b, const int64_t* ldb,
                           const T* beta, T* c, const int64_t* ldc, const int64_t* ithr, const int64_t* nthr);

}  // namespace tev::kernels
