// SPDX-License-Identifier: BSD-3-Clause
// ?geqrf, ?orgqr (?ungqr), ?ormqr (?unmqr). Their work arrays are only there for compatibility: what the routines need
// beside the matrices comes from the memory manager.
#include <algorithm>

#include "factorizations/arguments.h"
#include "factorizations/kernels.h"
#include "factorizations/qr.h"
#include "factorizations/qr_apply.h"
#include "factorizations/scalars.h"
#include "tev/lapack.h"

namespace tev::lapack {
namespace {

template <class T>
void geqrf(int64_t m, int64_t n, T* a, int64_t lda, T* tau, T* work, int64_t lwork, int64_t* info) {
  const int64_t order = std::min(m, n), least = order < 1 ? 1 : n;
  if (!are_right<T>("GEQRF", info, {{1, m >= 0}, {2, n >= 0}, {4, holds(lda, m)}, work_length(7, lwork, least)}))
    return;
  if (is_query(work, lwork, least) || order == 0) return;
  if (!qr_in_process<T>({a, m, n, lda}, tau)) report_no_memory<T>("GEQRF", info);
}

template <class T>
void orgqr(int64_t m, int64_t n, int64_t k, T* a, int64_t lda, const T* tau, T* work, int64_t lwork, int64_t* info) {
  const char* const stem = kComplex<T> ? "UNGQR" : "ORGQR";
  const int64_t least = std::max<int64_t>(n, 1);
  if (!are_right<T>(stem, info,
                    {{1, m >= 0},
                     {2, n >= 0 && n <= m},
                     {3, k >= 0 && k <= n},
                     {5, holds(lda, m)},
                     work_length(8, lwork, least)}))
    return;
  if (is_query(work, lwork, least)) return;
  if (!generate_q<T>({a, m, n, lda}, k, tau)) report_no_memory<T>(stem, info);
}

template <class T>
void ormqr(char side, char trans, int64_t m, int64_t n, int64_t k, const T* a, int64_t lda, const T* tau, T* c,
           int64_t ldc, T* work, int64_t lwork, int64_t* info) {
  const char* const stem = kComplex<T> ? "UNMQR" : "ORMQR";
  const bool left = is_one_of(side, "L");
  const int64_t length = left ? m : n, least = std::max<int64_t>(left ? n : m, 1);
  if (!are_right<T>(stem, info,
                    {{1, is_one_of(side, "LR")},
                     {2, is_one_of(trans, kComplex<T> ? "NC" : "NT")},
                     {3, m >= 0},
                     {4, n >= 0},
                     {5, k >= 0 && k <= length},
                     {7, holds(lda, length)},
                     {10, holds(ldc, m)},
                     work_length(12, lwork, least)}))
    return;
  if (is_query(work, lwork, least)) return;
  const matrix_view<T> v = {const_cast<T*>(a), length, k, lda};  // is only read
  if (!apply_q<T>(left, !is_one_of(trans, "N"), v, tau, {c, m, n, ldc})) report_no_memory<T>(stem, info);
}

}  // namespace
}  // namespace tev::lapack

#define TEV_QR(p, orgqr_name, ormqr_name, T)                                                                      \
  void tev_lapack_##p##geqrf(const int64_t* m, const int64_t* n, T* a, const int64_t* lda, T* tau, T* work,       \
                             const int64_t* lwork, int64_t* info) {                                               \
    tev::lapack::geqrf(*m, *n, a, *lda, tau, work, *lwork, info);                                                 \
  }                                                                                                               \
  void tev_lapack_##p##orgqr_name(const int64_t* m, const int64_t* n, const int64_t* k, T* a, const int64_t* lda, \
                                  const T* tau, T* work, const int64_t* lwork, int64_t* info) {                   \
    tev::lapack::orgqr(*m, *n, *k, a, *lda, tau, work, *lwork, info);                                             \
  }                                                                                                               \
  void tev_lapack_##p##ormqr_name(const char* side, const char* trans, const int64_t* m, const int64_t* n,        \
                                  const int64_t* k, const T* a, const int64_t* lda, const T* tau, T* c,           \
                                  const int64_t* ldc, T* work, const int64_t* lwork, int64_t* info) {             \
    tev::lapack::ormqr(*side, *trans, *m, *n, *k, a, *lda, tau, c, *ldc, work, *lwork, info);                     \
  }
TEV_QR(s, orgqr, ormqr, float)
TEV_QR(d, orgqr, ormqr, double)
TEV_QR(c, ungqr, unmqr, tev_complex8)
TEV_QR(z, ungqr, unmqr, tev_complex16)
