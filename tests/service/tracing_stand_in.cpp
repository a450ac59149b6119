// SPDX-License-Identifier: BSD-3-Clause
// Stands in for the tracing library: shows what it is told, and takes a lock while it is being loaded. With
// TRACEKIT_SLEEPS it is silent, and every thread that is about to take a lock sleeps for a moment.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" __attribute__((visibility("default"))) void __trk_suppress_mark_range(int mode, int mask, void* address,
                                                                                 long length) {
  if (getenv("TRACEKIT_SLEEPS")) {
    usleep(1000);
    return;
  }
  printf("mark %d %d %s %ld\n", mode, mask, address ? "address" : "null", length);
}

namespace {

__attribute__((constructor)) void take_a_lock() {
  const auto lock = reinterpret_cast<void (*)(int32_t*)>(dlsym(RTLD_DEFAULT, "tev_serv_lock"));
  int32_t word = 0;
  lock(&word);
  printf("loading\n");
}

}  // namespace
