// SPDX-License-Identifier: BSD-3-Clause
// Twelve independent chains, enough to cover the latency of two units. Tiers without fused multiply-add run six
// multiplications beside six additions.
#include "contest/multiply_add_peak.h"

namespace tev::contest {

namespace {

#define TEV_TWELVE(op, reg)                                                                                     \
  op(reg, 0) op(reg, 1) op(reg, 2) op(reg, 3) op(reg, 4) op(reg, 5) op(reg, 6) op(reg, 7) op(reg, 8) op(reg, 9) \
      op(reg, 10) op(reg, 11)
#define TEV_SIX_PAIRS(mul, add, reg)                                                                          \
  mul(reg, 0) add(reg, 6) mul(reg, 1) add(reg, 7) mul(reg, 2) add(reg, 8) mul(reg, 3) add(reg, 9) mul(reg, 4) \
      add(reg, 10) mul(reg, 5) add(reg, 11)
#define TEV_CLEAR(reg, i) "xorps %%xmm" #i ", %%xmm" #i "\n"
#define TEV_CLEAR_V(reg, i) "vxorps %%xmm" #i ", %%xmm" #i ", %%xmm" #i "\n"
#define TEV_FMA_PD(reg, i) "vfmadd231pd %%" #reg "15, %%" #reg "15, %%" #reg #i "\n"
#define TEV_FMA_PS(reg, i) "vfmadd231ps %%" #reg "15, %%" #reg "15, %%" #reg #i "\n"
#define TEV_VMUL_PD(reg, i) "vmulpd %%" #reg "15, %%" #reg #i ", %%" #reg #i "\n"
#define TEV_VADD_PD(reg, i) "vaddpd %%" #reg "15, %%" #reg #i ", %%" #reg #i "\n"
#define TEV_VMUL_PS(reg, i) "vmulps %%" #reg "15, %%" #reg #i ", %%" #reg #i "\n"
#define TEV_VADD_PS(reg, i) "vaddps %%" #reg "15, %%" #reg #i ", %%" #reg #i "\n"
#define TEV_MUL_PD(reg, i) "mulpd %%" #reg "15, %%" #reg #i "\n"
#define TEV_ADD_PD(reg, i) "addpd %%" #reg "15, %%" #reg #i "\n"
#define TEV_MUL_PS(reg, i) "mulps %%" #reg "15, %%" #reg #i "\n"
#define TEV_ADD_PS(reg, i) "addps %%" #reg "15, %%" #reg #i "\n"
#define TEV_CLOBBERS \
  "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7", "xmm8", "xmm9", "xmm10", "xmm11", "xmm15", "cc"
#define TEV_LOOP(clear, body) __asm__ volatile(clear "1:\n" body "dec %0\n jnz 1b\n" : "+r"(loops) : : TEV_CLOBBERS)

}  // namespace

double spend_multiply_adds(const std::string& tier, bool single, int64_t loops) {
  const double rounds = static_cast<double>(loops);
  const bool wide = tier.starts_with("avx512"), fused = wide || tier == "avx2", avx = tier == "avx";
  if (wide && single)
    TEV_LOOP(TEV_TWELVE(TEV_CLEAR_V, xmm) "vxorps %%xmm15, %%xmm15, %%xmm15\n", TEV_TWELVE(TEV_FMA_PS, zmm));
  else if (wide)
    TEV_LOOP(TEV_TWELVE(TEV_CLEAR_V, xmm) "vxorps %%xmm15, %%xmm15, %%xmm15\n", TEV_TWELVE(TEV_FMA_PD, zmm));
  else if (fused && single)
    TEV_LOOP(TEV_TWELVE(TEV_CLEAR_V, xmm) "vxorps %%xmm15, %%xmm15, %%xmm15\n", TEV_TWELVE(TEV_FMA_PS, ymm));
  else if (fused)
    TEV_LOOP(TEV_TWELVE(TEV_CLEAR_V, xmm) "vxorps %%xmm15, %%xmm15, %%xmm15\n", TEV_TWELVE(TEV_FMA_PD, ymm));
  else if (avx && single)
    TEV_LOOP(TEV_TWELVE(TEV_CLEAR_V, xmm) "vxorps %%xmm15, %%xmm15, %%xmm15\n",
             TEV_SIX_PAIRS(TEV_VMUL_PS, TEV_VADD_PS, ymm));
  else if (avx)
    TEV_LOOP(TEV_TWELVE(TEV_CLEAR_V, xmm) "vxorps %%xmm15, %%xmm15, %%xmm15\n",
             TEV_SIX_PAIRS(TEV_VMUL_PD, TEV_VADD_PD, ymm));
  else if (single)
    TEV_LOOP(TEV_TWELVE(TEV_CLEAR, xmm) "xorps %%xmm15, %%xmm15\n", TEV_SIX_PAIRS(TEV_MUL_PS, TEV_ADD_PS, xmm));
  else
    TEV_LOOP(TEV_TWELVE(TEV_CLEAR, xmm) "xorps %%xmm15, %%xmm15\n", TEV_SIX_PAIRS(TEV_MUL_PD, TEV_ADD_PD, xmm));
  const double bytes = wide ? 64 : fused || avx ? 32 : 16;
  return rounds * 12 * (fused ? 2 : 1) * bytes / (single ? 4 : 8);
}

}  // namespace tev::contest
