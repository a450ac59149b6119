// SPDX-License-Identifier: BSD-3-Clause
// A call from its operands to its result: matrices in memory that the sink shares, the request repeated and timed, the
// result judged and kept.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/call.h"
#include "host/check.h"
#include "host/sink_client.h"

namespace tev::host {

struct outcome {
  std::vector<double> seconds;  // of each repetition, ascending
  double busy_seconds;          // of the sink, all repetitions together
  std::optional<verdict> check;

  double best() const { return seconds.front(); }
  double median() const { return seconds[seconds.size() / 2]; }
  double busy_share() const;
};

// Memory that run_call() takes at its peak, the sink's and this program's own included.
double needed_bytes(const call& c);

// What is going on, in words; called often.
using progress = std::function<void(const std::string&)>;

// A request sent c.repeat times and timed; what it changed is restored in between.
outcome repeat_request(sink_client& sink, const call& c, const worker_call& request,
                       const std::vector<buffer_part>& parts, const std::function<void()>& restore,
                       const progress& tell);

// Throws when the sink fails. A result that does not pass the check is not kept; the caller finds the verdict.
outcome run_call(sink_client& sink, const call& c, const progress& on_progress);

}  // namespace tev::host
