// SPDX-License-Identifier: BSD-3-Clause
#include "host/ending_signals.h"

#include <algorithm>
#include <iterator>

namespace tev::host {
namespace {

constexpr int kEndingSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

tidy_function* all[4];  // null: nothing more

void tidy_and_end(int signal) {
  for (tidy_function* const tidy : all)
    if (tidy != nullptr) tidy();
  std::signal(signal, SIG_DFL);
  raise(signal);
}

}  // namespace

void tidy_at_ending_signals(tidy_function* tidy) {
  const signals_held held;
  if (std::find(std::begin(all), std::end(all), tidy) != std::end(all)) return;
  *std::find(std::begin(all), std::end(all), nullptr) = tidy;
  for (const int signal : kEndingSignals) {
    struct sigaction current = {};
    if (sigaction(signal, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) std::signal(signal, tidy_and_end);
  }
}

signals_held::signals_held() {
  sigset_t ending;
  sigemptyset(&ending);
  for (const int signal : kEndingSignals) sigaddset(&ending, signal);
  pthread_sigmask(SIG_BLOCK, &ending, &before_);
}

signals_held::~signals_held() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

}  // namespace tev::host
