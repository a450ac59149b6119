// SPDX-License-Identifier: BSD-3-Clause
// The host's say over the OpenMP team: settings loaded once by a worker, processors chosen per request by a mask.
#pragma once

#include <cstdint>

#include "tev/request.h"

// Makes a team of the request's thread count and binds thread t to the (t+1)-th processor that the mask allows; threads
// beyond the allowed processors are bound to an empty mask. What the runtime answers is not examined.
void pin_team(const tev_invoke_request& request);

// Worker: loads OpenMP settings and a team size (a tev_threading_record), and makes the team at once.
extern "C" TEV_EXPORT void configure_device_threading_worker(void* record, uint32_t parameter, uint64_t* buffers,
                                                             uint32_t buffer_count);
