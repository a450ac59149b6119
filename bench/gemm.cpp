// SPDX-License-Identifier: BSD-3-Clause
// Matrix products: ours beside OpenBLAS and BLIS, one tier and precision at a time.
//
//   bench/gemm [--tier avx512] [--precision d] [--sets small,mid,...] [--threads 1] [--rounds 9] [--summary] [--busy]
//
// Every contestant runs in its own process (bench/contestant.h), the peers forced to the tier's instruction set and to
// the one below. Samples are taken in turns; a figure is the median, its spread the median deviation from it. The peak
// is a loop of multiply-adds in registers, measured in the same turns. A case's ratio is ours over the fastest peer; a
// set's is the geometric mean. With one thread the time is that of the thread, so what else the machine does counts
// little; with more it is the clock's. --busy is for those: each case is measured on the quiet machine, then beside a
// loop that occupies processor 1, and shown as GFLOP/s quiet, busy and the ratio of the times.
#include <dlfcn.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <sstream>

#include "bench/contestant.h"
#include "bench/multiply_add_peak.h"
#include "kernels/routine_types.h"
#include "tev/blas.h"

#define TEV_TIER_ROWS(row) row(def) row(cnr_def) row(mc) row(mc3) row(avx) row(avx2) row(avx512) row(avx512_zel)
#define TEV_DECLARE(tier)                                                  \
  extern "C" tev::kernels::gemm_fn<float> tev_blas_##tier##_xsgemm;        \
  extern "C" tev::kernels::gemm_fn<double> tev_blas_##tier##_xdgemm;       \
  extern "C" tev::kernels::gemm_fn<tev_complex8> tev_blas_##tier##_xcgemm; \
  extern "C" tev::kernels::gemm_fn<tev_complex16> tev_blas_##tier##_xzgemm;
TEV_TIER_ROWS(TEV_DECLARE)

