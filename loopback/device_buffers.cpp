// SPDX-License-Identifier: BSD-3-Clause
// Mapping what the host shares. The memory must be sealed against shrinking: nobody can take pages away from under a
// run function.
#include "loopback/device_buffers.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace vro {
namespace {

// Returns the address, or nullptr with the reason in *failure.
void* map_shared(int descriptor, uint64_t bytes, std::string* failure) {
  struct stat status;
  const int seals = descriptor < 0 ? -1 : fcntl(descriptor, F_GET_SEALS);
  if (descriptor < 0) {
    *failure = "no descriptor arrived (too many open files?)";
  } else if (seals < 0 || !(seals & F_SEAL_SHRINK)) {
    *failure = "it is no memory sealed against shrinking";
  } else if (fstat(descriptor, &status) != 0 || static_cast<uint64_t>(status.st_size) < bytes) {
    *failure = "it is smaller than the host says";
  } else {
    void* address = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (address != MAP_FAILED) return address;
    *failure = strerrordesc_np(errno);
  }
  return nullptr;
}

}  // namespace

const char* attach_buffer(buffer_table* table, uint64_t handle, uint64_t bytes, int descriptor) {
  const auto [entry, added] = table->try_emplace(handle, device_buffer{nullptr, bytes, {}});
  if (!added) return "the buffer exists";
  entry->second.address = map_shared(descriptor, bytes, &entry->second.failure);
  return nullptr;
}

const char* detach_buffer(buffer_table* table, uint64_t handle) {
  const auto entry = table->find(handle);
  if (entry == table->end()) return "the buffer does not exist";
  if (entry->second.address) munmap(entry->second.address, entry->second.bytes);
  table->erase(entry);
  return nullptr;
}

void detach_all(buffer_table* table) {
  while (!table->empty()) detach_buffer(table, table->begin()->first);
}

}  // namespace vro
