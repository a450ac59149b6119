// SPDX-License-Identifier: BSD-3-Clause
// kernels/avx2: 256-bit vectors, fused multiply-add, 16 vector registers.
#pragma once

#define TEV_TIER avx2
#include "kernels/avx2/roster.h"
#include "kernels/families/tier_numbers.h"

namespace tev::avx2 {

inline constexpr tier_numbers kTier = {
    .vector_bytes = 32,
    .vector_registers = 16,
    .fused_multiply_add = true,
    .branches_on_addresses = true,
    .peels_to_alignment = false,
    .api_version = 2,
    .api_support = 4,
    .large_strips = false,  // a strip of A stays in the first cache
    .strips_together = 1,
    .rotates_floats = false,  // broadcasts come with the load
    .rotates_doubles = false,
    .packs_from = least_packed{.plain = 72, .transposed = 56, .both = 193},
    // clang-format off
    .s = gemm_shape{.mr = 24, .nr = 4, .one_panel_to = 256, .full_panels_from = 384, .kc = 192, .mc = 10000, .nc = 384,
          .wide_kc = 192, .wide_nc = 384, .unpacked_rows = 16, .unpacked_columns = 6},
    .d = gemm_shape{.mr = 12, .nr = 4, .one_panel_to = 256, .full_panels_from = 384, .kc = 192, .mc = 5000, .nc = 192,
          .wide_kc = 192, .wide_nc = 192, .unpacked_rows = 8, .unpacked_columns = 6},
    .c = gemm_shape{.mr = 12, .nr = 2, .one_panel_to = 256, .full_panels_from = 384, .kc = 192, .mc = 5000, .nc = 192,
          .wide_kc = 192, .wide_nc = 192, .unpacked_rows = 12, .unpacked_columns = 2},
    .z = gemm_shape{.mr = 6, .nr = 2, .one_panel_to = 256, .full_panels_from = 384, .kc = 192, .mc = 2500, .nc = 96,
          .wide_kc = 192, .wide_nc = 96, .unpacked_rows = 6, .unpacked_columns = 2},
    // clang-format on
};

}  // namespace tev::avx2

#include "kernels/families/tier-inl.h"
