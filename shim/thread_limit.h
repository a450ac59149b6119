// SPDX-License-Identifier: BSD-3-Clause
// How many threads a call may have, beyond what the library decides by itself.
#pragma once

#include <cstdint>

namespace tev::shim {

// As long as it lives the calling thread's own count in the library is at most: 1 in a parallel region of another
// OpenMP runtime, which the library's own runtime does not see; the processors that the thread may use; the threads
// that can be started, for a runtime that cannot start one ends the process; and 1 where a team does not pay.
class thread_limit {
 public:
  explicit thread_limit(bool team_pays);
  ~thread_limit();
  thread_limit(const thread_limit&) = delete;
  thread_limit& operator=(const thread_limit&) = delete;

 private:
  bool limited_ = false;
  int32_t before_ = 0;
};

// For the first call of a process: where an MPI launcher has started several ranks on this machine and nobody has
// chosen a count, a call has at most this rank's share. The library by itself would take one thread.
void share_with_other_ranks();

// Whether the program itself says how many threads it wants: then nothing is shared.
void program_has_chosen(bool chosen);

// Threads of a call that this thread makes now.
int32_t current_threads();

// Processors of this process, and threads of a large call that has them for itself.
int32_t processors_of_rank();
int32_t threads_of_rank();

}  // namespace tev::shim
