// SPDX-License-Identifier: BSD-3-Clause
// Steps of which a sink takes a share. The calling thread factors the panels and updates the blocks next to them, the
// sink the blocks to the right:
//
//   panel 3     | . . . F | h h h | s s s s s |      F  being factored, or to be
//   panel 4     | . . . . F | h h | s s s s s |      h  updated here      s  by the sink
//   panel 5     | . . . . . F | h h | s s s s |
//
// The border moves to the right as the matrix shrinks, so that both sides end at the same time; a block that will cross
// it comes first in the sink's line. The border depends on sizes and numbers of threads only. What is to be done here
// waits until it is needed, the leftmost blocks first, or until the sink has enough to do; other threads of this
// process, where there are any, do it all the time.
#pragma once

#include <algorithm>
#include <cmath>
#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <vector>

#include "blas_threading/team/barrier.h"
#include "blas_threading/team/team.h"
#include "blas_threading/team/waiting.h"
#include "factorizations/steps.h"
#include "offload/connection.h"
#include "offload/recorder.h"

namespace tev::offload {

using lapack::observed_step;
using lapack::span;
using lapack::step_kind;

// What a thread here does while one of the sink's does 1: the sink's products are wider. Of 0.6 to 1 in tenths the
// fastest with one thread on each side, for LU, Cholesky and QR of order 2000 and 4000.
inline constexpr double kSpeedHere = 0.9;

// Threads on both sides, which compute at the same time.
struct core_division {
  int64_t host, sink;

  // Of the work, so that both sides take the same time.
  double part_here() const {
    const double here = kSpeedHere * static_cast<double>(host);
    return here / (here + static_cast<double>(sink));
  }
};

// What the blocks beyond a panel look like.
enum class block_shape {
  columns,           // all are as long as the matrix
  triangle,          // they get shorter
  without_diagonal,  // and the squares on the diagonal are updated here, the sink's blocks' too
};

// Of the blocks beyond a panel the first one that belongs to the sink. A panel takes about as long as the update of one
// block. Of a triangle of n blocks, x n stay here, which are 1 - (1 - x)^2 of its area; squares on the diagonal beyond
// them, half a block each, (1 - x) / n more.
inline int64_t border(int64_t panel, int64_t blocks, const core_division& cores, block_shape shape) {
  const auto beyond = static_cast<double>(blocks - panel - 1);
  if (beyond < 1) return panel + 1;
  const double part = cores.part_here();
  const double share = std::max(0.0, ((beyond + 1) * part - 1) / beyond);
  const double squares = shape == block_shape::without_diagonal ? 1 / beyond : 0;
  const double here =
      shape == block_shape::columns ? share : 1 - (squares + std::sqrt(squares * squares + 4 * (1 - share))) / 2;
  return panel + 1 + std::max<int64_t>(std::llround(here * beyond), 1);
}

// Factorization: as for team_steps; update_diagonal(panel, block), too, where the squares on the diagonal stay here.
// Requests: one of offload/requests.h.
template <class Factorization, class Requests>
class sink_steps final : public lapack::steps {
 public:
  sink_steps(connection& sink, const core_division& cores, Factorization& what, const Requests& requests,
             int64_t panels, int64_t blocks, recorder& observer)
      : sink_(sink),
        cores_(cores),
        what_(what),
        requests_(requests),
        panels_(panels),
        blocks_(blocks),
        recorder_(observer.is_recording() ? &observer : nullptr),
        observer_(observer.has_listener() ? &observer : nullptr),
        busy_(recorder_ != nullptr ? sink.busy_seconds() : 0) {
    lines_.resize(static_cast<size_t>(blocks));
  }

  sink_steps(const sink_steps&) = delete;
  sink_steps& operator=(const sink_steps&) = delete;
  ~sink_steps() { sink_.wait_for_all(); }  // answers are told to this object

  void run() {
    if (observer_ != nullptr) observer_->begins(panels_);
    if (cores_.host == 1) return run_with_lookahead(panels_, blocks_, *this);
    blas::run_team(cores_.host, [this](int64_t thread, int64_t) { thread == 0 ? run_as_first() : serve(thread); });
    if (thrown_) std::rethrow_exception(thrown_);
  }

 private:
  static constexpr size_t kMostUnderWay = 4;  // updates that the sink has: work for about two panels

  struct task {
    int64_t panel, block;
    bool only_diagonal;
  };
  struct line {
    std::vector<task> tasks;  // to be done here, in this order
    size_t done = 0;          // of them
    bool taken = false;       // the next one is being done
    int64_t request = 0;      // the last one that the sink has for the block

    bool is_empty() const { return done == tasks.size(); }
  };
  line& line_of(int64_t block) { return lines_[static_cast<size_t>(block)]; }

