// SPDX-License-Identifier: BSD-3-Clause
// Which processors the process may use, as the system tells: behind the pointers of service/cpuid.h for tests.
#pragma once

#include <cstddef>

#include "service/processor_set.h"

namespace tev::service {

// Those that the threads of a team run on. Not the calling thread's affinity alone: OpenMP may have bound that thread
// to one place of many.
processor_set team_processors();

// Moves the calling thread; `bytes` is the length of the kernel's own masks. False when the system refuses.
bool set_affinity(const processor_set& processors, size_t bytes);

// The calling thread's affinity. Returns the length of the kernel's own masks in bytes, 0 when the system refuses.
size_t get_affinity(processor_set* processors);

}  // namespace tev::service
