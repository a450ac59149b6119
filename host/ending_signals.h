// SPDX-License-Identifier: BSD-3-Clause
// What must be tidied up although a signal ends the program: Ctrl-C, a hang-up, a polite kill.
#pragma once

#include <csignal>

namespace tev::host {

// Called in the signal's handler, where few functions may be; the signal ends the program then. Signals that are
// ignored, as under nohup, stay so. Four functions at most.
using tidy_function = void();
void tidy_at_ending_signals(tidy_function* tidy);

// Holds these signals back for as long as it lives.
class signals_held {
 public:
  signals_held();
  signals_held(const signals_held&) = delete;
  signals_held& operator=(const signals_held&) = delete;
  ~signals_held();

 private:
  sigset_t before_;
};

}  // namespace tev::host
