// SPDX-License-Identifier: BSD-3-Clause
// The sink's entry: no arguments, no main loop. The offload runtime calls exported functions by name until the host
// ends the process.
#include <omp.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

#include "vro/device.h"

// The OpenMP runtime's own brackets around a program; the source location may be null.
extern "C" void __kmpc_begin(void* location, int flags);
extern "C" void __kmpc_end(void* location);

namespace {

// The OpenMP runtime notes its presence under a shared-memory name, by which a second runtime in the process would
// notice the first. A killed process would leave the name behind, so it goes as soon as it is made.
void remove_openmp_name() {
  (void)omp_get_max_threads();  // the runtime starts
  char name[64];
  std::snprintf(name, sizeof(name), "/__KMP_REGISTERED_LIB_%d_%u", getpid(), getuid());
  shm_unlink(name);
}

}  // namespace

int main() {
  __kmpc_begin(nullptr, 0);
  remove_openmp_name();
  VROPipelineStartExecutingRunFunctions();
  VROProcessWaitForShutdown();
  __kmpc_end(nullptr);
  return 0;
}
