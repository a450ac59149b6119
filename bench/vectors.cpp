// SPDX-License-Identifier: BSD-3-Clause
// Level 1 and 2: a tier's kernels beside OpenBLAS and BLIS, which are loaded at run time.
//
//   bench/vectors [--tier avx512] [--precision d] [--threads 1] [--rounds 31] [--summary]
//
// Vectors of 10 to 10^6 elements, square matrices of order 16 to 2048. Every library works on the same operands in
// turn, some tens of microseconds at a time; a figure is the best of all turns, in processor time of the thread, given
// as GB/s of the operands that must move (axpy 3 vectors; copy, scal 2; gemv the matrix; ger the matrix twice). The
// ratio is ours over the faster peer, at the end its geometric mean per routine.
//
// With more threads the public routines meet the peers' threaded builds: vectors of 10^3 to 10^7 elements, matrices of
// order 64 to 8192, time of the clock. Between turns is a pause, in which the threads of the last one fall asleep.
#include <dlfcn.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "kernels/routine_types.h"
#include "tev/blas.h"
#include "tev/service.h"

#define TEV_EACH_TIER(row) row(def) row(cnr_def) row(mc) row(mc3) row(avx) row(avx2) row(avx512) row(avx512_zel)
#define TEV_DECLARE_PRECISION(tier, p, type, ger_name)                        \
  extern "C" tev::kernels::axpy_fn<type> tev_blas_##tier##_x##p##axpy;        \
  extern "C" tev::kernels::copy_vector_fn<type> tev_blas_##tier##_x##p##copy; \
  extern "C" tev::kernels::scal_fn<type> tev_blas_##tier##_x##p##scal;        \
  extern "C" tev::kernels::gemv_fn<type> tev_blas_##tier##_x##p##gemv;        \
  extern "C" tev::kernels::ger_fn<type> tev_blas_##tier##_x##p##ger_name;
#define TEV_DECLARE(tier)                            \
  TEV_DECLARE_PRECISION(tier, s, float, ger)         \
  TEV_DECLARE_PRECISION(tier, d, double, ger)        \
  TEV_DECLARE_PRECISION(tier, c, tev_complex8, geru) \
  TEV_DECLARE_PRECISION(tier, z, tev_complex16, geru)
TEV_EACH_TIER(TEV_DECLARE)

