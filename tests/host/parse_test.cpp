// SPDX-License-Identifier: BSD-3-Clause
// The command line's small languages, and generated triangles.
//   Lists     processors and sizes: order, duplicates, ranges, every malformed text is refused with its name
//   Scalars   one or two numbers, held to the precision
//   Fill      the part that must not be read is NaN, and no more than that

#include "host/parse.h"
#include "host/failure.h"
#include "host/fill.h"
#include "tests/support/prelude.h"

namespace tev::host {
namespace {

// The error line of a bad input; "" when there was none.
template <class F>
std::string refusal(const F& f) {
  try {
    f();
  } catch (const failure& e) {
    EXPECT_EQ(e.status(), kBadInput);
    return e.what();
  }
  return "";
}

TEST(Parse, Lists) {
  EXPECT_EQ(parse_processors("--pin", "5,1-3,2"), (std::vector<int>{1, 2, 3, 5}));
  EXPECT_EQ(parse_processors("--pin", "1024"), std::vector<int>{1024});
  EXPECT_EQ(parse_sizes("--sizes", "7,100:350:100,7"), (std::vector<int64_t>{7, 100, 200, 300, 7}));
  for (const char* bad : {"", "0", "0-3", "3-1", "1-", "-1", "1-2-3", "1,,2", "1025", "1x", " 1", "99999999999"})
    EXPECT_NE(refusal([&] { parse_processors("--pin", bad); }).find("--pin '"), std::string::npos) << bad;
  for (const char* bad : {"", "0", "-5", "1:2", "5:1:1", "1:5:0", "1:2:3:4", "9,", "1e3", "1:9223372036854775807:1"})
    EXPECT_NE(refusal([&] { parse_sizes("--sizes", bad); }).find("--sizes '"), std::string::npos) << bad;
  EXPECT_EQ(parse_sizes("--sizes", "1:1000:1").size(), 1000u);
  EXPECT_NE(refusal([] { parse_sizes("--sizes", "1:1000:1,1"); }), "");
}

TEST(Parse, WholeNumbers) {
  EXPECT_EQ(parse_whole_number<uint64_t>("--seed", "18446744073709551615", 0, UINT64_MAX), UINT64_MAX);
  EXPECT_EQ(parse_whole_number<int64_t>("-m", "+010", 0, INT64_MAX), 10);
  for (const char* bad : {"", "x", "1x", " 1", "1.0", "0x10", "-1", "9223372036854775808"})
    EXPECT_NE(refusal([&] { parse_whole_number<int64_t>("-m", bad, 0, INT64_MAX); }).find("-m '"), std::string::npos)
        << bad;
  EXPECT_NE(refusal([] { parse_whole_number("--threads", "1025", 1, 1024); }), "");
}

TEST(Parse, Scalars) {
  using z = std::complex<double>;
  EXPECT_EQ(parse_scalar("--alpha", "+1.5,-2e3", precision::z), z(1.5, -2000));
  EXPECT_EQ(parse_scalar("--alpha", "-3", precision::s), z(-3, 0));
  for (const char* bad : {"", ",", "1,", "1,2,3", "1 ", "x", "+-1", "1e999", "0x10"})
    EXPECT_NE(refusal([&] { parse_scalar("--alpha", bad, precision::z); }).find("--alpha '"), std::string::npos) << bad;
  EXPECT_NE(refusal([] { parse_scalar("--alpha", "1,2", precision::d); }), "");
  for (const precision narrow : {precision::s, precision::c})
    EXPECT_NE(refusal([&] { parse_scalar("--alpha", "1e39", narrow); }), "") << letter_of(narrow);
  EXPECT_EQ(parse_scalar("--alpha", "1e39", precision::d), z(1e39, 0));
}

TEST(Parse, Letters) {
  EXPECT_EQ(parse_letter("--side", "r", "LR"), 'R');
  for (const char* bad : {"", "RR", "N", "?"})
    EXPECT_NE(refusal([&] { parse_letter("--side", bad, "LR"); }).find("must be L or R"), std::string::npos) << bad;
}

TEST(Fill, WhatMustNotBeReadIsNotANumber) {
  constexpr int64_t n = 5;
  for (const char uplo : {'U', 'L'})
    for (const char diag : {'N', 'U'}) {
      std::complex<float> a[n * n];
      fill_triangle(a, n, uplo, diag, 1);
      make_solvable(a, n);
      for (int64_t i = 0; i < n; ++i) {
        double beside = 0;
        for (int64_t j = 0; j < n; ++j) {
          const bool read = i == j ? diag == 'N' : uplo == 'U' ? i < j : i > j;
          EXPECT_EQ(std::isnan(a[i + j * n].real()), !read) << uplo << diag << " (" << i << ", " << j << ")";
          EXPECT_EQ(std::isnan(a[i + j * n].imag()), !read) << uplo << diag << " (" << i << ", " << j << ")";
          if (read && i != j) beside += std::abs(a[i + j * n]);
        }
        EXPECT_LT(beside, diag == 'N' ? std::abs(a[i + i * n]) : 1.5);
      }
    }
}

}  // namespace
}  // namespace tev::host
