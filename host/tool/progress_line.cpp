// SPDX-License-Identifier: BSD-3-Clause
#include "host/tool/progress_line.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "host/ending_signals.h"

namespace tev::host::tool {
namespace {

using clock = std::chrono::steady_clock;
constexpr auto kPatience = std::chrono::seconds(1);
constexpr auto kBetween = std::chrono::milliseconds(100);
constexpr char kWipe[] = "\r\x1b[K";

volatile std::sig_atomic_t is_shown = 0;

void wipe() {
  if (is_shown != 0) (void)!write(STDERR_FILENO, kWipe, sizeof(kWipe) - 1);
  is_shown = 0;
}

}  // namespace

progress_line::progress_line() : terminal_(isatty(STDERR_FILENO) == 1), next_(clock::now() + kPatience) {}

void progress_line::show(const std::string& text) {
  if (!terminal_ || clock::now() < next_) return;
  next_ = clock::now() + kBetween;
  tidy_at_ending_signals(wipe);
  is_shown = 1;
  std::fprintf(stderr, "%s%s", kWipe, text.c_str());
}

void progress_line::clear() { wipe(); }

}  // namespace tev::host::tool
