// SPDX-License-Identifier: BSD-3-Clause
// The older interface of products, by name, on the tiers that have it; whole numbers, so results match bit for bit.
//   Blocks         the block sizes at their thresholds, and what is never overwritten
//   Leaves         products over several blocks in every direction; rows below C and operands' ends are guarded
//   Steps          sizes, buffers, packing and kernel as a driver calls them
//   Shares         the parts of all threads make the product, through gemm_par and in a team
//   Addresses      cnr_def: one problem at sixteen addresses, one result
#include <gtest/gtest.h>

#include <array>
#include <complex>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "kernels/version1.h"
#include "tests/support/matrix.h"
#include "tests/support/tier_list.h"
#include "tev/service.h"

#define TEV_EACH_OLDER_TIER(row) row(def) row(cnr_def) row(mc) row(mc3) row(avx)

namespace tev::test {
namespace {

using namespace tev::kernels;

template <class E>
struct older_tier {
  std::string name;
  gemm_fn<E>* gemm;
  gemm_share_fn<E>* par;
  gemm_team_fn<E>* team;
  block_info_fn* sizes;
  zero_record_fn* zero;
  set_blocks_fn* set;
  buffers_size_fn* buffers_size;
  get_block_buffers_fn* get;
  free_block_buffers_fn* free;
  copy_fn<E>*copy_a, *copy_b;
  optimal_kernel_fn<E>* kernel;
  std::vector<gemm_fn<E>*> leaves;
};

#define TEV_DECLARE(tier, p, E)                                                                       \
  extern "C" gemm_fn<E> tev_blas_##tier##_x##p##gemm;                                                 \
  extern "C" gemm_share_fn<E> tev_blas_##tier##_x##p##gemm_par;                                       \
  extern "C" gemm_team_fn<E> tev_blas_##tier##_x##p##gemm_internal_team;                              \
  extern "C" block_info_fn tev_blas_##tier##_##p##gemm_get_blks_size;                                 \
  extern "C" zero_record_fn tev_blas_##tier##_##p##gemm_zero_desc;                                    \
  extern "C" set_blocks_fn tev_blas_##tier##_##p##gemm_set_blks_size;                                 \
  extern "C" buffers_size_fn tev_blas_##tier##_##p##gemm_get_bufs_size;                               \
  extern "C" get_block_buffers_fn tev_blas_##tier##_##p##gemm_getbufs;                                \
  extern "C" free_block_buffers_fn tev_blas_##tier##_##p##gemm_freebufs;                              \
  extern "C" copy_fn<E> tev_blas_##tier##_##p##gemm_copya_ext, tev_blas_##tier##_##p##gemm_copyb_ext; \
  extern "C" optimal_kernel_fn<E> tev_blas_##tier##_##p##gemm_get_optimal_kernel;
#define TEV_DECLARE_BDZ(tier, p, E) \
  extern "C" gemm_fn<E> tev_blas_##tier##_x##p##gemm_bdz, tev_blas_##tier##_x##p##gemm_hi_thr_bdz;
#define TEV_DECLARE_TIER(tier)                                                                         \
  TEV_DECLARE(tier, s, float)                                                                          \
  TEV_DECLARE(tier, d, double)                                                                         \
  TEV_DECLARE(tier, c, tev_complex8)                                                                   \
  TEV_DECLARE(tier, z, tev_complex16)                                                                  \
  TEV_DECLARE_BDZ(tier, s, float)                                                                      \
  TEV_DECLARE_BDZ(tier, d, double)                                                                     \
  TEV_DECLARE_BDZ(tier, z, tev_complex16)                                                              \
  extern "C" gemm_fn<float> tev_blas_##tier##_xsgemm0_brc;                                             \
  extern "C" gemm_fn<double> tev_blas_##tier##_xdgemm0_brc, tev_blas_##tier##_xdgemm1_1_brc;           \
  extern "C" block_info_fn tev_blas_##tier##_sgemm_blk_info_bdz, tev_blas_##tier##_dgemm_blk_info_bdz, \
      tev_blas_##tier##_zgemm_blk_info_bdz, tev_blas_##tier##_sgemm_blk_info_hi_thr_bdz;
TEV_EACH_OLDER_TIER(TEV_DECLARE_TIER)

#define TEV_ROW(tier, p, ...)                      \
  {#tier,                                          \
   tev_blas_##tier##_x##p##gemm,                   \
   tev_blas_##tier##_x##p##gemm_par,               \
   tev_blas_##tier##_x##p##gemm_internal_team,     \
   tev_blas_##tier##_##p##gemm_get_blks_size,      \
   tev_blas_##tier##_##p##gemm_zero_desc,          \
   tev_blas_##tier##_##p##gemm_set_blks_size,      \
   tev_blas_##tier##_##p##gemm_get_bufs_size,      \
   tev_blas_##tier##_##p##gemm_getbufs,            \
   tev_blas_##tier##_##p##gemm_freebufs,           \
   tev_blas_##tier##_##p##gemm_copya_ext,          \
   tev_blas_##tier##_##p##gemm_copyb_ext,          \
   tev_blas_##tier##_##p##gemm_get_optimal_kernel, \
   {__VA_ARGS__}},
#define TEV_BDZ(tier, p) tev_blas_##tier##_x##p##gemm_bdz, tev_blas_##tier##_x##p##gemm_hi_thr_bdz
#define TEV_ROW_s(tier) TEV_ROW(tier, s, TEV_BDZ(tier, s), tev_blas_##tier##_xsgemm0_brc)
#define TEV_ROW_d(tier) \
  TEV_ROW(tier, d, TEV_BDZ(tier, d), tev_blas_##tier##_xdgemm0_brc, tev_blas_##tier##_xdgemm1_1_brc)
#define TEV_ROW_c(tier) TEV_ROW(tier, c)
#define TEV_ROW_z(tier) TEV_ROW(tier, z, TEV_BDZ(tier, z))

// T: std::complex for complex; E: the routines' element.
template <class T>
struct precision;
#define TEV_PRECISION(T, E, p)                                                         \
  template <>                                                                          \
  struct precision<T> {                                                                \
    using element = E;                                                                 \
    static std::vector<older_tier<E>> tiers() {                                        \
      std::vector<older_tier<E>> all = {TEV_EACH_OLDER_TIER(TEV_ROW_##p)};             \
      std::erase_if(all, [](const auto& tier) { return !processor_runs(tier.name); }); \
      return all;                                                                      \
    }                                                                                  \
  };
TEV_PRECISION(float, float, s)
TEV_PRECISION(double, double, d)
TEV_PRECISION(std::complex<float>, tev_complex8, c)
TEV_PRECISION(std::complex<double>, tev_complex16, z)

template <class T>
T scalar(int re, int im) {
  if constexpr (kIsComplex<T>)
    return {static_cast<real_part_t<T>>(re), static_cast<real_part_t<T>>(im)};
  else
    return static_cast<T>(re);
}

template <class T>
T conjugated(T x) {
  if constexpr (kIsComplex<T>)
    return std::conj(x);
  else
    return x;
}

template <class T>
T op(char trans, const matrix<T>& x, int64_t i, int64_t j) {
  return trans == 'N' ? x(i, j) : trans == 'T' ? x(j, i) : conjugated(x(j, i));
}

// A product with its result by a plain triple loop.
template <class T>
struct product {
  using E = typename precision<T>::element;
  char transa, transb;
  int64_t m, n, k;
  T alpha = scalar<T>(2, -1), beta = scalar<T>(-1, 1);
  matrix<T> a, b, c, expected;

  product(char ta, char tb, int64_t rows, int64_t columns, int64_t depth)
      : transa(ta),
        transb(tb),
        m(rows),
        n(columns),
        k(depth),
        a(ta == 'N' ? m : k, ta == 'N' ? k : m),
        b(tb == 'N' ? k : n, tb == 'N' ? n : k),
        c(m, n),
        expected(m, n) {
    engine random(20240301);
    for (const matrix<T>* x : {&a, &b, &c}) const_cast<matrix<T>*>(x)->fill(random, values::whole);
    for (int64_t j = 0; j < n; ++j)
      for (int64_t i = 0; i < m; ++i) {
        T sum = 0;
        for (int64_t p = 0; p < k; ++p) sum += op(transa, a, i, p) * op(transb, b, p, j);
        expected(i, j) = alpha * sum + beta * c(i, j);
      }
  }

  // Calls a routine that begins with the arguments of a product on a copy of C.
  template <class F, class... More>
  matrix<T> operator()(F* routine, More... more) const {
    matrix<T> result = c;
    call(routine, result, more...);
    return result;
  }
  template <class F, class... More>
  void call(F* routine, const matrix<T>& result, More... more) const {
    const int64_t lda = a.ld(), ldb = b.ld(), ldc = result.ld();
    routine(&transa, &transb, &m, &n, &k, element(&alpha), element(a.data()), &lda, element(b.data()), &ldb,
            element(&beta), element(result.data()), &ldc, more...);
  }
  static const E* element(const T* x) { return reinterpret_cast<const E*>(x); }
  static E* element(T* x) { return reinterpret_cast<E*>(x); }
};

template <class T>
class OlderTiers : public testing::Test {};
using elements = testing::Types<float, double, std::complex<float>, std::complex<double>>;
TYPED_TEST_SUITE(OlderTiers, elements);

struct block_sizes {
  int64_t m, n, k, mb, nb, kb;
};

TEST(Blocks, ThresholdsInDoublePrecision) {
  constexpr block_sizes kTable[] = {{1, 1, 1, 12, 4, 128},
                                    {12, 4, 128, 12, 4, 128},
                                    {13, 5, 129, 24, 5, 130},
                                    {504, 4999, 255, 504, 4999, 256},
                                    {505, 5001, 256, 504, 5000, 256},
                                    {500, 5000, 257, 504, 5000, 128},
                                    {480, 100, 300, 480, 100, 150},
                                    {480, 100, 511, 480, 100, 256},
                                    {480, 100, 512, 480, 100, 256}};
  for (block_info_fn* info : {tev_blas_def_dgemm_blk_info_bdz, tev_blas_cnr_def_dgemm_blk_info_bdz})
    for (const block_sizes& row : kTable) {
      int64_t mb = 0, nb = 0, kb = 0, mr, nr, ku;
      info(&row.m, &row.n, &row.k, &mb, &nb, &kb, &mr, &nr, &ku);
      EXPECT_EQ((std::array{mb, nb, kb, mr, nr, ku}), (std::array<int64_t, 6>{row.mb, row.nb, row.kb, 12, 4, 2}))
          << row.m << ' ' << row.n << ' ' << row.k;
      mb = 7, nb = 8, kb = 9;
      info(&row.m, &row.n, &row.k, &mb, &nb, &kb, &mr, &nr, &ku);
      EXPECT_EQ((std::array{mb, nb, kb}), (std::array<int64_t, 3>{7, 8, 9}));
    }
}

TEST(Blocks, ReproducibleTierTellsNoneInOtherPrecisions) {
  for (block_info_fn* info : {tev_blas_cnr_def_sgemm_blk_info_bdz, tev_blas_cnr_def_zgemm_blk_info_bdz,
                              tev_blas_cnr_def_sgemm_blk_info_hi_thr_bdz}) {
    const int64_t size = 100;
    int64_t mb = 0, nb = 0, kb = 0, mr = -1, nr = -2, ku = -3;
    info(&size, &size, &size, &mb, &nb, &kb, &mr, &nr, &ku);
    EXPECT_EQ((std::array{mb, nb, kb, mr, nr, ku}), (std::array<int64_t, 6>{0, 0, 0, -1, -2, -3}));
  }
}

TYPED_TEST(OlderTiers, LeavesComputeOverAllBlocks) {
  const std::vector<product<TypeParam>> cases = [] {
    std::vector<product<TypeParam>> made;
    made.reserve(5);
    made.emplace_back('N', 'T', 509, 7, 301);
    made.emplace_back('T', 'N', 509, 7, 301);
    made.emplace_back('C', 'C', 1011, 3, 130);
    made.emplace_back('N', 'C', 5, 5003, 3);
    made.emplace_back('C', 'N', 3, 2, 0);
    return made;
  }();
  for (const auto& tier : precision<TypeParam>::tiers())
    for (size_t leaf = 0; leaf < tier.leaves.size(); ++leaf)
      for (const product<TypeParam>& p : cases) {
        const matrix<TypeParam> result = p(tier.leaves[leaf]);
        EXPECT_TRUE(result.same_bits(p.expected)) << tier.name << " leaf " << leaf << ' ' << p.transa << p.transb;
      }
}

TYPED_TEST(OlderTiers, StepsOfADriverMakeAProduct) {
  using E = typename precision<TypeParam>::element;
  for (const auto& tier : precision<TypeParam>::tiers())
    for (const int32_t mode : {kCopyPlain, kCopyTrans, kCopyConjTrans}) {
      const char trans = mode == kCopyPlain ? 'N' : mode == kCopyTrans ? 'T' : 'C';
      const product<TypeParam> p(trans, trans, 37, 11, 20);
      int64_t mb = 0, nb = 0, kb = 0, mr, nr, ku;
      tier.sizes(&p.m, &p.n, &p.k, &mb, &nb, &kb, &mr, &nr, &ku);
      ASSERT_TRUE(mb >= p.m && mb % mr == 0 && nb >= p.n && kb >= p.k && kb % ku == 0) << tier.name;
      block_record r;
      std::memset(&r, 0xFF, sizeof(r));
      tier.zero(&r);
      EXPECT_EQ(r.base, nullptr);
      tier.set(&mb, &nb, &kb, &r);
      const int64_t wanted = tier.buffers_size(&r), panels = (mb + nb) * kb * static_cast<int64_t>(sizeof(E));
      EXPECT_TRUE(tier.name.ends_with("def") ? wanted == 0 : wanted >= panels) << tier.name << wanted;
      ASSERT_EQ(tier.get(&r), 0);

      const operand a = {p.a.data(), p.m, p.k, p.a.ld(), 0, 0, p.m, sizeof(E), mode, nullptr};
      const operand b = {p.b.data(), p.k, p.n, p.b.ld(), 0, 0, p.k, sizeof(E), mode, nullptr};
      packed a_panel = {r.a, 0, 0}, b_panel = {r.b, 0, 0};
      const TypeParam one = 1;
      tier.copy_a(&a, &a_panel, p.element(&one));
      tier.copy_b(&b, &b_panel, p.element(&p.alpha));
      EXPECT_EQ((std::array{a_panel.depth, a_panel.width, b_panel.depth, b_panel.width}),
                (std::array{p.k, p.m, p.k, p.n}));
      const matrix<TypeParam> result = p.c;
      const operand c = {result.data(), p.m, p.n, result.ld(), 0, 0, p.m, sizeof(E), 0, nullptr};
      tier.kernel(&p.m, &p.n, &p.k)(&p.k, static_cast<E*>(r.a), static_cast<E*>(r.b), p.element(&p.beta), &c);
      EXPECT_TRUE(result.same_bits(p.expected)) << tier.name << trans;
      tier.free(&r);
      EXPECT_EQ(r.base, nullptr);
    }
}

TYPED_TEST(OlderTiers, SharesOfAllThreadsMakeTheProduct) {
  for (const int64_t n : {1, 10})
    for (const char trans : {'N', 'C'}) {
      const product<TypeParam> p('T', trans, 9, n, 7);
      for (const auto& tier : precision<TypeParam>::tiers()) {
        const int64_t team = 3;
        const matrix<TypeParam> shared = p.c;
        for (int64_t t = 0; t < team; ++t) p.call(tier.par, shared, &t, &team);
        EXPECT_TRUE(shared.same_bits(tier.name.ends_with("def") ? p.c : p.expected)) << tier.name;

        const matrix<TypeParam> by_team = p.c;
        alignas(64) char barrier[4096] = {};
        std::vector<std::thread> threads;
        for (int64_t t = 0; t < team; ++t)
          threads.emplace_back([&, t] {
            const uint64_t none = 0;
            p.call(tier.team, by_team, &t, &team, static_cast<void*>(barrier), none, none, none, none, 2);
            EXPECT_TRUE(by_team.same_bits(p.expected)) << tier.name;  // nobody returns before all are done
          });
        for (std::thread& thread : threads) thread.join();
      }
    }
}

TYPED_TEST(OlderTiers, ReproducibleTierIsBlindToAddresses) {
  using E = typename precision<TypeParam>::element;
  const auto tiers = precision<TypeParam>::tiers();
  const auto& tier = tiers[1];
  ASSERT_EQ(tier.name, "cnr_def");
  constexpr int64_t kSizes[][3] = {{7, 5, 9}, {61, 3, 200}, {130, 50, 300}};
  for (const auto& [m, n, k] : kSizes) {
    std::vector<TypeParam> numbers(3 * 300 * 300 / 2), first;
    engine random(7);
    for (TypeParam& x : numbers) x = random_element<TypeParam>(random, values::fractions);
    for (int64_t offset = 0; offset < 16; ++offset) {
      std::vector<TypeParam> a(m * k + 32), b(k * n + 32), c(m * n + 32);
      TypeParam *pa = a.data() + offset, *pb = b.data() + (offset * 5) % 16, *pc = c.data() + (offset * 3) % 16;
      std::copy_n(numbers.begin(), m * k, pa);
      std::copy_n(numbers.begin() + 7, k * n, pb);
      std::copy_n(numbers.begin() + 3, m * n, pc);
      const TypeParam alpha = scalar<TypeParam>(2, 3), beta = scalar<TypeParam>(-1, 1);
      const auto element = [](auto* x) { return reinterpret_cast<E*>(const_cast<TypeParam*>(x)); };
      for (gemm_fn<E>* gemm : {tier.gemm, tier.leaves.empty() ? tier.gemm : tier.leaves[0]})
        gemm("N", "N", &m, &n, &k, element(&alpha), element(pa), &m, element(pb), &k, element(&beta), element(pc), &m);
      const std::vector<TypeParam> result(pc, pc + m * n);
      if (offset == 0) first = result;
      EXPECT_EQ(std::memcmp(result.data(), first.data(), result.size() * sizeof(TypeParam)), 0) << offset;
    }
  }
}

}  // namespace
}  // namespace tev::test
