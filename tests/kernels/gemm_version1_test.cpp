// SPDX-License-Identifier: BSD-3-Clause
// The older interface of products, by name, on the tiers that have it; whole numbers, so results match bit for bit.
//   Leaves         products over several blocks in every direction; rows below C and operands' ends are guarded
//   Steps          sizes, buffers, packing and kernel as a driver calls them
//   Shares         the parts of all threads make the product, through gemm_par and in a team
//   Addresses      cnr_def: one problem at sixteen addresses, one result

#include "kernels/version1.h"
#include "tests/support/addresses.h"
#include "tests/support/judge.h"
#include "tests/support/tier_kernels.h"

namespace tev::test {
namespace {

using namespace tev::kernels;

// On the newer tiers the same names do nothing.
constexpr const char* kOlderTiers[] = {"def", "cnr_def", "mc", "mc3", "avx"};

template <class T>
struct older_tier {
  using E = c_element_t<T>;
  explicit older_tier(const std::string& name) : tier(name) {}
  kernel_address named(const char* name) const { return find_kernel(tier, name, kLetter<T>); }
  std::string tier;
  gemm_fn<E>* gemm = named("x?gemm");
  gemm_share_fn<E>* par = named("x?gemm_par");
  gemm_team_fn<E>* team = named("x?gemm_internal_team");
  block_info_fn* sizes = named("?gemm_get_blks_size");
  zero_record_fn* zero = named("?gemm_zero_desc");
  set_blocks_fn* set = named("?gemm_set_blks_size");
  buffers_size_fn* buffers_size = named("?gemm_get_bufs_size");
  get_block_buffers_fn* get = named("?gemm_getbufs");
  free_block_buffers_fn* free = named("?gemm_freebufs");
  copy_fn<E>*copy_a = named("?gemm_copya_ext"), *copy_b = named("?gemm_copyb_ext");
  optimal_kernel_fn<E>* kernel = named("?gemm_get_optimal_kernel");

