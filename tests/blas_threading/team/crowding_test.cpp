// SPDX-License-Identifier: BSD-3-Clause
// The advice on team sizes, with a clock of the test's own.
#include <gtest/gtest.h>
#include <omp.h>

#include "blas_threading/team/crowding.h"
#include "blas_threading/team/team.h"
#include "tests/support/in_child.h"

namespace {

using tev::blas::crowding;
using tev::blas::region_times;

constexpr region_times kPaid = {100'000, 90'000, 0};        // a team of any size gained
constexpr region_times kLost = {1'090'000, 50'000, 5'000};  // a team of two should have taken 90'000
constexpr uint64_t kLoss = 1'000'000;

TEST(Crowding, TwoLossesInARowHalveTheTeamForAWhile) {
  crowding c;
  c.report(2, kLost, 0);
  c.report(2, kPaid, 0);
  c.report(2, kLost, 0);
  EXPECT_EQ(c.team(2, 0), 2) << "a single loss says nothing";
  c.report(2, kLost, 10);
  EXPECT_EQ(c.team(2, 10), 1);
  EXPECT_EQ(c.team(2, 10 + kLoss - 1), 1);
  EXPECT_EQ(c.team(2, 10 + kLoss), 2) << "a trial";
}

TEST(Crowding, TrialsThatFailGetShorterAndRarerUntilTheyAreForgotten) {
  crowding c;
  uint64_t now = 0;
  const struct {
    int losses;
    uint64_t rest;
  } trials[] = {{2, 1}, {2, 2}, {2, 4}, {1, 8}, {1, 8}};
  for (const auto& [losses, rest] : trials) {
    for (int i = 0; i < losses; ++i) {
      EXPECT_EQ(c.team(2, now), 2) << "rest " << rest << ", loss " << i;
      c.report(2, kLost, now);
    }
    EXPECT_EQ(c.team(2, now + rest * kLoss - 1), 1) << rest;
    now += rest * kLoss;
  }
  now += 8 * kLoss;
  EXPECT_EQ(c.team(2, now), 2);
  c.report(2, kLost, now);
  c.report(2, kPaid, now);
  c.report(2, kLost, now);
  EXPECT_EQ(c.team(2, now + 8 * kLoss - 1), 1) << "one paid region does not clear the team";
  now += 8 * kLoss;
  EXPECT_EQ(c.team(2, now), 2);
  c.report(2, kPaid, now);
  EXPECT_TRUE(c.sleeps());
  now += 8 * kLoss + 1;
  c.report(2, kPaid, now);
  EXPECT_FALSE(c.sleeps()) << "16 losses later";
  for (int i = 0; i < 2; ++i) c.report(2, kLost, now);
  EXPECT_EQ(c.team(2, now + kLoss - 1), 1);
  EXPECT_EQ(c.team(2, now + kLoss), 2);
}

TEST(Crowding, OnlyLongLossesSendATeamToSleepAndWakingItIsNoLoss) {
  crowding c;
  c.report(2, {300'000, 50'000, 0}, 0);
  EXPECT_FALSE(c.sleeps());
  c.report(2, kLost, 0);
  EXPECT_EQ(c.team(2, 0), 1) << "the short one counts for the team's size";
  EXPECT_TRUE(c.sleeps());
  uint64_t now = kLoss;
  EXPECT_EQ(c.team(2, now), 2);
  c.report(2, {300'000, 50'000, 0}, now);
  EXPECT_EQ(c.team(2, now), 1) << "not worth waking the team for";
  EXPECT_EQ(c.team(2, 16 * kLoss - 1), 1);
  now = 16 * kLoss + 1;
  EXPECT_EQ(c.team(2, now), 2);
  c.report(2, {300'000, 50'000, 0}, now);
  EXPECT_FALSE(c.sleeps());
}

TEST(Crowding, LargeTeamsShrinkByHalvesAndAreNeverAskedToGrow) {
  crowding c;
  const region_times lost = {100'000'000, 10'000, 0};
  c.report(16, lost, 0);
  for (int64_t team = 16; team > 1; team /= 2) {
    EXPECT_EQ(c.team(16, 0), team);
    c.report(team, lost, 0);
    c.report(team, kPaid, 0);  // under a limit that says nothing about the whole team
  }
  EXPECT_EQ(c.team(16, 0), 1);
  EXPECT_EQ(c.team(1, 0), 1);
}

TEST(Crowding, WaitsAreNoWorkAndShortLossesAreNoise) {
  crowding c;
  for (int i = 0; i < 9; ++i) c.report(2, {104'000, 50'000, 0}, 0);
  EXPECT_EQ(c.team(2, 0), 2);
  for (int i = 0; i < 2; ++i) c.report(2, {104'000, 100'000, 60'000}, 0);
  EXPECT_EQ(c.team(2, 0), 1);
}

// Regions whose second thread is late, as many as it takes; then what a caller would be given.
int64_t team_after_late_regions() {
  for (int i = 0; i < 3; ++i)
    tev::blas::run_team(2, [](int64_t index, int64_t size) {
      for (const uint64_t begin = tev::blas::ticks_now(); index == 1 && size == 2;)
        if (tev::blas::ticks_now() - begin > 20'000'000) break;
    });
  return tev::blas::team_that_pays(2);
}

TEST(Crowding, OnlyAProgramThatLeavesTheNumberOpenGetsFewerThreads) {
  const struct {
    tev::test::environment environment;
    int team;
  } cases[] = {{{}, 1}, {{{"TEV_DYNAMIC", "FALSE"}}, 2}, {{{"TEV_CBWR", "COMPATIBLE"}}, 2}};
  for (const auto& c : cases) {
    const auto run = [] { return static_cast<int>(team_after_late_regions()); };
    EXPECT_EQ(tev::test::in_child(c.environment, run).status, c.team);
  }
}

TEST(Crowding, ALateTeamSleepsBetweenItsRegions) {
  const auto run = [] {
    const int usual = kmp_get_blocktime();
    team_after_late_regions();
    return usual > 0 && kmp_get_blocktime() == 0 ? 1 : 0;
  };
  EXPECT_EQ(tev::test::in_child({}, run).status, 1);
}

}  // namespace
