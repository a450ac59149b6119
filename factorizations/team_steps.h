// SPDX-License-Identifier: BSD-3-Clause
// Steps in this process. The calling thread factors the panels and takes updates while it waits; the other threads of
// its team take updates all the time. Every call below is on one thread alone.
#pragma once

#include "blas_threading/team/barrier.h"
#include "blas_threading/team/team.h"
#include "blas_threading/team/waiting.h"
#include "factorizations/block_queue.h"
#include "factorizations/steps.h"

namespace tev::lapack {

// Factorization: factor(panel), update(panel, blocks). `panels` and `blocks`: as in run_with_lookahead.
template <class Factorization>
class team_steps final : public steps {
 public:
  team_steps(Factorization& what, int64_t panels, int64_t blocks, int64_t group)
      : what_(what), panels_(panels), blocks_(blocks), queue_(panels, blocks, group) {}

  // The thread that is number 0 of its team calls run(), the others call serve().
  void run() {
    run_with_lookahead(panels_, blocks_, *this);
    queue_.close();
  }
  void serve() {
    work_until([this] { return queue_.is_closed(); });
  }

 private:
  bool factor(int64_t panel) override { return what_.factor(panel); }
  void update(int64_t, span blocks) override { queue_.ask(blocks); }
  void wait_for(int64_t block) override {
    work_until([this, block] { return queue_.is_done(block); });
  }

  template <class Condition>
  void work_until(const Condition& holds) {
    for (;;) {
      block_queue::task task = {0, {0, 0}};
      bool ends = false;
      blas::wait_until(
          [&] {
            ends = holds();
            if (!ends) task = queue_.take();
            return ends || !task.is_none();
          },
          blas::TEV_BARRIER_YIELD_MAX_CYCLES);
      if (ends) return;
      what_.update(task.panel, task.blocks);
      queue_.give_back(task);
    }
  }

  Factorization& what_;
  const int64_t panels_, blocks_;
  block_queue queue_;
};

template <class Factorization>
void run_on_team(Factorization& what, int64_t panels, int64_t blocks, const plan& p) {
  team_steps<Factorization> all(what, panels, blocks, p.group);
  blas::run_team(p.threads, [&](int64_t thread, int64_t) { thread == 0 ? all.run() : all.serve(); });
}

}  // namespace tev::lapack
