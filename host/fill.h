// SPDX-License-Identifier: BSD-3-Clause
// Operands from a seed: the same numbers on every machine. What a routine must not read is filled with NaN, so that
// reading it shows in the result.
#pragma once

#include <complex>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace tev::host {

// Uniform in [-1, 1), for complex numbers in both parts. (G. Steele, D. Lea, C. Flood, Fast splittable pseudorandom
// number generators, 2014: the mixing of a counter.)
class random_numbers {
 public:
  explicit random_numbers(uint64_t seed) : state_(seed) {}

  template <class T>
  T next() {
    if constexpr (std::is_floating_point_v<T>) {
      constexpr int kDigits = std::numeric_limits<T>::digits;  // all of them, so that sums do round
      return static_cast<T>(bits() >> (64 - kDigits)) * (2 / static_cast<T>(uint64_t{1} << kDigits)) - 1;
    } else {
      const auto real = next<typename T::value_type>();
      return {real, next<typename T::value_type>()};
    }
  }

 private:
  uint64_t bits() {
    uint64_t x = state_ += 0x9e3779b97f4a7c15;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9;
    x = (x ^ (x >> 27)) * 0x94d049bb133111eb;
    return x ^ (x >> 31);
  }

  uint64_t state_;
};

template <class T>
T not_a_number() {
  if constexpr (std::is_floating_point_v<T>)
    return std::numeric_limits<T>::quiet_NaN();
  else
    return {not_a_number<typename T::value_type>(), not_a_number<typename T::value_type>()};
}

template <class T>
void fill_general(T* a, int64_t rows, int64_t columns, uint64_t seed) {
  random_numbers numbers(seed);
  for (int64_t i = 0; i < rows * columns; ++i) a[i] = numbers.next<T>();
}

// One triangle of an n x n matrix; its diagonal, too, unless that is taken as ones (diag 'U').
template <class T>
void fill_triangle(T* a, int64_t n, char uplo, char diag, uint64_t seed) {
  random_numbers numbers(seed);
  for (int64_t j = 0; j < n; ++j)
    for (int64_t i = 0; i < n; ++i) {
      const T x = numbers.next<T>();
      const bool inside = i == j ? diag != 'U' : (i < j) == (uplo == 'U');
      a[i + j * n] = inside ? x : not_a_number<T>();
    }
}

// Makes a filled triangle well conditioned, so that a solution stays about as large as the right side: rows whose
// entries beside the diagonal add up to less than the diagonal, which lies between 2 and 4.
template <class T>
void make_solvable(T* a, int64_t n) {
  using real = decltype(std::real(T()));
  const T scale = T(real(1) / static_cast<real>(n > 0 ? n : 1));
  for (int64_t j = 0; j < n; ++j)
    for (int64_t i = 0; i < n; ++i) a[i + j * n] = i == j ? T(3) + a[i + j * n] : a[i + j * n] * scale;
}

}  // namespace tev::host
