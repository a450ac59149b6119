// SPDX-License-Identifier: BSD-3-Clause
// The four element types: what one text needs to know to serve float, double and the two complex structs.
#pragma once

#include <cstdint>

#include "tev/types.h"

// row(letter, type) for each precision.
#define TEV_FOR_EACH_PRECISION(row) row(s, float) row(d, double) row(c, tev_complex8) row(z, tev_complex16)

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
T conjugate(T x) {
  if constexpr (kComplex<T>)
    return {x.real, -x.imag};
  else
    return x;
}

// x as an element.
template <class T>
T real_element(typename element<T>::real x) {
  if constexpr (kComplex<T>)
    return {x, 0};
  else
    return x;
}

template <class T>
T add(T x, T y) {
  if constexpr (kComplex<T>)
    return {x.real + y.real, x.imag + y.imag};
  else
    return x + y;
}

template <class T>
T multiply(T x, T y) {
  if constexpr (kComplex<T>)
    return {x.real * y.real - x.imag * y.imag, x.real * y.imag + x.imag * y.real};
  else
    return x * y;
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

}  // namespace tev::blas
