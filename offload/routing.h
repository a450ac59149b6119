// SPDX-License-Identifier: BSD-3-Clause
// Which calls go to the process's sink, and how one gets there.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "offload/rates.h"
#include "offload/shared_copy.h"

namespace tev::offload {

// By sizes alone: equal calls take equal ways.
bool is_sent(const call_size& size);

// What a worker reads beside its buffers: its record and the request's parameter.
struct worker_arguments {
  std::vector<unsigned char> record;
  uint32_t parameter;
};

// A call for the sink. The last operand is the result.
struct sent_call {
  std::string worker;
  std::vector<stored_matrix> operands;
  bool reads_result;
  double flops;
  // For operands with these leading dimensions.
  std::function<worker_arguments(const std::vector<int64_t>& lds)> arguments;
};

// False: it did not run, and the operands are as they were.
bool run_in_sink(const sent_call& call);

}  // namespace tev::offload
