// SPDX-License-Identifier: BSD-3-Clause
// What the libraries over one libtev.so.0 have in common, however many of them a program has loaded: it lies in memory
// that libtev hands to all of them. All zeros at first.
#pragma once

#include <limits.h>
#include <pthread.h>

#include <cstdint>

namespace tev::shim {

// Calls alike.
struct trace_row {
  char routine[16];
  int32_t size;  // class
  bool in_sink;
  int64_t calls;
  double flops, seconds;
};
inline constexpr int kMostTraceRows = 2048;  // more than there are kinds of calls; the rest is not counted

struct process_state {
  // Under the lock. File and whether there is one do not change any more once a library has been opened.
  pthread_mutex_t trace_lock;
  int32_t traced_libraries;  // opened and not closed
  bool is_traced, is_trace_decided;
  char trace_file[PATH_MAX];  // "": standard error
  int32_t trace_rows;
  trace_row trace[kMostTraceRows];

  // Atomic.
  bool is_set_up;          // somebody has told what is wrong with the settings, and has set the sink's
  int32_t share_of_rank;   // processors; 0: all
  bool chosen_by_program;  // the count of threads
};

// Of a library that has been opened.
process_state& state_of_process();

}  // namespace tev::shim
