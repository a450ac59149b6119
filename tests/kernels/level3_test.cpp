// SPDX-License-Identifier: BSD-3-Clause
// symm, syrk, trmm and trsm of every tier that this processor can run, in all precisions, judged by host/check.h.
//   Exact     whole numbers: results match bit for bit (not trsm, which divides).
//   Rounding  random operands within the error bound of any order of summation.
//   Memory    unread triangles, unit diagonals and the rows below a matrix are NaN; operands end at an unmapped page.
#include <gtest/gtest.h>

#include <array>
#include <complex>
#include <cstring>
#include <string>
#include <vector>

#include "host/check.h"
#include "kernels/routine_types.h"
#include "tests/support/blas_case.h"
#include "tests/support/tier_list.h"

#define TEV_DECLARE_PRECISION(tier, p, type)                           \
  extern "C" tev::kernels::symm_fn<type> tev_blas_##tier##_x##p##symm; \
  extern "C" tev::kernels::syrk_fn<type> tev_blas_##tier##_x##p##syrk; \
  extern "C" tev::kernels::triangular_fn<type> tev_blas_##tier##_x##p##trmm, tev_blas_##tier##_x##p##trsm;
#define TEV_DECLARE(tier)                      \
  TEV_DECLARE_PRECISION(tier, s, float)        \
  TEV_DECLARE_PRECISION(tier, d, double)       \
  TEV_DECLARE_PRECISION(tier, c, tev_complex8) \
  TEV_DECLARE_PRECISION(tier, z, tev_complex16)
TEV_EACH_TIER(TEV_DECLARE)

