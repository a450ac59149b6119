// SPDX-License-Identifier: BSD-3-Clause
// trmm and trsm: B := alpha op(A) B and B := alpha op(A)^-1 B (side R: from the right), A triangular. A is halved until
// its diagonal blocks are small; what lies beside the diagonal is a matrix product.
//
// All sixteen forms are one. Call what A meets the "lines" of B: its rows on side L, its columns on side R. Number them
// so that line i depends on lines 0 .. i alone, from the far end when need be: A is then lower triangular, its element
// (i, k) being what line i takes of line k.
//
//          1st 2nd half                             solve: first half, subtract X times it, second half
//      1st  L1                                      multiply: second half, add X times the first half, first half
//      2nd  X   L2
//
// A small diagonal block is packed as that lower triangle. The lines of B pass by in strips of a few registers, packed
// so that a register holds neighbouring places of one line:
//
//      place 0 .. W-1      line 0        Four lines (two if complex) are worked out together in registers, first what
//      place 0 .. W-1      line 1        they take of the lines before them, then what they take of each other.
//      ...
#pragma once

#include "kernels/families/in_place-inl.h"
#include "kernels/routine_types.h"

namespace tev::TEV_TIER {

// Most lines of a diagonal block: triangle and strip stay in the L1 cache.
template <class T>
inline constexpr int64_t kTriangle = 64 / kParts<T>;

// Registers in a strip's line, lines worked out together.
inline constexpr int kStripVectors = 2;
template <class T>
inline constexpr int kLinesTogether = 4 / kParts<T>;

enum class triangular { multiply, solve };

// `line` and `place` are distances in B; `to` and `from` distances in A: a[i to + k from] is what line i takes of line
// k. Distances are negative where lines count from the far end; a and b point at the first line.
template <class T>
struct triangular_call {
  bool left, unit, conjugated;
  char trans;
  int64_t places;
  int64_t to, from, lda;
  int64_t line, place, ldb;
};

// A diagonal block: column by column, of column k the entries k .. n-1.
template <class T>
struct packed_triangle {
  T at[kTriangle<T> * kTriangle<T>];
};

template <class T>
TEV_INLINE void pack_triangle(const triangular_call<T>& t, int64_t n, const T* a, packed_triangle<T>& packed) {
  for (int64_t k = 0; k < n; ++k) {
    packed.at[k * kTriangle<T> + k] = t.unit ? real_element<T>(1) : conjugate_if(t.conjugated, a[k * (t.to + t.from)]);
    for (int64_t i = k + 1; i < n; ++i)
      packed.at[k * kTriangle<T> + i] = conjugate_if(t.conjugated, a[i * t.to + k * t.from]);
  }
}

template <class R>
using strip_vector = vec<R, kLanes<R>>;

// Lines first .. first + Lines of a strip, in registers.
template <class T, int Lines>
struct line_group {
  strip_vector<real_of<T>> at[Lines][kStripVectors];
};

// What many products t v need of t: as in multiplier, but v's exchanged twin is added up apart.
template <class T, int Lines>
struct line_sums {
  strip_vector<real_of<T>> direct[Lines][kStripVectors], crossed[Lines][kStripVectors];
};

// Sums over k < first of what each line takes of line k.
template <int Lines, class T>
TEV_INLINE line_group<T, Lines> taken_from_before(const T* triangle, int64_t first, const real_of<T>* strip) {
  using R = real_of<T>;
  constexpr int L = kLanes<R>, V = kStripVectors;
  line_sums<T, Lines> s = {};
  for (int64_t k = 0; k < first; ++k, triangle += kTriangle<T>, strip += V * L) {
    const R* factors = reals(triangle + first);
    TEV_UNROLL
    for (int v = 0; v < V; ++v) {
      const auto x = load<L>(strip + v * L);
      TEV_UNROLL
      for (int i = 0; i < Lines; ++i) {
        s.direct[i][v] = fma(x, splat<L>(factors[i * kParts<T>]), s.direct[i][v]);
        if constexpr (kComplex<T>) s.crossed[i][v] = fma(x, splat<L>(factors[2 * i + 1]), s.crossed[i][v]);
      }
    }
  }
  line_group<T, Lines> g;
  TEV_UNROLL
  for (int i = 0; i < Lines; ++i) TEV_UNROLL
  for (int v = 0; v < V; ++v) {
    g.at[i][v] = s.direct[i][v];
    if constexpr (kComplex<T>) g.at[i][v] += swap_pairs<L, R>(s.crossed[i][v]) * alternate<L>(R(-1), R(1));
  }
  return g;
}

// v / d. Complex by Smith's method: the modulus of d is never squared, so that it can neither overflow nor vanish.
template <class T, class V>
TEV_INLINE V divided(V v, T d) {
  using R = real_of<T>;
  constexpr int L = kLanes<R>;
  if constexpr (!kComplex<T>)
    return v / splat<L>(d);
  else {
    const bool real_is_larger =
        __builtin_fabs(static_cast<double>(d.real)) >= __builtin_fabs(static_cast<double>(d.imag));
    const R ratio = real_is_larger ? d.imag / d.real : d.real / d.imag;
    const R scale = real_is_larger ? d.real + d.imag * ratio : d.imag + d.real * ratio;
    const R same = real_is_larger ? R(1) : ratio, crossed = real_is_larger ? ratio : R(1);
    return (v * splat<L>(same) + swap_pairs<L, R>(v) * alternate<L>(crossed, -crossed)) / splat<L>(scale);
  }
}

// Solves for lines first .. first + Lines; those before are solved.
template <int Lines, class T>
TEV_INLINE void solve_lines(const packed_triangle<T>& t, bool unit, int64_t first, real_of<T>* strip) {
  using R = real_of<T>;
  constexpr int L = kLanes<R>, V = kStripVectors;
  auto g = taken_from_before<Lines>(t.at, first, strip);
  const T* corner = t.at + first * kTriangle<T> + first;
  strip += first * V * L;
  TEV_UNROLL
  for (int v = 0; v < V; ++v) TEV_UNROLL
  for (int i = 0; i < Lines; ++i) {
    auto x = load<L>(strip + (i * V + v) * L) - g.at[i][v];
    TEV_UNROLL
    for (int k = 0; k < i; ++k) x -= product(multiplier_of<L>(corner[k * kTriangle<T> + i]), g.at[k][v]);
    if (!unit) x = divided(x, corner[i * kTriangle<T> + i]);
    g.at[i][v] = x;
    store<L>(x, strip + (i * V + v) * L);
  }
}

// Multiplies lines first .. first + Lines; those after are done.
template <int Lines, class T>
TEV_INLINE void multiply_lines(const packed_triangle<T>& t, int64_t first, real_of<T>* strip) {
  constexpr int L = kLanes<real_of<T>>, V = kStripVectors;
  auto g = taken_from_before<Lines>(t.at, first, strip);
  const T* corner = t.at + first * kTriangle<T> + first;
  strip += first * V * L;
  TEV_UNROLL
  for (int v = 0; v < V; ++v) TEV_UNROLL
  for (int i = Lines - 1; i >= 0; --i) {
    TEV_UNROLL
    for (int k = 0; k <= i; ++k)
      g.at[i][v] =
          plus_product(g.at[i][v], multiplier_of<L>(corner[k * kTriangle<T> + i]), load<L>(strip + (k * V + v) * L));
    store<L>(g.at[i][v], strip + (i * V + v) * L);
  }
}

template <triangular Kind, class T>
TEV_INLINE void work_out(const packed_triangle<T>& t, bool unit, int64_t n, real_of<T>* strip) {
  constexpr int G = kLinesTogether<T>;
  const int64_t whole = n / G * G;
  if constexpr (Kind == triangular::solve) {
    for (int64_t i = 0; i < whole; i += G) solve_lines<G>(t, unit, i, strip);
    for (int64_t i = whole; i < n; ++i) solve_lines<1>(t, unit, i, strip);
  } else {
    for (int64_t i = n - 1; i >= whole; --i) multiply_lines<1>(t, i, strip);
    for (int64_t i = whole - G; i >= 0; i -= G) multiply_lines<G>(t, i, strip);
  }
}

// Between a strip, W places wide, and `width` places of n lines of B, along the columns of B; alpha is applied on the
// way in, and places that B lacks are zero.
template <int64_t W, class T>
TEV_INLINE void load_strip(const triangular_call<T>& t, int64_t n, int64_t width, T alpha, const T* b, T* strip) {
  const bool scaled = !is_one(alpha);
  if (width < W)
    for (int64_t i = 0; i < n * W; ++i) strip[i] = T{};
  const auto take = [&](int64_t i, int64_t w) __attribute__((always_inline)) {
    const T x = b[i * t.line + w * t.place];
    strip[i * W + w] = scaled ? multiply(alpha, x) : x;
  };
  if (t.left) {
    for (int64_t w = 0; w < width; ++w)
      for (int64_t i = 0; i < n; ++i) take(i, w);
  } else {
    for (int64_t i = 0; i < n; ++i)
      for (int64_t w = 0; w < width; ++w) take(i, w);
  }
}

template <int64_t W, class T>
TEV_INLINE void store_strip(const triangular_call<T>& t, int64_t n, int64_t width, const T* strip, T* b) {
  if (t.left) {
    for (int64_t w = 0; w < width; ++w)
      for (int64_t i = 0; i < n; ++i) b[i * t.line + w * t.place] = strip[i * W + w];
  } else {
    for (int64_t i = 0; i < n; ++i)
      for (int64_t w = 0; w < width; ++w) b[i * t.line + w] = strip[i * W + w];
  }
}

template <triangular Kind, class T>
void diagonal_block(const triangular_call<T>& t, int64_t n, T alpha, const T* a, T* b) {
  constexpr int64_t W = kStripVectors * kLanes<real_of<T>> / kParts<T>;
  packed_triangle<T> triangle;
  pack_triangle(t, n, a, triangle);
  T strip[kTriangle<T> * W];
  for (int64_t start = 0; start < t.places; start += W, b += W * t.place) {
    const int64_t width = t.places - start < W ? t.places - start : W;
    load_strip<W>(t, n, width, alpha, b, strip);
    work_out<Kind>(triangle, t.unit, n, reals(strip));
    store_strip<W>(t, n, width, strip, b);
  }
}

// The lines of the second half take from the first: B2 := scalar X B1 + beta B2. With lines counted from the far end a
// matrix begins at its last line.
template <class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void take_from_first(const triangular_call<T>& t, int64_t n1, int64_t n2, T scalar, const T* x, const T* b1,
                                T beta, T* b2) {
  if (t.line < 0) {
    x += (n2 - 1) * t.to + (n1 - 1) * t.from;
    b1 += (n1 - 1) * t.line, b2 += (n2 - 1) * t.line;
  }
  const char plain = 'N';
  if (t.left)
    Gemm(&t.trans, &plain, &n2, &t.places, &n1, &scalar, x, &t.lda, b1, &t.ldb, &beta, b2, &t.ldb);
  else
    Gemm(&plain, &t.trans, &t.places, &n2, &n1, &scalar, b1, &t.ldb, x, &t.lda, &beta, b2, &t.ldb);
}

template <triangular Kind, class T, kernels::gemm_fn<T>* Gemm>
void triangle(const triangular_call<T>& t, int64_t n, T alpha, const T* a, T* b) {
  if (n <= kTriangle<T>) return diagonal_block<Kind>(t, n, alpha, a, b);
  const int64_t n1 = (n / 2 + kTriangle<T> - 1) / kTriangle<T> * kTriangle<T>, n2 = n - n1;
  const T *x = a + n1 * t.to, *a2 = x + n1 * t.from;
  T* b2 = b + n1 * t.line;
  if constexpr (Kind == triangular::solve) {
    triangle<Kind, T, Gemm>(t, n1, alpha, a, b);
    take_from_first<T, Gemm>(t, n1, n2, real_element<T>(-1), x, b, alpha, b2);
    triangle<Kind, T, Gemm>(t, n2, real_element<T>(1), a2, b2);
  } else {
    triangle<Kind, T, Gemm>(t, n2, alpha, a2, b2);
    take_from_first<T, Gemm>(t, n1, n2, alpha, x, b, real_element<T>(1), b2);
    triangle<Kind, T, Gemm>(t, n1, alpha, a, b);
  }
}

template <triangular Kind, class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void triangular_call_of(const char* side, const char* uplo, const char* transa, const char* diag, int64_t m,
                                   int64_t n, T alpha, const T* a, int64_t lda, T* b, int64_t ldb) {
  if (m < 1 || n < 1) return;
  if (is_zero(alpha)) {
    for (int64_t j = 0; j < n; ++j)
      for (int64_t i = 0; i < m; ++i) b[i + j * ldb] = T{};
    return;
  }
  const bool left = is_letter(side, 'L'), plain = is_letter(transa, 'N'), lower = is_letter(uplo, 'U') != plain;
  const bool down_a_column = left == plain;  // line i takes of line k: A(i, k), else A(k, i)
  triangular_call<T> t = {.left = left,
                          .unit = is_letter(diag, 'U'),
                          .conjugated = kComplex<T> && is_letter(transa, 'C'),
                          .trans = *transa,
                          .places = left ? n : m,
                          .to = down_a_column ? 1 : lda,
                          .from = down_a_column ? lda : 1,
                          .lda = lda,
                          .line = left ? 1 : ldb,
                          .place = left ? ldb : 1,
                          .ldb = ldb};
  const int64_t order = left ? m : n;
  if (lower != left) {  // the last line depends on itself alone
    a += (order - 1) * (lda + 1), b += (order - 1) * t.line;
    t.to = -t.to, t.from = -t.from, t.line = -t.line;
  }
  triangle<Kind, T, Gemm>(t, order, alpha, a, b);
}

}  // namespace tev::TEV_TIER
