// SPDX-License-Identifier: BSD-3-Clause
// What comes next. A product that goes along k in stretches, of operands from beyond the second cache, fetches the next
// stretch of both into it while it multiplies, some lines every few steps. Left to itself it would wait for the lines
// of a stretch in the first tiles that meet them, while memory would wait for the other tiles, which find them near.
#pragma once

#ifndef TEV_TIER
#error "include a tier's tier.h first"
#endif

#include "kernels/families/simd-inl.h"

namespace tev::TEV_TIER {

// Memory as runs of cache lines, `apart` bytes from the beginning of one run to that of the next.
struct line_runs {
  const char* at;
  int64_t lines, runs, apart;
};

struct upcoming {
  line_runs now, then;  // runs: what is left of them
  int64_t left;         // lines of this run
  int64_t at_once;      // lines that are fetched together; 0 when nothing is left
};

// Lines are fetched every so many steps: rarely enough for the loop over the steps to keep its registers.
inline constexpr int64_t kStepsPerFetch = 8;

// `count` pieces of a matrix, each of so many contiguous numbers; `apart` numbers from one to the next.
template <class R>
TEV_INLINE line_runs lines_of(const R* at, int64_t numbers, int64_t count, int64_t apart) {
  constexpr int64_t kSize = sizeof(R);
  const int64_t lines = (numbers * kSize + kLineBytes - 1) / kLineBytes;
  const auto* const bytes = reinterpret_cast<const char*>(at);
  if (apart * kSize <= lines * kLineBytes) return {bytes, (count * apart * kSize + kLineBytes - 1) / kLineBytes, 1, 0};
  return {bytes, lines, count, apart * kSize};
}

// Both, within so many steps of the product.
TEV_INLINE upcoming within(int64_t steps, const line_runs& first, const line_runs& second) {
  const int64_t lines = first.lines * first.runs + second.lines * second.runs;
  return {first, second, first.lines, (lines * kStepsPerFetch + steps - 1) / steps};
}

TEV_INLINE void fetch_line(upcoming& x) {
  __builtin_prefetch(x.now.at, 0, kIntoSecondCache);
  x.now.at += kLineBytes;
  if (--x.left > 0) return;
  x.now.at += x.now.apart - x.now.lines * kLineBytes;
  if (--x.now.runs == 0) {
    x.now = x.then;
    x.then.runs = 0;
    if (x.now.runs == 0) x.at_once = 0;
  }
  x.left = x.now.lines;
}

// The lines that are due.
TEV_INLINE void fetch(upcoming& x) {
  for (int64_t line = 0; line < x.at_once; ++line) fetch_line(x);
}

}  // namespace tev::TEV_TIER
