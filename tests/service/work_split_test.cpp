// SPDX-License-Identifier: BSD-3-Clause
// The three rules of division.
//   Worked    bounds computed by hand, which results depend on
//   Tiling    for every length and team: parts in order, no gap, no overlap, no negative count, all of 0 .. n
//   Balance   counts, blocks or areas differ by no more than the rule's granularity
#include "service/work_split.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace {

struct part {
  int64_t start, count;
  bool operator==(const part&) const = default;
};

void PrintTo(const part& p, std::ostream* out) { *out << "start " << p.start << " count " << p.count; }

part even(int64_t i, int64_t t, int64_t n) {
  int64_t count = -99;
  const int64_t start = tev_serv_divbythreads(&i, &t, &n, &count);
  return {start, count};
}

part blocked(int64_t i, int64_t t, int64_t n, int64_t b) {
  int64_t count = -99;
  const int64_t start = tev_serv_divbythreadsnb(&i, &t, &n, &b, &count);
  return {start, count};
}

part triangle(int64_t i, int64_t t, int64_t n, char letter) {
  int64_t count = -99;
  const int64_t start = tev_serv_divbythreadstr(&i, &t, &n, &letter, &count);
  return {start, count};
}

using split = std::function<part(int64_t i, int64_t t, int64_t n)>;

const struct {
  const char* name;
  split function;
} kSplits[] = {
    {"even", even},
    {"blocks of 1", [](int64_t i, int64_t t, int64_t n) { return blocked(i, t, n, 1); }},
    {"blocks of 4", [](int64_t i, int64_t t, int64_t n) { return blocked(i, t, n, 4); }},
    {"blocks of 48", [](int64_t i, int64_t t, int64_t n) { return blocked(i, t, n, 48); }},
    {"huge blocks", [](int64_t i, int64_t t, int64_t n) { return blocked(i, t, n, INT64_MAX / 2); }},
    {"upper", [](int64_t i, int64_t t, int64_t n) { return triangle(i, t, n, 'U'); }},
    {"lower", [](int64_t i, int64_t t, int64_t n) { return triangle(i, t, n, 'L'); }},
};

void expect_tiles(const split& function, int64_t t, int64_t n) {
  int64_t next = 0;
  for (int64_t i = 0; i < t; ++i) {
    const part p = function(i, t, n);
    ASSERT_TRUE(p.count >= 0 && (p.start == next)) << "thread " << i << " of " << t << ", n " << n << ": start "
                                                   << p.start << " count " << p.count << ", expected start " << next;
    next += p.count;
  }
  ASSERT_EQ(next, n) << t << " threads";
}

TEST(WorkSplit, Worked) {
  EXPECT_EQ(even(2, 4, 10), (part{6, 2}));
  EXPECT_EQ(even(1, 4, 10), (part{3, 3}));
  EXPECT_EQ(blocked(0, 3, 30, 4), (part{0, 12}));
  EXPECT_EQ(blocked(1, 3, 30, 4), (part{12, 8}));
  EXPECT_EQ(blocked(2, 3, 30, 4), (part{20, 10}));
  EXPECT_EQ(triangle(0, 3, 8, 'U'), (part{0, 4}));  // a share is 12: columns up to 4.42, 6.45
  EXPECT_EQ(triangle(1, 3, 8, 'u'), (part{4, 2}));
  EXPECT_EQ(triangle(2, 3, 8, 'U'), (part{6, 2}));
  EXPECT_EQ(triangle(0, 3, 8, 'L'), (part{0, 2}));
  EXPECT_EQ(triangle(1, 3, 8, 'l'), (part{2, 2}));
  EXPECT_EQ(triangle(2, 3, 8, '?'), (part{4, 4}));
  EXPECT_EQ(triangle(1, 3, 4, 'U'), (part{2, 1}));   // a share of 3 ends exactly behind column 1
  EXPECT_EQ(triangle(2, 4, 13, 'U'), (part{8, 3}));  // a share is 22, not 22.75
  EXPECT_EQ(triangle(0, 4, 1, 'L'), (part{0, 1}));   // shares of area 0
  EXPECT_EQ(triangle(3, 4, 1, 'U'), (part{0, 1}));
}

