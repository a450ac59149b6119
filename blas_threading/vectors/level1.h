// SPDX-License-Identifier: BSD-3-Clause
// Vectors over the OpenMP team: how many threads a vector is worth, and which contiguous piece of it each one gets.
//
//   10 elements, 3 threads      thread 0: 0 1 2 3    thread 1: 4 5 6    thread 2: 7 8 9
//   the same, increment -1      in memory: 9 8 7 | 6 5 4 | 3 2 1 0      a piece starts at its lowest address, too
#pragma once

#include <algorithm>
#include <cstdint>

#include "blas_threading/team/team.h"
#include "tev/service.h"

namespace tev::blas {

// `size` elements (or columns, or blocks of rows) from `start` on; start 0 when there are none.
struct piece {
  int64_t start, size;
};

// The piece of thread `thread` of `threads` of [0, n): sizes differ by at most one, the larger ones come first.
inline piece piece_of(int64_t n, int64_t thread, int64_t threads) {
  const int64_t size = std::max<int64_t>(n / threads, 1), rest = std::max<int64_t>(n - threads * size, 0);
  if (thread < rest) return {thread * (size + 1), size + 1};
  const int64_t start = thread * size + rest;
  return start < n ? piece{start, std::min(size, n - start)} : piece{0, 0};
}

// What a kernel is given as the address of a piece of the n elements at `base`.
template <class T>
T* address_of(piece p, int64_t n, T* base, int64_t inc) {
  return base + (inc < 0 ? p.start + p.size - n : p.start) * inc;
}

// Bytes of a vector for each thread of a team, which forms from twice as many on. scal moves one vector, copy and axpy
// two.
inline constexpr int64_t kScalChunkBytes = 32768, kPairChunkBytes = 16384;

// Too short for a team in every routine of level 1. Their kernels then get a call's arguments as they are.
template <class T>
bool is_short(int64_t n) {
  return n < 2 * kPairChunkBytes / static_cast<int64_t>(sizeof(T));
}

// Threads for a vector of n elements, `chunk` elements to each. Elements must lie `apart`: with an increment of zero
// the order of the steps is the result.
inline int32_t level1_threads(int64_t n, int64_t chunk, bool apart) {
  if (n < 2 * chunk || !apart) return 1;
  return static_cast<int32_t>(
      std::min(available_threads(kElementWork * static_cast<double>(n)), (n + chunk - 1) / chunk));
}

// One call on a team; the threads only read it.
template <class T>
struct level1_call {
  int64_t n;
  T alpha;          // of scal and axpy
  const T* x;       // null in scal, whose vector is y
  int64_t incx;     // not 0
  T* y;             // read and written, by piece
  int64_t incy;     // not 0
  int32_t tier;     // type code of the processor
  int32_t threads;  // W front end: to ask for; W run_on_team: that the runtime gave
  void (*level1_internal_thread)(const level1_call& call, piece part);
};

// Calls the body once on every thread that has a piece.
template <class T>
void run_on_team(level1_call<T>& call) {
  int32_t given = 1;
  run_team(call.threads, [&](int64_t thread, int64_t threads) {
    if (thread == 0) given = static_cast<int32_t>(threads);
    const piece part = piece_of(call.n, thread, threads);
    if (part.size > 0) call.level1_internal_thread(call, part);
  });
  call.threads = given;
}

}  // namespace tev::blas
