// SPDX-License-Identifier: BSD-3-Clause
#include "factorizations/block_queue.h"

#include <algorithm>
#include <memory>

namespace tev::lapack {

block_queue::block_queue(int64_t panels, int64_t blocks, int64_t group, int64_t parts)
    : panels_(panels), blocks_(blocks), states_(blocks) {
  if (!states_) return;
  std::uninitialized_value_construct_n(states_.data(), blocks);
  for (int64_t begin = 0, end; begin < blocks; begin = end) {
    end = begin + std::clamp((blocks - begin) / parts, int64_t{1}, group);
    for (int64_t b = begin; b < end; ++b) at(b).group = {begin, end};
  }
}

void block_queue::ask(blas::span blocks) {
  const std::lock_guard held(lock_);
  for (int64_t b = blocks.begin; b < blocks.end; ++b) ++at(b).asked;
}

// The panels before a block are its updates; one more finishes it.
block_queue::task block_queue::next_of(int64_t block) const {
  const int64_t update = at(block).done;
  const blas::span group = at(block).group;
  if (update == std::min(block, panels_)) return {panels_, {block, block + 1}};
  return {update, update >= group.begin ? blas::span{block, block + 1} : group};
}

block_queue::task block_queue::take() {
  const std::lock_guard held(lock_);
  for (int64_t b = 0; b < blocks_; ++b) {
    if (!at(b).waits()) continue;
    const task next = next_of(b);
    const auto all_wait = [&] {
      for (int64_t i = next.blocks.begin; i < next.blocks.end; ++i)
        if (!at(i).waits()) return false;
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
