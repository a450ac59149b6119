// SPDX-License-Identifier: BSD-3-Clause
// The tests by tier. Each compares the sizes with what a thread of the team gets of them.
#include "blas_threading/gemm/copy_decision.h"

#include "blas_threading/gemm/tier_row.h"
#include "kernels/records.h"

namespace tev::blas {

namespace {

using kernels::kNoTrans;

constexpr int64_t kBlock = 378;      // a thread that gets this much of every size packs
constexpr int64_t kSetStride = 256;  // columns this many elements apart fall into the same few cache sets

// In place such columns evict each other; packing lays them out anew.
bool clashes_in_cache(const product_shape& s) {
  return s.lda % kSetStride == 0 || s.ldb % kSetStride == 0 || s.ldc % kSetStride == 0;
}

}  // namespace

bool always_panels(const product_shape&, int64_t, bool) { return true; }

bool avx2_wants_panels(const product_shape& s, int64_t t, bool) {
  const bool one_block = s.m <= kBlock && s.n <= kBlock;
  const int64_t large = kBlock * t;
  if (s.k >= large && (one_block || s.m >= large)) return true;
  if (s.m <= 128 && s.n <= 128) return false;
  return s.op_b == kNoTrans ? s.n > 16 * t && s.k > 2 * t : s.n > t && s.k > t;
}

bool avx512_wants_panels(const product_shape& s, int64_t t, bool) {
  if (clashes_in_cache(s)) return true;
  const int64_t large = kBlock * t;
  const bool wide_but_short = (s.m > kBlock || s.n > kBlock) && s.m < large;
  if (!wide_but_short && s.k >= large) return true;
  if (s.op_b == kNoTrans) return s.m > 28 * t && s.n > 28 * t && s.k > t;
  if (s.m <= 28 * t && s.n <= s.m) return false;
  return s.n > 28 * t && s.k > t;
}

bool many_core_wants_panels(const product_shape& s, int64_t t, bool vesta) {
  if (clashes_in_cache(s)) return true;
  const int64_t least_k = vesta ? 8 * t : t;
  if (s.op_a == kNoTrans) return s.m > 13 * t && s.n > 13 * t && s.k > least_k;
  const int64_t least_n = vesta ? 4 * t : t;  // deliberately not m's 6 t
  return s.m > 6 * t && s.n > least_n && s.k > least_k;
}

bool wants_panels(int32_t tier, const product_shape& shape, int64_t threads, bool vesta) {
  return row_of(tier).wants_panels.value(shape, threads, vesta);
}

}  // namespace tev::blas
