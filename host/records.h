// SPDX-License-Identifier: BSD-3-Clause
// From a problem to what the sink's worker of that operation and precision reads: its name and the bytes of its record.
#pragma once

#include <complex>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "host/kinds.h"
#include "tev/request.h"

namespace tev::host {

// The wire's types of one precision.
template <class T>
struct wire;
template <>
struct wire<float> {
  static constexpr precision kPrecision = precision::s;
  using gemm = tev_sgemm_record;
  using level3 = tev_slevel3_record;
};
template <>
struct wire<double> {
  static constexpr precision kPrecision = precision::d;
  using gemm = tev_dgemm_record;
  using level3 = tev_dlevel3_record;
};
template <>
struct wire<std::complex<float>> {
  static constexpr precision kPrecision = precision::c;
  using gemm = tev_cgemm_record;
  using level3 = tev_clevel3_record;
};
template <>
struct wire<std::complex<double>> {
  static constexpr precision kPrecision = precision::z;
  using gemm = tev_zgemm_record;
  using level3 = tev_zlevel3_record;
};

struct worker_call {
  std::string worker;
  std::vector<unsigned char> record;
};

template <class T>
worker_call make_worker_call(const problem<T>& p) {
  worker_call call = {"tev_blas_", {}};
  call.worker.append(1, letter_of(wire<T>::kPrecision)).append(name_of(p.op)).append("_ao_worker");
  const auto finish = [&](auto& record) {  // the fields that both kinds of record have
    record.transa = p.transa;
    record.m = p.m;
    record.n = p.n;
    static_assert(sizeof(record.alpha) == sizeof(T) && std::is_trivially_copyable_v<T>);
    std::memcpy(&record.alpha, &p.alpha, sizeof(T));
    std::memcpy(&record.beta, &p.beta, sizeof(T));
    record.lda = p.lda;
    record.ldb = p.ldb;
    record.ldc = p.ldc;
    const auto* bytes = reinterpret_cast<const unsigned char*>(&record);
    call.record.assign(bytes, bytes + sizeof(record));
  };
  if (p.op == operation::gemm) {
    typename wire<T>::gemm record = {};
    record.transb = p.transb;
    record.k = p.k;
    finish(record);
  } else {
    typename wire<T>::level3 record = {};
    record.side = p.side;
    record.uplo = p.uplo;
    record.diag = p.diag;
    finish(record);
  }
  return call;
}

}  // namespace tev::host
