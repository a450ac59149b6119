// SPDX-License-Identifier: BSD-3-Clause
// What libtevblas writes about the calls of a program (TEVBLAS_TRACE), added up.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "host/chart.h"

namespace tev::host {

// The calls of one routine in one class of sizes that ran in the same place.
struct traced_calls {
  std::string routine, size_class, where;  // where: "here" or "sink"
  int64_t calls;
  double flops, seconds;
};

struct trace_summary {
  std::vector<traced_calls> rows;  // the longest time first
  int64_t calls, processes;
  double seconds;
  int64_t strange_lines;  // that are no calls, nor comments
};

trace_summary summarise_trace(std::istream& lines);

// The routines and classes that took longest, in both places.
bar_chart chart_of(const trace_summary& trace, const std::string& subtitle);

}  // namespace tev::host
