// SPDX-License-Identifier: BSD-3-Clause
// A square on the diagonal is a symmetric matrix of its own. Any other block goes through the driver of the operation,
// which packs it from both sides of the diagonal. Without memory for that it is cut where the diagonal enters and
// leaves it, into a square and pieces that are stored as a whole, plainly or mirrored:
//
//      c0 \.......... c1
//   r0     +---------+
//          |\   |    |        lower stored:   square    mirrored
//          | \  |    |                        plain     plain
//          |--\-+----|
//   r1     +---\-----+
#include "blas_threading/gemm/symmetric.h"

#include <algorithm>

#include "blas_threading/element.h"
#include "blas_threading/gemm/team.h"
#include "blas_threading/kernel_calls.h"

namespace tev::blas {

namespace {

bool is_hermitian(const operand& x) { return (x.copy_mode & kernels::kCopyHermitian) != 0; }

bool is_square_on_diagonal(const operand& x) { return x.row_offset == x.column_offset && x.rows == x.columns; }

template <class T>
void multiply_square(const operation<T>& p, const operand& square, const operand& other, const operand& c) {
  const char side = p.from_right != 0 ? 'R' : 'L', uplo = kernels::stored_triangle(&square);
  kernels::symm_fn<T>* routine = kernel_calls<T>::xsymm;
  if constexpr (kComplex<T>)
    if (is_hermitian(square)) routine = kernel_calls<T>::xhemm;
  routine(&side, &uplo, &c.rows, &c.columns, &p.alpha, elements<T>(square), &square.ld, elements<T>(other), &other.ld,
          &p.beta, elements<T>(c), &c.ld);
}

// The block of the rows and columns, counted from the matrix's own, which lie on one side of the diagonal.
template <class T>
operand piece_of(const operand& x, const span& rows, const span& columns) {
  const T* const matrix = elements<T>(x) - x.row_offset - x.column_offset * x.ld;
  const bool below = rows.begin >= columns.end, lower = kernels::stored_triangle(&x) == 'L';
  if (below == lower)
    return kernels::make_operand(kernels::kNoTrans, matrix + rows.begin + columns.begin * x.ld, rows.size(),
                                 columns.size(), x.ld);
  return kernels::make_operand(is_hermitian(x) ? kernels::kConjTrans : kernels::kTrans,
                               matrix + columns.begin + rows.begin * x.ld, rows.size(), columns.size(), x.ld);
}

// `whole` before, in and behind `common`.
struct cut {
  span part[3];
};
cut cut_at(const span& whole, const span& common) {
  const int64_t begin = std::clamp(common.begin, whole.begin, whole.end),
                end = std::clamp(common.end, begin, whole.end);
  return {{{whole.begin, begin}, {begin, end}, {end, whole.end}}};
}

}  // namespace

template <class T>
void compute_symmetric_in_pieces(const operation<T>& p, const operand& a, const operand& b, const operand& c) {
  const bool right = p.from_right != 0;
  const operand &x = right ? b : a, &other = right ? a : b;
  const span rows = {x.row_offset, x.row_offset + x.rows}, columns = {x.column_offset, x.column_offset + x.columns};
  const span common = {std::max(rows.begin, columns.begin), std::min(rows.end, columns.end)};
  const cut down = cut_at(rows, common), across = cut_at(columns, common);
  // Parts of the result, and for each the parts of the sum.
  for (const span& result : (right ? across : down).part) {
    T beta = p.beta;
    for (const span& sum : (right ? down : across).part) {
      const span &r = right ? sum : result, &s = right ? result : sum;
      if (r.size() < 1 || s.size() < 1) continue;
      operation<T> part = p;
      part.beta = beta;
      beta = element_of<T>(1);
      const operand factor = right ? columns_of(other, {r.begin - rows.begin, r.end - rows.begin})
                                   : rows_of(other, {s.begin - columns.begin, s.end - columns.begin});
      const operand target = right ? columns_of(c, {s.begin - columns.begin, s.end - columns.begin})
                                   : rows_of(c, {r.begin - rows.begin, r.end - rows.begin});
      if (r.begin == s.begin && r.end == s.end) {
        multiply_square(part, block_of(x, r.begin - rows.begin, s.begin - columns.begin, r.size(), s.size()), factor,
                        target);
      } else {
        const operand piece = piece_of<T>(x, r, s);
        const auto product = right ? matrix_product(part.alpha, factor, piece, part.beta, target)
                                   : matrix_product(part.alpha, piece, factor, part.beta, target);
        compute_alone(product, product.a, product.b, product.c);
      }
    }
  }
}

template <class T>
void compute_symmetric(const operation<T>& p, const operand& a, const operand& b, const operand& c) {
  if (c.rows < 1 || c.columns < 1) return;
  const operand &x = p.from_right != 0 ? b : a, &other = p.from_right != 0 ? a : b;
  if (is_square_on_diagonal(x)) return multiply_square(p, x, other, c);
  const operation<T> own = narrowed(p, a, b, c);
  const kernels::thread_info full_copy = {kOwnPanels};
  strategy plan = {};
  kernel_calls<T>::map_thread_to_kernel(&full_copy, &plan);
  kernel_info<T> info;
  kernel_calls<T>::initialize_kernel_info(&own, &a, &b, &c, &plan, &info);
  buffers panels = {};
  if (info.driver(&own, &a, &b, &c, &panels, &info) == kNoMemory) compute_symmetric_in_pieces(p, a, b, c);
}

#define TEV_INSTANTIATE(T)                                                                              \
  template void compute_symmetric(const operation<T>&, const operand&, const operand&, const operand&); \
  template void compute_symmetric_in_pieces(const operation<T>&, const operand&, const operand&, const operand&);
TEV_INSTANTIATE(float)
TEV_INSTANTIATE(double)
TEV_INSTANTIATE(tev_complex8)
TEV_INSTANTIATE(tev_complex16)
#undef TEV_INSTANTIATE

}  // namespace tev::blas
