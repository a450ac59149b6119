// SPDX-License-Identifier: BSD-3-Clause
// ?syrk, ?herk: C := alpha op(A) op(A)^T + beta C. ?syr2k, ?her2k: C := alpha op(A) op(B)^T + alpha op(B) op(A)^T +
// beta C. Of C one triangle is read and written; the Hermitian ones conjugate what they transpose, and alpha in the
// second term.
//
// The triangle is cut into columns of equal areas, one share for each thread: a square on the diagonal and the
// rectangle beside it, a plain matrix product.
//
//   upper, 3 threads    | 0 |1|2|      A small triangle of deep sums is not cut: each thread sums over a part of k, and
//                        \  | | |      the sums are added in the order of k.
//                          \|_|_|
//                            \|_|
//                              \|
#include <algorithm>

#include "blas_threading/alone.h"
#include "blas_threading/gemm/team.h"
#include "blas_threading/kernel_calls.h"
#include "blas_threading/level3/arguments.h"
#include "blas_threading/level3/shares.h"
#include "blas_threading/run.h"
#include "blas_threading/team/barrier.h"
#include "tev/blas.h"

namespace tev::blas {
namespace {

template <class T>
bool is_upper(const operation<T>& p) {
  return kernels::stored_triangle(&p.c) == 'U';
}

// X^T, or X^H.
template <class T>
operand mirrored(const operand& x, bool hermitian) {
  const bool plain = kernels::stored_transposition(&x) == 'N';
  return kernels::make_operand(!plain      ? kernels::kNoTrans
                               : hermitian ? kernels::kConjTrans
                                           : kernels::kTrans,
                               elements<const T>(x), x.columns, x.rows, x.ld);
}

// The operation describes the first term, op(A) op(B)^T; this is op(B) op(A)^T.
template <class T>
operation<T> second_term(operation<T> p) {
  const bool hermitian = (p.c.copy_mode & kernels::kCopyHermitian) != 0;
  const operand a = mirrored<T>(p.b, hermitian);
  p.b = mirrored<T>(p.a, hermitian);
  p.a = a;
  if (hermitian) p.alpha = conjugate(p.alpha);
  p.beta = element_of<T>(1);
  return p;
}

template <class T>
void update_rectangle(const operation<T>& p, const span& rows, const span& columns) {
  compute_alone(
      matrix_product(p.alpha, rows_of(p.a, rows), columns_of(p.b, columns), p.beta, block_of(p.c, rows, columns)));
}

// A square of the diagonal, and the rectangle beside it.
template <class T>
void update_columns(const operation<T>& p, const span& columns) {
  if (columns.size() < 1) return;
  compute_alone(p, rows_of(p.a, columns), columns_of(p.b, columns), block_of(p.c, columns, columns));
  const span beside = is_upper(p) ? span{0, columns.begin} : span{columns.end, p.n};
  if (beside.size() < 1) return;
  update_rectangle(p, beside, columns);
  if (p.code == kernels::kOpSyr2k) update_rectangle(second_term(p), beside, columns);
}

// Columns of equal areas, in whole lines.
template <class T>
span columns_of_triangle(const operation<T>& p, int64_t thread, int64_t team) {
  const int64_t lines = ceil_div(p.n, kLine<T>);
  int64_t count = 0;
  const int64_t first = tev_serv_divbythreadstr(&thread, &team, &lines, is_upper(p) ? "U" : "L", &count);
  return {std::min(first * kLine<T>, p.n), std::min((first + count) * kLine<T>, p.n)};
}

// Sum number 0 is C itself; the others are n x n and follow one another.
template <class T>
void add_sums(const operation<T>& p, const T* sums, int64_t count, const span& columns) {
  const int64_t n = p.n, step = 1;
  const T one = element_of<T>(1);
  for (int64_t j = columns.begin; j < columns.end; ++j) {
    const span rows = is_upper(p) ? span{0, j + 1} : span{j, n};
    const int64_t length = rows.size(), place = rows.begin + j * n;
    for (int64_t sum = 1; sum < count; ++sum)
      kernel_calls<T>::xaxpy(&length, &one, sums + (sum - 1) * n * n + place, &step,
                             elements<T>(p.c) + rows.begin + j * p.c.ld, &step);
  }
}

// alone(): the call by the entry.
template <class T, class Alone>
void rank_update(const level3_routine& routine, const Alone& alone, bool hermitian, char uplo, char trans, int64_t n,
                 int64_t k, T alpha, const T* a, int64_t lda, const T* b, int64_t ldb, T beta, T* c, int64_t ldc) {
  const level3_arguments arguments = {.uplo = uplo, .trans = trans, .n = n, .k = k, .lda = lda, .ldb = ldb, .ldc = ldc};
  if (!arguments_are_right<T>(routine, arguments) || n == 0) return;
  const bool empty_sum = k == 0 || is_value(alpha, 0);
  if (empty_sum && is_value(beta, 1)) return;
  const int32_t code = routine.kind == level3_kind::rank_2k ? kernels::kOpSyr2k : kernels::kOpSyrk;
  if (empty_sum || threads_worth<T>(code, n, n, k) == 1) return alone();
  operation<T> p = kernels::make_rank_k_operation(uplo, trans, hermitian, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  p.code = code;
  if (hermitian) p.c.copy_mode |= kernels::kCopyHermitian;
  run(p);
}

}  // namespace

template <class T>
void update_by_columns(const operation<T>& p, int64_t threads) {
  run_team(threads, [&](int64_t thread, int64_t team) { update_columns(p, columns_of_triangle(p, thread, team)); });
}

// Without memory for the sums by columns.
template <class T>
void update_by_depth(const operation<T>& p, int64_t threads) {
  const int64_t n = p.n, bytes = (threads - 1) * n * n * static_cast<int64_t>(sizeof(T));
  T* const sums = static_cast<T*>(tev_serv_allocate(bytes, 4096));
  if (sums == nullptr) return update_by_columns(p, threads);
  barrier_block all_summed = {};
  run_team(threads, [&](int64_t thread, int64_t team) {
    const span depth = part_of(thread, team, p.k, 4);
    operation<T> part = narrowed(p, columns_of(p.a, depth), rows_of(p.b, depth), p.c);
    if (thread > 0) {
      part.c = kernels::make_result(sums + (thread - 1) * n * n, n, n, n, p.c.copy_mode);
      part.beta = element_of<T>(0);
    }
    compute_alone(part);
    meet(&all_summed, thread, team);
    add_sums(p, sums, team, columns_of_triangle(p, thread, team));
  });
  tev_serv_deallocate(sums);
}

#define TEV_INSTANTIATE(p, T)                                    \
  template void update_by_columns(const operation<T>&, int64_t); \
  template void update_by_depth(const operation<T>&, int64_t);
TEV_FOR_EACH_PRECISION(TEV_INSTANTIATE)
#undef TEV_INSTANTIATE

}  // namespace tev::blas

// An element of T from the scalar as it is handed over: real for some Hermitian ones.
namespace tev::blas {
namespace {
template <class T, class Scalar>
T scalar_of(Scalar x) {
  if constexpr (kComplex<T> && !kComplex<Scalar>)
    return {x, 0};
  else
    return x;
}
}  // namespace
}  // namespace tev::blas

#define TEV_RANK_K(p, name, routine, hermitian, T, Scalar)                                                       \
  void tev_blas_##p##name(const char* uplo, const char* trans, const int64_t* n, const int64_t* k,               \
                          const Scalar* alpha, const T* a, const int64_t* lda, const Scalar* beta, T* c,         \
                          const int64_t* ldc) {                                                                  \
    const auto alone = [=] { tev_blas_x##p##name(uplo, trans, n, k, alpha, a, lda, beta, c, ldc, 0, 0); };       \
    tev::blas::rank_update(tev::blas::routine, alone, hermitian, *uplo, *trans, *n, *k,                          \
                           tev::blas::scalar_of<T>(*alpha), a, *lda, a, *lda, tev::blas::scalar_of<T>(*beta), c, \
                           *ldc);                                                                                \
  }
#define TEV_RANK_2K(p, name, routine, hermitian, T, Beta)                                                          \
  void tev_blas_##p##name(const char* uplo, const char* trans, const int64_t* n, const int64_t* k, const T* alpha, \
                          const T* a, const int64_t* lda, const T* b, const int64_t* ldb, const Beta* beta, T* c,  \
                          const int64_t* ldc) {                                                                    \
    const auto alone = [=] { tev_blas_x##p##name(uplo, trans, n, k, alpha, a, lda, b, ldb, beta, c, ldc); };       \
    tev::blas::rank_update(tev::blas::routine, alone, hermitian, *uplo, *trans, *n, *k, *alpha, a, *lda, b, *ldb,  \
                           tev::blas::scalar_of<T>(*beta), c, *ldc);                                               \
  }
TEV_RANK_K(s, syrk, kSyrk<float>, false, float, float)
TEV_RANK_K(d, syrk, kSyrk<double>, false, double, double)
TEV_RANK_K(c, syrk, kSyrk<tev_complex8>, false, tev_complex8, tev_complex8)
TEV_RANK_K(z, syrk, kSyrk<tev_complex16>, false, tev_complex16, tev_complex16)
TEV_RANK_K(c, herk, kHerk, true, tev_complex8, float)
TEV_RANK_K(z, herk, kHerk, true, tev_complex16, double)
TEV_RANK_2K(s, syr2k, kSyr2k<float>, false, float, float)
TEV_RANK_2K(d, syr2k, kSyr2k<double>, false, double, double)
TEV_RANK_2K(c, syr2k, kSyr2k<tev_complex8>, false, tev_complex8, tev_complex8)
TEV_RANK_2K(z, syr2k, kSyr2k<tev_complex16>, false, tev_complex16, tev_complex16)
TEV_RANK_2K(c, her2k, kHer2k, true, tev_complex8, float)
TEV_RANK_2K(z, her2k, kHer2k, true, tev_complex16, double)
