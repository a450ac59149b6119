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

// After so many times the last loss without another one all is as it was. The first is for a loss by itself: none had
// come within kForgotten times the one before.
constexpr uint64_t kSoonForgotten = 2, kForgotten = 16;

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

}  // namespace

bool crowding::sleeps() const { return load(loss_) > kWaking; }

int64_t crowding::team(int64_t threads, double work, uint64_t now) {
  forget_old(now);
  if (load(state_) == state::resting) {
    if (now < load(until_)) return std::min(threads, load(limit_));
    store(state_, state::trying);
  }
  return sleeps() && work < kWakingWork ? 1 : threads;
}

void crowding::report(int64_t team, const region_times& times, uint64_t now) {
  forget_old(now);
  const uint64_t alone = (times.share - std::min(times.waited, times.share)) * static_cast<uint64_t>(team);
  if (times.whole > alone + (sleeps() ? kWaking : kSlack)) return lost(team, times.whole - alone, now);
  const state before = load(state_);
  if (before == state::warned || (before == state::resting && team > load(limit_))) store(state_, state::trying);
}

void crowding::lost(int64_t team, uint64_t loss, uint64_t now) {
  const state before = load(state_);
  const uint64_t rest = load(rest_);
  const bool by_itself = now > load(again_);
  store(loss_, loss);
  store(forget_, now + (by_itself ? kSoonForgotten : kForgotten) * loss);
  store(again_, now + kForgotten * loss);
  if (before == state::quiet || (before == state::trying && rest < kLongestRest)) return store(state_, state::warned);
  if (before != state::resting) store(rest_, std::min(2 * rest, kLongestRest));
  store(until_, now + rest * loss);
  store(limit_, std::max<int64_t>(team / 2, 1));
  store(state_, state::resting);
}

void crowding::forget_old(uint64_t now) {
  if (load(state_) == state::quiet || now <= load(forget_)) return;
  store(loss_, uint64_t{0});
  store(rest_, kShortestRest);
  store(state_, state::quiet);
}

int64_t team_that_pays(int64_t threads, double work) {
  if (threads < 2 || here.current() == crowding::state::quiet) return threads;
  if (tev_serv_get_dynamic() == 0 || tev_serv_cbwr_get(1) != TEV_CBWR_OFF) return threads;
  return here.team(threads, work, ticks_now());
}

uint64_t ticks_now() { return __builtin_ia32_rdtsc(); }
uint64_t ticks_waited() { return waited; }
void add_ticks_waited(uint64_t ticks) { waited += ticks; }

region_watch::region_watch() : begin_(ticks_now()) {
  if (!here.sleeps()) return;
  usual_blocktime_ = kmp_get_blocktime();
  kmp_set_blocktime(0);
}

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
  const uint64_t end = ticks_now();
  if (usual_blocktime_ != kNotTouched) kmp_set_blocktime(usual_blocktime_);
  if (team_ > 1) here.report(team_, {end - begin_, share_end_ - share_begin_, waited_}, end);
}

}  // namespace tev::blas
