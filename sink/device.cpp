// SPDX-License-Identifier: BSD-3-Clause
#include "sink/device.h"

#include <bit>
#include <cstring>

namespace {

int32_t tev_ueaa_initialized = 0;  // set by the first initialise request, never cleared
uint32_t tev_ueaa_device = 0;
uint32_t tev_ueaa_devices = 0;
double g_device_time = 0.0;  // seconds

}  // namespace

void set_device(uint32_t device, uint32_t devices) {
  tev_ueaa_device = device;
  tev_ueaa_devices = devices;
  tev_ueaa_initialized = 1;
}

uint32_t device_count() { return tev_ueaa_devices; }

extern "C" int tev_ueaa_current_device(uint32_t* device) {
  if (!tev_ueaa_initialized || !device) return -1;
  *device = tev_ueaa_device;
  return 0;
}

extern "C" void ueaa_prv_post_device_time(int mode, double seconds) {
  if (mode == TEV_POST_NONE) return;
  g_device_time = mode == TEV_POST_REPLACE ? seconds : g_device_time + seconds;
}

extern "C" uint64_t ueaa_prv_query_device_time_worker(void* record, uint32_t, uint64_t*, uint32_t) {
  std::memcpy(record, &g_device_time, sizeof(g_device_time));
  return std::bit_cast<uint64_t>(g_device_time);
}
