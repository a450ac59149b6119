// SPDX-License-Identifier: BSD-3-Clause
// A line per case, one or more per set. Peers are numbered in the head; their columns are in that order.
#include "bench/level3/report.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tev::bench {

namespace {

std::string instruction_sets() {
  std::string all;
#define TEV_SET(name) \
  if (__builtin_cpu_supports(name)) all += std::string(all.empty() ? "" : " ") + name
  TEV_SET("sse2");
  TEV_SET("sse3");
  TEV_SET("ssse3");
  TEV_SET("sse4.2");
  TEV_SET("avx");
  TEV_SET("fma");
  TEV_SET("avx2");
  TEV_SET("avx512f");
  TEV_SET("avx512cd");
  TEV_SET("avx512dq");
  TEV_SET("avx512bw");
  TEV_SET("avx512vl");
#undef TEV_SET
  return all;
}

std::string columns_of(const level3_case& c) {
  char text[96];
  std::snprintf(text, sizeof text, "%-4s %5ld %5ld %6ld %5ld", c.letters.c_str(), c.m, c.n, c.k, c.ld);
  return text;
}

std::string words_of(const level3_case& c) {
  std::string words = c.letters + " " + std::to_string(c.m) + " x " + std::to_string(c.n);
  if (c.k > 0) words += " x " + std::to_string(c.k);
  if (c.ld > 0) words += " in " + std::to_string(c.ld);
  return words;
}

// What a set comes to: its mean and the case that is furthest behind.
struct summary {
  double mean = NAN, lowest = NAN;
  std::string lowest_case;
  size_t cases = 0;
};

// `value` gives a case's figure; a case without one does not count.
template <class Measured, class Value>
summary sum_up(const std::vector<Measured>& all, Value value) {
  summary s;
  double logs = 0;
  for (const Measured& m : all) {
    const double v = value(m);
    if (!std::isfinite(v)) continue;
    logs += std::log(v), ++s.cases;
    if (s.cases == 1 || v < s.lowest) s.lowest = v, s.lowest_case = words_of(m.what);
  }
  if (s.cases > 0) s.mean = std::exp(logs / static_cast<double>(s.cases));
  return s;
}

// The fastest of the peers that took part; 0 when none did.
size_t best_peer(const measured& m) {
  size_t best = 0;
  for (size_t i = 1; i < m.seconds.size(); ++i)
    if (std::isfinite(m.seconds[i]) && (best == 0 || m.seconds[i] < m.seconds[best])) best = i;
  return best;
}

double ratio_to_best(const measured& m) {
  const size_t best = best_peer(m);
  return best == 0 ? NAN : m.seconds[best] / m.seconds[0];
}

double part_of_own_product(const measured& m) { return m.flops / m.seconds[0] / m.own_product; }

void print_rate(double flops, double seconds) {
  if (std::isfinite(seconds))
    std::printf(" %8.2f", flops / seconds * 1e-9);
  else
    std::printf(" %8s", "-");
}

}  // namespace

report::report(const options& o, std::vector<std::string> contestants)
    : options_(o), contestants_(std::move(contestants)) {}

void report::head(double multiply_adds_per_core) const {
  std::printf("# %c%s, tier %s, %d thread(s), GFLOP/s\n", options_.precision, options_.op->name, options_.tier.c_str(),
              options_.threads);
  std::printf("# caches: L1d %ld KiB, L2 %ld KiB; instruction sets: %s\n", sysconf(_SC_LEVEL1_DCACHE_SIZE) / 1024,
              sysconf(_SC_LEVEL2_CACHE_SIZE) / 1024, instruction_sets().c_str());
  std::printf("# multiply-adds in registers: %.1f GFLOP/s per core\n# contestants:", multiply_adds_per_core * 1e-9);
  for (size_t i = 0; i < contestants_.size(); ++i)
    std::printf("%s %s (%zu)", i == 0 ? "" : ",", contestants_[i].c_str(), i);
  std::printf("\n# %-6s %-4s %5s %5s %6s %5s", "set", "", "m", "n", "k", "ld");
  if (options_.busy) {
    for (size_t i = 0; i < contestants_.size(); ++i)
      std::printf("   %9s     busy   time", ("quiet(" + std::to_string(i) + ")").c_str());
  } else {
    std::printf("     ours   peak spread%s", options_.self ? "  gemm" : "");
    for (size_t i = 1; i < contestants_.size(); ++i) std::printf("%9s", ("(" + std::to_string(i) + ")").c_str());
    std::printf("  ratio to the best peer");
  }
  std::printf("\n");
  std::fflush(stdout);
}

void report::line(const std::string& set, const measured& m) const {
  if (options_.summary) return;
  std::printf("%-8s %s", set.c_str(), columns_of(m.what).c_str());
  print_rate(m.flops, m.seconds[0]);
  std::printf(" %5.1f%% %5.1f%%", 100 * m.flops / m.seconds[0] / m.multiply_adds, 100 * m.spread);
  if (options_.self) std::printf(" %4.0f%%", 100 * part_of_own_product(m));
  for (size_t i = 1; i < m.seconds.size(); ++i) print_rate(m.flops, m.seconds[i]);
  if (const size_t best = best_peer(m)) std::printf("  %5.2f (%zu)", ratio_to_best(m), best);
  std::printf("\n");
  std::fflush(stdout);
}

void report::line(const std::string& set, const measured_busy& m) const {
  if (options_.summary) return;
  std::printf("%-8s %s", set.c_str(), columns_of(m.what).c_str());
  for (size_t i = 0; i < m.quiet.size(); ++i) {
    std::printf("   ");
    print_rate(m.flops, m.quiet[i]);
    print_rate(m.flops, m.busy[i]);
    std::printf(" %6.2f", m.busy[i] / m.quiet[i]);
  }
  std::printf("\n");
  std::fflush(stdout);
}

void report::end_of_set(const std::string& set, const std::vector<measured>& all) const {
  std::printf("%-10s %c%-5s %-6s:", options_.tier.c_str(), options_.precision, options_.op->name, set.c_str());
  const summary ratios = sum_up(all, ratio_to_best);
  if (ratios.cases > 0)
    std::printf(" geometric mean %.3f, lowest %.3f at %s, %zu cases", ratios.mean, ratios.lowest,
                ratios.lowest_case.c_str(), ratios.cases);
  else
    std::printf(" no peer");
  if (options_.self) {
    const summary parts = sum_up(all, part_of_own_product);
    std::printf("; of our gemm mean %.0f%%, lowest %.0f%% at %s", 100 * parts.mean, 100 * parts.lowest,
                parts.lowest_case.c_str());
  }
  std::printf("\n");
  std::fflush(stdout);
}

void report::end_of_set(const std::string& set, const std::vector<measured_busy>& all) const {
  for (size_t i = 0; i < contestants_.size(); ++i) {
    // The worst case is the lowest of the inverse.
    const summary s = sum_up(all, [i](const measured_busy& m) { return m.quiet[i] / m.busy[i]; });
    std::printf("%-10s %c%-5s %-6s: %s busy / quiet: geometric mean %.2f, worst %.2f at %s, %zu cases\n",
                options_.tier.c_str(), options_.precision, options_.op->name, set.c_str(), contestants_[i].c_str(),
                1 / s.mean, 1 / s.lowest, s.lowest_case.c_str(), s.cases);
  }
  std::fflush(stdout);
}

}  // namespace tev::bench
