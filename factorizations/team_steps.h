// SPDX-License-Identifier: BSD-3-Clause
// Steps in this process. The calling thread factors the panels and takes updates while it waits; the other threads of
// its team take updates all the time. Every call below is on one thread alone.
#pragma once

#include <optional>

#include "blas_threading/team/barrier.h"
#include "blas_threading/team/team.h"
#include "blas_threading/team/waiting.h"
#include "factorizations/block_queue.h"
#include "factorizations/step_observer.h"
#include "factorizations/steps.h"

namespace tev::lapack {

// Factorization: factor(panel), update(panel, blocks). `panels` and `blocks`: as in run_with_lookahead.
template <class Factorization>
class team_steps final : public steps {
 public:
  team_steps(Factorization& what, int64_t panels, int64_t blocks, const plan& p)
      : what_(what), panels_(panels), blocks_(blocks), queue_(panels, blocks, p.group, p.parts) {}

  bool has_memory() const { return queue_.has_memory(); }

  // The thread that is number 0 of its team calls run(), the others call serve().
  void run() {
    if (observer_ != nullptr) observer_->begins(panels_);
    run_with_lookahead(panels_, blocks_, *this);
    queue_.close();
  }
  void serve(int64_t thread) {
    work_until(thread, [this] { return queue_.is_closed(); });
  }

 private:
  bool factor(int64_t panel) override {
    const observed_step observed(observer_, step_kind::panel, 0, panel, {panel, panel + 1});
    return what_.factor(panel);
  }
  void update(int64_t, span blocks) override { queue_.ask(blocks); }
  void wait_for(int64_t block) override {
    work_until(0, [this, block] { return queue_.is_done(block); });
  }

  template <class Condition>
  void work_until(int64_t thread, const Condition& holds) {
    while (const std::optional<block_queue::task> task = next_task(thread, holds)) {
      const observed_step observed(observer_, step_kind::update, thread, task->panel, task->blocks);
      what_.update(task->panel, task->blocks);
      queue_.give_back(*task);
    }
  }

  // None: the condition holds.
  template <class Condition>
  std::optional<block_queue::task> next_task(int64_t thread, const Condition& holds) {
    const observed_step observed(observer_, step_kind::wait, thread, 0, {0, 0});
    block_queue::task task = {0, {0, 0}};
    bool ends = false;
    blas::wait_until(
        [&] {
          ends = holds();
          if (!ends) task = queue_.take();
          return ends || !task.is_none();
        },
        blas::TEV_BARRIER_YIELD_MAX_CYCLES);
    return ends ? std::nullopt : std::optional(task);
  }

  Factorization& what_;
  const int64_t panels_, blocks_;
  step_observer* const observer_ = observer_of_this_thread;
  block_queue queue_;
};

// False: there was no memory for the tasks, and nothing has been done.
template <class Factorization>
bool run_on_team(Factorization& what, int64_t panels, int64_t blocks, const plan& p) {
  team_steps<Factorization> all(what, panels, blocks, p);
  if (!all.has_memory()) return false;
  blas::run_team(p.threads, [&](int64_t thread, int64_t) { thread == 0 ? all.run() : all.serve(thread); });
  return true;
}

}  // namespace tev::lapack
