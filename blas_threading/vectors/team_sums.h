// SPDX-License-Identifier: BSD-3-Clause
// Vectors to which all threads of a team add: each has one of its own, and they are put together row by row, in the
// order of the threads: by all of them, or, when there is only one to be added, by the caller.
#pragma once

#include "blas_threading/team/barrier.h"
#include "blas_threading/vectors/gapless.h"
#include "blas_threading/vectors/level2.h"

namespace tev::blas {

// Teams of up to so many do not meet for the sums: the caller adds them.
inline constexpr int64_t kTogetherByOne = 2;

// y += what add(thread, team, own) adds to the vector `own` on every thread; the first has y itself. False: no memory
// for the others, nothing was computed.
template <class T, class Add>
bool add_over_team(int64_t n, int64_t threads, const strided<T>& y, const Add& add_share) {
  constexpr int64_t kOne = 1;
  const int64_t distance = round_up(n, 64);
  T* const sums = static_cast<T*>(tev_serv_allocate((threads - 1) * distance * static_cast<int64_t>(sizeof(T)), 4096));
  if (sums == nullptr) return false;
  const auto add_sums = [=](piece rows, int64_t team) {
    const T one = element_of<T>(1);
    for (int64_t other = 1; other < team && rows.size > 0; ++other)
      kernel_calls<T>::xaxpy(&rows.size, &one, sums + (other - 1) * distance + rows.start, &kOne,
                             y.address({rows.start, rows.start + rows.size}), &y.inc);
  };
  int64_t formed = 1;
  barrier_block all_summed = {};
  run_team(threads, [=, &formed, &all_summed](int64_t thread, int64_t team) {
    T* const own = sums + (thread - 1) * distance;
    if (thread == 0)
      formed = team;
    else
      std::fill_n(own, n, T{});
    add_share(thread, team, thread > 0 ? strided<T>{own, 1} : y);
    if (team <= kTogetherByOne) return;
    tev_barrier_wait(&all_summed, thread, team);
    add_sums(piece_of(n, thread, team), team);
  });
  if (formed <= kTogetherByOne) add_sums({0, n}, formed);
  tev_serv_deallocate(sums);
  return true;
}

}  // namespace tev::blas
