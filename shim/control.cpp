// SPDX-License-Identifier: BSD-3-Clause
// What a library exports once, whatever its integers: its settings, under its own names and under those that programs
// know, and the two variables of the reference's C interface.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "shim/library.h"
#include "shim/thread_limit.h"
#include "tev/tevblas.h"

using tev::shim::library;

namespace {

const char* tier_name(int32_t code) {
  switch (static_cast<decltype(TEV_CPU_DEF)>(code)) {
    case TEV_CPU_DEF:
      return "def";
    case TEV_CPU_MC:
      return "mc";
    case TEV_CPU_MC3:
      return "mc3";
    case TEV_CPU_AVX:
      return "avx";
    case TEV_CPU_AVX2:
      return "avx2";
    case TEV_CPU_AVX512_ZEL:
    case TEV_CPU_AVX512_ZEL_E1:
      return "avx512_zel";
    case TEV_CPU_AVX512:
      return "avx512";
  }
  return "unknown";
}

constexpr size_t kAlignment = 64;
constexpr int kOpenMp = 2;  // of openblas_get_parallel: 0 one thread, 1 threads of its own, 2 OpenMP

}  // namespace

extern "C" {

TEV_EXPORT int CBLAS_CallFromC = 0, RowMajorStrg = 0;

void tevblas_set_num_threads(int n) {
  tev::shim::program_has_chosen(library().domain_set_num_threads(n, TEV_DOMAIN_BLAS) != 0 && n > 0);
}
int tevblas_get_num_threads(void) { return tev::shim::current_threads(); }
const char* tevblas_get_tier(void) { return tier_name(library().cpu_detect()); }
const char* tevblas_get_version(void) { return TEV_VERSION; }

void* tevblas_malloc(size_t bytes) {
  if (const auto shared = library().routed_allocate) return shared(bytes);
  if (bytes > PTRDIFF_MAX - kAlignment) return nullptr;
  void* const memory = std::aligned_alloc(kAlignment, (bytes / kAlignment + 1) * kAlignment);
  return memory ? std::memset(memory, 0, bytes) : nullptr;
}

void tevblas_free(void* memory) {
  const auto shared = library().routed_release;
  shared ? shared(memory) : std::free(memory);
}

TEV_EXPORT void openblas_set_num_threads(int n) { tevblas_set_num_threads(n); }
TEV_EXPORT void openblas_set_num_threads_(const int* n) { tevblas_set_num_threads(*n); }
TEV_EXPORT int openblas_get_num_threads(void) { return tevblas_get_num_threads(); }
TEV_EXPORT int openblas_get_num_threads_(void) { return tevblas_get_num_threads(); }
TEV_EXPORT const char* openblas_get_config(void) { return "tevblas " TEV_VERSION " OpenMP"; }
TEV_EXPORT const char* openblas_get_corename(void) { return tevblas_get_tier(); }
TEV_EXPORT int openblas_get_parallel(void) { return kOpenMp; }
TEV_EXPORT int openblas_get_parallel_(void) { return kOpenMp; }

}  // extern "C"
