// SPDX-License-Identifier: BSD-3-Clause
// Which calls go to the process's sink, and how one gets there.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "offload/connection.h"
#include "offload/rates.h"
#include "offload/shared_copy.h"

namespace tev::offload {

// By sizes alone: equal calls take equal ways.
bool is_sent(const call_size& size);

// Where the sink finds a call's operands.
struct placed_operands {
  std::vector<const void*> addresses;
  std::vector<int64_t> lds;
};

// A call for the sink. The last operand is the result.
struct sent_call {
  std::vector<stored_matrix> operands;
  bool reads_result;
  double flops;
  std::function<step_request(const placed_operands& placed)> request;
};

// False: it did not run, and the operands are as they were.
bool run_in_sink(const sent_call& call);

}  // namespace tev::offload
