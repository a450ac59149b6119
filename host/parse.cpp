// SPDX-License-Identifier: BSD-3-Clause
// The languages of parse.h: lists at commas, ranges, numbers that use all of their text.
#include "host/parse.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>

#include "host/failure.h"

namespace tev::host {
namespace {

constexpr int kLastProcessor = 1024;
constexpr size_t kMostSizes = 1000;

template <class N>
bool read_number(std::string_view text, N* number) {
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
  return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> pieces;
  for (size_t begin = 0;;) {
    const size_t end = text.find(separator, begin);
    pieces.push_back(text.substr(begin, end - begin));
    if (end == text.npos) return pieces;
    begin = end + 1;
  }
}

named_operation parse_operation(const std::string& text) {
  for (const operation op : {operation::gemm, operation::symm, operation::trmm, operation::trsm})
    if (text == name_of(op)) return {op, false};
  for (const operation op : {operation::syrk, operation::larfb, operation::laswp, operation::lu_step})
    if (text == name_of(op)) return {op, true};
  if (text == "gemm_step") return {operation::gemm, true};
  if (text == "trsm_step") return {operation::trsm, true};
  throw bad_input(
      fmt::format("'{}': no such operation; there are gemm, symm, trmm and trsm, and the steps gemm_step, trsm_step, "
                  "syrk, larfb, laswp and lu_step; run and bench have lu, cholesky, qr, solve and lstsq, too",
                  text));
}

precision parse_precision(const std::string& text) {
  for (const precision p : {precision::s, precision::d, precision::c, precision::z})
    if (text == std::string(1, letter_of(p)) || text == type_name(p)) return p;
  throw bad_input(fmt::format("--precision '{}': must be s, d, c or z", text));
}

template <class N>
N parse_whole_number(const std::string& option, const std::string& text, N first, N last) {
  N number = 0;
  if (!read_number(text, &number) || number < first || number > last)
    throw bad_input(fmt::format("{} '{}': must be a whole number from {} to {}", option, text, first, last));
  return number;
}

template int parse_whole_number(const std::string&, const std::string&, int, int);
template int64_t parse_whole_number(const std::string&, const std::string&, int64_t, int64_t);
template uint64_t parse_whole_number(const std::string&, const std::string&, uint64_t, uint64_t);

char parse_letter(const std::string& option, const std::string& text, const std::string& letters) {
  const char letter = text.size() == 1 && text[0] >= 'a' && text[0] <= 'z' ? static_cast<char>(text[0] - 'a' + 'A')
                      : text.size() == 1                                   ? text[0]
                                                                           : '\0';
  if (letter != '\0' && letters.find(letter) != letters.npos) return letter;
  std::string choices(1, letters[0]);
  for (size_t i = 1; i < letters.size(); ++i)
    choices += (i + 1 < letters.size() ? ", " : " or ") + letters.substr(i, 1);
  throw bad_input(fmt::format("{} '{}': must be {}", option, text, choices));
}

std::complex<double> parse_scalar(const std::string& option, const std::string& text, precision p) {
  const std::vector<std::string> parts = split(text, ',');
  double part[2] = {0, 0};
  bool good = parts.size() <= 2;
  for (size_t i = 0; good && i < parts.size(); ++i) good = read_number(parts[i], &part[i]);
  if (!good) throw bad_input(fmt::format("{} '{}': must be a number, or two as in 1.5,-2", option, text));
  if (!is_complex(p) && parts.size() == 2)
    throw bad_input(fmt::format("{} '{}': is complex, but the precision {} is real", option, text, letter_of(p)));
  for (const double x : part)
    if (std::isfinite(x) && element_bytes(p) == (is_complex(p) ? 8 : 4) && !std::isfinite(static_cast<float>(x)))
      throw bad_input(fmt::format("{} '{}': is too large for precision {}", option, text, letter_of(p)));
  return {part[0], part[1]};
}

std::vector<int> parse_processors(const std::string& option, const std::string& text) {
  std::vector<int> processors;
  for (const std::string& piece : split(text, ',')) {
    const std::vector<std::string> ends = split(piece, '-');
    int first = 0, last = 0;
    if (ends.size() > 2 || !read_number(ends.front(), &first) || !read_number(ends.back(), &last) || first > last)
      throw bad_input(fmt::format("{} '{}': '{}' is no processor and no range like 1-3", option, text, piece));
    if (first == 0) throw bad_input(fmt::format("{} '{}': processor 0 cannot be chosen", option, text));
    if (first < 0 || last > kLastProcessor)
      throw bad_input(fmt::format("{} '{}': processors are numbered 1 to {} here", option, text, kLastProcessor));
    for (int p = first; p <= last; ++p) processors.push_back(p);
  }
  std::sort(processors.begin(), processors.end());
  processors.erase(std::unique(processors.begin(), processors.end()), processors.end());
  return processors;
}

std::vector<int64_t> parse_sizes(const std::string& option, const std::string& text) {
  std::vector<int64_t> sizes;
  for (const std::string& piece : split(text, ',')) {
    int64_t range[3] = {};
    const std::vector<std::string> parts = split(piece, ':');
    bool good = parts.size() == 1 || parts.size() == 3;
    for (size_t i = 0; good && i < parts.size(); ++i) good = read_number(parts[i], &range[i]) && range[i] > 0;
    if (parts.size() == 1) range[1] = range[0], range[2] = 1;
    if (!good || range[0] > range[1])
      throw bad_input(fmt::format("{} '{}': '{}' is no size and no range like 100:1000:100", option, text, piece));
    const auto [first, last, step] = range;
    if (sizes.size() + static_cast<size_t>((last - first) / step) >= kMostSizes)
      throw bad_input(fmt::format("{} '{}': more than {} sizes", option, text, kMostSizes));
    for (int64_t i = 0; i <= (last - first) / step; ++i) sizes.push_back(first + i * step);
  }
  return sizes;
}

}  // namespace tev::host
