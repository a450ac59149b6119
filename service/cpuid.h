// SPDX-License-Identifier: BSD-3-Clause
// What the service layer asks the processor and the kernel about the processor, behind pointers, so that a test can be
// any processor. The product never changes them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tev::service {

struct processor_set;

// One per process. A test replaces fields before it starts threads, and puts them back.
struct processor_source {
  void (*cpuid)(uint32_t leaf, uint32_t subleaf, uint32_t registers[4]);  // writes EAX, EBX, ECX, EDX
  uint64_t (*xcr0)();                                                     // asked only when CPUID reports OSXSAVE
  uint64_t (*time_stamp)();                                               // ticks, not serialised
  processor_set (*team_processors)();                                     // service/affinity.h
  bool (*set_affinity)(const processor_set& processors, size_t bytes);    // likewise
  const char* cpuinfo;                                                    // path of the kernel's description
  const char* cpu_folders;                                                // path of its folders, one per processor
  const char* own_groups;                                                 // path of the process's control groups
  const char* groups;                                                     // path where their hierarchies are mounted
};

extern processor_source processor;

}  // namespace tev::service
