// SPDX-License-Identifier: BSD-3-Clause
// Products without packed panels, each routine by its own name, on each tier that the processor can run.
//   Exact     whole numbers, every transposition and conjugation: bit for bit; operands end at unmapped pages, C starts
//             as NaN where beta is 0, the rows below C keep their bits
//   Rounding  fractions, deep sums: |C - Cref| <= gamma(k + 4) (|alpha| |A| |B| + |beta| |C0|)
//   PastCaches  a C that the caches cannot hold
//   Special   NaN beta reaches C; alpha 0 and k below 1 never read A and B; the ends of the selector
#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <string>
#include <tuple>
#include <vector>

#include "host/check.h"
#include "kernels/records.h"
#include "tests/support/blas_case.h"
#include "tests/support/guarded.h"
#include "tests/support/tier_list.h"

namespace tev::test {
namespace {

using kernels::gemm_fn;

enum class beta_class { any, zero, one };

template <class E>
struct routine {
  std::string tier, name;
  gemm_fn<E>* run;
  const char* pair = "";  // what the name says of the operands; empty: what the arguments say
  beta_class beta = beta_class::any;
  int64_t k = -1, m = -1;  // sizes that the name fixes
};

// clang-format off
// One row per routine: the list that it goes into, tier, precision, rest of the name, what the name says.
#define TEV_ANY(row, tier, p) row(tier, p, gemm_unpacked) row(tier, p, gemm_pst)
#define TEV_SM(row, tier, p) row(tier, p, gemm_sm_01_10)
#define TEV_PAIR(row, tier, p, pair, letters)                                \
  row(tier, p, gemm_kernel_nocopy_##pair##_b0, letters, beta_class::zero)    \
      row(tier, p, gemm_kernel_nocopy_##pair##_b1, letters, beta_class::one) \
          row(tier, p, gemm_kernel_nocopy_##pair##_bn, letters)
#define TEV_NOCOPY(row, tier, p)   \
  TEV_PAIR(row, tier, p, NN, "NN") \
  TEV_PAIR(row, tier, p, NT, "NT") TEV_PAIR(row, tier, p, TN, "TN") TEV_PAIR(row, tier, p, TT, "TT")
#define TEV_MEQ6(row, tier, p)                                          \
  row(tier, p, gemm_nocopy_anbn_meq6_keq6, "NN", beta_class::any, 6, 6) \
      row(tier, p, gemm_nocopy_anbn_meq6_keq6_b0, "NN", beta_class::zero, 6, 6)
#define TEV_ANB(row, p)                                                                                 \
  row(avx, p, gemm_nocopy) row(avx, p, gemm_nocopy_anbn, "NN") row(avx, p, gemm_nocopy_anbt, "NT") row( \
      avx, p, gemm_nocopy_anbn_b0, "NN", beta_class::zero) row(avx, p, gemm_nocopy_anbt_b0, "NT", beta_class::zero)

// x?gemm, whose tiny products have a kernel of their own.
#define TEV_SEQUENTIAL(row, xp) row(def, xp, gemm) row(avx2, xp, gemm) row(avx512, xp, gemm) row(avx512_zel, xp, gemm)
#define TEV_EVERYWHERE(row, p)                                                                                      \
  TEV_SEQUENTIAL(row, x##p)                                                                                         \
  TEV_ANY(row, def, p)                                                                                              \
  TEV_ANY(row, cnr_def, p)                                                                                          \
  TEV_ANY(row, mc, p)                                                                                               \
  TEV_ANY(row, mc3, p)                                                                                              \
  TEV_ANY(row, avx, p) TEV_ANY(row, avx2, p) TEV_ANY(row, avx512, p) TEV_ANY(row, avx512_zel, p) TEV_SM(row, mc, p) \
      TEV_SM(row, mc3, p) TEV_SM(row, avx, p)
#define TEV_REAL(row, p)         \
  TEV_EVERYWHERE(row, p)         \
  TEV_NOCOPY(row, avx2, p)       \
  TEV_NOCOPY(row, avx512, p)     \
  TEV_NOCOPY(row, avx512_zel, p) \
  TEV_MEQ6(row, avx, p)          \
  TEV_MEQ6(row, avx2, p) TEV_ANB(row, p) row(avx512, p, gemm_t_smalln, "TN") row(avx512_zel, p, gemm_t_smalln, "TN")
#define TEV_ROWS_s(row) TEV_REAL(row, s)
#define TEV_ROWS_d(row)                                                        \
  TEV_REAL(row, d)                                                             \
  row(avx512, d, gemm_n_smalln, "NN") row(avx512_zel, d, gemm_n_smalln, "NN")  \
      row(avx, d, gemm_nocopy_anbn_meq9_keq9_b0, "NN", beta_class::zero, 9, 9) \
          row(avx, d, gemm_nocopy_anbn_meq12_keq12_b0, "NN", beta_class::zero, 12, 12)
#define TEV_COMPLEX(row, p) \
  TEV_EVERYWHERE(row, p) TEV_SM(row, avx2, p) TEV_SM(row, avx512, p) TEV_SM(row, avx512_zel, p)
#define TEV_ROWS_c(row) TEV_COMPLEX(row, c)
#define TEV_ROWS_z(row) TEV_COMPLEX(row, z)

// clang-format on

#define TEV_ELEMENT_s float
#define TEV_ELEMENT_xs float
#define TEV_ELEMENT_d double
#define TEV_ELEMENT_xd double
#define TEV_ELEMENT_c tev_complex8
#define TEV_ELEMENT_xc tev_complex8
#define TEV_ELEMENT_z tev_complex16
#define TEV_ELEMENT_xz tev_complex16
#define TEV_DECLARE(tier, p, op, ...) extern "C" gemm_fn<TEV_ELEMENT_##p> tev_blas_##tier##_##p##op;
TEV_ROWS_s(TEV_DECLARE) TEV_ROWS_d(TEV_DECLARE) TEV_ROWS_c(TEV_DECLARE) TEV_ROWS_z(TEV_DECLARE)
#define TEV_ENTRY(tier, p, op, ...) {#tier, #op, tev_blas_##tier##_##p##op __VA_OPT__(, ) __VA_ARGS__},
    template <class T>
    std::vector<routine<typename routines<T>::element>> all_routines() {
  if constexpr (std::is_same_v<T, float>) return {TEV_ROWS_s(TEV_ENTRY)};
  if constexpr (std::is_same_v<T, double>) return {TEV_ROWS_d(TEV_ENTRY)};
  if constexpr (std::is_same_v<T, std::complex<float>>) return {TEV_ROWS_c(TEV_ENTRY)};
  if constexpr (std::is_same_v<T, std::complex<double>>) return {TEV_ROWS_z(TEV_ENTRY)};
}

template <class T, class E>
matrix<T> result_of(const routine<E>& r, const blas_case<T>& x) {
  matrix<T> c = x.start();
  const auto in = [](const T* from) { return reinterpret_cast<const E*>(from); };
  const problem<T>& p = x.p;
  r.run(&p.transa, &p.transb, &p.m, &p.n, &p.k, in(&p.alpha), in(p.a), &p.lda, in(p.b), &p.ldb, in(&p.beta),
        reinterpret_cast<E*>(c.data()), &p.ldc);
  return c;
}

// alpha op(A) op(B) + beta C as plain sums; whole numbers, so that the order does not matter.
template <class T>
T plain_element(const blas_case<T>& x, int64_t i, int64_t j) {
  const auto element = [](const matrix<T>& m, char trans, int64_t row, int64_t column) -> T {
    if (trans == 'N') return m(row, column);
    if constexpr (kIsComplex<T>)
      if (trans == 'C') return std::conj(m(column, row));
    return m(column, row);
  };
  T sum = 0;
  for (int64_t p = 0; p < x.p.k; ++p) sum += element(x.a, x.p.transa, i, p) * element(x.b, x.p.transb, p, j);
  return x.p.beta == T(0) ? x.p.alpha * sum : x.p.alpha * sum + x.p.beta * x.c(i, j);
}

template <class T>
T scalar(int re, int im) {
  if constexpr (kIsComplex<T>) return T(static_cast<real_part_t<T>>(re), static_cast<real_part_t<T>>(im));
  return T(static_cast<real_part_t<T>>(re));
}

// Shapes around vectors and tiles, narrow, flat and deep ones; `deep` of them where a wrong depth would show.
template <class T, class E>
problem<T> draw(engine& random, const routine<E>& r) {
  const auto below = [&](int64_t n) { return static_cast<int64_t>(random() % n); };
  const std::string letters = "NTC";
  std::string pair = {letters[below(3)], letters[below(3)]};
  if (*r.pair != 0) pair = r.pair;
  int64_t m = 1 + below(52), n = 1 + below(20), k = 1 + below(20);
  switch (below(8)) {
    case 0:
      m = 1 + below(5), n = 30 + below(70), k = 32 + below(20);
      break;
    case 1:
      n = 1 + below(5), m = 30 + below(150), k = 32 + below(20);
      break;
    case 2:
      m = 1 + below(20), n = 1 + below(20), k = 100 + below(300);
      break;
  }
  if (r.name == "gemm_sm_01_10") k = 1 + below(10);
  if (r.name == "gemm") pair[0] = letters[below(2)], m = 1 + below(17), n = 1 + below(17), k = 1 + below(13);
  if (r.m >= 0) m = r.m;
  if (r.k >= 0) k = r.k;
  const std::vector<T> scalars = {scalar<T>(1, 0), scalar<T>(-2, 0), scalar<T>(1, 2)};
  const T alpha = scalars[below(3)];
  const T beta = r.beta == beta_class::zero  ? T(0)
                 : r.beta == beta_class::one ? T(1)
                                             : std::vector<T>{T(0), T(1), scalars[1], scalars[2]}[below(4)];
  return problem_of<T>(operation::gemm, pair, m, n, k, alpha, beta);
}

template <class T>
class GemmSmall : public testing::Test {
 protected:
  template <class Body>
  void for_each_routine(const Body& body) {
    for (const auto& r : all_routines<T>()) {
      if (!processor_runs(r.tier)) continue;
      SCOPED_TRACE(r.tier + " " + r.name);
      body(r);
      if (this->HasFailure()) return;
    }
  }
  engine random_{20};
};
using Precisions = testing::Types<float, double, std::complex<float>, std::complex<double>>;
TYPED_TEST_SUITE(GemmSmall, Precisions);

TYPED_TEST(GemmSmall, Exact) {
  using T = TypeParam;
  this->for_each_routine([&](const auto& r) {
    for (int round = 0; round < (r.name == "gemm" ? 400 : 40); ++round) {
      const blas_case<T> x(draw<T>(this->random_, r), this->random_, values::whole);
      const matrix<T> c = result_of(r, x);
      ASSERT_TRUE(c.padding_is_intact()) << x;
      for (int64_t j = 0; j < x.p.n; ++j)
        for (int64_t i = 0; i < x.p.m; ++i) ASSERT_EQ(c(i, j), plain_element(x, i, j)) << x << " at " << i << ", " << j;
    }
  });
}

TYPED_TEST(GemmSmall, Rounding) {
  using T = TypeParam;
  this->for_each_routine([&](const auto& r) {
    if (r.k >= 0 || r.name == "gemm_sm_01_10") return;
    // Deep; deep in several strips; few rows against an operand that is read once.
    const std::vector<std::tuple<const char*, int64_t, int64_t, int64_t>> shapes = {
        {"CN", 3, 5, 2100}, {"CN", 26, 9, 700}, {"NN", 26, 9, 700}, {"NN", 12, 520, 260}, {"NC", 12, 520, 260}};
    for (const auto& [letters, m, n, k] : shapes) {
      if (n > 100 && r.name != "gemm_unpacked") continue;
      const std::string pair = *r.pair != 0 ? r.pair : letters;
      const T beta = r.beta == beta_class::zero ? T(0) : r.beta == beta_class::one ? T(1) : T(-0.75F);
      const blas_case<T> x(problem_of<T>(operation::gemm, pair, m, n, k, T(1.25F), beta), this->random_,
                           values::fractions);
      const host::verdict verdict = host::check(x.p, result_of(r, x).data(), 1);
      ASSERT_TRUE(verdict.passed) << x << ": " << verdict.text;
    }
  });
}

TYPED_TEST(GemmSmall, Special) {
  using T = TypeParam;
  this->for_each_routine([&](const auto& r) {
    if (r.beta != beta_class::any) return;
    const bool tiny = r.name == "gemm";
    const int64_t m = r.m >= 0 ? r.m : tiny ? 4 : 11, k = r.k >= 0 ? r.k : 7;
    const std::string pair = *r.pair != 0 ? r.pair : tiny ? "NT" : "TN";
    const auto shape = [&](int64_t depth, T alpha, T beta) {
      return problem_of<T>(operation::gemm, pair, m, 5, depth, alpha, beta);
    };
    const blas_case<T> nan_beta(shape(k, T(1), nan_element<T>()), this->random_, values::whole);
    const matrix<T> spoilt = result_of(r, nan_beta);
    for (int64_t j = 0; j < 5; ++j)
      for (int64_t i = 0; i < m; ++i) ASSERT_NE(spoilt(i, j), spoilt(i, j));

    for (const T beta : {T(0), T(1), T(-3)}) {
      blas_case<T> unread(shape(k, T(0), beta), this->random_, values::whole);
      for (matrix<T>* hidden : {&unread.a, &unread.b})
        for (int64_t j = 0; j < hidden->columns(); ++j)
          for (int64_t i = 0; i < hidden->rows(); ++i) (*hidden)(i, j) = nan_element<T>();
      std::vector<blas_case<T>> cases = {unread};
      if (r.k < 0)
        for (const int64_t empty : {0, -4}) cases.emplace_back(shape(empty, T(2), beta), this->random_, values::whole);
      for (const auto& x : cases) {
        const matrix<T> c = result_of(r, x);
        for (int64_t j = 0; j < 5; ++j)
          for (int64_t i = 0; i < m; ++i) ASSERT_EQ(c(i, j), beta == T(0) ? T(0) : beta * x.c(i, j)) << x;
      }
    }
    if (r.name == "gemm_sm_01_10") {
      const blas_case<T> deep(shape(11, T(1), T(2)), this->random_, values::whole);
      ASSERT_TRUE(result_of(r, deep).same_bits(deep.c));
    }
  });
}

// C of more bytes than the caches hold, in whole lines, is written past them.
TYPED_TEST(GemmSmall, PastCaches) {
  using T = TypeParam;
  using E = typename routines<T>::element;
  constexpr int64_t m = 1030, k = 7, ldc = 1040, n = (int64_t{12} << 20) / (m * int64_t{sizeof(T)}) + 2;
  const auto whole = [](int64_t x, int64_t period) { return T(static_cast<real_part_t<T>>(x % period - period / 2)); };
  std::vector<T> a(m * k), b(k * n), expected(5 * 7);
  for (int64_t p = 0; p < k; ++p) {
    for (int64_t i = 0; i < m; ++i) a[i + p * m] = whole(i + p, 5);
    for (int64_t j = 0; j < n; ++j) b[p + j * k] = whole(3 * p + j, 7);
    for (int64_t e = 0; e < 35; ++e) expected[e] += whole(e % 5 + p, 5) * whole(3 * p + e / 5, 7);
  }
  this->for_each_routine([&](const auto& r) {
    if (r.name != "gemm_unpacked" && r.name != "gemm") return;
    const guarded_array<T> c(ldc * n);
    std::fill_n(c.data(), ldc * n, T(77));
    const T one(1), zero(0);
    const auto in = [](const T* from) { return reinterpret_cast<const E*>(from); };
    r.run("N", "N", &m, &n, &k, in(&one), in(a.data()), &m, in(b.data()), &k, in(&zero), reinterpret_cast<E*>(c.data()),
          &ldc);
    for (int64_t j = 0; j < n; ++j)
      for (int64_t i = 0; i < ldc; ++i)
        ASSERT_EQ(c.data()[i + j * ldc], i < m ? expected[i % 5 + j % 7 * 5] : T(77)) << i << ", " << j;
  });
}

}  // namespace
}  // namespace tev::test
