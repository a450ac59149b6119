// SPDX-License-Identifier: BSD-3-Clause
// The Euclidean norm of a vector. Squares are summed in double as they are, and that is the norm if nothing over- or
// underflowed in a way that shows: always in single precision, nearly always in double.
#pragma once

#include "kernels/families/reduction-inl.h"

namespace tev::TEV_TIER {

TEV_INLINE double squares(int64_t n, const float* x, int64_t incx) { return dot_in_double(n, x, incx, x, incx); }
TEV_INLINE double squares(int64_t n, const double* x, int64_t incx) { return dot(false, n, x, incx, x, incx); }

// Between these no square that is lost below the smallest number can be missed: 2^40 of them are less than half a unit
// in the last place.
inline constexpr double kLeastSum = 0x1p-900, kLargestSum = 0x1p+1000;

// Otherwise sums by range: of small numbers times 2^537, medium ones, large ones times 2^-538, so that no square of
// them overflows or loses digits. (J. L. Blue, ACM TOMS 4, 1978; the limits are those of E. Anderson, ACM TOMS 44,
// 2017.)
inline constexpr double kSmall = 0x1p-511, kLarge = 0x1p+486, kSmallTimes = 0x1p+537, kLargeTimes = 0x1p-538;

struct ranges {
  double small = 0, medium = 0, large = 0;

  TEV_INLINE void add(double x) {
    x = __builtin_fabs(x);
    if (x > kLarge)
      large += x * kLargeTimes * (x * kLargeTimes);
    else if (x < kSmall)
      small += x * kSmallTimes * (x * kSmallTimes);
    else  // also NaN
      medium += x * x;
  }
  TEV_INLINE double norm() const {
    if (large > 0) return __builtin_sqrt(large + medium * kLargeTimes * kLargeTimes) / kLargeTimes;
    if (small == 0) return __builtin_sqrt(medium);
    // Small and medium: their norms are far enough from both ends to be squared relative to the larger one.
    const double a = __builtin_sqrt(medium), b = __builtin_sqrt(small) / kSmallTimes;
    if (!(a > 0)) return a != a ? a : b;
    const double most = a > b ? a : b, ratio = (a > b ? b : a) / most;
    return most * __builtin_sqrt(1 + ratio * ratio);
  }
};

// n elements of `parts` numbers each, `distance` numbers from one to the next.
__attribute__((noinline)) inline double norm_by_range(int64_t n, int64_t parts, const double* x, int64_t distance) {
  ranges of;
  for (; n > 0; --n, x += distance)
    for (int64_t part = 0; part < parts; ++part) of.add(x[part]);
  return of.norm();
}

// Of the sum of its squares as they are.
template <class T>
TEV_INLINE real_of<T> norm_of(double sum, int64_t n, const T* x, int64_t incx) {
  using R = real_of<T>;
  constexpr int64_t kPart = kParts<T>;
  if constexpr (sizeof(R) == sizeof(double))  // no square of a float is lost
    if (!(sum >= kLeastSum && sum <= kLargestSum))
      return norm_by_range(n, kPart, reals(x), kPart * (incx < 0 ? -incx : incx));
  return static_cast<R>(__builtin_sqrt(sum));
}

// Apart, so that a short vector without gaps pays for none of its registers.
template <class T>
__attribute__((noinline)) real_of<T> norm_with_gaps(int64_t n, const T* x, int64_t incx) {
  constexpr int64_t kPart = kParts<T>;
  double sum = squares(n, reals(x), kPart * incx);
  if constexpr (kPart == 2) sum += squares(n, reals(x) + 1, kPart * incx);
  return norm_of(sum, n, x, incx);
}

template <class T>
TEV_INLINE real_of<T> norm(int64_t n, const T* x, int64_t incx) {
  if (n < 1) return 0;
  if (incx != 1) return norm_with_gaps(n, x, incx);
  return norm_of(squares(n * kParts<T>, reals(x), 1), n, x, 1);
}

}  // namespace tev::TEV_TIER
