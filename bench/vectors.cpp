// SPDX-License-Identifier: BSD-3-Clause
// Level 1 and 2 beside OpenBLAS and BLIS, which are loaded at run time.
//
//   bench/vectors [--tier avx512] [--precision d] [--threads 1] [--rounds 31] [--routines "dot trsv"] [--summary]
//                 [--library build/release/lib/libtevblas.so.0]
//
// Ours are the functions of libtev, or those of a library with the standard names, which programs call.
// Vectors of 1 to 10^7 elements, square matrices of order 2 to 8192. Every library works on the same operands in
// turn, some tens of microseconds at a time, backwards in every other round; a figure is the best of all turns, in
// processor time of the thread, given as GB/s of the operands that must move (axpy 3 vectors; copy, scal 2; gemv the
// matrix; ger the matrix twice ...). The ratio is ours over the faster peer, at the end its geometric mean per routine.
//
// With more threads those meet the peers' threaded builds, and time is the clock's. Between turns is a pause, in which
// the threads of the last one fall asleep; some milliseconds of calls that do not count wake those of the next one.
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

#include "tev/blas.h"
#include "tev/service.h"

namespace {

// What a routine is called with.
enum class form {
  alpha_x_y,   // n, alpha, x, y
  x_y,         // n, x, y
  alpha_x,     // n, alpha, x
  x,           // n, x
  rotation,    // n, x, y, c, s
  general,     // trans, m, n, alpha, a, x, beta, y
  rank_1,      // m, n, alpha, x, y, a
  symmetric,   // uplo, n, alpha, a, x, beta, y
  update,      // uplo, n, alpha, x, a
  update_2,    // uplo, n, alpha, x, y, a
  triangular,  // uplo, trans, diag, n, a, x
};
enum class stored { full, band, packed };

struct routine {
  const char *real, *complex;  // names, without the precision where that comes first
  form takes;
  stored kind;
  char first, trans;  // trans of general, or uplo; trans of triangular
  double traffic;     // vectors or matrices that must move
};

// Of a band so many diagonals are beside the main one.
constexpr int64_t kDiagonals = 32;

constexpr routine kRoutines[] = {
    {"axpy", "axpy", form::alpha_x_y, {}, 0, 0, 3},
    {"copy", "copy", form::x_y, {}, 0, 0, 2},
    {"scal", "scal", form::alpha_x, {}, 0, 0, 2},
    {"swap", "swap", form::x_y, {}, 0, 0, 4},
    {"dot", "dotc", form::x_y, {}, 0, 0, 2},
    {"asum", "asum", form::x, {}, 0, 0, 1},
    {"nrm2", "nrm2", form::x, {}, 0, 0, 1},
    {"iamax", "iamax", form::x, {}, 0, 0, 1},
    {"rot", "rot", form::rotation, {}, 0, 0, 4},
    {"gemv", "gemv", form::general, stored::full, 'N', 0, 1},
    {"gemv", "gemv", form::general, stored::full, 'T', 0, 1},
    {"ger", "geru", form::rank_1, stored::full, 0, 0, 2},
    {"symv", "hemv", form::symmetric, stored::full, 'U', 0, 0.5},
    {"symv", "hemv", form::symmetric, stored::full, 'L', 0, 0.5},
    {"syr", "her", form::update, stored::full, 'U', 0, 1},
    {"syr2", "her2", form::update_2, stored::full, 'L', 0, 1},
    {"trmv", "trmv", form::triangular, stored::full, 'U', 'N', 0.5},
    {"trmv", "trmv", form::triangular, stored::full, 'L', 'T', 0.5},
    {"trsv", "trsv", form::triangular, stored::full, 'L', 'N', 0.5},
    {"trsv", "trsv", form::triangular, stored::full, 'U', 'T', 0.5},
    {"spmv", "hpmv", form::symmetric, stored::packed, 'U', 0, 0.5},
    {"spr", "hpr", form::update, stored::packed, 'L', 0, 1},
    {"spr2", "hpr2", form::update_2, stored::packed, 'U', 0, 1},
    {"tpmv", "tpmv", form::triangular, stored::packed, 'U', 'N', 0.5},
    {"tpsv", "tpsv", form::triangular, stored::packed, 'L', 'T', 0.5},
    {"sbmv", "hbmv", form::symmetric, stored::band, 'L', 0, 1},
    {"tbmv", "tbmv", form::triangular, stored::band, 'U', 'T', 1},
    {"tbsv", "tbsv", form::triangular, stored::band, 'U', 'N', 1},
    {"gbmv", "gbmv", form::general, stored::band, 'N', 0, 2},
};

// Its name in the libraries: sums of moduli of complex numbers are real, and so are the scalars of rotations.
std::string name_of(const routine& r, const std::string& p) {
  const bool complex = p == "c" || p == "z";
  const std::string stem = complex ? r.complex : r.real;
  if (stem == "iamax") return "i" + p + "amax";
  if (r.takes == form::rotation) return (p == "c" ? "cs" : p == "z" ? "zd" : p) + stem;
  if (r.takes == form::x) return (p == "c" ? "sc" : p == "z" ? "dz" : p) + stem;
  return p + stem;
}

struct library {
  std::string name;
  bool wide;  // integers of 64 bits
  std::vector<void*> at;
};

// As Fortran has them.
tev_complex8 own_cdotc(const int64_t* n, const tev_complex8* x, const int64_t* incx, const tev_complex8* y,
                       const int64_t* incy) {
  tev_complex8 result;
  tev_blas_cdotc(&result, n, x, incx, y, incy);
  return result;
}
tev_complex16 own_zdotc(const int64_t* n, const tev_complex16* x, const int64_t* incx, const tev_complex16* y,
                        const int64_t* incy) {
  tev_complex16 result;
  tev_blas_zdotc(&result, n, x, incx, y, incy);
  return result;
}

library own(const std::string& precision) {
  library ours = {"ours", true, {}};
  for (const routine& r : kRoutines) {
    const std::string name = name_of(r, precision);
    ours.at.push_back(name == "cdotc"   ? reinterpret_cast<void*>(own_cdotc)
                      : name == "zdotc" ? reinterpret_cast<void*>(own_zdotc)
                                        : dlsym(RTLD_DEFAULT, ("tev_blas_" + name).c_str()));
  }
  return ours;
}

// Nothing when it is not installed in any of these builds.
void load_library(const char* name, const std::vector<std::string>& paths, const std::string& p,
                  std::vector<library>& to) {
  void* handle = nullptr;
  for (const std::string& path : paths)
    if (handle == nullptr) handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) return;
  library peer = {name, false, {}};
  for (const routine& r : kRoutines) peer.at.push_back(dlsym(handle, (name_of(r, p) + "_").c_str()));
  to.push_back(peer);
}