TEST(WorkSplit, NoTeamAndStrangersToTheTeam) {
  for (const auto& rule : kSplits) {
    SCOPED_TRACE(rule.name);
    for (int64_t t : {-3, 0, 1}) {
      EXPECT_EQ(rule.function(0, t, 10), (part{0, 10}));
      EXPECT_EQ(rule.function(1, t, 10), (part{0, 0}));
      EXPECT_EQ(rule.function(-1, t, 10), (part{0, 0}));
    }
    EXPECT_EQ(rule.function(-1, 4, 10), (part{0, 0}));
    EXPECT_EQ(rule.function(4, 4, 10), (part{0, 0}));
    EXPECT_EQ(rule.function(INT64_MAX, 4, 10), (part{0, 0}));
  }
  EXPECT_EQ(blocked(0, 4, 10, 0), (part{0, 10}));
  EXPECT_EQ(blocked(3, 4, 10, -1), (part{0, 0}));
  EXPECT_EQ(triangle(1, 4, -7, 'U'), (part{0, 0}));
}

TEST(WorkSplit, Tiling) {
  for (const auto& rule : kSplits) {
    SCOPED_TRACE(rule.name);
    for (int64_t t = 2; t <= 40; ++t)
      for (int64_t n = 0; n <= 400; ++n) ASSERT_NO_FATAL_FAILURE(expect_tiles(rule.function, t, n));
    for (int64_t t : {2, 3, 7, 61, 244, 1000})
      for (int64_t n : std::vector<int64_t>{65521, 1 << 20, 0xffffffff, 0x100000000, 3037000500, 6074001000,
                                            (int64_t{1} << 53) + 1, INT64_MAX - 1, INT64_MAX})
        ASSERT_NO_FATAL_FAILURE(expect_tiles(rule.function, t, n));
  }
}

// As many threads as columns, both the largest there are: a boundary rounds to 2^63.
TEST(WorkSplit, LastBoundaryStaysInsideTheTriangle) {
  EXPECT_EQ(triangle(INT64_MAX - 1, INT64_MAX, INT64_MAX, 'U'), (part{INT64_MAX, 0}));
  EXPECT_EQ(triangle(1, INT64_MAX, INT64_MAX, 'L').start, 0);
}

TEST(WorkSplit, Balance) {
  for (int64_t t : {2, 3, 5, 16, 61}) {
    for (int64_t n : {0, 1, 60, 61, 1000, 12345}) {
      const int64_t area = n * (n + 1) / 2;
      for (int64_t i = 0; i < t; ++i) {
        EXPECT_LE(even(i, t, n).count - even(t - 1, t, n).count, 1);
        const part b = blocked(i, t, n, 4);
        EXPECT_EQ(b.start % 4, 0) << "a block is cut, thread " << i << " of " << t << ", n " << n;
        EXPECT_TRUE(b.count % 4 == 0 || i == t - 1);
        EXPECT_LE(b.count - b.count % 4, 4 * (n / 4 / t + 1));
        // Both ends of a part are cut to a whole column, and a column has at most n elements.
        const part u = triangle(i, t, n, 'U'), l = triangle(i, t, n, 'L');
        const int64_t upper = u.count * (2 * u.start + u.count + 1) / 2;
        const int64_t lower = l.count * (2 * (n - l.start) - l.count + 1) / 2;
        EXPECT_LE(std::abs(upper - area / t), n + t) << "thread " << i << " of " << t << ", n " << n;
        EXPECT_LE(std::abs(lower - area / t), n + t) << "thread " << i << " of " << t << ", n " << n;
      }
    }
  }
}

}  // namespace
