// SPDX-License-Identifier: BSD-3-Clause
// The sequential product of every tier on shapes that it packs, in all precisions. The tiers of the processor compute
// the same problem; operands end at an unmapped page, and the rows below C keep their bits.
//   Exact     whole numbers: results match a plain loop bit for bit. Edges of tiles, several blocks in each direction
//   Rounding  fractions, against sums in a wider type
//   Special   NaN and infinity, beta and alpha of zero, nothing to sum
#include <gtest/gtest.h>

#include <complex>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "host/check.h"
#include "kernels/routine_types.h"
#include "tests/support/matrix.h"
#include "tests/support/tier_list.h"

namespace tev::test {
namespace {

template <class T>
struct tiers_of;
#define TEV_DECLARE_s(tier) extern "C" kernels::gemm_fn<float> tev_blas_##tier##_xsgemm;
#define TEV_DECLARE_d(tier) extern "C" kernels::gemm_fn<double> tev_blas_##tier##_xdgemm;
#define TEV_DECLARE_c(tier) extern "C" kernels::gemm_fn<tev_complex8> tev_blas_##tier##_xcgemm;
#define TEV_DECLARE_z(tier) extern "C" kernels::gemm_fn<tev_complex16> tev_blas_##tier##_xzgemm;
#define TEV_ROW_s(tier) {#tier, tev_blas_##tier##_xsgemm},
#define TEV_ROW_d(tier) {#tier, tev_blas_##tier##_xdgemm},
#define TEV_ROW_c(tier) {#tier, tev_blas_##tier##_xcgemm},
#define TEV_ROW_z(tier) {#tier, tev_blas_##tier##_xzgemm},
#define TEV_PRECISION(T, E, p)                                                                       \
  TEV_EACH_TIER(TEV_DECLARE_##p)                                                                     \
  template <>                                                                                        \
  struct tiers_of<T> {                                                                               \
    using element = E;                                                                               \
    static std::vector<std::pair<std::string, kernels::gemm_fn<E>*>> all() {                         \
      std::vector<std::pair<std::string, kernels::gemm_fn<E>*>> rows = {TEV_EACH_TIER(TEV_ROW_##p)}; \
      std::erase_if(rows, [](const auto& row) { return !processor_runs(row.first); });               \
      return rows;                                                                                   \
    }                                                                                                \
  };
TEV_PRECISION(float, float, s)
TEV_PRECISION(double, double, d)
TEV_PRECISION(std::complex<float>, tev_complex8, c)
TEV_PRECISION(std::complex<double>, tev_complex16, z)

template <class T>
T number(int re, int im) {
  if constexpr (kIsComplex<T>)
    return {static_cast<real_part_t<T>>(re), static_cast<real_part_t<T>>(im)};
  else
    return static_cast<T>(re);
}

template <class T>
struct product {
  char transa, transb;
  int64_t m, n, k;
  T alpha, beta;
  matrix<T> a, b, c;

  product(char ta, char tb, int64_t rows, int64_t columns, int64_t depth, T factor, T old, values kind)
      : transa(ta),
        transb(tb),
        m(rows),
        n(columns),
        k(depth),
        alpha(factor),
        beta(old),
        a(ta == 'N' ? m : k, ta == 'N' ? k : m),
        b(tb == 'N' ? k : n, tb == 'N' ? n : k),
        c(m, n) {
    engine random(static_cast<uint64_t>(m * 1009 + n * 31 + k));
    a.fill(random, kind);
    b.fill(random, kind);
    c.fill(random, kind);
  }

  static T op(char trans, const matrix<T>& x, int64_t i, int64_t j) {
    if (trans == 'N') return x(i, j);
    if constexpr (kIsComplex<T>) return trans == 'C' ? std::conj(x(j, i)) : x(j, i);
    return x(j, i);
  }

  matrix<T> expected() const {
    matrix<T> result(c);
    std::vector<T> row(static_cast<size_t>(k));
    for (int64_t i = 0; i < m; ++i) {
      for (int64_t p = 0; p < k; ++p) row[static_cast<size_t>(p)] = op(transa, a, i, p);
      for (int64_t j = 0; j < n; ++j) {
        T sum{};
        for (int64_t p = 0; p < k; ++p) sum += row[static_cast<size_t>(p)] * op(transb, b, p, j);
        result(i, j) = alpha * sum + (beta == T(0) ? T(0) : beta * c(i, j));
      }
    }
    return result;
  }

  matrix<T> computed_by(auto* gemm) const {
    using E = typename tiers_of<T>::element;
    matrix<T> result(c);
    const int64_t lda = a.ld(), ldb = b.ld(), ldc = c.ld();
    const auto as_element = [](auto* x) { return reinterpret_cast<const E*>(x); };
    gemm(&transa, &transb, &m, &n, &k, as_element(&alpha), as_element(a.data()), &lda, as_element(b.data()), &ldb,
         as_element(&beta), reinterpret_cast<E*>(result.data()), &ldc);
    EXPECT_TRUE(result.padding_is_intact());
    return result;
  }
};

template <class T>
class PackedGemm : public testing::Test {};
using precisions = testing::Types<float, double, std::complex<float>, std::complex<double>>;
TYPED_TEST_SUITE(PackedGemm, precisions);

// Remainders of every strip width; k about the thresholds and caps of the panels; rows beyond the largest block.
TYPED_TEST(PackedGemm, ExactInBlocksAndEdges) {
  using T = TypeParam;
  const struct {
    char transa, transb;
    int64_t m, n, k;
  } kCases[] = {{'N', 'N', 239, 95, 47},  {'N', 'T', 199, 77, 129}, {'T', 'N', 73, 223, 257}, {'C', 'T', 209, 81, 385},
                {'N', 'C', 75, 211, 193}, {'C', 'N', 196, 83, 97},  {'T', 'C', 206, 74, 769}, {'N', 'N', 10010, 73, 3}};
  int turn = 0;
  for (const auto& shape : kCases) {
    const T alpha = turn % 2 == 0 ? T(1) : number<T>(2, -1), beta = number<T>(turn % 3 - 1, turn % 3 == 0 ? 1 : 0);
    const product<T> p(shape.transa, shape.transb, shape.m, shape.n, shape.k, alpha, beta, values::whole);
    const matrix<T> expected = p.expected();
    for (const auto& [tier, gemm] : tiers_of<T>::all())
      EXPECT_TRUE(p.computed_by(gemm).same_bits(expected))
          << tier << ' ' << p.transa << p.transb << ' ' << p.m << ' ' << p.n << ' ' << p.k;
    ++turn;
  }
}

TYPED_TEST(PackedGemm, Rounding) {
  using T = TypeParam;
  const product<T> p('N', 'T', 203, 99, 401, number<T>(3, 2) / T(7), number<T>(-1, 4) / T(3), values::fractions);
  for (const auto& [tier, gemm] : tiers_of<T>::all()) {
    const matrix<T> result = p.computed_by(gemm);
    const auto verdict =
        host::check<T>({host::operation::gemm, p.transa, p.transb, 'L', 'U', 'N', p.m, p.n, p.k, p.alpha, p.beta,
                        p.a.data(), p.a.ld(), p.b.data(), p.b.ld(), p.c.data(), p.c.ld()},
                       result.data(), 1);
    EXPECT_TRUE(verdict.passed) << tier << ": " << verdict.text;
  }
}

TYPED_TEST(PackedGemm, SpecialValuesAndNothingToSum) {
  using T = TypeParam;
  const int64_t m = 205, n = 79, k = 60;
  product<T> p('N', 'N', m, n, k, T(1), T(0), values::whole);
  const matrix<T> nothing(m, n), clean_a(p.a), clean_c(p.c);
  matrix<T> zeros(p.c);
  for (int64_t j = 0; j < n; ++j) std::fill_n(&zeros(0, j), m, T(0));

  for (const auto& [tier, gemm] : tiers_of<T>::all()) {
    const auto run = [&, g = gemm](const T& alpha, const T& beta, int64_t depth, const matrix<T>& a,
                                   const matrix<T>& c) {
      product<T> q('N', 'N', m, n, depth, alpha, beta, values::whole);
      for (int64_t j = 0; j < depth; ++j) std::copy_n(&a(0, j), m, &q.a(0, j));
      for (int64_t j = 0; j < n; ++j) std::copy_n(&c(0, j), m, &q.c(0, j));
      return q.computed_by(g);
    };
    const auto all_nan = [&](const matrix<T>& x) {
      for (int64_t j = 0; j < n; ++j)
        for (int64_t i = 0; i < m; ++i)
          if (x(i, j) == x(i, j)) return false;
      return true;
    };
    EXPECT_TRUE(run(T(1), T(0), k, clean_a, nothing).same_bits(run(T(1), T(0), k, clean_a, clean_c))) << tier;
    EXPECT_TRUE(all_nan(run(T(1), nan_element<T>(), k, clean_a, clean_c))) << tier;
    EXPECT_TRUE(run(T(0), T(0), k, matrix<T>(m, k), nothing).same_bits(zeros)) << tier;
    EXPECT_TRUE(run(T(0), T(1), k, matrix<T>(m, k), clean_c).same_bits(clean_c)) << tier;
    EXPECT_TRUE(run(T(1), T(0), 0, clean_a, nothing).same_bits(zeros)) << tier;
    EXPECT_TRUE(run(T(1), T(1), 0, clean_a, clean_c).same_bits(clean_c)) << tier;

    matrix<T> infinite(clean_a);
    infinite(204, 3) = T(std::numeric_limits<real_part_t<T>>::infinity());
    const matrix<T> reached = run(T(1), T(1), k, infinite, clean_c), base = run(T(1), T(1), k, clean_a, clean_c);
    for (int64_t j = 0; j < n; ++j) {
      EXPECT_FALSE(std::isfinite(std::abs(reached(204, j)))) << tier;
      EXPECT_EQ(reached(203, j), base(203, j)) << tier;
    }
  }
}

}  // namespace
}  // namespace tev::test
