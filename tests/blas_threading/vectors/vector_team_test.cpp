// SPDX-License-Identifier: BSD-3-Clause
// Level 1 and 2 on teams: when one forms, that its pieces cover everything once, and that every routine gives what a
// plain loop gives, on any number of threads. Whole numbers: every sum is exact, so results match bit for bit.
#include <omp.h>

#include <filesystem>

#include "blas_threading/blas_calls.h"
#include "blas_threading/vectors/level2.h"
#include "tests/support/fake_processor.h"
#include "tests/support/own_threads.h"
#include "tests/support/precision.h"
#include "tests/support/vector_checks.h"
#include "tev/blas.h"

namespace tev::test {
namespace {

using namespace tev::blas;

constexpr uint64_t kSeed = 20240229;

int64_t threads_of_process() {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return std::distance(begin(tasks), end(tasks));
}

// Does the call start threads? On that processor, in a fresh process with four threads at hand.
template <class Call>
bool forks(const fake_processor& processor, const Call& call) {
  const child_result result = in_child({}, [&] {
    processor.install();
    tev_serv_set_num_threads_local(4);
    const int64_t before = threads_of_process();
    call();
    return threads_of_process() > before ? 3 : 2;
  });
  EXPECT_TRUE(result.status == 2 || result.status == 3) << result.status << result.err;
  return result.status == 3;
}

TEST(VectorTeam, FormsFromTheThresholdsOn) {
  static constexpr double kTwo = 2;
  static constexpr int64_t kOne = 1;
  const auto scal = [](int64_t n, int64_t inc) {
    std::vector<double> x(n);
    return forks(ssse3_processor(), [&] { tev_blas_dscal(&n, &kTwo, x.data(), &inc); });
  };
  const auto ger = [](int64_t m, int64_t n) {
    std::vector<double> x(m + n), a(m * n);
    return forks(ssse3_processor(),
                 [&] { tev_blas_dger(&m, &n, &kTwo, x.data(), &kOne, x.data(), &kOne, a.data(), &m); });
  };
  const auto gemv = [](const fake_processor& processor, int64_t n) {
    std::vector<double> a(n * n), x(n), y(n);
    return forks(processor,
                 [&] { tev_blas_dgemv("T", &n, &n, &kTwo, a.data(), &n, x.data(), &kOne, &kTwo, y.data(), &kOne); });
  };
  EXPECT_TRUE(scal(8192, 1) && !scal(8191, 1) && !scal(100000, 0));
  EXPECT_TRUE(ger(256, 120) && !ger(256, 119));
  EXPECT_TRUE(gemv(ssse3_processor(), 256) && !gemv(ssse3_processor(), 63));
  EXPECT_FALSE(gemv(sse2_processor(), 256) || gemv(amd(ssse3_processor()), 256));
}

// `call` with its pieces counted.
std::vector<int> visits(int64_t n, int32_t wanted, int32_t* given) {
  std::vector<int> seen(n);
  level1_call<int> call = {n, 0, nullptr, 1, seen.data(), 1, 0, wanted, [](const level1_call<int>& c, piece part) {
                             for (int64_t i = 0; i < part.size; ++i) ++address_of(part, c.n, c.y, c.incy)[i];
                           }};
  run_on_team(call);
  *given = call.threads;
  return seen;
}

TEST(VectorTeam, SmallerThanAskedForComputesEverything) {
  const environment limited = {{"OMP_THREAD_LIMIT", "3"}, {"OMP_MAX_ACTIVE_LEVELS", "2"}};
  const child_result result = in_child(limited, [] {
    int32_t given = 0;  // afterwards, the threads that the runtime gave
    bool right = visits(1000, 8, &given) == std::vector<int>(1000, 1) && given == 3;
#pragma omp parallel num_threads(2) reduction(&& : right)
    {
      const own_threads four(4);
      int32_t inner = 0;
      right = right && visits(1000, 4, &inner) == std::vector<int>(1000, 1) && inner >= 1 && inner <= 2;
      const int64_t n = 100000, m = 300, one = 1;
      const double two = 2, zero = 0;
      std::vector<double> x(n, 1.0), y(m);
      tev_blas_dscal(&n, &two, x.data(), &one);
      right = right && x == std::vector<double>(n, 2.0);
      for (const char trans : {'N', 'T'}) {
        tev_blas_dgemv_omp(&trans, &m, &m, &two, x.data(), &m, x.data(), &one, &zero, y.data(), &one);
        right = right && y == std::vector<double>(m, 8.0 * static_cast<double>(m));
      }
      tev_blas_dger(&m, &m, &two, x.data(), &one, y.data(), &one, x.data() + m, &m);
      right = right && x[m] == 2 + 4 * y[0] && x[m + m * m - 1] == x[m];
    }
    return right ? 0 : 1;
  });
  EXPECT_EQ(result.status, 0) << result.err;
}

// Vectors with gaps, and teams whose threads want vectors of their own.
TEST_IN_CHILD(VectorTeam, WithoutMemoryItComputesTheSame, {"TEV_DISABLE_FAST_MM", "1"}) {
  const own_threads three(3);
  const int64_t n = 400, k = 250, inc = 2, back = -3;
  const double half = 0.5, one = 1;
  const auto results = [&] {
    engine random(kSeed);
    matrix<double> a(n, n, 0);
    a.fill(random, values::whole);
    const int64_t lda = a.ld();
    const double* const ap = a.data();
    const strided<double> x = drawn<double>(n, inc, random, values::whole),
                          y = drawn<double>(n, back, random, values::whole);
    double *const xs = x.data(), *const ys = y.data();
    tev_blas_dsymv("U", &n, &half, ap, &lda, xs, &inc, &one, ys, &back);
    tev_blas_dspmv("L", &n, &half, ap, ys, &back, &one, xs, &inc);
    tev_blas_dsbmv("L", &n, &k, &half, ap, &lda, xs, &inc, &one, ys, &back);
    for (const char* trans : {"N", "T"}) {
      tev_blas_dtrmv("U", trans, "U", &n, ap, &lda, xs, &inc);
      tev_blas_dtpmv("L", trans, "U", &n, ap, ys, &back);
      for (const auto* vector : {&x, &y})
        for (int64_t i = 0; i < n; ++i) (*vector)[i] = std::remainder((*vector)[i], 16);
    }
    tev_blas_dsyr2("L", &n, &one, xs, &inc, ys, &back, a.data(), &lda);
    std::vector<double> all(ap, ap + n);
    for (const auto* vector : {&x, &y})
      for (int64_t i = 0; i < n; ++i) all.push_back((*vector)[i]);
    return all;
  };
  i_malloc = std::malloc;
  i_free = std::free;
  const std::vector<double> with = results();
  i_malloc = [](size_t) -> void* { return nullptr; };
  EXPECT_EQ(with, results());
}

TEST(Pieces, CoverOnceInOrderAndEvenly) {
  for (int64_t n = 1; n < 200; n = n < 70 ? n + 1 : n * 2)
    for (int64_t threads = 1; threads <= 64; ++threads) {
      int64_t next = 0, last = n;
      for (int64_t i = 0; i < threads; ++i) {
        const piece p = piece_of(n, i, threads);
        ASSERT_EQ(p.start, p.size > 0 ? next : 0);
        ASSERT_TRUE(p.size <= last && p.size >= n / threads && p.size <= n / threads + 1) << n << ' ' << threads;
        next += p.size, last = p.size;
      }
      ASSERT_EQ(next, n) << threads;
    }
  const std::vector<int64_t> sizes = {piece_of(10000, 0, 3).size, piece_of(10000, 1, 3).size,
                                      piece_of(10000, 2, 3).size};
  EXPECT_EQ(sizes, (std::vector<int64_t>{3334, 3333, 3333}));
}

template <class T>
using calls = blas_calls<c_element_t<T>>;
template <class T>
class OnTeams : public testing::Test {
 protected:
  OnTeams() { tev_serv_set_dynamic(0); }  // teams keep their size on a crowded machine
};
TYPED_TEST_SUITE(OnTeams, Elements);

TYPED_TEST(OnTeams, Level1IsTheLoop) {
  using T = TypeParam;
  engine random(kSeed);
  const int64_t chunk = kPairChunkBytes / sizeof(T), increments[][2] = {{1, 1}, {-1, 2}, {3, -2}, {0, 1}, {1, 0}};
  for (int32_t threads = 1; threads <= 8; ++threads)
    for (const int64_t n : {int64_t{1}, 2 * chunk - 1, 2 * chunk, 4 * chunk + 3, 7 * chunk})
      for (const auto& [incx, incy] : increments) {
        const own_threads available(threads);
        expect_level1<T>(calls<T>(), n, incx, incy, random);
        ASSERT_FALSE(this->HasFailure()) << threads << " threads";
      }
}

// Both forms of gemv; "ger" and "gerc", or the two letters of a product with k = 1.
TYPED_TEST(OnTeams, MatricesAndVectorsMakeTheSums) {
  using T = TypeParam;
  const auto omp_form = of_precision<T>(tev_blas_sgemv_omp, tev_blas_dgemv_omp, tev_blas_cgemv_omp, tev_blas_zgemv_omp);
  constexpr int64_t kShapes[][2] = {{1, 1}, {3, 100}, {7, 3000}, {3000, 7}, {129, 130}, {200, 331}};
  constexpr int64_t kIncrements[][2] = {{1, 1}, {-2, 1}, {2, -1}, {-1, -3}};
  engine random(kSeed);
  for (int32_t threads = 1; threads <= 8; ++threads)
    for (const auto [m, n] : kShapes) {
      SCOPED_TRACE(testing::Message() << threads << " threads");
      const own_threads available(threads);
      const auto [incx, incy] = kIncrements[random() % 4];
      for (const char trans : {'N', 'T', 'c'})
        for (const auto gemv : {omp_form, calls<T>::gemv})
          expect_gemv<T>(gemv, trans, m, n, incx, incy, random, values::whole);
      for (const char* letters : {"ger", "gerc", "NT", "Cn", "Tc", "CC"})
        expect_rank_1<T>(calls<T>(), letters, m, n, incx, incy, random, values::whole);
      ASSERT_FALSE(this->HasFailure());
    }
}

#define TEV_SYMMETRIC_OF(T, sy, he) of_precision<T>(tev_blas_s##sy, tev_blas_d##sy, tev_blas_c##he, tev_blas_z##he)

// Triangles however they are stored, times a vector, symmetric, and updated: whole numbers, so what one thread gives.
TYPED_TEST(OnTeams, TrianglesGiveWhatOneThreadGives) {
  using T = TypeParam;
  static constexpr int64_t n = 530, k = 250;
  engine random(kSeed);
  const T two(2), one(1);
  for (const int64_t inc : {1, -2})
    for (const char* letters : {"UNN", "UTU", "LNU", "LTN", "UCN", "LCU"}) {
      SCOPED_TRACE(testing::Message() << letters << ", increment " << inc);
      const char *const uplo = letters, *const trans = letters + 1, *const diag = letters + 2;
      matrix<T> before(n, n, 0);
      before.fill(random, values::whole);
      const int64_t lda = before.ld();
      const strided<T> x = drawn<T>(n, inc, random, values::whole);
      const auto results = [&](int32_t threads) {
        const own_threads available(threads);
        const matrix<T> a = before;
        std::vector<T> all;
        const auto apply = [&](const auto& call) {
          const strided<T> y = x;
          call(y.address());
          for (int64_t i = 0; i < n; ++i) all.push_back(y[i]);
        };
        const auto* const of_x = x.address();
        apply([&](auto* y) { TEV_OF(T, tev_blas_, trmv)(uplo, trans, diag, &n, at(a), &lda, y, &inc); });
        apply([&](auto* y) { TEV_OF(T, tev_blas_, tbmv)(uplo, trans, diag, &n, &k, at(a), &lda, y, &inc); });
        apply([&](auto* y) { TEV_OF(T, tev_blas_, tpmv)(uplo, trans, diag, &n, at(a), y, &inc); });
        apply([&](auto* y) {
          TEV_SYMMETRIC_OF(T, symv, hemv)(uplo, &n, in(&two), at(a), &lda, of_x, &inc, in(&one), y, &inc);
        });
        apply([&](auto* y) {
          TEV_SYMMETRIC_OF(T, sbmv, hbmv)(uplo, &n, &k, in(&two), at(a), &lda, of_x, &inc, in(&one), y, &inc);
        });
        apply([&](auto* y) {
          TEV_SYMMETRIC_OF(T, spmv, hpmv)(uplo, &n, in(&two), at(a), of_x, &inc, in(&one), y, &inc);
        });
        TEV_SYMMETRIC_OF(T, spr2, hpr2)(uplo, &n, in(&two), of_x, &inc, of_x, &inc, at(a));
        TEV_SYMMETRIC_OF(T, syr2, her2)(uplo, &n, in(&two), of_x, &inc, of_x, &inc, at(a), &lda);
        all.insert(all.end(), a.data(), a.data() + a.size());
        return all;
      };
      const auto wanted = results(1);
      for (const int32_t threads : {2, 3, 8}) EXPECT_TRUE(results(threads) == wanted) << threads << " threads";
    }
}

}  // namespace
}  // namespace tev::test
