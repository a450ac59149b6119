// SPDX-License-Identifier: BSD-3-Clause
#include "offload/requests.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "blas_threading/element.h"

namespace tev::offload {
namespace {

template <class T>
struct wire;
template <>
struct wire<float> {
  using step = tev_sstep_record;
};
template <>
struct wire<double> {
  using step = tev_dstep_record;
};
template <>
struct wire<tev_complex8> {
  using step = tev_cstep_record;
};
template <>
struct wire<tev_complex16> {
  using step = tev_zstep_record;
};

template <class T, class Record>
step_request make_request(const char* name, uint32_t parameter, const Record& record,
                          std::vector<const void*> operands) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(&record);
  const auto letter = static_cast<char>(std::tolower(blas::element<T>::kLetter));
  return {std::string("tev_lapack_") + letter + name + "_worker",
          parameter,
          {bytes, bytes + sizeof(record)},
          std::move(operands)};
}

// alpha = -1, beta = 1: something is subtracted.
template <class T>
step_request make_step(const char* name, const tev_step_slots& slots, std::vector<const void*> operands) {
  const typename wire<T>::step record = {
      .step = slots, .alpha = blas::element_of<T>(-1), .beta = blas::element_of<T>(1)};
  return make_request<T>(name, sizeof(record), record, std::move(operands));
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
  return {make_request<T>("getrf", 0, record, std::move(operands))};
}

template <class T>
std::vector<step_request> cholesky_requests<T>::operator()(int64_t panel, const span& blocks) const {
  const bool lower = uplo == 'L';
  const int64_t n = a.rows, first = panel * width, begin = blocks.begin * width, end = std::min(blocks.end * width, n);
  const auto at = [&](int64_t i, int64_t j) { return lower ? &a(i, j) : &a(j, i); };
  tev_step_slots square = {}, beside = {};
  square.syrk = {option(uplo), option(lower ? 'N' : 'T'), end - begin, width, a.ld, a.ld};
  std::vector<step_request> requests = {make_step<T>("syrk", square, {at(begin, first), at(begin, begin)})};
  if (end == n) return requests;
  beside.gemm = lower ? decltype(beside.gemm){option('N'), option('T'), n - end, end - begin, width, a.ld, a.ld, a.ld}
                      : decltype(beside.gemm){option('T'), option('N'), end - begin, n - end, width, a.ld, a.ld, a.ld};
  const T *const far = at(end, first), *const near = at(begin, first);
  requests.push_back(make_step<T>("gemm", beside, {lower ? far : near, lower ? near : far, at(end, begin)}));
  return requests;
}

template <class T>
std::vector<step_request> qr_requests<T>::operator()(int64_t panel, const span& blocks) const {
  const span own = division.block(panel), columns = columns_of(division, blocks);
  const int64_t width = division.width;
  tev_step_slots slots = {};
  slots.larfb = {option('L'), option('C'), option('F'), option('C'), a.rows - own.begin, columns.size(),
                 own.size(),  a.ld,        width,       a.ld,        columns.size()};
  return {make_step<T>("larfb", slots,
                       {&a(own.begin, own.begin), workspace + own.begin * width, &a(own.begin, columns.begin),
                        workspace + (2 * division.order + columns.begin) * width})};
}

template struct lu_requests<float>;
template struct lu_requests<double>;
template struct lu_requests<tev_complex8>;
template struct lu_requests<tev_complex16>;
template struct cholesky_requests<float>;
template struct cholesky_requests<double>;
template struct qr_requests<float>;
template struct qr_requests<double>;
template struct qr_requests<tev_complex8>;
template struct qr_requests<tev_complex16>;

}  // namespace tev::offload
