// SPDX-License-Identifier: BSD-3-Clause
// What a tier says of its packed matrix product, per precision.
#pragma once

#include <cstdint>

namespace tev {

struct gemm_shape {
  int mr, nr;                        // register tile: rows of an A strip, columns of a B strip
  int64_t t1, t2;                    // k up to t1 is one panel; from t2 panels are kc deep; between, k is halved
  int64_t kc;                        // deepest panel
  int64_t mc, nc;                    // most rows of A, most columns of B per block
  int64_t wide_kc, wide_nc;          // the same for a strategy with the wide-block flag
  int64_t in_place_mr, in_place_nr;  // register tile of products that pack nothing
};

// Sizes from which packing pays. A product with fewer rows or columns than `plain` (op(A) = "N") or `transposed`, or
// with fewer rows and columns than `both`, packs nothing.
struct least_packed {
  int64_t plain, transposed, both;
};

}  // namespace tev
