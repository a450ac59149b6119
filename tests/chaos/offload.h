// SPDX-License-Identifier: BSD-3-Clause
// A product through a sink, told in a record that needs no memory.
#pragma once

#include "tests/support/prelude.h"
#include "tests/support/sink.h"
#include "tev/request.h"

namespace tev::test {

inline constexpr int kWaitMs = 30000;  // bounds what hangs
inline constexpr int kWrong = -1;  // besides the codes of vro/host.h: a result that is not right, a wait without end

// How an offloaded call went: VRO_OK, a code with its words, or kWrong.
struct report {
  int code;
  char words[1600];
};

inline report failed_with(int code) {
  report r = {code, {}};
  std::snprintf(r.words, sizeof(r.words), "%s", vro_last_error());
  // An error without words, or a wait that ended by its bound alone, is no answer.
  if (!*r.words || code == VRO_TIMEOUT || std::strstr(r.words, "did not serve within")) r.code = kWrong;
  return r;
}

inline report wrong(const char* words) {
  report r = {kWrong, {}};
  std::snprintf(r.words, sizeof(r.words), "%s", words);
  return r;
}

// C := A B of order n in buffers of its own: ones, so that every element of C is n.
inline report multiply(vro_process* process, int64_t n) {
  vro_buffer* matrices[3] = {};
  vro_completion* done = nullptr;
  const size_t elements = static_cast<size_t>(n * n);
  const auto run = [&]() -> report {
    for (vro_buffer*& matrix : matrices)
      if (const int code = vro_buffer_create(process, elements * sizeof(double), &matrix)) return failed_with(code);
    for (int i = 0; i < 2; ++i) std::fill_n(static_cast<double*>(vro_buffer_map(matrices[i])), elements, 1.0);
    static thread_local tev_card_request request;
    request.invoke.code = TEV_REQUEST_INVOKE;
    std::strcpy(request.invoke.worker, "tev_blas_dgemm_ao_worker");
    const tev_dgemm_record record = {'N', 'N', n, n, n, 1.0, n, n, 0.0, n};
    std::memcpy(request.invoke.record, &record, sizeof(record));
    if (const int code = vro_run(process, "ueaa_prv_card_invoke", matrices, 3, &request, sizeof(request), 0, &done))
      return failed_with(code);
    if (const int code = vro_completion_wait(done, kWaitMs)) return failed_with(code);
    const auto* c = static_cast<const double*>(vro_buffer_map(matrices[2]));
    const bool right = std::all_of(c, c + elements, [n](double x) { return x == static_cast<double>(n); });
    return right ? report{VRO_OK, {}} : wrong("the result is wrong");
  };
  const report r = run();
  vro_completion_release(done);
  for (vro_buffer* matrix : matrices) vro_buffer_destroy(matrix);
  return r;
}

}  // namespace tev::test
