// SPDX-License-Identifier: BSD-3-Clause
// The calling thread and its record: taken at its first request, given back when it ends. A thread reaches its record
// through a thread-local pointer; the POSIX key beside it tells when the thread ends.
#pragma once

#include "service/memory_registry.h"
#include "service/thread_key.h"

// Destructor of the key: the thread of the record ends.
extern "C" void mm_cleanup_thread_cbk(void* record);

namespace tev::service {

// What the calling thread knows of itself.
struct mm_thread {
  mm_thread_record* record;  // null before the first request, and at the thread's end
  bool ended;                // its record is gone: destructors of other keys get blocks that no one keeps
};

extern constinit thread_local mm_thread this_thread;
extern thread_key mm_key;

// Makes the calling thread's record, if it can have one.
mm_thread_record* new_thread_record();

// Null when memory or keys are short, or the thread ends.
inline mm_thread_record* thread_record() {
  return this_thread.record != nullptr ? this_thread.record : new_thread_record();
}

// Adds to what the calling thread holds.
void count_memory(int64_t bytes, int32_t blocks);

// Gives the unused buffers of a record that the caller has entered back to the system, and leaves the record.
void release_unused(mm_thread_record& record);

// In a forked child: the records of all threads but the calling one are without a thread. Every lock is held.
void forget_other_threads();

}  // namespace tev::service
