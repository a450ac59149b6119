// SPDX-License-Identifier: BSD-3-Clause
// A worker's request from its record: the worker's name in one precision, its parameter, the record's bytes.
#pragma once

#include <cctype>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "blas_threading/element.h"
#include "offload/connection.h"
#include "tev/request.h"

namespace tev::offload {

template <class T>
struct records;
#define TEV_RECORDS(p, T)                  \
  template <>                              \
  struct records<T> {                      \
    using gemm = tev_##p##gemm_record;     \
    using level3 = tev_##p##level3_record; \
    using step = tev_##p##step_record;     \
  };
TEV_FOR_EACH_PRECISION(TEV_RECORDS)
#undef TEV_RECORDS

// The letter of the precision stands between `layer` and `operation`.
template <class T, class Record>
step_request worker_request(const char* layer, const char* operation, uint32_t parameter, const Record& record,
                            std::vector<const void*> operands) {
  static_assert(std::is_trivially_copyable_v<Record>);
  const auto* bytes = reinterpret_cast<const unsigned char*>(&record);
  const auto letter = static_cast<char>(std::tolower(blas::element<T>::kLetter));
  return {std::string(layer) + letter + operation, parameter, {bytes, bytes + sizeof(record)}, std::move(operands)};
}

// A gemm record or one of level 3, as "gemm_ao_worker" reads them.
template <class T, class Record>
step_request blas_request(const char* operation, const Record& record, std::vector<const void*> operands) {
  return worker_request<T>("tev_blas_", operation, 0, record, std::move(operands));
}

// A step worker wants to be told the size of its record.
template <class T>
step_request lapack_request(const char* operation, const tev_step_slots& slots, const T& alpha, const T& beta,
                            std::vector<const void*> operands) {
  const typename records<T>::step record = {.step = slots, .alpha = alpha, .beta = beta};
  return worker_request<T>("tev_lapack_", operation, sizeof(record), record, std::move(operands));
}

}  // namespace tev::offload
