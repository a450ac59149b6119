// SPDX-License-Identifier: BSD-3-Clause
// Teams on a machine whose processors have other work too. A thread of the team that waits for its turn on a processor
// holds up all others, for milliseconds at each meeting: a product of microseconds on two threads then takes a thousand
// times as long as on one. So every region is timed: it has lost when it took longer than the caller alone would have,
// else it has paid. Two losses in a row halve later teams for as long as was lost; then the full team is tried again.
// Every trial that fails doubles the rest, up to eight times the loss, and from then on one lost region ends a trial.
// Sixteen times the last loss after it, all that is forgotten; a loss by itself, as when a team had to be woken, after
// twice its length:
//
//   from \ event   lost                            paid                       as time passes
//   quiet          warned                          quiet                      quiet
//   warned         resting                         trying                     quiet: forgotten
//   resting        resting, with half of the half  trying, if the team was    trying: rested
//                                                  larger than the limit
//   trying         warned; resting, if the rest    trying                     quiet: forgotten
//                  is the longest
//
// Threads that spin between regions use up their turns on a processor. So from a loss on that is longer than waking up
// takes until it is forgotten, a team sleeps after each region: the OpenMP block time of the forking thread is zero
// while the region lasts, and the program's own again after it. Calls that are too short to wake a team for stay on
// their own thread meanwhile.
//
// In a reproducible run, and where the program has forbidden that the number of threads is adjusted, teams keep their
// size.
#pragma once

#include <cstdint>

namespace tev::blas {

// Time-stamp counts. What the caller alone would have taken is its own share times the size of the team.
struct region_times {
  uint64_t whole;   // from before the fork to after the join
  uint64_t share;   // of that, the caller's part of the work
  uint64_t waited;  // of the share, in waits for other threads
};

// Work that is not worth waking a team for, in multiply-adds of a matrix product: two threads save half of its time,
// 100 us at 20 multiply-adds per nanosecond, and need as long to wake up.
inline constexpr double kWakingWork = 160.0 * 160 * 160;

// Team sizes that pay at present. Any thread may ask and report; what they overwrite of each other is advice.
class crowding {
 public:
  enum state : int32_t { quiet, warned, resting, trying };

  state current() const { return __atomic_load_n(&state_, __ATOMIC_RELAXED); }
  // Teams should sleep between their regions.
  bool sleeps() const;
  // At most `threads`, at least 1.
  int64_t team(int64_t threads, double work, uint64_t now);
  void report(int64_t team, const region_times& times, uint64_t now);

 private:
  void lost(int64_t team, uint64_t loss, uint64_t now);
  void forget_old(uint64_t now);

  state state_ = state::quiet;
  int64_t limit_ = 0;    // resting: of teams
  uint64_t until_ = 0;   // resting: when that ends
  uint64_t rest_ = 1;    // length of the next rest, in losses
  uint64_t loss_ = 0;    // the last one; quiet: 0
  uint64_t forget_ = 0;  // when that is forgotten
  uint64_t again_ = 0;   // a loss before this time is not by itself
};

// The process's own: how many of `threads` pay for a call of so much work.
int64_t team_that_pays(int64_t threads, double work);

// Time that the calling thread has spent in waits for its team so far. Every wait adds itself.
uint64_t ticks_waited();
void add_ticks_waited(uint64_t ticks);
uint64_t ticks_now();

// One region: made before the fork by the thread that forks, and destroyed by it after the join.
class region_watch {
 public:
  region_watch();
  ~region_watch();
  region_watch(const region_watch&) = delete;
  region_watch& operator=(const region_watch&) = delete;

  // On the forking thread, around its share.
  void share_begins(int64_t team);
  void share_ends();

 private:
  static constexpr int kNotTouched = -1;
  int usual_blocktime_ = kNotTouched;  // of the forking thread, while its team sleeps after the region
  int64_t team_ = 1;
  uint64_t begin_, share_begin_ = 0, share_end_ = 0, waited_before_ = 0, waited_ = 0;
};

}  // namespace tev::blas
