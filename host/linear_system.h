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
#include <string>
#include <vector>

#include "host/offload.h"
#include "host/sink_client.h"
#include "host/system_call.h"
#include "tev/offload.h"

namespace tev::host {

struct residual {
  std::string of;
  double value;
};
inline constexpr double kLargestResidual = 30;

// What the program did from `begin` to `end`, seconds of CLOCK_MONOTONIC.
struct phase {
  std::string name;
  double begin, end;
};

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
  std::vector<phase> phases;
  std::vector<tev_offload_span> spans;  // of the last repetition's factorization, where the call records

  double best() const { return seconds.front(); }
  bool passed() const;
  // Small matrices stay in this process, as does what a dead sink left.
  bool used_sink() const { return busy_seconds > 0; }
};

// A result that does not pass the check, or does not exist, is not kept.
system_outcome run_system(const system_call& c, const sink_settings& sink, const progress& on_progress);

// Of the time of a recorded factorization: the calling thread in panels, this process's threads in updates, the sink.
// Zeros where nothing was recorded.
struct time_shares {
  double panels, updates, sink;
};
time_shares shares_of(const std::vector<tev_offload_span>& spans);

// The system is so near to a singular one that the type cannot tell them apart.
bool is_singular_to_precision(const system_call& c, const system_outcome& o);

}  // namespace tev::host
