// SPDX-License-Identifier: BSD-3-Clause
// Whole factorizations and the systems that they solve: through a sink, which takes its share, or in this process. What
// was found is judged as the reference LAPACK's test programs judge, by residuals that must stay below 30:
//
//   lu         |P A - L U| / (n |A| u)
//   cholesky   |A - L L^H| / (n |A| u)
//   qr         |R - Q^H A| / (m |A| u), |I - Q^H Q| / (m u)
//   solve      |b - A x| / (|A| |x| u), the largest of all right-hand sides
//   lstsq      |(B - A X)^H A| / (max(m, n) |A| |B| u)
//
// in the 1-norm, with u half the machine epsilon.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/call.h"
#include "host/kinds.h"
#include "host/npy.h"
#include "host/offload.h"
#include "host/sink_client.h"

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
  std::string out;               // X, or the factors; empty: not kept
  uint64_t seed;
  bool check;
  int repeat;

  bool solves() const { return what == task::solve || what == task::lstsq; }
  double flop_count() const;
};

// Opens the files, too. Throws a bad_input() that names what is wrong.
system_call resolve_system(const call_request& request);

struct residual {
  std::string of;
  double value;
};
inline constexpr double kLargestResidual = 30;

struct system_outcome {
  std::vector<double> seconds;  // of each repetition's factorization, ascending
  double solve_seconds;         // of the last repetition
  double busy_seconds;          // of the sink, all repetitions together
  std::string sink_error;       // not empty: the sink died, and the factorization started again in this process
  int64_t info;                 // as LAPACK's: not 0, it failed at this column
  double growth;                // lu, solve: of the elements; else 0
  double rcond;  // reciprocal condition, in the 1-norm; lstsq: the least element of R's diagonal over the
                 // largest, which is no smaller; negative when it is not known
  std::vector<residual> residuals;

  double best() const { return seconds.front(); }
  bool passed() const;
  // Small matrices stay in this process, as does what a dead sink left.
  bool used_sink() const { return busy_seconds > 0; }
};

// A result that does not pass the check, or does not exist, is not kept.
system_outcome run_system(const system_call& c, const sink_settings& sink, const progress& on_progress);

// The system is so near to a singular one that the type cannot tell them apart.
bool is_singular_to_precision(const system_call& c, const system_outcome& o);

}  // namespace tev::host
