// SPDX-License-Identifier: BSD-3-Clause
// Updates that wait for a thread: per block a number of them, done one after the other. Whoever is free takes the
// leftmost block that has one, since the panels wait for the left ones. What is in a block, and the order of its
// updates, does not depend on who takes them.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include "blas_threading/operands.h"

namespace tev::lapack {

class block_queue {
 public:
  struct task {
    int64_t update, block;  // the block's update number `update`, from 0; block -1: there is none at present
  };

  explicit block_queue(int64_t blocks) : blocks_(static_cast<size_t>(blocks)) {}

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
  };
  mutable std::mutex lock_;
  std::vector<state> blocks_;
  bool closed_ = false;
};

}  // namespace tev::lapack
