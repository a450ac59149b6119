// SPDX-License-Identifier: BSD-3-Clause
// The buffers that the host shares with this sink, by handle.
#pragma once
#include <cstdint>
#include <string>
#include <unordered_map>

namespace vro {

// One buffer of the host, from buffer_create to buffer_destroy.
struct device_buffer {
  void* address;        // nullptr when it could not be mapped
  uint64_t bytes;       // its size
  std::string failure;  // why it could not be mapped, told by the runs that use it
};

using buffer_table = std::unordered_map<uint64_t, device_buffer>;

// Maps the memory behind `descriptor` (-1: none came), which stays the caller's to close. Both return nullptr, or what
// is wrong with the handle.
const char* attach_buffer(buffer_table* table, uint64_t handle, uint64_t bytes, int descriptor);
const char* detach_buffer(buffer_table* table, uint64_t handle);

void detach_all(buffer_table* table);

}  // namespace vro
