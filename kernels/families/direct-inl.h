// SPDX-License-Identifier: BSD-3-Clause
// Level 1 and 2 with sizes and letters by value, whole routines on the calling thread: tev_direct_kernels of the tier.
// The routines that take everything by address call these, too, where both are the same.
#pragma once

#include "kernels/families/band-inl.h"
#include "kernels/families/gemv-inl.h"
#include "kernels/families/ger-inl.h"
#include "kernels/families/norm-inl.h"
#include "kernels/families/reduction-inl.h"
#include "kernels/families/symv-inl.h"
#include "kernels/families/triangle-inl.h"
#include "kernels/families/vector-inl.h"
#include "tev/direct_kernels.h"

namespace tev::TEV_TIER::direct {

// ---- Level 1

template <class T>
void scal(int64_t n, const T* alpha, T* x, int64_t incx) {
  TEV_TIER::scal(n, *alpha, x, incx);
}

template <class T>
void copy(int64_t n, const T* x, int64_t incx, T* y, int64_t incy) {
  copy_vector(n, x, incx, y, incy);
}

template <class T>
void swap(int64_t n, T* x, int64_t incx, T* y, int64_t incy) {
  TEV_TIER::swap(n, x, incx, y, incy);
}

template <class T>
void axpy(int64_t n, const T* alpha, const T* x, int64_t incx, T* y, int64_t incy) {
  TEV_TIER::axpy(n, *alpha, x, incx, y, incy);
}

template <class T>
T dotu(int64_t n, const T* x, int64_t incx, const T* y, int64_t incy) {
  return TEV_TIER::dot(false, n, x, incx, y, incy);
}
template <class T>
T dotc(int64_t n, const T* x, int64_t incx, const T* y, int64_t incy) {
  return TEV_TIER::dot(true, n, x, incx, y, incy);
}
template <class T>
T dot(int64_t n, const T* x, int64_t incx, const T* y, int64_t incy) {
  return dotu(n, x, incx, y, incy);
}
template <class T>
double dot_in_double(int64_t n, const T* x, int64_t incx, const T* y, int64_t incy) {
  return TEV_TIER::dot_in_double(n, x, incx, y, incy);
}

// A complex vector without gaps is a real one of twice the length; one with gaps is two, real parts and imaginary ones.
template <class T>
real_of<T> asum(int64_t n, const T* x, int64_t incx) {
  if (incx < 1) return 0;
  if (!kComplex<T> || incx == 1) return TEV_TIER::asum(kParts<T> * n, reals(x), incx);
  return TEV_TIER::asum(n, reals(x), 2 * incx) + TEV_TIER::asum(n, reals(x) + 1, 2 * incx);
}

template <class T>
real_of<T> nrm2(int64_t n, const T* x, int64_t incx) {
  return norm(n, x, incx);
}

template <class T>
void rot(int64_t n, T* x, int64_t incx, T* y, int64_t incy, const real_of<T>* c, const real_of<T>* s) {
  const real_of<T> h[] = {*c, -*s, *s, *c};
  rotate(n, x, incx, y, incy, h);
}

template <class T>
void scal_by_real(int64_t n, const real_of<T>* alpha, T* x, int64_t incx) {
  if (incx < 1) return;
  if (incx == 1) return TEV_TIER::scal(2 * n, *alpha, reals(x), 1);
  TEV_TIER::scal(n, *alpha, reals(x), 2 * incx);
  TEV_TIER::scal(n, *alpha, reals(x) + 1, 2 * incx);
}

// From 1; 0 where there is no element. A NaN at the front is never exceeded.
template <class T>
int64_t iamax(int64_t n, const T* x, int64_t incx) {
  if (n < 1 || incx < 1) return 0;
  if (n == 1) return 1;
  const auto first = moduli<T, kParts<T>>(load<kParts<T>>(reals(x)))[0];
  return first != first ? 1 : 1 + TEV_TIER::iamax(n, x, incx);
}

// ---- Level 2: A is general

template <class T>
void gemv(char trans, int64_t m, int64_t n, const T* alpha, const T* a, int64_t lda, const T* x, const T* beta, T* y) {
  TEV_TIER::gemv(&trans, m, n, *alpha, a, lda, x, 1, *beta, y, 1);
}

template <class T>
void gbmv(char trans, int64_t m, int64_t n, int64_t kl, int64_t ku, const T* alpha, const T* a, int64_t lda, const T* x,
          const T* beta, T* y) {
  if (m < 1 || n < 1) return;
  scale_result(trans == 'N' ? m : n, *beta, y, 1);
  if (is_zero(*alpha)) return;
  gbmv_part(trans, {a, m, n, kl, ku, lda}, {0, trans == 'N' ? m : n}, *alpha, x, y);
}

template <class T>
void ger(int64_t m, int64_t n, const T* alpha, const T* x, const T* y, T* a, int64_t lda) {
  TEV_TIER::ger(false, m, n, *alpha, x, 1, y, 1, a, lda);
}
template <class T>
void gerc(int64_t m, int64_t n, const T* alpha, const T* x, const T* y, T* a, int64_t lda) {
  TEV_TIER::ger(true, m, n, *alpha, x, 1, y, 1, a, lda);
}

// ---- Level 2: one triangle of A is stored

template <class T>
TEV_INLINE triangle<T> full_triangle(char uplo, int64_t n, T* a, int64_t lda) {
  return {a, n, n, lda, storage::full, uplo == 'U'};
}
template <class T>
TEV_INLINE triangle<T> band_triangle(char uplo, int64_t n, int64_t k, T* a, int64_t lda) {
  return {a, n, k, lda, storage::band, uplo == 'U'};
}
template <class T>
TEV_INLINE triangle<T> packed_triangle(char uplo, int64_t n, T* ap) {
  return {ap, n, n, 0, storage::packed, uplo == 'U'};
}

// A band that ends nowhere is full, by columns that are one element shorter. Corners are apart, and pay for none of the
// registers of larger triangles. Of packed columns a block is not a triangle of the same kind.
#define TEV_DIRECT_TRIANGULAR(op, solves)                                                                       \
  template <class T>                                                                                            \
  __attribute__((noinline)) void op##_corner(char uplo, char trans, char diag, int64_t n, const T* a, T* x,     \
                                             storage kind, int64_t ld) {                                        \
    triangular_corner<T>({a, n, n, ld, kind, uplo == 'U'}, {trans, diag == 'U', solves}, x);                    \
  }                                                                                                             \
  template <class T>                                                                                            \
  void tr##op(char uplo, char trans, char diag, int64_t n, const T* a, int64_t lda, T* x) {                     \
    if (n < kTriangularColumns) return op##_corner(uplo, trans, diag, n, a, x, storage::full, lda);             \
    triangular_block(full_triangle(uplo, n, a, lda), {trans, diag == 'U', solves}, 0, n, x, 1);                 \
  }                                                                                                             \
  template <class T>                                                                                            \
  void tb##op(char uplo, char trans, char diag, int64_t n, int64_t k, const T* a, int64_t lda, T* x) {          \
    if (k + 1 >= n) return tr##op(uplo, trans, diag, n, uplo == 'U' ? a + k : a, lda - 1, x);                   \
    triangular_block(band_triangle(uplo, n, k, a, lda), {trans, diag == 'U', solves}, 0, n, x, 1);              \
  }                                                                                                             \
  template <class T>                                                                                            \
  __attribute__((noinline)) void tp##op##_block(char uplo, char trans, char diag, int64_t n, const T* ap, T* x, \
                                                int64_t begin, int64_t end) {                                   \
    triangular_block(packed_triangle(uplo, n, ap), {trans, diag == 'U', solves}, begin, end, x, 1);             \
  }                                                                                                             \
  template <class T>                                                                                            \
  void tp##op(char uplo, char trans, char diag, int64_t n, const T* ap, T* x) {                                 \
    if (n < kTriangularColumns) return op##_corner(uplo, trans, diag, n, ap, x, storage::packed, 0);            \
    tp##op##_block(uplo, trans, diag, n, ap, x, 0, n);                                                          \
  }