// Between the turns of threads.
constexpr unsigned kPauseMilliseconds = 30;

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
  setenv("KMP_BLOCKTIME", std::to_string(kPauseMilliseconds / 2).c_str(), 1);
  for (const char* variable : {"OPENBLAS_NUM_THREADS", "BLIS_NUM_THREADS", "OMP_NUM_THREADS", "TEV_NUM_THREADS"})
    setenv(variable, std::to_string(threads).c_str(), 1);
}

// One timed call; sizes and increments by the library's width.
struct call {
  size_t number;
  int64_t n;  // length, or order
  const void *alpha, *sine;
  void *a, *x, *y;
};

template <class... Arguments>
void apply(void* f, Arguments... arguments) {
  reinterpret_cast<void (*)(Arguments...)>(f)(arguments...);
}

template <class Int>
void perform(const library& l, const call& c) {
  const routine& r = kRoutines[c.number];
  const bool band = r.kind == stored::band, packed = r.kind == stored::packed;
  const Int number = static_cast<Int>(c.n), one_int = 1, diagonals = static_cast<Int>(kDiagonals);
  const Int leading = band ? (r.takes == form::general ? 2 * diagonals + 1 : diagonals + 1) : number;
  const Int *const n = &number, *const one = &one_int, *const k = &diagonals, *const ld = &leading;
  const char *const letter = &r.first, *const trans = &r.trans;
  void* const f = l.at[c.number];
  switch (r.takes) {
    case form::alpha_x_y:
      return apply(f, n, c.alpha, c.x, one, c.y, one);
    case form::x_y:
      return apply(f, n, c.x, one, c.y, one);
    case form::alpha_x:
      return apply(f, n, c.alpha, c.x, one);
    case form::x:
      return apply(f, n, c.x, one);
    case form::rotation:
      return apply(f, n, c.x, one, c.y, one, c.sine, c.sine);
    case form::general:
      if (band) return apply(f, letter, n, n, k, k, c.alpha, c.a, ld, c.x, one, c.alpha, c.y, one);
      return apply(f, letter, n, n, c.alpha, c.a, ld, c.x, one, c.alpha, c.y, one);
    case form::rank_1:
      return apply(f, n, n, c.alpha, c.x, one, c.y, one, c.a, ld);
    case form::symmetric:
      if (band) return apply(f, letter, n, k, c.alpha, c.a, ld, c.x, one, c.alpha, c.y, one);
      if (packed) return apply(f, letter, n, c.alpha, c.a, c.x, one, c.alpha, c.y, one);
      return apply(f, letter, n, c.alpha, c.a, ld, c.x, one, c.alpha, c.y, one);
    case form::update:
      if (packed) return apply(f, letter, n, c.alpha, c.x, one, c.a);
      return apply(f, letter, n, c.alpha, c.x, one, c.a, ld);
    case form::update_2:
      if (packed) return apply(f, letter, n, c.alpha, c.x, one, c.y, one, c.a);
      return apply(f, letter, n, c.alpha, c.x, one, c.y, one, c.a, ld);
    case form::triangular:
      if (band) return apply(f, letter, trans, "U", n, k, c.a, ld, c.x, one);
      if (packed) return apply(f, letter, trans, "U", n, c.a, c.x, one);
      return apply(f, letter, trans, "U", n, c.a, ld, c.x, one);
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
  constexpr double kTurn = 5e-5, kWaking = 3e-3;
  for (const library& l : libraries) seconds_per_call(l, c, 1, threaded);  // the very first one loads and decides
  int repetitions = 1;
  while (repetitions * seconds_per_call(libraries[0], c, repetitions, threaded) < kTurn / 2) repetitions *= 2;
  std::vector<double> best;
  for (const library& l : libraries) best.push_back(seconds_per_call(l, c, repetitions, threaded));
  for (int round = 0; round < rounds; ++round)
    for (size_t turn = 0; turn < libraries.size(); ++turn) {
      // Backwards in every other round: what the caches hold is what the one before left there.
      const size_t i = round % 2 == 0 ? turn : libraries.size() - 1 - turn;
      if (threaded) {
        usleep(1000 * kPauseMilliseconds);
        for (double spent = 0; spent < kWaking;)
          spent += repetitions * seconds_per_call(libraries[i], c, repetitions, threaded);
      }
      best[i] = std::min(best[i], seconds_per_call(libraries[i], c, repetitions, threaded));
    }
  return best;
}

struct options {
  std::string tier = "avx512", precision = "d", routines, library;
  int threads = 1, rounds = 0;
  bool summary = false;

  bool threaded() const { return threads > 1; }
  bool single() const { return precision == "s" || precision == "c"; }
  bool complex() const { return precision == "c" || precision == "z"; }
  bool wants(const std::string& name) const {
    return routines.empty() || (" " + routines + " ").find(" " + name + " ") != std::string::npos;
  }
};

// False where the arguments are wrong.
bool parse(int argc, char** argv, options& o) {
  const std::map<std::string, std::string*> texts = {
      {"--tier", &o.tier}, {"--precision", &o.precision}, {"--routines", &o.routines}, {"--library", &o.library}};
  const std::map<std::string, int*> numbers = {{"--threads", &o.threads}, {"--rounds", &o.rounds}};
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--summary")
      o.summary = true;
    else if (i + 1 < argc && texts.contains(option))
      *texts.at(option) = argv[++i];
    else if (i + 1 < argc && numbers.contains(option))
      *numbers.at(option) = std::atoi(argv[++i]);
    else
      return false;
  }
  if (o.rounds < 1) o.rounds = o.threaded() ? 7 : 31;
  return true;
}

