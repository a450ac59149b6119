// SPDX-License-Identifier: BSD-3-Clause
// tev-offload bench: square problems, a row for each size as soon as it is known; pictures of them.
#include <fmt/format.h>

#include <cstdlib>
#include <sstream>

#include "host/failure.h"
#include "host/offload.h"
#include "host/parse.h"
#include "host/replacement_file.h"
#include "host/tool/info.h"
#include "host/tool/options.h"
#include "host/tool/output.h"
#include "host/tool/progress_line.h"
#include "host/tool/report.h"
#include "host/tool/speeds.h"
#include "host/tool/system.h"

namespace tev::host::tool {
namespace {

std::vector<call> calls_of(const command_line& line) {
  call_request request = line.call;
  const operation op = parse_operation(request.operation).op;
  std::vector<call> calls;
  for (const int64_t size : parse_sizes("--sizes", line.sizes)) {
    request.m = request.n = size;
    if (op == operation::syrk) request.m.reset();
    if (op == operation::gemm || op == operation::syrk) request.k = size;
    calls.push_back(host::resolve(request));
  }
  return calls;
}

speed_table bench_calls(const command_line& line) {
  const std::vector<call> calls = calls_of(line);
  speed_table table = {.name = letter_of(calls.front().type) + called(calls.front()), .unit = unit(calls.front())};
  progress_line shown;
  sink_client sink(resolve(line.sink));
  if (!line.json) put(bench_heading(calls.front()));
  std::vector<bench_row> rows;
  for (const call& c : calls) {
    const outcome o = run_call(sink, c, [&](const std::string& text) {
      shown.show(fmt::format("size {} ({} of {}): {}", c.m, rows.size() + 1, calls.size(), text));
    });
    rows.push_back({c.m, speed(c, o), o});
    table.rows.push_back({c.m, o.best(), speed(c, o), o.busy_share()});
    shown.clear();
    if (!line.json) put(bench_text(rows.back()));
  }
  if (line.json) put(bench_json(calls.front(), rows));
  sink.shut_down();
  return table;
}

// A line for each operation in each precision.
std::vector<command_line> one_by_one(const command_line& line) {
  std::vector<command_line> lines;
  for (const std::string& operation : split(line.call.operation, ','))
    for (const std::string& precision : split(line.call.precision, ',')) {
      lines.push_back(line);
      lines.back().call.operation = operation;
      lines.back().call.precision = precision;
      if (!task_named(operation)) calls_of(lines.back());  // refused before anything is measured
    }
  if (lines.size() > 1 && (line.json || !line.plot.empty()))
    throw bad_input("--json and --plot: show one operation in one precision; --report shows several");
  return lines;
}

// "48 KiB, 1024 KiB"
std::string caches_text(const std::string& bytes) {
  std::string text;
  std::stringstream stream(bytes);
  for (int64_t level; stream >> level;) text += fmt::format("{}{} KiB", text.empty() ? "" : ", ", level / 1024);
  return text;
}

conditions conditions_of(const facts& f) {
  return {fact(f.report, "tier"), std::atoi(fact(f.report, "threads").c_str()), caches_text(fact(f.report, "caches"))};
}

void draw(const command_line& line, std::vector<speed_table> tables) {
  facts f = ask(line.sink);
  const conditions on = conditions_of(f);
  progress_line shown;
  for (speed_table& table : tables) {
    compare(table, on, line.call.repeat, [&](const std::string& text) { shown.show(text); });
    shown.clear();
    if (!line.json) put(comparison_text(table, on));
  }
  if (!line.plot.empty()) write_file(line.plot, plot(tables.front(), on, line.call.repeat));
  if (line.report.empty()) return;
  f.report.insert(f.report.begin(), {"processor", f.processor});
  f.report.emplace_back("repetitions", std::to_string(line.call.repeat));
  write_file(line.report, page(tables, on, line.call.repeat, f.report));
}

}  // namespace

int run_bench(const command_line& line) {
  for (const std::string& path : {line.plot, line.report})
    if (!path.empty()) replacement_target(path);  // refused before anything is measured
  std::vector<speed_table> tables;
  for (const command_line& one : one_by_one(line))
    tables.push_back(task_named(one.call.operation) ? bench_systems(one) : bench_calls(one));
  if (!line.plot.empty() || !line.report.empty()) draw(line, tables);
  return 0;
}

}  // namespace tev::host::tool
