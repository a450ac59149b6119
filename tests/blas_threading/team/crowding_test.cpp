// SPDX-License-Identifier: BSD-3-Clause
// The advice on team sizes, with a clock of the test's own.
#include <omp.h>

#include "blas_threading/team/crowding.h"
#include "blas_threading/team/team.h"
#include "tests/support/in_child.h"

namespace {

using tev::blas::crowding;
using tev::blas::region_times;
using enum crowding::state;

constexpr region_times kPaid = {100'000, 90'000, 0};        // a team of any size gained
constexpr region_times kLost = {1'090'000, 50'000, 5'000};  // a team of two should have taken 90'000
constexpr region_times kShortLoss = {300'000, 50'000, 0};   // of 200'000, in which a team wakes up
constexpr region_times kBitLate = {104'000, 50'000, 0};     // an interrupt
constexpr region_times kMostlyWaiting = {104'000, 100'000, 60'000};
constexpr double kLarge = 2 * tev::blas::kWakingWork, kSmall = kLarge / 4;

// What happens in turn to one crowding, time in the loss of kLost; then what callers are given, and its state.
struct step {
  double time;
  const region_times* region;  // reported; null: a caller asks
  int64_t team;                // that reported, or that a large call may have
  crowding::state state;
};

struct story {
  const char* name;
  int64_t threads;
  std::vector<step> steps;
};

// clang-format off
const story kStories[] = {
    {"two losses in a row halve the team for a while", 2,
     {{0, &kLost, 2, warned}, {0, &kPaid, 2, trying}, {0, &kLost, 2, warned}, {0, nullptr, 2, warned},
      {1, &kLost, 2, resting}, {1.99, nullptr, 1, resting}, {2, nullptr, 2, trying}}},
    {"trials that fail get shorter and rarer", 2,
     {{0, &kLost, 2, warned}, {0, &kLost, 2, resting},
      {1, nullptr, 2, trying}, {1, &kLost, 2, warned}, {1, &kLost, 2, resting}, {2.99, nullptr, 1, resting},
      {3, nullptr, 2, trying}, {3, &kLost, 2, warned}, {3, &kLost, 2, resting}, {6.99, nullptr, 1, resting},
      {7, nullptr, 2, trying}, {7, &kLost, 2, resting}, {14.99, nullptr, 1, resting},
      {15, nullptr, 2, trying}, {15, &kPaid, 2, trying}, {15, &kLost, 2, resting}}},
    {"sixteen losses later all is forgotten", 2,
     {{0, &kLost, 2, warned}, {0, &kLost, 2, resting}, {1, nullptr, 2, trying}, {1, &kLost, 2, warned},
      {17, nullptr, 2, warned}, {17.01, nullptr, 2, quiet}, {17.01, &kLost, 2, warned}, {17.01, &kLost, 2, resting},
      {19, nullptr, 2, trying}, {40, &kLost, 2, warned}}},
    {"a loss by itself is soon forgotten, one that comes again is not", 2,
     {{20, &kLost, 2, warned}, {22, nullptr, 2, warned}, {22.01, nullptr, 2, quiet}, {36, &kLost, 2, warned},
      {52, nullptr, 2, warned}, {52.01, nullptr, 2, quiet}}},
    {"large teams shrink by halves, and only a larger one that pays lifts the limit", 16,
     {{0, &kLost, 16, warned}, {0, &kLost, 16, resting}, {0, nullptr, 8, resting}, {0, &kPaid, 8, resting},
      {0, &kLost, 8, resting}, {0, nullptr, 4, resting}, {0, &kLost, 2, resting}, {0, nullptr, 1, resting},
      {0, &kPaid, 2, trying}, {0, nullptr, 16, trying}}},
    {"interrupts and waking up are no losses", 2,
     {{0, &kBitLate, 2, quiet}, {0, &kShortLoss, 2, warned}, {0, &kLost, 2, resting}, {1, nullptr, 2, trying},
      {1, &kShortLoss, 2, trying}, {1, &kShortLoss, 2, trying}, {1, nullptr, 2, trying}}},
    {"waits are no work", 2, {{0, &kMostlyWaiting, 2, warned}, {0, &kMostlyWaiting, 2, resting}}},
};
// clang-format on

TEST(Crowding, Stories) {
  for (const story& s : kStories) {
    crowding c;
    for (size_t i = 0; i < s.steps.size(); ++i) {
      const step& x = s.steps[i];
      const auto now = static_cast<uint64_t>(x.time * 1e6);
      if (x.region)
        c.report(x.team, *x.region, now);
      else
        EXPECT_EQ(c.team(s.threads, kLarge, now), x.team) << s.name << ", step " << i;
      EXPECT_EQ(c.current(), x.state) << s.name << ", step " << i;
    }
  }
}

TEST(Crowding, ASleepingTeamIsWokenForLargeCallsOnly) {
  crowding c;
  c.report(2, kShortLoss, 0);
  EXPECT_EQ(c.team(2, kSmall, 0), 2) << "it does not sleep";
  c.report(2, kPaid, 0);
  c.report(2, kLost, 0);
  for (int i = 0; i < 9; ++i) {
    c.report(2, kShortLoss, 1);  // of small calls
    EXPECT_EQ(c.team(2, kSmall, 1), 1);
    EXPECT_EQ(c.team(2, kLarge, 1), 2);
  }
  EXPECT_EQ(c.team(2, kSmall, 16'000'001), 2);
}

// Regions whose second thread is late, as many as it takes; then what a caller would be given.
int64_t team_after_late_regions() {
  for (int i = 0; i < 3; ++i)
    tev::blas::run_team(2, [](int64_t index, int64_t size) {
      for (const uint64_t begin = tev::blas::ticks_now(); index == 1 && size == 2;)
        if (tev::blas::ticks_now() - begin > 20'000'000) break;
    });
  return tev::blas::team_that_pays(2, kLarge);
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

// Processor time that all threads of the process use while the caller sleeps, in seconds.
double spent_in(int milliseconds) {
  const auto spent = [] {
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
  };
  const double before = spent();
  usleep(1000 * static_cast<unsigned>(milliseconds));
  return spent() - before;
}

TEST(Crowding, ALateTeamSleepsAndTheProgramsOwnBlocktimeStays) {
  const auto run = [] {
    kmp_set_blocktime(5000);
    team_after_late_regions();
    const bool asleep = spent_in(50) < 0.005;
    const int usual = kmp_get_blocktime();
    kmp_set_defaults("KMP_BLOCKTIME=7");
    team_after_late_regions();
    return asleep && usual == 5000 && kmp_get_blocktime() == 7 ? 0 : 1;
  };
  EXPECT_EQ(tev::test::in_child({}, run).status, 0);
}

}  // namespace
