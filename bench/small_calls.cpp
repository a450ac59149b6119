// SPDX-License-Identifier: BSD-3-Clause
// What the standard interface costs: dgemm_ and some others of libtevblas beside the function of the library that
// computes and the single-threaded entry that this one ends in.
//
//   bench/small_calls [SIZE [ROUNDS]]     default 4 and 51
//
// Nanoseconds per call: the best of ROUNDS samples of each, taken in turns.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "kernels/dispatch/dispatch.h"
#include "tev/blas.h"
#include "tev/service.h"

extern "C" {
void dgemm_(const char*, const char*, const int*, const int*, const int*, const double*, const double*, const int*,
            const double*, const int*, const double*, double*, const int*);
void dgemv_(const char*, const int*, const int*, const double*, const double*, const int*, const double*, const int*,
            const double*, double*, const int*);
void daxpy_(const int*, const double*, const double*, const int*, double*, const int*);
double ddot_(const int*, const double*, const int*, const double*, const int*);
void dscal_(const int*, const double*, double*, const int*);
}

namespace {

constexpr int kCalls = 5000;
constexpr int64_t kOne = 1;
constexpr int kNarrowOne = 1;

double nanoseconds_per_call(const auto& call) {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kCalls; ++i) call();
  const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - start;
  return time.count() / kCalls;
}

void compare(const char* name, int rounds, const auto& entry, const auto& front_end, const auto& standard) {
  double best[] = {1e30, 1e30, 1e30};
  for (int round = 0; round < rounds; ++round) {
    best[0] = std::min(best[0], nanoseconds_per_call(entry));
    best[1] = std::min(best[1], nanoseconds_per_call(front_end));
    best[2] = std::min(best[2], nanoseconds_per_call(standard));
  }
  std::printf("%-6s %10.1f %10.1f %10.1f %+10.1f\n", name, best[0], best[1], best[2], best[2] - best[0]);
}

}  // namespace

int main(int argc, char** argv) {
  const int n = argc > 1 ? std::max(1, std::atoi(argv[1])) : 4;
  const int rounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 51;
  const int64_t w = n;
  const double alpha = 1, zero = 0;
  tev_serv_trust_features(1);  // as libtevblas does
  std::vector<double> matrix(static_cast<size_t>(n) * n, 1), vector(n, 1), result(static_cast<size_t>(n) * n, 0);
  const double *a = matrix.data(), *x = vector.data();
  double *c = result.data(), sum = 0;
  std::printf("#           entry     tev_...   standard      above   ns, size %d\n", n);
  compare(
      "dgemm", rounds, [&] { tev_blas_xdgemm("N", "N", &w, &w, &w, &alpha, a, &w, a, &w, &zero, c, &w); },
      [&] { tev_blas_dgemm("N", "N", &w, &w, &w, &alpha, a, &w, a, &w, &zero, c, &w); },
      [&] { dgemm_("N", "N", &n, &n, &n, &alpha, a, &n, a, &n, &zero, c, &n); });
  compare(
      "dgemv", rounds, [&] { tev_blas_xdgemv("N", &w, &w, &alpha, a, &w, x, &kOne, &zero, c, &kOne); },
      [&] { tev_blas_dgemv("N", &w, &w, &alpha, a, &w, x, &kOne, &zero, c, &kOne); },
      [&] { dgemv_("N", &n, &n, &alpha, a, &n, x, &kNarrowOne, &zero, c, &kNarrowOne); });
  compare(
      "daxpy", rounds, [&] { tev_blas_xdaxpy(&w, &zero, x, &kOne, c, &kOne); },
      [&] { tev_blas_daxpy(&w, &zero, x, &kOne, c, &kOne); },
      [&] { daxpy_(&n, &zero, x, &kNarrowOne, c, &kNarrowOne); });
  compare(
      "dscal", rounds, [&] { tev_blas_xdscal(&w, &alpha, c, &kOne); }, [&] { tev_blas_dscal(&w, &alpha, c, &kOne); },
      [&] { dscal_(&n, &alpha, c, &kNarrowOne); });
  compare(
      "ddot", rounds, [&] { sum += tev_blas_xddot(&w, x, &kOne, x, &kOne); },
      [&] { sum += tev_blas_ddot(&w, x, &kOne, x, &kOne); }, [&] { sum += ddot_(&n, x, &kNarrowOne, x, &kNarrowOne); });
  return sum < 0 ? 1 : 0;
}
