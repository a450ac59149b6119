// SPDX-License-Identifier: BSD-3-Clause
// What TEVBLAS_OFFLOAD and its companions say. What makes no sense is told on standard error, and counts as not set.
#pragma once

#include "tev/routed.h"

namespace tev::shim {

// Calls may go to a sink.
bool may_offload();

// Tells of what may_offload() took for never.
void check_settings();

// `folder`: of this library, with a / behind it, or ""; from there a sink is looked for that nobody has named.
tev_routing offload_settings(const char* folder);

}  // namespace tev::shim
