// SPDX-License-Identifier: BSD-3-Clause
// The measured side: one library, one process. It says "ready", or why it is not, and answers on its standard output
// until its standard input is closed:
//
//   case LETTERS m n k ld   "ok" when the result of one call looks right
//   run                     seconds per call
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace tev::contest {

// library PATH OPERATION PRECISION [threaded]: with "threaded" the clock's time, otherwise the thread's.
// peak TIER PRECISION: multiply-adds in registers; every case is "ok", a run is seconds per floating-point operation.
int serve(const std::vector<std::string>& arguments);

// Thread 0 is the calling one.
void bind(pid_t thread, int processor);

}  // namespace tev::contest
