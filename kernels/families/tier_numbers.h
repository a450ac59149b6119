// SPDX-License-Identifier: BSD-3-Clause
// The numbers that a tier sets in its tier.h, each by name. One that is left out does not compile.
#pragma once

#include <cstdint>

#include "service/required.h"

namespace tev {

// Of the packed matrix product, per precision.
struct gemm_shape {
  int mr, nr;                               // register tile: rows of an A strip, columns of a B strip
  int64_t one_panel_to, full_panels_from;   // k up to the one is one panel; from the other panels are kc deep; between,
                                            // k is halved
  int64_t kc;                               // deepest panel
  int64_t mc, nc;                           // most rows of A, most columns of B per block
  int64_t wide_kc, wide_nc;                 // the same for a strategy with the wide-block flag
  int64_t unpacked_rows, unpacked_columns;  // register tile of products that read A and B where they lie
};

constexpr bool is_complete(const gemm_shape& g) {
  return g.mr && g.nr && g.one_panel_to && g.full_panels_from && g.kc && g.mc && g.nc && g.wide_kc && g.wide_nc &&
         g.unpacked_rows && g.unpacked_columns;
}

// Sizes from which packing pays. A product with fewer rows or columns than `plain` (op(A) = "N") or `transposed`, or
// with fewer rows and columns than `both`, packs nothing.
struct least_packed {
  int64_t plain, transposed, both;
};

struct tier_numbers {
  required<int> vector_bytes, vector_registers;
  required<bool> fused_multiply_add;
  required<bool> branches_on_addresses;  // false: where an operand lies decides nothing, not even which stores are used
  required<bool> peels_to_alignment;     // single elements lead up to the first boundary of a vector
  required<int32_t> api_version, api_support;      // what the drivers ask for
  required<bool> large_strips;                     // a strip of A outgrows the first cache: fetch ahead
  required<int> strips_together;                   // strips of A that share a register tile
  required<bool> rotates_floats, rotates_doubles;  // broadcasts take a shuffle: rotate rows of B instead
  required<least_packed> packs_from;
  required<gemm_shape> s, d, c, z;
};

}  // namespace tev
