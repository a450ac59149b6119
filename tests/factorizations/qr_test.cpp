// SPDX-License-Identifier: BSD-3-Clause
// QR, its Q multiplied and written out. What Q is, the stored reflectors say, applied one by one in the next wider
// type. All errors are judged column by column, by the norm of the column.

#include "tests/factorizations/factored.h"
#include "tests/factorizations/reflected.h"

namespace tev::test {
namespace {

template <class T>
class Qr : public testing::Test {};
TYPED_TEST_SUITE(Qr, Elements);

struct shape {
  int64_t m, n;
  int threads;
};

std::string name_of(const kind& k, const shape& s) {
  return std::string(k.name) + ' ' + std::to_string(s.m) + 'x' + std::to_string(s.n);
}

// C on the right side of Q is C^H on the left side of Q^H.
template <class T>
void judge_multiplication(const factored_qr<T>& f, engine& random, const std::string& what) {
  const int64_t m = f.a.rows();
  for (const char side : {'L', 'r'})
    for (const char trans : {'n', kIsComplex<T> ? 'C' : 'T'}) {
      const bool left = side == 'L', transposed = trans != 'n';
      for (const int64_t lines : {1, 5}) {
        matrix<T> c(left ? m : lines, left ? lines : m);
        c.fill(random, values::fractions);
        const auto start = left ? widened(c) : adjoint(widened(c));
        f.multiply(side, trans, c);
        const auto result = left ? widened(c) : adjoint(widened(c));
        expect_columns_close<T>(result, f.reflected(start, transposed == left), column_norms(start), m,
                                what + ' ' + side + trans);
        EXPECT_TRUE(c.padding_is_intact()) << what;
      }
    }
}

// All columns of a small matrix, one by one; a few combinations of those of a large one.
template <class T>
wide_matrix<wide_t<T>> directions(int64_t columns, engine& random) {
  return columns <= 24 ? unit_matrix<wide_t<T>>(columns, columns) : probes<T>(columns, random);
}

// Q has as many columns as wanted: those of the reflectors and others.
template <class T>
void judge_generation(const factored_qr<T>& f, int64_t columns, engine& random, const std::string& what) {
  const matrix<T> q = f.generate(columns);
  const auto wide_q = widened(q), x = directions<T>(columns, random), result = wide_q * x;
  expect_columns_close<T>(result, f.reflected(unit_matrix<wide_t<T>>(f.a.rows(), columns) * x, false), column_norms(x),
                          f.a.rows(), what + " Q");
  expect_columns_close<T>(adjoint(wide_q) * result, x, column_norms(x), f.a.rows(), what + " Q^H Q");
  EXPECT_TRUE(q.padding_is_intact()) << what;
}

template <class T>
void judge(const matrix<T>& start, engine& random, const std::string& what) {
  const factored_qr<T> f(start);
  EXPECT_EQ(f.info, 0) << what;
  EXPECT_TRUE(f.a.padding_is_intact()) << what;
  const auto x = directions<T>(start.columns(), random), expected = widened(start) * x;
  expect_columns_close<T>(f.reflected(f.upper() * x, false), expected, column_norms(expected), f.a.rows(), what);
  judge_multiplication(f, random, what);
  for (const int64_t columns : {f.order(), f.a.rows()}) judge_generation(f, columns, random, what);
}

constexpr kind kDeficient[] = {{"zero columns", [](int64_t, int64_t j, int) { return j % 3 == 1 ? 0.0 : 1.0; }},
                               {"zero rows", [](int64_t i, int64_t, int) { return i % 3 == 0 ? 0.0 : 1.0; }},
                               {"zero", [](int64_t, int64_t, int) { return 0.0; }},
                               {"denormal", [](int64_t, int64_t, int e) { return std::exp2(-e - 4); }}};

template <class T>
void factor_and_judge(const shape& s, const kind& k, engine& random) {
  const own_threads team(s.threads);
  matrix<T> start(s.m, s.n);
  fill(start, k, random);
  judge(start, random, name_of(k, s));
}

TYPED_TEST(Qr, FactorsOfEveryKindOfMatrix) {
  engine random(15);
  std::vector<kind> kinds(std::begin(kKinds), std::end(kKinds));
  kinds.insert(kinds.end(), std::begin(kDeficient), std::end(kDeficient));
  for (const kind& k : kinds)
    for (int64_t n = 0; n <= 70; n += 1 + static_cast<int64_t>(random() % 30))
      for (const int64_t m : {n, n / 2, n + static_cast<int64_t>(random() % 40)})
        factor_and_judge<TypeParam>({m, n, 2}, k, random);
}

TYPED_TEST(Qr, FactorsOverATeam) {
  engine random(16);
  for (const shape& s : {shape{256, 256, 2}, {310, 257, 3}, {257, 330, 5}})
    factor_and_judge<TypeParam>(s, kKinds[0], random);
}

TYPED_TEST(Qr, SameBitsOnAnyTeam) {
  engine random(17);
  matrix<TypeParam> start(400, 290);
  start.fill(random, values::fractions);
  const auto factors_on = [&](int threads) {
    const own_threads team(threads);
    const factored_qr<TypeParam> f(start);
    return std::pair(f.a, f.generate(f.order()));
  };
  const auto first = factors_on(2);
  for (const int threads : {2, 3, 3}) {
    const auto again = factors_on(threads);
    EXPECT_TRUE(again.first.same_bits(first.first) && again.second.same_bits(first.second)) << threads;
  }
}

TYPED_TEST(Qr, NanAndInfinityReachWhatDependsOnThem) {
  engine random(18);
  for (const auto bad : {std::numeric_limits<real_part_t<TypeParam>>::quiet_NaN(),
                         std::numeric_limits<real_part_t<TypeParam>>::infinity()}) {
    matrix<TypeParam> a(40, 30);
    a.fill(random, values::fractions);
    a(23, 12) = bad;
    const factored_qr<TypeParam> f(a);
    EXPECT_TRUE(std::isfinite(std::abs(f.a(39, 11))));
    EXPECT_FALSE(std::isfinite(std::abs(f.a(29, 29))));
  }
}

}  // namespace
}  // namespace tev::test
