// SPDX-License-Identifier: BSD-3-Clause
#include "factorizations/reflector.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "factorizations/kernels.h"
#include "factorizations/scalars.h"

namespace tev::lapack {

namespace {

template <class T>
const real_of<T>* parts_of(const T* x) {
  return reinterpret_cast<const real_of<T>*>(x);
}

// By the kernels, on the calling thread alone. Squares of float are exact in double and have room there.
double sum_of_squares(const float* x, int64_t n) {
  const int64_t step = 1;
  return n > 0 ? tev_blas_xsdot_in_double(&n, x, &step, x, &step) : 0;
}
double sum_of_squares(const double* x, int64_t n) {
  const int64_t step = 1;
  return n > 0 ? tev_blas_xddot(&n, x, &step, x, &step) : 0;
}

// Divided by the largest of them. Where that is infinite or all are zero it is the result.
double scaled_norm(const double* x, int64_t n) {
  double largest = 0;
  for (int64_t i = 0; i < n; ++i) largest = std::max(largest, std::abs(x[i]));
  if (largest == 0 || !std::isfinite(largest)) return largest;
  double sum = 0;
  for (int64_t i = 0; i < n; ++i) sum += (x[i] / largest) * (x[i] / largest);
  return largest * std::sqrt(sum);
}

// Below it the squares that vanished may matter.
constexpr double kSmallestSum = std::numeric_limits<double>::min() / std::numeric_limits<double>::epsilon() / 1e-12;

double norm_of_parts(const float* x, int64_t n) { return std::sqrt(sum_of_squares(x, n)); }
double norm_of_parts(const double* x, int64_t n) {
  const double sum = sum_of_squares(x, n);
  const bool is_out_of_range = sum < kSmallestSum || std::isinf(sum);
  return is_out_of_range ? scaled_norm(x, n) : std::sqrt(sum);
}

// Real and imaginary part of alpha beside the norm of x.
template <class T>
real_of<T> norm_with(const T& alpha, real_of<T> norm_of_x) {
  real_of<T> all[3] = {norm_of_x, real_part(alpha), 0};
  if constexpr (kComplex<T>) all[2] = alpha.imag;
  return static_cast<real_of<T>>(norm_of_parts(all, 3));
}

template <class T>
bool is_real(const T& x) {
  if constexpr (kComplex<T>)
    return x.imag == 0;
  else
    return true;
}

template <class T>
void scale(int64_t n, T factor, T* x) {
  const int64_t step = 1;
  kernel_calls<T>::xscal(&n, &factor, x, &step);
}

}  // namespace

template <class T>
real_of<T> norm2(const T* x, int64_t n) {
  return static_cast<real_of<T>>(norm_of_parts(parts_of(x), n * blas::element<T>::kParts));
}

template <class T>
T generate_reflector(int64_t n, T& alpha, T* x) {
  using R = real_of<T>;
  constexpr R kSmallest = kSafeMinimum<R> / kRoundoff<R>, kLargest = 1 / kSmallest;
  constexpr int kMostScalings = 20;
  const int64_t rest = n - 1;
  R norm = norm2(x, rest);
  if (norm == 0 && is_real(alpha)) return element_of<T>(0);
  R beta = -std::copysign(norm_with(alpha, norm), real_part(alpha));
  int scalings = 0;
  for (; std::abs(beta) < kSmallest && scalings < kMostScalings; ++scalings) {
    scale(rest, real_element<T>(kLargest), x);
    alpha = product(alpha, real_element<T>(kLargest));
    beta *= kLargest;
  }
  if (scalings > 0) {
    norm = norm2(x, rest);
    beta = -std::copysign(norm_with(alpha, norm), real_part(alpha));
  }
  T tau = real_element<T>((beta - real_part(alpha)) / beta);
  if constexpr (kComplex<T>) tau.imag = -alpha.imag / beta;
  scale(rest, quotient(element_of<T>(1), difference(alpha, real_element<T>(beta))), x);
  for (; scalings > 0; --scalings) beta *= kSmallest;
  alpha = real_element<T>(beta);
  return tau;
}

#define TEV_REFLECTOR(T)                            \
  template real_of<T> norm2(const T* x, int64_t n); \
  template T generate_reflector(int64_t n, T& alpha, T* x);
TEV_REFLECTOR(float)
TEV_REFLECTOR(double)
TEV_REFLECTOR(tev_complex8)
TEV_REFLECTOR(tev_complex16)
#undef TEV_REFLECTOR

}  // namespace tev::lapack