TEV_DIRECT_TRIANGULAR(mv, false)
TEV_DIRECT_TRIANGULAR(sv, true)
#undef TEV_DIRECT_TRIANGULAR

// Rows and columns [begin, end) of a triangle, which are one themselves.
template <class T>
TEV_INLINE void apply_block(const triangle<const T>& a, const triangular_form& form, int64_t begin, int64_t end, T* x,
                            int64_t incx) {
  if (incx != 1) return triangular_by_columns(a, form, begin, end, x, incx);
  const char uplo = a.upper ? 'U' : 'L', diag = form.unit ? 'U' : 'N';
  if (a.kind == storage::packed)
    return (form.solves ? tpsv_block<T> : tpmv_block<T>)(uplo, form.trans, diag, a.n, a.data, x, begin, end);
  const int64_t n = end - begin;
  if (a.kind == storage::band)
    return (form.solves ? tbsv<T> : tbmv<T>)(uplo, form.trans, diag, n, a.k, a.data + begin * a.ld, a.ld, x + begin);
  (form.solves ? trsv<T> : trmv<T>)(uplo, form.trans, diag, n, a.at(begin, begin), a.ld, x + begin);
}

template <class T>
void symv(char uplo, int64_t n, const T* alpha, const T* a, int64_t lda, const T* x, const T* beta, T* y) {
  scale_result(n, *beta, y, 1);
  if (!is_zero(*alpha)) symv_columns(full_triangle(uplo, n, a, lda), 0, n, *alpha, x, y);
}

