// SPDX-License-Identifier: BSD-3-Clause
// Who wants to know what a factorization does while it runs: for a record of what ran when, or to show how far it is.
#pragma once

#include <chrono>
#include <cstdint>

#include "blas_threading/operands.h"

namespace tev::lapack {

using blas::span;

enum class step_kind { panel, update, wait };

// Seconds of the monotonic clock.
inline double clock_seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

class step_observer {
 public:
  virtual void begins(int64_t panels) = 0;
  // Called by the thread that did it, whose number in the team is told; by several threads at once.
  virtual void saw(step_kind kind, int64_t thread, int64_t panel, span blocks, double begin) = 0;
  // Of a matrix that is factored without panels so many columns are done.
  virtual void reached(int64_t done, int64_t columns) = 0;

 protected:
  ~step_observer() = default;
};

// What the calling thread factors is told to it; null: nobody asks.
inline thread_local step_observer* observer_of_this_thread = nullptr;

// What a recursion tells the observer of the thread that makes one.
class columns_done {
 public:
  explicit columns_done(int64_t columns) : observer_(observer_of_this_thread), columns_(columns) {}
  void add(int64_t columns) {
    done_ += columns;
    if (observer_ != nullptr) observer_->reached(done_, columns_);
  }

 private:
  step_observer* const observer_;
  const int64_t columns_;
  int64_t done_ = 0;
};

// From here to the end of the scope.
class observed_step {
 public:
  observed_step(step_observer* observer, step_kind kind, int64_t thread, int64_t panel, span blocks)
      : observer_(observer), kind_(kind), thread_(thread), panel_(panel), blocks_(blocks) {
    if (observer_ != nullptr) begin_ = clock_seconds();
  }
  observed_step(const observed_step&) = delete;
  observed_step& operator=(const observed_step&) = delete;
  ~observed_step() {
    if (observer_ != nullptr) observer_->saw(kind_, thread_, panel_, blocks_, begin_);
  }

 private:
  step_observer* const observer_;
  const step_kind kind_;
  const int64_t thread_, panel_;
  const span blocks_;
  double begin_ = 0;
};

}  // namespace tev::lapack