  void run_as_first() {
    try {
      run_with_lookahead(panels_, blocks_, *this);
    } catch (...) {
      thrown_ = std::current_exception();
    }
    const std::lock_guard held(lock_);
    closed_ = true;
  }
  void serve(int64_t thread) {
    work_until(thread, [this] { return closed_; });
  }

  bool factor(int64_t panel) override {
    if (has_ended()) return false;
    const observed_step observed(observer_, step_kind::panel, 0, panel, {panel, panel + 1});
    return what_.factor(panel);
  }

  void update(int64_t panel, span blocks) override {
    const int64_t first = std::clamp(border_of(panel), blocks.begin, blocks.end);
    const int64_t stays = std::clamp(border_of(panel + 1), first, blocks.end);
    {
      const std::lock_guard held(lock_);
      for (int64_t b = blocks.begin; b < first; ++b) line_of(b).tasks.push_back({panel, b, false});
      if (Requests::kShape == block_shape::without_diagonal)
        for (int64_t b = first; b < blocks.end; ++b) line_of(b).tasks.push_back({panel, b, true});
    }
    send(panel, {first, stays});
    send(panel, {stays, blocks.end});
  }

  void wait_for(int64_t block) override {
    const line& own = line_of(block);
    work_until(0, [this, &own] { return sink_.has_ended() || (own.is_empty() && sink_.is_done(own.request)); });
  }

  bool has_ended() {
    const std::lock_guard held(lock_);
    return sink_.has_ended();
  }

  // What finishes the blocks at the end is done here.
  int64_t border_of(int64_t panel) const {
    return panel >= panels_ ? blocks_ : border(panel, blocks_, cores_, Requests::kShape);
  }

  void send(int64_t panel, const span& blocks) {
    if (blocks.size() < 1) return;
    work_until(0, [this] {
      while (!under_way_.empty() && sink_.is_done(under_way_.front())) under_way_.pop_front();
      return under_way_.size() < kMostUnderWay;
    });
    const std::lock_guard held(lock_);
    const double begin = recorder_ != nullptr ? lapack::clock_seconds() : 0;
    int64_t number = 0;
    for (const step_request& request : requests_(panel, blocks)) number = sink_.send(request);
    for (int64_t b = blocks.begin; b < blocks.end; ++b) line_of(b).request = number;
    under_way_.push_back(number);
    if (recorder_ == nullptr) return;
    recorder_->saw_request(panel, blocks, begin);
    sink_.ask_busy_seconds([this, panel, blocks, begin](double busy) {
      recorder_->saw_sink(panel, blocks, begin, busy - busy_);
      busy_ = busy;
    });
  }

  // The condition is asked under the lock, which everything that threads share is under.
  template <class Condition>
  void work_until(int64_t thread, const Condition& holds) {
    while (const std::optional<task> next = next_task(thread, holds)) {
      {
        const observed_step observed(observer_, step_kind::update, thread, next->panel, {next->block, next->block + 1});
        if constexpr (Requests::kShape == block_shape::without_diagonal)
          if (next->only_diagonal) what_.update_diagonal(next->panel, next->block);
        if (!next->only_diagonal) what_.update(next->panel, {next->block, next->block + 1});
      }
      const std::lock_guard held(lock_);
      line& own = line_of(next->block);
      own.taken = false;
      ++own.done;
    }
  }

  // None: the condition holds. One thread alone sleeps until the sink has done something.
  template <class Condition>
  std::optional<task> next_task(int64_t thread, const Condition& holds) {
    const observed_step observed(observer_, step_kind::wait, thread, 0, {0, 0});
    std::optional<task> task;
    const auto is_over = [&] {
      const std::lock_guard held(lock_);
      if (holds()) return true;
      task = take();
      return task.has_value();
    };
    if (cores_.host == 1)
      while (!is_over()) sink_.wait_for_oldest();
    else
      blas::wait_until(is_over, blas::TEV_BARRIER_YIELD_MAX_CYCLES);
    return task;
  }

  // Nothing that can be done at present: none. The diagonal is nobody else's.
  std::optional<task> take() {
    for (line& own : lines_) {
      if (own.taken || own.is_empty()) continue;
      const task& next = own.tasks[own.done];
      if (!next.only_diagonal && !sink_.is_done(own.request)) continue;
      own.taken = true;
      return next;
    }
    return std::nullopt;
  }

  connection& sink_;
  const core_division cores_;
  Factorization& what_;
  const Requests requests_;
  const int64_t panels_, blocks_;
  recorder* const recorder_;  // null: nothing is recorded
  lapack::step_observer* const observer_;
  double busy_;  // seconds of the sink, when its last answer came

  std::mutex lock_;  // the connection and all below
  std::vector<line> lines_;
  std::deque<int64_t> under_way_;  // the last request of each update
  bool closed_ = false;
  std::exception_ptr thrown_;
};

}  // namespace tev::offload
