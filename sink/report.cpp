// SPDX-License-Identifier: BSD-3-Clause
// What the sink says of itself when a host asks (a call request by the name tev_sink_report): one "key=value" line per
// fact, in one NUL-terminated text that is cut when it does not fit.
//
//   threads      size of the team that the next parallel region asks for
//   processors   processors that the OpenMP runtime may use
//   openmp       version of the OpenMP interface, as yyyymm
//   pid          process number
//   device       number given by the host; absent before the initialise request
//   devices      how many the host drives; likewise
//   seconds      the sink's clock
#include <omp.h>
#include <unistd.h>

#include <cstdio>

#include "service/clock.h"
#include "sink/device.h"

extern "C" TEV_EXPORT void tev_sink_report(char* text, uint32_t length) {
  const double seconds = tev_serv_dsecnd();
  char device_lines[64] = "";
  if (uint32_t device; tev_ueaa_current_device(&device) == 0)
    std::snprintf(device_lines, sizeof(device_lines), "device=%u\ndevices=%u\n", device, device_count());
  std::snprintf(text, length, "threads=%d\nprocessors=%d\nopenmp=%d\npid=%d\n%sseconds=%.6f\n", omp_get_max_threads(),
                omp_get_num_procs(), _OPENMP, getpid(), device_lines, seconds);
}
