// SPDX-License-Identifier: BSD-3-Clause
// trmm and trsm block by block. All their forms are one: lines of B (rows on side L, columns on side R) meet a
// triangle, and the lines of a block work themselves out by its diagonal block D. What the other lines take of them, or
// they of the others, is a matrix product:
//
//          block  rest                         solve:     block, then rest - X block
//     block  D                                 multiply:  rest + X block, then block, from the last to the first
//     rest   X    ..                           backward, the rest are the lines before the block
//
// A block that gathers takes its share from all lines at once instead of leaving theirs to the rest: the sum is deep
// then. Every tier compiles this for itself, hence all of it is inlined always.
#pragma once

#include "kernels/operation.h"

#define TEV_DESCRIBE inline __attribute__((always_inline))

namespace tev::kernels {

struct block_walk {
  bool solves;
  bool forward;  // lines take from those before them
  bool gathers;
  int64_t order, step;
};

// own(k, depth, factor): lines [k, k + depth) by their diagonal block, times factor.
// exchange(i, count, k, depth, scalar, beta): lines i.. := scalar (what they take from the lines k..) + beta lines i..
template <class T, class Own, class Exchange>
TEV_DESCRIBE void for_diagonal_blocks(const block_walk& walk, T alpha, const Own& own, const Exchange& exchange) {
  const T one = one_like(alpha), minus_one = minus_one_like(alpha);
  const int64_t blocks = (walk.order + walk.step - 1) / walk.step;
  const bool upwards = walk.forward == walk.solves, exchanges_first = walk.gathers == walk.solves;
  const bool behind = walk.forward != walk.gathers;  // the lines that a block gives to, or gathers from
  for (int64_t q = 0; q < blocks; ++q) {
    const int64_t k = (upwards ? q : blocks - 1 - q) * walk.step;
    const int64_t depth = walk.order - k < walk.step ? walk.order - k : walk.step;
    const int64_t rest = behind ? k + depth : 0, count = behind ? walk.order - rest : k;
    // A solution takes alpha into all of B in its first step, or into each block that gathers.
    const T scalar = walk.solves ? minus_one : alpha, beta = walk.solves && (walk.gathers || q == 0) ? alpha : one;
    const auto exchange_with_rest = [&]() __attribute__((always_inline)) {
      if (count < 1) return;
      if (walk.gathers)
        exchange(k, depth, rest, count, scalar, beta);
      else
        exchange(rest, count, k, depth, scalar, beta);
    };
    if (exchanges_first) exchange_with_rest();
    own(k, depth, !walk.solves || q == 0 ? alpha : one);
    if (!exchanges_first) exchange_with_rest();
  }
}

}  // namespace tev::kernels

#undef TEV_DESCRIBE
