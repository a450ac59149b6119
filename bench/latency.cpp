// SPDX-License-Identifier: BSD-3-Clause
// Round trip of one empty request through the offload runtime: from vro_run to the end of its wait.
//
//   bench/latency SINK [FUNCTION [COUNT]]      default: be_card_invoke_handler, 20000
//
// The block sent begins with 3, a code that the sink's dispatcher ignores; any function that does nothing serves.
// Prints the median, the 99th percentile and the least of COUNT round trips, for each size of the block.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "vro/host.h"

namespace {

using steady = std::chrono::steady_clock;

[[noreturn]] void give_up() {
  std::fprintf(stderr, "latency: %s\n", vro_last_error());
  std::exit(1);
}

// Microseconds of each round trip.
std::vector<double> measure(vro_process* process, const char* function, size_t misc_length, int count) {
  std::string misc(misc_length, '\0');
  misc[0] = 3;
  std::vector<double> times;
  for (int i = -count / 10; i < count; ++i) {  // the first tenth warms up
    const auto begin = steady::now();
    vro_completion* c = nullptr;
    if (vro_run(process, function, nullptr, 0, misc.data(), misc.size(), 0, &c) != VRO_OK) give_up();
    if (vro_completion_wait(c, 10000) != VRO_OK) give_up();
    const std::chrono::duration<double, std::micro> time = steady::now() - begin;
    vro_completion_release(c);
    if (i >= 0) times.push_back(time.count());
  }
  std::sort(times.begin(), times.end());
  return times;
}

}  // namespace

int main(int argc, char** argv) {
  const int count = argc > 3 ? std::atoi(argv[3]) : 20000;
  if (argc < 2 || count < 1) {
    std::fprintf(stderr, "usage: latency SINK [FUNCTION [COUNT]]\n");
    return 2;
  }
  const char* function = argc > 2 ? argv[2] : "be_card_invoke_handler";
  const vro_process_options options = {argv[1], nullptr, nullptr, -1, 0};
  vro_process* process = nullptr;
  if (vro_process_create(&options, &process) != VRO_OK) give_up();
  std::printf("# misc bytes   median us   99%% us   least us   (%d round trips of %s)\n", count, function);
  for (const size_t misc_length : {4, 32320}) {
    const std::vector<double> times = measure(process, function, misc_length, count);
    std::printf("%12zu %11.2f %8.2f %10.2f\n", misc_length, times[times.size() / 2], times[times.size() * 99 / 100],
                times.front());
  }
  return vro_process_shutdown(process, 10000) == VRO_OK ? 0 : 1;
}
