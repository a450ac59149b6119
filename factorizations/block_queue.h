// SPDX-License-Identifier: BSD-3-Clause
// Updates that wait for a thread: per block a number of them, done one after the other. Whoever is free takes the
// leftmost that waits, since the panels wait for the left ones.
//
// A product is faster the wider it is. So blocks stand in groups, and a panel that lies left of a group is applied to
// the whole of it at once; a panel of the same group, to single blocks. Groups get narrower to the right, so that there
// are tasks for all threads until the end. What is done at once, and in what order a block gets its updates, does not
// depend on who takes them.
//
//   | F . . . | . . . | . . | . | . |
//   |   1 1 1 |   3   |  2  | 1 | 1 |     updates by panel F, and how many blocks each has
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

  // A group has at most `group` blocks, and at most one part of `parts` of those from its first one on.
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
    blas::span group = {0, 0};
    int64_t asked = 0, done = 0;
    bool taken = false;
    bool waits() const { return !taken && done < asked; }
  };
  state& at(int64_t block) { return states_.data()[block]; }
  const state& at(int64_t block) const { return states_.data()[block]; }
  task next_of(int64_t block) const;

  const int64_t panels_, blocks_;
  mutable std::mutex lock_;
  const workspace<state> states_;
  bool closed_ = false;
};

}  // namespace tev::lapack
