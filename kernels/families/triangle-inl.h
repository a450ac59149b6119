// SPDX-License-Identifier: BSD-3-Clause
// Triangles that meet vectors: products and solutions with a block on the diagonal, rank-1 and rank-2 updates. A
// triangle is multiplied J columns at a time: a corner, the rectangle beside it and, of a band, the rows at its edge
// that only some of the columns have. Vectors with gaps go column by column.
//
//    d                     multiply, plain        others += rectangle . own, then the corner
//    d d   own: J columns  multiply, transposed   the corner, then own += rectangle^T . others
//    r r d                 solve: with -, in the other order
//    r r d d  others
#pragma once

#include "kernels/families/band-inl.h"
#include "kernels/families/symv-inl.h"

namespace tev::TEV_TIER {

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

// J columns of a triangle on the diagonal, in the order in which they are taken: element (i, j) of that order is i rows
// from the start of column j, element i of x at i inc. A column meets the elements before it (plain factors, transposed
// divisors) or behind it.
template <bool kPlain, bool kSolves, int J, class T>
TEV_INLINE void apply_ordered_corner(const triangular_form& form, const column_starts<J, T>& a, T* x, int64_t inc) {
  constexpr bool kBefore = kPlain != kSolves;
  const bool conjugated = form.trans == 'C';
  T own[J];
  TEV_UNROLL
  for (int j = 0; j < J; ++j) own[j] = x[j * inc];
  TEV_UNROLL
  for (int j = 0; j < J; ++j) {
    const T* const at = a.at[j];
    if (kPlain && is_zero(own[j])) continue;
    if (kPlain == kSolves) apply_diagonal(form, at + j * inc, own[j]);
    const T factor = scaled_by_sign(kSolves, own[j]);
    T sum = {};
    TEV_UNROLL
    for (int i = kBefore ? 0 : j + 1; i < (kBefore ? j : J); ++i)
      if (kPlain)
        own[i] = add(own[i], multiply(factor, at[i * inc]));
      else
        sum = add(sum, multiply(conjugate_if(conjugated, at[i * inc]), own[i]));
    if (!kPlain) own[j] = add(own[j], scaled_by_sign(kSolves, sum));
    if (kPlain != kSolves) apply_diagonal(form, at + j * inc, own[j]);
  }
  TEV_UNROLL
  for (int j = 0; j < J; ++j) x[j * inc] = own[j];
}

// Columns [j, j + J).
template <int J, class T>
TEV_INLINE void apply_corner(const triangle<const T>& a, const triangular_form& form, int64_t j, T* x) {
  const int64_t inc = form.upwards(a.upper) ? 1 : -1, first = inc > 0 ? j : j + J - 1;
  const auto columns = columns_of<J>(a, first, first, inc);
  if (form.plain())
    form.solves ? apply_ordered_corner<true, true>(form, columns, x + first, inc)
                : apply_ordered_corner<true, false>(form, columns, x + first, inc);
  else
    form.solves ? apply_ordered_corner<false, true>(form, columns, x + first, inc)
                : apply_ordered_corner<false, false>(form, columns, x + first, inc);
}

// A few rows of a column.
template <class T>
TEV_INLINE void meet_few(const triangular_form& form, const T* column, int64_t count, T& own, T* others) {
  if (form.plain())
    axpy_few(count, scaled_by_sign(form.solves, own), column, others);
  else
    own = add(own, scaled_by_sign(form.solves, dot_few(form.trans == 'C', count, column, others)));
}

// Rows [first, last) of J columns from j on, in a block [begin, end): a rectangle.
template <int J, class T>
TEV_INLINE void apply_rectangle(const triangle<const T>& a, const triangular_form& form, int64_t j, int64_t first,
                                int64_t last, int64_t begin, int64_t end, T* x) {
  const T sign = scaled_by_sign(form.solves, real_element<T>(1));
  auto columns = columns_of<J>(a, first, j);
  if (last - first <= kFew) {
    TEV_UNROLL
    for (int c = 0; c < J; ++c) meet_few(form, columns.at[c], last - first, x[j + c], x + first);
    return;
  }
  columns.from = source_of(a, last - first, kFarBytes);
  if (J > 1 && columns.from != source::near) {
    const int64_t step = form.upwards(a.upper) ? J : -J, next = j + step;
    if (next >= begin && next + J <= end) columns.behind = a.at(a.upper ? first : first + step, next) - columns.at[0];
  }
  if (form.plain())
    add_columns<J, T>(last - first, sign, columns, x + j, 1, x + first);
  else
    add_dots<J, T>(form.trans == 'C', last - first, sign, columns, x + first, x + j, 1);
}

// The rows of columns [j, j + J) of a band, within [begin, end), that not all of them have.
template <int J, class T>
TEV_INLINE void apply_edge(const triangle<const T>& a, const triangular_form& form, int64_t j, int64_t begin,
                           int64_t end, T* x) {
  const int64_t inside = a.upper ? a.begin_beside(j + J - 1) : a.end_beside(j);
  TEV_UNROLL
  for (int64_t c = j; c < j + J; ++c) {
    int64_t first = a.upper ? a.begin_beside(c) : inside, last = a.upper ? inside : a.end_beside(c);
    first = max_of(first, begin), last = min_of(last, end);
    meet_few(form, a.at(first, c), last - first, x[c], x + first);
  }
}

// Columns [j, j + J) of a block [begin, end); x without gaps. A band is at least as wide as J columns.
template <int J, class T>
TEV_INLINE void apply_columns(const triangle<const T>& a, const triangular_form& form, int64_t j, int64_t begin,
                              int64_t end, T* x) {
  int64_t first = a.upper ? begin : j + J, last = a.upper ? j : end;
  if (a.kind == storage::band) {
    if (a.upper)
      first = max_of(first, a.begin_beside(j + J - 1));
    else
      last = min_of(last, a.end_beside(j));
  }
  if (form.plain() == form.solves) apply_corner<J>(a, form, j, x);
  apply_rectangle<J>(a, form, j, first, last, begin, end, x);
  if (J > 1 && a.kind == storage::band) apply_edge<J>(a, form, j, begin, end, x);
  if (form.plain() != form.solves) apply_corner<J>(a, form, j, x);
}

// Columns [j, j + J) of a transposed band: all have as many elements.
template <int J, class T>
TEV_INLINE void multiply_slanted(const triangle<const T>& a, const triangular_form& form, int64_t j, T* x) {
  const int64_t first = a.begin_beside(j);
  T dots[J];
  slanted_dots<J>(form.trans == 'C', a.end_beside(j) - first, a.at(first, j), a.ld, x + first, dots);
  TEV_UNROLL
  for (int c = 0; c < J; ++c) {
    T own = x[j + c];
    apply_diagonal(form, a.diagonal(j + c), own);
    x[j + c] = add(own, dots[c]);
  }
}

// x := op(A) x, A a transposed band.
template <class T>
TEV_INLINE void multiply_band_transposed(const triangle<const T>& a, const triangular_form& form, T* x) {
  constexpr int J = kTriangularColumns;
  const bool upwards = form.upwards(a.upper);
  const int64_t whole_from = a.upper ? a.k : 0, whole_until = a.upper ? a.n : a.n - a.k;
  for (int64_t done = 0; done < a.n;) {
    const int64_t j = upwards ? done : a.n - 1 - done, lowest = upwards ? j : j - J + 1;
    const bool together = lowest >= whole_from && lowest + J <= whole_until;
    together ? multiply_slanted<J>(a, form, lowest, x) : multiply_slanted<1>(a, form, j, x);
    done += together ? J : 1;
  }
}

// All of a triangle that is one corner.
template <class T>
TEV_INLINE void triangular_corner(const triangle<const T>& a, const triangular_form& form, T* x) {
  static_assert(kTriangularColumns == 4);
  if (a.n == 3) return apply_corner<3>(a, form, 0, x);
  if (a.n == 2) return apply_corner<2>(a, form, 0, x);
  if (a.n == 1) apply_corner<1>(a, form, 0, x);
}

template <class T>
TEV_INLINE void triangular_block(const triangle<const T>& a, const triangular_form& form, int64_t begin, int64_t end,
                                 T* x, int64_t incx) {
  constexpr int J = kTriangularColumns;
  if (incx != 1 || a.k < J) return triangular_by_columns(a, form, begin, end, x, incx);
  if (a.kind == storage::band && !form.plain() && !form.solves) return multiply_band_transposed(a, form, x);
  const bool upwards = form.upwards(a.upper);
  const int64_t count = end - begin;
  int64_t done = 0;
  for (; done + J <= count; done += J)
    apply_columns<J>(a, form, upwards ? begin + done : end - done - J, begin, end, x);
  for (; done < count; ++done) apply_columns<1>(a, form, upwards ? begin + done : end - 1 - done, begin, end, x);
}

// ---- Updates -------------------------------------------------------------------------------------------------------

// column += s x, or s x + t y, a part of them.
template <class T, class Part>
TEV_INLINE void update_part(const Part& part, int64_t i, T s, const T* x, T t, const T* y, T* column) {
  constexpr int W = Part::W;
  real_of<T>* const to = reals(column) + i;
  auto sum = plus_product(part.load_own(to), multiplier_of<W>(s), part.load(reals(x) + i));
  if (y != nullptr) sum = plus_product(sum, multiplier_of<W>(t), part.load(reals(y) + i));
  part.store(sum, to);
}

template <class T>
TEV_INLINE void update_column(int64_t n, T s, const T* x, T t, const T* y, T* column) {
  if (y == nullptr) return axpy_contiguous<kAlignsColumnFrom>(n, s, x, column);
  for_aligned_parts<T, 4, kAlignsColumnFrom>(
      n * kParts<T>, reals(column), [=](auto part, int64_t i) TEV_LAMBDA { update_part(part, i, s, x, t, y, column); });
}

template <class T>
TEV_INLINE void update_columns(const triangle<T>& a, int64_t begin, int64_t end, T alpha, const T* x, int64_t incx,
                               const T* y, int64_t incy) {
  const bool twice = y != nullptr;
  for (int64_t j = begin; j < end; ++j) {
    T* const diagonal = a.diagonal(j);
    const int64_t first = a.upper ? a.begin_beside(j) : j, last = a.upper ? j + 1 : a.end_beside(j);
    const int64_t count = last - first;
    T* const column = diagonal + (first - j);
    const T s = multiply(alpha, conjugate_if(true, twice ? y[j * incy] : x[j * incx]));
    const T t = twice ? conjugate_if(true, multiply(alpha, x[j * incx])) : T{};
    const T* const of_x = x + (incx < 0 ? last - 1 : first) * incx;
    const T* const of_y = twice ? y + (incy < 0 ? last - 1 : first) * incy : nullptr;
    if (incx != 1 || (twice && incy != 1)) {
      axpy(count, s, of_x, incx, column, 1);
      if (twice) axpy(count, t, of_y, incy, column, 1);
    } else {
      update_column(count, s, of_x, t, of_y, column);
    }
    if constexpr (kComplex<T>) diagonal->imag = 0;
  }
}

}  // namespace tev::TEV_TIER
