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

#include "blas_threading/gemm/team.h"
#include "blas_threading/kernel_calls.h"
#include "blas_threading/level3/arguments.h"
#include "blas_threading/level3/thread_count.h"
#include "blas_threading/team/barrier.h"
#include "service/detection.h"
#include "tev/blas.h"

namespace tev::blas {
namespace {

// A triangle up to this order is one block for the kernels, and a part of k is worth a sum of its own from here on.
constexpr int64_t kSmallOrder = 384, kLeastDepth = 384;

template <class T>
struct rank_update {
  operation<T> p;  // op(A), op(A)^T; or op(A), op(B)^T: the first term
  bool hermitian, rank_2k;

  bool upper() const { return kernels::stored_triangle(&p.c) == 'U'; }
};

// X^T, or X^H.
template <class T>
operand mirrored(const operand& x, bool hermitian) {
  const bool plain = kernels::stored_transposition(&x) == 'N';
  return kernels::make_operand(!plain      ? kernels::kNoTrans
                               : hermitian ? kernels::kConjTrans
                                           : kernels::kTrans,
                               elements<const T>(x), x.columns, x.rows, x.ld);
}

// Of the second term: op(B), op(A)^T.
template <class T>
operation<T> second_term(const rank_update<T>& u) {
  operation<T> p = u.p;
  p.a = mirrored<T>(u.p.b, u.hermitian);
  p.b = mirrored<T>(u.p.a, u.hermitian);
  if (u.hermitian) p.alpha = conjugate(p.alpha);
  p.beta = element_of<T>(1);
  return p;
}

// The part of the update that falls on a square of the diagonal.
template <class T>
void update_square(const rank_update<T>& u, const span& lines) {
  const operand a = rows_of(u.p.a, lines), b = columns_of(u.p.b, lines), c = block_of(u.p.c, lines, lines);
  const int64_t n = lines.size(), k = a.columns;
  const char uplo = u.upper() ? 'U' : 'L', trans = kernels::stored_transposition(&a);
  if constexpr (kComplex<T>) {
    const auto beta = u.p.beta.real;
    if (u.hermitian && u.rank_2k)
      return kernel_calls<T>::xher2k(&uplo, &trans, &n, &k, &u.p.alpha, elements<T>(a), &a.ld, elements<T>(b), &b.ld,
                                     &beta, elements<T>(c), &c.ld);
    if (u.hermitian)
      return kernel_calls<T>::xherk(&uplo, &trans, &n, &k, &u.p.alpha.real, elements<T>(a), &a.ld, &beta,
                                    elements<T>(c), &c.ld, 0, 0);
  }
  if (u.rank_2k)
    return kernel_calls<T>::xsyr2k(&uplo, &trans, &n, &k, &u.p.alpha, elements<T>(a), &a.ld, elements<T>(b), &b.ld,
                                   &u.p.beta, elements<T>(c), &c.ld);
  kernel_calls<T>::xsyrk(&uplo, &trans, &n, &k, &u.p.alpha, elements<T>(a), &a.ld, &u.p.beta, elements<T>(c), &c.ld, 0,
                         0);
}

template <class T>
void update_rectangle(const operation<T>& p, const span& rows, const span& columns) {
  const auto product =
      matrix_product(p.alpha, rows_of(p.a, rows), columns_of(p.b, columns), p.beta, block_of(p.c, rows, columns));
  compute_alone(product, product.a, product.b, product.c);
}

template <class T>
void update_columns(const rank_update<T>& u, const span& columns) {
  if (columns.size() < 1) return;
  update_square(u, columns);
  const span beside = u.upper() ? span{0, columns.begin} : span{columns.end, u.p.n};
  if (beside.size() < 1) return;
  update_rectangle(u.p, beside, columns);
  if (u.rank_2k) update_rectangle(second_term(u), beside, columns);
}

// Columns of equal areas, in whole lines.
template <class T>
span columns_of_triangle(const rank_update<T>& u, int64_t thread, int64_t team) {
  const int64_t lines = ceil_div(u.p.n, kLine<T>);
  int64_t count = 0;
  const int64_t first = tev_serv_divbythreadstr(&thread, &team, &lines, u.upper() ? "U" : "L", &count);
  return {std::min(first * kLine<T>, u.p.n), std::min((first + count) * kLine<T>, u.p.n)};
}

// ---- Deep sums -----------------------------------------------------------------------------------------------------

template <class T>
rank_update<T> part_of_depth(rank_update<T> u, const span& depth) {
  u.p = narrowed(u.p, columns_of(u.p.a, depth), rows_of(u.p.b, depth), u.p.c);
  return u;
}

// Sum number 0 is C itself; the others are n x n and follow one another.
template <class T>
void add_sums(const rank_update<T>& u, const T* sums, int64_t count, const span& columns) {
  const int64_t n = u.p.n, step = 1;
  const T one = element_of<T>(1);
  for (int64_t j = columns.begin; j < columns.end; ++j) {
    const span rows = u.upper() ? span{0, j + 1} : span{j, n};
    const int64_t length = rows.size(), place = rows.begin + j * n;
    for (int64_t sum = 1; sum < count; ++sum)
      kernel_calls<T>::xaxpy(&length, &one, sums + (sum - 1) * n * n + place, &step,
                             elements<T>(u.p.c) + rows.begin + j * u.p.c.ld, &step);
  }
}

// False: no memory for the sums, nothing was computed.
template <class T>
bool update_by_depth(const rank_update<T>& u, int64_t threads) {
  const int64_t n = u.p.n, bytes = (threads - 1) * n * n * static_cast<int64_t>(sizeof(T));
  T* const sums = static_cast<T*>(tev_serv_allocate(bytes, 4096));
  if (sums == nullptr) return false;
  barrier_block all_summed = {};
  run_team(threads, [&](int64_t thread, int64_t team) {
    rank_update<T> part = part_of_depth(u, part_of(thread, team, u.p.k, 4));
    if (thread > 0) {
      part.p.c = kernels::make_result(sums + (thread - 1) * n * n, n, n, n, u.p.c.copy_mode);
      part.p.beta = element_of<T>(0);
    }
    update_square(part, {0, n});
    meet(&all_summed, thread, team);
    add_sums(u, sums, team, columns_of_triangle(u, thread, team));
  });
  tev_serv_deallocate(sums);
  return true;
}

// ---- The team ------------------------------------------------------------------------------------------------------

// Parts of k change the sums with the number of threads, which a reproducible run does not want.
bool may_split_sums() { return tev_serv_cbwr_get(1) <= TEV_CBWR_AUTO; }

template <class T>
void update_over_team(const rank_update<T>& u) {
  const int64_t n = u.p.n, k = u.p.k;
  const int64_t threads = thread_count<T>(n, n, u.rank_2k ? k : k / 2);
  if (threads == 1) return update_square(u, {0, n});
  if (n <= kSmallOrder && k >= threads * kLeastDepth && may_split_sums() && update_by_depth(u, threads)) return;
  run_team(threads, [&](int64_t thread, int64_t team) { update_columns(u, columns_of_triangle(u, thread, team)); });
}

template <class T>
void rank_update_of(const level3_routine& routine, bool hermitian, char uplo, char trans, int64_t n, int64_t k, T alpha,
                    const T* a, int64_t lda, const T* b, int64_t ldb, T beta, T* c, int64_t ldc) {
  const level3_arguments arguments = {.uplo = uplo, .trans = trans, .n = n, .k = k, .lda = lda, .ldb = ldb, .ldc = ldc};
  if (!arguments_are_right<T>(routine, arguments) || n == 0) return;
  const bool empty_sum = k == 0 || is_value(alpha, 0);
  if (empty_sum && is_value(beta, 1)) return;
  const bool rank_2k = routine.kind == level3_kind::rank_2k;
  const rank_update<T> u = {
      kernels::make_rank_k_operation(uplo, trans, hermitian, n, k, alpha, a, lda, b, ldb, beta, c, ldc), hermitian,
      rank_2k};
  if (empty_sum) return update_square(u, {0, n});
  update_over_team(u);
}

}  // namespace
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

#define TEV_RANK_K(p, name, routine, hermitian, T, Scalar)                                                           \
  void tev_blas_##p##name(const char* uplo, const char* trans, const int64_t* n, const int64_t* k,                   \
                          const Scalar* alpha, const T* a, const int64_t* lda, const Scalar* beta, T* c,             \
                          const int64_t* ldc) {                                                                      \
    tev::blas::rank_update_of(tev::blas::routine, hermitian, *uplo, *trans, *n, *k, tev::blas::scalar_of<T>(*alpha), \
                              a, *lda, a, *lda, tev::blas::scalar_of<T>(*beta), c, *ldc);                            \
  }
#define TEV_RANK_2K(p, name, routine, hermitian, T, Beta)                                                          \
  void tev_blas_##p##name(const char* uplo, const char* trans, const int64_t* n, const int64_t* k, const T* alpha, \
                          const T* a, const int64_t* lda, const T* b, const int64_t* ldb, const Beta* beta, T* c,  \
                          const int64_t* ldc) {                                                                    \
    tev::blas::rank_update_of(tev::blas::routine, hermitian, *uplo, *trans, *n, *k, *alpha, a, *lda, b, *ldb,      \
                              tev::blas::scalar_of<T>(*beta), c, *ldc);                                            \
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