// Ours and the peers. None where ours cannot be loaded.
std::vector<library> load_libraries(const options& o) {
  std::vector<library> all;
  choose_kernels(o.tier, o.threads);
  o.library.empty() ? all.push_back(own(o.precision)) : load_library("ours", {o.library}, o.precision, all);
  if (all.empty()) return all;
  tev_serv_trust_features(1);  // gemv takes a team only on processors that detection knows or a program vouches for
  const auto builds = [&](const std::string& peer, const std::string& file) {
    std::vector<std::string> paths;
    for (const std::string flavour : {"serial", "pthread", "openmp"})
      if (!o.threaded() || flavour != "serial") paths.push_back("/usr/lib/x86_64-linux-gnu/" + peer + flavour + file);
    return paths;
  };
  load_library("OpenBLAS", builds("openblas-", "/libopenblas.so.0"), o.precision, all);
  load_library("BLIS", builds("blis-", "/libblis.so.4"), o.precision, all);
  if (all.size() < 3) std::fprintf(stderr, "vectors: a peer is missing (packages libopenblas0, libblis4)\n");
  return all;
}

const std::vector<int64_t> kLengths = {1, 3, 10, 30, 100, 300, 1000, 3000, 10000, 30000, 100000, 1000000, 10000000};
const std::vector<int64_t> kOrders = {2, 5, 16, 64, 100, 128, 256, 500, 1000, 2000, 4000, 8192};

