// SPDX-License-Identifier: BSD-3-Clause
// The routines that may run in the sink, each as its worker there wants it: sizes decide first, then the operands and
// the worker's record are described. A call that is wrong, or has nothing to multiply, stays here.
#include "tev/routed.h"

#include <cstring>
#include <initializer_list>

#include "blas_threading/blas_calls.h"
#include "blas_threading/element.h"
#include "kernels/operation.h"
#include "offload/routing.h"
#include "offload/worker_requests.h"

namespace tev::offload {
namespace {

template <class T>
stored_matrix matrix_of(const T* data, int64_t rows, int64_t columns, int64_t ld, part what = part::all) {
  return {reinterpret_cast<char*>(const_cast<T*>(data)), rows, columns, ld, sizeof(T), what};
}

template <class T>
stored_matrix triangle_of(const T* data, int64_t order, int64_t ld, char uplo) {
  return matrix_of(data, order, order, ld, uplo == 'U' ? part::upper : part::lower);
}

// op(X), rows x columns, as it is stored.
template <class T>
stored_matrix operand_of(char trans, const T* data, int64_t rows, int64_t columns, int64_t ld) {
  return trans == 'N' ? matrix_of(data, rows, columns, ld) : matrix_of(data, columns, rows, ld);
}

bool are_right(std::initializer_list<stored_matrix> operands) {
  for (const stored_matrix& x : operands)
    if (x.rows < 1 || x.columns < 1 || x.ld < x.rows) return false;
  return true;
}

double times(int64_t m, int64_t n, int64_t k) {
  return static_cast<double>(m) * static_cast<double>(n) * static_cast<double>(k);
}

// Where the sink finds a call's operands.
struct placed_operands {
  std::vector<const void*> addresses;
  std::vector<int64_t> lds;
};

// multiply_adds: of numbers of the type. The last operand is the result. False: the call runs here.
template <class T, class Request>
bool send(double multiply_adds, std::initializer_list<stored_matrix> operands, const T& alpha, bool reads_result,
          const Request& request) {
  if (!are_right(operands)) return false;
  double bytes = static_cast<double>((operands.end() - 1)->packed_bytes());  // comes back
  for (const stored_matrix& x : operands) bytes += static_cast<double>(x.packed_bytes());
  const call_size size = {multiply_adds * (blas::kComplex<T> ? 8 : 2), bytes,
                          sizeof(typename blas::element<T>::real) == sizeof(float)};
  if (!is_sent(size) || blas::is_value(alpha, 0)) return false;
  return run_in_sink({operands, reads_result, size.flops, [&](tev_offload& handle, const auto& matrices) {
                        placed_operands placed;
                        for (const stored_matrix& x : matrices)
                          placed.addresses.push_back(x.data), placed.lds.push_back(x.ld);
                        handle.sink->wait_for(handle.sink->send(request(placed)));
                        return !handle.sink->has_ended();
                      }});
}

template <class T>
bool gemm(char transa, char transb, int64_t m, int64_t n, int64_t k, const T& alpha, const T* a, int64_t lda,
          const T* b, int64_t ldb, const T& beta, T* c, int64_t ldc) {
  return send<T>(times(m, n, k),
                 {operand_of(transa, a, m, k, lda), operand_of(transb, b, k, n, ldb), matrix_of(c, m, n, ldc)}, alpha,
                 !blas::is_value(beta, 0), [&](const placed_operands& placed) {
                   typename records<T>::gemm record = {};
                   record.transa = transa, record.transb = transb;
                   record.m = m, record.n = n, record.k = k;
                   record.alpha = alpha, record.beta = beta;
                   record.lda = placed.lds[0], record.ldb = placed.lds[1], record.ldc = placed.lds[2];
                   return blas_request<T>("gemm_ao_worker", record, placed.addresses);
                 });
}

template <class T>
bool symm(char side, char uplo, int64_t m, int64_t n, const T& alpha, const T* a, int64_t lda, const T* b, int64_t ldb,
          const T& beta, T* c, int64_t ldc) {
  const int64_t order = side == 'L' ? m : n;
  return send<T>(times(m, n, order),
                 {triangle_of(a, order, lda, uplo), matrix_of(b, m, n, ldb), matrix_of(c, m, n, ldc)}, alpha,
                 !blas::is_value(beta, 0), [&](const placed_operands& placed) {
                   typename records<T>::level3 record = {};
                   record.side = side, record.uplo = uplo;
                   record.m = m, record.n = n;
                   record.alpha = alpha, record.beta = beta;
                   record.lda = placed.lds[0], record.ldb = placed.lds[1], record.ldc = placed.lds[2];
                   return blas_request<T>("symm_ao_worker", record, placed.addresses);
                 });
}

// trmm and trsm.
template <class T>
bool triangle(const char* worker, char side, char uplo, char transa, char diag, int64_t m, int64_t n, const T& alpha,
              const T* a, int64_t lda, T* b, int64_t ldb) {
  const int64_t order = side == 'L' ? m : n;
  return send<T>(times(m, n, order) / 2, {triangle_of(a, order, lda, uplo), matrix_of(b, m, n, ldb)}, alpha, true,
                 [&](const placed_operands& placed) {
                   typename records<T>::level3 record = {};
                   record.side = side, record.uplo = uplo, record.transa = transa, record.diag = diag;
                   record.m = m, record.n = n;
                   record.alpha = alpha;
                   record.lda = placed.lds[0], record.ldb = placed.lds[1];
                   return blas_request<T>(worker, record, placed.addresses);
                 });
}

template <class T>
bool syrk(char uplo, char trans, int64_t n, int64_t k, const T& alpha, const T* a, int64_t lda, const T& beta, T* c,
          int64_t ldc) {
  return send<T>(times(n, n, k) / 2, {operand_of(trans, a, n, k, lda), triangle_of(c, n, ldc, uplo)}, alpha,
                 !blas::is_value(beta, 0), [&](const placed_operands& placed) {
                   tev_step_slots slots = {};
                   slots.syrk = {{uplo, {}}, {trans, {}}, n, k, placed.lds[0], placed.lds[1]};
                   return lapack_request<T>("syrk_worker", slots, alpha, beta, placed.addresses);
                 });
}

// In capitals when it is one of them, else 0.
char option(const char* letter, const char* known) {
  const char capital = kernels::upper_case(*letter);
  return std::strchr(known, capital) != nullptr ? capital : '\0';
}

// The transposition of a rank-k update: C is T in the real precisions, and none of the complex ones.
template <class T>
char transposition(const char* letter) {
  const char capital = option(letter, blas::kComplex<T> ? "NT" : "NTC");
  return capital == 'C' ? 'T' : capital;
}

}  // namespace
}  // namespace tev::offload

