// SPDX-License-Identifier: BSD-3-Clause
// C is divided into chunks of columns (side L) or rows (side R), to which all blocks of reflectors are applied one
// after the other, each chunk on one thread.
#include "factorizations/qr_apply.h"

#include <algorithm>

#include "factorizations/chunks.h"
#include "factorizations/kernels.h"
#include "factorizations/qr_panel.h"
#include "factorizations/scalars.h"
#include "factorizations/workspace.h"
#include "tev/lapack.h"

namespace tev::lapack {

namespace {

using blas::span;

// Lines of C in a chunk: products of 128 run at full speed, but a team wants several chunks.
int64_t chunk_width(int64_t lines) { return lines < 512 ? 32 : 128; }

// body(lines) for each chunk of them.
template <class Body>
void for_line_chunks(int64_t lines, const Body& body) {
  const int64_t width = chunk_width(lines);
  for_chunks(blas::ceil_div(lines, width), [&](int64_t i) { body(span{i * width, std::min((i + 1) * width, lines)}); });
}

template <class T>
struct larfb_of;
#define TEV_LARFB_OF(p, T)                              \
  template <>                                           \
  struct larfb_of<T> {                                  \
    static constexpr auto call = tev_lapack_##p##larfb; \
  };
TEV_LARFB_OF(s, float)
TEV_LARFB_OF(d, double)
TEV_LARFB_OF(c, tev_complex8)
TEV_LARFB_OF(z, tev_complex16)
#undef TEV_LARFB_OF

// Blocks of reflectors with their triangular factors, side by side.
template <class T>
struct reflector_blocks {
  matrix_view<T> v, t;

  int64_t count() const { return blas::ceil_div(v.columns, t.rows); }
  span block(int64_t number) const { return {number * t.rows, std::min((number + 1) * t.rows, v.columns)}; }
};

// A few lines of C have blocks so narrow that their factors cost less than they save.
int64_t block_width(int64_t lines, int64_t reflectors) {
  return std::clamp<int64_t>(reflectors, 1, lines < 4 ? 8 : lines < 64 ? 32 : 64);
}

template <class T>
void form_factors(const reflector_blocks<T>& q, const T* tau) {
  for_chunks(q.count(), [&](int64_t number) {
    const span own = q.block(number);
    form_qr_factor(q.v.block(own.begin, own.begin, q.v.rows - own.begin, own.size()), tau + own.begin,
                   q.t.block(0, own.begin, own.size(), own.size()));
  });
}

template <class T>
matrix_view<T> lines_of(bool left, const matrix_view<T>& c, const span& along, const span& lines) {
  return left ? c.block(along.begin, lines.begin, along.size(), lines.size())
              : c.block(lines.begin, along.begin, lines.size(), along.size());
}

// Applies the blocks in [first, last) to some lines of C.
template <class T>
void apply_blocks(bool left, bool transposed, const reflector_blocks<T>& q, const span& blocks, const matrix_view<T>& c,
                  const span& lines, const matrix_view<T>& w) {
  const bool forward = left == transposed;
  for (int64_t i = 0; i < blocks.size(); ++i) {
    const span own = q.block(forward ? blocks.begin + i : blocks.end - 1 - i);
    const matrix_view<T> part = lines_of(left, c, {own.begin, q.v.rows}, lines);
    const int64_t k = own.size();
    larfb_of<T>::call(left ? "L" : "R", transposed ? "C" : "N", "F", "C", &part.rows, &part.columns, &k,
                      &q.v(own.begin, own.begin), &q.v.ld, &q.t(0, own.begin), &q.t.ld, part.data, &part.ld,
                      &w(lines.begin, 0), &w.ld, 1, 1, 1, 1);
  }
}

}  // namespace

template <class T>
bool apply_q(bool left, bool transposed, const matrix_view<T>& v, const T* tau, const matrix_view<T>& c) {
  const int64_t lines = left ? c.columns : c.rows, width = block_width(lines, v.columns);
  if (lines == 0 || v.columns == 0) return true;
  const workspace<T> space(width * (v.columns + lines));
  if (!space) return false;
  const reflector_blocks<T> q = {v, {space.data(), width, v.columns, width}};
  const matrix_view<T> w = {space.data() + width * v.columns, lines, width, lines};
  form_factors(q, tau);
  for_line_chunks(lines, [&](const span& own) { apply_blocks(left, transposed, q, {0, q.count()}, c, own, w); });
  return true;
}

// Q times the first columns of the unit matrix. The blocks beyond a chunk leave it as it is.
template <class T>
bool generate_q(const matrix_view<T>& a, int64_t k, const T* tau) {
  if (a.columns == 0) return true;
  const int64_t width = block_width(a.columns, k);
  const workspace<T> space(k * a.rows + width * (k + a.columns));
  if (!space) return false;
  const matrix_view<T> v = {space.data(), a.rows, k, a.rows};
  const reflector_blocks<T> q = {v, {v.data + k * a.rows, width, k, width}};
  const matrix_view<T> w = {q.t.data + width * k, a.columns, width, a.columns};
  for_chunks(k, [&](int64_t j) { std::copy(&a(j, j), &a(0, j) + a.rows, &v(j, j)); });
  form_factors(q, tau);
  for_line_chunks(a.columns, [&](const span& columns) {
    for (int64_t j = columns.begin; j < columns.end; ++j) {
      std::fill_n(&a(0, j), a.rows, element_of<T>(0));
      a(j, j) = element_of<T>(1);
    }
    apply_blocks(true, false, q, {0, blas::ceil_div(std::min(columns.end, k), width)}, a, columns, w);
  });
  return true;
}

#define TEV_QR_APPLY(T)                                                                      \
  template bool apply_q(bool, bool, const matrix_view<T>&, const T*, const matrix_view<T>&); \
  template bool generate_q(const matrix_view<T>&, int64_t, const T*);
TEV_QR_APPLY(float)
TEV_QR_APPLY(double)
TEV_QR_APPLY(tev_complex8)
TEV_QR_APPLY(tev_complex16)
#undef TEV_QR_APPLY

}  // namespace tev::lapack
