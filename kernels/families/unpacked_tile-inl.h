// SPDX-License-Identifier: BSD-3-Clause
// A tile of C from operands that stay where they are: C(rows x NC) := alpha A B + beta C, the tile in registers for the
// whole loop over k.
//
//                    b(p, 0) .. b(p, NR-1)            broadcast, from anywhere: column and step are any strides
//   a(0 .. W-1, p)   acc[0][0] .. acc[NR-1][0]
//   a(W .. 2W-1, p)  acc[0][1] .. acc[NR-1][1]        vectors down the rows of A, which are contiguous
//   ...
//
// Everything is counted in real numbers: a complex matrix has twice the rows (re, im, re, im ...), and each complex
// column of B gives two columns of the tile, A times b.re (called P below) and A times b.im (Q). One product is then
//
//   a b = (P.re - Q.im, P.im + Q.re),  and conjugates only change signs, so they cost nothing before the end.
//
// The last vector of a column is masked where the tier has masks (512-bit vectors), and computed in its lower half
// alone where that is enough and saves time. Elsewhere it overlaps the vector before it, so that it ends at the last
// row: both compute the same values for the rows that they share. Tiles with fewer rows than a vector has lanes use
// narrower vectors.
#pragma once

#ifndef TEV_TIER
#error "include a tier's tier.h first"
#endif

#include "kernels/families/element-inl.h"
#include "kernels/families/upcoming-inl.h"

extern "C" int32_t tev_serv_cpuhalves512(void);  // 1 where a 512-bit register takes twice the time of a 256-bit one

