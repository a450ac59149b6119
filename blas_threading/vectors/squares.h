// SPDX-License-Identifier: BSD-3-Clause
// Whether a sum of squares, added up in double, shows that none of them over- or underflowed.
#pragma once

#include <type_traits>

namespace tev::blas {

// Between these no square that is lost below the smallest number can be missed: 2^40 of them are less than half a unit
// in the last place.
inline constexpr double kLeastSum = 0x1p-900, kLargestSum = 0x1p+1000;

// R: what was squared. Squares of floats always are.
template <class R>
bool squares_are_whole(double sum) {
  return std::is_same_v<R, float> || (sum >= kLeastSum && sum <= kLargestSum);
}

}  // namespace tev::blas
