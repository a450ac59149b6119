// SPDX-License-Identifier: BSD-3-Clause
// Charts for people, as SVG: lines over an axis of sizes, and bars of several parts. A chart is one <svg> element with
// its style inside, for a file of its own or within an HTML page, light or dark as the reader's system is.
#pragma once

#include <string>
#include <vector>

namespace tev::host {

struct chart_point {
  double x, y;  // y not finite: the line has a gap there
};

struct chart_line {
  std::string name;  // in the legend
  std::vector<chart_point> points;
};

// Every text is one line, and may be empty.
struct line_chart {
  std::string title, subtitle;
  std::string x_title, y_title;
  bool x_logarithmic = false;     // every x is above 0 then
  double whole = 0;               // the y that is 100 % on an axis at the right; 0: no such axis
  std::string share_title;        // of that axis
  std::vector<chart_line> lines;  // the first is drawn strongest
};

struct chart_bar {
  std::string name;
  std::vector<double> parts;  // lengths, not negative, in the order of `parts` below
  std::string note;           // at the bar's end
};

struct bar_chart {
  std::string title, subtitle;
  std::string value_title;
  std::vector<std::string> parts;  // their names in the legend; no legend for a single one
  std::vector<chart_bar> bars;     // from above
};

std::string svg(const line_chart& chart);
std::string svg(const bar_chart& chart);

// For a place between tags or in an attribute. What XML cannot say at all becomes a question mark.
std::string xml_text(const std::string& text);

}  // namespace tev::host
