// SPDX-License-Identifier: BSD-3-Clause
#include "factorizations/block_queue.h"

namespace tev::lapack {

void block_queue::ask(blas::span blocks) {
  const std::lock_guard held(lock_);
  for (int64_t b = blocks.begin; b < blocks.end; ++b) ++blocks_[static_cast<size_t>(b)].asked;
}

block_queue::task block_queue::take() {
  const std::lock_guard held(lock_);
  for (size_t b = 0; b < blocks_.size(); ++b) {
    state& block = blocks_[b];
    if (block.taken || block.done == block.asked) continue;
    block.taken = true;
    return {block.done, static_cast<int64_t>(b)};
  }
  return {0, -1};
}

void block_queue::give_back(const task& done) {
  const std::lock_guard held(lock_);
  state& block = blocks_[static_cast<size_t>(done.block)];
  block.taken = false;
  ++block.done;
}

bool block_queue::is_done(int64_t block) const {
  const std::lock_guard held(lock_);
  const state& b = blocks_[static_cast<size_t>(block)];
  return b.done == b.asked;
}

void block_queue::close() {
  const std::lock_guard held(lock_);
  closed_ = true;
}

bool block_queue::is_closed() const {
  const std::lock_guard held(lock_);
  return closed_;
}

}  // namespace tev::lapack
