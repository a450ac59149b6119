// SPDX-License-Identifier: BSD-3-Clause
// One row of C is op(B)^T times a row of op(A), one column is op(A) times a column of op(B), and with k = 1 the product
// is a rank-1 update.
//
// Complex operands may ask for products that level 2 does not have: conj(B) x, or A^T conj(x). Conjugating the whole
// equation turns one into the other,
//
//   y := alpha A^T conj(x) + beta y    <=>    conj(y) := conj(alpha) A^H x + conj(beta) conj(y)
//
// so the result is conjugated in place around the call; only a product with A as stored and conj(x) needs a copy of x.
#include "blas_threading/gemm/degenerate.h"

#include "blas_threading/blas_calls.h"
#include "blas_threading/gemm/tier_row.h"
#include "kernels/records.h"
#include "service/xerbla.h"
#include "tev/service.h"

namespace tev::blas {

namespace {

using kernels::kConjTrans;
using kernels::kNoTrans;

constexpr int64_t kAlignment = 128;
constexpr int64_t kOne = 1;

template <class T>
T* allocate(int64_t count) {
  return static_cast<T*>(tev_serv_allocate(count * static_cast<int64_t>(sizeof(T)), kAlignment));
}

template <class T>
constexpr bool conjugates(int32_t code) {
  return kComplex<T> && code == kConjTrans;
}

template <class T>
void conjugate_in_place(int64_t n, T* x, int64_t inc) {
  for (int64_t i = 0; i < n; ++i) x[i * inc] = conjugate(x[i * inc]);
}

// y := alpha op(A) op(x) + beta y. A is stored as rows x columns; any of transposition, conjugation of A, of x.
template <class T>
struct matrix_vector {
  bool transposed, conjugated;
  int64_t rows, columns;
  T alpha;
  const T* a;
  int64_t lda;
  const T* x;
  int64_t incx;
  bool x_conjugated;
  T beta;
  T* y;
  int64_t incy;
};

template <class T>
void call_gemv(const matrix_vector<T>& p) {
  const char* const trans = !p.transposed ? "N" : p.conjugated ? "C" : "T";
  blas_calls<T>::gemv(trans, &p.rows, &p.columns, &p.alpha, p.a, &p.lda, p.x, &p.incx, &p.beta, p.y, &p.incy);
}

// A as stored, conj(x).
template <class T>
bool multiply_conjugated_copy(matrix_vector<T> p, void (*multiply_vector)(const matrix_vector<T>&)) {
  T* const copy = allocate<T>(p.columns);
  if (copy == nullptr) return false;
  for (int64_t i = 0; i < p.columns; ++i) copy[i] = conjugate(p.x[i * p.incx]);
  p.x = copy;
  p.incx = 1;
  multiply_vector(p);
  tev_serv_deallocate(copy);
  return true;
}

// The equation is conjugated already: y follows.
template <class T>
void call_gemv_conjugated(const matrix_vector<T>& p) {
  const int64_t length = p.transposed ? p.columns : p.rows;
  if (!is_value(p.beta, 0)) conjugate_in_place(length, p.y, p.incy);
  call_gemv(p);
  conjugate_in_place(length, p.y, p.incy);
}

template <class T>
bool multiply_vector(matrix_vector<T> p) {
  const bool flip = p.transposed ? p.x_conjugated : p.conjugated;
  if (flip) {
    p.conjugated = !p.conjugated;
    p.x_conjugated = !p.x_conjugated;
    p.alpha = conjugate(p.alpha);
    p.beta = conjugate(p.beta);
  }
  const auto call = flip ? call_gemv_conjugated<T> : call_gemv<T>;
  if (p.x_conjugated) return multiply_conjugated_copy(p, call);
  call(p);
  return true;
}

// Row i of C.
template <class T>
bool one_row(const operation<T>& p, int64_t i) {
  const bool a_plain = p.op_a == kNoTrans, b_plain = p.op_b == kNoTrans;
  return multiply_vector<T>({.transposed = b_plain,
                             .conjugated = conjugates<T>(p.op_b),
                             .rows = b_plain ? p.k : p.n,
                             .columns = b_plain ? p.n : p.k,
                             .alpha = p.alpha,
                             .a = elements<T>(p.b),
                             .lda = p.b.ld,
                             .x = elements<T>(p.a) + (a_plain ? i : i * p.a.ld),
                             .incx = a_plain ? p.a.ld : 1,
                             .x_conjugated = conjugates<T>(p.op_a),
                             .beta = p.beta,
                             .y = elements<T>(p.c) + i,
                             .incy = p.c.ld});
}

template <class T>
bool one_column(const operation<T>& p) {
  const bool a_plain = p.op_a == kNoTrans;
  return multiply_vector<T>({.transposed = !a_plain,
                             .conjugated = conjugates<T>(p.op_a),
                             .rows = a_plain ? p.m : p.k,
                             .columns = a_plain ? p.k : p.m,
                             .alpha = p.alpha,
                             .a = elements<T>(p.a),
                             .lda = p.a.ld,
                             .x = elements<T>(p.b),
                             .incx = p.op_b == kNoTrans ? 1 : p.b.ld,
                             .x_conjugated = conjugates<T>(p.op_b),
                             .beta = p.beta,
                             .y = elements<T>(p.c),
                             .incy = 1});
}

// Few rows, and columns of B (and of A, or so few of its elements) that share cache sets.
template <class T>
bool is_few_rows(const operation<T>& p) {
  return p.op_b == kNoTrans && p.m < 8 && (p.a.ld < 8 || p.a.ld % 256 == 0) && p.c.ld < 8 && p.b.ld % 256 == 0 &&
         row_of(tev_serv_cpu_detect()).few_rows.value;
}

template <class T>
bool few_rows(const operation<T>& p) {
  for (int64_t i = 0; i < p.m; ++i) one_row(p, i);  // B is not transposed: no copy that could fail
  return true;
}

// The column is read once per column of C. A strided one of more than 64 elements is first copied; plainly, since the
// update conjugates by the letters.
template <class T>
bool rank_1(const operation<T>& p) {
  const char transa = kernels::letter_of(p.op_a), transb = kernels::letter_of(p.op_b);
  const int64_t a_stride = p.op_a == kNoTrans ? 1 : p.a.ld, b_stride = p.op_b == kNoTrans ? p.b.ld : 1;
  const auto update = [&](const T* x, const int64_t& stride) {
    blas_calls<T>::gemmger(&transa, &transb, &p.m, &p.n, &p.alpha, x, &stride, elements<T>(p.b), &b_stride, &p.beta,
                           elements<T>(p.c), &p.c.ld);
    return true;
  };
  if (a_stride == 1 || p.m <= 64) return update(elements<T>(p.a), a_stride);
  constexpr char kName[] = {element<T>::kLetter, 'G', 'E', 'M', 'M', '\0'};
  T* const column = allocate<T>(p.m);
  if (tev_serv_check_ptr_and_warn(column, kName) != 0) return update(elements<T>(p.a), a_stride);
  blas_calls<T>::copy(&p.m, elements<T>(p.a), &a_stride, column, &kOne);
  update(column, kOne);
  tev_serv_deallocate(column);
  return true;
}

}  // namespace

template <class T>
bool degenerate_product(const operation<T>& p) {
  if (p.m == 1) return one_row(p, 0);
  if (is_few_rows(p)) return few_rows(p);
  if (p.n == 1) return one_column(p);
  if (p.k == 1) return rank_1(p);
  return false;
}

#define TEV_INSTANTIATE(p, T) template bool degenerate_product(const operation<T>&);
TEV_FOR_EACH_PRECISION(TEV_INSTANTIATE)
#undef TEV_INSTANTIATE

}  // namespace tev::blas
