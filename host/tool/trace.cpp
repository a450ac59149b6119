// SPDX-License-Identifier: BSD-3-Clause
// tev-offload trace: what TEVBLAS_TRACE wrote, as a table and a picture.
#include "host/trace.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "host/failure.h"
#include "host/replacement_file.h"
#include "host/tool/options.h"
#include "host/tool/output.h"

namespace tev::host::tool {
namespace {

trace_summary read_trace(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw bad_input(fmt::format("{}: {}", path, std::strerror(errno)));
  const trace_summary trace = summarise_trace(file);
  if (trace.calls == 0) throw bad_input(path + ": has no traced calls");
  return trace;
}

std::string totals(const trace_summary& trace) {
  return fmt::format("{} calls of {} process{}, {:.6f} seconds in BLAS", trace.calls, trace.processes,
                     trace.processes == 1 ? "" : "es", trace.seconds);
}

std::string table(const trace_summary& trace) {
  std::string text = fmt::format("{:<9} {:<10} {:<5} {:>10} {:>12} {:>12} {:>7} {:>9}\n", "routine", "class", "where",
                                 "calls", "flops", "seconds", "share", "GFLOP/s");
  for (const traced_calls& x : trace.rows)
    text += fmt::format("{:<9} {:<10} {:<5} {:>10} {:>12.4g} {:>12.6f} {:>5.1f} % {:>9.2f}\n", x.routine, x.size_class,
                        x.where, x.calls, x.flops, x.seconds, trace.seconds > 0 ? 100 * x.seconds / trace.seconds : 0,
                        x.seconds > 0 ? 1e-9 * x.flops / x.seconds : 0);
  text += totals(trace) + "\n";
  if (trace.strange_lines > 0) text += fmt::format("{} lines are not understood\n", trace.strange_lines);
  return text;
}

}  // namespace

int show_trace(const command_line& line) {
  const trace_summary trace = read_trace(line.trace.file);
  if (!line.trace.svg.empty()) write_file(line.trace.svg, svg(chart_of(trace, totals(trace))));
  put(table(trace));
  return 0;
}

}  // namespace tev::host::tool
