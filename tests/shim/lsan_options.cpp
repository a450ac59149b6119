// SPDX-License-Identifier: BSD-3-Clause
// The leak checker falls over the thread-local storage of threads that a library started which was opened later.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_options() { return "use_tls=0"; }
