// SPDX-License-Identifier: BSD-3-Clause
// Scalar intrinsics. Each pair of precisions is one template, except where the single-precision form is defined as the
// double-precision one, narrowed.
#include "service/scalar.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

char upper(char letter) { return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter; }

template <class T>
T sign(T a, T b) {
  return b < 0 ? -std::abs(a) : std::abs(a);
}

template <class T>
T power(T base, int32_t exponent) {
  uint64_t left = static_cast<uint64_t>(std::abs(static_cast<int64_t>(exponent)));  // -2^31 has no 32-bit magnitude
  if (exponent < 0) {
    base = T(1) / base;
  }
  T result = 1;
  while (left != 0) {
    if (left % 2 != 0) {
      result *= base;
      left -= 1;
    } else {
      base *= base;
      left /= 2;
    }
  }
  return result;
}

int32_t truncate(double value) {
  const bool fits = value > -2147483649.0 && value < 2147483648.0;
  return fits ? static_cast<int32_t>(value) : std::numeric_limits<int32_t>::min();
}

int32_t round_away(double value) { return truncate(value > 0 ? value + 0.5 : value - 0.5); }

template <class T>
T ceiling(int64_t value) {
  const T nearest = static_cast<T>(value);
  const T too_large_to_convert_back = static_cast<T>(0x1p63);
  if (nearest >= too_large_to_convert_back || static_cast<int64_t>(nearest) >= value) {
    return nearest;
  }
  return std::nextafter(nearest, std::numeric_limits<T>::infinity());
}

}  // namespace

extern "C" {

int tev_serv_lsame(const char* a, const char* b) { return a != nullptr && b != nullptr && upper(*a) == upper(*b); }

float tev_serv_s_sign(const float* a, const float* b) { return sign(*a, *b); }
double tev_serv_d_sign(const double* a, const double* b) { return sign(*a, *b); }

float tev_serv_s_powi(const float* base, const int32_t* exponent) { return power(*base, *exponent); }
double tev_serv_d_powi(const double* base, const int32_t* exponent) { return power(*base, *exponent); }

int32_t tev_serv_s_int(const float* value) { return truncate(*value); }
int32_t tev_serv_d_int(const double* value) { return truncate(*value); }

int32_t tev_serv_s_round(const float* value) { return round_away(*value); }  // in double: value + 0.5 is exact
int32_t tev_serv_d_round(const double* value) { return round_away(*value); }

float tev_serv_c_abs(const tev_complex8* value) { return static_cast<float>(tev_serv_hypot(value->real, value->imag)); }

double tev_serv_z_abs(const tev_complex16* value) { return tev_serv_hypot(value->real, value->imag); }

void tev_serv_c_sqrt(tev_complex8* result, const tev_complex8* value) {
  double re, im;
  tev_serv_sqrt(&re, &im, value->real, value->imag);
  *result = {static_cast<float>(re), static_cast<float>(im)};
}

void tev_serv_z_sqrt(tev_complex16* result, const tev_complex16* value) {
  double re, im;
  tev_serv_sqrt(&re, &im, value->real, value->imag);
  *result = {re, im};
}

double tev_serv_hypot(double x, double y) {
  if (std::isinf(x) || std::isinf(y)) {
    return std::numeric_limits<double>::infinity();
  }
  const double largest = std::max(std::abs(x), std::abs(y));
  const double scale = largest > 0x1p500 ? 0x1p-600 : largest < 0x1p-450 ? 0x1p600 : 1.0;  // exact; squares stay normal
  x *= scale;
  y *= scale;
  return std::sqrt(x * x + y * y) / scale;
}

void tev_serv_sqrt(double* re, double* im, double x, double y) {
  // Scaled by 2^-2 or 2^108, the sums below neither overflow nor lose bits to underflow; the root scales by 2^-1, 2^54.
  const double largest = std::max(std::abs(x), std::abs(y));
  const bool huge = largest > 0x1p1020;
  const bool tiny = largest < 0x1p-960;
  const double scale = huge ? 0x1p-2 : tiny ? 0x1p108 : 1.0;
  const double root_scale = huge ? 0x1p-1 : tiny ? 0x1p54 : 1.0;
  x *= scale;
  y *= scale;
  const double h = tev_serv_hypot(x, y);
  if (h == 0) {
    *re = *im = 0;
    return;
  }
  // The part that is computed by a sum of equal signs comes first; the other follows from 2 re im = y.
  if (x > 0) {
    const double root = std::sqrt((h + x) / 2);
    *re = root / root_scale;
    *im = y / (2 * root) / root_scale;
  } else {
    const double root = std::copysign(std::sqrt((h - x) / 2), y < 0 ? -1.0 : 1.0);
    *im = root / root_scale;
    *re = y / (2 * root) / root_scale;
  }
}

float tev_serv_int2f_ceil(const int64_t* value) { return ceiling<float>(*value); }
double tev_serv_int2d_ceil(const int64_t* value) { return ceiling<double>(*value); }

}  // extern "C"
