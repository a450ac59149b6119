// SPDX-License-Identifier: BSD-3-Clause
#include "host/trace.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <istream>
#include <map>
#include <set>
#include <sstream>
#include <tuple>

namespace tev::host {
namespace {

constexpr size_t kMostBars = 16;

// "dgemm transa=N m=10 ...": the routine, and the others by their names.
struct traced_line {
  std::string routine;
  std::map<std::string, std::string> values;

  explicit traced_line(const std::string& line) {
    std::istringstream words(line);
    words >> routine;
    for (std::string word; words >> word;)
      if (const size_t mark = word.find('='); mark != std::string::npos)
        values[word.substr(0, mark)] = word.substr(mark + 1);
  }
  bool is_complete() const {
    return values.contains("flops") && values.contains("class") && values.contains("where") &&
           values.contains("seconds") && values.contains("process");
  }
  double number(const char* name) const { return std::strtod(values.at(name).c_str(), nullptr); }
};

}  // namespace

trace_summary summarise_trace(std::istream& lines) {
  trace_summary all = {};
  std::map<std::tuple<std::string, std::string, std::string>, traced_calls> rows;
  std::set<std::string> processes;
  for (std::string text; std::getline(lines, text);) {
    if (text.empty() || text[0] == '#') continue;
    const traced_line line(text);
    if (!line.is_complete()) {
      ++all.strange_lines;
      continue;
    }
    const std::string &size = line.values.at("class"), &where = line.values.at("where");
    traced_calls& own =
        rows.try_emplace({line.routine, size, where}, traced_calls{line.routine, size, where, 0, 0, 0}).first->second;
    own.calls += 1;
    own.flops += line.number("flops");
    own.seconds += line.number("seconds");
    all.calls += 1;
    all.seconds += line.number("seconds");
    processes.insert(line.values.at("process"));
  }
  all.processes = static_cast<int64_t>(processes.size());
  for (const auto& [key, row] : rows) all.rows.push_back(row);
  std::stable_sort(all.rows.begin(), all.rows.end(),
                   [](const auto& x, const auto& y) { return x.seconds > y.seconds; });
  return all;
}

bar_chart chart_of(const trace_summary& trace, const std::string& subtitle) {
  bar_chart chart = {.title = "Time in BLAS by routine and size",
                     .subtitle = subtitle,
                     .value_title = "seconds",
                     .parts = {"in the process", "in the sink"},
                     .bars = {}};
  for (const traced_calls& row : trace.rows) {
    const std::string name = row.routine + " " + row.size_class;
    auto bar = std::find_if(chart.bars.begin(), chart.bars.end(), [&](const chart_bar& x) { return x.name == name; });
    if (bar == chart.bars.end()) bar = chart.bars.insert(bar, {name, {0, 0}, ""});
    bar->parts[row.where == "sink" ? 1 : 0] += row.seconds;
  }
  const auto seconds = [](const chart_bar& bar) { return bar.parts[0] + bar.parts[1]; };
  std::stable_sort(chart.bars.begin(), chart.bars.end(),
                   [&](const auto& x, const auto& y) { return seconds(x) > seconds(y); });
  if (chart.bars.size() > kMostBars) chart.bars.resize(kMostBars);
  for (chart_bar& bar : chart.bars)
    bar.note = fmt::format("{:.1f} %", trace.seconds > 0 ? 100 * seconds(bar) / trace.seconds : 0);
  return chart;
}

}  // namespace tev::host
