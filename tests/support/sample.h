// SPDX-License-Identifier: BSD-3-Clause
// One call drawn by chance: options, sizes, scalars, strides, paddings.
#pragma once

#include <sstream>

#include "tests/support/blas_case.h"
#include "tests/support/strided.h"

namespace tev::test {

// One call: where its chances come from, and its description for a failure.
struct sample {
  engine& random;
  values kind;
  std::ostringstream words;

  int64_t below(int64_t n) { return static_cast<int64_t>(random() % static_cast<uint64_t>(n)); }

  template <class Choices>
  auto& one_of(Choices& choices) {
    return choices[static_cast<size_t>(below(std::ssize(choices)))];
  }

  // Small sizes are as likely as large ones of the same ratio; now and then nothing.
  int64_t size(double largest) {
    if (below(32) == 0) return 0;
    return static_cast<int64_t>(std::exp(std::uniform_real_distribution(0.0, std::log(largest + 1))(random)));
  }

  // Sizes whose product is bounded: the oracle is slow.
  template <size_t N>
  std::array<int64_t, N> sizes() {
    std::array<int64_t, N> drawn;
    for (int64_t& n : drawn) n = size(1200);
    const int64_t most = below(32) == 0 ? 8'000'000 : 200'000;
    while (std::accumulate(drawn.begin(), drawn.end(), int64_t{1}, std::multiplies()) > most)
      *std::max_element(drawn.begin(), drawn.end()) /= 2;
    return drawn;
  }

  char letter(std::string_view letters) {
    const char chosen = one_of(letters);
    words << chosen;
    return below(4) == 0 ? static_cast<char>(std::tolower(chosen)) : chosen;
  }

  template <class T>
  T scalar() {
    const T choices[] = {T(0), T(1), T(-1), random_element<T>(random, kind), random_element<T>(random, kind)};
    return one_of(choices);
  }

  int64_t increment() {
    constexpr int64_t kChoices[] = {1, 1, -1, 2, -3, 7};
    return one_of(kChoices);
  }

  template <class T>
  strided<T> vector(int64_t n, bool filled = true) {
    strided<T> x(n, increment());
    words << " inc " << *x.inc();
    return filled ? std::move(x.fill(random, kind)) : std::move(x);
  }

  template <class T>
  matrix<T> general(int64_t rows, int64_t columns, bool filled = true) {
    matrix<T> x(rows, columns, below(20));
    if (filled) x.fill(random, kind);
    return x;
  }

  template <class T>
  blas_case<T> level3(operation op) {
    std::string options;
    for (const std::string_view letters : letters_of<T>(op)) options += letter(letters);
    const auto [m, n, k] = sizes<3>();
    const T alpha = scalar<T>(), beta = in_place(op) ? T(0) : scalar<T>();
    return blas_case<T>(problem_of(op, options, m, n, op == operation::gemm || is_rank_k(op) ? k : 0, alpha, beta),
                        random, kind, below(20));
  }
};

}  // namespace tev::test
