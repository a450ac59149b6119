// SPDX-License-Identifier: BSD-3-Clause
// Which calls go to the process's sink, and how one gets there.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "offload/handle.h"
#include "offload/rates.h"
#include "offload/shared_copy.h"

namespace tev::offload {

// By sizes alone: equal calls take equal ways.
bool is_sent(const call_size& size);

// A call for the sink. The last operand is the result.
struct sent_call {
  std::vector<stored_matrix> operands;
  bool reads_result;
  double flops;
  // With the operands where the sink sees them. False: there was no memory, or the sink has ended.
  std::function<bool(tev_offload& sink, const std::vector<stored_matrix>& placed)> compute;
};

// False: it did not run, and the operands are as they were.
bool run_in_sink(const sent_call& call);

}  // namespace tev::offload
