// SPDX-License-Identifier: BSD-3-Clause
// The next wider type, in which results are judged.
#pragma once

#include <complex>
#include <type_traits>

namespace tev {

template <class T>
inline constexpr bool kIsComplex = !std::is_floating_point_v<T>;

template <class T>
struct wider;
template <>
struct wider<float> {
  using type = double;
};
template <>
struct wider<double> {
  using type = long double;
};
template <class R>
struct wider<std::complex<R>> {
  using type = std::complex<typename wider<R>::type>;
};
template <class T>
using wide_t = typename wider<T>::type;

template <class T>
T conjugate(const T& x) {
  if constexpr (kIsComplex<T>)
    return std::conj(x);
  else
    return x;
}

}  // namespace tev
