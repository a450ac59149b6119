// SPDX-License-Identifier: BSD-3-Clause
#include "service/openmp_name.h"

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

#include "tev/front_end.h"

void tev_serv_remove_openmp_name(int32_t process) {
  char name[64];
  std::snprintf(name, sizeof name, "/__KMP_REGISTERED_LIB_%d_%u", process, getuid());
  shm_unlink(name);
}

void tev::service::keep_children_nameless() {
  pthread_atfork(nullptr, nullptr, [] { tev_serv_remove_openmp_name(getpid()); });
}
