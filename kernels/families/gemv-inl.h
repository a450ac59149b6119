// SPDX-License-Identifier: BSD-3-Clause
// y := alpha op(A) x + beta y for an m x n matrix A, column-major.
//
//      N: y += t0 a0 + t1 a1 ...          T, C: y0 += alpha (a0 . x), y1 += alpha (a1 . x) ...
//
//        a0 a1 a2 a3 | a4 ..    y           a0 a1 a2 a3 | a4 ..    x
//        |  |  |  |  |          |           |  |  |  |  |          |    a segment of rows: y or x stays in L1,
//        |  |  |  |  |          |           |  |  |  |  |          |    A streams by once, some columns at a time
//       -+--+--+--+--+------   -+-         -+--+--+--+--+------   -+-
//
// Whichever of x and y runs along the columns is gathered into a block on the stack when its elements are apart.
#pragma once

#include "kernels/families/vector-inl.h"

namespace tev::TEV_TIER {

// Columns that are taken at once: their multipliers (N) or sums (T) fit into the registers, and memory delivers more
// when several columns stream by.
inline constexpr int kColumnsTogether = kVectorRegisters == 32 ? 8 : 4;

// Columns that are read at once are asked for 1 KiB ahead where they are long: each page of each of them begins a
// stream, which the processor would first have to notice. What comes from memory is asked into the second cache, since
// more of it can be on its way there: eight columns 35 GB/s, 24 into the first, 30 unasked (32 KiB / 1 MiB / 32 MiB).
// Where columns end before long, asking costs a tenth.
template <class R>
inline constexpr int64_t kAhead = 1024 / static_cast<int64_t>(sizeof(R));
template <class R>
inline constexpr int64_t kLong = 6 * kAhead<R>;

// For what lies that far behind the Numbers numbers from i on.
template <int Numbers, int kInto, class R>
TEV_INLINE void ask_ahead(const R* x, int64_t i, int64_t distance) {
  constexpr int kLine = kLineBytes / static_cast<int>(sizeof(R));
  if (Numbers < kLine && i % kLine >= Numbers) return;  // once a line, wherever a walk begins
  TEV_UNROLL
  for (int n = 0; n < Numbers; n += kLine) __builtin_prefetch(x + i + distance + n, 0, kInto);
}

// Where J columns begin, and how far behind them the next J do; 0 where there are none, or where they come from near.
template <int J, class T>
struct column_starts {
  const T* at[J];
  int64_t behind = 0;
  source from = source::near;
};

// J columns of `count` numbers: shorter ones than `least` are not asked for. At their end the next J are, if they are
// known.
template <class R>
struct asked_ahead {
  int64_t until, at_end;
  bool from_memory;

  template <int J, class T>
  TEV_INLINE asked_ahead(int64_t count, int64_t least, const column_starts<J, T>& a)
      : until(count >= least || (a.behind != 0 && count >= kAhead<R>) ? count - kAhead<R> : 0),
        at_end(a.behind != 0 && count >= kAhead<R> ? a.behind * kParts<T> - until : 0),
        from_memory(a.from == source::memory) {}

