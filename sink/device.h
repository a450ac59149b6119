// SPDX-License-Identifier: BSD-3-Clause
// Which device this process is, and how long it was busy. Requests come one at a time, so nothing here is locked.
#pragma once

#include <cstdint>

#include "tev/request.h"

// Records what the host says of this device in its initialise request.
// How many devices the host drives, from the last initialise request; 0 before it.
uint32_t device_count();

void set_device(uint32_t device, uint32_t devices);

extern "C" {

// For code inside the sink: stores the device number and returns 0; -1 (nothing stored) before the first initialise
// request or for a null pointer. A finalise request changes nothing here.
TEV_EXPORT int tev_ueaa_current_device(uint32_t* device);

// Posts the busy time of one request: mode 0 drops it, 2 replaces the total, any other mode adds to it.
TEV_EXPORT void ueaa_prv_post_device_time(int mode, double seconds);

// Worker: writes the total, a double in seconds, into the first 8 bytes of its record and returns the same 8 bytes.
TEV_EXPORT uint64_t ueaa_prv_query_device_time_worker(void* record, uint32_t parameter, uint64_t* buffers,
                                                      uint32_t buffer_count);
}
