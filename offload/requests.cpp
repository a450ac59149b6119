// SPDX-License-Identifier: BSD-3-Clause
#include "offload/requests.h"

#include "factorizations/kernels.h"
#include "offload/worker_requests.h"

namespace tev::offload {
namespace {

// alpha = -1, beta = 1: something is subtracted.
template <class T>
step_request subtraction(const char* worker, const tev_step_slots& slots, std::vector<const void*> operands) {
  return lapack_request<T>(worker, slots, blas::element_of<T>(-1), blas::element_of<T>(1), std::move(operands));
}

tev_option_slot option(char letter) { return {letter, {}}; }

span columns_of(const lapack::column_division& division, const span& blocks) {
  return {division.block(blocks.begin).begin, division.block(blocks.end - 1).end};
}

}  // namespace

template <class T>
std::vector<step_request> lu_requests<T>::operator()(int64_t panel, const span& blocks) const {
  const span own = division.block(panel), columns = columns_of(division, blocks);
  const int64_t below = a.rows - own.end;
  const tev_getrf_record record = {.update_n = columns.size(),
                                   .update_m = below,
                                   .update_k = own.size(),
                                   .update_lda = a.ld,
                                   .update_ldb = a.ld,
                                   .update_ldc = a.ld,
                                   .solve_m = own.size(),
                                   .solve_n = columns.size(),
                                   .solve_lda = a.ld,
                                   .solve_ldb = a.ld,
                                   .swap_n = columns.size(),
                                   .swap_lda = a.ld,
                                   .swap_k1 = own.begin + 1,
                                   .swap_k2 = own.end,
                                   .update_guards = {0, below}};
  const T* const top = &a(own.begin, columns.begin);
  std::vector<const void*> operands = {&a(0, columns.begin), pivots, &a(own.begin, own.begin), top};
  if (below > 0) operands.insert(operands.end(), {&a(own.end, own.begin), top, &a(own.end, columns.begin)});
  return {worker_request<T>("tev_lapack_", "getrf_worker", 0, record, std::move(operands))};
}

// C := C - A A^H, C of the lines `own`.
template <class T>
step_request cholesky_requests<T>::square(int64_t panel, const span& own) const {
  tev_step_slots slots = {};
  slots.syrk = {option(uplo), option(uplo == 'L' ? 'N' : 'T'), own.size(), width, a.ld, a.ld};
  return subtraction<T>("syrk_worker", slots, {at(own.begin, panel * width), at(own.begin, own.begin)});
}

// Of L these rows and columns, of U the mirror image.
template <class T>
step_request cholesky_requests<T>::product(int64_t panel, const span& rows, const span& columns) const {
  const T *const far = at(rows.begin, panel * width), *const near = at(columns.begin, panel * width);
  tev_step_slots slots = {};
  if (uplo == 'L')
    slots.gemm = {option('N'), option(lapack::kAdjoint<T>), rows.size(), columns.size(), width, a.ld, a.ld, a.ld};
  else
    slots.gemm = {option(lapack::kAdjoint<T>), option('N'), columns.size(), rows.size(), width, a.ld, a.ld, a.ld};
  return subtraction<T>("gemm_worker", slots,
                        {uplo == 'L' ? far : near, uplo == 'L' ? near : far, at(rows.begin, columns.begin)});
}

// But for its diagonal: the rectangle between two halves, then the halves.
template <class T>
void cholesky_requests<T>::cover_triangle(int64_t panel, const span& blocks,
                                          std::vector<step_request>* requests) const {
  if (blocks.size() < 2) return;
  const int64_t middle = blocks.begin + blocks.size() / 2;
  requests->push_back(product(panel, lines({middle, blocks.end}), lines({blocks.begin, middle})));
  cover_triangle(panel, {blocks.begin, middle}, requests);
  cover_triangle(panel, {middle, blocks.end}, requests);
}

template <class T>
std::vector<step_request> cholesky_requests<T>::operator()(int64_t panel, const span& blocks) const {
  const span own = lines(blocks), beyond = {own.end, a.rows};
  std::vector<step_request> requests;
  if constexpr (!blas::kComplex<T>) requests.push_back(square(panel, own));
  if (beyond.size() > 0) requests.push_back(product(panel, beyond, own));
  if constexpr (blas::kComplex<T>) cover_triangle(panel, blocks, &requests);
  return requests;
}

template <class T>
std::vector<step_request> qr_requests<T>::operator()(int64_t panel, const span& blocks) const {
  const span own = division.block(panel), columns = columns_of(division, blocks);
  const int64_t width = division.width;
  tev_step_slots slots = {};
  slots.larfb = {option('L'), option('C'), option('F'), option('C'), a.rows - own.begin, columns.size(),
                 own.size(),  a.ld,        width,       a.ld,        columns.size()};
  return {subtraction<T>("larfb_worker", slots,
                         {&a(own.begin, own.begin), workspace + own.begin * width, &a(own.begin, columns.begin),
                          workspace + (2 * division.order + columns.begin) * width})};
}

template struct lu_requests<float>;
template struct lu_requests<double>;
template struct lu_requests<tev_complex8>;
template struct lu_requests<tev_complex16>;
template struct cholesky_requests<float>;
template struct cholesky_requests<double>;
template struct cholesky_requests<tev_complex8>;
template struct cholesky_requests<tev_complex16>;
template struct qr_requests<float>;
template struct qr_requests<double>;
template struct qr_requests<tev_complex8>;
template struct qr_requests<tev_complex16>;

}  // namespace tev::offload
