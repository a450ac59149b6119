// SPDX-License-Identifier: BSD-3-Clause
// ?trmv, ?tbmv, ?tpmv: x := op(A) x. ?trsv, ?tbsv, ?tpsv: x := op(A)^-1 x. A is a triangle: full, a band, or packed.
//
// The calling thread walks through all columns once. A team solves with a full triangle by blocks on its diagonal; the
// rectangle beside a block is a product of gemv, which brings the team:
//
//   upper       R     others       N    D, then others -= R block
//               D D ..  block      T    block -= R^T others, then D
//
// A team multiplies in one go. Each thread has elements of x of its own, and reads what gives to them: the triangle D
// on the diagonal and, times the old x, what lies beside it:
//
//   upper, N    D R R R    thread 0      upper, T    D   R
//                 D R R                                D R
//                   D D    thread 1                      D D
//                     D                                    D
//                                                    thread 0, 1
#include "blas_threading/team/barrier.h"
#include "blas_threading/vectors/arguments.h"
#include "blas_threading/vectors/team_sums.h"
#include "blas_threading/vectors/triangle.h"

namespace tev::blas {
namespace {

using kernels::triangular_form;

constexpr int64_t kOne = 1;

template <class T>
void apply_block(const triangle<const T>& a, const triangular_form& form, const span& block, const strided<T>& x) {
  kernel_calls<T>::xtriangular_block(&a, &form, &block.begin, &block.end, x.first, &x.inc);
}

// What a block of a solution gives to the others, or takes from them.
template <class T>
void subtract_rectangle(const triangle<const T>& a, const triangular_form& form, const span& block,
                        const strided<T>& x) {
  const span others = a.upper ? span{0, block.begin} : span{block.end, a.n};
  if (others.size() < 1) return;
  const T minus = element_of<T>(-1), one = element_of<T>(1);
  const int64_t rows = others.size(), columns = block.size();
  const span &from = form.plain() ? block : others, &to = form.plain() ? others : block;
  kGemv<T>(&form.trans, &rows, &columns, &minus, a.at(others.begin, block.begin), &a.ld, x.address(from), &x.inc, &one,
           x.address(to), &x.inc);
}

template <class T>
void solve_by_blocks(const triangle<const T>& a, const triangular_form& form, const strided<T>& x) {
  constexpr int64_t kBlock = 128;
  const int64_t blocks = ceil_div(a.n, kBlock);
  for (int64_t step = 0; step < blocks; ++step) {
    const int64_t begin = (form.upwards(a.upper) ? step : blocks - 1 - step) * kBlock;
    const span block = {begin, std::min(begin + kBlock, a.n)};
    if (!form.plain()) subtract_rectangle(a, form, block, x);
    apply_block(a, form, block, x);
    if (form.plain()) subtract_rectangle(a, form, block, x);
  }
}

// Is a solution worth a team that meets at every block?
template <class T>
bool deserves_meetings(const triangle<const T>& a) {
  return a.kind == storage::full && a.n * (a.n + 1) / 2 >= 4 * kMatrixChunk<T> && triangle_threads(a, used::once) > 1;
}

// own x += R times the old x.
template <class T>
void add_others(const triangle<const T>& a, const triangular_form& form, const span& own, const T* old_x,
                const strided<T>& x) {
  const span others = a.upper == form.plain() ? span{own.end, a.n} : span{0, own.begin};
  const span &rows = form.plain() ? own : others, &columns = form.plain() ? others : own;
  if (others.size() < 1) return;
  if (a.kind == storage::full) {
    const T one = element_of<T>(1);
    const int64_t m = rows.size(), n = columns.size();
    return kernel_calls<T>::xgemv(&form.trans, &m, &n, &one, a.at(rows.begin, columns.begin), &a.ld,
                                  old_x + others.begin, &kOne, &one, x.address(own), &x.inc);
  }
  const auto dot = form.trans == 'C' ? kernel_calls<T>::xdotc : kernel_calls<T>::xdotu;
  const int64_t first = a.upper ? columns.begin : std::max(columns.begin, rows.begin - a.k);
  const int64_t last = a.upper ? std::min(columns.end, rows.end + a.k) : columns.end;
  for (int64_t j = first; j < last; ++j) {
    const span part = {std::max(rows.begin, a.begin_beside(j)), std::min(rows.end, a.end_beside(j))};
    const int64_t count = part.size();
    const T* const column = a.at(part.begin, j);
    if (form.plain())
      kernel_calls<T>::xaxpy(&count, &old_x[j], column, &kOne, x.address(part), &x.inc);
    else
      x[j] = add(x[j], dot(&count, column, &kOne, old_x + part.begin, &kOne));
  }
}

// All of x, in parts.
template <class T>
void multiply_parts(const triangle<const T>& a, const triangular_form& form, int64_t threads, T* old_x,
                    const strided<T>& x) {
  barrier_block all_copied = {};
  run_team(threads, [=, &all_copied](int64_t thread, int64_t team) {
    const span own = share_of_triangle(a, a.upper != form.plain(), thread, team);
    const int64_t count = own.size();
    kernel_calls<T>::xcopy(&count, x.address(own), &x.inc, old_x + own.begin, &kOne);
    tev_barrier_wait(&all_copied, thread, team);
    if (count < 1) return;
    apply_block(a, form, own, x);
    add_others(a, form, own, old_x, x);
  });
}

// y += the columns of A times x.
template <class T>
void add_columns(const triangle<const T>& a, const triangular_form& form, const span& columns, const T* x,
                 const strided<T>& y) {
  for (int64_t j = columns.begin; j < columns.end; ++j) {
    const span rows = {a.begin_beside(j), a.end_beside(j)};
    const int64_t count = rows.size();
    y[j] = add(y[j], form.unit ? x[j] : multiply(*a.diagonal(j), x[j]));
    kernel_calls<T>::xaxpy(&count, &x[j], a.at(rows.begin, j), &kOne, y.address(rows), &y.inc);
  }
}

// Packed columns follow each other without a gap, and memory delivers most when they are read so.
template <class T>
bool multiply_packed_columns(const triangle<const T>& a, const triangular_form& form, int64_t threads, T* old_x,
                             const strided<T>& x) {
  for (int64_t i = 0; i < a.n; ++i) old_x[i] = x[i], x[i] = T{};
  const auto add_share = [=](int64_t thread, int64_t team, const strided<T>& own) {
    add_columns(a, form, share_of_columns(a, thread, team), old_x, own);
  };
  const bool done = add_over_team(a.n, threads, x, add_share);
  for (int64_t i = 0; !done && i < a.n; ++i) x[i] = old_x[i];
  return done;
}

// False: no memory, x is as it was.
template <class T>
bool multiply_over_team(const triangle<const T>& a, const triangular_form& form, int64_t threads, const strided<T>& x) {
  T* const old_x = static_cast<T*>(tev_serv_allocate(a.n * static_cast<int64_t>(sizeof(T)), 64));
  if (old_x == nullptr) return false;
  bool done = true;
  if (a.kind == storage::packed && form.plain())
    done = multiply_packed_columns(a, form, threads, old_x, x);
  else
    multiply_parts(a, form, threads, old_x, x);
  tev_serv_deallocate(old_x);
  return done;
}

template <class T>
void triangular(bool solves, const triangle<const T>& a, char trans, char diag, T* x, int64_t incx) {
  if (a.n == 0) return;
  const triangular_form form = {kernels::upper_case(trans), kernels::diag_code(diag) == 0, solves};
  const gapless<T> all_x(a.n, x, incx);
  if (solves && deserves_meetings(a)) return solve_by_blocks(a, form, all_x.elements());
  const int64_t threads = solves ? 1 : triangle_threads(a, used::once);
  if (threads > 1 && multiply_over_team(a, form, threads, all_x.elements())) return;
  apply_block(a, form, {0, a.n}, all_x.elements());
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
