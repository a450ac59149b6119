// SPDX-License-Identifier: BSD-3-Clause
// How much processor time the control groups of the process grant it.
#pragma once

#include <cstdint>

namespace tev::service {

// In processors, rounded up: the least of its own group and those above. INT32_MAX when no group has a limit.
int32_t cpu_quota();

}  // namespace tev::service
