// SPDX-License-Identifier: BSD-3-Clause
// Single-precision products on the four-iteration multiply-add, which multiplies four vectors in consecutive registers
// by four numbers that follow each other in memory, and adds one product after the other:
//
//   v4fmaddps (b), zmm28, c      c += zmm28 b[0];  c += zmm29 b[1];  c += zmm30 b[2];  c += zmm31 b[3]
//
//   zmm28 .. zmm31               A: 16 rows at p, p+1, p+2, p+3, masked at the last row
//   b(p .. p+3, j)               column j of B, contiguous along k: in place, or a panel on the stack
//
// Written as assembly, because compilers cannot be told to keep four vectors in neighbouring registers. With kQuad
// false the same text is made of plain multiply-adds, in the same order: the results are the same to the bit.
#pragma once

#include "kernels/families/gemm_unpacked-inl.h"

namespace tev::TEV_TIER {

inline constexpr int kQuadColumns = 8, kQuadLanes = 16;
inline constexpr int64_t kQuadDepth = 128;

#define TEV_QUAD_LOADS                                    \
  "vmovups (%[a]), %%zmm28%{%[rows]%}%{z%}\n\t"           \
  "vmovups (%[a],%[step]), %%zmm29%{%[rows]%}%{z%}\n\t"   \
  "vmovups (%[a],%[step],2), %%zmm30%{%[rows]%}%{z%}\n\t" \
  "vmovups (%[a],%[step3]), %%zmm31%{%[rows]%}%{z%}\n\t"
#define TEV_QUAD_OPERANDS                                                                                             \
  [a] "r"(a), [step] "r"(a_step * 4), [step3] "r"(a_step * 12), [rows] "Yk"(rows), [b0] "r"(b), [b1] "r"(b + column), \
      [b2] "r"(b + 2 * column), [b3] "r"(b + 3 * column)
#define TEV_PLAIN_COLUMN(b, c)                      \
  "vfmadd231ps (%[" b "])%{1to16%}, %%zmm28, %[" c  \
  "]\n\t"                                           \
  "vfmadd231ps 4(%[" b "])%{1to16%}, %%zmm29, %[" c \
  "]\n\t"                                           \
  "vfmadd231ps 8(%[" b "])%{1to16%}, %%zmm30, %[" c \
  "]\n\t"                                           \
  "vfmadd231ps 12(%[" b "])%{1to16%}, %%zmm31, %[" c "]\n\t"

// Four steps of k for four columns.
template <bool kQuad>
TEV_INLINE void four_steps(vec<float, 16> (&c)[4], const float* a, int64_t a_step, __mmask16 rows, const float* b,
                           int64_t column) {
  if constexpr (kQuad)
    __asm__(TEV_QUAD_LOADS
            "v4fmaddps (%[b0]), %%zmm28, %[c0]\n\t"
            "v4fmaddps (%[b1]), %%zmm28, %[c1]\n\t"
            "v4fmaddps (%[b2]), %%zmm28, %[c2]\n\t"
            "v4fmaddps (%[b3]), %%zmm28, %[c3]"
            : [c0] "+v"(c[0]), [c1] "+v"(c[1]), [c2] "+v"(c[2]), [c3] "+v"(c[3])
            : TEV_QUAD_OPERANDS
            : "zmm28", "zmm29", "zmm30", "zmm31", "memory");
  else
    __asm__(TEV_QUAD_LOADS TEV_PLAIN_COLUMN("b0", "c0") TEV_PLAIN_COLUMN("b1", "c1") TEV_PLAIN_COLUMN("b2", "c2")
                TEV_PLAIN_COLUMN("b3", "c3")
            : [c0] "+v"(c[0]), [c1] "+v"(c[1]), [c2] "+v"(c[2]), [c3] "+v"(c[3])
            : TEV_QUAD_OPERANDS
            : "zmm28", "zmm29", "zmm30", "zmm31", "memory");
}

#undef TEV_QUAD_LOADS
#undef TEV_QUAD_OPERANDS
#undef TEV_PLAIN_COLUMN

// Columns of op(B), `count` of them, padded with zeros to a multiple of 4 steps and to all columns of the tile.
TEV_INLINE void gather_columns(walk<float> b, int64_t depth, int64_t count, float* panel) {
  const int64_t padded = (depth + 3) / 4 * 4;
  for (int64_t j = 0; j < kQuadColumns; ++j)
    for (int64_t p = 0; p < padded; ++p)
      panel[j * kQuadDepth + p] = j < count && p < depth ? b.at[p * b.row + j * b.column] : 0.0f;
}

template <bool kQuad>
TEV_INLINE void quad_tile(const block<float>& x, int64_t columns_, const float* b, float* c, const finish<float>& f) {
  const auto rows = static_cast<__mmask16>((1u << x.rows) - 1);
  vec<float, 16> acc[kQuadColumns / 4][4] = {};
  const float* a = x.a;
  int64_t p = 0;
  for (; p + 4 <= x.k; p += 4, a += 4 * x.a_step) {
    four_steps<kQuad>(acc[0], a, x.a_step, rows, b + p, x.b_column);
    four_steps<kQuad>(acc[1], a, x.a_step, rows, b + 4 * x.b_column + p, x.b_column);
  }
  for (; p < x.k; ++p, a += x.a_step) {
    const auto av = load_rows<16, 1>(a, 0, x.rows);
    TEV_UNROLL
    for (int j = 0; j < kQuadColumns; ++j)
      acc[j / 4][j % 4] = fma(av, splat<16>(b[j * x.b_column + p]), acc[j / 4][j % 4]);
  }
  TEV_UNROLL
  for (int j = 0; j < kQuadColumns; ++j) {
    if (j >= columns_) break;
    vec<float, 16> out[1] = {acc[j / 4][j % 4] * splat<16>(f.u[0][0])};
    put_column<float, 16, 1, float>(out, f, c + j * x.ldc, x.rows);
  }
}

// C := alpha op(A) op(B) + beta C. B is read in place where a tile's columns are contiguous along k and all there.
template <bool kQuad>
__attribute__((noinline)) void gemm_qfma(bool a_transposed, bool b_transposed, int64_t m, int64_t n, int64_t k,
                                         float alpha, const float* a, int64_t lda, const float* b, int64_t ldb,
                                         float beta, float* c, int64_t ldc) {
  if (m < 1 || n < 1) return;
  if (k < 1 || is_zero(alpha)) return scale_c<float>(m, n, beta, c, ldc);
  const walk<float> aw = walk_of(a, a_transposed, lda), bw = walk_of(b, b_transposed, ldb);
  alignas(64) float a_panel[kQuadDepth * kQuadLanes], b_panel[kQuadDepth * kQuadColumns];
  auto f = finish_of<float>(alpha, beta, false, false);
  for (int64_t p0 = 0; p0 < k; p0 += kQuadDepth) {
    const int64_t depth = k - p0 < kQuadDepth ? k - p0 : kQuadDepth;
    for (int64_t j = 0; j < n; j += kQuadColumns) {
      const int64_t count = n - j < kQuadColumns ? n - j : kQuadColumns;
      walk<float> b_tile{bw.at + p0 * bw.row + j * bw.column, bw.row, bw.column};
      if (b_transposed || count < kQuadColumns) {
        gather_columns(b_tile, depth, count, b_panel);
        b_tile = {b_panel, 1, kQuadDepth};
      }
      for (int64_t i = 0; i < m; i += kQuadLanes) {
        const int64_t rows = m - i < kQuadLanes ? m - i : kQuadLanes;
        const float* strip_a = aw.at + i * aw.row + p0 * aw.column;
        if (a_transposed) transpose_strip<float>(rows, depth, strip_a, aw.row, a_panel, kQuadLanes);
        const block<float> x{rows,
                             count,
                             depth,
                             a_transposed ? a_panel : strip_a,
                             a_transposed ? kQuadLanes : aw.column,
                             b_tile.at,
                             1,
                             b_tile.column,
                             c,
                             ldc,
                             0,
                             0};
        quad_tile<kQuad>(x, count, b_tile.at, c + i + j * ldc, f);
      }
    }
    add_to_c(f);
  }
}

}  // namespace tev::TEV_TIER
