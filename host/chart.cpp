// SPDX-License-Identifier: BSD-3-Clause
//
//   title                                 0,0 is the upper left corner, x grows to the right, y downwards
//   subtitle
//   -o- first  -#- second                 legend, as many rows as it needs
//   y |        .-o---o      | 100 %
//     |   .-o-'    .-#      |  50         plot: the frame that both axes share
//     |_o'____.-#-'_________|   0
//       100      1000    x
#include "host/chart.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace tev::host {
namespace {

constexpr double kWidth = 760, kPlotHeight = 300, kBarHeight = 20, kBarDistance = 30;
constexpr double kMargin = 16, kTextHeight = 20, kAxisWidth = 56;
constexpr double kLetterWidth = 8.2;  // about, of the 13 pixel letters below, in wide fonts

struct ink {
  const char *name, *light, *dark;
};
// Told apart with any colour vision, and on any printer by their markers.
constexpr ink kSeries[] = {{"s0", "#0b62c4", "#6cb2ff"}, {"s1", "#d55e00", "#ff9a4d"}, {"s2", "#00875a", "#4cd4a0"},
                           {"s3", "#a3479e", "#e08ae0"}, {"s4", "#8a6d00", "#e6c34a"}, {"s5", "#5c6670", "#aab4be"}};
constexpr ink kPaper = {"paper", "#ffffff", "#14181d"}, kLetters = {"letters", "#1f2328", "#e6eaef"},
              kFaint = {"faint", "#5c6670", "#aab4be"}, kGrid = {"grid", "#dde2e7", "#343b44"};

std::string style() {
  std::string light, dark;
  const auto add = [&](const char* property, const ink& i, const char* name) {
    light += fmt::format(".chart .{}{{{}:{}}}", name, property, i.light);
    dark += fmt::format(".chart .{}{{{}:{}}}", name, property, i.dark);
  };
  for (const ink& i : kSeries) {
    add("fill", i, i.name);
    add("stroke", i, i.name);
  }
  add("fill", kPaper, kPaper.name);
  add("fill", kLetters, kLetters.name);
  add("fill", kFaint, kFaint.name);
  add("stroke", kGrid, kGrid.name);
  return fmt::format(
      "<style>.chart text{{font:13px system-ui,sans-serif}}.chart .title{{font-size:16px;font-weight:600}}{}"
      ".chart path.bar,.chart rect.bar{{stroke:none}}.chart path.line{{fill:none;stroke-width:1.8}}.chart "
      "path.s0{{stroke-width:3}}"
      "@media(prefers-color-scheme:dark){{{}}}</style>\n",
      light, dark);
}

const char* series_name(size_t i) { return kSeries[i % std::size(kSeries)].name; }

double text_width(const std::string& text) { return kLetterWidth * static_cast<double>(text.size()); }

std::string number(double value) { return fmt::format("{:.10g}", std::abs(value) < 1e-12 ? 0.0 : value); }

// Round numbers from `first` to `last`, about `count` of them.
std::vector<double> even_ticks(double first, double last, int count) {
  const double rough = (last - first) / count, power = std::pow(10, std::floor(std::log10(rough)));
  double step = 10 * power;
  for (const double round : {5.0, 2.0, 1.0})
    if (round * power >= rough) step = round * power;
  std::vector<double> ticks;
  for (double i = std::ceil(first / step); i * step <= last * (1 + 1e-12); ++i) ticks.push_back(i * step);
  return ticks;
}

// 1, 2 and 5 times the powers of ten between them; finer where those would be fewer than two.
std::vector<double> logarithmic_ticks(double first, double last) {
  std::vector<double> ticks;
  for (double power = std::pow(10, std::floor(std::log10(first))); power <= last; power *= 10)
    for (const double round : {1.0, 2.0, 5.0})
      if (round * power >= first && round * power <= last) ticks.push_back(round * power);
  return ticks.size() < 2 ? even_ticks(first, last, 4) : ticks;
}

class drawing {
 public:
  void text(double x, double y, const std::string& text, const char* look, const char* anchor = "start") {
    if (text.empty()) return;
    body_ += fmt::format("<text x=\"{:.1f}\" y=\"{:.1f}\" class=\"{}\" text-anchor=\"{}\">{}</text>\n", x, y, look,
                         anchor, xml_text(text));
  }
  // Read from below.
  void upright_text(double x, double y, const std::string& text) {
    if (text.empty()) return;
    body_ += fmt::format(
        "<text class=\"faint\" text-anchor=\"middle\" transform=\"translate({:.1f} {:.1f}) rotate(-90)\">{}</text>\n",
        x, y, xml_text(text));
  }
  void rule(double x1, double y1, double x2, double y2) { path({{x1, y1}, {x2, y2}}, "grid"); }
  void path(const std::vector<chart_point>& points, const std::string& look) {
    std::string d;
    for (const chart_point& p : points) d += fmt::format("{}{:.1f} {:.1f}", d.empty() ? 'M' : 'L', p.x, p.y);
    body_ += fmt::format("<path class=\"{}\" d=\"{}\"/>\n", look, d);
  }
  void bar(double x, double y, double width, size_t series, const std::string& hint) {
    body_ += fmt::format(
        "<rect class=\"bar {}\" x=\"{:.1f}\" y=\"{:.1f}\" width=\"{:.1f}\" height=\"{}\"><title>{}</title></rect>\n",
        series_name(series), x, y, width, kBarHeight, xml_text(hint));
  }
  // A shape for each series; the hint appears under the pointer.
  void marker(double x, double y, size_t series, const std::string& hint) {
    constexpr const char* kShapes[] = {"M-4 0a4 4 0 1 0 8 0a4 4 0 1 0 -8 0",
                                       "M-3.5 -3.5h7v7h-7z",
                                       "M0 -4.5L4.5 4h-9z",
                                       "M0 -5L5 0L0 5L-5 0z",
                                       "M0 4.5L4.5 -4h-9z",
                                       "M-5 -1.5h10v3h-10z"};
    body_ +=
        fmt::format("<path class=\"bar {}\" transform=\"translate({:.1f} {:.1f})\" d=\"{}\"><title>{}</title></path>\n",
                    series_name(series), x, y, kShapes[series % std::size(kShapes)], xml_text(hint));
  }
  std::string svg(double height, const std::string& title) const {
    return fmt::format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" class=\"chart\" role=\"img\" aria-label=\"{2}\" "
        "viewBox=\"0 0 {0} {1:.0f}\" width=\"{0}\" height=\"{1:.0f}\">\n{3}"
        "<rect class=\"paper\" width=\"100%\" height=\"100%\"/>\n{4}</svg>\n",
        kWidth, height, xml_text(title), style(), body_);
  }

