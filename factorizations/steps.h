// SPDX-License-Identifier: BSD-3-Clause
// A factorization as steps on blocks of columns (or rows), and where the steps run. A panel is factored, and what it
// found is applied to the blocks beyond it:
//
//   blocks    0   1   2   3   4   5
//           | F |-u-|-u-|-u-|-u-|-u-|    F  factor: now, on the calling thread
//           |   | F |-u-|-u-|-u-|-u-|    u  update: begun, and done at some time; of one block in the order in which
//           |   |   | F |-u-|-u-|-u-|       they were asked for
//
// The lookahead is that update of the next panel's block is asked for, and waited for, first: while the others run, the
// next panel is factored. The matrix lies in one buffer from beginning to end; what names a part of it is a number.
//
// Members: factorizations/team_steps.h runs the steps in this process.
#pragma once

#include <algorithm>
#include <cstdint>

#include "blas_threading/operands.h"

namespace tev::lapack {

using blas::span;

class steps {
 public:
  // False: it cannot be factored, and there is no next step.
  virtual bool factor(int64_t panel) = 0;
  // Begins to apply the panel to blocks beyond it. The number of panels for the panel, at the end: what a block needs
  // to be finished.
  virtual void update(int64_t panel, span blocks) = 0;
  // Until all updates of the block that were asked for are done.
  virtual void wait_for(int64_t block) = 0;

 protected:
  ~steps() = default;
};

// `blocks` from 0 on, of which the first `panels` are factored. All is done on return.
inline void run_with_lookahead(int64_t panels, int64_t blocks, steps& where) {
  bool goes_on = panels == 0 || where.factor(0);
  for (int64_t panel = 0; panel < panels && goes_on; ++panel) {
    const int64_t next = panel + 1;
    if (next < blocks) where.update(panel, {next, next + 1});
    if (next + 1 < blocks) where.update(panel, {next + 1, blocks});
    if (next == panels) break;
    where.wait_for(next);
    goes_on = where.factor(next);
  }
  const auto wait_for_all = [&] {
    for (int64_t block = 0; block < blocks; ++block) where.wait_for(block);
  };
  wait_for_all();  // the panels are read until then
  if (!goes_on) return;
  where.update(panels, {0, blocks});
  wait_for_all();
}

// How a factorization is divided: a function of the sizes and of the threads that it may use.
struct plan {
  int64_t threads;
  int64_t width;  // of a block
  int64_t group;  // most blocks that a panel is applied to at once
  int64_t parts;  // at least as many groups, or single blocks, for each panel
};

// For products that dominate. A narrow block makes a cheap panel, a wide one deep products (384: no deeper than what
// the kernels take at once), and the wider a group the less often a panel is packed, as long as each thread has some to
// take: of wide blocks, which are few, fewer. `narrow`: orders below it have the cheapest panels. Measured on two cores
// with AVX-512 and 1 MiB of second cache, narrow blocks with 2 MiB, too.
inline plan plan_of_products(int64_t order, int64_t narrow, int64_t threads) {
  constexpr int64_t kWideEnough = 2048;  // packing has become a few percent
  const bool wide = order >= 6144;
  const int64_t width = order < narrow ? 64 : wide ? 384 : 128;
  return {threads, width, kWideEnough / width, (wide ? 2 : 4) * threads};
}

}  // namespace tev::lapack
