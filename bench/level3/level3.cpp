// SPDX-License-Identifier: BSD-3-Clause
// The level-3 operations: ours beside OpenBLAS and BLIS, one operation, tier and precision at a time.
//
//   bench/level3 --op trsm --tier avx512 --precision d --set small,mid --threads 1 --rounds 9
//
// Every contestant runs in its own process (contest/contestant.h), the peers forced to the tier's instruction set
// and to the one below (bench/level3/peers.h); --peer NAME=PATH[:VARIABLE=VALUE,...] names others instead, older builds
// of ours included (level3_ours.so). With one thread ours is the entry point of the kernels, with more the front end.
//
// Samples are taken in turns, another one first in each round, and operands are set up in another order for each case:
// the first find what memory others have left, and its pages, apart as they are, take longer to walk. A figure is the
// median, its spread the median deviation from it. The peak is a loop of multiply-adds in registers, measured in the
// same turns. A case's ratio is ours over the fastest peer; a set's is the geometric mean. With one thread the time is
// that of the thread, so what else the machine does counts little; with more it is the clock's.
//
//   --summary   only what a set comes to
//   --self      ours also as a percentage of our own gemm of order 1000, which is measured before each set
//   --busy      with threads: each case is measured on the quiet machine, then beside a loop that occupies processor 1,
//               and shown as GFLOP/s quiet, busy and the ratio of the times
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "bench/level3/options.h"
#include "bench/level3/peers.h"
#include "bench/level3/report.h"
#include "bench/level3/size_sets.h"
#include "contest/contestant.h"
#include "contest/serving.h"

namespace {

using namespace tev::bench;

using contestants = std::vector<std::unique_ptr<contestant>>;

// Of the numbers among them.
double median(std::vector<double> v) {
  std::erase_if(v, [](double x) { return std::isnan(x); });
  if (v.empty()) return NAN;
  std::sort(v.begin(), v.end());
  return v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

double spread(const std::vector<double>& v) {
  const double middle = median(v);
  std::vector<double> away;
  for (double x : v) away.push_back(std::abs(x - middle) / middle);
  return median(away);
}

// A row of samples per contestant, empty for those that do not take part.
using samples = std::vector<std::vector<double>>;

std::vector<double> medians(const samples& s) {
  std::vector<double> all;
  for (const std::vector<double>& one : s) all.push_back(median(one));
  return all;
}

// Null for those that cannot do it.
std::vector<contestant*> prepare(const contestants& all, const level3_case& c, size_t first) {
  std::vector<contestant*> present(all.size());
  for (size_t turn = 0; turn < all.size(); ++turn) {
    const size_t i = (first + turn) % all.size();
    if (all[i]->prepare(c)) present[i] = all[i].get();
  }
  return present;
}

void take_turns(const std::vector<contestant*>& present, size_t first, samples& s) {
  for (size_t turn = 0; turn < present.size(); ++turn) {
    const size_t i = (first + turn) % present.size();
    if (present[i]) s[i].push_back(present[i]->sample());
  }
}

// Alone, without turns.
double rate_alone(contestant& one, int rounds, double flops) {
  std::vector<double> seconds;
  for (int round = 0; round < rounds; ++round) seconds.push_back(one.sample());
  return flops / median(seconds);
}

int rounds_of(const options& o, double flops) { return flops > 3e10 ? std::min(o.rounds, 3) : o.rounds; }

double rate_of_own_product(const options& o) {
  const level3_case c = {"NN", 1000, 1000, 1000, 0};
  const double flops = flops_of(*find_operation("gemm", o.precision), c, o.precision);
  const auto product = invite_own_product(o);
  return product->prepare(c) ? rate_alone(*product, o.rounds, flops) : NAN;
}

void run_set(const std::string& set, const options& o, const contestants& all, contestant& peak, const report& r) {
  const double own_product = o.self ? rate_of_own_product(o) : NAN;
  std::vector<measured> figures;
  size_t first = 0;
  for (const level3_case& c : cases_of(*o.op, o.precision, set)) {
    const std::vector<contestant*> present = prepare(all, c, first++);
    if (!present[0]) continue;
    const double flops = flops_of(*o.op, c, o.precision);
    samples times(all.size());
    std::vector<double> peaks;
    for (int round = 0; round < rounds_of(o, flops); ++round) {
      take_turns(present, first + static_cast<size_t>(round), times);
      peaks.push_back(peak.sample());
    }
    figures.push_back({c, flops, medians(times), spread(times[0]), o.threads / median(peaks), own_product});
    r.line(set, figures.back());
  }
  r.end_of_set(set, figures);
}

// A process that does nothing, on processor 1, while it is not told to rest.
class busy_loop {
 public:
  busy_loop() : pid_(fork()) {
    if (pid_ < 0) std::abort();
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      bind(0, 1);
      for (;;) __asm__ volatile("");
    }
    rest();
  }
  ~busy_loop() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  busy_loop(const busy_loop&) = delete;
  busy_loop& operator=(const busy_loop&) = delete;
  void rest() { kill(pid_, SIGSTOP); }
  void work() { kill(pid_, SIGCONT); }

 private:
  pid_t pid_;
};

void run_set_busy(const std::string& set, const options& o, const contestants& all, busy_loop& other, const report& r) {
  std::vector<measured_busy> figures;
  size_t first = 0;
  for (const level3_case& c : cases_of(*o.op, o.precision, set)) {
    const std::vector<contestant*> present = prepare(all, c, first++);
    const auto rounds = [&] {
      samples times(all.size());
      for (int round = 0; round < o.rounds; ++round) take_turns(present, first + static_cast<size_t>(round), times);
      return medians(times);
    };
    const std::vector<double> quiet = rounds();
    other.work();
    samples ignored(all.size());
    take_turns(present, first, ignored);  // a library may learn that it is not alone
    const std::vector<double> busy = rounds();
    other.rest();
    figures.push_back({c, flops_of(*o.op, c, o.precision), quiet, busy});
    r.line(set, figures.back());
  }
  r.end_of_set(set, figures);
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (!arguments.empty() && arguments[0] == "--serve") return serve({arguments.begin() + 1, arguments.end()});
  const options o = parse(arguments);
  std::signal(SIGPIPE, SIG_IGN);                // a library may end its process
  if (o.threads == 1) bind(0, sched_getcpu());  // one core for all, so that turns are turns
  const contestants all = invite(o);
  std::vector<std::string> names;
  for (const auto& one : all) names.push_back(one->name());
  const report r(o, names);
  contestant peak("peak", {"peak", o.tier, std::string(1, o.precision)}, {});
  r.head(rate_alone(peak, o.rounds, 1));
  if (o.busy) {
    busy_loop other;
    for (const std::string& set : o.sets) run_set_busy(set, o, all, other, r);
  } else {
    for (const std::string& set : o.sets) run_set(set, o, all, peak, r);
  }
  return 0;
}
