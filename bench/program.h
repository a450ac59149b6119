// SPDX-License-Identifier: BSD-3-Clause
// What small programs that measure have in common.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <vector>

#include "contest/sample_clock.h"

namespace tev::bench {

struct number_option {
  const char* name;
  int64_t* value;
};

// "--order 4000 ...", each number at least 1. False: something else was written, and the options are shown.
inline bool read_numbers(int argc, char** argv, std::initializer_list<number_option> options) {
  for (int i = 1; i < argc; i += 2) {
    const auto* option =
        std::find_if(options.begin(), options.end(), [&](const auto& o) { return std::strcmp(argv[i], o.name) == 0; });
    const int64_t number = option != options.end() && i + 1 < argc ? std::atoll(argv[i + 1]) : 0;
    if (number < 1) {
      std::fprintf(stderr, "usage: %s", argv[0]);
      for (const number_option& o : options) std::fprintf(stderr, " [%s N]", o.name);
      std::fputs("\n", stderr);
      return false;
    }
    *option->value = number;
  }
  return true;
}

template <class Body>
double seconds(bool threaded, const Body& body) {
  const double begin = contest::now(threaded);
  body();
  return contest::now(threaded) - begin;
}

inline double median(std::vector<double> samples) {
  std::sort(samples.begin(), samples.end());
  return samples[samples.size() / 2];
}

}  // namespace tev::bench
