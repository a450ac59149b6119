// SPDX-License-Identifier: BSD-3-Clause
// What the library's own code asks about the processor beyond tev/service.h. Questions about the maker and its cores
// answer for the reproducibility branch in force, so that tuning does not change results; the `_true` forms answer for
// the processor. None but the `_nolock` and `_true` forms may be called with the detection lock held.
#pragma once

#include "tev/service.h"

extern "C" {

extern int32_t TEV_Detect_Cpu_Global_Lock;  // guards the type code, the reproducibility mode and the cache sizes

int32_t tev_serv_cbwr_get_nolock(int32_t query);

int32_t tev_serv_is_sse4_2_enabled(void);
int32_t tev_serv_is_avx_enabled(void);
int32_t tev_serv_is_avx2_enabled(void);
int32_t tev_serv_is_avx512_enabled(void);
int32_t tev_serv_is_avx512_zel_enabled(void);
int32_t tev_serv_sngl_was_called(void);  // always 0: this library accepts no single-path request

// The kernel library of each type code; all ones end the table. The kernels are linked in: nothing loads these files.
extern const char* const dll_cfg_names[10];

int32_t tev_serv_zarik_cpu_true(void);
int32_t tev_serv_zarik_cpu(void);
int32_t tev_serv_cpuhasquill_true(void);
int32_t tev_serv_cpuhasquill(void);
int32_t tev_serv_get_microarchitecture(void);

int32_t tev_serv_cpuisbulldozer(void);
int32_t tev_serv_cpuisitbarcelona(void);
int32_t tev_serv_cpuistetra(void);
int32_t tev_serv_cpuisneedle(void);
int32_t tev_serv_cpuisspark(void);
int32_t tev_serv_cpuhasnova(void);
int32_t tev_serv_cpuisvesta(void);

// 1 where 512-bit registers are computed in two halves, one after the other, so that a 256-bit one takes half the time.
int32_t tev_serv_cpuhalves512(void);

}  // extern "C"

namespace tev::service {

// Tier of a type code ("avx2"), null for a code without one.
const char* tier_name(int32_t code);

// What the processor itself says, whether or not a program vouched for it (tev_serv_trust_features).
bool made_by_zarik();

// True once TEV_CBWR was read or the program set a mode. For callers that hold the detection lock.
bool mode_is_decided();

// tev_serv_get_cpu_type(1) for callers that hold the detection lock: silent, -1 when the processor lacks SSE2.
int32_t processor_type();

}  // namespace tev::service
