// SPDX-License-Identifier: BSD-3-Clause
#include "contest/serving.h"

#include <dlfcn.h>
#include <sched.h>

#include <algorithm>
#include <complex>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "contest/multiply_add_peak.h"
#include "contest/operations.h"
#include "contest/sample_clock.h"
#include "contest/spot_check.h"

namespace tev::contest {

namespace {

// ---- Operands -------------------------------------------------------------------------------------------------------

enum operand_name : uint64_t { kA = 1, kB, kC };

// In [-1, 1), and the same whenever it is asked for.
double random_part(uint64_t operand, uint64_t part) {
  uint64_t x = (operand << 56) + part * 0x9E3779B97F4A7C15u;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9u;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBu;
  return static_cast<double>(x >> 40) / (1 << 23) - 1.0;
}

template <class T>
T random_element(uint64_t operand, int64_t index) {
  using real = real_of<T>;
  const auto i = static_cast<uint64_t>(index);
  if constexpr (kComplex<T>)
    return T(static_cast<real>(random_part(operand, 2 * i)), static_cast<real>(random_part(operand, 2 * i + 1)));
  else
    return static_cast<real>(random_part(operand, i));
}

template <class T>
class operand {
 public:
  operand() : at_(nullptr, std::free) {}
  operand(uint64_t name, const extent& e, int64_t ld) : at_(nullptr, std::free), name_(name), extent_(e), ld_(ld) {
    const size_t bytes = static_cast<size_t>(ld * e.columns) * sizeof(T);
    at_.reset(static_cast<T*>(std::aligned_alloc(4096, (bytes + 4095) / 4096 * 4096)));
    fill();
  }

  void fill() {
    for (int64_t i = 0; i < ld_ * extent_.columns; ++i) at_.get()[i] = random_element<T>(name_, i);
  }

  // Solving with it, or multiplying by it, is tame: its diagonal has modulus 1, everything else at most `scale`.
  void fill_dominant(double scale) {
    fill();
    for (int64_t j = 0; j < extent_.columns; ++j)
      for (int64_t i = 0; i < extent_.rows; ++i) at_.get()[i + j * ld_] *= static_cast<real_of<T>>(scale);
    T diagonal = -1;
    if constexpr (kComplex<T>) diagonal = T(0, 1);
    for (int64_t j = 0; j < extent_.columns; ++j) at_.get()[j + j * ld_] = diagonal;
  }

  T* get() const { return at_.get(); }

  matrix<T> now() const {
    return [at = at_.get(), ld = ld_](int64_t i, int64_t j) { return wide<T>(at[i + j * ld]); };
  }

  matrix<T> as_filled() const {
    return [name = name_, ld = ld_](int64_t i, int64_t j) { return wide<T>(random_element<T>(name, i + j * ld)); };
  }

 private:
  std::unique_ptr<T, decltype(&std::free)> at_;
  uint64_t name_ = 0;
  extent extent_ = {};
  int64_t ld_ = 0;
};

// ---- One case -------------------------------------------------------------------------------------------------------

template <class T>
class problem {
 public:
  problem(const operation& op, void* routine) : op_(op), routine_(routine) {}

  void set_up(const level3_case& c) {
    case_ = c;
    ld_ = leading_dimensions_of(op_, c);
    const extents e = extents_of(op_, c);
    a_ = {}, b_ = {}, c_ = {};  // two cases may not fit
    a_ = {kA, e.a, ld_.a};
    b_ = {kB, e.b, ld_.b};
    c_ = {kC, e.c, ld_.c};
    if (op_.kind == shape::triangular) a_.fill_dominant(1.0 / static_cast<double>(order_of(c)));
  }

  void run() const {
    const T one(1), zero(0);
    call(op_, routine_, case_, ld_, &one, &zero, a_.get(), b_.get(), c_.get());
  }

  // After the first run.
  bool looks_right() const {
    return contest::looks_right<T>(op_, case_,
                                   identity_of<T>(op_, case_, a_.now(), b_.now(), c_.as_filled(), c_.now()));
  }

