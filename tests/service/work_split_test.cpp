// SPDX-License-Identifier: BSD-3-Clause
// The three rules of division.
//   Worked    bounds computed by hand, which results depend on
//   Tiling    for every length and team: parts in order, no gap, no overlap, no negative count, all of 0 .. n
//   Balance   counts, blocks or areas differ by no more than the rule's granularity
#include "service/work_split.h"

#include "tests/support/prelude.h"

namespace {

struct part {
  int64_t start, count;
  bool operator==(const part&) const = default;
};

void PrintTo(const part& p, std::ostream* out) { *out << "start " << p.start << " count " << p.count; }

using split = std::function<part(int64_t i, int64_t t, int64_t n)>;

split rule_of(auto* divide, auto... more) {
  return [=](int64_t i, int64_t t, int64_t n) -> part {
    int64_t count = -99;
    const int64_t start = divide(&i, &t, &n, &more..., &count);
    return {start, count};
  };
}
const split even = rule_of(tev_serv_divbythreads);
split blocked(int64_t block) { return rule_of(tev_serv_divbythreadsnb, block); }
split triangle(char letter) { return rule_of(tev_serv_divbythreadstr, letter); }

const split kSplits[] = {even,          blocked(1),   blocked(4), blocked(48), blocked(INT64_MAX / 2),
                         triangle('U'), triangle('L')};

TEST(WorkSplit, Worked) {
  const std::tuple<split, int64_t, int64_t, int64_t, part> rows[] = {
      {even, 2, 4, 10, {6, 2}},
      {even, 1, 4, 10, {3, 3}},
      {blocked(4), 0, 3, 30, {0, 12}},
      {blocked(4), 1, 3, 30, {12, 8}},
      {blocked(4), 2, 3, 30, {20, 10}},
      {blocked(0), 0, 4, 10, {0, 10}},
      {blocked(-1), 3, 4, 10, {0, 0}},
      {triangle('U'), 0, 3, 8, {0, 4}},  // a share is 12: columns up to 4.42, 6.45
      {triangle('u'), 1, 3, 8, {4, 2}},
      {triangle('L'), 0, 3, 8, {0, 2}},
      {triangle('l'), 1, 3, 8, {2, 2}},
      {triangle('?'), 2, 3, 8, {4, 4}},
      {triangle('U'), 1, 3, 4, {2, 1}},   // a share of 3 ends exactly behind column 1
      {triangle('U'), 2, 4, 13, {8, 3}},  // a share is 22, not 22.75
      {triangle('L'), 0, 4, 1, {0, 1}},   // shares of area 0
      {triangle('U'), 3, 4, 1, {0, 1}},
      {triangle('U'), 1, 4, -7, {0, 0}},
      // As many threads as columns, both the largest there are: a boundary rounds to 2^63.
      {triangle('U'), INT64_MAX - 1, INT64_MAX, INT64_MAX, {INT64_MAX, 0}},
  };
  for (const auto& [rule, i, t, n, expected] : rows)
    EXPECT_EQ(rule(i, t, n), expected) << "thread " << i << " of " << t << ", n " << n;
  EXPECT_EQ(triangle('L')(1, INT64_MAX, INT64_MAX).start, 0);
}

TEST(WorkSplit, NoTeamAndStrangersToTheTeam) {
  for (const split& rule : kSplits) {
    for (int64_t t : {-3, 0, 1}) EXPECT_EQ(rule(0, t, 10), (part{0, 10}));
    for (int64_t t : {-3, 0, 1, 4})
      for (int64_t i : {int64_t{-1}, std::max<int64_t>(t, 1), INT64_MAX}) EXPECT_EQ(rule(i, t, 10), (part{0, 0}));
  }
}

void expect_tiles(const split& rule, int64_t t, int64_t n) {
  int64_t next = 0;
  for (int64_t i = 0; i < t; ++i) {
    const part p = rule(i, t, n);
    ASSERT_TRUE(p.count >= 0 && p.start == next) << testing::PrintToString(p) << ", expected start " << next
                                                 << ", rule " << &rule - kSplits << " thread " << i << " of " << t;
    next += p.count;
  }
  ASSERT_EQ(next, n) << "rule " << &rule - kSplits << " by " << t;
}

TEST(WorkSplit, Tiling) {
  for (const split& rule : kSplits) {
    for (int64_t t = 2; t <= 40; ++t)
      for (int64_t n = 0; n <= 400; ++n) ASSERT_NO_FATAL_FAILURE(expect_tiles(rule, t, n));
    for (int64_t t : {2, 3, 7, 61, 244, 1000})
      for (int64_t n : {65521L, 0xffffffffL, 0x100000000L, 3037000500L, 6074001000L, (1L << 53) + 1, INT64_MAX})
        ASSERT_NO_FATAL_FAILURE(expect_tiles(rule, t, n));
  }
}

TEST(WorkSplit, Balance) {
  for (int64_t t : {2, 3, 5, 16, 61})
    for (int64_t n : {0, 1, 60, 61, 1000, 12345})
      for (int64_t i = 0; i < t; ++i) {
        SCOPED_TRACE(testing::Message() << "thread " << i << " of " << t << ", n " << n);
        EXPECT_LE(even(i, t, n).count - even(t - 1, t, n).count, 1);
        const part b = blocked(4)(i, t, n), u = triangle('U')(i, t, n), l = triangle('L')(i, t, n);
        EXPECT_TRUE(b.start % 4 == 0 && (b.count % 4 == 0 || i == t - 1)) << "a block is cut";
        EXPECT_LE(b.count / 4, n / 4 / t + 1);
        // Both ends of a part are cut to a whole column, and a column has at most n elements.
        const int64_t share = n * (n + 1) / 2 / t;
        EXPECT_LE(std::abs(u.count * (2 * u.start + u.count + 1) / 2 - share), n + t);
        EXPECT_LE(std::abs(l.count * (2 * (n - l.start) - l.count + 1) / 2 - share), n + t);
      }
}

}  // namespace
