// SPDX-License-Identifier: BSD-3-Clause
// Rotations by what defines them, near both ends of the numbers; sums at every address.

#include "tests/support/addresses.h"
#include "tests/support/precision.h"
#include "tev/blas.h"
#include "tev/service.h"

namespace tev::test {
namespace {

#define TEV_REAL(name) of_precision<R>(tev_blas_s##name, tev_blas_d##name)

template <class R>
class Rotations : public testing::Test {
 protected:
  static constexpr R u = std::numeric_limits<R>::epsilon();
  static constexpr R kLarge = std::numeric_limits<R>::max() / 4, kSmall = std::numeric_limits<R>::min() * 4;
};
using Reals = testing::Types<float, double>;
TYPED_TEST_SUITE(Rotations, Reals);

TYPED_TEST(Rotations, RotgMakesAZeroAndRemembersIt) {
  using R = TypeParam;
  using W = long double;
  const R values[] = {0, 1, -3, R(0.7), this->kLarge, -this->kLarge, this->kSmall, this->kSmall * R(1.5)};
  for (const R a : values)
    for (const R b : values) {
      SCOPED_TRACE(testing::Message() << a << ' ' << b);
      R r = a, z = b, c, s;
      TEV_REAL(rotg)(&r, &z, &c, &s);
      const W size = std::hypot(W(a), W(b)), bound = 4 * this->u;
      EXPECT_TRUE(std::abs(W(c) * c + W(s) * s - 1) <= bound);
      EXPECT_TRUE(std::abs(W(c) * a + W(s) * b - r) <= bound * size && std::abs(W(c) * b - W(s) * a) <= bound * size);
      EXPECT_EQ(std::signbit(r), std::signbit(std::abs(a) > std::abs(b) ? a : b));
      const W s_of_z = z == 1 ? 1 : std::abs(z) < 1 ? W(z) : std::sqrt((1 - 1 / W(z)) * (1 + 1 / W(z)));
      EXPECT_TRUE(std::abs(std::abs(s_of_z) - std::abs(W(s))) <= bound) << z;
    }
}

TYPED_TEST(Rotations, ComplexRotgMakesAZero) {
  using R = TypeParam;
  using T = std::complex<R>;
  using W = std::complex<long double>;
  const R l = this->kLarge / 2, m = this->kSmall;
  const T values[] = {{0, 0}, {1, 0}, {0, -2}, {R(0.3), R(0.4)}, {l, -l}, {m, 2 * m}, {l, m}};
  for (const T a : values)
    for (const T b : values) {
      SCOPED_TRACE(testing::Message() << a << ' ' << b);
      T r = a, s;
      R c;
      TEV_OF(T, tev_blas_, rotg)(out(&r), in(&b), &c, out(&s));
      const long double size = std::hypot(std::abs(W(a)), std::abs(W(b))), bound = 8 * this->u;
      const W first = W(c) * W(a) + W(s) * W(b), second = W(c) * W(b) - std::conj(W(s)) * W(a);
      EXPECT_TRUE(std::abs(first - W(r)) <= bound * size && std::abs(second) <= bound * size);
      EXPECT_TRUE(std::abs(c * static_cast<long double>(c) + std::norm(W(s)) - 1) <= bound);
    }
}

// H of rotmg: H^T diag(d') H = diag(d), H (x1, y1) = (x1', 0), and weights between 2^-24 and 2^24.
TYPED_TEST(Rotations, RotmgKeepsWeightedLengths) {
  using R = TypeParam;
  using W = long double;
  for (const R d1 : {R(1), R(0.3), R(0x1p40), R(0x1p-50)})
    for (const R d2 : {R(2), R(-0.01), R(0x1p60), R(0x1p-30)})
      for (const R x1 : {R(1), R(-7)})
        for (const R y1 : {R(0.5), R(9)}) {
          SCOPED_TRACE(testing::Message() << d1 << ' ' << d2 << ' ' << x1 << ' ' << y1);
          R e1 = d1, e2 = d2, x = x1;
          std::array<R, 5> p = {};
          TEV_REAL(rotmg)(&e1, &e2, &x, &y1, p.data());
          if (W(d2) * y1 * y1 < 0 && W(d1) * x1 * x1 <= -W(d2) * y1 * y1) {  // no such rotation
            EXPECT_TRUE(p == (std::array<R, 5>{-1, 0, 0, 0, 0}) && e1 == 0 && e2 == 0 && x == 0);
            continue;
          }
          const bool diagonal = p[0] != 0, others = p[0] < 1;
          const W a = diagonal ? p[1] : 1, b = others ? p[2] : -1, c = others ? p[3] : 1, d = diagonal ? p[4] : 1;
          const W bound = 16 * this->u;
          for (const R weight : {e1, e2})
            EXPECT_TRUE(std::abs(weight) > R(0x1p-24) && std::abs(weight) < R(0x1p24)) << weight;
          const auto near = [&](W value, W expected, W moduli) {
            EXPECT_TRUE(std::abs(value - expected) <= bound * moduli) << value << ' ' << expected;
          };
          near(a * x1 + c * y1, x, std::abs(a * x1) + std::abs(c * y1));
          near(b * x1 + d * y1, 0, std::abs(b * x1) + std::abs(d * y1));
          near(a * a * e1 + b * b * e2, d1, a * a * std::abs(e1) + b * b * std::abs(e2));
          near(c * c * e1 + d * d * e2, d2, c * c * std::abs(e1) + d * d * std::abs(e2));
        }
  R d1 = -1, d2 = 1, x = 1;
  const R y = 1, zero = 0;
  std::array<R, 5> p = {};
  TEV_REAL(rotmg)(&d1, &d2, &x, &y, p.data());
  EXPECT_TRUE(p[0] == -1 && d1 == 0 && d2 == 0 && x == 0);
  d1 = 1;
  p.fill(R(7));
  TEV_REAL(rotmg)(&d1, &d2, &x, &zero, p.data());
  EXPECT_EQ(p, (std::array<R, 5>{-2, 7, 7, 7, 7}));
}

TYPED_TEST(Rotations, SumsHaveTheSameBitsAtEveryAddress) {
  using R = TypeParam;
  tev_serv_set_dynamic(0);  // teams keep their size
  const int64_t one = 1;
  for (const int64_t n : {37, 1001, 300000})
    expect_same_bits_at_every_address<R>({n}, [&](const auto& at) {
      return std::array<R, 3>{TEV_REAL(dot)(&n, at[0], &one, at[0], &one), TEV_REAL(asum)(&n, at[0], &one),
                              TEV_REAL(nrm2)(&n, at[0], &one)};
    });
}

}  // namespace
}  // namespace tev::test
