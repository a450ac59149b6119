// SPDX-License-Identifier: BSD-3-Clause
// ?dot, ?asum, ?nrm2, i?amax: one number of vectors. Long vectors are cut into pieces for a team; what the pieces give
// is put together in their order, so that the result depends on the number of threads, not on who was first.
#include <cmath>

#include "blas_threading/element.h"
#include "blas_threading/kernel_calls.h"
#include "blas_threading/vectors/level1.h"
#include "tev/blas.h"

namespace tev::blas {
namespace {

// Bytes of the vectors for each thread; a team forms from twice as many on. Nothing is written, and the result is
// waited for, so pieces are larger than those of axpy, with 48 KiB L1 than with 32.
int64_t read_chunk_bytes() { return tev_serv_get_cache_size(1) >= 48 * 1024 ? 131072 : 98304; }

// Results that are put together after the team has gone: those of the largest team that is asked for.
constexpr int64_t kMostPieces = 64;

// Puts together what of_piece(piece) gives for the pieces of n elements, of `bytes` each.
template <class Result, class OfPiece, class Combine>
Result reduce(int64_t n, int64_t bytes, const OfPiece& of_piece, const Combine& combine) {
  const int64_t threads = std::min<int64_t>(level1_threads(n, read_chunk_bytes() / bytes, true), kMostPieces);
  if (threads < 2) return of_piece(piece{0, n});
  Result results[kMostPieces];
  int64_t pieces = 1;
  run_team(threads, [&](int64_t thread, int64_t team) {
    if (thread == 0) pieces = team;
    results[thread] = of_piece(piece_of(n, thread, team));
  });
  for (int64_t i = 1; i < pieces; ++i) results[0] = combine(results[0], results[i]);
  return results[0];
}

// kernel: xdotu, xdotc, or the one in double.
template <class T, class Result>
Result dot(Result (*kernel)(const int64_t*, const T*, const int64_t*, const T*, const int64_t*), const int64_t* n,
           const T* x, const int64_t* incx, const T* y, const int64_t* incy) {
  if (is_short<T>(*n)) return kernel(n, x, incx, y, incy);
  return reduce<Result>(
      *n, 2 * sizeof(T),
      [&](piece p) { return kernel(&p.size, address_of(p, *n, x, *incx), incx, address_of(p, *n, y, *incy), incy); },
      add<Result>);
}

// ---- Sums of moduli, norms -----------------------------------------------------------------------------------------

// kernel: one of the direct ones.
template <class T, class R>
R asum(R (*kernel)(int64_t, const T*, int64_t), int64_t n, const T* x, int64_t incx) {
  if (is_short<T>(n) || incx < 1) return kernel(n, x, incx);
  return reduce<R>(
      n, sizeof(T), [&](piece p) { return kernel(p.size, x + p.start * incx, incx); }, add<R>);
}

// No square over- or underflows, and a NaN stays one beside an infinity.
double norm_of_both(double x, double y) { return std::isnan(x) || std::isnan(y) ? x + y : std::hypot(x, y); }

template <class T, class R>
R nrm2(R (*kernel)(int64_t, const T*, int64_t), int64_t n, const T* x, int64_t incx) {
  if (is_short<T>(n)) return kernel(n, x, incx);
  return static_cast<R>(reduce<double>(
      n, sizeof(T), [&](piece p) { return double{kernel(p.size, address_of(p, n, x, incx), incx)}; }, norm_of_both));
}

// ---- The largest modulus -------------------------------------------------------------------------------------------

template <class T>
auto modulus(T x) {
  if constexpr (kComplex<T>)
    return std::abs(x.real) + std::abs(x.imag);
  else
    return std::abs(x);
}

// From 1. A NaN at the front is never exceeded; others never exceed.
template <class T>
int64_t iamax(int64_t n, const T* x, int64_t incx) {
  if (n < 1 || incx < 1) return 0;
  if (std::isnan(modulus(x[0]))) return 1;
  if (is_short<T>(n)) return 1 + kernel_calls<T>::xiamax(&n, x, &incx);
  return 1 + reduce<int64_t>(
                 n, sizeof(T),
                 [&](piece p) { return p.start + kernel_calls<T>::xiamax(&p.size, x + p.start * incx, &incx); },
                 [&](int64_t first, int64_t later) {
                   return modulus(x[later * incx]) > modulus(x[first * incx]) ? later : first;
                 });
}

}  // namespace
}  // namespace tev::blas

#define TEV_DOT(T, name)                                                                                  \
  T tev_blas_##name(const int64_t* n, const T* x, const int64_t* incx, const T* y, const int64_t* incy) { \
    return tev::blas::dot(tev_blas_x##name, n, x, incx, y, incy);                                         \
  }
TEV_DOT(float, sdot)
TEV_DOT(double, ddot)

#define TEV_COMPLEX_DOT(T, name)                                                                 \
  void tev_blas_##name(T* result, const int64_t* n, const T* x, const int64_t* incx, const T* y, \
                       const int64_t* incy) {                                                    \
    *result = tev::blas::dot(tev_blas_x##name, n, x, incx, y, incy);                             \
  }
TEV_COMPLEX_DOT(tev_complex8, cdotu)
TEV_COMPLEX_DOT(tev_complex8, cdotc)
TEV_COMPLEX_DOT(tev_complex16, zdotu)
TEV_COMPLEX_DOT(tev_complex16, zdotc)

double tev_blas_dsdot(const int64_t* n, const float* x, const int64_t* incx, const float* y, const int64_t* incy) {
  return tev::blas::dot(tev_blas_xsdot_in_double, n, x, incx, y, incy);
}
float tev_blas_sdsdot(const int64_t* n, const float* b, const float* x, const int64_t* incx, const float* y,
                      const int64_t* incy) {
  return static_cast<float>(*b + tev_blas_dsdot(n, x, incx, y, incy));
}

#define TEV_REDUCTIONS(p, parts_p, T, R)                                            \
  R tev_blas_##parts_p##asum(const int64_t* n, const T* x, const int64_t* incx) {   \
    return tev::blas::asum(tev_blas_direct_kernels()->parts_p##asum, *n, x, *incx); \
  }                                                                                 \
  R tev_blas_##parts_p##nrm2(const int64_t* n, const T* x, const int64_t* incx) {   \
    return tev::blas::nrm2(tev_blas_direct_kernels()->parts_p##nrm2, *n, x, *incx); \
  }                                                                                 \
  int64_t tev_blas_i##p##amax(const int64_t* n, const T* x, const int64_t* incx) {  \
    return tev::blas::iamax(*n, x, *incx);                                          \
  }
TEV_REDUCTIONS(s, s, float, float)
TEV_REDUCTIONS(d, d, double, double)
TEV_REDUCTIONS(c, sc, tev_complex8, float)
TEV_REDUCTIONS(z, dz, tev_complex16, double)

float tev_blas_scabs1(const tev_complex8* z) { return tev::blas::modulus(*z); }
double tev_blas_dcabs1(const tev_complex16* z) { return tev::blas::modulus(*z); }
