// SPDX-License-Identifier: BSD-3-Clause
#include "blas_threading/team/crowding.h"

#include <omp.h>

#include <algorithm>

#include "tev/service.h"

namespace tev::blas {

namespace {

// What an interrupt or a cache that has gone cold may cost without saying anything about the machine: 2 us.
constexpr uint64_t kSlack = 5000;

// What it may take to wake a team that sleeps: 100 us. Only losses that are longer send it to sleep.
constexpr uint64_t kWaking = 250'000;

// How many times as long as a loss the smaller team stays.
constexpr uint64_t kShortestRest = 1, kLongestRest = 8;

// After so many times the last loss without another one all is as it was.
constexpr uint64_t kForgotten = 16;

template <class Word>
Word load(const Word& word) {
  return __atomic_load_n(&word, __ATOMIC_RELAXED);
}
template <class Word>
void store(Word& word, Word value) {
  __atomic_store_n(&word, value, __ATOMIC_RELAXED);
}

constinit crowding here;
constinit thread_local uint64_t waited = 0;

// How long the threads of the calling thread's teams spin after a region before they sleep: on a crowded machine, not
// at all. They would use up the turns that they need for their work, and those of the calling thread.
void let_team_spin(bool allowed) {
  constexpr int kAsEver = -1;
  constinit thread_local static int usual = kAsEver;
  if (allowed == (usual == kAsEver)) return;
  if (allowed) {
    kmp_set_blocktime(usual);
    usual = kAsEver;
  } else {
    usual = kmp_get_blocktime();
    kmp_set_blocktime(0);
  }
}

}  // namespace

bool crowding::sleeps() const { return load(loss_) > kWaking; }

int64_t crowding::team(int64_t threads, uint64_t now) {
  const int64_t limit = load(limit_);
  if (limit == 0) return threads;
  if (now < load(until_)) return std::min(threads, limit);
  store(lost_before_, false);
  store(limit_, int64_t{0});
  return threads;
}

void crowding::halve(int64_t team, uint64_t until) {
  store(until_, until);
  store(limit_, std::max<int64_t>(team / 2, 1));
}

void crowding::report(int64_t team, const region_times& times, uint64_t now) {
  const uint64_t alone = (times.share - std::min(times.waited, times.share)) * static_cast<uint64_t>(team);
  if (times.whole > alone + (sleeps() ? kWaking : kSlack)) return lost(team, times.whole - alone, now);
  if (load(loss_) == 0 || load(limit_) != 0) return;
  store(lost_before_, false);
  const uint64_t remembered = load(lost_at_) + kForgotten * load(loss_);
  if (now > remembered) {
    store(loss_, uint64_t{0});
    store(rest_, kShortestRest);
  } else if (times.whole > alone + kSlack) {  // not worth waking the team for
    halve(team, remembered);
  }
}

void crowding::lost(int64_t team, uint64_t loss, uint64_t now) {
  const uint64_t rest = load(rest_);
  store(loss_, loss);
  store(lost_at_, now);
  if (!load(lost_before_) && rest < kLongestRest) return store(lost_before_, true);
  if (load(limit_) == 0) store(rest_, std::min(2 * rest, kLongestRest));
  halve(team, now + rest * loss);
}

int64_t team_that_pays(int64_t threads) {
  if (threads < 2 || !here.limits_teams()) return threads;
  if (tev_serv_get_dynamic() == 0 || tev_serv_cbwr_get(1) != TEV_CBWR_OFF) return threads;
  return here.team(threads, ticks_now());
}

uint64_t ticks_now() { return __builtin_ia32_rdtsc(); }
uint64_t ticks_waited() { return waited; }
void add_ticks_waited(uint64_t ticks) { waited += ticks; }

void region_watch::share_begins(int64_t team) {
  team_ = team;
  waited_before_ = ticks_waited();
  share_begin_ = ticks_now();
}

void region_watch::share_ends() {
  share_end_ = ticks_now();
  waited_ = ticks_waited() - waited_before_;
}

region_watch::~region_watch() {
  if (team_ < 2) return;
  const uint64_t end = ticks_now();
  here.report(team_, {end - begin_, share_end_ - share_begin_, waited_}, end);
  let_team_spin(!here.sleeps());
}

}  // namespace tev::blas
