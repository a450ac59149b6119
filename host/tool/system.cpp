// SPDX-License-Identifier: BSD-3-Clause
// tev-offload run lu, cholesky, qr, solve, lstsq, and their tables.
#include "host/tool/system.h"

#include <fmt/format.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "host/failure.h"
#include "host/parse.h"
#include "host/tool/output.h"
#include "host/tool/progress_line.h"
#include "host/tool/report.h"
#include "host/tool/timeline.h"

namespace tev::host::tool {
namespace {

using json = nlohmann::ordered_json;

double gflops(const system_call& c, const system_outcome& o) {
  return o.best() > 0 ? c.flop_count() / o.best() / 1e9 : 0;
}

double busy_share(const system_outcome& o) {
  double total = 0;
  for (const double seconds : o.seconds) total += seconds;
  return total > 0 ? o.busy_seconds / total : 0;
}

std::string text_of(const system_call& c, const system_outcome& o) {
  std::string text = fmt::format("{}{}  {} x {}", letter_of(c.type), name_of(c.what), c.m, c.n);
  if (c.solves()) text += fmt::format(", {} right-hand side{}", c.right_sides, c.right_sides == 1 ? "" : "s");
  text += o.used_sink()                            ? ", with a sink\n"
          : c.through_sink && o.sink_error.empty() ? ", in this process: too small for a sink\n"
                                                   : ", in this process\n";
  text += fmt::format("time   {}", seconds_text(o.best()));
  if (c.repeat > 1) text += " at best";
  if (c.solves()) text += fmt::format(" to factor, {} to solve", seconds_text(o.solve_seconds));
  text += fmt::format("\nspeed  {:.4g} GFLOP/s\n", gflops(c, o));
  if (o.used_sink()) text += fmt::format("busy   the sink for {:.1f} % of the time\n", 100 * busy_share(o));
  if (o.growth > 0) text += fmt::format("growth {:.3g}\n", o.growth);
  if (o.rcond >= 0) text += fmt::format("rcond  {:.3g}\n", o.rcond);
  for (const residual& r : o.residuals)
    text += fmt::format("check  {}: {} = {:.3g}, must be below {:g}\n",
                        r.value < kLargestResidual ? "passed" : "FAILED", r.of, r.value, kLargestResidual);
  for (const std::string* file : {&c.out, &c.factors})
    if (!file->empty() && o.info == 0 && o.passed()) text += fmt::format("saved  {}\n", *file);
  if (!c.trace.empty()) text += fmt::format("trace  {}, for ui.perfetto.dev\n", c.trace);
  return text;
}

json json_of(const system_call& c, const system_outcome& o) {
  json residuals = json::object();
  const time_shares shares = shares_of(o.spans);
  for (const residual& r : o.residuals) residuals[r.of] = r.value;
  return {{"operation", name_of(c.what)},
          {"precision", std::string(1, letter_of(c.type))},
          {"where", o.used_sink() ? "sink" : "here"},
          {"m", c.m},
          {"n", c.n},
          {"right_sides", c.solves() ? json(c.right_sides) : json()},
          {"repeat", c.repeat},
          {"seconds_min", o.best()},
          {"seconds_solve", c.solves() ? json(o.solve_seconds) : json()},
          {"gflops", gflops(c, o)},
          {"busy_share", busy_share(o)},
          {"panel_share", shares.panels > 0 ? json(shares.panels) : json()},
          {"update_share", shares.panels > 0 ? json(shares.updates) : json()},
          {"info", o.info},
          {"growth", o.growth > 0 ? json(o.growth) : json()},
          {"rcond", o.rcond >= 0 ? json(o.rcond) : json()},
          {"residuals", residuals},
          {"passed", c.check && o.info == 0 ? json(o.passed()) : json()}};
}

// Nothing is known of the steps where a small matrix is not divided.
std::string table_row(const system_call& c, const system_outcome& o) {
  const time_shares shares = shares_of(o.spans);
  const auto percent = [](double share) { return share > 0 ? fmt::format("{:.1f}", 100 * share) : "-"; };
  return fmt::format("{:>6}  {:>11.4g}  {:>10.4g}  {:>8}  {:>8}  {:>8}\n", c.n, o.best(), gflops(c, o),
                     percent(shares.panels), percent(shares.updates), percent(busy_share(o)));
}

sink_settings settings_for(const command_line& line) {
  if (line.call.where == "here" && line.sink.threads > 0)
    throw bad_input("--threads: are the sink's, and there is none; --host-threads are this process's");
  if (!line.sink.pin.empty()) throw bad_input("--pin: has no meaning for whole factorizations");
  return resolve(line.sink);
}

void warn(const system_call& c, const system_outcome& o) {
  const auto say = [](const std::string& text) { std::fputs(("tev-offload: " + text + "\n").c_str(), stderr); };
  if (!o.sink_error.empty()) say(fmt::format("{}; started again in this process", o.sink_error));
  if (o.info == 0 && is_singular_to_precision(c, o))
    say(fmt::format("warning: the matrix is singular to working precision, rcond {:.3g}", o.rcond));
}

void reject(const system_call& c, const system_outcome& o) {
  if (o.info > 0 && c.what == task::cholesky)
    throw failed(fmt::format("the leading minor of order {} is not positive definite", o.info));
  if (o.info > 0 && c.what == task::lstsq)
    throw failed(fmt::format("column {} of the matrix depends on those before it", o.info));
  if (o.info > 0) throw failed(fmt::format("the matrix is singular: pivot {} is zero", o.info));
  if (!o.passed()) throw failed("the check failed" + (c.out.empty() ? "" : "; " + c.out + " was not written"));
}

}  // namespace

int run_system(const command_line& line) {
  const system_call c = resolve_system(line.call);
  progress_line shown;
  const system_outcome o = host::run_system(c, settings_for(line), [&](const std::string& text) { shown.show(text); });
  shown.clear();
  if (!c.trace.empty()) write_timeline(c.trace, o);
  put(line.json ? json_of(c, o).dump(2) + "\n" : text_of(c, o));
  warn(c, o);
  reject(c, o);
  return 0;
}

speed_table bench_systems(const command_line& line) {
  call_request request = line.call;
  request.records = true;
  const sink_settings settings = settings_for(line);
  progress_line shown;
  speed_table table;
  json rows = json::array();
  if (!line.json)
    put(fmt::format("{}, best of {}\n  size      seconds     GFLOP/s   panel %  update %    busy %\n",
                    request.operation, request.repeat));
  for (const int64_t size : parse_sizes("--sizes", line.sizes)) {
    request.n = size;
    const system_call c = resolve_system(request);
    const system_outcome o = host::run_system(
        c, settings, [&](const std::string& text) { shown.show(fmt::format("size {}: {}", size, text)); });
    shown.clear();
    warn(c, o);
    table.name = fmt::format("{}{}", letter_of(c.type), name_of(c.what));
    table.source = c.through_sink ? "sink" : "in process";
    table.rows.push_back({size, o.best(), gflops(c, o), busy_share(o)});
    if (line.json)
      rows.push_back(json_of(c, o));
    else
      put(table_row(c, o));
  }
  if (line.json) put(json({{"rows", rows}}).dump(2) + "\n");
  return table;
}

}  // namespace tev::host::tool
