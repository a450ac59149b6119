// SPDX-License-Identifier: BSD-3-Clause
// The scalar intrinsics at the edges of their types, and the complex root against long double.
#include "service/scalar.h"

#include "tests/support/prelude.h"

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kTiniest = std::numeric_limits<double>::denorm_min();

TEST(Scalar, OptionLettersFoldOnlyTheAlphabet) {
  for (int a = 0; a < 256; ++a) {
    for (int b = 0; b < 256; ++b) {
      const bool pair = (a ^ b) == 0x20 && (a | 0x20) >= 'a' && (a | 0x20) <= 'z';
      const char x = static_cast<char>(a), y = static_cast<char>(b);
      ASSERT_EQ(tev_serv_lsame(&x, &y), a == b || pair ? 1 : 0) << a << " " << b;
    }
  }
  EXPECT_EQ(tev_serv_lsame(nullptr, "a") + tev_serv_lsame("a", nullptr) + tev_serv_lsame(nullptr, nullptr), 0);
}

TEST(Scalar, SignOfZeroAndNanIsPositive) {
  const double value = -3, zero = -0.0;
  for (const auto& [sign, result] : {std::pair(-1.0, -3.0), {-0.0, 3.0}, {-kNan, 3.0}})
    EXPECT_EQ(tev_serv_d_sign(&value, &sign), result);
  EXPECT_TRUE(std::signbit(tev_serv_d_sign(&zero, &value)));
  const float single = -2, negative = -std::numeric_limits<float>::denorm_min();
  EXPECT_EQ(tev_serv_s_sign(&single, &negative), -2);
}

double d_power(double base, int32_t exponent) { return tev_serv_d_powi(&base, &exponent); }
float s_power(float base, int32_t exponent) { return tev_serv_s_powi(&base, &exponent); }

TEST(Scalar, IntegerPowers) {
  const std::tuple<double, int32_t, double> rows[] = {{2, -3, 0.125}, {-3, 5, -243},      {kNan, 0, 1},
                                                      {0, -1, kInf},  {-1, INT32_MIN, 1}, {-1, INT32_MAX, -1}};
  for (const auto& [base, exponent, power] : rows) EXPECT_EQ(d_power(base, exponent), power) << base << "^" << exponent;
  EXPECT_NEAR(d_power(1 + 0x1p-31, INT32_MIN), std::exp(-1.0), 1e-6);
  // Binary order, each product rounded: 1.1f^3 is 1.1f * (1.1f^2), and a reciprocal comes before the products.
  const float x = 1.1f, square = x * x, third = 1.0f / 3.0f;
  EXPECT_EQ(s_power(x, 3), x * square);
  EXPECT_EQ(s_power(3, -2), third * third);
}

TEST(Scalar, IntegersOutOfRangeBecomeTheIndefiniteOne) {
  const std::tuple<double, int32_t, int32_t> rows[] = {{2.5, 2, 3},
                                                       {-2.5, -2, -3},
                                                       {0.49, 0, 0},
                                                       {kTiniest, 0, 0},
                                                       {2147483647.0, INT32_MAX, INT32_MAX},
                                                       {2147483647.25, INT32_MAX, INT32_MAX},
                                                       {2147483647.5, INT32_MAX, INT32_MIN},
                                                       {2147483648.0, INT32_MIN, INT32_MIN},
                                                       {-2147483648.25, INT32_MIN, INT32_MIN},
                                                       {-1e300, INT32_MIN, INT32_MIN},
                                                       {kInf, INT32_MIN, INT32_MIN},
                                                       {kNan, INT32_MIN, INT32_MIN}};
  for (const auto& [value, truncated, rounded] : rows) {
    EXPECT_EQ(tev_serv_d_int(&value), truncated) << value;
    EXPECT_EQ(tev_serv_d_round(&value), rounded) << value;
    const float single = static_cast<float>(value);
    if (single != value && !std::isnan(single)) continue;
    EXPECT_EQ(tev_serv_s_int(&single), truncated) << value;
    EXPECT_EQ(tev_serv_s_round(&single), rounded) << value;
  }
  const float below_half = 0.49999997f, odd = 8388609.0f;  // the sum with 0.5 is no single-precision value
  EXPECT_EQ(tev_serv_s_round(&below_half), 0);
  EXPECT_EQ(tev_serv_s_round(&odd), 8388609);
}

// |computed - exact| in units of the last place of exact.
double ulps(double computed, long double exact) {
  const double rounded = static_cast<double>(exact);
  const double unit = std::nextafter(std::abs(rounded), kInf) - std::abs(rounded);
  return static_cast<double>(std::abs(static_cast<long double>(computed) - exact) / static_cast<long double>(unit));
}

