// SPDX-License-Identifier: BSD-3-Clause
// kernels/cnr_def: def without any branch on an address: the same problem gives the same bits wherever it lies.
#pragma once

#define TEV_TIER cnr_def
#include "kernels/cnr_def/roster.h"
#include "kernels/families/tier_numbers.h"

namespace tev::cnr_def {

inline constexpr tier_numbers kTier = {
    .vector_bytes = 16,
    .vector_registers = 16,
    .fused_multiply_add = false,
    .branches_on_addresses = false,
    .peels_to_alignment = false,
    .api_version = 1,
    .api_support = 0,
    .large_strips = false,  // a strip of A stays in the first cache
    .strips_together = 1,
    .rotates_floats = true,  // a broadcast takes a shuffle: rotate rows of B instead
    .rotates_doubles = true,
    .packs_from = least_packed{.plain = 40, .transposed = 40, .both = 40},
    // clang-format off
    .s = gemm_shape{.mr = 8, .nr = 4, .one_panel_to = 256, .full_panels_from = 384, .kc = 256, .mc = 4992, .nc = 384,
          .wide_kc = 256, .wide_nc = 384, .unpacked_rows = 8, .unpacked_columns = 4},
    .d = gemm_shape{.mr = 4, .nr = 4, .one_panel_to = 256, .full_panels_from = 384, .kc = 256, .mc = 4992, .nc = 192,
          .wide_kc = 256, .wide_nc = 192, .unpacked_rows = 4, .unpacked_columns = 4},
    .c = gemm_shape{.mr = 4, .nr = 2, .one_panel_to = 256, .full_panels_from = 384, .kc = 256, .mc = 4992, .nc = 192,
          .wide_kc = 256, .wide_nc = 192, .unpacked_rows = 4, .unpacked_columns = 2},
    .z = gemm_shape{.mr = 2, .nr = 2, .one_panel_to = 256, .full_panels_from = 384, .kc = 256, .mc = 2496, .nc = 96,
          .wide_kc = 256, .wide_nc = 96, .unpacked_rows = 2, .unpacked_columns = 2},
    // clang-format on
};

}  // namespace tev::cnr_def

#include "kernels/families/tier-inl.h"
