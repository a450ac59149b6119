// SPDX-License-Identifier: BSD-3-Clause
// The factorizations that may go to the sink, and what stands on them: factored there, by the calling thread and the
// sink together, or here; everything else is done here. Wrong arguments and questions for a workspace stay here.
#include <algorithm>

#include "factorizations/arguments.h"
#include "factorizations/least_squares.h"
#include "factorizations/scalars.h"
#include "offload/routing.h"
#include "offload/through_sink.h"
#include "tev/lapack.h"
#include "tev/routed.h"

namespace tev::offload {
namespace {

// How much more there is to do than for LU.
struct times_lu {
  double all, panels;
};

// The caller's thread takes the first panel and the block beside it. False: nothing has happened.
template <class T, class Factor>
bool send(const matrix_view<T>& a, part what, int64_t width, const times_lu& work, const Factor& factor) {
  if (a.rows < 1 || a.columns <= 2 * width || a.ld < a.rows) return false;
  const stored_matrix stored = {reinterpret_cast<char*>(a.data), a.rows, a.columns, a.ld, sizeof(T), what};
  const auto m = static_cast<double>(a.rows), n = static_cast<double>(a.columns), order = std::min(m, n);
  const double flops = blas::kComplex<T> ? 8 : 2;  // of a multiply-add
  const call_size size = {
      .flops = work.all * flops * order * (m * n - (m + n) * order / 2 + order * order / 3),
      .bytes = 2.0 * static_cast<double>(stored.packed_bytes()),
      .is_single = sizeof(typename blas::element<T>::real) == sizeof(float),
      .panel_flops = work.panels * flops * static_cast<double>(width) * order * (m - order / 2) / 2};
  return is_sent(size) && run_in_sink({{stored}, true, size.flops, [&](tev_offload& sink, const auto& placed) {
                                         const stored_matrix& own = placed.front();
                                         return factor(sink, matrix_view<T>{reinterpret_cast<T*>(own.data), own.rows,
                                                                            own.columns, own.ld}) == TEV_OFFLOAD_OK;
                                       }});
}

constexpr auto kNotHere = [] {};  // what the sink leaves is the caller's

template <class T>
bool getrf(const matrix_view<T>& a, int64_t* ipiv, int64_t* info) {
  const int64_t width = lu_width(std::min(a.rows, a.columns));
  return send(a, part::all, width, {1, 1}, [&](tev_offload& sink, const matrix_view<T>& shared) {
    return lu_through_sink<T>(sink, shared, ipiv, info, kNotHere);
  });
}

template <class T>
bool potrf(char uplo, const matrix_view<T>& a, int64_t* info) {
  if (!lapack::is_one_of(uplo, "UL")) return false;
  const char triangle = lapack::upper_case(uplo);
  const int64_t width = cholesky_width(a.rows);
  return send(a, triangle == 'U' ? part::upper : part::lower, width, {0.5, 1},
              [&](tev_offload& sink, const matrix_view<T>& shared) {
                return cholesky_through_sink<T>(sink, triangle, shared, info, kNotHere);
              });
}

template <class T>
bool geqrf(const matrix_view<T>& a, T* tau, int64_t* info) {
  const int64_t width = qr_width(std::min(a.rows, a.columns));
  return send(a, part::all, width, {2, 2}, [&](tev_offload& sink, const matrix_view<T>& shared) {
    return qr_through_sink<T>(sink, shared, tau, info, kNotHere);
  });
}

bool system_is_right(int64_t n, int64_t nrhs, int64_t ldb) { return nrhs >= 0 && lapack::holds(ldb, n); }

}  // namespace
}  // namespace tev::offload

using tev::lapack::matrix_view;
using namespace tev::offload;

#define TEV_ROUTED_FACTORIZATIONS(p, T)                                                                              \
  void tev_routed_##p##getrf(const int64_t* m, const int64_t* n, T* a, const int64_t* lda, int64_t* ipiv,            \
                             int64_t* info) {                                                                        \
    if (!getrf<T>({a, *m, *n, *lda}, ipiv, info)) tev_lapack_##p##getrf(m, n, a, lda, ipiv, info);                   \
  }                                                                                                                  \
  void tev_routed_##p##gesv(const int64_t* n, const int64_t* nrhs, T* a, const int64_t* lda, int64_t* ipiv, T* b,    \
                            const int64_t* ldb, int64_t* info) {                                                     \
    if (!system_is_right(*n, *nrhs, *ldb) || !getrf<T>({a, *n, *n, *lda}, ipiv, info))                               \
      tev_lapack_##p##gesv(n, nrhs, a, lda, ipiv, b, ldb, info);                                                     \
    else if (*info == 0)                                                                                             \
      tev_lapack_##p##getrs("N", n, nrhs, a, lda, ipiv, b, ldb, info);                                               \
  }                                                                                                                  \
  void tev_routed_##p##potrf(const char* uplo, const int64_t* n, T* a, const int64_t* lda, int64_t* info) {          \
    if (!potrf<T>(*uplo, {a, *n, *n, *lda}, info)) tev_lapack_##p##potrf(uplo, n, a, lda, info);                     \
  }                                                                                                                  \
  void tev_routed_##p##posv(const char* uplo, const int64_t* n, const int64_t* nrhs, T* a, const int64_t* lda, T* b, \
                            const int64_t* ldb, int64_t* info) {                                                     \
    if (!system_is_right(*n, *nrhs, *ldb) || !potrf<T>(*uplo, {a, *n, *n, *lda}, info))                              \
      tev_lapack_##p##posv(uplo, n, nrhs, a, lda, b, ldb, info);                                                     \
    else if (*info == 0)                                                                                             \
      tev_lapack_##p##potrs(uplo, n, nrhs, a, lda, b, ldb, info);                                                    \
  }                                                                                                                  \
  void tev_routed_##p##geqrf(const int64_t* m, const int64_t* n, T* a, const int64_t* lda, T* tau, T* work,          \
                             const int64_t* lwork, int64_t* info) {                                                  \
    if (*lwork < *n || !geqrf<T>({a, *m, *n, *lda}, tau, info))                                                      \
      return tev_lapack_##p##geqrf(m, n, a, lda, tau, work, lwork, info);                                            \
    *work = tev::lapack::real_element<T>(static_cast<tev::blas::element<T>::real>(*n));                              \
  }                                                                                                                  \
  void tev_routed_##p##gels(const char* trans, const int64_t* m, const int64_t* n, const int64_t* nrhs, T* a,        \
                            const int64_t* lda, T* b, const int64_t* ldb, T* work, const int64_t* lwork,             \
                            int64_t* info) {                                                                         \
    tev::lapack::gels<T>(*trans, *m, *n, *nrhs, a, *lda, b, *ldb, work, *lwork, info,                                \
                         [info](const matrix_view<T>& tall, T* tau) {                                                \
                           return geqrf<T>(tall, tau, info) || tev::lapack::qr_in_process<T>(tall, tau);             \
                         });                                                                                         \
  }
TEV_FOR_EACH_PRECISION(TEV_ROUTED_FACTORIZATIONS)
