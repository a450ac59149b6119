// SPDX-License-Identifier: BSD-3-Clause
// ?trmv, ?tbmv, ?tpmv: x := op(A) x. ?trsv, ?tbsv, ?tpsv: x := op(A)^-1 x. A is a triangle: full, a band, or packed.
//
// Column by column, a column is multiplied by its element of x and added to the others (N), or its product with the
// others is added to its element (T, C). Every element of x must be read before it is written (multiply) or after
// (solve): that gives the direction. A full triangle goes by blocks on the diagonal; the rectangle beside a block is a
// product of gemv, which also brings the team:
//
//   upper       block              multiply, N    others += R block, then D       solve, N    D, then others -= R block
//               R     others       multiply, T    D, then block += R^T others     solve, T    block -= R^T others, then
//               D D ..  block
#include "blas_threading/vectors/arguments.h"
#include "blas_threading/vectors/gapless.h"
#include "blas_threading/vectors/triangle.h"

namespace tev::blas {
namespace {

constexpr int64_t kOne = 1;

// Order of a block on the diagonal.
constexpr int64_t kBlock = 64;

template <class T>
struct triangular_call {
  triangle<const T> a;
  char trans;
  bool unit, solves;

  bool plain() const { return trans == 'N'; }
  bool upwards() const { return (a.upper == plain()) != solves; }  // from the first column to the last
};

// The columns of a block with their part of x.
template <class T>
void by_columns(const triangular_call<T>& c, const span& block, const strided<T>& x) {
  const bool conjugated = c.trans == 'C';
  const auto dot = conjugated ? kernel_calls<T>::xdotc : kernel_calls<T>::xdotu;
  const T sign = element_of<T>(c.solves ? -1 : 1);
  const auto apply_diagonal = [&](int64_t j) {
    if (c.unit) return;
    const T diagonal = conjugate_if(conjugated, *c.a.diagonal(j));
    x[j] = c.solves ? divide(x[j], diagonal) : multiply(x[j], diagonal);
  };
  const auto apply_others = [&](int64_t j) {
    const span beside = c.a.beside(j), rows = {std::max(beside.begin, block.begin), std::min(beside.end, block.end)};
    const int64_t count = rows.size();
    if (count < 1) return;
    const T* const column = c.a.at(rows.begin, j);
    const T factor = multiply(sign, x[j]);
    if (c.plain())
      kernel_calls<T>::xaxpy(&count, &factor, column, &kOne, x.address(rows), &x.inc);
    else
      x[j] = add(x[j], multiply(sign, dot(&count, column, &kOne, x.address(rows), &x.inc)));
  };
  for (int64_t step = 0; step < block.size(); ++step) {
    const int64_t j = c.upwards() ? block.begin + step : block.end - 1 - step;
    if (c.plain() && is_value(x[j], 0)) continue;
    if (c.plain() == c.solves) apply_diagonal(j);
    apply_others(j);
    if (c.plain() != c.solves) apply_diagonal(j);
  }
}

// What the rectangle beside a block has to do with its part of x.
template <class T>
void apply_rectangle(const triangular_call<T>& c, const span& block, const strided<T>& x) {
  const span others = c.a.upper ? span{0, block.begin} : span{block.end, c.a.n};
  if (others.size() < 1) return;
  const T sign = element_of<T>(c.solves ? -1 : 1), one = element_of<T>(1);
  const int64_t rows = others.size(), columns = block.size();
  const span &from = c.plain() ? block : others, &to = c.plain() ? others : block;
  kGemv<T>(&c.trans, &rows, &columns, &sign, c.a.at(others.begin, block.begin), &c.a.ld, x.address(from), &x.inc, &one,
           x.address(to), &x.inc);
}

template <class T>
void by_blocks(const triangular_call<T>& c, const strided<T>& x) {
  const int64_t blocks = ceil_div(c.a.n, kBlock);
  for (int64_t step = 0; step < blocks; ++step) {
    const int64_t begin = (c.upwards() ? step : blocks - 1 - step) * kBlock;
    const span block = {begin, std::min(begin + kBlock, c.a.n)};
    if (c.plain() != c.solves) apply_rectangle(c, block, x);
    by_columns(c, block, x);
    if (c.plain() == c.solves) apply_rectangle(c, block, x);
  }
}

template <class T>
void triangular(bool solves, const triangle<const T>& a, char trans, char diag, T* x, int64_t incx) {
  if (a.n == 0) return;
  const triangular_call<T> c = {a, kernels::upper_case(trans), kernels::diag_code(diag) == 0, solves};
  const gapless<T> all_x(a.n, x, incx);
  if (a.kind == storage::full) return by_blocks(c, all_x.elements());
  by_columns(c, {0, a.n}, all_x.elements());
}

}  // namespace
}  // namespace tev::blas

#define TEV_TRIANGULAR(p, T, op, OP, solves)                                                                           \
  void tev_blas_##p##tr##op(const char* uplo, const char* trans, const char* diag, const int64_t* n, const T* a,       \
                            const int64_t* lda, T* x, const int64_t* incx) {                                           \
    using namespace tev::blas;                                                                                         \
    if (arguments_are_right<T>("TR" OP, {{1, is_uplo(*uplo)},                                                          \
                                         {2, is_trans(*trans)},                                                        \
                                         {3, is_diag(*diag)},                                                          \
                                         {4, *n >= 0},                                                                 \
                                         {6, holds_rows(*lda, *n)},                                                    \
                                         {8, *incx != 0}}))                                                            \
      triangular(solves, full_triangle(*uplo, *n, a, *lda), *trans, *diag, x, *incx);                                  \
  }                                                                                                                    \
  void tev_blas_##p##tb##op(const char* uplo, const char* trans, const char* diag, const int64_t* n, const int64_t* k, \
                            const T* a, const int64_t* lda, T* x, const int64_t* incx) {                               \
    using namespace tev::blas;                                                                                         \
    if (arguments_are_right<T>("TB" OP, {{1, is_uplo(*uplo)},                                                          \
                                         {2, is_trans(*trans)},                                                        \
                                         {3, is_diag(*diag)},                                                          \
                                         {4, *n >= 0},                                                                 \
                                         {5, *k >= 0},                                                                 \
                                         {7, holds_rows(*lda, *k + 1)},                                                \
                                         {9, *incx != 0}}))                                                            \
      triangular(solves, band_triangle(*uplo, *n, *k, a, *lda), *trans, *diag, x, *incx);                              \
  }                                                                                                                    \
  void tev_blas_##p##tp##op(const char* uplo, const char* trans, const char* diag, const int64_t* n, const T* ap,      \
                            T* x, const int64_t* incx) {                                                               \
    using namespace tev::blas;                                                                                         \
    if (arguments_are_right<T>(                                                                                        \
            "TP" OP,                                                                                                   \
            {{1, is_uplo(*uplo)}, {2, is_trans(*trans)}, {3, is_diag(*diag)}, {4, *n >= 0}, {7, *incx != 0}}))         \
      triangular(solves, packed_triangle(*uplo, *n, ap), *trans, *diag, x, *incx);                                     \
  }
#define TEV_TRIANGULAR_PAIR(p, T)       \
  TEV_TRIANGULAR(p, T, mv, "MV", false) \
  TEV_TRIANGULAR(p, T, sv, "SV", true)
TEV_TRIANGULAR_PAIR(s, float)
TEV_TRIANGULAR_PAIR(d, double)
TEV_TRIANGULAR_PAIR(c, tev_complex8)
TEV_TRIANGULAR_PAIR(z, tev_complex16)
