// SPDX-License-Identifier: BSD-3-Clause
// The scalar intrinsics at the edges of their types, and the complex root against long double.
#include "service/scalar.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kTiniest = std::numeric_limits<double>::denorm_min();
constexpr double kLargest = std::numeric_limits<double>::max();

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
  const double value = -3, minus = -1, minus_zero = -0.0, minus_nan = -kNan;
  EXPECT_EQ(tev_serv_d_sign(&value, &minus), -3);
  EXPECT_EQ(tev_serv_d_sign(&value, &minus_zero), 3);
  EXPECT_EQ(tev_serv_d_sign(&value, &minus_nan), 3);
  EXPECT_FALSE(std::signbit(tev_serv_d_sign(&minus_zero, &value) * -1));  // a negative zero
  const float single = -2, negative = -std::numeric_limits<float>::denorm_min();
  EXPECT_EQ(tev_serv_s_sign(&single, &negative), -2);
}

double d_power(double base, int32_t exponent) { return tev_serv_d_powi(&base, &exponent); }
float s_power(float base, int32_t exponent) { return tev_serv_s_powi(&base, &exponent); }

TEST(Scalar, IntegerPowers) {
  EXPECT_EQ(d_power(2, -3), 0.125);
  EXPECT_EQ(d_power(-3, 5), -243);
  EXPECT_EQ(d_power(kNan, 0), 1);
  EXPECT_EQ(d_power(0, -1), kInf);
  EXPECT_EQ(d_power(-1, INT32_MIN), 1);
  EXPECT_EQ(d_power(-1, INT32_MAX), -1);
  EXPECT_EQ(d_power(2, INT32_MIN), 0);
  EXPECT_NEAR(d_power(1 + 0x1p-31, INT32_MIN), std::exp(-1.0), 1e-6);
  // Binary order, each product rounded: 1.1f^3 is 1.1f * (1.1f^2), and a reciprocal comes before the products.
  const float x = 1.1f, square = x * x, third = 1.0f / 3.0f;
  EXPECT_EQ(s_power(x, 3), x * square);
  EXPECT_EQ(s_power(3, -2), third * third);
}

TEST(Scalar, IntegersOutOfRangeBecomeTheIndefiniteOne) {
  const struct {
    double value;
    int32_t truncated, rounded;
  } rows[] = {{2.5, 2, 3},
              {-2.5, -2, -3},
              {0.49, 0, 0},
              {-0.0, 0, 0},
              {kTiniest, 0, 0},
              {2147483647.0, INT32_MAX, INT32_MAX},
              {2147483647.25, INT32_MAX, INT32_MAX},
              {2147483647.5, INT32_MAX, INT32_MIN},
              {2147483648.0, INT32_MIN, INT32_MIN},
              {-2147483648.25, INT32_MIN, INT32_MIN},
              {1e300, INT32_MIN, INT32_MIN},
              {-1e300, INT32_MIN, INT32_MIN},
              {kInf, INT32_MIN, INT32_MIN},
              {kNan, INT32_MIN, INT32_MIN}};
  for (const auto& row : rows) {
    EXPECT_EQ(tev_serv_d_int(&row.value), row.truncated) << row.value;
    EXPECT_EQ(tev_serv_d_round(&row.value), row.rounded) << row.value;
    const float single = static_cast<float>(row.value);
    if (single == row.value || std::isnan(single)) {
      EXPECT_EQ(tev_serv_s_int(&single), row.truncated) << row.value;
      EXPECT_EQ(tev_serv_s_round(&single), row.rounded) << row.value;
    }
  }
  const float below_half = 0.49999997f, odd = 8388609.0f;  // the sum with 0.5 is no single-precision value
  EXPECT_EQ(tev_serv_s_round(&below_half), 0);
  EXPECT_EQ(tev_serv_s_round(&odd), 8388609);
}

// Random values whose exponents cover the whole range, subnormal ones included.
class wide_values {
 public:
  double operator()() {
    const double value = std::ldexp(mantissa_(engine_), exponent_(engine_));
    return value == 0 ? kTiniest : value;
  }

 private:
  std::mt19937_64 engine_{20240611};
  std::uniform_real_distribution<double> mantissa_{-1, 1};
  std::uniform_int_distribution<int> exponent_{-1074, 1024};
};