template <class T>
TEV_INLINE void symv_with(const triangle<const T>& a, T alpha, const T* x, T beta, T* y) {
  scale_result(a.n, beta, y, 1);
  if (!is_zero(alpha)) symv_by_columns(a, 0, a.n, alpha, x, 1, y, 1);
}
template <class T>
void sbmv(char uplo, int64_t n, int64_t k, const T* alpha, const T* a, int64_t lda, const T* x, const T* beta, T* y) {
  symv_with(band_triangle(uplo, n, k, a, lda), *alpha, x, *beta, y);
}
template <class T>
void spmv(char uplo, int64_t n, const T* alpha, const T* ap, const T* x, const T* beta, T* y) {
  symv_with(packed_triangle(uplo, n, ap), *alpha, x, *beta, y);
}

template <class T>
TEV_INLINE void update(const triangle<T>& a, T alpha, const T* x, const T* y) {
  if (!is_zero(alpha)) update_columns(a, 0, a.n, alpha, x, 1, y, 1);
}
template <class T>
void syr(char uplo, int64_t n, const real_of<T>* alpha, const T* x, T* a, int64_t lda) {
  update<T>(full_triangle(uplo, n, a, lda), real_element<T>(*alpha), x, nullptr);
}
template <class T>
void spr(char uplo, int64_t n, const real_of<T>* alpha, const T* x, T* ap) {
  update<T>(packed_triangle(uplo, n, ap), real_element<T>(*alpha), x, nullptr);
}
template <class T>
void syr2(char uplo, int64_t n, const T* alpha, const T* x, const T* y, T* a, int64_t lda) {
  update<T>(full_triangle(uplo, n, a, lda), *alpha, x, y);
}
template <class T>
void spr2(char uplo, int64_t n, const T* alpha, const T* x, const T* y, T* ap) {
  update<T>(packed_triangle(uplo, n, ap), *alpha, x, y);
}

inline constexpr tev_direct_kernels kKernels = {
#define TEV_DIRECT_KERNEL(T, kernel, name, ...) .name = kernel<T>,
    TEV_DIRECT_ROWS(TEV_DIRECT_KERNEL)
#undef TEV_DIRECT_KERNEL
};

}  // namespace tev::TEV_TIER::direct
