// SPDX-License-Identifier: BSD-3-Clause
// What the program's calls were, for whoever asks by TEVBLAS_TRACE: a line for each, and a table when the process ends.
//
//   dgemm transa=N transb=T m=500 n=500 k=200 lda=500 ldb=500 ldc=500 flops=1e+08 class=257-1024 where=sink
//   seconds=0.0034 process=4711                                                  (all in one line)
//
// The class is that of the geometric mean of m, n and k. Forked children and other processes append to the same file.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ctime>

namespace tev::shim {

// Until the first call has opened the library: true, so that nobody else need ask for more than this.
extern std::atomic<bool> tracing;

// Once, by the first call. All libraries of the process write one file and one table.
void open_trace();

// In a forked child: its table has its own calls.
void forget_calls_of_parent();

// One call, from its making to its end.
class trace_line {
 public:
  trace_line(const char* routine, double flops);
  ~trace_line();
  trace_line(const trace_line&) = delete;
  trace_line& operator=(const trace_line&) = delete;

  // Options, sizes, increments and leading dimensions, in their order; of scalars and arrays nothing.
  void note(const char* name, char letter);
  void note(const char* name, int64_t number);
  void note(const char*, const void*) {}
  void begin();

 private:
  __attribute__((format(printf, 2, 3))) void add(const char* form, ...);

  const char* const routine_;
  const double flops_;
  double volume_ = 1;  // m n k
  int sizes_ = 0;      // of these
  timespec start_;
  char text_[768];
  size_t length_ = 0;
};

}  // namespace tev::shim
