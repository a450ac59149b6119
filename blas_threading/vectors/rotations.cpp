// SPDX-License-Identifier: BSD-3-Clause
// ?swap, and plane rotations: the ones that make zeros (?rotg, ?rotmg) and their application to two vectors (?rot,
// ?rotm), by pieces on a team when the vectors are long.
#include <cmath>
#include <complex>
#include <type_traits>

#include "blas_threading/element.h"
#include "blas_threading/kernel_calls.h"
#include "blas_threading/vectors/level1.h"
#include "tev/blas.h"

namespace tev::blas {
namespace {

// update(piece) once for every piece of n pairs of elements of `bytes` each.
template <class Update>
void on_pieces(int64_t n, int64_t bytes, bool apart, const Update& update) {
  const int32_t threads = level1_threads(n, kPairChunkBytes / bytes, apart);
  if (threads < 2) return update(piece{0, n});
  run_team(threads, [=](int64_t thread, int64_t team) {
    const piece part = piece_of(n, thread, team);
    if (part.size > 0) update(part);
  });
}

template <class T>
void swap(int64_t n, T* x, int64_t incx, T* y, int64_t incy) {
  if (is_short<T>(n)) return kernel_calls<T>::xswap(&n, x, &incx, y, &incy);
  on_pieces(n, sizeof(T), incx != 0 && incy != 0, [=](piece p) {
    kernel_calls<T>::xswap(&p.size, address_of(p, n, x, incx), &incx, address_of(p, n, y, incy), &incy);
  });
}

// (x, y) := (h[0] x + h[2] y, h[1] x + h[3] y).
template <class R>
void rotate(int64_t n, R* x, int64_t incx, R* y, int64_t incy, const R* h) {
  if (is_short<R>(n)) return kernel_calls<R>::xrotate(&n, x, &incx, y, &incy, h);
  on_pieces(n, sizeof(R), incx != 0 && incy != 0, [=](piece p) {
    kernel_calls<R>::xrotate(&p.size, address_of(p, n, x, incx), &incx, address_of(p, n, y, incy), &incy, h);
  });
}

// kernel: one of the direct ones.
template <class T, class R>
void rot(void (*kernel)(int64_t, T*, int64_t, T*, int64_t, const R*, const R*), int64_t n, T* x, int64_t incx, T* y,
         int64_t incy, const R* c, const R* s) {
  if (is_short<T>(n)) return kernel(n, x, incx, y, incy, c, s);
  on_pieces(n, sizeof(T), incx != 0 && incy != 0, [=, own_c = *c, own_s = *s](piece p) {
    kernel(p.size, address_of(p, n, x, incx), incx, address_of(p, n, y, incy), incy, &own_c, &own_s);
  });
}

// param: which elements of the matrix stand in it, then all four by columns; the others are ones.
template <class R>
void rotm(int64_t n, R* x, int64_t incx, R* y, int64_t incy, const R* param) {
  const R flag = param[0];
  if (flag == -2) return;
  if (flag < 0) return rotate(n, x, incx, y, incy, param + 1);
  const R scaled[] = {1, param[2], param[3], 1}, crossed[] = {param[1], -1, 1, param[4]};
  rotate(n, x, incx, y, incy, flag == 0 ? scaled : crossed);
}

// No square of a number over- or underflows in these.
template <class R>
using wide = std::conditional_t<std::is_same_v<R, float>, double, long double>;

// (c s; -s c) (a; b) = (r; 0). *a := r, *b := the one number from which c and s can be had again.
template <class R>
void rotg(R* a, R* b, R* c, R* s) {
  using W = wide<R>;
  const W wide_a = *a, wide_b = *b;
  if (*b == 0) {
    *c = 1, *s = 0, *b = 0;
    return;
  }
  if (*a == 0) {
    *c = 0, *s = 1, *a = *b, *b = 1;
    return;
  }
  const bool a_leads = std::abs(wide_a) > std::abs(wide_b);
  const W r = std::copysign(std::sqrt(wide_a * wide_a + wide_b * wide_b), a_leads ? wide_a : wide_b);
  *c = static_cast<R>(wide_a / r), *s = static_cast<R>(wide_b / r), *a = static_cast<R>(r);
  *b = a_leads ? *s : *c != 0 ? 1 / *c : R(1);
}

// (c s; -conj(s) c) (a; b) = (r; 0), c real. *a := r.
template <class R>
void rotg(std::complex<R>* a, const std::complex<R>* b, R* c, std::complex<R>* s) {
  using W = std::complex<wide<R>>;
  const W wide_a = *a, wide_b = *b;
  if (wide_b == W(0)) {
    *c = 1, *s = 0;
    return;
  }
  const auto modulus_a = std::sqrt(std::norm(wide_a)), modulus = std::sqrt(std::norm(wide_a) + std::norm(wide_b));
  const W phase = wide_a == W(0) ? W(1) : wide_a / modulus_a;
  *c = static_cast<R>(modulus_a / modulus);
  *s = static_cast<std::complex<R>>(phase * std::conj(wide_b) / modulus);
  *a = static_cast<std::complex<R>>(phase * modulus);
}

// ---- Modified rotations --------------------------------------------------------------------------------------------

template <class R>
struct modified {
  R flag, h11, h21, h12, h22;

