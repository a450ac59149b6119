// SPDX-License-Identifier: BSD-3-Clause
// Outcomes as text for people and as JSON for machines; every function returns whole lines.
#pragma once

#include <string>
#include <vector>

#include "host/offload.h"
#include "host/tool/info.h"

namespace tev::host::tool {

std::string seconds_text(double seconds);

std::string info_text(const facts& f);
std::string info_json(const facts& f);

std::string run_text(const call& c, const outcome& o);
std::string run_json(const call& c, const outcome& o);

// One line for a table whose rows are different calls.
std::string demo_row(const call& c, const outcome& o);

struct bench_row {
  int64_t size;
  double speed;
  outcome result;
};

std::string bench_heading(const call& first);
std::string bench_text(const bench_row& row);
std::string bench_json(const call& first, const std::vector<bench_row>& rows);

// GFLOP/s; of interchanges GB/s that are read or written.
double speed(const call& c, const outcome& o);
const char* unit(const call& c);

// "gemm_step": the step of a factorization, where there is another worker, too.
std::string called(const call& c);

}  // namespace tev::host::tool
