// SPDX-License-Identifier: BSD-3-Clause
// The entry points: tev_blas_<name> jumps to the routine of the tier that this processor runs. The first call of an
// entry point asks the service layer for the tier and remembers the routine's address; every later one is a load, a
// test and a jump, with the caller's registers and stack as they were. No argument list appears here, so one text
// serves them all.
//
// clang-format off
//   tev_blas_xdgemm    r11 := FunctionAddress -- not null --> jump to tev_blas_avx512_xdgemm, which returns to the caller
//                         | null: first call                   ^
//   tev_kernels_bind   set the argument registers aside, tev_kernels_routine_of(), take them back
// clang-format on
//
// Threads may race for the first call: each finds the same address, and stores it whole.
#include "kernels/dispatch/dispatch.h"

#include <cstddef>

#include "service/detection.h"
#include "service/messages.h"

// reader(tier, name) for every tier, in the order of entry_point::of_tier.
#define TEV_FOR_EACH_TIER(reader, name)                                                                           \
  reader(def, name) reader(cnr_def, name) reader(mc, name) reader(mc3, name) reader(avx, name) reader(avx2, name) \
      reader(avx512_zel, name) reader(avx512, name)

namespace {

#define TEV_ENUMERATOR(tier, prefix) prefix##tier,
enum { TEV_FOR_EACH_TIER(TEV_ENUMERATOR, k_) kTiers };
#undef TEV_ENUMERATOR

using routine = void();  // the true argument lists are between the callers and the routines

struct entry_point {
  routine* FunctionAddress;  // null until the first call, never reset
  routine* of_tier[kTiers];
};
static_assert(offsetof(entry_point, FunctionAddress) == 0);  // what the assembly loads

#define TEV_ENTRY(name) +1
static_assert(0
#include "kernels/dispatch/entry_points.inc"
              == 110);
#undef TEV_ENTRY

// What a call ends in when no tier has the processor's code and the program's exit hook returned.
int64_t unsupported() { return 0; }

// kTiers when no tier has the code.
int tier_of(int32_t code) {
  switch (code) {
    // Any reproducibility mode, the automatic one included, replaces the two oldest tiers, and only them.
    case TEV_CPU_DEF:
      return tev_serv_cbwr_get(1) == TEV_CBWR_OFF ? k_def : k_cnr_def;
    case TEV_CPU_MC:
      return tev_serv_cbwr_get(1) == TEV_CBWR_OFF ? k_mc : k_cnr_def;
    case TEV_CPU_MC3:
      return k_mc3;
    case TEV_CPU_AVX:
      return k_avx;
    case TEV_CPU_AVX2:
      return k_avx2;
    case TEV_CPU_AVX512_ZEL:
      return k_avx512_zel;
    case TEV_CPU_AVX512:
      return k_avx512;
    default:
      return kTiers;
  }
}

}  // namespace

extern "C" {

// Called by tev_kernels_bind.
__attribute__((used)) static routine* tev_kernels_routine_of(entry_point* entry) {
  const int tier = tier_of(tev_serv_cpu_detect());
  if (tier != kTiers) {
    __atomic_store_n(&entry->FunctionAddress, entry->of_tier[tier], __ATOMIC_RELAXED);
    return entry->of_tier[tier];
  }
  tev_serv_print(tev::service::kStandardOutput, tev::service::kProcessorNotSupported, 1, tev_serv_cpu_detect());
  tev_serv_exit(1);
  routine* const bound_meanwhile = __atomic_load_n(&entry->FunctionAddress, __ATOMIC_RELAXED);
  return bound_meanwhile ? bound_meanwhile : reinterpret_cast<routine*>(unsupported);
}

// In: r11 = entry_point. Every register that can carry an argument is kept, rax (vector arguments of a variadic call)
// and r10 (static chain) included; the stack is aligned for the call.
asm(R"(
  .text
  .p2align 4
  .type tev_kernels_bind, @function
tev_kernels_bind:
  .cfi_startproc
  pushq %rbp
  .cfi_def_cfa_offset 16
  .cfi_offset %rbp, -16
  movq %rsp, %rbp
  .cfi_def_cfa_register %rbp
  pushq %rdi
  pushq %rsi
  pushq %rdx
  pushq %rcx
  pushq %r8
  pushq %r9
  pushq %rax
  pushq %r10
  subq $128, %rsp
  movaps %xmm0, (%rsp)
  movaps %xmm1, 16(%rsp)
  movaps %xmm2, 32(%rsp)
  movaps %xmm3, 48(%rsp)
  movaps %xmm4, 64(%rsp)
  movaps %xmm5, 80(%rsp)
  movaps %xmm6, 96(%rsp)
  movaps %xmm7, 112(%rsp)
  movq %r11, %rdi
  call tev_kernels_routine_of
  movq %rax, %r11
  movaps (%rsp), %xmm0
  movaps 16(%rsp), %xmm1
  movaps 32(%rsp), %xmm2
  movaps 48(%rsp), %xmm3
  movaps 64(%rsp), %xmm4
  movaps 80(%rsp), %xmm5
  movaps 96(%rsp), %xmm6
  movaps 112(%rsp), %xmm7
  addq $128, %rsp
  popq %r10
  popq %rax
  popq %r9
  popq %r8
  popq %rcx
  popq %rdx
  popq %rsi
  popq %rdi
  popq %rbp
  .cfi_def_cfa %rsp, 8
  jmpq *%r11
  .cfi_endproc
  .size tev_kernels_bind, . - tev_kernels_bind
)");

// tev_blas_<name> of one row.
asm(R"(
  .macro tev_entry name
  .p2align 4
  .globl tev_blas_\name
  .hidden tev_blas_\name
  .type tev_blas_\name, @function
tev_blas_\name:
  .cfi_startproc
  movq tev_entry_\name(%rip), %r11
  testq %r11, %r11
  je 1f
  jmpq *%r11
1:
  leaq tev_entry_\name(%rip), %r11
  jmp tev_kernels_bind
  .cfi_endproc
  .size tev_blas_\name, . - tev_blas_\name
  .endm
)");

#define TEV_DECLARE(tier, name) routine tev_blas_##tier##_##name;
#define TEV_ADDRESS(tier, name) tev_blas_##tier##_##name,
#define TEV_ENTRY(name)                                                                                          \
  static_assert(sizeof(&tev_blas_##name) == sizeof(routine*)); /* declared in dispatch.h */                      \
  TEV_FOR_EACH_TIER(TEV_DECLARE, name)                                                                           \
  __attribute__((used)) static entry_point tev_entry_##name = {nullptr, {TEV_FOR_EACH_TIER(TEV_ADDRESS, name)}}; \
  asm("tev_entry " #name);
#include "kernels/dispatch/entry_points.inc"
#include "kernels/dispatch/further_entry_points.inc"

}  // extern "C"
