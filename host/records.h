// SPDX-License-Identifier: BSD-3-Clause
// From a problem to what the sink's worker of that operation and precision reads: its name, its parameter and the bytes
// of its record.
#pragma once

#include <complex>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "host/kinds.h"
#include "host/worker_call.h"
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
  using step = tev_sstep_record;
};
template <>
struct wire<double> {
  static constexpr precision kPrecision = precision::d;
  using gemm = tev_dgemm_record;
  using level3 = tev_dlevel3_record;
  using step = tev_dstep_record;
};
template <>
struct wire<std::complex<float>> {
  static constexpr precision kPrecision = precision::c;
  using gemm = tev_cgemm_record;
  using level3 = tev_clevel3_record;
  using step = tev_cstep_record;
};
template <>
struct wire<std::complex<double>> {
  static constexpr precision kPrecision = precision::z;
  using gemm = tev_zgemm_record;
  using level3 = tev_zlevel3_record;
  using step = tev_zstep_record;
};

template <class Record>
std::vector<unsigned char> bytes_of(const Record& record) {
  static_assert(std::is_trivially_copyable_v<Record>);
  const auto* bytes = reinterpret_cast<const unsigned char*>(&record);
  return {bytes, bytes + sizeof(record)};
}

// A step worker of one precision, with its record's slots.
template <class T>
worker_call make_step_call(const char* name, const tev_step_slots& slots, T alpha = {}, T beta = {}) {
  typename wire<T>::step record = {};
  record.step = slots;
  static_assert(sizeof(record.alpha) == sizeof(T));
  std::memcpy(&record.alpha, &alpha, sizeof(T));
  std::memcpy(&record.beta, &beta, sizeof(T));
  return {std::string("tev_lapack_") + letter_of(wire<T>::kPrecision) + name + "_worker", sizeof(record),
          bytes_of(record)};
}

// gemm, trsm or syrk as a step of a factorization.
template <class T>
worker_call make_step_call(const problem<T>& p) {
  const auto option = [](char letter) { return tev_option_slot{letter, {}}; };
  tev_step_slots slots = {};
  if (p.op == operation::gemm)
    slots.gemm = {option(p.transa), option(p.transb), p.m, p.n, p.k, p.lda, p.ldb, p.ldc};
  else if (p.op == operation::trsm)
    slots.trsm = {option(p.side), option(p.uplo), option(p.transa), option(p.diag), p.m, p.n, p.lda, p.ldb};
  else
    slots.syrk = {option(p.uplo), option(p.transa), p.n, p.k, p.lda, p.ldc};
  return make_step_call<T>(name_of(p.op), slots, p.alpha, p.beta);
}

template <class T>
worker_call make_worker_call(const problem<T>& p) {
  worker_call call = {"tev_blas_", 0, {}};
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
    call.record = bytes_of(record);
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
