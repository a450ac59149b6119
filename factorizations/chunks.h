// SPDX-License-Identifier: BSD-3-Clause
// Independent pieces of work over the team, each on one thread. What is in a piece is a matter of sizes alone, so the
// result has the same bits on any team.
#pragma once

#include <algorithm>
#include <cstdint>

#include "blas_threading/team/team.h"

namespace tev::lapack {

// body(i) once for each i in [0, count), on whichever thread is free.
template <class Body>
void for_chunks(int64_t count, const Body& body) {
  const int64_t threads = std::min(blas::permitted_threads(), count);
  if (threads < 2) {
    for (int64_t i = 0; i < count; ++i) body(i);
    return;
  }
  int64_t next = 0;
  blas::run_team(threads, [&](int64_t, int64_t) {
    for (int64_t i; (i = __atomic_fetch_add(&next, 1, __ATOMIC_RELAXED)) < count;) body(i);
  });
}

}  // namespace tev::lapack
