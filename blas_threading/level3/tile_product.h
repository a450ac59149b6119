// SPDX-License-Identifier: BSD-3-Clause
// C := C + L (t R) on one thread, the product every routine of this layer is made of. L and R are functions of (row,
// column), see operands.h; t multiplies R while it is copied, which is the order of the reference BLAS: a small t saves
// a product that would overflow.
//
// Blocks of L (mc x kc) and of t R (kc x nc) are copied into strips of MR rows and NR columns, zero-padded, and each
// pair of strips is multiplied into a tile of MR x NR sums that stay in registers for the whole depth of the block:
//
//   strip of L       strip of t R       per step p of the depth (complex: real parts first, then imaginary parts)
//   re[0 .. MR-1]    re[0 .. NR-1]
//   im[0 .. MR-1]    im[0 .. NR-1]
//
// Every sum is formed in the same order wherever its element lies in C, so a result does not depend on how C is split.
// The copies live on the stack (384 KiB): there is no allocation that could fail.
#pragma once

#include <algorithm>
#include <cstdint>

#include "blas_threading/element.h"
#include "blas_threading/team/team.h"

namespace tev::blas {

// A column of the tile is two vector registers of 16 bytes, so the tile takes 8 of 16. A strip of the depth kc takes 8
// KiB, the copies of L and R 128 and 256 KiB: first and second level of the cache of any recent processor.
template <class T>
struct blocking {
  static constexpr int mr = 32 / sizeof(T), nr = 4;
  static constexpr int64_t mc = 64, nc = 128, kc = 2048 / sizeof(T);
};

// MR x NR sums, column by column; complex: all real parts, then all imaginary parts.
template <class T>
struct tile {
  typename element<T>::real part[element<T>::kParts][blocking<T>::nr][blocking<T>::mr];
};

template <class Real>
void store_parts(Real x, Real* to, int /*strip*/) {
  *to = x;
}
inline void store_parts(tev_complex8 x, float* to, int strip) { to[0] = x.real, to[strip] = x.imag; }
inline void store_parts(tev_complex16 x, double* to, int strip) { to[0] = x.real, to[strip] = x.imag; }

// Copies at(i, p), i in `along` and p in `depth`, into strips of `Strip` elements.
template <int Strip, class T, class At>
void copy_strips(span along, span depth, const At& at, typename element<T>::real* to) {
  for (int64_t i0 = along.begin; i0 < along.end; i0 += Strip) {
    const int used = static_cast<int>(std::min<int64_t>(Strip, along.end - i0));
    for (int64_t p = depth.begin; p < depth.end; ++p, to += Strip * element<T>::kParts) {
      for (int i = 0; i < used; ++i) store_parts(at(i0 + i, p), to + i, Strip);
      for (int i = used; i < Strip; ++i) store_parts(T{}, to + i, Strip);
    }
  }
}

// The sums of one tile over a depth of k.
template <class T>
tile<T> multiply_strips(int64_t k, const typename element<T>::real* l, const typename element<T>::real* r) {
  constexpr int MR = blocking<T>::mr, NR = blocking<T>::nr, kParts = element<T>::kParts;
  tile<T> sums = {};
  for (int64_t p = 0; p < k; ++p, l += kParts * MR, r += kParts * NR)
    for (int j = 0; j < NR; ++j)
      for (int i = 0; i < MR; ++i)
        if constexpr (kComplex<T>) {
          sums.part[0][j][i] += l[i] * r[j] - l[MR + i] * r[NR + j];
          sums.part[1][j][i] += l[i] * r[NR + j] + l[MR + i] * r[j];
        } else {
          sums.part[0][j][i] += l[i] * r[j];
        }
  return sums;
}

// Adds the leading rows x columns of a tile to C.
template <class T>
void add_tile(const tile<T>& sums, int64_t rows, int64_t columns, T* c, int64_t ldc) {
  for (int64_t j = 0; j < columns; ++j)
    for (int64_t i = 0; i < rows; ++i) {
      T& x = c[i + j * ldc];
      if constexpr (kComplex<T>)
        x = {x.real + sums.part[0][j][i], x.imag + sums.part[1][j][i]};
      else
        x += sums.part[0][j][i];
    }
}

// C(rows, columns) := C(rows, columns) + L(rows, depth) (t R(depth, columns)); c points to C(0, 0).
template <class T, class Left, class Right>
void add_product(span rows, span columns, span depth, const Left& left, T t, const Right& right, T* c, int64_t ldc) {
  using real = typename element<T>::real;
  constexpr int MR = blocking<T>::mr, NR = blocking<T>::nr, kParts = element<T>::kParts;
  constexpr int64_t mc = blocking<T>::mc, nc = blocking<T>::nc, kc = blocking<T>::kc;
  alignas(64) real l[mc * kc * kParts];
  alignas(64) real r[kc * nc * kParts];
  const auto scaled_column = [&](int64_t j, int64_t p) { return multiply(t, right(p, j)); };

  for (int64_t jc = columns.begin; jc < columns.end; jc += nc)
    for (int64_t pc = depth.begin; pc < depth.end; pc += kc) {
      const span js = {jc, std::min(jc + nc, columns.end)}, ps = {pc, std::min(pc + kc, depth.end)};
      const int64_t k = ps.end - ps.begin;
      copy_strips<NR, T>(js, ps, scaled_column, r);
      for (int64_t ic = rows.begin; ic < rows.end; ic += mc) {
        const span is = {ic, std::min(ic + mc, rows.end)};
        copy_strips<MR, T>(is, ps, left, l);
        for (int64_t j = js.begin; j < js.end; j += NR)
          for (int64_t i = is.begin; i < is.end; i += MR) {
            const tile<T> sums = multiply_strips<T>(k, l + (i - ic) * k * kParts, r + (j - jc) * k * kParts);
            add_tile<T>(sums, std::min<int64_t>(MR, is.end - i), std::min<int64_t>(NR, js.end - j), c + i + j * ldc,
                        ldc);
          }
      }
    }
}

// C(rows, columns) := beta C(rows, columns). beta = 0 stores zeros without a look at C, beta = 1 leaves it alone.
template <class T>
void scale_block(span rows, span columns, T beta, T* c, int64_t ldc) {
  if (is_value(beta, 1)) return;
  for (int64_t j = columns.begin; j < columns.end; ++j) {
    T* column = c + j * ldc;
    if (is_value(beta, 0))
      std::fill(column + rows.begin, column + rows.end, T{});
    else
      scale(rows.end - rows.begin, beta, column + rows.begin);
  }
}

}  // namespace tev::blas
