// SPDX-License-Identifier: BSD-3-Clause
// What a killed sink may leave behind: the OpenMP runtime notes its presence in a process under the shared-memory name
// "__KMP_REGISTERED_LIB_<process>_<user>", which only the process itself removes.
#include <dirent.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <memory>

#include "loopback/host_internal.h"

namespace vro {
namespace {

bool exists(pid_t process) { return kill(process, 0) == 0 || errno != ESRCH; }

// The process whose name of this user's this is, else 0.
pid_t process_of(const char* name) {
  int process = 0, length = 0;
  unsigned user = 0;
  if (std::sscanf(name, "__KMP_REGISTERED_LIB_%d_%u%n", &process, &user, &length) != 2) return 0;
  return process > 0 && user == getuid() && !name[length] ? process : 0;
}

}  // namespace

void remove_leftovers() {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/dev/shm"), closedir);
  while (const dirent* entry = folder ? readdir(folder.get()) : nullptr)
    if (const pid_t process = process_of(entry->d_name); process && !exists(process)) {
      char path[sizeof(entry->d_name) + 1];
      std::snprintf(path, sizeof(path), "/%s", entry->d_name);
      shm_unlink(path);
    }
}

}  // namespace vro