namespace tev::TEV_TIER {

template <int W, class R, int... I>
TEV_INLINE vec<R, W / 2> half(vec<R, W> v, lanes<I...>) {
  return __builtin_shufflevector(v, v, I...);
}

// The first N lanes, N known to the compiler.
template <int N, int W, class R>
TEV_INLINE vec<R, W> load_known(const R* from) {
  if constexpr (N == W) {
    return load<W>(from);
  } else if constexpr (kMasks<R, W>) {
    return load_first<W>(from, N);
  } else {
    vec<R, W> v = {};
    TEV_UNROLL
    for (int i = 0; i < N; ++i) v[i] = from[i];
    return v;
  }
}

template <int N, int W, class R>
TEV_INLINE void store_known(vec<R, W> v, R* to) {
  if constexpr (N == W) {
    store<W>(v, to);
  } else if constexpr (kMasks<R, W>) {
    store_first<W>(v, to, N);
  } else if constexpr (N == W / 2) {
    store<N>(half<W, R>(v, all_lanes<N>{}), to);
  } else {
    TEV_UNROLL
    for (int i = 0; i < N; ++i) to[i] = v[i];
  }
}

// A register, and the largest tile: vectors down, real columns across.
template <class R>
inline constexpr int kLanesOf = kVectorBytes / static_cast<int>(sizeof(R));
inline constexpr bool kMaskedEdges = kVectorBytes == 64;
#ifdef __AVX512VL__
inline constexpr bool kHalvesEdges = true;  // where the processor computes halves of registers one after the other
#else
inline constexpr bool kHalvesEdges = false;
#endif
inline constexpr int kTileVectors = kHasFma ? 3 : 2;
inline constexpr int kTileColumns = kVectorRegisters == 32 ? 8 : 4;

// The tallest strip: where 32 registers have room for four vectors by six columns, rows that would be left over as a
// short strip cost no pass over B of their own.
inline constexpr int kMostStripVectors = kVectorRegisters == 32 ? 4 : kTileVectors;

// Rows of columns of A that come from far away: two lines; and the tallest tile.
inline constexpr int kFarVectors = 2 * kLineBytes / kVectorBytes;
inline constexpr int kTallVectors = kVectorRegisters == 32 ? 6 : kFarVectors,
                     kTallColumns = kVectorRegisters == 32 ? 4 : 2;

// Real columns of a tile of MV vectors of rows: as many sums as there is room for beside the vectors. Two vectors need
// more columns than three to keep both multipliers busy; 16 registers have room for 6.
template <int MV>
inline constexpr int kColumnsBeside = MV > kMostStripVectors                        ? kTallColumns
                                      : MV > kTileVectors                           ? 6
                                      : MV == 2 && kHasFma&& kVectorRegisters == 16 ? 6
                                                                                    : kTileColumns;

// What becomes of the sums of a tile. c_out = P u0 + swap(Q) u1 [+ swap(P) u2 + Q u3] [+ c beta_re + swap(c) beta_im],
// where each u is a pair (for re, for im). Real elements use u0[0] and beta_re[0] alone.
template <class R>
struct finish {
  R u[4][2];
  R alpha[2];  // dots: alpha; and the signs of their halves
  R dot_even[2], dot_odd[2];
  R beta_re[2], beta_im[2];
  bool turned;       // alpha has an imaginary part: u2 and u3 count
  bool reads_c;      // beta is not 0
  bool beta_turned;  // beta has an imaginary part
  bool past_caches;  // C is aligned, and too large to be found in a cache later: whole vectors go to memory
};

template <class T, class R = real_of<T>>
TEV_INLINE finish<R> finish_of(T alpha, T beta, bool conj_a, bool conj_b) {
  if constexpr (kParts<T> == 1) {
    return {{{alpha, alpha}, {0, 0}, {0, 0}, {0, 0}},
            {alpha, 0},
            {1, 1},
            {1, 1},
            {beta, beta},
            {0, 0},
            false,
            !(beta == 0),
            false,
            false};
  } else {
    const R p[2] = {1, conj_a ? R(-1) : R(1)};
    const R q[2] = {conj_a == conj_b ? R(-1) : R(1), conj_b ? R(-1) : R(1)};
    return {{{alpha.real * p[0], alpha.real * p[1]},
             {alpha.real * q[0], alpha.real * q[1]},
             {-alpha.imag * p[1], alpha.imag * p[0]},
             {-alpha.imag * q[1], alpha.imag * q[0]}},
            {alpha.real, alpha.imag},
            {1, q[1]},
            {q[0], p[1]},
            {beta.real, beta.real},
            {-beta.imag, beta.imag},
            !(alpha.imag == 0),
            !(beta.real == 0 && beta.imag == 0),
            !(beta.imag == 0),
            false};
  }
}

// What follows the first stretch of k is added to what that left in C.
template <class R>
TEV_INLINE void add_to_c(finish<R>& f) {
  f.reads_c = true;
  f.beta_re[0] = f.beta_re[1] = 1;
  f.beta_turned = false;
}

template <int W, class R>
TEV_INLINE vec<R, W> splat_pair(const R (&pair)[2]) {
  vec<R, W> v;
  TEV_UNROLL
  for (int i = 0; i < W; ++i) v[i] = pair[i % 2];
  return v;
}

// Vector v of MV vectors that cover `rows` rows.
template <int W, int MV, class R>
TEV_INLINE vec<R, W> load_rows(const R* column, int v, int64_t rows) {
  if (v + 1 < MV) return load<W>(column + v * W);
  if constexpr (kMaskedEdges && W == kLanesOf<R>)
    return load_first<W>(column + v * W, rows - v * W);
  else
    return load<W>(column + rows - W);
}

template <int W, int MV, class R>
TEV_INLINE void store_rows(vec<R, W> value, R* column, int v, int64_t rows) {
  if (v + 1 < MV) return store<W>(value, column + v * W);
  if constexpr (kMaskedEdges && W == kLanesOf<R>)
    store_first<W>(value, column + v * W, rows - v * W);
  else
    store<W>(value, column + rows - W);
}

// One column of the tile without its share of C.
template <class T, int W, int MV, class R>
TEV_INLINE void scale_sums(const vec<R, W> (*sums)[MV], const finish<R>& f, vec<R, W> (&out)[MV]) {
  if constexpr (kParts<T> == 1) {
    const auto alpha = splat<W>(f.u[0][0]);
    TEV_UNROLL
    for (int v = 0; v < MV; ++v) out[v] = sums[0][v] * alpha;
  } else {
    const auto u0 = splat_pair<W>(f.u[0]), u1 = splat_pair<W>(f.u[1]);
    TEV_UNROLL
    for (int v = 0; v < MV; ++v) out[v] = fma(swap_pairs<W, R>(sums[1][v]), u1, sums[0][v] * u0);
    if (f.turned) {
      const auto u2 = splat_pair<W>(f.u[2]), u3 = splat_pair<W>(f.u[3]);
      TEV_UNROLL
      for (int v = 0; v < MV; ++v) out[v] = fma(sums[1][v], u3, fma(swap_pairs<W, R>(sums[0][v]), u2, out[v]));
    }
  }
}

template <class T, int W, class R>
TEV_INLINE vec<R, W> plus_beta(vec<R, W> value, vec<R, W> old, const finish<R>& f) {
  value = fma(old, splat<W>(f.beta_re[0]), value);
  if constexpr (kParts<T> == 2)
    if (f.beta_turned) value = fma(swap_pairs<W, R>(old), splat_pair<W>(f.beta_im), value);
  return value;
}

// A column of the tile is part of a column of C. All of C is read before any of it is written: vectors may overlap.
template <class T, int W, int MV, class R>
TEV_INLINE void put_column(vec<R, W> (&out)[MV], const finish<R>& f, R* c, int64_t rows) {
  if (f.reads_c) {
    TEV_UNROLL
    for (int v = 0; v < MV; ++v) out[v] = plus_beta<T, W>(out[v], load_rows<W, MV>(c, v, rows), f);
  }
  if (f.past_caches && rows == MV * W) {
    TEV_UNROLL
    for (int v = 0; v < MV; ++v) __builtin_nontemporal_store(out[v], reinterpret_cast<vec<R, W>*>(c + v * W));
    return;
  }
  TEV_UNROLL
  for (int v = 0; v < MV; ++v) store_rows<W, MV, R>(out[v], c, v, rows);
}

// The same for all columns, C before any is written: to read a column behind a mask takes until the one before it has
// left for the cache, if that was written behind a mask, too, and lies right before it.
template <class T, int W, int MV, int NC, class R>
TEV_INLINE void update_masked(vec<R, W> (&out)[NC][MV], const finish<R>& f, R* c, int64_t ldc, int64_t rows) {
  TEV_UNROLL
  for (int j = 0; j < NC; ++j) TEV_UNROLL
  for (int v = 0; v < MV; ++v) out[j][v] = plus_beta<T, W>(out[j][v], load_rows<W, MV>(c + j * ldc, v, rows), f);
  TEV_UNROLL
  for (int j = 0; j < NC; ++j) TEV_UNROLL
  for (int v = 0; v < MV; ++v) store_rows<W, MV, R>(out[j][v], c + j * ldc, v, rows);
}

template <class T, int N, int W, class R>
TEV_INLINE void put_row(vec<R, W> value, const finish<R>& f, R* c) {
  if (f.reads_c) value = plus_beta<T, W>(value, load_known<N, W>(c), f);
  store_known<N, W, R>(value, c);
}

// The tile is transposed: a row of it is part of a column of C. out: NC columns of MV vectors.
template <class T, int W, int MV, int NC, class R>
TEV_INLINE void put_transposed(vec<R, W> (&out)[NC][MV], const finish<R>& f, R* c, int64_t ldc, int64_t rows) {
  constexpr int U = kParts<T>, N = W / U;  // N columns at a time
  constexpr bool kMasked = kMaskedEdges && W == kLanesOf<R>;
  TEV_UNROLL
  for (int v = 0; v < MV; ++v) {
    // Rows of this vector: the first that is not done yet, the one after the last.
    const int64_t base = kMasked || v + 1 < MV ? v * N : rows / U - N, done = v * N;
    TEV_UNROLL
    for (int j = 0; j < NC; j += N) {
      vec<R, W> square[N] = {};
      TEV_UNROLL
      for (int i = 0; i < N; ++i)
        if (j + i < NC) square[i] = out[j + i][v];
      transpose<W, U>(square);
      constexpr int kFullWidth = N < NC ? N : NC, kLastWidth = NC % N == 0 ? kFullWidth : NC % N;
      TEV_UNROLL
      for (int i = 0; i < N; ++i) {
        if (v + 1 == MV && (base + i < done || base + i >= rows / U)) continue;
        R* to = c + (base + i) * ldc + j * U;
        if (j + N <= NC)
          put_row<T, kFullWidth * U, W>(square[i], f, to);
        else
          put_row<T, kLastWidth * U, W>(square[i], f, to);
      }
    }
  }
}

// The operands of a block of C: rows (reals) x n columns, k deep. Steps and strides count reals.
template <class R>
struct block {
  int64_t rows, n, k;
  const R* a;
  int64_t a_step;  // from a(i, p) to a(i, p + 1)
  const R* b;
  int64_t b_step, b_column;  // to b(p + 1, j), to b(p, j + 1)
  R* c;
  int64_t ldc;
  int64_t a_ahead, b_ahead;  // from a(i, p), b(p, j) to what is read some time later; 0: that is near already
  bool in_order = false;     // every sum is added up step by step, whatever the size of its tile
  upcoming* next = nullptr;  // what to fetch by reading::stretches
};

// A strip is read ahead while the one before it is used; where there is only one, so many steps of k, which are `step`
// apart, or so many bytes, whichever is more.
inline constexpr int64_t kStepsAhead = 16, kLeastAhead = 2048;
template <class R>
TEV_INLINE int64_t ahead_of_one_strip(int64_t step) {
  return max_of(kStepsAhead * step, kLeastAhead / static_cast<int64_t>(sizeof(R)));
}

// Columns of B that are read for the first and only time are asked for so far ahead: each page of each of them begins a
// stream, which the processor would first have to notice. Found on 48 KiB / 1 MiB: half as much does as well, twice as
// much and none lose a fifth.
inline constexpr int kColumnAhead = 1024;

// So many of them side by side, beside MV vectors of rows: memory delivers most when several stream by.
template <int MV>
inline constexpr int kStreamedColumns = kVectorRegisters == 32 || MV == 1 ? 8
                                        : MV == 2                         ? 6
                                                                          : 4;

// a b + c; in the lower half of the registers alone, where that is all that counts. The compiler would make it whole.
template <bool kLower, class V>
TEV_INLINE V fma_of(V a, V b, V c) {
  if constexpr (!kLower)
    return fma(a, b, c);
  else if constexpr (sizeof(c[0]) == 8)
    __asm__("vfmadd231pd %t2, %t1, %t0" : "+v"(c) : "v"(a), "v"(b));
  else
    __asm__("vfmadd231ps %t2, %t1, %t0" : "+v"(c) : "v"(a), "v"(b));
  return c;
}

// MV vectors of rows are asked for. Columns that lie apart into the second cache, where more can be on its way: from
// memory and the last cache up to 2.4 times as fast as into the first. An A that lies in one piece comes by itself, and
// the first cache is better for it by a fifth. Found on 32 KiB / 1 MiB.
template <int MV, int kInto, class R>
TEV_INLINE void ask_for(const R* a) {
  TEV_UNROLL
  for (int v = 0; v < MV * kVectorBytes; v += kLineBytes) __builtin_prefetch(a + v / sizeof(R), 0, kInto);
}

// What a tile does about memory: asks for what is ahead; or its columns of B are contiguous, and far away; or the next
// stretch of k is fetched meanwhile.
enum class reading { ahead, streamed, stretches };

// kHalf: the last vector has rows in its lower half only.
template <class T, bool kTransposed, int W, int MV, int NC, reading Reading = reading::ahead, bool kHalf = false,
          class R>
TEV_INLINE void compute_tile(const block<R>& x, const R* b, R* c, const finish<R>& f) {
  constexpr int NR = NC * kParts<T>;
  // A tile of few sums takes several steps of k side by side: a sum alone would wait for its last addition.
  constexpr int kSteps = NR * MV > 4 ? 1 : NR * MV > 2 ? 2 : 4;
  vec<R, W> acc[kSteps][NR][MV] = {};
  const R* a = x.a;
  // Every third column; the two after it are one and two strides away. Left to itself the compiler steps through the
  // columns by one addition after the other, a chain that takes longer than the arithmetic of a small tile.
  const R* group[(NC + 2) / 3];
  TEV_UNROLL
  for (int g = 0; g * 3 < NC; ++g) {
    group[g] = b + g * 3 * x.b_column;
    TEV_OPAQUE(group[g]);
  }
  const bool lie_apart = MV >= kTileVectors || x.a_step > MV * W;
  const auto step = [&](vec<R, W>(&sums)[NR][MV]) TEV_LAMBDA {
    vec<R, W> av[MV];
    TEV_UNROLL
    for (int v = 0; v < MV; ++v) av[v] = load_rows<W, MV>(a, v, x.rows);
    if constexpr (1 < NC * kParts<T> && W == kLanesOf<R>) {
      if (MV >= kTileVectors || (Reading != reading::streamed && x.a_ahead != 0)) {
        lie_apart ? ask_for<MV, kIntoSecondCache>(a + x.a_ahead) : ask_for<MV, kIntoFirstCache>(a + x.a_ahead);
      }
    }
    TEV_UNROLL
    for (int j = 0; j < NR; ++j) {
      const int column = j / kParts<T>;
      const auto bv = splat<W>(group[column / 3][column % 3 * x.b_column + j % kParts<T>]);
      TEV_UNROLL
      for (int v = 0; v < MV; ++v)
        sums[j][v] = v + 1 == MV ? fma_of<kHalf>(av[v], bv, sums[j][v]) : fma(av[v], bv, sums[j][v]);
    }
    a += x.a_step;
    TEV_UNROLL
    for (int g = 0; g * 3 < NC; ++g) group[g] += x.b_step;
  };
  int64_t p = 0;
  if constexpr (kSteps > 1) {
    for (const int64_t last = x.in_order ? -1 : x.k - kSteps; p <= last; p += kSteps) {
      TEV_UNROLL
      for (int s = 0; s < kSteps; ++s) step(acc[s]);
    }
  }
  if constexpr (Reading == reading::streamed) {
    constexpr int kLine = kLineBytes / static_cast<int>(sizeof(R));
    while (p + kLine <= x.k) {
      TEV_UNROLL
      for (int j = 0; j < NC; ++j)
        __builtin_prefetch(group[j / 3] + j % 3 * x.b_column + kColumnAhead / static_cast<int>(sizeof(R)), 0,
                           kIntoSecondCache);
      for (const int64_t end = p + kLine; p < end; ++p) step(acc[0]);
    }
  }
  if constexpr (Reading == reading::stretches) {
    while (p + kStepsPerFetch <= x.k) {
      fetch(*x.next);
      for (const int64_t end = p + kStepsPerFetch; p < end; ++p) step(acc[0]);
    }
  }
  for (; p < x.k; ++p) step(acc[0]);
  TEV_UNROLL
  for (int s = 1; s < kSteps; ++s) {
    TEV_UNROLL
    for (int j = 0; j < NR * MV; ++j) acc[0][j / MV][j % MV] += acc[s][j / MV][j % MV];
  }
  vec<R, W> out[NC][MV];
  const auto scale = [&]() TEV_LAMBDA {
    TEV_UNROLL
    for (int j = 0; j < NC; ++j) scale_sums<T, W, MV, R>(acc[0] + j * kParts<T>, f, out[j]);
  };
  if constexpr (!kTransposed && kMaskedEdges && W == kLanesOf<R>) {
    if (f.reads_c && x.rows < MV * W) {
      TEV_OPAQUE(c);  // or the compiler would scale once, ahead of both ways, where that waits for all sums
      scale();
      return update_masked<T, W, MV, NC, R>(out, f, c, x.ldc, x.rows);
    }
  }
  scale();
  if constexpr (kTransposed) {
    put_transposed<T, W, MV, NC, R>(out, f, c, x.ldc, x.rows);
  } else {
    TEV_UNROLL
    for (int j = 0; j < NC; ++j) put_column<T, W, MV, R>(out[j], f, c + j * x.ldc, x.rows);
  }
}

}  // namespace tev::TEV_TIER
