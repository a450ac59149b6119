// SPDX-License-Identifier: BSD-3-Clause
// A block reflector applied to a matrix, beside the two products in it alone.
//
//   bench/block_reflector [--order 4000] [--reflectors 128] [--threads 2] [--rounds 9]
//
// A row for each precision and side: medians of rounds in which both take turns, as GFLOP/s by their own products.
#include <cstdio>
#include <random>
#include <vector>

#include "bench/program.h"
#include "blas_threading/blas_calls.h"
#include "blas_threading/element.h"
#include "tev/lapack.h"
#include "tev/service.h"

namespace {

using tev::bench::median;
using tev::bench::seconds;
using tev::blas::blas_calls;
using tev::blas::element_of;
using tev::blas::kComplex;

struct settings {
  int64_t order = 4000, reflectors = 128, threads = 2, rounds = 9;
};

template <class T>
std::vector<T> random_elements(int64_t count) {
  std::mt19937_64 random(1);
  std::uniform_real_distribution<double> part(-1e-3, 1e-3);  // repeated, nothing overflows
  std::vector<T> all(static_cast<size_t>(count));
  using real = typename tev::blas::element<T>::real;
  for (T& x : all)
    if constexpr (kComplex<T>)
      x = {static_cast<real>(part(random)), static_cast<real>(part(random))};
    else
      x = static_cast<real>(part(random));
  return all;
}

template <class T, class Routine>
void measure(char letter, char side, const settings& s, Routine* larfb) {
  const int64_t n = s.order, k = s.reflectors, rest = n - k;
  const T one = element_of<T>(1), minus_one = element_of<T>(-1);
  std::vector<T> c = random_elements<T>(n * n), work(static_cast<size_t>(n * k));
  const std::vector<T> v = random_elements<T>(n * k), t = random_elements<T>(k * k);
  const T* const v2 = v.data() + k;
  T* const c2 = side == 'L' ? c.data() + k : c.data() + k * n;
  std::vector<double> ours, products;
  for (int64_t round = 0; round <= s.rounds; ++round) {
    const double applied = seconds(s.threads > 1, [&] {
      larfb(&side, "N", "F", "C", &n, &n, &k, v.data(), &n, t.data(), &k, c.data(), &n, work.data(), &n, 1, 1, 1, 1);
    });
    const double multiplied = seconds(s.threads > 1, [&] {
      blas_calls<T>::gemm(side == 'L' ? "C" : "N", "N", &n, &k, &rest, &one, c2, &n, v2, &n, &one, work.data(), &n);
      if (side == 'L')
        blas_calls<T>::gemm("N", "C", &rest, &n, &k, &minus_one, v2, &n, work.data(), &n, &one, c2, &n);
      else
        blas_calls<T>::gemm("N", "C", &n, &rest, &k, &minus_one, work.data(), &n, v2, &n, &one, c2, &n);
    });
    if (round > 0) ours.push_back(applied), products.push_back(multiplied);  // the first brings the team and the pages
  }
  const double flops = (kComplex<T> ? 16.0 : 4.0) * static_cast<double>(n * k) * 1e-9;
  const double mine = flops * static_cast<double>(n) / median(ours);
  const double theirs = flops * static_cast<double>(rest) / median(products);
  std::printf("%clarfb %c  %7.1f GFLOP/s   its products %7.1f   %4.0f %%\n", letter, side, mine, theirs,
              100 * mine / theirs);
}

}  // namespace

int main(int argc, char** argv) {
  settings s;
  if (!tev::bench::read_numbers(
          argc, argv,
          {{"--order", &s.order}, {"--reflectors", &s.reflectors}, {"--threads", &s.threads}, {"--rounds", &s.rounds}}))
    return 2;
  if (s.reflectors > s.order) return std::fputs("more reflectors than rows\n", stderr), 2;
  tev_serv_set_num_threads(static_cast<int32_t>(s.threads));
  for (const char side : {'L', 'R'}) {
    measure<float>('s', side, s, tev_lapack_slarfb);
    measure<double>('d', side, s, tev_lapack_dlarfb);
    measure<tev_complex8>('c', side, s, tev_lapack_clarfb);
    measure<tev_complex16>('z', side, s, tev_lapack_zlarfb);
  }
}