namespace tev::test {
namespace {

constexpr uint64_t kSeed = 20240229;

template <class E>
struct tier_routines {
  const char* tier;
  kernels::symm_fn<E>* symm;
  kernels::syrk_fn<E>* syrk;
  kernels::triangular_fn<E>*trmm, *trsm;
};

#define TEV_ROW(tier, p)                                                                            \
  {#tier, tev_blas_##tier##_x##p##symm, tev_blas_##tier##_x##p##syrk, tev_blas_##tier##_x##p##trmm, \
   tev_blas_##tier##_x##p##trsm},
#define TEV_ROW_s(tier) TEV_ROW(tier, s)
#define TEV_ROW_d(tier) TEV_ROW(tier, d)
#define TEV_ROW_c(tier) TEV_ROW(tier, c)
#define TEV_ROW_z(tier) TEV_ROW(tier, z)

template <class T>
auto tiers() {
  using E = typename routines<T>::element;
  if constexpr (std::is_same_v<T, float>)
    return std::vector<tier_routines<E>>{TEV_EACH_TIER(TEV_ROW_s)};
  else if constexpr (std::is_same_v<T, double>)
    return std::vector<tier_routines<E>>{TEV_EACH_TIER(TEV_ROW_d)};
  else if constexpr (std::is_same_v<T, std::complex<float>>)
    return std::vector<tier_routines<E>>{TEV_EACH_TIER(TEV_ROW_c)};
  else
    return std::vector<tier_routines<E>>{TEV_EACH_TIER(TEV_ROW_z)};
}

// Around the groups of lines, the strips and the diagonal blocks (64, half of it complex); empty.
constexpr std::array<std::array<int64_t, 2>, 16> kShapes = {{{0, 3},
                                                             {3, 0},
                                                             {1, 1},
                                                             {2, 3},
                                                             {5, 17},
                                                             {17, 5},
                                                             {31, 33},
                                                             {33, 9},
                                                             {63, 2},
                                                             {3, 64},
                                                             {65, 31},
                                                             {7, 97},
                                                             {130, 19},
                                                             {19, 161},
                                                             {129, 66},
                                                             {1, 200}}};

// A sweep draws one in so many of its cases, the same for every tier and not for every option.
constexpr uint64_t kOneOf = 3;

std::vector<std::string> options_of(operation op) {
  std::vector<std::string> all;
  for (const char side : {'L', 'R'})
    for (const char uplo : {'U', 'L'}) {
      if (op == operation::symm) all.push_back({side, uplo});
      for (const char trans : {'N', 'T', 'C'})
        for (const char diag : {'N', 'U'})
          if (op != operation::symm) all.push_back({side, uplo, trans, diag});
    }
  return all;
}

template <class T>
T random_scalar(engine& random, values kind) {
  const auto choice = random() % 5;
  return choice < 2 ? T(static_cast<real_part_t<T>>(choice)) : random_element<T>(random, kind);
}

template <class T>
class TierLevel3 : public testing::Test {
 protected:
  using E = typename routines<T>::element;

  static const E* in(const T* x) { return reinterpret_cast<const E*>(x); }

  static void call(const tier_routines<E>& r, const problem<T>& p, T* result) {
    E* out = reinterpret_cast<E*>(result);
    if (p.op == operation::symm)
      return r.symm(&p.side, &p.uplo, &p.m, &p.n, in(&p.alpha), in(p.a), &p.lda, in(p.b), &p.ldb, in(&p.beta), out,
                    &p.ldc);
    (p.op == operation::trmm ? r.trmm : r.trsm)(&p.side, &p.uplo, &p.transa, &p.diag, &p.m, &p.n, in(&p.alpha), in(p.a),
                                                &p.lda, out, &p.ldb);
  }

  template <class Body>
  static void each_tier(const Body& body) {
    for (const auto& r : tiers<T>()) {
      if (!processor_runs(r.tier)) continue;
      SCOPED_TRACE(r.tier);
      body(r);
      if (testing::Test::HasFailure()) return;
    }
  }

  static void sweep(operation op) {
    each_tier([op](const tier_routines<E>& r) {
      engine random(kSeed);
      for (std::string options : options_of(op))
        for (const auto [m, n] : kShapes) {
          if (random() % kOneOf != 0) continue;
          const values kind = op != operation::trsm && random() % 2 == 0 ? values::whole : values::fractions;
          if (random() % 3 == 0)
            for (char& letter : options) letter = static_cast<char>(letter ^ 0x20);
          const T alpha = random_scalar<T>(random, kind), beta = random_scalar<T>(random, kind);
          const blas_case<T> x(problem_of(op, options, m, n, int64_t{0}, alpha, beta), random, kind);
          const matrix<T> result = x.start();
          call(r, x.p, result.data());
          const host::verdict verdict = host::check(x.p, result.data(), 1);
          ASSERT_TRUE(verdict.passed && !(kind == values::whole && verdict.worst > 0)) << x << ": " << verdict.text;
          ASSERT_TRUE(result.padding_is_intact()) << x;
        }
    });
  }
};

using Elements = testing::Types<float, double, std::complex<float>, std::complex<double>>;
TYPED_TEST_SUITE(TierLevel3, Elements);

TYPED_TEST(TierLevel3, Symm) { this->sweep(operation::symm); }
TYPED_TEST(TierLevel3, Trmm) { this->sweep(operation::trmm); }
TYPED_TEST(TierLevel3, Trsm) { this->sweep(operation::trsm); }

// A triangle of C next to NaN; mirrored, it must be the product of op(A) and its transposed, "C" included.
TYPED_TEST(TierLevel3, Syrk) {
  using T = TypeParam;
  this->each_tier([](const auto& r) {
    engine random(kSeed);
    for (const values kind : {values::whole, values::fractions})
      for (const char uplo : {'U', 'L', 'u', 'l'})
        for (const char trans : {'N', 'T', 'C'})
          for (const auto [n, k] : kShapes) {
            if (random() % kOneOf != 0) continue;
            const bool plain = trans == 'N', upper = (uplo & ~0x20) == 'U';
            const T alpha = random_scalar<T>(random, kind), beta = random_scalar<T>(random, kind);
            matrix<T> a(plain ? n : k, plain ? k : n), c0(n, n), start(n, n), full(n, n);
            if (alpha != T(0)) a.fill(random, kind);
            if (beta != T(0)) c0.fill(random, kind);
            for (int64_t j = 0; j < n; ++j)
              for (int64_t i = 0; i < n; ++i)
                if (i == j || (i < j) == upper) start(i, j) = c0(i, j), c0(j, i) = c0(i, j);
            const matrix<T> c = start;
            const int64_t lda = a.ld(), ldc = c.ld();
            using E = typename routines<T>::element;
            const auto in = [](const T* x) { return reinterpret_cast<const E*>(x); };
            r.syrk(&uplo, &trans, &n, &k, in(&alpha), in(a.data()), &lda, in(&beta), reinterpret_cast<E*>(c.data()),
                   &ldc, 0, 0);
            for (int64_t j = 0; j < n; ++j)
              for (int64_t i = 0; i < n; ++i)
                if (i == j || (i < j) == upper)
                  full(i, j) = full(j, i) = c(i, j);
                else
                  ASSERT_EQ(std::memcmp(&c(i, j), &start(i, j), sizeof(T)), 0) << i << ' ' << j;
            const std::string letters = plain ? "NT" : "TN";
            auto p = problem_of(operation::gemm, letters, n, n, k, alpha, beta);
            p.a = p.b = a.data(), p.lda = p.ldb = lda, p.c = c0.data(), p.ldc = ldc;
            const host::verdict verdict = host::check(p, full.data(), 1);
            ASSERT_TRUE(verdict.passed && !(kind == values::whole && verdict.worst > 0) && c.padding_is_intact())
                << uplo << trans << ' ' << n << " x " << k << " alpha " << alpha << " beta " << beta << ": "
                << verdict.text;
          }
  });
}

}  // namespace
}  // namespace tev::test
