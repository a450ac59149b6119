// SPDX-License-Identifier: BSD-3-Clause
// Triangles that meet vectors: products and solutions with a block on the diagonal, rank-1 and rank-2 updates. A full
// triangle is multiplied J columns at a time, a corner and the rectangle beside it; bands and packed triangles go
// column by column.
//
//    d                     multiply, plain        others += rectangle . own, then the corner
//    d d   own: J columns  multiply, transposed   the corner, then own += rectangle^T . others
//    r r d                 solve: with -, in the other order
//    r r d d  others
#pragma once

#include "kernels/families/reduction-inl.h"
#include "kernels/triangle.h"

namespace tev::TEV_TIER {

using kernels::storage;
using kernels::triangle;
using kernels::triangular_form;

inline constexpr int kTriangularColumns = 4;

template <class T>
TEV_INLINE T scaled_by_sign(bool negative, T x) {
  if constexpr (kComplex<T>)
    return {negative ? -x.real : x.real, negative ? -x.imag : x.imag};
  else
    return negative ? -x : x;
}

// Of a complex divisor no modulus is squared. (R. L. Smith, CACM 5, 1962.)
template <class T>
TEV_INLINE T divide(T x, T y) {
  if constexpr (!kComplex<T>) {
    return x / y;
  } else if (__builtin_fabs(y.real) >= __builtin_fabs(y.imag)) {
    const auto ratio = y.imag / y.real, size = y.real + y.imag * ratio;
    return {(x.real + x.imag * ratio) / size, (x.imag - x.real * ratio) / size};
  } else {
    const auto ratio = y.real / y.imag, size = y.real * ratio + y.imag;
    return {(x.real * ratio + x.imag) / size, (x.imag * ratio - x.real) / size};
  }
}

template <class T>
TEV_INLINE void apply_diagonal(const triangular_form& form, const T* diagonal, T& x) {
  if (form.unit) return;
  const T d = conjugate_if(form.trans == 'C', *diagonal);
  x = form.solves ? divide(x, d) : multiply(x, d);
}

// One column: its rows [first, last) beside the diagonal, at `column`, and the diagonal.
template <class T>
TEV_INLINE void apply_column(const triangular_form& form, const T* column, int64_t first, int64_t last,
                             const T* diagonal, T& own, T* x, int64_t incx) {
  if (form.plain() && is_zero(own)) return;
  T* const others = x + (incx < 0 ? last - 1 : first) * incx;
  if (form.plain() == form.solves) apply_diagonal(form, diagonal, own);
  const int64_t count = last - first;
  const bool few = count <= kFew && incx == 1;
  if (form.plain()) {
    const T factor = scaled_by_sign(form.solves, own);
    few ? axpy_few(count, factor, column, others) : axpy(count, factor, column, 1, others, incx);
  } else {
    const bool conjugated = form.trans == 'C';
    const T sum = few && form.solves ? dot_few(conjugated, count, column, others)
                                     : dot(conjugated, count, column, 1, others, incx);
    own = add(own, scaled_by_sign(form.solves, sum));
  }
  if (form.plain() != form.solves) apply_diagonal(form, diagonal, own);
}

// Transposed factors: an element of x is not needed any more once it is written. Some wait until they are written
// together, or loads of their neighbours would wait for them.
template <class T>
TEV_INLINE void multiply_transposed(const triangle<const T>& a, const triangular_form& form, int64_t begin, int64_t end,
                                    T* x, int64_t incx) {
  constexpr int64_t kWaiting = 16;
  T waiting[kWaiting];
  const bool upwards = form.upwards(a.upper);
  for (int64_t done = 0; done < end - begin; done += kWaiting) {
    const int64_t count = end - begin - done < kWaiting ? end - begin - done : kWaiting;
    const int64_t start = upwards ? begin + done : end - 1 - done, next = upwards ? 1 : -1;
    for (int64_t i = 0, j = start; i < count; ++i, j += next) {
      const int64_t beside = a.begin_beside(j), until = a.end_beside(j);
      const int64_t first = beside > begin ? beside : begin, last = until < end ? until : end;
      const T* const diagonal = a.diagonal(j);
      waiting[i] = x[j * incx];
      apply_column(form, diagonal + (first - j), first, last, diagonal, waiting[i], x, incx);
    }
    for (int64_t i = 0, j = start; i < count; ++i, j += next) x[j * incx] = waiting[i];
  }
}

template <class T>
TEV_INLINE void triangular_by_columns(const triangle<const T>& a, const triangular_form& form, int64_t begin,
                                      int64_t end, T* x, int64_t incx) {
  if (!form.plain() && !form.solves) return multiply_transposed(a, form, begin, end, x, incx);
  const bool upwards = form.upwards(a.upper);
  for (int64_t step = 0; step < end - begin; ++step) {
    const int64_t j = upwards ? begin + step : end - 1 - step;
    const int64_t beside = a.begin_beside(j), until = a.end_beside(j);
    const int64_t first = beside > begin ? beside : begin, last = until < end ? until : end;
    const T* const diagonal = a.diagonal(j);
    apply_column(form, diagonal + (first - j), first, last, diagonal, x[j * incx], x, incx);
  }
}

// J columns of a full triangle on the diagonal, in the order in which they are taken: element (i, j) of that order is
// at i row + j column, element i of x at i inc. A column meets the elements before it (plain factors, transposed
// divisors) or behind it.
template <bool kPlain, bool kSolves, int J, class T>
TEV_INLINE void apply_ordered_corner(const triangular_form& form, const T* a, int64_t row, int64_t column, T* x,
                                     int64_t inc) {
  constexpr bool kBefore = kPlain != kSolves;
  const bool conjugated = form.trans == 'C';
  T own[J];
  TEV_UNROLL
  for (int j = 0; j < J; ++j) own[j] = x[j * inc];
  TEV_UNROLL
  for (int j = 0; j < J; ++j) {
    const T* const at = a + j * column;
    if (kPlain && is_zero(own[j])) continue;
    if (kPlain == kSolves) apply_diagonal(form, at + j * row, own[j]);
    const T factor = scaled_by_sign(kSolves, own[j]);
    T sum = {};
    TEV_UNROLL
    for (int i = kBefore ? 0 : j + 1; i < (kBefore ? j : J); ++i)
      if (kPlain)
        own[i] = add(own[i], multiply(factor, at[i * row]));
      else
        sum = add(sum, multiply(conjugate_if(conjugated, at[i * row]), own[i]));
    if (!kPlain) own[j] = add(own[j], scaled_by_sign(kSolves, sum));
    if (kPlain != kSolves) apply_diagonal(form, at + j * row, own[j]);
  }
  TEV_UNROLL
  for (int j = 0; j < J; ++j) x[j * inc] = own[j];
}

template <int J, class T>
TEV_INLINE void apply_corner(bool upper, const triangular_form& form, const T* a, int64_t lda, T* x) {
  const int64_t inc = form.upwards(upper) ? 1 : -1, column = inc * lda;
  if (inc < 0) a += (J - 1) * (lda + 1), x += J - 1;
  if (form.plain())
    form.solves ? apply_ordered_corner<true, true, J>(form, a, inc, column, x, inc)
                : apply_ordered_corner<true, false, J>(form, a, inc, column, x, inc);
  else
    form.solves ? apply_ordered_corner<false, true, J>(form, a, inc, column, x, inc)
                : apply_ordered_corner<false, false, J>(form, a, inc, column, x, inc);
}

// Columns [j, j + J) of a block [begin, end) of a full triangle; x without gaps.
template <int J, class T>
TEV_INLINE void apply_columns(const triangle<const T>& a, const triangular_form& form, int64_t j, int64_t begin,
                              int64_t end, T* x) {
  const int64_t first = a.upper ? begin : j + J, count = (a.upper ? j : end) - first;
  const T *const corner = a.data + j + j * a.ld, *const rectangle = a.data + first + j * a.ld;
  const T sign = scaled_by_sign(form.solves, real_element<T>(1));
  if (form.plain() == form.solves) apply_corner<J>(a.upper, form, corner, a.ld, x + j);
  if (form.plain())
    add_columns<J>(count, sign, rectangle, a.ld, x + j, 1, x + first);
  else
    add_dots<J>(form.trans == 'C', count, sign, rectangle, a.ld, x + first, x + j, 1);
  if (form.plain() != form.solves) apply_corner<J>(a.upper, form, corner, a.ld, x + j);
}

template <class T>
TEV_INLINE void triangular_block(const triangle<const T>& a, const triangular_form& form, int64_t begin, int64_t end,
                                 T* x, int64_t incx) {
  if (a.kind != storage::full || incx != 1) return triangular_by_columns(a, form, begin, end, x, incx);
  constexpr int J = kTriangularColumns;
  const bool upwards = form.upwards(a.upper);
  const int64_t count = end - begin;
  int64_t done = 0;
  for (; done + J <= count; done += J)
    apply_columns<J>(a, form, upwards ? begin + done : end - done - J, begin, end, x);
  for (; done < count; ++done) apply_columns<1>(a, form, upwards ? begin + done : end - 1 - done, begin, end, x);
}

// ---- Updates -------------------------------------------------------------------------------------------------------

// Packed columns for which it matters how they end.
template <class T>
inline constexpr int64_t kShortPacked = 16 * kLanes<real_of<T>> / kParts<T>;

// column += t x, a packed column: its last elements go by shorter and shorter vectors. A store behind a mask would keep
// the next column, which begins in its place, waiting.
template <class T>
TEV_INLINE void add_to_packed(int64_t n, T t, const T* x, T* column) {
  constexpr int L = kLanes<real_of<T>>;
  const real_of<T>* xr = reals(x);
  real_of<T>* to = reals(column);
  const auto step = [=](auto part, int64_t i) TEV_LAMBDA {
    part.store(plus_product(part.load_own(to + i), multiplier_of<part.W>(t), part.load(xr + i)), to + i);
  };
  int64_t i = 0;
  for (const int64_t end = n * kParts<T> / L * L; i < end; i += L) step(whole_part<L>{}, i);
  if constexpr (L > kParts<T>) for_halving_parts<kParts<T>, L / 2>(i, n * kParts<T>, step);
}

// column += s x + t y.
template <class T>
TEV_INLINE void add_two(int64_t n, T s, const T* x, T t, const T* y, T* column) {
  const real_of<T>*xr = reals(x), *yr = reals(y);
  real_of<T>* to = reals(column);
  for_lines<T, 4>(n * kParts<T>, to, [=](auto part, int64_t i) TEV_LAMBDA {
    const auto sum = plus_product(part.load_own(to + i), multiplier_of<part.W>(s), part.load(xr + i));
    part.store(plus_product(sum, multiplier_of<part.W>(t), part.load(yr + i)), to + i);
  });
}

template <class T>
TEV_INLINE void update_columns(const triangle<T>& a, int64_t begin, int64_t end, T alpha, const T* x, int64_t incx,
                               const T* y, int64_t incy) {
  for (int64_t j = begin; j < end; ++j) {
    T* const diagonal = a.diagonal(j);
    const int64_t first = a.upper ? a.begin_beside(j) : j, last = a.upper ? j + 1 : a.end_beside(j);
    const int64_t count = last - first;
    T* const column = diagonal + (first - j);
    const T* const of_x = x + (incx < 0 ? last - 1 : first) * incx;
    if (y == nullptr && a.kind == storage::packed && incx == 1 && count <= kShortPacked<T>) {
      add_to_packed(count, multiply(alpha, conjugate_if(true, x[j])), of_x, column);
    } else if (y == nullptr) {
      axpy(count, multiply(alpha, conjugate_if(true, x[j * incx])), of_x, incx, column, 1);
    } else {
      const T s = multiply(alpha, conjugate_if(true, y[j * incy])),
              t = conjugate_if(true, multiply(alpha, x[j * incx]));
      const T* const of_y = y + (incy < 0 ? last - 1 : first) * incy;
      if (incx == 1 && incy == 1) {
        add_two(count, s, of_x, t, of_y, column);
      } else {
        axpy(count, s, of_x, incx, column, 1);
        axpy(count, t, of_y, incy, column, 1);
      }
    }
    if constexpr (kComplex<T>) diagonal->imag = 0;
  }
}

}  // namespace tev::TEV_TIER