  // A triangular operation works on its own result, millions of times: nothing may grow or fade away.
  void tame() {
    if (op_.kind != shape::triangular) return;
    a_.fill_dominant(1e-9);
    c_.fill();
  }

 private:
  const operation& op_;
  void* routine_;
  level3_case case_;
  leading_dimensions ld_ = {};
  operand<T> a_, b_, c_;
};

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

// Reads the next question into `c` when it is a case.
enum class question { a_case, a_run, none };
question next_question(level3_case& c) {
  char line[256], letters[5];
  if (!std::fgets(line, sizeof line, stdin)) return question::none;
  if (std::sscanf(line, "case %4s %ld %ld %ld %ld", letters, &c.m, &c.n, &c.k, &c.ld) != 5) return question::a_run;
  c.letters = letters;
  return question::a_case;
}

// A team that slept is awake before it is timed.
template <class T>
int serve_routine(const operation& op, void* routine, bool threaded) {
  const double sample_seconds = threaded ? 1e-2 : 1e-3;
  problem<T> p(op, routine);
  level3_case c;
  int64_t count = 1;
  const auto run = [&] { p.run(); };
  for (question q; (q = next_question(c)) != question::none; std::fflush(stdout)) {
    if (q == question::a_case) {
      p.set_up(c);
      p.run();
      std::puts(p.looks_right() ? "ok" : "wrong result");
      p.tame();
      const double begin = now(threaded);
      for (count = 0; now(threaded) - begin < sample_seconds; ++count) p.run();
    } else {
      if (threaded) settle(run);
      const double begin = now(threaded);
      for (int64_t i = 0; i < count; ++i) p.run();
      std::printf("%.9e\n", (now(threaded) - begin) / static_cast<double>(count));
    }
  }
  return 0;
}

int serve_peak(const std::string& tier, bool single) {
  level3_case ignored;
  for (question q; (q = next_question(ignored)) != question::none; std::fflush(stdout)) {
    if (q == question::a_case) {
      std::puts("ok");
    } else {
      const double begin = now(false);
      const double flops = spend_multiply_adds(tier, single, 200000);
      std::printf("%.9e\n", (now(false) - begin) / flops);
    }
  }
  return 0;
}

// In a library of ours (bench/level3/ours.cpp) the entry of the kernels, or with threads the front end.
void* find_routine(void* library, const std::string& name, bool threaded) {
  using finder = void*(const char*);
  if (void* ours = dlsym(library, "tev_bench_routine"))
    return reinterpret_cast<finder*>(ours)(((threaded ? "" : "x") + name).c_str());
  return dlsym(library, (name + "_").c_str());
}

int serve_library(const std::string& path, const std::string& op, char precision, bool threaded) {
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!library) {
    std::printf("%s\n", dlerror());
    return 1;
  }
  void* routine = find_routine(library, precision + op, threaded);
  if (!routine) {
    std::printf("no %c%s in %s\n", precision, op.c_str(), path.c_str());
    return 1;
  }
  std::puts("ready");
  std::fflush(stdout);
  const operation& known = *find_operation(op, precision);
  switch (precision) {
    case 's':
      return serve_routine<float>(known, routine, threaded);
    case 'd':
      return serve_routine<double>(known, routine, threaded);
    case 'c':
      return serve_routine<std::complex<float>>(known, routine, threaded);
    default:
      return serve_routine<std::complex<double>>(known, routine, threaded);
  }
}

}  // namespace

int serve(const std::vector<std::string>& arguments) {
  if (arguments[0] == "library")
    return serve_library(arguments[1], arguments[2], arguments[3][0], arguments.size() > 4);
  std::puts("ready");
  std::fflush(stdout);
  return serve_peak(arguments[1], is_single(arguments[2][0]));
}

void bind(pid_t thread, int processor) {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(processor, &one);
  sched_setaffinity(thread, sizeof one, &one);
}

}  // namespace tev::contest