TEST(Scalar, ModulusAndRootAreAccurateOverTheWholeRange) {
  std::mt19937_64 engine(20240611);
  const auto random = [&] {  // any exponent, subnormal ones included
    const double mantissa = std::uniform_real_distribution(-1.0, 1.0)(engine);
    return std::ldexp(mantissa, std::uniform_int_distribution(-1074, 1024)(engine));
  };
  for (int trial = 0; trial < 200000; ++trial) {
    const double x = random();
    // Half of the pairs have parts of about the same size, where the sums matter most.
    const double y = trial % 2 != 0 ? random() : x * (1 + std::remainder(trial * 0.618, 1.0));
    if (x == 0 || y == 0 || std::isinf(y)) continue;
    const tev_complex16 value = {x, y};
    // By the same identities in long double, whose exponents have room for every square of a double.
    const long double wide_x = x, wide_y = y, modulus = std::sqrt(wide_x * wide_x + wide_y * wide_y);
    const long double larger = std::sqrt((modulus + std::abs(wide_x)) / 2), smaller = std::abs(wide_y) / (2 * larger);
    tev_complex16 root;
    tev_serv_z_sqrt(&root, &value);
    // Squares, sum and root: each rounding is half a unit, and the root halves those before it.
    if (modulus < std::numeric_limits<double>::max())
      ASSERT_LE(ulps(tev_serv_z_abs(&value), modulus), 2) << x << " " << y;
    ASSERT_LE(ulps(root.real, x > 0 ? larger : smaller), 4) << x << " " << y;
    ASSERT_LE(ulps(root.imag, std::copysign(x > 0 ? smaller : larger, wide_y)), 4) << x << " " << y;
  }
}

TEST(Scalar, ComplexSpecialValues) {
  EXPECT_EQ(tev_serv_hypot(kNan, -kInf), kInf);
  EXPECT_EQ(tev_serv_hypot(kInf, kNan), kInf);
  EXPECT_TRUE(std::isnan(tev_serv_hypot(kNan, 1)));
  EXPECT_EQ(tev_serv_hypot(-0.0, 0), 0);
  EXPECT_EQ(tev_serv_hypot(3 * kTiniest, -4 * kTiniest), 5 * kTiniest);
  EXPECT_EQ(tev_serv_hypot(1e308, 1.7e308), kInf);

  const std::pair<tev_complex8, tev_complex8> rows[] = {{{0, 0}, {0, 0}},
                                                        {{-0.0f, -0.0f}, {0, 0}},
                                                        {{4, 0}, {2, 0}},
                                                        {{-4, 0}, {0, 2}},
                                                        {{-4, -0.0f}, {0, 2}},
                                                        {{3, 4}, {2, 1}},
                                                        {{-3, -4}, {1, -2}},
                                                        {{0, -2}, {1, -1}},
                                                        {{HUGE_VALF, 1}, {HUGE_VALF, 0}},
                                                        {{-HUGE_VALF, 1}, {0, HUGE_VALF}}};
  tev_complex8 root;
  for (const auto& [value, expected] : rows) {
    tev_serv_c_sqrt(&root, &value);
    EXPECT_TRUE(root.real == expected.real && root.imag == expected.imag) << value.real << " " << value.imag;
  }
  const tev_complex8 large = {3e38f, 3e38f}, pythagoras = {-3e30f, 4e30f};  // squares overflow in single precision
  tev_serv_c_sqrt(&root, &large);
  EXPECT_FLOAT_EQ(root.real, 1.9029765e19f);
  EXPECT_EQ(tev_serv_c_abs(&pythagoras), 5e30f);
}

// Exact: a floating value of magnitude up to 2^64 is an integer or has a floor, and long double holds every int64_t.
template <class T>
void expect_ceiling(int64_t value, T result) {
  const auto exact = static_cast<long double>(value);
  ASSERT_GE(static_cast<long double>(result), exact) << value;
  ASSERT_LT(static_cast<long double>(std::nextafter(result, -std::numeric_limits<T>::infinity())), exact) << value;
}

TEST(Scalar, CeilingIsTheSmallestValueNotBelow) {
  std::mt19937_64 engine(7);
  const auto check = [](int64_t value) {
    expect_ceiling(value, tev_serv_int2f_ceil(&value));
    expect_ceiling(value, tev_serv_int2d_ceil(&value));
  };
  for (int trial = 0; trial < 100000; ++trial) check(static_cast<int64_t>(engine()) >> (trial % 64));
  for (int bit = 0; bit < 63; ++bit)
    for (int64_t near = -3; near <= 3; ++near)
      for (int64_t power : {int64_t{1} << bit, -(int64_t{1} << bit), INT64_MAX - (int64_t{1} << bit) - 3})
        check(power + near);
  check(INT64_MAX);
  check(INT64_MIN);
}

}  // namespace
