// SPDX-License-Identifier: BSD-3-Clause
// What the sink says of itself when a host asks (a call request by the name tev_sink_report): one "key=value" line per
// fact, in one NUL-terminated text that is cut when it does not fit.
//
//   threads            team that the next parallel region asks for
//   blas_threads       threads that a BLAS routine would use
//   dynamic            1 when counts are limited to the physical cores
//   processors         hardware threads that the OpenMP runtime may use
//   cores, packages    of the machine; hardware_threads of all cores
//   usable_cores       of the cores, those that affinity and processor-time quota leave the sink
//   tier, cpu_type     kernels in force, by name and by type code
//   maker              "own" when detection knows the processor, else its vendor string
//   reproducibility    mode, in the words of TEV_CBWR; off when none is set
//   features           instruction sets that processor and operating system have
//   caches             bytes of the data and unified caches, first level first; empty when neither processor nor
//                      system tells
//   kept_buffers       on or off: whether released work buffers stay with their threads
//   held_bytes, held_blocks   what the memory manager holds now
//   fast_memory        bytes of high-bandwidth memory still allowed, or unlimited
//   openmp             version of the OpenMP interface, as yyyymm
//   pid                process number
//   device, devices    number given by the host, and how many it drives; absent before the initialise request
//   seconds            the sink's clock
#include <omp.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdarg>

#include "service/clock.h"
#include "service/cpuid.h"
#include "service/detection.h"
#include "service/features.h"
#include "service/formatted_io.h"
#include "service/system_caches.h"
#include "service/threads.h"
#include "sink/device.h"
#include "tev/service.h"

namespace {

using namespace tev::service;

// The room for the text, and how much of it is taken; the text always ends within it.
struct report {
  char* text;
  size_t room;
  size_t used;
};

__attribute__((format(printf, 2, 3))) void add(report& to, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = tev_serv_vsnprintf_s(to.text + to.used, to.room - to.used, format, arguments);
  va_end(arguments);
  to.used = std::min(to.used + static_cast<size_t>(std::max(length, 0)), to.room - 1);
}

void add_threads(report& text) {
  add(text, "threads=%d\n", omp_get_max_threads());
  add(text, "blas_threads=%d\n", tev_serv_domain_get_max_threads(TEV_DOMAIN_BLAS));
  add(text, "dynamic=%d\n", tev_serv_get_dynamic());
  add(text, "processors=%d\n", omp_get_num_procs());
  add(text, "cores=%d\n", tev_serv_get_ncorespercpu() * tev_serv_get_ncpus());
  add(text, "usable_cores=%d\n", usable_core_count);
  add(text, "hardware_threads=%d\n", tev_serv_get_nlogicalcores());
  add(text, "packages=%d\n", tev_serv_get_ncpus());
}

void add_maker(report& text) {
  if (made_by_zarik()) return add(text, "maker=own\n");
  uint32_t r[4];
  processor.cpuid(0, 0, r);
  const uint32_t vendor[] = {r[1], r[3], r[2]};
  add(text, "maker=%.12s\n", reinterpret_cast<const char*>(vendor));
}

const char* mode_name(int32_t mode) {
  static constexpr const char* kNames[] = {"off",  "off",        "AUTO",   "COMPATIBLE",   "SSE2",
                                           "SSE3", "SSSE3",      "SSE4_1", "SSE4_2",       "AVX",
                                           "AVX2", "AVX512_ZEL", "AVX512", "AVX512_ZEL_E1"};
  return mode >= 0 && mode < 14 ? kNames[mode] : "unknown";
}

void add_features(report& text) {
  static constexpr struct {
    uint64_t mask;
    const char* name;
  } kShown[] = {{kSse2, "sse2"},         {kSse3, "sse3"},         {kSsse3, "ssse3"},       {kSse41, "sse4.1"},
                {kSse42, "sse4.2"},      {kAvx, "avx"},           {kAvx2, "avx2"},         {kFma, "fma"},
                {kAvx512F, "avx512f"},   {kAvx512Cd, "avx512cd"}, {kAvx512Dq, "avx512dq"}, {kAvx512Bw, "avx512bw"},
                {kAvx512Vl, "avx512vl"}, {kAvx512Er, "avx512er"}, {kAvx512Pf, "avx512pf"}};
  add(text, "features=");
  const char* separator = "";
  for (const auto& feature : kShown) {
    if (!has_features(feature.mask)) continue;
    add(text, "%s%s", separator, feature.name);
    separator = " ";
  }
  add(text, "\n");
}

void add_processor(report& text) {
  const int32_t code = tev_serv_cpu_detect();
  const char* tier = tier_name(code);
  add(text, "tier=%s\n", tier ? tier : "none");
  add(text, "cpu_type=%d\n", code);
  add_maker(text);
  add(text, "reproducibility=%s\n", mode_name(tev_serv_cbwr_get(1)));
  add_features(text);
  const cache_levels caches = known_caches();
  add(text, "caches=");
  for (int level = 0; level < caches.count; ++level) add(text, "%s%" PRId64, level > 0 ? " " : "", caches.bytes[level]);
  add(text, "\n");
}

void add_memory(report& text) {
  int32_t blocks = 0;
  const int64_t bytes = tev_serv_mem_stat(&blocks);
  const uint64_t fast = tev_serv_check_fast_memory_size();
  add(text, "kept_buffers=%s\n", tev_serv_get_fast_mm_status() ? "off" : "on");
  add(text, "held_bytes=%" PRId64 "\nheld_blocks=%d\n", bytes, blocks);
  if (fast == UINT64_MAX)
    add(text, "fast_memory=unlimited\n");
  else
    add(text, "fast_memory=%" PRIu64 "\n", fast);
}

}  // namespace

extern "C" TEV_EXPORT void tev_sink_report(char* text, uint32_t length) {
  if (length == 0) return;
  const double seconds = tev_serv_dsecnd();
  report whole = {text, length, 0};
  add_threads(whole);
  add_processor(whole);
  add_memory(whole);
  add(whole, "openmp=%d\npid=%d\n", _OPENMP, getpid());
  if (uint32_t device; tev_ueaa_current_device(&device) == 0)
    add(whole, "device=%u\ndevices=%u\n", device, device_count());
  add(whole, "seconds=%.6f\n", seconds);
}