  template <int Numbers, int J>
  TEV_INLINE void ask(const R* const (&column)[J], int64_t i) const {
    if (i >= until && at_end == 0) return;
    const int64_t distance = i < until ? kAhead<R> : at_end;
    TEV_UNROLL
    for (int j = 0; j < J; ++j)
      from_memory ? ask_ahead<Numbers, kIntoSecondCache>(column[j], i, distance)
                  : ask_ahead<Numbers, kIntoFirstCache>(column[j], i, distance);
  }
};

// The first J of n columns of m rows; those behind them are asked for at the end, if they do not end before long.
template <int J, class T>
TEV_INLINE column_starts<J, T> first_columns(int64_t m, int64_t n, const T* a, int64_t lda, source from) {
  column_starts<J, T> columns;
  columns.from = from;
  TEV_UNROLL
  for (int j = 0; j < J; ++j) columns.at[j] = a + j * lda;
  if (from != source::near && n >= 2 * J && m * kParts<T> >= kLong<real_of<T>>) columns.behind = J * lda;
  return columns;
}

// y += A (alpha x), J columns. Complex: the products with the imaginary parts of alpha x are added up apart, so that
// parts change places once per vector of y.
template <int J, class T>
TEV_INLINE void add_columns(int64_t m, T alpha, const column_starts<J, T>& a, const T* x, int64_t incx, T* y) {
  using R = real_of<T>;
  const R* column[J];
  T t[J];
  TEV_UNROLL
  for (int j = 0; j < J; ++j) column[j] = reals(a.at[j]), t[j] = multiply(alpha, x[j * incx]);
  R* yr = reals(y);
  const asked_ahead<R> ahead(m * kParts<T>, kLong<R>, a);
  const auto step = [&](auto part, int64_t i) __attribute__((always_inline)) {
    constexpr int W = part.W;
    ahead.template ask<W>(column, i);
    auto sum = part.load_own(yr + i);
    if constexpr (kComplex<T>) {
      vec<R, W> crossed = {};
      TEV_UNROLL
      for (int j = 0; j < J; ++j) {
        const auto c = part.load(column[j] + i);
        sum = fma(c, splat<W>(t[j].real), sum);
        crossed = fma(c, splat<W>(t[j].imag), crossed);
      }
      sum += swap_pairs<W, R>(crossed) * alternate<W>(R(-1), R(1));
    } else {
      TEV_UNROLL
      for (int j = 0; j < J; ++j) sum = fma(part.load(column[j] + i), splat<W>(t[j]), sum);
    }
    part.store(sum, yr + i);
  };
  if constexpr (kCopiesCost<T>)
    for_own_parts<T, 2>(m * kParts<T>, yr, step);
  else
    for_parts<T, 2>(m * kParts<T>, step);
}

template <int J, class T>
TEV_INLINE void gemv_n_segment(int64_t m, int64_t n, T alpha, const T* a, int64_t lda, source from, const T* x,
                               int64_t incx, T* y) {
  for (; n >= J; n -= J, a += J * lda, x += J * incx)
    add_columns<J, T>(m, alpha, first_columns<J>(m, n, a, lda, from), x, incx, y);
  if constexpr (J > 1) gemv_n_segment<J / 2>(m, n, alpha, a, lda, from, x, incx, y);
}

// y += alpha op(A) x with y scaled already.
template <class T>
TEV_INLINE void gemv_n(int64_t m, int64_t n, T alpha, const T* a, int64_t lda, const T* x, int64_t incx, T* y,
                       int64_t incy) {
  const source from = source_of(m * n * static_cast<int64_t>(sizeof(T)));
  T block[kSegment<T>];
  for (int64_t i = 0; i < m; i += kSegment<T>) {
    const int64_t rows = m - i < kSegment<T> ? m - i : kSegment<T>;
    T* segment = y + i * incy;
    if (incy == 1) {
      gemv_n_segment<kColumnsTogether>(rows, n, alpha, a + i, lda, from, x, incx, segment);
      continue;
    }
    gather(rows, segment, incy, false, block);
    gemv_n_segment<kColumnsTogether>(rows, n, alpha, a + i, lda, from, x, incx, block);
    for (int64_t r = 0; r < rows; ++r) segment[r * incy] = block[r];
  }
}

// Sums of J columns times x, U registers wide each; complex: with x and with x's parts exchanged.
template <int J, int U, class T>
struct dot_sums {
  static constexpr int L = kLanes<real_of<T>>;
  vec<real_of<T>, L> direct[J][U], crossed[J][U];
};

// Count registers of numbers from i on.
template <int Count, int J, int U, class T, class Part>
TEV_INLINE void add_products(const Part& part, int64_t i, const real_of<T>* const* column, const real_of<T>* x,
                             dot_sums<J, U, T>& sums) {
  constexpr int L = kLanes<real_of<T>>;
  TEV_UNROLL
  for (int u = 0; u < Count; ++u) {
    const auto v = part.load(x + i + u * L);
    TEV_UNROLL
    for (int j = 0; j < J; ++j) {
      const auto c = part.load(column[j] + i + u * L);
      sums.direct[j][u] = fma(c, v, sums.direct[j][u]);
      if constexpr (kComplex<T>) sums.crossed[j][u] = fma(c, swap_pairs<L, real_of<T>>(v), sums.crossed[j][u]);
    }
  }
}

// Direct sums hold re re, im im; crossed ones re im, im re.
template <int L, class T>
TEV_INLINE T dot_of(vec<real_of<T>, L> direct, vec<real_of<T>, L> crossed, bool conjugated) {
  using R = real_of<T>;
  if constexpr (!kComplex<T>)
    return sum<L, R>(direct);
  else {
    const auto minus = alternate<L>(R(1), R(-1));
    if (conjugated) return {sum<L, R>(direct), sum<L, R>(crossed * minus)};
    return {sum<L, R>(direct * minus), sum<L, R>(crossed)};
  }
}

// y_j += alpha (op(a_j) . x), J columns; x contiguous.
template <int J, class T>
TEV_INLINE void add_dots(bool conjugated, int64_t m, T alpha, const column_starts<J, T>& a, const T* x, T* y,
                         int64_t incy) {
  using R = real_of<T>;
  constexpr int L = kLanes<R>, U = (J == 1 ? kColumnsTogether : 2) / kParts<T>;  // a single sum waits for its additions
  const R* column[J];
  TEV_UNROLL
  for (int j = 0; j < J; ++j) column[j] = reals(a.at[j]);
  const R* xr = reals(x);
  dot_sums<J, U, T> sums = {};
  const int64_t count = m * kParts<T>;
  int64_t i = 0;
  const asked_ahead<R> ahead(count, 4 * kAhead<R>, a);
  for (const int64_t end = count / (U * L) * (U * L); i < end; i += U * L) {
    ahead.template ask<U * L>(column, i);
    add_products<U>(whole_part<L>{}, i, column, xr, sums);
  }
  for (const int64_t end = count / L * L; i < end; i += L) add_products<1>(whole_part<L>{}, i, column, xr, sums);
  if (i < count) add_products<1>(first_part<L>{count - i}, i, column, xr, sums);
  TEV_UNROLL
  for (int j = 0; j < J; ++j) {
    TEV_UNROLL
    for (int u = 1; u < U; ++u) {
      sums.direct[j][0] += sums.direct[j][u];
      if constexpr (kComplex<T>) sums.crossed[j][0] += sums.crossed[j][u];
    }
    const T dot = dot_of<L, T>(sums.direct[j][0], sums.crossed[j][0], conjugated);
    y[j * incy] = add(y[j * incy], multiply(alpha, dot));
  }
}

template <int J, class T>
TEV_INLINE void gemv_t_segment(bool conjugated, int64_t m, int64_t n, T alpha, const T* a, int64_t lda, source from,
                               const T* x, T* y, int64_t incy) {
  for (; n >= J; n -= J, a += J * lda, y += J * incy)
    add_dots<J, T>(conjugated, m, alpha, first_columns<J>(m, n, a, lda, from), x, y, incy);
  if constexpr (J > 1) gemv_t_segment<J / 2>(conjugated, m, n, alpha, a, lda, from, x, y, incy);
}

template <class T>
TEV_INLINE void gemv_t(bool conjugated, int64_t m, int64_t n, T alpha, const T* a, int64_t lda, const T* x,
                       int64_t incx, T* y, int64_t incy) {
  const source from = source_of(m * n * static_cast<int64_t>(sizeof(T)));
  T block[kSegment<T>];
  for (int64_t i = 0; i < m; i += kSegment<T>) {
    const int64_t rows = m - i < kSegment<T> ? m - i : kSegment<T>;
    const T* segment = x + i * incx;
    if (incx != 1) gather(rows, segment, incx, false, block);
    gemv_t_segment<kColumnsTogether>(conjugated, rows, n, alpha, a + i, lda, from, incx == 1 ? segment : block, y,
                                     incy);
  }
}

// y := alpha A x + beta y, y in one register; without gaps. The order of the additions is that of longer ones: threads
// share out rows, in pieces of two rows and more.
template <class Part, class T>
TEV_INLINE void gemv_n_register(const Part& rows, int64_t n, T alpha, const T* a, int64_t lda, const T* x, int64_t incx,
                                T beta, T* y) {
  constexpr int L = Part::W;
  vec<T, L> sum = {};
  if (!is_zero(beta)) sum = rows.load(y) * splat<L>(beta);
  for (int64_t j = 0; j < n; ++j) sum = fma(rows.load(a + j * lda), splat<L>(alpha * x[j * incx]), sum);
  rows.store(sum, y);
}

template <class T>
TEV_INLINE void gemv(const char* trans, int64_t m, int64_t n, T alpha, const T* a, int64_t lda, const T* x,
                     int64_t incx, T beta, T* y, int64_t incy) {
  if (m < 1 || n < 1) return;
  const bool plain = is_letter(trans, 'N');
  const int64_t rows = plain ? m : n, columns = plain ? n : m;
  if constexpr (kVectorBytes == kLineBytes && !kComplex<T>) {
    constexpr int L = kLanes<T>;
    if (plain && m > 1 && m <= L && incy == 1 && !is_zero(alpha)) {
      x = first_of(n, x, incx);
      if (m == L) return gemv_n_register(whole_part<L>{}, n, alpha, a, lda, x, incx, beta, y);
      return gemv_n_register(first_part<L>{m}, n, alpha, a, lda, x, incx, beta, y);
    }
  }
  scale_result(rows, beta, y, incy);
  if (is_zero(alpha)) return;
  x = first_of(columns, x, incx), y = first_of(rows, y, incy);
  if (m == 1 && plain && lda == 1) return gemv_t(false, n, 1, alpha, a, n, x, incx, y, incy);
  if (m == 1 && plain && incx == 1) return gemv_t(false, n, 1, alpha, x, n, a, lda, y, incy);
  if (plain) return gemv_n(m, n, alpha, a, lda, x, incx, y, incy);
  gemv_t(kComplex<T> && is_letter(trans, 'C'), m, n, alpha, a, lda, x, incx, y, incy);
}

}  // namespace tev::TEV_TIER
