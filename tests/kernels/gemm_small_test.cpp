// SPDX-License-Identifier: BSD-3-Clause
// Products without packed panels, each routine by its own name, on each tier that the processor can run.
//   Exact     whole numbers, every transposition and conjugation: bit for bit; operands end at unmapped pages, C starts
//             as NaN where beta is 0, the rows below C keep their bits
//   RegistersInOnePieceOrTwo  the same on processors that compute 512-bit registers so
//   Rounding  fractions, deep sums: |C - Cref| <= gamma(k + 4) (|alpha| |A| |B| + |beta| |C0|)
//   PastCaches  a C that the caches cannot hold
//   Special   NaN beta reaches C; alpha 0 and k below 1 never read A and B; the ends of the selector

#include "tests/support/fake_processor.h"
#include "tests/support/judge.h"
#include "tests/support/tier_kernels.h"

namespace tev::test {
namespace {

enum class beta_class { any, zero, one };

struct routine {
  std::string name;
  const char* pair = "";  // what the name says of the operands; empty: what the arguments say
  beta_class beta = beta_class::any;
  int64_t k = -1, m = -1;  // sizes that the name fixes
};

// Tried on every tier that has them.
const std::vector<routine>& all_routines() {
  static const std::vector<routine> all = [] {
    std::vector<routine> rows = {{"x?gemm"},  // whose tiny products have a kernel of their own
                                 {"?gemm_unpacked"},
                                 {"?gemm_pst"},
                                 {"?gemm_sm_01_10"},
                                 {"?gemm_nocopy"},
                                 {"?gemm_nocopy_anbn", "NN"},
                                 {"?gemm_nocopy_anbt", "NT"},
                                 {"?gemm_nocopy_anbn_b0", "NN", beta_class::zero},
                                 {"?gemm_nocopy_anbt_b0", "NT", beta_class::zero},
                                 {"?gemm_nocopy_anbn_meq6_keq6", "NN", beta_class::any, 6, 6},
                                 {"?gemm_nocopy_anbn_meq6_keq6_b0", "NN", beta_class::zero, 6, 6},
                                 {"?gemm_nocopy_anbn_meq9_keq9_b0", "NN", beta_class::zero, 9, 9},
                                 {"?gemm_nocopy_anbn_meq12_keq12_b0", "NN", beta_class::zero, 12, 12},
                                 {"?gemm_t_smalln", "TN"},
                                 {"?gemm_n_smalln", "NN"}};
    for (const char* pair : {"NN", "NT", "TN", "TT"}) {
      const std::string name = std::string("?gemm_kernel_nocopy_") + pair;
      rows.insert(
          rows.end(),
          {{name + "_b0", pair, beta_class::zero}, {name + "_b1", pair, beta_class::one}, {name + "_bn", pair}});
    }
    return rows;
  }();
  return all;
}

// Shapes around vectors and tiles, narrow, flat and deep ones; `deep` of them where a wrong depth would show.
template <class T>
problem<T> draw(engine& random, const routine& r) {
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
    case 4:  // several stretches of k, the next one fetched beside many tiles
      if (r.name == "?gemm_unpacked") m = 24 + below(50), n = 24 + below(60), k = 257 + below(200);
      break;
    case 3:  // columns of C in one or several segments
      m = 32 + below(700), k = 1 + below(9);
      break;
  }
  if (r.name == "?gemm_sm_01_10") k = 1 + below(10);
  if (r.name == "x?gemm") m = 1 + below(17), n = 1 + below(17), k = 1 + below(17);
  if (r.m >= 0) m = r.m;
  if (r.k >= 0) k = r.k;
  const std::vector<T> scalars = {number<T>(1, 0), number<T>(-2, 0), number<T>(1, 2)};
  const T alpha = scalars[below(3)];
  const T beta = r.beta == beta_class::zero  ? T(0)
                 : r.beta == beta_class::one ? T(1)
                                             : std::vector<T>{T(0), T(1), scalars[1], scalars[2]}[below(4)];
  return problem_of<T>(operation::gemm, pair, m, n, k, alpha, beta);
}

template <class T>
class GemmSmall : public testing::Test {
 protected:
  // body(routine, run), where run(case) is the result.
  template <class Body>
  void for_each_routine(const Body& body) {
    for (const routine& r : all_routines())
      for (const std::string& tier : tiers_with<T>(r.name)) {
        SCOPED_TRACE(tier + " " + r.name);
        const kernel_calls<T> kernel = {find_kernel(tier, r.name, kLetter<T>)};
        body(r, [&](const blas_case<T>& x) {
          matrix<T> c = x.start();
          call(x.p, c.data(), kernel);
          return c;
        });
        if (this->HasFailure()) return;
      }
  }
  engine random_{20};
};
TYPED_TEST_SUITE(GemmSmall, Elements);

TYPED_TEST(GemmSmall, Exact) {
  using T = TypeParam;
  this->for_each_routine([&](const routine& r, const auto& run) {
    for (int round = 0; round < (r.name == "x?gemm" ? 1000 : 40); ++round) {
      const blas_case<T> x(draw<T>(this->random_, r), this->random_, values::whole);
      ASSERT_TRUE(is_right(x, run(x), true));
    }
  });
}

// Whichever kind this processor is.
TYPED_TEST(GemmSmall, RegistersInOnePieceOrTwo) {
  using T = TypeParam;
  expect_silent_by_halves([&] {
    this->for_each_routine([&](const routine& r, const auto& run) {
      if (r.name != "?gemm_unpacked") return;
      for (int round = 0; round < 400; ++round) {
        const blas_case<T> x(draw<T>(this->random_, r), this->random_, values::whole);
        ASSERT_TRUE(is_right(x, run(x), true));
      }
    });
  });
}

TYPED_TEST(GemmSmall, Rounding) {
  using T = TypeParam;
  this->for_each_routine([&](const routine& r, const auto& run) {
    if (r.k >= 0 || r.name == "?gemm_sm_01_10") return;
    // Deep; deep in several strips; few rows against an operand that is read once; one strip in several stretches; few
    // rows and columns; down the columns, deep and shallow; a matrix from far against vectors and against one strip, as
    // columns that stream by (from B, from A; rows in place, packed), a few lines high and tall; a far C column by
    // column; one row or column more than whole registers; columns that evict each other; columns of A side by side in
    // a register, with gaps and without.
    constexpr int64_t kClashing = 512 / sizeof(T) - matrix<T>::kPadding, kQuarter = 16 / sizeof(T),
                      kHalf = 2 * kQuarter;
    const std::vector<std::tuple<const char*, int64_t, int64_t, int64_t>> shapes = {
        {"CN", 3, 5, 2100},        {"CN", 26, 9, 700},        {"NN", 26, 9, 700},    {"NN", 12, 520, 260},
        {"NC", 12, 520, 260},      {"NN", 22, 11, 2100},      {"NT", 9, 40, 900},    {"CN", 12, 11, 6000},
        {"NN", 130, 33, 260},      {"NC", 600, 111, 3},       {"NT", 1, 270, 500},   {"TN", 1, 270, 500},
        {"NT", 270, 1, 500},       {"CN", 270, 1, 500},       {"CC", 270, 1, 500},   {"NT", 9, 300, 1800},
        {"NN", 20, 1060, 500},     {"CN", 9, 380, 700},       {"TT", 530, 8, 500},   {"NN", 270, 4, 500},
        {"NN", 800, 1000, 2},      {"NN", 700, 2, 200},       {"NC", 3, 270, 500},   {"NT", 9, 520, 70},
        {"NN", 49, 33, 34},        {"NC", 49, 17, 16},        {"CN", 49, 33, 34},    {"CC", 33, 49, 34},
        {"NN", kClashing, 9, 150}, {"NN", kQuarter, 11, 131}, {"NN", kHalf, 3, 131}, {"TT", 9, kQuarter, 132},
        {"TT", 2, kHalf, 133}};
    for (const auto& [letters, m, n, k] : shapes) {
      if (m * n * k > 200000 && r.name != "?gemm_unpacked") continue;
      const std::string pair = *r.pair != 0 ? r.pair : letters;
      const T beta = r.beta == beta_class::zero ? T(0) : r.beta == beta_class::one ? T(1) : T(-0.75F);
      for (const int64_t padding : {matrix<T>::kPadding, int64_t{0}}) {
        if (padding == 0 && m > kHalf && n > kHalf) continue;
        const blas_case<T> x(problem_of<T>(operation::gemm, pair, m, n, k, T(1.25F), beta), this->random_,
                             values::fractions, padding);
        ASSERT_TRUE(is_right(x, run(x)));
      }
    }
  });
}

TYPED_TEST(GemmSmall, Special) {
  using T = TypeParam;
  this->for_each_routine([&](const routine& r, const auto& run) {
    if (r.beta != beta_class::any) return;
    const bool tiny = r.name == "x?gemm";
    const int64_t m = r.m >= 0 ? r.m : tiny ? 4 : 11, k = r.k >= 0 ? r.k : 7;
    const std::string pair = *r.pair != 0 ? r.pair : tiny ? "NT" : "TN";
    const auto shape = [&](int64_t depth, T alpha, T beta) {
      return problem_of<T>(operation::gemm, pair, m, 5, depth, alpha, beta);
    };
    const blas_case<T> nan_beta(shape(k, T(1), nan_element<T>()), this->random_, values::whole);
    ASSERT_TRUE(is_right(nan_beta, run(nan_beta)));
    for (const T beta : {T(0), T(1), T(-3)}) {
      blas_case<T> unread(shape(k, T(0), beta), this->random_, values::whole);
      unread.p.a = unread.p.b = nullptr;
      ASSERT_TRUE(is_right(unread, run(unread), true));
      for (const int64_t empty : {0, -4}) {
        const blas_case<T> x(shape(empty, T(2), beta), this->random_, values::whole);
        if (r.k < 0) ASSERT_TRUE(is_right(x, run(x), true));
      }
    }
    if (r.name == "?gemm_sm_01_10") {
      const blas_case<T> deep(shape(11, T(1), T(2)), this->random_, values::whole);
      ASSERT_TRUE(run(deep).same_bits(deep.c));
    }
  });
}

// C of more bytes than the caches hold, in whole lines, is written past them.
TYPED_TEST(GemmSmall, PastCaches) {
  using T = TypeParam;
  constexpr int64_t m = 1030, k = 3, n = (int64_t{12} << 20) / (m * int64_t{sizeof(T)}) + 2;
  const blas_case<T> x(problem_of<T>(operation::gemm, "NN", m, n, k, T(1), T(0)), this->random_, values::whole, 10);
  this->for_each_routine([&](const routine& r, const auto& run) {
    if (r.name == "?gemm_unpacked" || r.name == "x?gemm") ASSERT_TRUE(is_right(x, run(x), true));
  });
}

}  // namespace
}  // namespace tev::test
