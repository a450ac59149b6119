// SPDX-License-Identifier: BSD-3-Clause
// kernels/avx512: 512-bit vectors (F, DQ, BW, VL), fused multiply-add, 32 vector registers.
#pragma once

#define TEV_TIER avx512
#include "kernels/avx512/roster.h"
#include "kernels/families/tier_numbers.h"

namespace tev::avx512 {

inline constexpr tier_numbers kTier = {
    .vector_bytes = 64,
    .vector_registers = 32,
    .fused_multiply_add = true,
    .branches_on_addresses = true,
    .peels_to_alignment = false,
    .api_version = 2,
    .api_support = 4,
    .large_strips = true,  // a strip of A as deep as a panel outgrows the first cache: fetch ahead
    .strips_together = 1,
    .rotates_floats = false,  // broadcasts come with the load
    .rotates_doubles = false,
    .packs_from = least_packed{.plain = 72, .transposed = 56, .both = 193},
    // clang-format off
    .s = gemm_shape{.mr = 48, .nr = 8, .one_panel_to = 384, .full_panels_from = 768, .kc = 384, .mc = 9984, .nc = 384,
          .wide_kc = 384, .wide_nc = 384, .unpacked_rows = 48, .unpacked_columns = 8},
    .d = gemm_shape{.mr = 24, .nr = 8, .one_panel_to = 384, .full_panels_from = 768, .kc = 384, .mc = 4992, .nc = 192,
          .wide_kc = 384, .wide_nc = 192, .unpacked_rows = 24, .unpacked_columns = 8},
    .c = gemm_shape{.mr = 24, .nr = 4, .one_panel_to = 384, .full_panels_from = 768, .kc = 384, .mc = 4992, .nc = 192,
          .wide_kc = 384, .wide_nc = 192, .unpacked_rows = 24, .unpacked_columns = 4},
    .z = gemm_shape{.mr = 12, .nr = 4, .one_panel_to = 384, .full_panels_from = 768, .kc = 384, .mc = 2496, .nc = 96,
          .wide_kc = 384, .wide_nc = 96, .unpacked_rows = 12, .unpacked_columns = 4},
    // clang-format on
};

}  // namespace tev::avx512

#include "kernels/families/tier-inl.h"
