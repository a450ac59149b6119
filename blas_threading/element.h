// SPDX-License-Identifier: BSD-3-Clause
// The four element types and their arithmetic, written once for float, double and the two complex structs.
//
// Complex products are the plain formula (four products, two sums), as Fortran has it: NaN and infinity flow through
// unmended, and loops over it vectorise.
#pragma once

#include <cmath>
#include <cstdint>
#include <type_traits>

#include "tev/types.h"

namespace tev::blas {

// kLetter: the precision in a routine's name. kParts: real numbers per element.
template <class T>
struct element;
template <>
struct element<float> {
  using real = float;
  static constexpr char kLetter = 'S';
  static constexpr int kParts = 1;
};
template <>
struct element<double> {
  using real = double;
  static constexpr char kLetter = 'D';
  static constexpr int kParts = 1;
};
template <>
struct element<tev_complex8> {
  using real = float;
  static constexpr char kLetter = 'C';
  static constexpr int kParts = 2;
};
template <>
struct element<tev_complex16> {
  using real = double;
  static constexpr char kLetter = 'Z';
  static constexpr int kParts = 2;
};

template <class T>
inline constexpr bool kComplex = element<T>::kParts == 2;

template <class T>
T multiply(T x, T y) {
  if constexpr (kComplex<T>)
    return {x.real * y.real - x.imag * y.imag, x.real * y.imag + x.imag * y.real};
  else
    return x * y;
}

template <class T>
T add(T x, T y) {
  if constexpr (kComplex<T>)
    return {x.real + y.real, x.imag + y.imag};
  else
    return x + y;
}

template <class T>
T negate(T x) {
  if constexpr (kComplex<T>)
    return {-x.real, -x.imag};
  else
    return -x;
}

template <class T>
T conjugate(T x) {
  if constexpr (kComplex<T>)
    return {x.real, -x.imag};
  else
    return x;
}

// x / y. Complex by Smith's method: the modulus of y is never squared, so that it can neither overflow nor vanish.
template <class T>
T divide(T x, T y) {
  if constexpr (kComplex<T>) {
    if (std::abs(y.real) >= std::abs(y.imag)) {
      const auto ratio = y.imag / y.real, scale = y.real + y.imag * ratio;
      return {(x.real + x.imag * ratio) / scale, (x.imag - x.real * ratio) / scale};
    }
    const auto ratio = y.real / y.imag, scale = y.imag + y.real * ratio;
    return {(x.real * ratio + x.imag) / scale, (x.imag * ratio - x.real) / scale};
  } else {
    return x / y;
  }
}

// The real number x as an element.
template <class T>
T element_of(int x) {
  if constexpr (kComplex<T>)
    return {static_cast<typename element<T>::real>(x), 0};
  else
    return static_cast<T>(x);
}

// False for NaN.
template <class T>
bool is_value(T x, int value) {
  if constexpr (kComplex<T>)
    return x.real == static_cast<typename element<T>::real>(value) && x.imag == 0;
  else
    return x == static_cast<T>(value);
}

// y := y + t x, n elements that follow each other; x and y do not overlap.
template <class T>
void add_multiple(int64_t n, T t, const T* __restrict x, T* __restrict y) {
  for (int64_t i = 0; i < n; ++i) y[i] = add(y[i], multiply(t, x[i]));
}

// x := t x.
template <class T>
void scale(int64_t n, T t, T* x) {
  for (int64_t i = 0; i < n; ++i) x[i] = multiply(t, x[i]);
}

}  // namespace tev::blas
