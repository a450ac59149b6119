// SPDX-License-Identifier: BSD-3-Clause
// The public routines of level 3, in all precisions, over teams of any size and on tiers of both interfaces, judged by
// host/check.h. Every case has NaN in all that must not be read, and its operands end at an unmapped page.
#include <omp.h>
#include <pthread.h>

#include <span>

#include "tests/support/each_tier.h"
#include "tests/support/judge.h"
#include "tests/support/own_threads.h"
#include "tests/support/scarce_memory.h"

namespace tev::test {
namespace {

constexpr uint64_t kSeed = 20240229;

constexpr operation kOperations[] = {operation::gemm, operation::symm, operation::trmm,
                                     operation::trsm, operation::syrk, operation::syr2k,
                                     operation::hemm, operation::herk, operation::her2k};

// Calls body(operation, options) for all that the precision has.
template <class T, class Body>
void each_routine(const Body& body) {
  for (const operation op : kOperations)
    for (const std::string& options : options_of<T>(op)) body(op, options);
}

// Empty, single, around register tiles and the limits of teams, narrow, wide.
constexpr shape kSmall[] = {{0, 3, 2}, {3, 0, 2},  {3, 2, 0},   {1, 1, 1},    {2, 3, 5},    {7, 5, 17},
                            {8, 8, 3}, {17, 9, 2}, {25, 23, 8}, {12, 13, 11}, {89, 92, 40}, {63, 65, 66}};
constexpr shape kTeams[] = {{130, 121, 60}, {200, 31, 150}, {16, 600, 90},
                            {300, 5, 31},   {97, 203, 310}, {240, 250, 48}};
constexpr int kTeamSizes[] = {1, 2, 3, 5, 16, 64};

template <class T>
blas_case<T> random_case(operation op, std::string options, const shape& s, engine& random, values kind) {
  if (random() % 3 == 0)
    for (char& letter : options) letter = static_cast<char>(std::tolower(letter));
  const T alpha = random_scalar<T>(random, kind), beta = in_place(op) ? T(0) : random_scalar<T>(random, kind);
  return blas_case<T>(problem_of(op, options, s.m, s.n, s.k, alpha, beta), random, kind);
}

// Small cases one by one, larger ones over a team whose size, like the scalars, goes by chance. Whole numbers, whose
// sums are exact, find mistakes in indices.
template <class T>
void sweep(engine& random, int one_of) {
  each_routine<T>([&](operation op, const std::string& options) {
    const auto try_shape = [&](const shape& s, int threads) {
      const values kind = op != operation::trsm && random() % 2 == 0 ? values::whole : values::fractions;
      const blas_case<T> x = random_case<T>(op, options, s, random, kind);
      const own_threads team(threads);
      EXPECT_TRUE(is_right(x, x.run(), kind == values::whole));
      if (testing::Test::HasFailure()) GTEST_FAIL() << threads << " threads";
    };
    for (const shape& s : kSmall)
      if (random() % one_of == 0) try_shape(s, 2);
    for (const shape& s : kTeams)
      if (random() % (2 * one_of) == 0) try_shape(s, kTeamSizes[random() % std::size(kTeamSizes)]);
  });
}

// body(zero of the element type) in a real and in a complex precision, on each tier.
template <class Body>
void in_two_precisions_on_each_tier(const environment& settings, const Body& body) {
  on_each_tier(settings, [&](const tier_in_force&) {
    body(double{});
    body(std::complex<float>{});
    return 0;
  });
}

TEST(Level3, EveryRoutineOnEveryTier) {
  on_each_tier({}, [](const tier_in_force& tier) {
    engine random(kSeed + static_cast<uint64_t>(tier.type));
    sweep<float>(random, 24);
    sweep<double>(random, 12);
    sweep<std::complex<float>>(random, 24);
    sweep<std::complex<double>>(random, 24);
    return 0;
  });
}

// A large triangle with few right-hand sides goes block by block, a small triangle of deep sums by parts of the sum.
TEST(Level3, WorkInsideIsShared) {
  in_two_precisions_on_each_tier({}, [](auto zero) {
    using T = decltype(zero);
    engine random(kSeed);
    each_routine<T>([&](operation op, const std::string& options) {
      const bool left = options[0] == 'L';
      if (in_place(op) && random() % 16 == 0) {
        const int64_t sides = std::array{1, 8, 40}[random() % 3], order = std::array{1024, 1030}[random() % 2];
        const shape s = left ? shape{order, sides, 0} : shape{sides, order, 0};
        const blas_case<T> x(problem_of<T>(op, options, s.m, s.n, s.k, T(1.25), T(0)), random, values::fractions);
        const own_threads team(static_cast<int>(2 + random() % 3));
        EXPECT_TRUE(is_right(x, x.run()));
      }
      if (is_rank_k(op)) {
        const blas_case<T> x(problem_of<T>(op, options, 0, 37, 1700, T(2), T(random() % 2)), random, values::whole);
        const own_threads team(static_cast<int>(2 + random() % 3));
        EXPECT_TRUE(is_right(x, x.run(), true));
      }
    });
  });
}

TEST(Level3, SameBitsInEveryCall) {
  in_two_precisions_on_each_tier({{"TEV_DYNAMIC", "FALSE"}}, [](auto zero) {
    using T = decltype(zero);
    engine random(kSeed);
    each_routine<T>([&](operation op, const std::string& options) {
      if (random() % 5 != 0) return;
      const shape s = kTeams[random() % std::size(kTeams)];
      const blas_case<T> x = random_case<T>(op, options, s, random, values::fractions);
      const int threads = kTeamSizes[random() % std::size(kTeamSizes)];
      const own_threads team(threads);
      const matrix<T> first = x.run();
      // From other threads, at the same time, too.
      std::vector<std::jthread> callers;
      for (int i = 0; i < 2; ++i)
        callers.emplace_back([&] {
          const own_threads own(threads);
          EXPECT_TRUE(x.run().same_bits(first)) << x << ", " << threads << " threads";
        });
      EXPECT_TRUE(x.run().same_bits(first)) << x << ", " << threads << " threads";
    });
  });
}

TEST(Level3, InsideAParallelRegionTheCallerWorksAlone) {
  engine random(kSeed);
  each_routine<double>([&](operation op, const std::string& options) {
    if (random() % 4 != 0) return;
    const blas_case<double> x = random_case<double>(op, options, kTeams[0], random, values::fractions);
    std::array<matrix<double>, 2> results = {x.start(), x.start()};
#pragma omp parallel num_threads(2)
    call(x.p, results[omp_get_thread_num() % 2].data());
    for (const matrix<double>& result : results) EXPECT_TRUE(is_right(x, result));
  });
}

// ---- The front end of gemm ------------------------------------------------------------------------------------------

// Sizes of 1 (level 2), few columns, general. With the three rows of padding, 253 makes a leading dimension of 256.
constexpr shape kRoutes[] = {{1, 1, 1},     {1, 1, 9},     {1, 70, 33},   {70, 1, 33},  {64, 9, 1},
                             {65, 9, 1},    {9, 1, 1},     {3, 10, 253},  {50, 40, 30}, {129, 65, 77},
                             {200, 2, 300}, {1001, 3, 50}, {100, 15, 253}};

// Options, shapes and betas meet in all combinations of two.
template <class T>
void expect_right_products() {
  engine random(1);
  const T general = number<T>(2, -1), betas[] = {T(0), T(1), general};
  for (int next = 0; const char* options : {"NN", "NT", "NC", "TN", "tt", "TC", "CN", "Ct", "CC"})
    for (const shape& s : kRoutes) {
      const blas_case<T> x(problem_of<T>(operation::gemm, options, s.m, s.n, s.k, general, betas[next++ % 3]), random,
                           values::whole);
      EXPECT_TRUE(is_right(x, x.run(), true));
    }
  for (const shape& s : {shape{1, 7, 0}, {7, 1, -3}, {9, 8, 5}, {1, 1, 1}})  // an empty sum reads no operand
    for (const T beta : {T(0), T(1), general, nan_element<T>()}) {
      blas_case<T> x(problem_of<T>(operation::gemm, "CT", s.m, s.n, s.k, T(0), beta), random, values::whole);
      x.p.a = x.p.b = nullptr;
      EXPECT_TRUE(is_right(x, x.run(), true));
    }
}

// Two precisions in each row. A sanitizer, for which threads are dear, has the first four.
TEST(Gemm, EveryRouteWithTeamsStripesAndNoMemory) {
  const struct {
    const char *threads, *limit, *stripes;
    bool has_memory = true;
  } rows[] = {{"3", "64", ""}, {"7", "2", ""},   {"5", "64", "2"}, {"3", "64", "", false},
              {"1", "64", ""}, {"16", "64", ""}, {"64", "64", ""}, {"5", "64", "9"}};
  for (const auto& row : std::span(rows, kSanitized ? 4 : std::size(rows)))
    on_each_tier({{"TEV_NUM_THREADS", row.threads},
                  {"OMP_THREAD_LIMIT", row.limit},
                  {"TEV_NUM_STRIPES", row.stripes},
                  {"TEV_DYNAMIC", "FALSE"}},
                 [&](const tier_in_force&) {
                   if (!row.has_memory) i_malloc = [](size_t) -> void* { return nullptr; };
                   if ((&row - rows) % 2 == 0)
                     expect_right_products<float>(), expect_right_products<std::complex<double>>();
                   else
                     expect_right_products<double>(), expect_right_products<std::complex<float>>();
                   return 0;
                 });
}

// ---- Memory --------------------------------------------------------------------------------------------------------

TEST(Level3, AnyRequestForMemoryMayFail) {
  on_each_tier({{"TEV_DISABLE_FAST_MM", "1"}}, [](const tier_in_force&) {
    scarce_memory::install();
    const own_threads team(3);
    each_routine<std::complex<float>>([](operation op, const std::string& options) {
      using T = std::complex<float>;
      if (options.find_first_not_of("LUNC") != std::string::npos) return;
      engine random(kSeed);
      const shape s = is_rank_k(op) ? shape{0, 20, 1200} : shape{90, 70, 60};
      const blas_case<T> x(problem_of(op, options, s.m, s.n, s.k, T(1, 2), T(0, 1)), random, values::fractions);
      scarce_memory::fail_each(5, [&] { EXPECT_TRUE(is_right(x, x.run())); });
    });
    return 0;
  });
}

template <class T>
struct call_on_thread {
  const blas_case<T>& x;
  matrix<T> result;
  static void* run(void* self) {
    auto* const own = static_cast<call_on_thread*>(self);
    call(own->x.p, own->result.data());
    return nullptr;
  }
};

// Threads with little stack are common in programs with many of them. 20: a team whose shared words are not on it.
// Sizes for the packed drivers, for those that pack nothing, and for few rows that meet a large matrix.
TEST(Level3, A64KStackIsEnough) {
  if (kSanitized) GTEST_SKIP() << "frames of a sanitizer are larger";
  on_each_tier({}, [](const tier_in_force&) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    EXPECT_EQ(pthread_attr_setstacksize(&attributes, 64 << 10), 0);
    const auto try_case = [&]<class T>(T zero, operation op, const std::string& options, const shape& s, int threads) {
      engine random(kSeed);
      const T beta = in_place(op) ? zero : T(3);
      const blas_case<T> x(problem_of<T>(op, options, s.m, s.n, s.k, T(2), beta), random, values::fractions);
      call_on_thread<T> own = {x, x.start()};
      tev_serv_set_num_threads(threads);
      pthread_t thread;
      EXPECT_EQ(pthread_create(&thread, &attributes, call_on_thread<T>::run, &own), 0);
      pthread_join(thread, nullptr);
      EXPECT_TRUE(is_right(x, own.result));
    };
    const auto each_call = [&](auto zero) {
      for (const operation op : kOperations)
        for (const shape s : {shape{200, 210, 130}, {90, 95, 60}})
          for (const int threads : {2, 20})
            if (const auto options = options_of<decltype(zero)>(op); !options.empty())
              try_case(zero, op, options.front(), s, threads);
    };
    each_call(double{});
    each_call(std::complex<float>{});
    each_call(std::complex<double>{});
    for (const char* letters : {"NN", "TN"}) try_case(double{}, operation::gemm, letters, {8, 600, 512}, 1);
    pthread_attr_destroy(&attributes);
    return 0;
  });
}

// ---- Special values ------------------------------------------------------------------------------------------------

template <class T>
class Level3Values : public testing::Test {
 protected:
  // A case of ordinary size.
  static blas_case<T> ordinary(operation op, const std::string& options, T alpha, T beta) {
    engine random(kSeed);
    return blas_case<T>(problem_of(op, options, 70, 75, 80, alpha, beta), random, values::fractions);
  }
};
TYPED_TEST_SUITE(Level3Values, Elements);

TYPED_TEST(Level3Values, ZeroAlphaReadsNoOperandAndNanBetaReachesEveryElement) {
  using T = TypeParam;
  each_routine<T>([this](operation op, const std::string& options) {
    for (const T beta : {T(0), T(1), T(3)}) {
      blas_case<T> x = this->ordinary(op, options, T(0), beta);
      x.p.a = nullptr, x.p.b = nullptr;
      EXPECT_TRUE(is_right(x, x.run()));
    }
    if (in_place(op)) return;
    for (const T alpha : {T(0), T(1)}) {
      blas_case<T> x = this->ordinary(op, options, alpha, T(2));
      x.p.beta = T(std::numeric_limits<real_part_t<T>>::quiet_NaN());
      EXPECT_TRUE(is_right(x, x.run()));
    }
  });
}

TYPED_TEST(Level3Values, EmptySumWithBetaOneKeepsBits) {
  using T = TypeParam;
  for (const operation op : {operation::gemm, operation::syrk}) {
    blas_case<T> x = this->ordinary(op, op == operation::gemm ? "NN" : "UN", T(2), T(1));
    x.c(3, 4) = nan_element<T>();
    x.p.k = 0;
    EXPECT_TRUE(x.run().same_bits(x.c)) << x;
  }
}

// One infinity and one zero in each operand: NaN where they meet, infinities elsewhere in that row or column, and
// nothing in elements that the infinity does not contribute to, such as those beside a triangle.
TYPED_TEST(Level3Values, InfinitiesSpreadAsSumsSay) {
  using T = TypeParam;
  const T infinity(std::numeric_limits<real_part_t<T>>::infinity());
  each_routine<T>([&](operation op, const std::string& options) {
    if (op == operation::trsm || is_rank_k(op)) return;
    blas_case<T> x = this->ordinary(op, options, T(2), in_place(op) ? T(0) : T(1));
    x.b(20, 30) = infinity, x.b(66, 40) = T(0);
    const bool lower = std::toupper(x.p.uplo) == 'L';
    x.a(lower ? 66 : 10, lower ? 10 : 66) = infinity;
    EXPECT_TRUE(is_right(x, x.run()));
  });
}

// A shallow update of both kinds is one product of copies: no factor of one meets them.
TEST(Level3, ShallowRank2kUpdateKeepsInfinities) {
  using T = std::complex<double>;
  engine random(kSeed);
  const own_threads alone(1);
  for (const char* options : {"LN", "UT"}) {
    blas_case<T> x(problem_of<T>(operation::syr2k, options, 0, 300, 2, T(1), T(0)), random, values::fractions);
    x.b(0, 0) = {std::numeric_limits<double>::infinity(), 3};
    const matrix<T> c = x.run();
    for (int64_t j = 2; j < 300; ++j) {
      const T sum = options[0] == 'L' ? c(j, 0) : c(0, j);
      EXPECT_TRUE(std::isinf(sum.real()) && std::isinf(sum.imag())) << options << ' ' << j << ' ' << sum;
    }
  }
}

// The moduli of a complex divisor are not squared.
TYPED_TEST(Level3Values, DivisorsNearTheLimitsDoNotOverflow) {
  using T = TypeParam;
  using R = real_part_t<T>;
  const R large = std::sqrt(std::numeric_limits<R>::max());
  engine random(kSeed);
  for (const R factor : {large * 16, 1 / large / 16}) {
    blas_case<T> x(problem_of<T>(operation::trsm, "LUNN", 1, 9, 0, T(1), T(0)), random, values::fractions);
    x.a(0, 0) *= factor;
    x.b.fill(random, values::fractions, T(factor));
    EXPECT_TRUE(is_right(x, x.run()));
  }
}

}  // namespace
}  // namespace tev::test
