// SPDX-License-Identifier: BSD-3-Clause
// The line of progress_line.h: written over itself, wiped at the end.
#include "host/tool/progress_line.h"

#include <unistd.h>

#include <cstdio>

namespace tev::host::tool {
namespace {

using clock = std::chrono::steady_clock;
constexpr auto kPatience = std::chrono::seconds(1);
constexpr auto kBetween = std::chrono::milliseconds(100);
constexpr char kWipe[] = "\r\x1b[K";

}  // namespace

progress_line::progress_line() : terminal_(isatty(STDERR_FILENO) == 1), next_(clock::now() + kPatience) {}

void progress_line::show(const std::string& text) {
  if (!terminal_ || clock::now() < next_) return;
  next_ = clock::now() + kBetween;
  shown_ = true;
  std::fprintf(stderr, "%s%s", kWipe, text.c_str());
}

void progress_line::clear() {
  if (shown_) std::fputs(kWipe, stderr);
  shown_ = false;
}

}  // namespace tev::host::tool
