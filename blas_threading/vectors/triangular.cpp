// SPDX-License-Identifier: BSD-3-Clause
// ?trmv, ?tbmv, ?tpmv: x := op(A) x. ?trsv, ?tbsv, ?tpsv: x := op(A)^-1 x. A is a triangle: full, a band, or packed.
//
// A large full triangle goes by blocks on the diagonal; the rectangle beside a block is a product of gemv, which also
// brings the team where that pays:
//
//   upper       block              multiply, N    others += R block, then D       solve, N    D, then others -= R block
//               R     others       multiply, T    D, then block += R^T others     solve, T    block -= R^T others, then
//               D D ..  block
#include "blas_threading/vectors/arguments.h"
#include "blas_threading/vectors/team_sums.h"
#include "blas_threading/vectors/triangle.h"

namespace tev::blas {
namespace {

using kernels::triangular_form;

constexpr int64_t kOne = 1;

// Order of a block on the diagonal; order from which on a team is worth meeting at every block.
constexpr int64_t kBlock = 128, kTeamOrder = 1024;

template <class T>
void apply_block(const triangle<const T>& a, const triangular_form& form, const span& block, const strided<T>& x) {
  kernel_calls<T>::xtriangular_block(&a, &form, &block.begin, &block.end, x.first, &x.inc);
}

template <class T>
void apply_rectangle(const triangle<const T>& a, const triangular_form& form, const span& block, const strided<T>& x) {
  const span others = a.upper ? span{0, block.begin} : span{block.end, a.n};
  if (others.size() < 1) return;
  const T sign = element_of<T>(form.solves ? -1 : 1), one = element_of<T>(1);
  const int64_t rows = others.size(), columns = block.size();
  const span &from = form.plain() ? block : others, &to = form.plain() ? others : block;
  const auto gemv = a.n < kTeamOrder ? kernel_calls<T>::xgemv : kGemv<T>;
  gemv(&form.trans, &rows, &columns, &sign, a.at(others.begin, block.begin), &a.ld, x.address(from), &x.inc, &one,
       x.address(to), &x.inc);
}

// y += the columns of A that are this thread's share, times x; or, transposed, their own elements of y.
template <class T>
void multiply_columns(const triangle<const T>& a, const triangular_form& form, const span& columns, const T* x,
                      const strided<T>& y) {
  const bool conjugated = form.trans == 'C';
  const auto dot = conjugated ? kernel_calls<T>::xdotc : kernel_calls<T>::xdotu;
  for (int64_t j = columns.begin; j < columns.end; ++j) {
    const span rows = {a.begin_beside(j), a.end_beside(j)};
    const int64_t count = rows.size();
    const T* const column = a.at(rows.begin, j);
    const T diagonal = conjugated ? conjugate(*a.diagonal(j)) : *a.diagonal(j);
    y[j] = add(y[j], form.unit ? x[j] : multiply(diagonal, x[j]));
    if (count < 1) continue;
    if (form.plain())
      kernel_calls<T>::xaxpy(&count, &x[j], column, &kOne, y.address(rows), &y.inc);
    else
      y[j] = add(y[j], dot(&count, column, &kOne, x + rows.begin, &kOne));
  }
}

// False: no memory, nothing was computed.
template <class T>
bool multiply_over_team(const triangle<const T>& a, const triangular_form& form, int64_t threads, const strided<T>& x) {
  T* const old_x = static_cast<T*>(tev_serv_allocate(a.n * static_cast<int64_t>(sizeof(T)), 4096));
  if (old_x == nullptr) return false;
  for (int64_t i = 0; i < a.n; ++i) old_x[i] = x[i], x[i] = T{};
  const auto share = [&](int64_t thread, int64_t team, const strided<T>& own) {
    multiply_columns(a, form, share_of_columns(a, thread, team), old_x, own);
  };
  bool done = true;
  if (form.plain())
    done = add_over_team(a.n, threads, x, share);
  else
    run_team(threads, [&](int64_t thread, int64_t team) { share(thread, team, x); });
  for (int64_t i = 0; !done && i < a.n; ++i) x[i] = old_x[i];
  tev_serv_deallocate(old_x);
  return done;
}

template <class T>
void triangular(bool solves, const triangle<const T>& a, char trans, char diag, T* x, int64_t incx) {
  if (a.n == 0) return;
  const triangular_form form = {kernels::upper_case(trans), kernels::diag_code(diag) == 0, solves};
  const gapless<T> all_x(a.n, x, incx);
  const strided<T>& elements = all_x.elements();
  const int64_t threads = solves || a.kind == storage::full ? 1 : triangle_threads(a);
  if (threads > 1 && multiply_over_team(a, form, threads, elements)) return;
  if (a.kind != storage::full || a.n <= kBlock) return apply_block(a, form, {0, a.n}, elements);
  const int64_t blocks = ceil_div(a.n, kBlock);
  for (int64_t step = 0; step < blocks; ++step) {
    const int64_t begin = (form.upwards(a.upper) ? step : blocks - 1 - step) * kBlock;
    const span block = {begin, std::min(begin + kBlock, a.n)};
    if (form.plain() != solves) apply_rectangle(a, form, block, elements);
    apply_block(a, form, block, elements);
    if (form.plain() == solves) apply_rectangle(a, form, block, elements);
  }
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
