// SPDX-License-Identifier: BSD-3-Clause
// Numbers of the four types, without the surprises of a plain formula: moduli and quotients neither overflow nor
// underflow before their time.
#pragma once

#include <cmath>
#include <limits>

#include "blas_threading/element.h"

namespace tev::lapack {

// |re| + |im|: by this pivots are compared.
template <class T>
auto modulus1(T x) {
  if constexpr (blas::kComplex<T>)
    return std::abs(x.real) + std::abs(x.imag);
  else
    return std::abs(x);
}

template <class T>
auto modulus(T x) {
  if constexpr (blas::kComplex<T>)
    return std::hypot(x.real, x.imag);
  else
    return std::abs(x);
}

template <class T>
bool is_zero(T x) {
  return blas::is_value(x, 0);
}

template <class T>
auto real_part(T x) {
  if constexpr (blas::kComplex<T>)
    return x.real;
  else
    return x;
}

template <class T>
auto largest_part(T x) {
  if constexpr (blas::kComplex<T>)
    return std::fmax(std::abs(x.real), std::abs(x.imag));
  else
    return std::abs(x);
}

template <class T>
T scaled_by_power(T x, int power) {
  if constexpr (blas::kComplex<T>)
    return {std::ldexp(x.real, power), std::ldexp(x.imag, power)};
  else
    return std::ldexp(x, power);
}

template <class T>
T real_element(typename blas::element<T>::real x) {
  if constexpr (blas::kComplex<T>)
    return {x, 0};
  else
    return x;
}

template <class T>
T product(T x, T y) {
  if constexpr (blas::kComplex<T>)
    return {x.real * y.real - x.imag * y.imag, x.real * y.imag + x.imag * y.real};
  else
    return x * y;
}

template <class T>
T difference(T x, T y) {
  if constexpr (blas::kComplex<T>)
    return {x.real - y.real, x.imag - y.imag};
  else
    return x - y;
}

// x / y, by the larger part of y.
template <class T>
T quotient(T x, T y) {
  if constexpr (blas::kComplex<T>) {
    const bool by_real = std::abs(y.real) >= std::abs(y.imag);
    const auto large = by_real ? y.real : y.imag, small = by_real ? y.imag : y.real;
    const auto ratio = small / large, scale = large + small * ratio;
    if (by_real) return {(x.real + x.imag * ratio) / scale, (x.imag - x.real * ratio) / scale};
    return {(x.real * ratio + x.imag) / scale, (x.imag * ratio - x.real) / scale};
  } else {
    return x / y;
  }
}

// The larger one, or NaN when one of them is.
template <class R>
R larger(R x, R y) {
  return x < y || std::isnan(y) ? y : x;
}

// The reciprocal of anything at least this large is finite.
template <class R>
inline constexpr R kSafeMinimum = std::numeric_limits<R>::min();
// Half the distance of 1 to its neighbour.
template <class R>
inline constexpr R kRoundoff = std::numeric_limits<R>::epsilon() / 2;

}  // namespace tev::lapack
