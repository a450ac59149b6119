// SPDX-License-Identifier: BSD-3-Clause
// The leak checker falls over the thread-local storage of threads that a library started which was opened later, and
// without that storage takes the C library's own for leaks.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_options() { return "detect_leaks=0"; }
