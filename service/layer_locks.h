// SPDX-License-Identifier: BSD-3-Clause
// The locks of the service layer, and what a fork makes of them: whatever the other threads were deciding, the child
// decides or finds decided.
//
// A start is decided while foreign code runs: the OpenMP runtime, the program's allocator, constructors of a library.
// It may take long, and it may wait for what the forking thread holds. So a fork waits for it for a while only, and the
// child begins a start again that was not at its end: a start does the same when it runs twice.
//
// A moment guards memory of this layer alone. A fork takes all of them, so the child gets what they guard in order.
//
// Threads take starts before moments, and each kind in the order of the table in layer_locks.cpp.
#pragma once

#include <cstdint>

namespace tev::service {

// Starts.
extern int32_t thread_settings_lock;  // the settings about threads, and the machine
extern int32_t memory_start_lock;     // settings, high-bandwidth library and back end of the memory manager
extern int32_t calibration_lock;      // the speed of the timer
extern int32_t catalog_lock;          // opening the message catalog: nobody waits for it
extern int32_t tracing_lock;          // loading the tracing library: nobody waits for it

// Moments. Those with names of their own, TEV_Detect_Cpu_Global_Lock for one, are declared beside what they guard.
extern int32_t ceiling_lock;       // the highest instruction set
extern int32_t verbose_lock;       // changes of the verbose flag
extern int32_t thread_key_lock;    // creation of the thread-specific keys
extern int32_t core_cleanup_lock;  // the cleanup registries
extern int32_t thread_cleanup_lock;

// Ends a start that brought the OpenMP runtime into the process. A fork that waited for it is not prepared by the
// handlers which the runtime has only now: its child cannot use the runtime if this thread is changing it at that
// moment.
void wait_for_forks();

}  // namespace tev::service
