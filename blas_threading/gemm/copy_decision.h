// SPDX-License-Identifier: BSD-3-Clause
// Whether the threads of a product share packed panels, or each compute a block of C from A and B in place: small and
// thin blocks do not earn back what packing costs.
#pragma once

#include <cstdint>

namespace tev::blas {

// What the decisions about one product look at.
struct product_shape {
  int64_t m, n, k;
  int32_t op_a, op_b;  // kernels::kNoTrans ...
  int64_t lda, ldb, ldc;
  int64_t mb, nb;        // register tile of the packed kernels: blocks of the grid
  int64_t element_size;  // bytes
};

// For a product on `threads` threads of tier `tier` (a type code). Asked for s and d: complex products have no kernels
// in place.
bool wants_panels(int32_t tier, const product_shape& shape, int64_t threads, bool vesta);

// The tiers' own tests.
bool always_panels(const product_shape& shape, int64_t threads, bool vesta);
bool avx2_wants_panels(const product_shape& shape, int64_t threads, bool vesta);
bool avx512_wants_panels(const product_shape& shape, int64_t threads, bool vesta);
bool many_core_wants_panels(const product_shape& shape, int64_t threads, bool vesta);

}  // namespace tev::blas