bool takes_matrix(const routine& r) { return r.takes >= form::general; }

// Small numbers, written anew for each figure, and scalars of modulus 1: repeated calls neither overflow nor reach
// denormal numbers. Elements of matrices are so small that solutions do not fade away.
template <class R>
class operands {
 public:
  explicit operands(bool complex)
      : parts_(complex ? 2 : 1),
        unit_{complex ? R(0) : R(-1), R(1)},
        a_(static_cast<size_t>(parts_ * kOrders.back() * kOrders.back())),
        x_(static_cast<size_t>(parts_ * kLengths.back())),
        y_(x_.size()) {}

  call make(size_t number, int64_t n) {
    const routine& r = kRoutines[number];
    fill(x_, n, R(1e-3)), fill(y_, n, R(1e-3));
    if (takes_matrix(r)) fill(a_, std::min(kOrders.back(), std::max(n, 2 * kDiagonals + 1)) * n, R(1e-6));
    const size_t part = r.takes == form::update ? 1 : 0;  // of a Hermitian update alpha is real: the last part
    return {number, n, &unit_[part], &half_turn_[0], a_.data(), x_.data(), y_.data()};
  }

  double bytes_of(const call& c) const {
    const routine& r = kRoutines[c.number];
    const int64_t elements = !takes_matrix(r) ? c.n : c.n * (r.kind == stored::band ? kDiagonals + 1 : c.n);
    return r.traffic * static_cast<double>(parts_ * elements * static_cast<int64_t>(sizeof(R)));
  }

 private:
  void fill(std::vector<R>& x, int64_t elements, R value) { std::fill_n(x.data(), parts_ * elements, value); }

  int64_t parts_;
  std::array<R, 2> unit_, half_turn_ = {std::sqrt(R(0.5)), 0};
  std::vector<R> a_, x_, y_;
};

std::string label_of(const routine& r, const std::string& name) {
  std::string label = name;
  for (const char letter : {r.first, r.trans})
    if (letter != 0) label += std::string(" ") + letter;
  return label;
}

void print_head(const options& o, const std::vector<library>& libraries) {
  std::printf("# %s, precision %s, threads %d, GB/s\n#           n      ours", o.tier.c_str(), o.precision.c_str(),
              o.threads);
  for (size_t i = 1; i < libraries.size(); ++i) std::printf("%10s", libraries[i].name.c_str());
  std::printf("   ratio\n");
}

template <class R>
void measure(const options& o, const std::vector<library>& libraries) {
  operands<R> memory(o.complex());
  print_head(o, libraries);
  for (size_t number = 0; number < std::size(kRoutines); ++number) {
    const routine& r = kRoutines[number];
    const std::string name = o.complex() ? r.complex : r.real, label = label_of(r, name);
    if (!o.wants(name)) continue;
    double logs = 0;
    const std::vector<int64_t>& sizes = takes_matrix(r) ? kOrders : kLengths;
    for (const int64_t n : sizes) {
      const call c = memory.make(number, n);
      const std::vector<double> times = best_times(libraries, c, o.rounds, o.threaded());
      const double ratio = *std::min_element(times.begin() + (times.size() > 1), times.end()) / times[0];
      logs += std::log(ratio);
      if (o.summary) continue;
      std::printf("%-8s%8ld", label.c_str(), n);
      for (const double seconds : times) std::printf("%10.1f", memory.bytes_of(c) / seconds * 1e-9);
      std::printf("%8.2f\n", ratio);
      std::fflush(stdout);
    }
    std::printf("%-8s    mean%38.2f\n", label.c_str(), std::exp(logs / static_cast<double>(sizes.size())));
    std::fflush(stdout);
  }
}

}  // namespace

int main(int argc, char** argv) {
  options o;
  if (!parse(argc, argv, o)) {
    std::fprintf(stderr,
                 "usage: vectors [--tier T] [--precision s|d|c|z] [--threads N] [--rounds N] [--routines \"dot trsv\"] "
                 "[--summary] [--library FILE]\n");
    return 2;
  }
  const std::vector<library> libraries = load_libraries(o);
  if (libraries.empty()) return std::fprintf(stderr, "vectors: %s cannot be loaded\n", o.library.c_str()), 2;
  o.single() ? measure<float>(o, libraries) : measure<double>(o, libraries);
}