  // From here on all four elements count.
  void fill() {
    if (flag == 0) h11 = h22 = 1;
    if (flag > 0) h21 = -1, h12 = 1;
    flag = -1;
  }
};

// A weight d that has left [2^-24, 2^24] comes back by powers of 2^24; `scale` is what the row of H is multiplied by.
template <class R, class Rescale>
void into_range(R& d, modified<R>& h, const Rescale& rescale) {
  constexpr R kGamma = 4096, kSquare = kGamma * kGamma, kLeast = 1 / kSquare;
  while (d != 0 && (std::abs(d) <= kLeast || std::abs(d) >= kSquare)) {
    if (!std::isfinite(d)) return;
    h.fill();
    const bool small = std::abs(d) <= kLeast;
    d *= small ? kSquare : kLeast;
    rescale(small ? 1 / kGamma : kGamma);
  }
}

// H of the rotation that makes the second of (sqrt(d1) x1, sqrt(d2) y1) zero, without square roots; d1, d2, x1 are
// those after it.
template <class R>
modified<R> rotmg(R& d1, R& d2, R& x1, R y1) {
  modified<R> h = {-1, 0, 0, 0, 0};
  const auto give_up = [&] { d1 = d2 = x1 = 0; };
  if (d1 < 0) {
    give_up();
    return h;
  }
  const R p2 = d2 * y1;
  if (p2 == 0) return {-2, 0, 0, 0, 0};
  const R p1 = d1 * x1, q2 = p2 * y1, q1 = p1 * x1;
  if (std::abs(q1) > std::abs(q2)) {
    h = {0, 0, -y1 / x1, p2 / p1, 0};
    const R u = 1 - h.h12 * h.h21;
    if (!(u > 0)) {  // only by rounding
      give_up();
      return {-1, 0, 0, 0, 0};
    }
    d1 /= u, d2 /= u, x1 *= u;
  } else {
    if (q2 < 0) {
      give_up();
      return h;
    }
    h = {1, p1 / p2, 0, 0, x1 / y1};
    const R u = 1 + h.h11 * h.h22, old_d1 = d1;
    d1 = d2 / u, d2 = old_d1 / u, x1 = y1 * u;
  }
  into_range(d1, h, [&](R factor) { x1 *= factor, h.h11 *= factor, h.h12 *= factor; });
  into_range(d2, h, [&](R factor) { h.h21 *= factor, h.h22 *= factor; });
  return h;
}

template <class R>
void rotmg(R* d1, R* d2, R* x1, R y1, R* param) {
  const modified<R> h = rotmg(*d1, *d2, *x1, y1);
  param[0] = h.flag;
  if (h.flag != -2 && h.flag <= 0) param[2] = h.h21, param[3] = h.h12;
  if (h.flag == -1 || h.flag > 0) param[1] = h.h11, param[4] = h.h22;
}

}  // namespace
}  // namespace tev::blas

#define TEV_SWAP(p, T)                                                                              \
  void tev_blas_##p##swap(const int64_t* n, T* x, const int64_t* incx, T* y, const int64_t* incy) { \
    tev::blas::swap(*n, x, *incx, y, *incy);                                                        \
  }
TEV_SWAP(s, float)
TEV_SWAP(d, double)
TEV_SWAP(c, tev_complex8)
TEV_SWAP(z, tev_complex16)

#define TEV_ROT(name, T, R)                                                                                \
  void tev_blas_##name(const int64_t* n, T* x, const int64_t* incx, T* y, const int64_t* incy, const R* c, \
                       const R* s) {                                                                       \
    tev::blas::rot(tev_blas_direct_kernels()->name, *n, x, *incx, y, *incy, c, s);                         \
  }
TEV_ROT(srot, float, float)
TEV_ROT(drot, double, double)
TEV_ROT(csrot, tev_complex8, float)
TEV_ROT(zdrot, tev_complex16, double)

#define TEV_REAL_ROTATIONS(p, R)                                                                                    \
  void tev_blas_##p##rotm(const int64_t* n, R* x, const int64_t* incx, R* y, const int64_t* incy, const R* param) { \
    tev::blas::rotm(*n, x, *incx, y, *incy, param);                                                                 \
  }                                                                                                                 \
  void tev_blas_##p##rotg(R* a, R* b, R* c, R* s) { tev::blas::rotg(a, b, c, s); }                                  \
  void tev_blas_##p##rotmg(R* d1, R* d2, R* x1, const R* y1, R* param) { tev::blas::rotmg(d1, d2, x1, *y1, param); }
TEV_REAL_ROTATIONS(s, float)
TEV_REAL_ROTATIONS(d, double)

#define TEV_COMPLEX_ROTG(name, T, R)                                                                       \
  void tev_blas_##name(T* a, const T* b, R* c, T* s) {                                                     \
    tev::blas::rotg(reinterpret_cast<std::complex<R>*>(a), reinterpret_cast<const std::complex<R>*>(b), c, \
                    reinterpret_cast<std::complex<R>*>(s));                                                \
  }
TEV_COMPLEX_ROTG(crotg, tev_complex8, float)
TEV_COMPLEX_ROTG(zrotg, tev_complex16, double)