 private:
  std::string body_;
};

// Titles and legend; returns where the plot may begin.
double head(drawing& d, const std::string& title, const std::string& subtitle, const std::vector<std::string>& names) {
  double y = kMargin;
  if (!title.empty()) d.text(kMargin, y += 8, title, "title letters");
  if (!subtitle.empty()) d.text(kMargin, y += kTextHeight, subtitle, "faint");
  double x = kMargin;
  y += 24;
  for (size_t i = 0; i < names.size(); ++i) {
    const double width = 28 + text_width(names[i]) + 12;
    if (x > kMargin && x + width > kWidth) x = kMargin, y += kTextHeight;
    d.path({{x, y - 4}, {x + 20, y - 4}}, fmt::format("line {}", series_name(i)));
    d.marker(x + 10, y - 4, i, names[i]);
    d.text(x + 26, y, names[i], "letters");
    x += width;
  }
  return names.empty() ? y : y + 16;
}

struct range {
  double low, high;
};

range x_range(const line_chart& chart) {
  range r = {INFINITY, -INFINITY};
  for (const chart_line& line : chart.lines)
    for (const chart_point& p : line.points) r = {std::min(r.low, p.x), std::max(r.high, p.x)};
  if (!(r.low <= r.high)) return {1, 10};
  return r.low < r.high ? r : range{r.low / 2, r.high * 2};
}

double highest_y(const line_chart& chart) {
  double most = 0;
  for (const chart_line& line : chart.lines)
    for (const chart_point& p : line.points)
      if (std::isfinite(p.y)) most = std::max(most, p.y);
  return most > 0 ? std::max(1.05 * most, chart.whole) : 1;
}

// Where the values of a line chart lie.
struct plot {
  double left, right, top, bottom;
  range x;
  double highest;
  bool logarithmic;

  double across(double value) const {
    const auto scale = [this](double v) { return logarithmic ? std::log(v) : v; };
    return left + (right - left) * (scale(value) - scale(x.low)) / (scale(x.high) - scale(x.low));
  }
  double down(double value) const { return bottom - (bottom - top) * value / highest; }
};

