// SPDX-License-Identifier: BSD-3-Clause
// BLAS calls and factorizations that may go to a sink: right wherever they ran, and ran where they should; with a sink
// that dies, sleeps or is busy, in forked children, and on operands in memory that the sink sees.
#include "tev/routed.h"

#include <pthread.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>

#include "host/check.h"
#include "tests/offload/factors.h"
#include "tests/support/blas_case.h"
#include "tests/support/effort.h"
#include "tests/support/in_child.h"
#include "tests/support/left_behind.h"
#include "tests/support/precision.h"
#include "tev/front_end.h"
#include "tev/service.h"

namespace tev::test {
namespace {

#define TEV_ROUTED(name) static constexpr auto name = TEV_OF(T, tev_routed_, name);
template <class T>
struct routed : routines<T> {
  TEV_ROUTED(gemm) TEV_ROUTED(symm) TEV_ROUTED(syrk) TEV_ROUTED(trmm) TEV_ROUTED(trsm)
};

// As those of a handle.
template <class T>
struct factorizations;
#define TEV_ROUTED_FACTORIZATIONS(T, p)                                                                             \
  template <>                                                                                                       \
  struct factorizations<T> {                                                                                        \
    using E = c_element_t<T>;                                                                                       \
    static int getrf(tev_offload*, auto... x) { return tev_routed_##p##getrf(x...), 0; }                            \
    static int gesv(tev_offload*, auto... x) { return tev_routed_##p##gesv(x...), 0; }                              \
    static int potrf(tev_offload*, auto... x) { return tev_routed_##p##potrf(x...), 0; }                            \
    static int posv(tev_offload*, auto... x) { return tev_routed_##p##posv(x...), 0; }                              \
    static int geqrf(tev_offload*, const int64_t* m, const int64_t* n, E* a, const int64_t* lda, E* tau,            \
                     int64_t* info) {                                                                               \
      const matrix<T> work(*n, 1);                                                                                  \
      return tev_routed_##p##geqrf(m, n, a, lda, tau, at(work), n, info), 0;                                        \
    }                                                                                                               \
    static int gels(tev_offload*, const char* trans, const int64_t* m, const int64_t* n, const int64_t* nrhs, E* a, \
                    const int64_t* lda, E* b, const int64_t* ldb, int64_t* info) {                                  \
      const int64_t length = *m + *n;                                                                               \
      const matrix<T> work(length, 1);                                                                              \
      return tev_routed_##p##gels(trans, m, n, nrhs, a, lda, b, ldb, at(work), &length, info), 0;                   \
    }                                                                                                               \
  };
TEV_ROUTED_FACTORIZATIONS(float, s)
TEV_ROUTED_FACTORIZATIONS(double, d)
TEV_ROUTED_FACTORIZATIONS(std::complex<float>, c)
TEV_ROUTED_FACTORIZATIONS(std::complex<double>, z)

bool took_sink() { return tev_routed_took_sink() != 0; }

// The one process of which this one has a descriptor.
pid_t sink_process() {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fdinfo")) {
    std::ifstream file(entry.path());
    for (std::string name; file >> name;)
      if (pid_t found = 0; name == "Pid:" && file >> found && found > 0) return found;
  }
  return 0;
}

void send_all(double threshold = 1, double timeout = 20) {
  const tev_routing routing = {TEV_SINK_PATH, 1, 1, 0, threshold, timeout};
  tev_routed_set(&routing);
}

// "" where the call is right and ran where it should.
template <class T>
std::string fault_of(const blas_case<T>& x, bool in_sink) {
  matrix<T> result = x.start();
  tev_routed_took_sink();
  call<T, routed<T>>(x.p, result.data());
  const host::verdict verdict = host::check(x.p, result.data(), 1);
  if (!verdict.passed) return verdict.text;
  if (!x.unwritten_is_intact(result)) return "wrote where it may not";
  return (tev_routed_took_sink() != 0) == in_sink ? "" : in_sink ? "ran here" : "ran in the sink";
}

template <class T>
blas_case<T> random_case(operation op, const char* options, int64_t m, int64_t n, int64_t k, T alpha = T(2),
                         T beta = T(-1)) {
  engine random(7);
  return {problem_of<T>(op, options, m, n, k, alpha, beta), random, values::fractions};
}

template <class T>
bool product_is_right(bool in_sink, int64_t order = 150) {
  return fault_of(random_case<T>(operation::gemm, "NT", order, order, order), in_sink).empty();
}

template <class T>
bool factors_are_right(bool in_sink, what kind = what::lu, int64_t order = 300) {
  engine random(3);
  const matrix<T> start = start_for<T>(kind, order, order, random);
  const factored<T> f = factor<T, factorizations<T>>(nullptr, kind, start);
  const bool took = took_sink();
  expect_factors(kind, start, f, "order " + std::to_string(order));
  return f.info == 0 && took == in_sink && !testing::Test::HasFailure();
}

constexpr struct {
  operation op;
  const char* options;
} kCalls[] = {{operation::gemm, "NN"},   {operation::gemm, "TC"},   {operation::gemm, "CN"},  {operation::symm, "LU"},
              {operation::symm, "RL"},   {operation::syrk, "UN"},   {operation::syrk, "LT"},  {operation::trmm, "LUNN"},
              {operation::trmm, "RLCU"}, {operation::trsm, "LLTN"}, {operation::trsm, "RUNU"}};

template <class T>
void expect_right_calls() {
  for (const auto& [op, options] : kCalls) {
    for (const auto& [m, n, k] : {std::array<int64_t, 3>{65, 43, 70}, {1, 160, 5}, {140, 130, 129}}) {
      const blas_case<T> x = random_case<T>(op, options, m, n, k, T(2), m == 65 ? T(0) : T(-1));
      EXPECT_EQ(fault_of(x, true), "") << x;
    }
    EXPECT_EQ(fault_of(random_case<T>(op, options, 30, 20, 10, T(0)), false), "") << "nothing to multiply";
  }
}

TEST_IN_CHILD(Routed, CallsThroughTheSinkAreRight) {
  send_all();
  expect_right_calls<float>();
  expect_right_calls<double>();
  expect_right_calls<std::complex<float>>();
  expect_right_calls<std::complex<double>>();
}

TEST_IN_CHILD(Routed, WhatIsSmallEmptyOrWrongStaysHere) {
  EXPECT_TRUE(product_is_right<double>(false)) << "before anybody chose";
  send_all(2.0 * 100 * 100 * 100);
  EXPECT_TRUE(product_is_right<double>(false, 99));
  EXPECT_TRUE(product_is_right<double>(true, 100));
  EXPECT_TRUE(product_is_right<std::complex<float>>(true, 70)) << "four times the arithmetic";
  EXPECT_EQ(fault_of(random_case<double>(operation::gemm, "NN", 900, 900, 0), false), "");
  const int64_t none = 0, huge = INT64_MAX;
  const double one = 1;
  tev_routed_dgemm("N", "N", &huge, &none, &huge, &one, nullptr, &huge, nullptr, &huge, &one, nullptr, &huge);
}

// The same bits, too.
template <class T>
void expect_factors_of_a_handle(int32_t threads) {
  const sink_handle handle(threads);
  engine random(3);
  for (const auto& [kind, name] : kFactorizations)
    for (const auto& [m, n] : {std::pair<int64_t, int64_t>{521, 521}, {600, 530}, {515, 620}}) {
      if (m != n && kind != what::lu && kind != what::qr) continue;
      const matrix<T> start = start_for<T>(kind, m, n, random);
      const factored<T> expected = factor(handle.get(), kind, start);
      const factored<T> result = factor<T, factorizations<T>>(nullptr, kind, start);
      EXPECT_TRUE(took_sink()) << name << m;
      EXPECT_EQ(result.info, 0) << name << m;
      EXPECT_TRUE(result.a.same_bits(expected.a) && result.tau.same_bits(expected.tau)) << name << m;
      EXPECT_EQ(result.pivots, expected.pivots) << name << m;
    }
}

template <class T>
void expect_solutions() {
  expect_systems_solved<T, factorizations<T>>(nullptr, {300, 521});
  EXPECT_TRUE(took_sink());
  expect_least_squares_solved<T, factorizations<T>>(nullptr, took_sink);
}

TEST_IN_CHILD(RoutedFactorizations, AreRight) {
  send_all();
  expect_factors_of_a_handle<double>(1);
  expect_factors_of_a_handle<std::complex<float>>(1);
  expect_solutions<float>();
  expect_solutions<double>();
  expect_solutions<std::complex<float>>();
  expect_solutions<std::complex<double>>();
}

TEST_IN_CHILD(RoutedFactorizations, WhatIsSmallWrongOrAsksStaysHere) {
  static std::string told;
  tev_serv_set_xerbla([](const char* name, const int32_t* position, int32_t length) {
    told = std::string(name, static_cast<size_t>(length)) + ' ' + std::to_string(*position);
  });
  send_all();
  const int64_t n = 400, small = 399, query = -1;
  double best = 0;
  int64_t info = 7;
  tev_routed_dgeqrf(&n, &n, nullptr, &n, nullptr, &best, &query, &info);
  EXPECT_TRUE(best >= 400 && info == 0);
  tev_routed_dgels("N", &n, &n, &n, nullptr, &n, nullptr, &n, &best, &query, &info);
  EXPECT_TRUE(best >= 800 && info == 0);
  tev_routed_dgels("N", &n, &n, &n, nullptr, &n, nullptr, &small, &best, &n, &info);
  EXPECT_TRUE(told == "DGELS 8" && info == -8) << told;
  tev_routed_dgesv(&n, &n, nullptr, &n, nullptr, nullptr, &small, &info);
  EXPECT_TRUE(told == "DGESV 7" && info == -7) << told;
  tev_routed_dpotrf("X", &n, nullptr, &n, &info);
  EXPECT_TRUE(told == "DPOTRF 1" && info == -1) << told;
  EXPECT_EQ(sink_process(), 0);
  for (const auto& [kind, largest] : {std::pair{what::lu, 128}, {what::lower_cholesky, 256}, {what::qr, 128}}) {
    EXPECT_TRUE(factors_are_right<double>(false, kind, largest));
    EXPECT_TRUE(factors_are_right<double>(true, kind, largest + 1));
    EXPECT_TRUE(factors_are_right<double>(true, kind, largest + 1)) << "equal calls, equal ways";
  }
}

// By the model, with one thread here: a sink with one thread never pays, one with many does for large products.
std::string large_ones_of(int32_t sink_threads) {
  const tev_routing routing = {TEV_SINK_PATH, sink_threads, 1, 1, 0, 20};
  tev_routed_set(&routing);
  std::string ways;
  for (const int64_t order : {10, 800, 800, 10, 800}) {
    const matrix<double> a(order, order, 0);
    matrix<double> c(order, order, 0);
    const double one = 1, zero = 0;
    tev_routed_dgemm("N", "N", &order, &order, &order, &one, a.data(), &order, a.data(), &order, &zero, c.data(),
                     &order);
    ways += tev_routed_took_sink() != 0 ? 's' : 'h';
  }
  return ways;
}
TEST_IN_CHILD(Automatic, NoFasterSinkIsUsed) { EXPECT_EQ(large_ones_of(1), "hhhhh"); }
TEST_IN_CHILD(Automatic, AFasterOneIsForLargeCalls) { EXPECT_EQ(large_ones_of(16), "hsshs"); }

// Only for the result is there a copy.
TEST_IN_CHILD(SharedMemory, OperandsInItAreNotCopied) {
  send_all();
  const blas_case<double> x = random_case<double>(operation::gemm, "NN", 200, 200, 200);
  blas_case<double> shared = x;
  for (const double** operand : {&shared.p.a, &shared.p.b}) {
    auto* const memory = static_cast<double*>(tev_routed_allocate(x.a.size() * sizeof(double)));
    std::copy_n(*operand, x.a.size(), memory);
    *operand = memory;
  }
  EXPECT_EQ(fault_of(shared, true), "");
  EXPECT_EQ(shared_mappings(), 3);
  tev_routed_release(const_cast<double*>(shared.p.a));
  tev_routed_release(const_cast<double*>(shared.p.b));
  EXPECT_EQ(shared_mappings(), 1);
  EXPECT_EQ(fault_of(x, true), "");
  EXPECT_EQ(shared_mappings(), 3) << "now there are copies of all";
}

// All its threads? One that waits for a processor when the signal is sent may answer a request first.
bool has_stopped(pid_t process) {
  for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    std::ifstream file(thread.path() / "stat");
    std::string number, name, state;
    if (!(file >> number >> name >> state) || state != "T") return false;
  }
  return true;
}

std::string after_signal(int signal, bool factors) {
  const auto is_right = [](bool factorization, bool in_sink) {
    return factorization ? factors_are_right<double>(in_sink) : product_is_right<double>(in_sink);
  };
  send_all(1, 3);
  std::string seen = is_right(factors, true) ? "sent " : "";
  void* const memory = tev_routed_allocate(1000);
  const pid_t sink = sink_process();
  if (sink == 0) return seen + "no sink";
  kill(sink, signal);
  while (signal == SIGSTOP && !has_stopped(sink)) usleep(1000);
  for (int i = 0; i < 3; ++i) seen += is_right(factors == (i % 2 == 0), false) ? "here " : "";
  std::memset(memory, 1, 1000);
  tev_routed_release(memory);
  tev_routed_release(tev_routed_allocate(1000));
  return seen;
}

int64_t lines_of(const std::string& text) { return std::count(text.begin(), text.end(), '\n'); }

TEST(SinkThatFails, CallsRunHereAndThatIsSaidOnce) {
  const auto say = [](const std::string& text) { std::fputs(text.c_str(), stdout); };
  for (const int which : {0, 1, 2, 3}) {
    const int signal = which < 2 ? SIGKILL : SIGSTOP;
    const auto child = in_child({}, [&] { return say(after_signal(signal, which % 2 != 0)), 0; });
    EXPECT_EQ(child.out, "sent here here here ") << child.err;
    EXPECT_EQ(lines_of(child.err), 1) << child.err;
    EXPECT_NE(child.err.find(signal == SIGKILL ? "the sink (process" : "did not answer in time"), std::string::npos)
        << child.err;
  }
  for (const char* sink : {"/nowhere/sink", "/bin/true"}) {
    const auto child = in_child({}, [&] {
      const tev_routing routing = {sink, 1, 1, 0, 1, 20};
      tev_routed_set(&routing);
      return product_is_right<double>(false) && product_is_right<float>(false) ? 0 : 1;
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(lines_of(child.err), 1) << child.err;
  }
}

// At some moment of a large call: the result is right, wherever it was made.
TEST(SinkThatFails, KilledUnderWay) {
  std::mt19937_64 random(test_seed());
  SCOPED_TRACE(repeat_with(test_seed()));
  for (int round = 0; round < (long_run() ? 100 : 10); ++round) {
    const auto delay = std::chrono::microseconds(random() % 8000);
    const auto child = in_child({}, [&] {
      send_all();
      if (!product_is_right<float>(true)) return 1;
      std::thread killer([delay, sink = sink_process()] {
        std::this_thread::sleep_for(delay);
        kill(sink, SIGKILL);
      });
      const auto number = static_cast<size_t>(round) / 2;
      std::string in_sink;
      if (round % 2 == 0) {
        const auto& [op, options] = kCalls[number % std::size(kCalls)];
        in_sink = fault_of(random_case<double>(op, options, 400, 350, 300), true);
      } else if (const size_t kind = number % (std::size(kFactorizations) + 1); kind > 0) {
        factors_are_right<double>(true, kFactorizations[kind - 1].kind, 600);
      } else {
        expect_least_squares_solved<double, factorizations<double>>(nullptr, [] { return true; });
      }
      killer.join();
      return (in_sink.empty() || in_sink == "ran here") && !testing::Test::HasFailure() ? 0 : 2;
    });
    EXPECT_EQ(child.status, 0) << delay.count() << " us " << child.err;
  }
}

TEST(Threads, OneHasTheSinkTheOthersComputeHere) {
  const auto child = in_child({}, [] {
    send_all();
    std::atomic<int> right = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
      threads.emplace_back([&] {
        for (int i = 0; i < 10; ++i) {
          const std::string fault = fault_of(random_case<double>(operation::gemm, "TN", 200, 200, 200), true);
          right += fault.empty() || fault == "ran here";
        }
      });
    for (std::thread& thread : threads) thread.join();
    return right == 40 && product_is_right<double>(true) ? 0 : 1;
  });
  EXPECT_EQ(child.status, 0) << child.err;
  EXPECT_LE(lines_of(child.err), 1) << child.err;
}

cpu_set_t affinity_of(pid_t process) {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  sched_getaffinity(process, sizeof processors, &processors);
  return processors;
}

// OpenMP has bound the thread that starts it to one place.
TEST(SinkOfABoundThread, RunsWhereItsTeamMay) {
  const auto child = in_child({{"OMP_PROC_BIND", "true"}}, [] {
    const cpu_set_t all = affinity_of(0);
    send_all();
    const int32_t usable = tev_serv_usable_processors();
    const cpu_set_t own = affinity_of(0);
    if (!product_is_right<double>(true) || usable != CPU_COUNT(&all)) return 1;
    const cpu_set_t after = affinity_of(0), of_sink = affinity_of(sink_process());
    return CPU_EQUAL(&own, &after) && CPU_EQUAL(&of_sink, &all) ? 0 : 2;
  });
  EXPECT_EQ(child.status, 0) << child.err;
}

// A child has a sink of its own, also while another thread of the parent has the parent's; neither disturbs the other.
TEST(Fork, ChildrenStartTheirOwn) {
#if __has_feature(thread_sanitizer)
  GTEST_SKIP() << "which forbids threads in the child of a process that has some";
#endif
  const auto child = in_child({}, [] {
    send_all();
    void* const memory = tev_routed_allocate(1000);
    std::atomic<bool> stop = false, right = true;
    std::thread other([&] {
      while (!stop) right = product_is_right<double>(true) && right;
    });
    int failed = 0;
    for (int i = 0; i < 4; ++i) {
      const pid_t forked = fork();
      if (forked == 0) {
        tev_routed_release(memory);  // not theirs
        _exit(product_is_right<double>(true) && factors_are_right<float>(true) ? 0 : 1);
      }
      int status = 0;
      waitpid(forked, &status, 0);
      failed += status != 0;
    }
    stop = true;
    other.join();
    tev_routed_release(memory);
    return failed == 0 && right && product_is_right<double>(true) ? 0 : 1;
  });
  EXPECT_EQ(child.status, 0) << child.err;
  EXPECT_EQ(child.err, "");
}

}  // namespace
}  // namespace tev::test
