// SPDX-License-Identifier: BSD-3-Clause
// What is asked for where the operation is a whole factorization or a system to be solved.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/call.h"
#include "host/kinds.h"
#include "host/npy.h"

namespace tev::host {

enum class task { lu, cholesky, qr, solve, lstsq };

const char* name_of(task what);
std::optional<task> task_named(const std::string& text);

struct system_call {
  task what;
  precision type;
  bool through_sink;
  char uplo;                     // cholesky
  int64_t m, n, right_sides;     // right_sides: 0 where there are none
  std::optional<npy_file> a, b;  // none: generated from the seed
  int host_threads;              // 0: one beside a sink, else as many as the library likes
  std::string out;               // X, or the factors as LAPACK leaves them; empty: not kept
  std::string factors;           // the factors one by one, in an .npz file; likewise
  std::string trace;             // what ran when; likewise
  bool records;                  // the last repetition
  uint64_t seed;
  bool check;
  int repeat;

  bool solves() const { return what == task::solve || what == task::lstsq; }
  double flop_count() const { return flop_count(m, n); }
  double flop_count(int64_t rows, int64_t columns) const;
};

// Opens the files, too. Throws a bad_input() that names what is wrong.
system_call resolve_system(const call_request& request);

}  // namespace tev::host
