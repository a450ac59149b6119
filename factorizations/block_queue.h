// SPDX-License-Identifier: BSD-3-Clause
// Updates that wait for a thread: per block a number of them, done one after the other. Whoever is free takes the
// leftmost that waits, since the panels wait for the left ones.
//
// A product is faster the wider it is. So a panel is applied to groups of blocks at once, but alone to the block that
// is the next panel. Fewer blocks are left from panel to panel, and groups get narrower, so that there are tasks for
// all threads until the end. Their widths are powers of 2, counted from the right, so that a group is wholly within one
// of the panel before. What is done at once, and in what order a block gets its updates, does not depend on who takes
// them.
//
//   F  1  2  2  2  3  3  3  3  4  4  4  4     updates by panel F: what has one number is one task
//      F  1  2  2  3  3  3  3  4  4  4  4
//         F  1  2  3  3  4  4  5  5  6  6     fewer are left: narrower groups
#pragma once

#include <cstdint>
#include <mutex>

#include "blas_threading/operands.h"
#include "factorizations/workspace.h"

namespace tev::lapack {

class block_queue {
 public:
  struct task {
    int64_t panel;  // or the number of panels: what finishes the block
    blas::span blocks;
    bool is_none() const { return blocks.size() == 0; }
  };

  // A group has at most `group` blocks, and at most one part of `parts` of those behind the next panel.
  block_queue(int64_t panels, int64_t blocks, int64_t group, int64_t parts);

  // Otherwise nothing may be asked of it.
  bool has_memory() const { return static_cast<bool>(states_); }

  void ask(blas::span blocks);
  task take();
  void give_back(const task& done);

  bool is_done(int64_t block) const;
  // No more will be asked for.
  void close();
  bool is_closed() const;

 private:
  struct state {
    int64_t asked = 0, done = 0;
    bool taken = false;
    bool waits() const { return !taken && done < asked; }
  };
  state& at(int64_t block) { return states_.data()[block]; }
  const state& at(int64_t block) const { return states_.data()[block]; }
  blas::span group_of(int64_t panel, int64_t block) const;
  task next_of(int64_t block) const;

  const int64_t panels_, blocks_, group_, parts_;
  mutable std::mutex lock_;
  const workspace<state> states_;
  bool closed_ = false;
};

}  // namespace tev::lapack
