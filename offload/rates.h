// SPDX-License-Identifier: BSD-3-Clause
// How long a call takes here and how long in a sink on this machine, by what this process measured of itself once.
#pragma once

#include <cstdint>

namespace tev::offload {

// What is known of a call before it runs.
struct call_size {
  double flops;
  double bytes;  // copied into shared memory and out of it
  bool is_single;
  double panel_flops = 0;  // of those, by the calling thread while the sink does the others
};

// Is it over sooner with so many threads of a sink than with so many here? The first question takes milliseconds.
bool sink_is_faster(const call_size& size, int32_t sink_threads, int32_t host_threads);

// In a forked child: whoever was measuring is not here.
void forget_measuring();

}  // namespace tev::offload
