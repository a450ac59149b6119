// SPDX-License-Identifier: BSD-3-Clause
// The sink's entry: no arguments, no main loop. The offload runtime calls exported functions by name until the host
// ends the process.
#include <csignal>
#include <cstdlib>

#include "sink/openmp_start.h"
#include "vro/device.h"

// The OpenMP runtime's own brackets around a program; the source location may be null.
extern "C" void __kmpc_begin(void* location, int flags);
extern "C" void __kmpc_end(void* location);

int main() {
  std::signal(SIGTTOU, SIG_IGN);  // in the background, a terminal may stop whoever writes a line: its host would wait
  clean_openmp_environment();
  std::at_quick_exit(remove_openmp_name);  // so the offload runtime ends a process whose host has died
  __kmpc_begin(nullptr, 0);
  VROPipelineStartExecutingRunFunctions();
  VROProcessWaitForShutdown();
  __kmpc_end(nullptr);
  return 0;
}