using namespace tev::offload;

#define TEV_ROUTED_ROUTINES(p, T)                                                                                    \
  void tev_routed_##p##gemm(const char* transa, const char* transb, const int64_t* m, const int64_t* n,              \
                            const int64_t* k, const T* alpha, const T* a, const int64_t* lda, const T* b,            \
                            const int64_t* ldb, const T* beta, T* c, const int64_t* ldc) {                           \
    const char opa = option(transa, "NTC"), opb = option(transb, "NTC");                                             \
    if (opa && opb && gemm<T>(opa, opb, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc)) return;               \
    tev_blas_##p##gemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);                                \
  }                                                                                                                  \
  void tev_routed_##p##symm(const char* side, const char* uplo, const int64_t* m, const int64_t* n, const T* alpha,  \
                            const T* a, const int64_t* lda, const T* b, const int64_t* ldb, const T* beta, T* c,     \
                            const int64_t* ldc) {                                                                    \
    const char left = option(side, "LR"), upper = option(uplo, "UL");                                                \
    if (left && upper && symm<T>(left, upper, *m, *n, *alpha, a, *lda, b, *ldb, *beta, c, *ldc)) return;             \
    tev_blas_##p##symm(side, uplo, m, n, alpha, a, lda, b, ldb, beta, c, ldc);                                       \
  }                                                                                                                  \
  void tev_routed_##p##syrk(const char* uplo, const char* trans, const int64_t* n, const int64_t* k, const T* alpha, \
                            const T* a, const int64_t* lda, const T* beta, T* c, const int64_t* ldc) {               \
    const char upper = option(uplo, "UL"), op = transposition<T>(trans);                                             \
    if (upper && op && syrk<T>(upper, op, *n, *k, *alpha, a, *lda, *beta, c, *ldc)) return;                          \
    tev_blas_##p##syrk(uplo, trans, n, k, alpha, a, lda, beta, c, ldc);                                              \
  }                                                                                                                  \
  TEV_ROUTED_TRIANGLE(p, T, trmm)                                                                                    \
  TEV_ROUTED_TRIANGLE(p, T, trsm)
#define TEV_ROUTED_TRIANGLE(p, T, name)                                                                               \
  void tev_routed_##p##name(const char* side, const char* uplo, const char* transa, const char* diag,                 \
                            const int64_t* m, const int64_t* n, const T* alpha, const T* a, const int64_t* lda, T* b, \
                            const int64_t* ldb) {                                                                     \
    const char left = option(side, "LR"), upper = option(uplo, "UL"), op = option(transa, "NTC"),                     \
               unit = option(diag, "NU");                                                                             \
    if (left && upper && op && unit &&                                                                                \
        triangle<T>(#name "_ao_worker", left, upper, op, unit, *m, *n, *alpha, a, *lda, b, *ldb))                     \
      return;                                                                                                         \
    tev_blas_##p##name(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);                                        \
  }
TEV_FOR_EACH_PRECISION(TEV_ROUTED_ROUTINES)
