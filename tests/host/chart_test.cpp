// SPDX-License-Identifier: BSD-3-Clause
// Charts of values that leave nothing to scale by, and of names that are markup.
#include "host/chart.h"

#include <regex>

#include "tests/support/prelude.h"

namespace {

using namespace tev::host;

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

size_t count(const std::string& text, const std::string& pattern) {
  const std::regex found(pattern);
  return static_cast<size_t>(std::distance(std::sregex_iterator(text.begin(), text.end(), found), {}));
}

line_chart lines(std::vector<chart_point> points) {
  return {.title = "t", .x_title = "size", .x_logarithmic = true, .whole = 4, .lines = {{"one", std::move(points)}}};
}

TEST(Chart, NothingToScaleByIsDrawnAllTheSame) {
  const bar_chart bars[] = {{}, {.bars = {{"none", {}, ""}}}, {.bars = {{"zero", {0, 0}, "note"}}}};
  for (const bar_chart& chart : bars) EXPECT_EQ(count(svg(chart), "nan|inf|<rect class=\"bar"), 0u);
  for (const auto& points : {std::vector<chart_point>{}, {{5, 0}}, {{5, kNone}}, {{5, 1}, {5, 2}}})
    EXPECT_EQ(count(svg(lines(points)), "nan|inf"), 0u);
}

TEST(Chart, AGapInterruptsTheLineAndHasNoMarker) {
  const std::string chart = svg(lines({{1, 1}, {2, 2}, {3, kNone}, {4, 3}, {5, 3}}));
  EXPECT_EQ(count(chart, "<path class=\"line s0\""), 3u) << "two stretches and the legend's";
  EXPECT_EQ(count(chart, "<title>one: "), 4u);
}

TEST(Chart, TheSecondAxisStandsBesideTheValueThatIsTheWhole) {
  const std::string chart = svg(lines({{1, 1}, {1000, 4}}));
  EXPECT_EQ(count(chart, ">100 %<"), 1u);
  EXPECT_EQ(count(chart, ">(10|100|1000)<"), 3u) << "ticks of sizes";
}

TEST(Chart, NamesAreTextWhateverTheyContain) {
  const std::string hostile = "<script>\"&\n";
  const std::string chart = svg(bar_chart{.title = hostile, .bars = {{hostile, {1}, hostile}}});
  EXPECT_EQ(count(chart, "<script>|\"\"|&[^a-z]"), 0u);
  EXPECT_EQ(xml_text(hostile), "&lt;script&gt;&quot;&amp;?");
}

}  // namespace
