// SPDX-License-Identifier: BSD-3-Clause
// kernels/avx512_zel: 512-bit vectors (F and CD only), fused multiply-add, 32 vector registers; the wide side of the
// tile is B.
#pragma once

#define TEV_TIER avx512_zel
#include "kernels/avx512_zel/roster.h"
#include "kernels/families/tier_numbers.h"

namespace tev::avx512_zel {

inline constexpr tier_numbers kTier = {
    .vector_bytes = 64,
    .vector_registers = 32,
    .fused_multiply_add = true,
    .branches_on_addresses = true,
    .peels_to_alignment = false,
    .api_version = 2,
    .api_support = 4,
    .large_strips = true,     // a strip of A as deep as a panel outgrows the first cache: fetch ahead
    .strips_together = 2,     // a tile of one strip is as wide as that of B and bound by its loads
    .rotates_floats = false,  // broadcasts come with the load
    .rotates_doubles = false,
    .packs_from = least_packed{.plain = 72, .transposed = 56, .both = 193},
    // clang-format off
    .s = gemm_shape{.mr = 16, .nr = 28, .one_panel_to = 336, .full_panels_from = 672, .kc = 336, .mc = 9884, .nc = 224,
          .wide_kc = 432, .wide_nc = 336, .unpacked_rows = 48, .unpacked_columns = 8},
    .d = gemm_shape{.mr = 8, .nr = 28, .one_panel_to = 336, .full_panels_from = 672, .kc = 336, .mc = 4992, .nc = 112,
          .wide_kc = 336, .wide_nc = 112, .unpacked_rows = 24, .unpacked_columns = 8},
    .c = gemm_shape{.mr = 8, .nr = 14, .one_panel_to = 336, .full_panels_from = 672, .kc = 336, .mc = 4992, .nc = 112,
          .wide_kc = 336, .wide_nc = 112, .unpacked_rows = 8, .unpacked_columns = 14},
    .z = gemm_shape{.mr = 4, .nr = 14, .one_panel_to = 336, .full_panels_from = 672, .kc = 336, .mc = 2496, .nc = 56,
          .wide_kc = 336, .wide_nc = 56, .unpacked_rows = 4, .unpacked_columns = 14},
    // clang-format on
};

}  // namespace tev::avx512_zel

#include "kernels/families/tier-inl.h"
