// SPDX-License-Identifier: BSD-3-Clause
// Row interchanges beside a loop that only reads and writes the same lines of memory in the same order.
//
//   bench/interchanges [--columns 4000] [--rows 4000] [--pivots 128] [--threads 2] [--rounds 15]
//
// A row for each precision: the median of all rounds for both, in which they take turns on the same matrix, and the
// loop's time over ours. GB/s: two elements read and written for each interchange.
#include <algorithm>
#include <cstdio>
#include <random>
#include <vector>

#include "bench/program.h"
#include "blas_threading/element.h"
#include "tev/lapack.h"
#include "tev/service.h"

namespace {

using tev::bench::median;
using tev::bench::seconds;

struct settings {
  int64_t columns = 4000, rows = 4000, pivots = 128, threads = 2, rounds = 15;
};

// As the pivots of a panel: each row with one of those below it.
std::vector<int64_t> random_pivots(const settings& s) {
  std::mt19937_64 random(1);
  std::vector<int64_t> pivots;
  for (int64_t row = 1; row <= s.pivots; ++row)
    pivots.push_back(std::uniform_int_distribution<int64_t>(row, s.rows)(random));
  return pivots;
}

// By columns, or, complex, by blocks of 16 of them.
template <class T>
void touch(const settings& s, T* a, const int64_t* pivots) {
  constexpr int64_t kBlock = tev::blas::kComplex<T> ? 16 : 1;
  const auto touch_element = [](T* element) {
    volatile auto* part = reinterpret_cast<typename tev::blas::element<T>::real*>(element);
    *part = *part;
  };
#pragma omp parallel for schedule(static) num_threads(static_cast <int>(s.threads))
  for (int64_t first = 0; first < s.columns; first += kBlock)
    for (int64_t i = 0; i < s.pivots; ++i)
      for (int64_t j = first; j < std::min(first + kBlock, s.columns); ++j) {
        touch_element(a + j * s.rows + i);
        touch_element(a + j * s.rows + pivots[i] - 1);
      }
}

template <class T, class Routine>
void measure(char letter, const settings& s, Routine* laswp) {
  const std::vector<int64_t> pivots = random_pivots(s);
  std::vector<T> a(static_cast<size_t>(s.rows * s.columns));
  std::vector<double> ours, loop;
  const int64_t first = 1, step = 1;
  for (int64_t round = 0; round <= s.rounds; ++round) {
    const double swapped =
        seconds(s.threads > 1, [&] { laswp(&s.columns, a.data(), &s.rows, &first, &s.pivots, pivots.data(), &step); });
    const double touched = seconds(s.threads > 1, [&] { touch(s, a.data(), pivots.data()); });
    if (round > 0) ours.push_back(swapped), loop.push_back(touched);  // the first brings the team and the pages
  }
  const double bytes = 4.0 * static_cast<double>(s.columns * s.pivots) * sizeof(T);
  const double mine = median(ours), theirs = median(loop);
  std::printf("%claswp  %8.3f ms  %6.2f GB/s   loop %8.3f ms   %4.0f %%\n", letter, mine * 1e3, bytes / mine / 1e9,
              theirs * 1e3, 100 * theirs / mine);
}

}  // namespace

int main(int argc, char** argv) {
  settings s;
  if (!tev::bench::read_numbers(argc, argv,
                                {{"--columns", &s.columns},
                                 {"--rows", &s.rows},
                                 {"--pivots", &s.pivots},
                                 {"--threads", &s.threads},
                                 {"--rounds", &s.rounds}}))
    return 2;
  if (s.pivots > s.rows) return std::fputs("more pivots than rows\n", stderr), 2;
  tev_serv_set_num_threads(static_cast<int32_t>(s.threads));
  measure<float>('s', s, tev_lapack_slaswp);
  measure<double>('d', s, tev_lapack_dlaswp);
  measure<tev_complex8>('c', s, tev_lapack_claswp);
  measure<tev_complex16>('z', s, tev_lapack_zlaswp);
}