// |computed - exact| in units of the last place of exact.
double ulps(double computed, long double exact) {
  const double rounded = static_cast<double>(exact);
  const double unit = std::nextafter(std::abs(rounded), kInf) - std::abs(rounded);
  return static_cast<double>(std::abs(static_cast<long double>(computed) - exact) / static_cast<long double>(unit));
}

// Root by the same identity in long double, whose exponents have room for every square of a double.
void exact_root(long double x, long double y, long double* re, long double* im) {
  const long double h = std::sqrt(x * x + y * y);
  const long double larger = std::sqrt((h + std::abs(x)) / 2), smaller = std::abs(y) / (2 * larger);
  *re = x > 0 ? larger : smaller;
  *im = std::copysign(x > 0 ? smaller : larger, y);
}

TEST(Scalar, ModulusAndRootAreAccurateOverTheWholeRange) {
  wide_values random;
  for (int trial = 0; trial < 200000; ++trial) {
    const double x = random();
    // Half of the pairs have parts of about the same size, where the sums matter most.
    const double y = trial % 2 != 0 ? random() : x * (1 + std::remainder(trial * 0.618, 1.0));
    const tev_complex16 value = {x, y == 0 || std::isinf(y) ? x : y};
    const auto wide_x = static_cast<long double>(value.real), wide_y = static_cast<long double>(value.imag);
    const long double modulus = std::sqrt(wide_x * wide_x + wide_y * wide_y);
    // Squares, sum and root: each rounding is half a unit, and the root halves those before it.
    if (modulus < static_cast<long double>(kLargest)) {
      ASSERT_TRUE(ulps(tev_serv_z_abs(&value), modulus) <= 2) << value.real << " " << value.imag;
    }
    long double re, im;
    exact_root(wide_x, wide_y, &re, &im);
    tev_complex16 root;
    tev_serv_z_sqrt(&root, &value);
    ASSERT_TRUE(ulps(root.real, re) <= 4) << value.real << " " << value.imag << ": " << root.real;
    ASSERT_TRUE(ulps(root.imag, im) <= 4) << value.real << " " << value.imag << ": " << root.imag;
  }
}

TEST(Scalar, ComplexSpecialValues) {
  EXPECT_EQ(tev_serv_hypot(kNan, -kInf), kInf);
  EXPECT_EQ(tev_serv_hypot(kInf, kNan), kInf);
  EXPECT_TRUE(std::isnan(tev_serv_hypot(kNan, 1)));
  EXPECT_EQ(tev_serv_hypot(-0.0, 0), 0);
  EXPECT_EQ(tev_serv_hypot(3 * kTiniest, -4 * kTiniest), 5 * kTiniest);
  EXPECT_EQ(tev_serv_hypot(kLargest, kLargest), kInf);

  const struct {
    tev_complex8 value, root;
  } rows[] = {{{0, 0}, {0, 0}},
              {{-0.0f, -0.0f}, {0, 0}},
              {{4, 0}, {2, 0}},
              {{-4, 0}, {0, 2}},
              {{-4, -0.0f}, {0, 2}},
              {{3, 4}, {2, 1}},
              {{-3, -4}, {1, -2}},
              {{0, 2}, {1, 1}},
              {{0, -2}, {1, -1}},
              {{HUGE_VALF, 1}, {HUGE_VALF, 0}},
              {{-HUGE_VALF, 1}, {0, HUGE_VALF}}};
  for (const auto& row : rows) {
    tev_complex8 root;
    tev_serv_c_sqrt(&root, &row.value);
    EXPECT_EQ(root.real, row.root.real) << row.value.real << " " << row.value.imag;
    EXPECT_EQ(root.imag, row.root.imag) << row.value.real << " " << row.value.imag;
  }
  const tev_complex8 large = {3e38f, 3e38f}, pythagoras = {-3e30f, 4e30f};  // squares overflow in single precision
  tev_complex8 root;
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
  for (int bit = 0; bit < 63; ++bit) {
    for (int64_t near = -3; near <= 3; ++near) {
      check((int64_t{1} << bit) + near);
      check(-(int64_t{1} << bit) + near);
      check(INT64_MAX - (int64_t{1} << bit) + (near < 0 ? near : 0));
    }
  }
  check(INT64_MAX);
  check(INT64_MIN);
}

}  // namespace
