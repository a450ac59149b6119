// SPDX-License-Identifier: BSD-3-Clause
// The shared product in which packing overlaps multiplying. A panel (a stretch of k of a chunk of rows) of A is packed
// by the whole team, in pieces, into one of two slots, and the tiles of C that it contributes to are computed from it.
// Pieces and tiles are handed out one by one, in this order, so that threads meet at no barrier and a slow one is
// given less:
//
//   |pack 0|tiles of 0, first half|pack 1|tiles of 0, second half|tiles of 1, first half|pack 2|tiles of 1, second ..
//          slot 0                  slot 1                                                slot 0
//
// A panel is packed half a panel before it is needed, and half a panel after the one before it in its slot was used up,
// so that who takes a ticket seldom waits. It waits at all only for tickets taken earlier, hence somebody always goes
// on. Which thread computes a tile changes nothing in it: panels reach each tile in the order of k.
#pragma once

#include <cstdint>

#include "blas_threading/gemm/options.h"
#include "kernels/records.h"

namespace tev::blas {

// What has been handed out and done so far, each in its own cache line; zero before use. Behind it: one word per tile,
// the panels of k that it has taken in.
struct work_queue {
  struct alignas(128) counter {
    uint64_t value;
  };
  counter tickets;
  counter packed[2];    // pieces, all panels of the slot together
  counter computed[2];  // tiles, likewise
};

// How one product is cut into tickets: the same on every thread.
struct lookahead_plan {
  int64_t depth, depths;                              // of a panel; panels along k
  int64_t chunk, chunks;                              // rows of a panel; panels along m
  int64_t piece, pieces;                              // rows of A packed by one ticket; tickets per panel
  int64_t slice, slices;                              // rows of a tile; tiles along a chunk
  int64_t width, columns;                             // columns of a tile; tiles along n
  int64_t tiles() const { return slices * columns; }  // per panel
  int64_t panels() const { return depths * chunks; }
};

// proposal: block sizes of one thread's product.
lookahead_plan plan_lookahead(int64_t m, int64_t n, int64_t k, const kernels::buffers& proposal,
                              const kernels::strategy& strategy, const thread_options& options);

}  // namespace tev::blas
