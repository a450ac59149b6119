// SPDX-License-Identifier: BSD-3-Clause
// The kernels on the four-iteration multiply-add. Few processors have that instruction, so the same text is compiled
// here with four plain multiply-adds, which round alike; the members themselves run where they can.

#include "kernels/avx512_zel/tier.h"
#include "kernels/families/gemm_qfma-inl.h"
#include "tests/support/blas_case.h"
#include "tests/support/tier_list.h"

extern "C" tev::kernels::mscale_fn<float> tev_blas_avx512_zel_sgemm_mscale;
extern "C" tev::kernels::gemm_fn<float> tev_blas_avx512_zel_sgemm_unpacked,
    tev_blas_avx512_zel_sgemm_kernel_nocopy_qfma_NN_bn, tev_blas_avx512_zel_sgemm_kernel_nocopy_qfma_NT_bn,
    tev_blas_avx512_zel_sgemm_kernel_nocopy_qfma_TN_bn, tev_blas_avx512_zel_sgemm_kernel_nocopy_qfma_TT_bn;
extern "C" int32_t tev_serv_cpuisvesta(void);

namespace tev::avx512_zel {

template <>
TEV_INLINE void scale_c<float>(int64_t m, int64_t n, float beta, float* c, int64_t ldc) {
  tev_blas_avx512_zel_sgemm_mscale(&m, &n, &beta, c, &ldc);
}

}  // namespace tev::avx512_zel

namespace tev::test {
namespace {

TEST(GemmQfma, PlainTwinAndMembersComputeTheProductOfWholeNumbers) {
  if (!processor_runs("avx512_zel")) GTEST_SKIP() << "no AVX-512";
  kernels::gemm_fn<float>* const members[2][2] = {
      {tev_blas_avx512_zel_sgemm_kernel_nocopy_qfma_NN_bn, tev_blas_avx512_zel_sgemm_kernel_nocopy_qfma_NT_bn},
      {tev_blas_avx512_zel_sgemm_kernel_nocopy_qfma_TN_bn, tev_blas_avx512_zel_sgemm_kernel_nocopy_qfma_TT_bn}};
  engine random(4);
  for (const char* pair : {"NN", "NT", "TN", "TT"})
    for (const int64_t m : {1, 15, 16, 35})
      for (const int64_t n : {1, 7, 8, 17})
        for (const int64_t k : {0, 1, 3, 4, 9, 131})
          for (const float beta : {0.0f, 1.0f, -2.0f}) {
            const blas_case<float> x(problem_of<float>(operation::gemm, pair, m, n, k, k == 3 ? 0.0f : 2.0f, beta),
                                     random, values::whole);
            const auto& p = x.p;
            const bool ta = p.transa == 'T', tb = p.transb == 'T';
            matrix<float> expected = x.start(), plain = x.start(), quad = x.start();
            tev_blas_avx512_zel_sgemm_unpacked(&p.transa, &p.transb, &m, &n, &k, &p.alpha, p.a, &p.lda, p.b, &p.ldb,
                                               &beta, expected.data(), &p.ldc);
            avx512_zel::gemm_qfma<false>(ta, tb, m, n, k, p.alpha, p.a, p.lda, p.b, p.ldb, beta, plain.data(), p.ldc);
            ASSERT_TRUE(plain.same_bits(expected)) << x;
            if (!tev_serv_cpuisvesta()) continue;
            members[ta][tb](&p.transa, &p.transb, &m, &n, &k, &p.alpha, p.a, &p.lda, p.b, &p.ldb, &beta, quad.data(),
                            &p.ldc);
            ASSERT_TRUE(quad.same_bits(expected)) << x;
          }
}

}  // namespace
}  // namespace tev::test