namespace {

enum routine { kAxpy, kCopy, kScal, kGemv, kGer, kRoutines };

struct library {
  std::string name;
  bool wide;  // integers of 64 bits
  std::array<void*, kRoutines> at;
};

#define TEV_ADDRESS(name) reinterpret_cast<void*>(name)
#define TEV_LIBRARY(tier, p, ger_name)                                                             \
  if (name == #tier && precision == #p)                                                            \
    return {name,                                                                                  \
            true,                                                                                  \
            {TEV_ADDRESS(tev_blas_##tier##_x##p##axpy), TEV_ADDRESS(tev_blas_##tier##_x##p##copy), \
             TEV_ADDRESS(tev_blas_##tier##_x##p##scal), TEV_ADDRESS(tev_blas_##tier##_x##p##gemv), \
             TEV_ADDRESS(tev_blas_##tier##_x##p##ger_name)}};
#define TEV_TIER_LIBRARIES(tier) \
  TEV_LIBRARY(tier, s, ger) TEV_LIBRARY(tier, d, ger) TEV_LIBRARY(tier, c, geru) TEV_LIBRARY(tier, z, geru)

#define TEV_PUBLIC(p, ger_name)                                                                                 \
  if (precision == #p)                                                                                          \
    return {"ours",                                                                                             \
            true,                                                                                               \
            {TEV_ADDRESS(tev_blas_##p##axpy), TEV_ADDRESS(tev_blas_##p##copy), TEV_ADDRESS(tev_blas_##p##scal), \
             TEV_ADDRESS(tev_blas_##p##gemv), TEV_ADDRESS(tev_blas_##p##ger_name)}};

library own(const std::string& name, const std::string& precision, bool threaded) {
  if (threaded) {
    TEV_PUBLIC(s, ger) TEV_PUBLIC(d, ger) TEV_PUBLIC(c, geru) TEV_PUBLIC(z, geru)
  }
  TEV_EACH_TIER(TEV_TIER_LIBRARIES)
  std::fprintf(stderr, "vectors: no tier %s in precision %s\n", name.c_str(), precision.c_str());
  std::exit(2);
}

// Nothing when it is not installed.
void load_peer(const char* name, const std::string& path, const std::string& p, std::vector<library>& to) {
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) return;
  const bool complex = p == "c" || p == "z";
  library peer = {name, false, {}};
  const char* const stems[] = {"axpy_", "copy_", "scal_", "gemv_", complex ? "geru_" : "ger_"};
  for (int r = 0; r < kRoutines; ++r) peer.at[r] = dlsym(handle, (p + stems[r]).c_str());
  to.push_back(peer);
}

// What the libraries read when they are first called: OpenBLAS, BLIS (which knows its architectures by number: 0 skx,
// 3 haswell, 4 sandybridge, 5 penryn), and ours.
void choose_kernels(const std::string& tier, int threads) {
  const std::map<std::string, std::array<const char*, 3>> names = {
      {"def", {"Prescott", "5", "0"}},    {"cnr_def", {"Prescott", "5", "0"}},   {"mc", {"Core2", "5", "2"}},
      {"mc3", {"Nehalem", "5", "3"}},     {"avx", {"Sandybridge", "4", "4"}},    {"avx2", {"Haswell", "3", "5"}},
      {"avx512", {"SkylakeX", "0", "7"}}, {"avx512_zel", {"SkylakeX", "0", "6"}}};
  setenv("OPENBLAS_CORETYPE", names.at(tier)[0], 1);
  setenv("BLIS_ARCH_TYPE", names.at(tier)[1], 1);
  setenv("TEV_DEBUG_CPU_TYPE", names.at(tier)[2], 1);
  for (const char* variable : {"OPENBLAS_NUM_THREADS", "BLIS_NUM_THREADS", "OMP_NUM_THREADS", "TEV_NUM_THREADS"})
    setenv(variable, std::to_string(threads).c_str(), 1);
}

// One timed call; sizes and increments by the library's width.
struct call {
  routine what;
  char trans;
  int64_t n;  // length, or order
  const void* alpha;
  void *a, *x, *y;
};

template <class Int>
void perform(const library& l, const call& c) {
  const Int n = static_cast<Int>(c.n), one = 1;
  void* const f = l.at[c.what];
  switch (c.what) {
    case kAxpy:
      return reinterpret_cast<void (*)(const Int*, const void*, void*, const Int*, void*, const Int*)>(f)(
          &n, c.alpha, c.x, &one, c.y, &one);
    case kCopy:
      return reinterpret_cast<void (*)(const Int*, void*, const Int*, void*, const Int*)>(f)(&n, c.x, &one, c.y, &one);
    case kScal:
      return reinterpret_cast<void (*)(const Int*, const void*, void*, const Int*)>(f)(&n, c.alpha, c.x, &one);
    case kGemv:
      return reinterpret_cast<void (*)(const char*, const Int*, const Int*, const void*, void*, const Int*, void*,
                                       const Int*, const void*, void*, const Int*)>(f)(
          &c.trans, &n, &n, c.alpha, c.a, &n, c.x, &one, c.alpha, c.y, &one);
    default:
      return reinterpret_cast<void (*)(const Int*, const Int*, const void*, void*, const Int*, void*, const Int*, void*,
                                       const Int*)>(f)(&n, &n, c.alpha, c.x, &one, c.y, &one, c.a, &n);
  }
}

double now(bool threaded) {
  timespec t;
  clock_gettime(threaded ? CLOCK_MONOTONIC : CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

double seconds_per_call(const library& l, const call& c, int repetitions, bool threaded) {
  const double begin = now(threaded);
  for (int i = 0; i < repetitions; ++i) l.wide ? perform<int64_t>(l, c) : perform<int32_t>(l, c);
  return (now(threaded) - begin) / repetitions;
}

std::vector<double> best_times(const std::vector<library>& libraries, const call& c, int rounds, bool threaded) {
  constexpr int kPauseMicroseconds = 30000;
  std::vector<double> best;
  for (const library& l : libraries) best.push_back(seconds_per_call(l, c, 2, threaded));
  const int repetitions = static_cast<int>(std::clamp(5e-5 / best[0], 1.0, 2000.0));
  for (int round = 0; round < rounds; ++round)
    for (size_t i = 0; i < libraries.size(); ++i) {
      if (threaded) {
        usleep(kPauseMicroseconds);
        seconds_per_call(libraries[i], c, 1, threaded);
      }
      best[i] = std::min(best[i], seconds_per_call(libraries[i], c, repetitions, threaded));
    }
  return best;
}

}  // namespace

int main(int argc, char** argv) {
  std::string tier = "avx512", precision = "d";
  int rounds = 0, threads = 1;
  bool summary = false;
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--summary") {
      summary = true;
    } else if (i + 1 < argc && option == "--tier") {
      tier = argv[++i];
    } else if (i + 1 < argc && option == "--precision") {
      precision = argv[++i];
    } else if (i + 1 < argc && option == "--threads") {
      threads = std::atoi(argv[++i]);
    } else if (i + 1 < argc && option == "--rounds") {
      rounds = std::atoi(argv[++i]);
    } else {
      std::fprintf(stderr, "usage: vectors [--tier T] [--precision s|d|c|z] [--threads N] [--rounds N] [--summary]\n");
      return 2;
    }
  }
  const bool threaded = threads > 1;
  if (rounds < 1) rounds = threaded ? 7 : 31;
  std::vector<library> libraries = {own(tier, precision, threaded)};
  choose_kernels(tier, threads);
  tev_serv_trust_features(1);  // gemv takes a team only on processors that detection knows or a program vouches for
  const std::string folder = "/usr/lib/x86_64-linux-gnu/", flavour = threaded ? "pthread" : "serial";
  load_peer("OpenBLAS", folder + "openblas-" + flavour + "/libopenblas.so.0", precision, libraries);
  load_peer("BLIS", folder + "blis-" + flavour + "/libblis.so.4", precision, libraries);
  if (libraries.size() < 3)
    std::fprintf(stderr, "vectors: a peer is missing (packages libopenblas0-%s, libblis4-%s)\n", flavour.c_str(),
                 flavour.c_str());

  using sizes = std::vector<int64_t>;
  const sizes lengths = threaded ? sizes{1000, 10000, 30000, 100000, 1000000, 10000000}
                                 : sizes{10, 30, 100, 300, 1000, 3000, 10000, 100000, 1000000};
  const sizes orders =
      threaded ? sizes{64, 128, 256, 512, 1000, 2000, 4000, 8192} : sizes{16, 64, 100, 128, 256, 500, 1024, 2048};

  const bool single = precision == "s" || precision == "c", complex = precision == "c" || precision == "z";
  const double element = (single ? 4 : 8) * (complex ? 2 : 1);
  // Small operands and scalars of modulus 1: repeated calls neither overflow nor reach denormal numbers.
  const std::array<double, 2> unit = {complex ? 0.0 : -1.0, 1.0};
  const std::array<float, 2> single_unit = {complex ? 0.0f : -1.0f, 1.0f};
  std::vector<std::vector<double>> storage;
  const auto most = [&](int64_t elements) { return static_cast<size_t>(elements) * static_cast<size_t>(element); };
  for (const size_t bytes : {most(orders.back() * orders.back()), most(lengths.back()), most(lengths.back())}) {
    std::vector<double>& operand = storage.emplace_back(bytes / sizeof(double), 1e-3);
    if (single) std::fill_n(reinterpret_cast<float*>(operand.data()), bytes / sizeof(float), 1e-3f);
  }
  const auto run = [&](const char* name, routine what, char trans, const sizes& all, double traffic) {
    double logs = 0;
    for (const int64_t n : all) {
      const call c = {what,
                      trans,
                      n,
                      single ? static_cast<const void*>(single_unit.data()) : unit.data(),
                      storage[0].data(),
                      storage[1].data(),
                      storage[2].data()};
      const std::vector<double> t = best_times(libraries, c, rounds, threaded);
      const double bytes = traffic * element * static_cast<double>(what >= kGemv ? n * n : n);
      const double peer = *std::min_element(t.begin() + (t.size() > 1), t.end());
      logs += std::log(peer / t[0]);
      if (summary) continue;
      std::printf("%-8s%8ld", name, n);
      for (const double seconds : t) std::printf("%10.1f", bytes / seconds * 1e-9);
      std::printf("%8.2f\n", peer / t[0]);
      std::fflush(stdout);
    }
    std::printf("%-8s    mean%38.2f\n", name, std::exp(logs / static_cast<double>(all.size())));
  };
  std::printf("# %s, precision %s, threads %d, GB/s\n#           n      ours", tier.c_str(), precision.c_str(),
              threads);
  for (size_t i = 1; i < libraries.size(); ++i) std::printf("%10s", libraries[i].name.c_str());
  std::printf("   ratio\n");
  run("axpy", kAxpy, 0, lengths, 3);
  run("copy", kCopy, 0, lengths, 2);
  run("scal", kScal, 0, lengths, 2);
  run("gemv N", kGemv, 'N', orders, 1);
  run("gemv T", kGemv, 'T', orders, 1);
  run("ger", kGer, 0, orders, 2);
}
