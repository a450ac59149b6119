// SPDX-License-Identifier: BSD-3-Clause
// Row interchanges against plain ones, alone and over a team of three: around the size from which a team forms and the
// blocks' borders, with every stride, and with a bad pivot at every place of two groups of four and a rest of two.
#include <omp.h>

#include "tests/support/precision.h"
#include "tests/support/strided.h"
#include "tev/lapack.h"
#include "tev/service.h"

namespace tev::test {
namespace {

std::vector<std::string> g_reports;

void note_report(const char* name, const int32_t* info, int32_t length) {
  g_reports.push_back(std::string(name, static_cast<size_t>(length)) + std::to_string(*info) +
                      (omp_in_parallel() ? " too early" : ""));
}

constexpr int64_t kRows = 26;

// Row k1 + i is exchanged with pivots[i]; of these, as the stride counts, the first `sound` ones happen.
struct interchange_case {
  int64_t columns, k1, stride;
  std::vector<int64_t> pivots;
  int64_t sound;

  int64_t k2() const { return k1 + std::ssize(pivots) - 1; }
};

template <class T>
void expect_interchanged(const interchange_case& x) {
  const std::string name = of_precision<T>("S", "D", "C", "Z") + std::string("LASWP");
  const auto over_team = TEV_LAPACK(laswp), alone = TEV_OF(T, tev_lapack_x, laswp);
  engine random(1);
  matrix<T> before(kRows, x.columns, 0);
  before.fill(random, values::fractions);
  matrix<T> expected = before;
  for (int64_t step = 0; step < x.sound; ++step) {
    const int64_t i = x.stride > 0 ? step : std::ssize(x.pivots) - 1 - step;
    for (int64_t j = 0; j < x.columns; ++j)
      std::swap(expected(x.k1 + i - 1, j), expected(x.pivots[static_cast<size_t>(i)] - 1, j));
  }
  const int64_t distance = std::abs(x.stride), lda = kRows, k2 = x.k2();
  guarded_array<int64_t> ipiv(std::max<int64_t>(x.k1 + (k2 - x.k1) * distance, 1));
  for (int64_t i = 0; i < std::ssize(x.pivots); ++i)
    if (x.k1 + i * distance >= 1) ipiv.data()[x.k1 - 1 + i * distance] = x.pivots[static_cast<size_t>(i)];
  for (const auto laswp : {over_team, alone}) {
    SCOPED_TRACE(testing::Message() << name << (laswp == alone ? " alone, " : ", ") << x.columns << " columns, stride "
                                    << x.stride << ", rows " << x.k1 << " to " << k2 << ", " << x.sound << " sound");
    g_reports.clear();
    matrix<T> a = before;
    laswp(&x.columns, at(a), &lda, &x.k1, &k2, ipiv.data(), &x.stride);
    EXPECT_TRUE(a.same_bits(expected));
    const bool all = x.sound == std::ssize(x.pivots) || x.stride == 0;
    EXPECT_EQ(g_reports, all ? std::vector<std::string>() : std::vector{name + "6"});
  }
}

template <class T>
class Laswp : public testing::Test {
 protected:
  void SetUp() override {
    tev_serv_set_num_threads(3);
    tev_serv_set_xerbla(note_report);
  }
  void TearDown() override { tev_serv_set_xerbla(nullptr); }
};
TYPED_TEST_SUITE(Laswp, Elements);

TYPED_TEST(Laswp, DoesWhatPlainInterchangesDoUpToTheFirstBadPivot) {
  const std::vector<int64_t> good = {5, kRows, 4, 5, 26, 7, 1, 9, 26, 12};  // rows that meet again, lda, a row itself
  const int64_t bad[] = {0, kRows + 1, -1, INT64_MAX, INT64_MIN};
  for (const int64_t columns : {1, 128, 129, 163})
    for (const int64_t stride : {-2, -1, 1, 2}) {
      expect_interchanged<TypeParam>({columns, 2, stride, good, std::ssize(good)});
      for (int64_t sound = 0; sound < std::ssize(good); ++sound) {
        std::vector<int64_t> pivots = good;
        pivots[static_cast<size_t>(stride > 0 ? sound : std::ssize(good) - 1 - sound)] = bad[sound % 5];
        expect_interchanged<TypeParam>({columns, 2, stride, pivots, sound});
      }
    }
}

TYPED_TEST(Laswp, RowsOutsideTheMatrixCountAsBadPivots) {
  for (const int64_t columns : {7, 129}) {
    expect_interchanged<TypeParam>({columns, 0, 1, {1, 2, 3}, 0});
    expect_interchanged<TypeParam>({columns, 0, -1, {1, 3, 1}, 2});
    expect_interchanged<TypeParam>({columns, 25, 2, {1, 2, 3}, 2});
    expect_interchanged<TypeParam>({columns, 25, -1, {1, 2, 3}, 0});
  }
}

TYPED_TEST(Laswp, NothingToDoIsNoError) {
  for (const int64_t columns : {7, 129}) {
    expect_interchanged<TypeParam>({columns, 3, 0, {1, 0, 99}, 0});
    expect_interchanged<TypeParam>({columns, 3, 1, {}, 0});
  }
  expect_interchanged<TypeParam>({0, 1, 1, {0}, 1});
}

}  // namespace
}  // namespace tev::test
