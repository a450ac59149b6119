// SPDX-License-Identifier: BSD-3-Clause
// Factorizations and solutions: ours beside OpenBLAS's own and reference LAPACK over OpenBLAS's BLAS.
//
//   bench/factorizations --op getrf --precision d --sizes 100,500,1000,2000,4000,8000 --threads 2 --rounds 9
//
// Operations: getrf, potrf (L), geqrf, gesv, posv (one right-hand side). --peer NAME=PATH adds a library, ours of
// another build (lib/libtev.so) or one with the standard names and 32-bit integers.
//
// Every contestant runs in its own process (contest/contestant.h). Samples are taken in turns; a figure is the
// median. With one thread the time is that of the thread, so what else the machine does counts little; with more it is
// the clock's. A small problem is computed many times, each on a copy of its own.
#include <sched.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "bench/factorizations/serving.h"
#include "contest/contestant.h"

namespace {

using namespace tev::bench;
using namespace tev::contest;

struct options {
  std::string op = "getrf", precision = "d", tier = "7";
  std::vector<int64_t> sizes = {100, 500, 1000, 2000, 4000};
  std::vector<std::string> peers;
  int threads = 1, rounds = 9;
};

[[noreturn]] void usage() {
  std::fputs(
      "factorizations [--op getrf|potrf|geqrf|gesv|posv] [--precision s|d|c|z] [--sizes N,N,...] [--threads N] "
      "[--rounds N]\n"
      "               [--type-code CODE] [--peer NAME=PATH]...\n",
      stderr);
  std::exit(2);
}

options parse(int argc, char** argv) {
  options o;
  for (int i = 1; i < argc; i += 2) {
    const std::string name = argv[i];
    if (i + 1 == argc) usage();
    const std::string value = argv[i + 1];
    if (name == "--op" && is_factorization(value))
      o.op = value;
    else if (name == "--precision" && value.size() == 1 && std::string("sdcz").find(value) != std::string::npos)
      o.precision = value;
    else if (name == "--threads")
      o.threads = std::max(1, std::atoi(value.c_str()));
    else if (name == "--rounds")
      o.rounds = std::max(1, std::atoi(value.c_str()));
    else if (name == "--type-code")
      o.tier = value;
    else if (name == "--peer" && value.find('=') != std::string::npos)
      o.peers.push_back(value);
    else if (name == "--sizes") {
      o.sizes.clear();
      for (size_t at = 0; at < value.size(); at = value.find_first_of(',', at) + 1) {
        o.sizes.push_back(std::max(1L, std::atol(value.c_str() + at)));
        if (value.find(',', at) == std::string::npos) break;
      }
    } else {
      usage();
    }
  }
  return o;
}

using contestants = std::vector<std::unique_ptr<contestant>>;

contestants invite(const options& o) {
  contestants all;
  const auto add = [&](const std::string& name, const std::string& path, environment variables) {
    for (const char* variable : {"OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS", "TEV_NUM_THREADS"})
      variables.emplace_back(variable, std::to_string(o.threads));
    variables.emplace_back("TEV_DEBUG_CPU_TYPE", o.tier);
    variables.emplace_back("OPENBLAS_CORETYPE", o.tier == "7" ? "SkylakeX" : "Haswell");
    std::vector<std::string> arguments = {path, o.op, o.precision};
    if (o.threads > 1) arguments.push_back("threaded");
    auto one = std::make_unique<contestant>(name, arguments, variables);
    if (one->is_ready()) all.push_back(std::move(one));
  };
  const std::string libraries = "/usr/lib/x86_64-linux-gnu/";
  std::string openblas = libraries + "openblas-openmp";
  if (!std::filesystem::exists(openblas)) openblas = libraries + "openblas-pthread";
  add("ours", TEV_OURS, {});
  if (all.empty()) std::exit(1);
  add("OpenBLAS", openblas + "/libopenblas.so.0", {});
  add("reference", libraries + "lapack/liblapack.so.3", {{"LD_LIBRARY_PATH", openblas}});
  for (const std::string& peer : o.peers) add(peer.substr(0, peer.find('=')), peer.substr(peer.find('=') + 1), {});
  return all;
}

double median(std::vector<double> v) {
  std::erase_if(v, [](double x) { return std::isnan(x); });
  if (v.empty()) return NAN;
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

void measure(const options& o, const contestants& all, int64_t n) {
  std::vector<contestant*> present;
  for (const auto& one : all) present.push_back(one->prepare("case " + std::to_string(n)) ? one.get() : nullptr);
  std::vector<std::vector<double>> seconds(all.size());
  const double flops = flops_of(o.op, o.precision[0], n);
  const int rounds = flops > 3e10 ? std::min(o.rounds, 5) : o.rounds;
  for (int round = 0; round < rounds; ++round)
    for (size_t i = 0; i < all.size(); ++i)
      if (present[i]) seconds[i].push_back(present[i]->sample());
  std::printf("%6ld", n);
  double best = INFINITY;
  for (size_t i = 0; i < all.size(); ++i) {
    const double middle = median(seconds[i]);
    std::printf("  %12.2f", flops / middle * 1e-9);
    if (i > 0 && middle < best) best = middle;
  }
  std::printf("  %9.2f  %12.1f\n", best / median(seconds[0]), median(seconds[0]) * 1e6);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && argv[1] == std::string("--serve")) return serve_factorization({argv + 2, argv + argc});
  const options o = parse(argc, argv);
  std::signal(SIGPIPE, SIG_IGN);  // a library may end its process
  if (o.threads == 1) {           // one core for all, so that turns are turns
    cpu_set_t own;
    CPU_ZERO(&own);
    CPU_SET(sched_getcpu(), &own);
    sched_setaffinity(0, sizeof own, &own);
  }
  const contestants all = invite(o);
  std::printf("# %s%s, %d threads, GFLOP/s; ratio: ours over the best other; microseconds of ours\n%6s",
              o.precision.c_str(), o.op.c_str(), o.threads, "n");
  for (const auto& one : all) std::printf("  %12s", one->name().c_str());
  std::printf("  %9s  %12s\n", "ratio", "us");
  for (const int64_t n : o.sizes) measure(o, all, n);
  return 0;
}
