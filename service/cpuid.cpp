// SPDX-License-Identifier: BSD-3-Clause
// The processor that the process runs on.
#include "service/cpuid.h"

#include <cpuid.h>
#include <x86intrin.h>

#include "service/affinity.h"

namespace tev::service {

namespace {

void read_cpuid(uint32_t leaf, uint32_t subleaf, uint32_t registers[4]) {
  __cpuid_count(leaf, subleaf, registers[0], registers[1], registers[2], registers[3]);
}

// XGETBV as assembly: the intrinsic would need a compiler flag that this file must not have.
uint64_t read_xcr0() {
  uint32_t low, high;
  __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return uint64_t{high} << 32 | low;
}

uint64_t read_time_stamp() { return __rdtsc(); }

}  // namespace

constinit processor_source processor = {
    read_cpuid,      read_xcr0,       read_time_stamp,           team_processors,
    set_affinity,    "/proc/cpuinfo", "/sys/devices/system/cpu", "/proc/self/cgroup",
    "/sys/fs/cgroup"};

}  // namespace tev::service
