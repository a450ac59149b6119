// SPDX-License-Identifier: BSD-3-Clause
// Updates that wait for a thread: per block a number of them, done one after the other. Whoever is free takes the
// leftmost that waits, since the panels wait for the left ones.
//
// A product is faster the wider it is. So blocks stand in groups, and a panel that lies left of a group is applied to
// the whole of it at once; a panel of the same group, to single blocks. What is done at once, and in what order a block
// gets its updates, does not depend on who takes them.
//
//   groups of 4    | F . . . | . . . . | . . . . |
//                  |   1 1 1 |    4    |    4    |     updates by panel F, and how many blocks each has
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include "blas_threading/operands.h"

namespace tev::lapack {

class block_queue {
 public:
  struct task {
    int64_t panel;  // or the number of panels: what finishes the block
    blas::span blocks;
    bool is_none() const { return blocks.size() == 0; }
  };

  block_queue(int64_t panels, int64_t blocks, int64_t group)
      : panels_(panels), group_(group), blocks_(static_cast<size_t>(blocks)) {}

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
  state& at(int64_t block) { return blocks_[static_cast<size_t>(block)]; }
  const state& at(int64_t block) const { return blocks_[static_cast<size_t>(block)]; }
  int64_t count() const { return static_cast<int64_t>(blocks_.size()); }
  task next_of(int64_t block) const;

  const int64_t panels_, group_;
  mutable std::mutex lock_;
  std::vector<state> blocks_;
  bool closed_ = false;
};

}  // namespace tev::lapack
