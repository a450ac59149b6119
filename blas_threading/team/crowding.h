// SPDX-License-Identifier: BSD-3-Clause
// Teams on a machine whose processors have other work too. A thread of the team that waits for its turn on a processor
// holds up all others, for milliseconds at each meeting: a product of microseconds on two threads then takes a thousand
// times as long as on one. So every region is timed. When two in a row have taken longer than the caller alone would
// have, later calls get half the threads for as long as was lost; then the full team is tried again. Every trial that
// fails in the same way doubles the rest, up to eight times the loss, and from then on one lost region ends a trial.
// After sixteen times a loss without another one all that is forgotten:
//
//   region   lost  lost    alone   lost  lost       alone        lost      alone      paid  paid
//          |-----|-----|---------|-----|-----|-------- ... ----|-----|---- ... ----|----|----|
//
// Threads that spin between regions use up their turns on a processor. So from a loss on that is longer than waking up
// takes until it is forgotten the team sleeps between its regions: the OpenMP block time of the forking thread is zero,
// for the program's own regions, too. Regions that are too short to wake a team for are left to half the threads.
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

// Team sizes that pay at present. Any thread may ask and report; what they overwrite of each other is advice.
class crowding {
 public:
  bool limits_teams() const { return __atomic_load_n(&limit_, __ATOMIC_RELAXED) != 0; }
  // Teams should sleep between their regions.
  bool sleeps() const;
  // At most `threads`, at least 1.
  int64_t team(int64_t threads, uint64_t now);
  void report(int64_t team, const region_times& times, uint64_t now);

 private:
  void lost(int64_t team, uint64_t loss, uint64_t now);
  void halve(int64_t team, uint64_t until);

  int64_t limit_ = 0;         // 0: none
  uint64_t until_ = 0;        // when the limit ends
  uint64_t rest_ = 1;         // length of the next limit, in losses
  uint64_t loss_ = 0;         // the last one; 0: forgotten
  uint64_t lost_at_ = 0;      // when that was
  bool lost_before_ = false;  // the last region, too
};

// The process's own.
int64_t team_that_pays(int64_t threads);

// Time that the calling thread has spent in waits for its team so far. Every wait adds itself.
uint64_t ticks_waited();
void add_ticks_waited(uint64_t ticks);
uint64_t ticks_now();

// One region: made before the fork by the thread that forks, and destroyed by it after the join.
class region_watch {
 public:
  region_watch() : begin_(ticks_now()) {}
  ~region_watch();
  region_watch(const region_watch&) = delete;
  region_watch& operator=(const region_watch&) = delete;

  // On the forking thread, around its share.
  void share_begins(int64_t team);
  void share_ends();

 private:
  int64_t team_ = 1;
  uint64_t begin_, share_begin_ = 0, share_end_ = 0, waited_before_ = 0, waited_ = 0;
};

}  // namespace tev::blas
