// SPDX-License-Identifier: BSD-3-Clause
#include "factorizations/block_queue.h"

#include <algorithm>
#include <bit>
#include <memory>

namespace tev::lapack {

block_queue::block_queue(int64_t panels, int64_t blocks, int64_t group, int64_t parts)
    : panels_(panels), blocks_(blocks), group_(group), parts_(parts), states_(blocks) {
  if (states_) std::uninitialized_value_construct_n(states_.data(), blocks);
}

void block_queue::ask(blas::span blocks) {
  const std::lock_guard held(lock_);
  for (int64_t b = blocks.begin; b < blocks.end; ++b) ++at(b).asked;
}

blas::span block_queue::group_of(int64_t panel, int64_t block) const {
  const int64_t next = panel + 1;
  if (block == next) return {block, block + 1};
  const int64_t most = std::clamp((blocks_ - next - 1) / parts_, int64_t{1}, group_);
  const auto width = static_cast<int64_t>(std::bit_floor(static_cast<uint64_t>(most)));
  const int64_t end = blocks_ - (blocks_ - 1 - block) / width * width;
  return {std::max(end - width, next + 1), end};
}

// The panels before a block are its updates; one more finishes it.
block_queue::task block_queue::next_of(int64_t block) const {
  const int64_t update = at(block).done;
  if (update == std::min(block, panels_)) return {panels_, {block, block + 1}};
  return {update, group_of(update, block)};
}

block_queue::task block_queue::take() {
  const std::lock_guard held(lock_);
  for (int64_t b = 0; b < blocks_; ++b) {
    if (!at(b).waits()) continue;
    const task next = next_of(b);
    const auto all_wait = [&] {
      for (int64_t i = next.blocks.begin; i < next.blocks.end; ++i)
        if (!at(i).waits() || at(i).done != at(b).done) return false;
      return true;
    };
    if (!all_wait()) continue;
    for (int64_t i = next.blocks.begin; i < next.blocks.end; ++i) at(i).taken = true;
    return next;
  }
  return {0, {0, 0}};
}

void block_queue::give_back(const task& done) {
  const std::lock_guard held(lock_);
  for (int64_t b = done.blocks.begin; b < done.blocks.end; ++b) {
    at(b).taken = false;
    ++at(b).done;
  }
}

bool block_queue::is_done(int64_t block) const {
  const std::lock_guard held(lock_);
  return at(block).done == at(block).asked;
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
