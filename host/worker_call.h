// SPDX-License-Identifier: BSD-3-Clause
// What an invoke request says of its worker, and where its operands lie.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vro/host.h"

namespace tev::host {

struct worker_call {
  std::string worker;
  uint32_t parameter;
  std::vector<unsigned char> record;
};

// A buffer from `offset` bytes on.
struct buffer_part {
  vro_buffer* buffer;
  int64_t offset = 0;
};

}  // namespace tev::host