namespace {

using tev::bench::contestant;
using tev::bench::gemm_case;

// ---- The serving side: one library, one process ---------------------------------------------------------------------

double now(bool threaded) {
  timespec t;
  clock_gettime(threaded ? CLOCK_MONOTONIC : CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

template <class T>
T* operand(int64_t elements, uint64_t seed) {
  using real = decltype(std::abs(T{}));
  T* x = static_cast<T*>(std::aligned_alloc(4096, (static_cast<size_t>(elements) * sizeof(T) + 4095) / 4096 * 4096));
  uint64_t state = 0x9E3779B97F4A7C15u * seed;
  real* parts = reinterpret_cast<real*>(x);
  for (int64_t i = 0; i < elements * static_cast<int64_t>(sizeof(T) / sizeof(real)); ++i) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    parts[i] = static_cast<real>(static_cast<double>(state >> 40) / (1 << 23) - 1.0);
  }
  return x;
}

// One library's product with everything by value.
template <class T>
using product = std::function<void(const gemm_case&, const T* a, const T* b, T* c)>;

template <class T, class Int>
using by_address = void(const char*, const char*, const Int*, const Int*, const Int*, const T*, const T*, const Int*,
                        const T*, const Int*, const T*, T*, const Int*);

template <class T, class Int>
product<T> through(void* function) {
  return [function](const gemm_case& g, const T* a, const T* b, T* c) {
    const Int m = static_cast<Int>(g.m), n = static_cast<Int>(g.n), k = static_cast<Int>(g.k);
    const Int lda = static_cast<Int>(g.lda), ldb = static_cast<Int>(g.ldb), ldc = static_cast<Int>(g.ldc);
    const T one(1), zero(0);
    reinterpret_cast<by_address<T, Int>*>(function)(&g.transa, &g.transb, &m, &n, &k, &one, a, &lda, b, &ldb, &zero, c,
                                                    &ldc);
  };
}

// A few elements against plain sums.
template <class T>
bool looks_right(const gemm_case& g, const T* a, const T* b, const T* c) {
  using real = decltype(std::abs(T{}));
  using wide = std::conditional_t<std::is_same_v<T, real>, double, std::complex<double>>;
  for (int64_t probe = 0; probe < 8; ++probe) {
    const int64_t i = probe * 7919 % g.m, j = probe * 104729 % g.n;
    wide sum = 0;
    double moduli = 0;
    for (int64_t p = 0; p < g.k; ++p) {
      const wide term = wide(g.transa == 'N' ? a[i + p * g.lda] : a[p + i * g.lda]) *
                        wide(g.transb == 'N' ? b[p + j * g.ldb] : b[j + p * g.ldb]);
      sum += term;
      moduli += std::abs(term);
    }
    const double bound =
        4.0 * static_cast<double>(g.k + 8) * static_cast<double>(std::numeric_limits<real>::epsilon()) * moduli;
    if (!(std::abs(wide(c[i + j * g.ldc]) - sum) <= bound)) return false;
  }
  return true;
}

// 0 is the calling thread.
void bind(int thread, int processor) {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(processor, &one);
  sched_setaffinity(thread, sizeof one, &one);
}

// A team that has just been resumed may find itself on one processor, and stay there: its threads start apart. A
// library that makes its threads anew in each call has none to move.
constexpr double kSettling = 0.03;
template <class Body>
void settle(const Body& body) {
  std::vector<int> threads, processors;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task"))
    threads.push_back(std::stoi(thread.path().filename()));
  cpu_set_t allowed;
  sched_getaffinity(0, sizeof allowed, &allowed);
  for (int i = 0; i < CPU_SETSIZE; ++i)
    if (CPU_ISSET(i, &allowed)) processors.push_back(i);
  if (threads.size() > 1) {
    for (size_t i = 0; i < threads.size(); ++i) bind(threads[i], processors[i % processors.size()]);
    body();
    for (int thread : threads) sched_setaffinity(thread, sizeof allowed, &allowed);
  }
  for (const double resumed = now(true); now(true) - resumed < kSettling;) body();
}

// Answers "case ..." and "run" until the parent closes the pipe. A team that slept is awake before it is timed.
template <class T>
int serve(const product<T>& run, bool threaded) {
  std::unique_ptr<T, decltype(&std::free)> a(nullptr, std::free), b(nullptr, std::free), c(nullptr, std::free);
  gemm_case g = {};
  int64_t count = 1;
  char line[256];
  while (std::fgets(line, sizeof line, stdin)) {
    if (std::sscanf(line, "case %c %c %ld %ld %ld %ld %ld %ld", &g.transa, &g.transb, &g.m, &g.n, &g.k, &g.lda, &g.ldb,
                    &g.ldc) == 8) {
      g.lda = std::max(g.lda, g.transa == 'N' ? g.m : g.k);
      g.ldb = std::max(g.ldb, g.transb == 'N' ? g.k : g.n);
      g.ldc = std::max(g.ldc, g.m);
      a.reset(operand<T>(g.lda * (g.transa == 'N' ? g.k : g.m), 1));
      b.reset(operand<T>(g.ldb * (g.transb == 'N' ? g.n : g.k), 2));
      c.reset(operand<T>(g.ldc * g.n, 3));
      run(g, a.get(), b.get(), c.get());
      std::puts(looks_right(g, a.get(), b.get(), c.get()) ? "ok" : "wrong result");
      const double begin = now(threaded);
      for (count = 0; now(threaded) - begin < (threaded ? 1e-2 : 1e-3); ++count) run(g, a.get(), b.get(), c.get());
    } else {
      if (threaded) settle([&] { run(g, a.get(), b.get(), c.get()); });
      const double begin = now(threaded);
      for (int64_t i = 0; i < count; ++i) run(g, a.get(), b.get(), c.get());
      std::printf("%.9e\n", (now(threaded) - begin) / static_cast<double>(count));
    }
    std::fflush(stdout);
  }
  return 0;
}

// The peak answers "run" with seconds per floating-point operation.
int serve_peak(const std::string& tier, bool single) {
  char line[256];
  while (std::fgets(line, sizeof line, stdin)) {
    if (std::strncmp(line, "case", 4) == 0) {
      std::puts("ok");
    } else {
      const double begin = now(false);
      const double flops = tev::bench::spend_multiply_adds(tier, single, 200000);
      std::printf("%.9e\n", (now(false) - begin) / flops);
    }
    std::fflush(stdout);
  }
  return 0;
}

template <class T>
struct own_entries;
#define TEV_OWN(T, p)                                     \
  template <>                                             \
  struct own_entries<T> {                                 \
    static void* find(const std::string& tier) {          \
      TEV_TIER_ROWS(TEV_FIND_##p)                         \
      return reinterpret_cast<void*>(tev_blas_##p##gemm); \
    }                                                     \
  };
#define TEV_FIND_s(tier_) \
  if (tier == #tier_) return reinterpret_cast<void*>(tev_blas_##tier_##_xsgemm);
#define TEV_FIND_d(tier_) \
  if (tier == #tier_) return reinterpret_cast<void*>(tev_blas_##tier_##_xdgemm);
#define TEV_FIND_c(tier_) \
  if (tier == #tier_) return reinterpret_cast<void*>(tev_blas_##tier_##_xcgemm);
#define TEV_FIND_z(tier_) \
  if (tier == #tier_) return reinterpret_cast<void*>(tev_blas_##tier_##_xzgemm);
TEV_OWN(float, s)
TEV_OWN(double, d)
TEV_OWN(std::complex<float>, c)
TEV_OWN(std::complex<double>, z)

// --serve own TIER|threaded P    --serve peer LIBRARY P    --serve peak TIER P; a last "threaded" takes the clock's
// time
template <class T>
int serve_library(const std::string& kind, const std::string& what, char precision, bool threaded) {
  if (kind == "own") return serve<T>(through<T, int64_t>(own_entries<T>::find(what)), threaded);
  void* library = dlopen(what.c_str(), RTLD_NOW | RTLD_LOCAL);
  void* function = library ? dlsym(library, (std::string(1, precision) + "gemm_").c_str()) : nullptr;
  if (!function) {
    std::printf("%s\n", dlerror());
    return 1;
  }
  return serve<T>(through<T, int32_t>(function), threaded);
}

int serve_as(const std::vector<std::string>& arguments) {
  const char precision = arguments[2][0];
  const bool threaded = arguments.size() > 3;
  if (arguments[0] == "peak") return serve_peak(arguments[1], precision == 's' || precision == 'c');
  switch (precision) {
    case 's':
      return serve_library<float>(arguments[0], arguments[1], precision, threaded);
    case 'd':
      return serve_library<double>(arguments[0], arguments[1], precision, threaded);
    case 'c':
      return serve_library<std::complex<float>>(arguments[0], arguments[1], precision, threaded);
    default:
      return serve_library<std::complex<double>>(arguments[0], arguments[1], precision, threaded);
  }
}

// ---- The asking side ------------------------------------------------------------------------------------------------

struct options {
  std::string tier = "avx512", precision = "d", sets = "small,mid,skinny,deepk,lu,badld,large";
  int threads = 1, rounds = 9;
  bool summary = false, busy = false;
};

std::vector<gemm_case> cases_of(const std::string& set) {
  std::vector<gemm_case> cases;
  const auto add = [&](int64_t m, int64_t n, int64_t k, const char* t = "NN", int64_t ld = 0) {
    cases.push_back({t[0], t[1], m, n, k, ld, ld, ld});
  };
  if (set == "small") {
    for (int64_t n : {2, 3, 4, 5, 6, 8, 10, 12, 16, 20, 24, 32, 40, 48, 64, 80, 100, 128}) add(n, n, n);
    for (const char* t : {"TN", "NT", "TT"})
      for (int64_t n : {4, 10, 24, 64, 100}) add(n, n, n, t);
  } else if (set == "mid") {
    for (int64_t n : {192, 256, 300, 400, 512, 640, 800, 1000, 1024}) add(n, n, n);
    for (const char* t : {"TN", "NT", "TT"}) add(500, 500, 500, t);
  } else if (set == "large") {
    for (int64_t n : {2000, 3000, 4000}) add(n, n, n);
  } else if (set == "skinny") {
    for (int64_t n : {2, 4, 8, 16}) add(2000, n, 2000), add(n, 2000, 2000);
    for (const char* t : {"TN", "NT", "TT"}) add(2000, 8, 2000, t), add(8, 2000, 2000, t);
    add(4000, 4000, 4), add(4000, 4000, 16);
  } else if (set == "deepk") {
    for (int64_t n : {4, 8, 16, 32, 64, 100}) add(n, n, 50000);
    for (const char* t : {"TN", "NT", "TT"}) add(16, 16, 50000, t);
  } else if (set == "lu") {
    for (int64_t k : {128, 192, 256, 384}) add(4000, 4000, k);
  } else if (set == "badld") {
    add(256, 256, 256, "NN", 4096), add(500, 500, 500, "NN", 512), add(1000, 1000, 1000, "NN", 1024);
    add(1000, 1000, 1000, "NN", 4096), add(1000, 1000, 1000, "TN", 4096), add(1000, 1000, 1000, "NT", 4096);
    add(2048, 2048, 256, "NN", 4096);
  }
  return cases;
}

std::vector<std::unique_ptr<contestant>> invite(const options& o) {
  std::vector<std::unique_ptr<contestant>> all;
  const std::string threads = std::to_string(o.threads);
  const bool threaded = o.threads > 1;
  const auto start = [&](const std::string& name, std::vector<std::string> arguments,
                         std::vector<std::pair<std::string, std::string>> environment) {
    if (threaded) arguments.push_back("threaded");
    for (const char* variable : {"OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS", "BLIS_NUM_THREADS", "TEV_NUM_THREADS"})
      environment.emplace_back(variable, threads);
    all.push_back(std::make_unique<contestant>(name, arguments, environment));
  };
  static const std::pair<const char*, const char*> kCodes[] = {
      {"def", "0"}, {"mc", "2"}, {"mc3", "3"}, {"avx", "4"}, {"avx2", "5"}, {"avx512_zel", "6"}, {"avx512", "7"}};
  std::string code = "0";
  for (const auto& [tier, number] : kCodes)
    if (o.tier == tier) code = number;
  const std::string flavour = threaded ? "pthread" : "serial";
  const std::string folder = "/usr/lib/x86_64-linux-gnu/";
  const auto openblas = [&](const char* core) {
    start(std::string("OpenBLAS ") + core, {"peer", folder + "openblas-" + flavour + "/libopenblas.so.0", o.precision},
          {{"OPENBLAS_CORETYPE", core}});
  };
  // BLIS 0.9 takes the architecture by number; a name would count as 0.
  const auto blis = [&](const char* architecture, const char* number) {
    start(std::string("BLIS ") + architecture, {"peer", folder + "blis-" + flavour + "/libblis.so.4", o.precision},
          {{"BLIS_ARCH_TYPE", number}});
  };
  start("ours", {"own", threaded ? "threaded" : o.tier, o.precision}, {{"TEV_DEBUG_CPU_TYPE", code}});
  if (o.tier == "avx512_zel") {
    start("ours avx512", {"own", threaded ? "threaded" : "avx512", o.precision}, {{"TEV_DEBUG_CPU_TYPE", "7"}});
  } else if (o.tier == "avx512") {
    openblas("SkylakeX"), openblas("Haswell"), blis("skx", "0"), blis("haswell", "3");
  } else if (o.tier == "avx2") {
    openblas("Haswell"), blis("haswell", "3"), openblas("Sandybridge"), blis("sandybridge", "4");
  } else if (o.tier == "avx") {
    openblas("Sandybridge"), blis("sandybridge", "4"), openblas("Nehalem"), blis("penryn", "5");
  } else {
    openblas(o.tier == "mc3" ? "Nehalem" : o.tier == "mc" ? "Core2" : "Prescott"), blis("penryn", "5");
  }
  return all;
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

double spread(const std::vector<double>& v) {
  const double middle = median(v);
  std::vector<double> away;
  for (double x : v) away.push_back(std::abs(x - middle) / middle);
  return median(away);
}

void run_set(const std::string& set, const options& o, std::vector<std::unique_ptr<contestant>>& all,
             contestant& peak) {
  const double flops_per_step = o.precision == "c" || o.precision == "z" ? 8 : 2;
  double log_sum = 0, worst = INFINITY;
  int counted = 0;
  for (const gemm_case& c : cases_of(set)) {
    std::vector<contestant*> present;
    for (auto& one : all)
      if (one->prepare(c)) present.push_back(one.get());
    peak.prepare(c);
    const double flops =
        flops_per_step * static_cast<double>(c.m) * static_cast<double>(c.n) * static_cast<double>(c.k);
    const int rounds = flops > 3e10 ? std::min(o.rounds, 3) : o.rounds;
    std::vector<std::vector<double>> times(present.size());
    std::vector<double> peaks;
    for (int round = 0; round < rounds; ++round) {
      for (size_t i = 0; i < present.size(); ++i) times[i].push_back(present[i]->sample());
      peaks.push_back(peak.sample());
    }
    if (present.empty() || present[0] != all[0].get()) continue;
    const double ours = flops / median(times[0]) * 1e-9, ceiling = o.threads * 1e-9 / median(peaks);
    double best = 0;
    std::string others;
    for (size_t i = 1; i < present.size(); ++i) {
      const double rate = flops / median(times[i]) * 1e-9;
      best = std::max(best, rate);
      char text[64];
      std::snprintf(text, sizeof text, " %8.2f", rate);
      others += text;
    }
    const double ratio = ours / best;
    if (best > 0) log_sum += std::log(ratio), worst = std::min(worst, ratio), ++counted;
    if (!o.summary)
      std::printf("%-6s %c%c %5ld %5ld %6ld %5ld %8.2f %5.1f%% %5.1f%% %s  %5.2f\n", set.c_str(), c.transa, c.transb,
                  c.m, c.n, c.k, c.lda, ours, 100 * ours / ceiling, 100 * spread(times[0]), others.c_str(), ratio);
    std::fflush(stdout);
  }
  if (counted)
    std::printf("%-10s %s %s: geometric mean %.3f, lowest %.3f (%d cases)\n", o.tier.c_str(), o.precision.c_str(),
                set.c_str(), std::exp(log_sum / counted), worst, counted);
  std::fflush(stdout);
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

void run_set_busy(const std::string& set, const options& o, std::vector<std::unique_ptr<contestant>>& all,
                  busy_loop& other) {
  const double flops_per_step = o.precision == "c" || o.precision == "z" ? 8 : 2;
  for (const gemm_case& c : cases_of(set)) {
    std::vector<contestant*> present;
    for (auto& one : all)
      if (one->prepare(c)) present.push_back(one.get());
    const auto samples = [&] {
      std::vector<std::vector<double>> times(present.size());
      for (int round = 0; round < o.rounds; ++round)
        for (size_t i = 0; i < present.size(); ++i) times[i].push_back(present[i]->sample());
      return times;
    };
    const auto quiet = samples();
    other.work();
    for (contestant* one : present) one->sample();  // a library may learn that it is not alone
    const auto busy = samples();
    other.rest();
    const double giga_flops =
        flops_per_step * static_cast<double>(c.m) * static_cast<double>(c.n) * static_cast<double>(c.k) * 1e-9;
    std::printf("%-6s %c%c %5ld %5ld %6ld", set.c_str(), c.transa, c.transb, c.m, c.n, c.k);
    for (size_t i = 0; i < present.size(); ++i)
      std::printf("  %8.2f %8.2f %6.2f", giga_flops / median(quiet[i]), giga_flops / median(busy[i]),
                  median(busy[i]) / median(quiet[i]));
    std::printf("\n");
    std::fflush(stdout);
  }
}

[[noreturn]] void usage() {
  std::fputs(
      "usage: gemm [--tier T] [--precision s|d|c|z] [--sets A,B] [--threads N] [--rounds N] [--summary] [--busy]\n",
      stderr);
  std::exit(2);
}

options parse(const std::vector<std::string>& arguments) {
  options o;
  for (size_t i = 0; i < arguments.size(); ++i) {
    if (arguments[i] == "--summary" || arguments[i] == "--busy") {
      (arguments[i] == "--busy" ? o.busy : o.summary) = true;
      continue;
    }
    if (i + 1 == arguments.size()) usage();
    const std::string& value = arguments[i + 1];
    if (arguments[i] == "--tier")
      o.tier = value;
    else if (arguments[i] == "--precision")
      o.precision = value;
    else if (arguments[i] == "--sets")
      o.sets = value;
    else if (arguments[i] == "--threads")
      o.threads = std::max(1, std::atoi(value.c_str()));
    else if (arguments[i] == "--rounds")
      o.rounds = std::max(1, std::atoi(value.c_str()));
    else
      usage();
    ++i;
  }
  if (o.busy && o.threads == 1) usage();
  return o;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments.size() >= 4 && arguments[0] == "--serve") return serve_as({arguments.begin() + 1, arguments.end()});
  const options o = parse(arguments);
  if (o.threads == 1) bind(0, sched_getcpu());  // one core for all, so that turns are turns
  auto all = invite(o);
  std::stringstream sets(o.sets);
  if (o.busy) {
    std::printf("GFLOP/s, %d threads. Columns: set, options, m, n, k; then quiet, busy, time busy / quiet of:",
                o.threads);
    for (const auto& one : all) std::printf(" %s;", one->name().c_str());
    std::printf("\n");
    std::fflush(stdout);
    busy_loop other;
    for (std::string set; std::getline(sets, set, ',');) run_set_busy(set, o, all, other);
    return 0;
  }
  contestant peak("peak", {"peak", o.tier, o.precision}, {});
  if (!o.summary) {
    std::printf("GFLOP/s, %d thread(s). Columns: set, options, m, n, k, lda; ours, %% of peak, spread;", o.threads);
    for (size_t i = 1; i < all.size(); ++i) std::printf(" %s;", all[i]->name().c_str());
    std::printf(" ratio to the fastest peer\n");
  }
  for (std::string set; std::getline(sets, set, ',');) run_set(set, o, all, peak);
  return 0;
}
