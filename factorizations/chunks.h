// SPDX-License-Identifier: BSD-3-Clause
// Independent pieces of work over the team, each on one thread. What is in a piece is a matter of sizes alone, so the
// result has the same bits on any team.
#pragma once

#include <algorithm>
#include <cstdint>

#include "blas_threading/team/team.h"
#include "tev/service.h"

namespace tev::lapack {

// body(i) once for each i in [0, count), on whichever thread is free. Library calls in it stay on that thread.
template <class Body>
void for_chunks(int64_t count, const Body& body) {
  int64_t next = 0;
  const auto work = [&](int64_t, int64_t) {
    const int32_t before = tev_serv_set_num_threads_local(1);
    for (int64_t i; (i = __atomic_fetch_add(&next, 1, __ATOMIC_RELAXED)) < count;) body(i);
    tev_serv_set_num_threads_local(before);
  };
  const int64_t threads = std::min(blas::permitted_threads(), count);
  if (threads < 2) return work(0, 1);
  blas::run_team(threads, work);
}

}  // namespace tev::lapack