void draw_axes(drawing& d, const line_chart& chart, const plot& p) {
  for (const double y : even_ticks(0, p.highest, 6)) {
    d.rule(p.left, p.down(y), p.right, p.down(y));
    d.text(p.left - 8, p.down(y) + 4, number(y), "faint", "end");
  }
  for (const double x : p.logarithmic ? logarithmic_ticks(p.x.low, p.x.high) : even_ticks(p.x.low, p.x.high, 8)) {
    d.rule(p.across(x), p.bottom, p.across(x), p.bottom + 5);
    d.text(p.across(x), p.bottom + kTextHeight, number(x), "faint", "middle");
  }
  const double middle = (p.top + p.bottom) / 2;
  d.text((p.left + p.right) / 2, p.bottom + 2 * kTextHeight, chart.x_title, "faint", "middle");
  d.upright_text(kMargin + 2, middle, chart.y_title);
  if (chart.whole <= 0) return;
  for (const double share : even_ticks(0, p.highest / chart.whole, 6)) {
    const double y = p.down(share * chart.whole);
    d.rule(p.right, y, p.right + 5, y);
    d.text(p.right + 8, y + 4, number(100 * share) + " %", "faint");
  }
  d.upright_text(kWidth - 8, middle, chart.share_title);
}

void draw_line(drawing& d, const plot& p, const chart_line& line, size_t series) {
  std::vector<chart_point> stretch;
  const auto end_stretch = [&] {
    if (stretch.size() > 1) d.path(stretch, fmt::format("line {}", series_name(series)));
    stretch.clear();
  };
  for (const chart_point& value : line.points) {
    if (std::isfinite(value.y))
      stretch.push_back({p.across(value.x), p.down(value.y)});
    else
      end_stretch();
  }
  end_stretch();
  for (const chart_point& value : line.points)
    if (std::isfinite(value.y))
      d.marker(p.across(value.x), p.down(value.y), series,
               fmt::format("{}: {:.4g} at {}", line.name, value.y, number(value.x)));
}

void draw_bar(drawing& d, const bar_chart& chart, const chart_bar& bar, double left, double y, double scale) {
  double x = left;
  d.text(left - 8, y + 15, bar.name, "letters", "end");
  for (size_t i = 0; i < bar.parts.size(); ++i) {
    const std::string part = i < chart.parts.size() ? " " + chart.parts[i] : "";
    if (bar.parts[i] > 0)
      d.bar(x, y, scale * bar.parts[i], i, fmt::format("{}{}: {:.4g}", bar.name, part, bar.parts[i]));
    x += scale * bar.parts[i];
  }
  d.text(x + 6, y + 15, bar.note, "faint");
}

}  // namespace

std::string xml_text(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    escaped += c == '&'                     ? "&amp;"
               : c == '<'                   ? "&lt;"
               : c == '>'                   ? "&gt;"
               : c == '"'                   ? "&quot;"
               : byte < ' ' || byte == 0x7f ? "?"
                                            : std::string(1, c);
  }
  return escaped;
}

std::string svg(const line_chart& chart) {
  drawing d;
  std::vector<std::string> names;
  for (const chart_line& line : chart.lines) names.push_back(line.name);
  const double top = head(d, chart.title, chart.subtitle, names);
  const plot p = {.left = kMargin + kAxisWidth,
                  .right = kWidth - kMargin - (chart.whole > 0 ? kAxisWidth + 8 : 0),
                  .top = top,
                  .bottom = top + kPlotHeight,
                  .x = x_range(chart),
                  .highest = highest_y(chart),
                  .logarithmic = chart.x_logarithmic};
  draw_axes(d, chart, p);
  for (size_t i = chart.lines.size(); i-- > 0;) draw_line(d, p, chart.lines[i], i);  // the first lies on top
  return d.svg(p.bottom + 3 * kTextHeight, chart.title);
}

std::string svg(const bar_chart& chart) {
  drawing d;
  const double top =
      head(d, chart.title, chart.subtitle, chart.parts.size() > 1 ? chart.parts : std::vector<std::string>());
  double name_width = 0, note_width = 0, longest = 0;
  for (const chart_bar& bar : chart.bars) {
    double length = 0;
    for (const double part : bar.parts) length += part;
    longest = std::max(longest, length);
    name_width = std::max(name_width, text_width(bar.name));
    note_width = std::max(note_width, text_width(bar.note));
  }
  if (longest <= 0) longest = 1;
  const double left = kMargin + name_width + 8, right = kWidth - kMargin - note_width - 6;
  const double bottom = top + kBarDistance * static_cast<double>(chart.bars.size());
  const double scale = (right - left) / longest;
  for (const double value : even_ticks(0, longest, 6)) {
    d.rule(left + scale * value, top - 6, left + scale * value, bottom);
    d.text(left + scale * value, bottom + kTextHeight - 4, number(value), "faint", "middle");
  }
  for (size_t i = 0; i < chart.bars.size(); ++i)
    draw_bar(d, chart, chart.bars[i], left, top + kBarDistance * static_cast<double>(i), scale);
  d.text((left + right) / 2, bottom + 2 * kTextHeight - 4, chart.value_title, "faint", "middle");
  return d.svg(bottom + 3 * kTextHeight - 8, chart.title);
}

}  // namespace tev::host
