// SPDX-License-Identifier: BSD-3-Clause
// Tables and pictures of speeds, and the page that holds them.
#include "host/tool/speeds.h"

#include <fmt/format.h>

#include <cmath>

#include "host/chart.h"

namespace tev::host::tool {
namespace {

constexpr char kPageHead[] = R"(<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8"><meta name="viewport" content="width=device-width">
<title>Speeds of tev-offload</title><style>
:root { color-scheme: light dark; }
body { font: 15px/1.5 system-ui, sans-serif; max-width: 760px; margin: 2em auto; padding: 0 1em; }
svg { max-width: 100%; height: auto; }
table { border-collapse: collapse; margin: 1em 0; font-variant-numeric: tabular-nums; }
td, th { padding: .15em .8em; text-align: right; border-bottom: 1px solid #8884; }
table.facts td:first-child, table.facts td { text-align: left; }
</style></head><body>
<h1>Speeds of tev-offload</h1>
)";

std::string number(double value) { return std::isfinite(value) ? fmt::format("{:.4g}", value) : "-"; }

std::string cell(const char* tag, const std::string& text) {
  return fmt::format("<{0}>{1}</{0}>", tag, xml_text(text));
}

std::string title(const speed_table& table, const conditions& on) {
  return fmt::format("{}, {} thread{}", table.name, on.threads, on.threads == 1 ? "" : "s");
}

std::string html_table(const speed_table& table) {
  std::string text = "<table><tr><th>size</th><th>seconds</th>" + cell("th", table.source + ", " + table.unit);
  for (const library_speeds& l : table.libraries) text += cell("th", l.name);
  text += "<th>busy %</th></tr>\n";
  for (size_t i = 0; i < table.rows.size(); ++i) {
    const speed_row& row = table.rows[i];
    text += "<tr>" + cell("td", fmt::format("{}", row.size)) + cell("td", number(row.seconds)) +
            cell("td", number(row.speed));
    for (const library_speeds& l : table.libraries) text += cell("td", number(l.speeds[i]));
    text += cell("td", fmt::format("{:.1f}", 100 * row.busy_share)) + "</tr>\n";
  }
  return text + "</table>\n";
}

}  // namespace

std::string comparison_text(const speed_table& table, const conditions& on) {
  if (table.libraries.empty()) return "";
  std::string text =
      fmt::format("{} beside it, {}, by libraries in processes of their own\n  size", title(table, on), table.unit);
  for (const library_speeds& l : table.libraries) text += fmt::format("  {:>18}", l.name);
  for (size_t i = 0; i < table.rows.size(); ++i) {
    text += fmt::format("\n{:>6}", table.rows[i].size);
    for (const library_speeds& l : table.libraries) text += fmt::format("  {:>18}", number(l.speeds[i]));
  }
  return text + fmt::format("\n  peak {} GFLOP/s\n", number(table.peak));
}

std::string plot(const speed_table& table, const conditions& on, int repeat) {
  line_chart chart = {.title = title(table, on),
                      .subtitle = fmt::format("best of {}; kernels {}; caches {}", repeat, on.tier, on.caches),
                      .x_title = "order",
                      .y_title = table.unit,
                      .x_logarithmic = true,
                      .whole = table.peak,
                      .share_title = "percent of peak",
                      .lines = {{table.source, {}}}};
  for (const speed_row& row : table.rows) chart.lines[0].points.push_back({static_cast<double>(row.size), row.speed});
  for (const library_speeds& l : table.libraries) {
    chart.lines.push_back({l.name, {}});
    for (size_t i = 0; i < l.speeds.size(); ++i)
      chart.lines.back().points.push_back({static_cast<double>(table.rows[i].size), l.speeds[i]});
  }
  return svg(chart);
}

std::string page(const std::vector<speed_table>& tables, const conditions& on, int repeat,
                 const std::vector<std::pair<std::string, std::string>>& facts) {
  std::string text = kPageHead;
  for (const speed_table& table : tables)
    text += "<h2>" + xml_text(title(table, on)) + "</h2>\n" + plot(table, on, repeat) + html_table(table);
  text += "<h2>Measured on</h2>\n<table class=\"facts\">\n";
  for (const auto& [key, value] : facts) text += "<tr>" + cell("td", key) + cell("td", value) + "</tr>\n";
  return text + "</table></body></html>\n";
}

}  // namespace tev::host::tool
