// SPDX-License-Identifier: BSD-3-Clause
// What bench measured of one operation in one precision, and what it is compared with.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/offload.h"

namespace tev::host::tool {

struct speed_row {
  int64_t size;
  double seconds, speed, busy_share;
};

struct library_speeds {
  std::string name;
  std::vector<double> speeds;  // for each row; not a number: it has no such routine, or did not survive
};

struct speed_table {
  std::string name;  // "dgemm"
  std::string source = "sink";
  std::string unit = "GFLOP/s";
  std::vector<speed_row> rows;
  std::vector<library_speeds> libraries;
  double peak = 0;  // GFLOP/s of multiply-adds in registers; 0: not known
};

// What the sink computed with.
struct conditions {
  std::string tier;
  int threads;
  std::string caches;
};

// Measures the peak and, of the operations that BLAS has, the libraries: each in a process of its own, in turns, the
// best of `repeat` samples.
void compare(speed_table& table, const conditions& on, int repeat, const progress& tell);

// A table for people, with a heading.
std::string comparison_text(const speed_table& table, const conditions& on);

std::string plot(const speed_table& table, const conditions& on, int repeat);

// One HTML page that needs no other file. `facts`: pairs of what and its value.
std::string page(const std::vector<speed_table>& tables, const conditions& on, int repeat,
                 const std::vector<std::pair<std::string, std::string>>& facts);

}  // namespace tev::host::tool
