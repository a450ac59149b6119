// SPDX-License-Identifier: BSD-3-Clause
// What the front end of a matrix product costs: tev_blas_?gemm beside the single-threaded entry it ends in, for a
// product that is all overhead.
//
//   bench/gemm_front_end [SIZE [ROUNDS]]     default 4 (4 x 4 times 4 x 4) and 51
//
// Nanoseconds per call: the best of ROUNDS samples of each, taken in turns.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "blas_threading/element.h"
#include "kernels/dispatch/dispatch.h"
#include "tev/blas.h"

namespace {

template <class T>
double nanoseconds_per_call(tev::kernels::gemm_fn<T>* gemm, int64_t n, const T* a, T* c) {
  const int calls = static_cast<int>(std::max<int64_t>(20000 / (n * n * n / 64 + 1), 1));
  const T zero{};  // alpha is an element of A
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < calls; ++i) gemm("N", "N", &n, &n, &n, a, a, &n, a, &n, &zero, c, &n);
  const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - start;
  return time.count() / calls;
}

template <class T>
void compare(char letter, tev::kernels::gemm_fn<T>* entry, tev::kernels::gemm_fn<T>* front_end, int64_t n, int rounds) {
  const std::vector<T> a(static_cast<size_t>(n * n), tev::blas::element_of<T>(1));
  std::vector<T> c = a;
  double bare = 1e30, whole = 1e30;
  for (int round = 0; round < rounds; ++round) {
    bare = std::min(bare, nanoseconds_per_call(entry, n, a.data(), c.data()));
    whole = std::min(whole, nanoseconds_per_call(front_end, n, a.data(), c.data()));
  }
  std::printf("%c %10.1f %10.1f %10.1f\n", letter, bare, whole, whole - bare);
}

}  // namespace

int main(int argc, char** argv) {
  const int64_t n = argc > 1 ? std::max(1, std::atoi(argv[1])) : 4;
  const int rounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 51;
  std::printf("#    x?gemm      ?gemm  front end   ns, %d x %d x %d\n", static_cast<int>(n), static_cast<int>(n),
              static_cast<int>(n));
  compare<float>('s', tev_blas_xsgemm, tev_blas_sgemm, n, rounds);
  compare<double>('d', tev_blas_xdgemm, tev_blas_dgemm, n, rounds);
  compare<tev_complex8>('c', tev_blas_xcgemm, tev_blas_cgemm, n, rounds);
  compare<tev_complex16>('z', tev_blas_xzgemm, tev_blas_zgemm, n, rounds);
}
