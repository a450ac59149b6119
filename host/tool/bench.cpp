// SPDX-License-Identifier: BSD-3-Clause
// tev-offload bench: square problems, a row for each size as soon as it is known.
#include <fmt/format.h>

#include "host/failure.h"
#include "host/offload.h"
#include "host/parse.h"
#include "host/tool/options.h"
#include "host/tool/output.h"
#include "host/tool/progress_line.h"
#include "host/tool/report.h"
#include "host/tool/system.h"

namespace tev::host::tool {

int run_bench(const command_line& line) {
  if (task_named(line.call.operation)) return bench_systems(line);
  call_request request = line.call;
  const operation op = parse_operation(request.operation).op;
  std::vector<call> calls;
  for (const int64_t size : parse_sizes("--sizes", line.sizes)) {
    request.m = request.n = size;
    if (op == operation::syrk) request.m.reset();
    if (op == operation::gemm || op == operation::syrk) request.k = size;
    calls.push_back(host::resolve(request));
  }
  progress_line shown;
  sink_client sink(resolve(line.sink));
  if (!line.json) put(bench_heading(calls.front()));
  std::vector<bench_row> rows;
  for (const call& c : calls) {
    const outcome o = run_call(sink, c, [&](const std::string& text) {
      shown.show(fmt::format("size {} ({} of {}): {}", c.m, rows.size() + 1, calls.size(), text));
    });
    rows.push_back({c.m, speed(c, o), o});
    shown.clear();
    if (!line.json) put(bench_text(rows.back()));
  }
  if (line.json) put(bench_json(calls.front(), rows));
  sink.shut_down();
  return 0;
}

}  // namespace tev::host::tool
