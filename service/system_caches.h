// SPDX-License-Identifier: BSD-3-Clause
// The caches for whoever chooses sizes by them. tev_serv_cache_info asks the processor in the way of one maker; the
// others' processors have no levels there.
#pragma once

#include <cstdint>

namespace tev::service {

// The data and unified caches, first level first.
struct cache_levels {
  static constexpr int32_t kMost = 4;
  int32_t count;
  int64_t bytes[kMost];
};

// tev_serv_cache_info's; where that has no level, the system's own description. That is only asked with
// reproducibility off: under a mode the sizes are the same everywhere. Reads files: not for every call of a routine.
cache_levels known_caches();

}  // namespace tev::service
