// SPDX-License-Identifier: BSD-3-Clause
#include "sink/request_dispatcher.h"

#include <omp.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "service/clock.h"
#include "service/load_fun.h"
#include "sink/device.h"
#include "sink/openmp_start.h"
#include "sink/threading.h"
#include "tev/request.h"

namespace {

constexpr double TEV_UEAA_TIMER_ZERO = 0.0;

// What the worker gets as its buffers. One table for all requests, filled anew by each invoke request: the pipeline
// delivers them one at a time.
uint64_t ueaa_task_exec_buffers[TEV_REQUEST_BUFFERS];

// A copy of a string of the request block that ends at the field's end even when the host forgot the NUL.
template <size_t N>
struct bounded_string {
  char text[N + 1];
  explicit bounded_string(const char (&field)[N]) {
    const size_t length = strnlen(field, N);
    std::memcpy(text, field, length);
    text[length] = 0;
  }
};

void call_hook(const char* name) {
  using hook = void();
  if (void* found = tev_serv_load_fun(name)) reinterpret_cast<hook*>(found)();
}

void initialise(const tev_initialise_request& request) {
  set_device(request.device, request.devices);
  setenv("ZEL_LD_LIBRARY_PATH", bounded_string(request.library_path).text, 1);
  call_hook("ueaa_user_task_manager_init");
}

void call(const tev_call_request& request, void* result, uint32_t result_length) {
  using function = void(void*, uint32_t);
  if (void* found = tev_serv_load_fun(bounded_string(request.name).text))
    reinterpret_cast<function*>(found)(result, result_length);
}

// Entries past the request's buffers are cleared: a worker that gets too few must not see those of an earlier request.
void relocate(const tev_invoke_request& request, uint32_t buffer_count, void* const* buffers) {
  const uint32_t count = std::min<uint32_t>(buffer_count, TEV_REQUEST_BUFFERS);
  for (uint32_t i = 0; i < count; ++i)
    ueaa_task_exec_buffers[i] = reinterpret_cast<uint64_t>(buffers[i]) + request.relocation[i];
  std::fill(ueaa_task_exec_buffers + count, ueaa_task_exec_buffers + TEV_REQUEST_BUFFERS, uint64_t{0});
}

// Runs the named worker; the time from before pinning to the worker's return is the request's busy time.
void invoke(tev_invoke_request& request, uint32_t buffer_count, void* const* buffers) {
  relocate(request, buffer_count, buffers);
  void* found = tev_serv_load_fun(bounded_string(request.worker).text);
  if (!found) return;

  double busy = TEV_UEAA_TIMER_ZERO;
  const double start = tev_serv_dsecnd();
  if (request.pin != 0 && request.processor_count <= kmp_get_affinity_max_proc()) pin_team(request);
  reinterpret_cast<tev_worker*>(found)(request.record, request.parameter, ueaa_task_exec_buffers, buffer_count);
  const double end = tev_serv_dsecnd();
  if (start > 0) busy += std::max(end - start, 0.0);  // a failing timer counts as no time
  ueaa_prv_post_device_time(request.post_mode, busy);
}

void handle(tev_card_request& request, uint32_t buffer_count, void* const* buffers, void* result,
            uint16_t result_length) {
  switch (request.code) {
    case TEV_REQUEST_INITIALISE:
      return initialise(request.initialise);
    case TEV_REQUEST_FINALISE:
      return call_hook("ueaa_user_task_manager_finalize");
    case TEV_REQUEST_CALL:
      return call(request.call, result, result_length);
    case TEV_REQUEST_INVOKE:
      return invoke(request.invoke, buffer_count, buffers);
    default:
      return;
  }
}

}  // namespace

extern "C" void be_card_invoke_handler(uint32_t buffer_count, void** buffers, uint64_t*, void* block, uint16_t,
                                       void* result, uint16_t result_length) {
  handle(*static_cast<tev_card_request*>(block), buffer_count, buffers, result, result_length);
  remove_openmp_name();  // any request may have started the OpenMP runtime
}

extern "C" void ueaa_prv_card_invoke(uint32_t buffer_count, void** buffers, uint64_t* lengths, void* block,
                                     uint16_t block_length, void* result, uint16_t result_length) {
  be_card_invoke_handler(buffer_count, buffers, lengths, block, block_length, result, result_length);
}
