// SPDX-License-Identifier: BSD-3-Clause
// How many processors, cores and packages the machine has.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>

namespace tev::service {

struct topology {
  int32_t logical;   // hardware threads
  int32_t physical;  // cores
  int32_t packages;  // never 0
};

// Pins the calling thread to each processor in turn and restores its affinity.
topology probe_topology();

// Cores of the machine that the process has time on: those of the processors that it may use, and no more than the
// quota of its control groups pays for.
int32_t usable_cores(const topology& machine);

// An APIC identifier, from the top bit down:   package | core | thread
struct apic_layout {
  uint32_t core_shift;     // bits of the thread
  uint32_t package_shift;  // bits of core and thread
};

// The layout that room for these counts makes; a quotient below 1 counts as one thread per core.
apic_layout layout_from_counts(uint32_t logical_per_package, uint32_t cores_per_package);

// What the identifiers of all processors add up to. `cores` and `packages` are room of the same length for the work.
topology count_identifiers(std::span<const uint32_t> identifiers, const apic_layout& layout, std::span<uint32_t> cores,
                           std::span<uint32_t> packages);

// What the kernel's description of the processors says; what it does not say is taken from `fallback`.
topology count_described(FILE* cpuinfo, const topology& fallback);

}  // namespace tev::service