  static std::vector<older_tier> all() {
    std::vector<older_tier> tiers;
    for (const char* name : kOlderTiers)
      if (processor_runs(name)) tiers.emplace_back(name);
    return tiers;
  }
};

template <class T>
blas_case<T> product(const char* letters, int64_t m, int64_t n, int64_t k) {
  engine random(20240301);
  return {problem_of(operation::gemm, letters, m, n, k, number<T>(2, -1), number<T>(-1, 1)), random, values::whole};
}

template <class T>
class OlderTiers : public testing::Test {};
TYPED_TEST_SUITE(OlderTiers, Elements);

TYPED_TEST(OlderTiers, LeavesComputeOverAllBlocks) {
  using T = TypeParam;
  const blas_case<T> cases[] = {product<T>("NT", 509, 7, 301), product<T>("TN", 509, 7, 301),
                                product<T>("CC", 1011, 3, 130), product<T>("NC", 5, 5003, 3),
                                product<T>("CN", 3, 2, 0)};
  for (const char* name : {"x?gemm_bdz", "x?gemm_hi_thr_bdz", "x?gemm0_brc", "x?gemm1_1_brc"})
    for (const auto& tier : older_tier<T>::all())
      for (const blas_case<T>& x : cases) {
        const kernel_calls<T> leaf = {tier.named(name)};
        if (leaf.kernel.at == nullptr) continue;
        const matrix<T> result = x.start();
        call(x.p, result.data(), leaf);
        EXPECT_TRUE(is_right(x, result, true)) << tier.tier << ' ' << name;
      }
}

TYPED_TEST(OlderTiers, StepsOfADriverMakeAProduct) {
  using T = TypeParam;
  using E = c_element_t<T>;
  for (const auto& tier : older_tier<T>::all())
    for (const auto& [letters, mode] : {std::pair{"NN", kCopyPlain}, {"TT", kCopyTrans}, {"CC", kCopyConjTrans}}) {
      const blas_case<T> x = product<T>(letters, 37, 11, 20);
      const problem<T>& p = x.p;
      int64_t mb = 0, nb = 0, kb = 0, mr, nr, ku;
      tier.sizes(&p.m, &p.n, &p.k, &mb, &nb, &kb, &mr, &nr, &ku);
      ASSERT_TRUE(mb >= p.m && mb % mr == 0 && nb >= p.n && kb >= p.k && kb % ku == 0) << tier.tier;
      block_record r;
      std::memset(&r, 0xFF, sizeof(r));
      tier.zero(&r);
      EXPECT_EQ(r.base, nullptr);
      tier.set(&mb, &nb, &kb, &r);
      const int64_t wanted = tier.buffers_size(&r), panels = (mb + nb) * kb * static_cast<int64_t>(sizeof(T));
      EXPECT_TRUE(tier.tier.ends_with("def") ? wanted == 0 : wanted >= panels) << tier.tier << wanted;
      ASSERT_EQ(tier.get(&r), 0);

      const operand a = {x.a.data(), p.m, p.k, p.lda, 0, 0, p.m, sizeof(T), mode, nullptr};
      const operand b = {x.b.data(), p.k, p.n, p.ldb, 0, 0, p.k, sizeof(T), mode, nullptr};
      packed a_panel = {r.a, 0, 0}, b_panel = {r.b, 0, 0};
      const T one = 1;
      tier.copy_a(&a, &a_panel, in(&one));
      tier.copy_b(&b, &b_panel, in(&p.alpha));
      EXPECT_EQ((std::array{a_panel.depth, a_panel.width, b_panel.depth, b_panel.width}),
                (std::array{p.k, p.m, p.k, p.n}));
      const matrix<T> result = x.start();
      const operand c = {result.data(), p.m, p.n, p.ldc, 0, 0, p.m, sizeof(T), 0, nullptr};
      tier.kernel(&p.m, &p.n, &p.k)(&p.k, static_cast<E*>(r.a), static_cast<E*>(r.b), in(&p.beta), &c);
      EXPECT_TRUE(is_right(x, result, true)) << tier.tier;
      tier.free(&r);
      EXPECT_EQ(r.base, nullptr);
    }
}

TYPED_TEST(OlderTiers, SharesOfAllThreadsMakeTheProduct) {
  using T = TypeParam;
  for (const int64_t n : {1, 10})
    for (const char* letters : {"TN", "TC"}) {
      const blas_case<T> x = product<T>(letters, 9, n, 7);
      for (const auto& tier : older_tier<T>::all()) {
        const int64_t team = 3;
        const matrix<T> shared = x.start();
        for (int64_t t = 0; t < team; ++t) call_product(x.p, shared.data(), tier.par, &t, &team);
        if (tier.tier.ends_with("def"))
          EXPECT_TRUE(shared.same_bits(x.c)) << tier.tier;
        else
          EXPECT_TRUE(is_right(x, shared, true)) << tier.tier;

        const matrix<T> by_team = x.start();
        alignas(64) char barrier[4096] = {};
        std::vector<std::jthread> threads;
        for (int64_t t = 0; t < team; ++t)
          threads.emplace_back([&, t] {
            const uint64_t none = 0;
            call_product(x.p, by_team.data(), tier.team, &t, &team, static_cast<void*>(barrier), none, none, none, none,
                         2);
            EXPECT_TRUE(is_right(x, by_team, true)) << tier.tier;  // nobody returns before all are done
          });
      }
    }
}

TYPED_TEST(OlderTiers, ReproducibleTierIsBlindToAddresses) {
  using T = TypeParam;
  using E = c_element_t<T>;
  const older_tier<T> tier("cnr_def");
  gemm_fn<E>* const blocks = tier.named("x?gemm_bdz");  // not in c
  const T alpha = number<T>(2, 3), beta = number<T>(-1, 1);
  constexpr int64_t kSizes[][3] = {{7, 5, 9}, {61, 3, 200}, {130, 50, 300}};
  for (const auto& [m, n, k] : kSizes)
    for (gemm_fn<E>* gemm : {tier.gemm, blocks != nullptr ? blocks : tier.gemm})
      expect_same_bits_at_every_address<T>({m * k, k * n, m * n}, [&, m = m, n = n, k = k](const auto& at) {
        gemm("N", "N", &m, &n, &k, in(&alpha), in(at[0]), &m, in(at[1]), &k, in(&beta), out(at[2]), &m);
        return std::vector<T>(at[2], at[2] + m * n);
      });
}

}  // namespace
}  // namespace tev::test
