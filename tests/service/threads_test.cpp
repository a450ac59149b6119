// SPDX-License-Identifier: BSD-3-Clause
// How many threads: the decision step by step on machines made up here, the thread's own counts, and the probe of the
// machine, on this one and on made-up processors.
#include "service/threads.h"

#include <gtest/gtest.h>
#include <omp.h>
#include <sched.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "service/cpuid.h"
#include "service/topology.h"
#include "tests/support/fake_processor.h"
#include "tests/support/in_child.h"

namespace {

using tev::service::topology;
using tev::test::environment;

// Expectations in a child are the parent's, too.
template <class Body>
void expect_in_child(const environment& variables, Body&& body) {
  const tev::test::child_result result = tev::test::in_child(variables, [&] {
    body();
    return testing::Test::HasFailure() ? 1 : 0;
  });
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

// A process whose settings are read and whose machine is known; OpenMP would use 12 threads.
struct process {
  int32_t own = 0, dynamic = 1, all = -1, blas = -1, cores = 8, safe = -1, ppn = -1, omp_variable = -1, level = -1;

  void install() const {
    __threads_env_NOT_readed = 0;
    tev_serv_set_num_threads_local(own);
    __tev_dynamic = dynamic;
    __tev_num_threads = all;
    __tev_blas_num_threads = blas;
    __N_Physical_Cores = cores;
    __mpi_SAFETY_BLACS = safe;
    __tev_mpi_ppn = ppn;
    __omp_num_threads = omp_variable;
    __tev_mpi_thread_level = level;
    omp_set_num_threads(12);
  }
};

TEST(Threads, CountIsDecidedInTenSteps) {
  const struct {
    const char* step;
    process state;
    int32_t blas, general;
  } rows[] = {
      {"1 own count before everything", {.own = 300, .all = 4, .blas = 2, .safe = 0}, 300, 300},
      {"1 a negative one is none", {.own = -5, .all = 4}, 4, 4},
      {"4 domain, then all", {.all = 4, .blas = 2}, 2, 4},
      {"4 zero hands over to all", {.all = 4, .blas = 0}, 4, 4},
      {"4 zero for all hands over to OpenMP", {.dynamic = 0, .all = 0, .blas = 0}, 12, 12},
      {"5 not dynamic: as it is", {.dynamic = 0, .all = 300, .safe = 0, .ppn = 2}, 300, 300},
      {"6 dynamic: cores", {.all = 300, .blas = 9}, 8, 8},
      {"7 MPI is safe", {.blas = 5, .safe = 1, .ppn = 2}, 5, 8},
      {"7 MPI is not", {.blas = 5, .safe = 0}, 1, 1},
      {"8 processes unknown", {.level = 0}, 8, 8},
      {"8 own settings", {.blas = 5, .ppn = 2}, 5, 1},
      {"8 OMP_NUM_THREADS", {.ppn = 2, .omp_variable = 3}, 8, 8},
      {"9 thread level", {.all = 0, .blas = 4, .ppn = 2, .level = 0}, 4, 1},
      {"10 share", {.ppn = 3, .level = 1}, 2, 2},
      {"10 share above the count", {.cores = 64, .ppn = 2, .level = 3}, 12, 12},
      {"10 at least 1", {.ppn = 9, .level = 3}, 1, 1},
  };
  expect_in_child({}, [&] {
    for (const auto& row : rows) {
      SCOPED_TRACE(row.step);
      row.state.install();
      EXPECT_EQ(tev_serv_domain_get_max_threads(TEV_DOMAIN_BLAS), row.blas);
      for (const int32_t domain : {0, 2, 5, INT32_MIN})
        EXPECT_EQ(tev_serv_domain_get_max_threads(domain), row.general) << domain;
      EXPECT_EQ(tev_serv_get_max_threads(), row.general);
    }
  });
}

TEST(Threads, ParallelRegionsGetOneThreadInDynamicMode) {
  expect_in_child({}, [] {
    for (const int32_t dynamic : {0, 1}) {
      process{.dynamic = dynamic, .blas = 5}.install();
      int32_t counts[3] = {}, alone = 0;
#pragma omp parallel num_threads(3)
      {
        const int t = omp_get_thread_num();
        if (t == 1) tev_serv_set_num_threads_local(7);
        counts[t] = tev_serv_domain_get_max_threads(TEV_DOMAIN_BLAS) * 10 + tev_serv_omp_in_parallel();
        tev_serv_set_num_threads_local(0);
      }
#pragma omp parallel num_threads(1)
      alone = tev_serv_domain_get_max_threads(TEV_DOMAIN_BLAS);
      EXPECT_EQ(counts[0], dynamic ? 11 : 51);
      EXPECT_EQ(counts[1], 71);
      EXPECT_EQ(counts[2], dynamic ? 11 : 51);
      EXPECT_EQ(alone, 5) << "a team of one is no parallel region";
    }
  });
}

TEST(Threads, OwnCountBelongsToItsThreadUntilTheCleanup) {
  expect_in_child({}, [] {
    process{.all = 4}.install();
    for (int round = 0; round < 20; ++round) {  // more than the registry has room for
      EXPECT_EQ(tev_serv_set_num_threads_local(3), 0);
      EXPECT_EQ(tev_serv_set_num_threads_local(5), 3);
      std::thread([] { EXPECT_EQ(tev_serv_get_max_threads(), 4); }).join();
      EXPECT_EQ(tev_serv_get_max_threads(), 5);
      tev_serv_thr_cleanup();
      EXPECT_EQ(tev_serv_get_max_threads(), 4);
    }
  });
}

TEST(Threads, SettersRefuseWhatMakesNoSense) {
  expect_in_child({}, [] {
    process{.all = 4, .blas = 2}.install();
    for (const int32_t n : {0, -1, INT32_MIN}) tev_serv_set_num_threads(n);
    EXPECT_EQ(tev_serv_get_max_threads(), 4);
    for (const int32_t domain : {-1, 5}) EXPECT_EQ(tev_serv_domain_set_num_threads(3, domain), 0);
    EXPECT_EQ(tev_serv_domain_set_num_threads(-1, TEV_DOMAIN_BLAS), 0);
    EXPECT_EQ(tev_serv_domain_get_max_threads(TEV_DOMAIN_BLAS), 2);
    for (const int32_t domain : {TEV_DOMAIN_ALL, TEV_DOMAIN_FFT, TEV_DOMAIN_VORT, TEV_DOMAIN_PARDISO}) {
      EXPECT_EQ(tev_serv_domain_set_num_threads(domain + 1, domain), 1);
      EXPECT_EQ(tev_serv_domain_get_max_threads(domain), domain + 1);
    }
    for (const int32_t stripes : {2, -1}) tev_serv_set_num_stripes(stripes);
    EXPECT_EQ(tev_serv_get_num_stripes(), 2);
    tev_serv_set_dynamic(-3);
    EXPECT_EQ(tev_serv_get_dynamic(), 1);
    tev_serv_mpi_safe(2);
    EXPECT_EQ(tev_serv_domain_get_max_threads(TEV_DOMAIN_PARDISO), 1);
  });
}

TEST(Threads, SettingsAreReadOnceByWhoeverAsksFirst) {
  int32_t (*const queries[])() = {tev_serv_get_max_threads,  tev_serv_get_dynamic, tev_serv_get_num_stripes,
                                  tev_serv_get_ncpus,        tev_serv_get_ht,      tev_serv_get_ncorespercpu,
                                  tev_serv_get_nlogicalcores};
  for (const auto query : queries)
    expect_in_child({{"TEV_NUM_THREADS", "300"}, {"TEV_DYNAMIC", "false"}}, [query] {
      std::vector<std::thread> threads;
      for (int t = 0; t < 4; ++t)
        threads.emplace_back([query] {
          query();
          EXPECT_EQ(__threads_env_NOT_readed, 0);
        });
      for (std::thread& thread : threads) thread.join();
      setenv("TEV_NUM_THREADS", "2", 1);
      EXPECT_EQ(tev_serv_get_max_threads(), 300);
      tev_serv_set_dynamic(1);
      EXPECT_EQ(tev_serv_get_max_threads(), std::min(__N_Physical_Cores, 300));
    });
}

// ---- The machine, as "hardware threads/cores/packages" ----

std::string text_of(const topology& t) {
  return std::to_string(t.logical) + '/' + std::to_string(t.physical) + '/' + std::to_string(t.packages);
}

TEST(Topology, IsThatOfThisMachine) {
  std::set<std::pair<int, int>> cores;
  std::set<int> packages;
  int32_t logical = 0;
  for (long number = 0; number < sysconf(_SC_NPROCESSORS_CONF); ++number) {
    const std::string folder = "/sys/devices/system/cpu/cpu" + std::to_string(number) + "/topology/";
    int package, core;
    if (!(std::ifstream(folder + "physical_package_id") >> package)) continue;
    if (!(std::ifstream(folder + "core_id") >> core)) continue;
    packages.insert(package);
    cores.emplace(package, core);
    ++logical;
  }
  if (logical == 0) GTEST_SKIP() << "the kernel does not tell";
  expect_in_child({}, [&] {
    EXPECT_EQ(tev_serv_get_nlogicalcores(), logical);
    EXPECT_EQ(tev_serv_get_ncpus(), packages.size());
    EXPECT_EQ(tev_serv_get_ncorespercpu(), cores.size() / packages.size());
    EXPECT_EQ(tev_serv_get_ht(), logical != static_cast<int32_t>(cores.size()));
  });
}

// Processors whose identifiers are the numbers of the test machine's, `stride` apart.
struct machine {
  uint32_t logical_per_package, cores_per_package, stride;
  bool topology_leaf = false;
};
machine asked;

void be(const machine& m) {
  tev::test::fake_processor base = tev::test::sse2_processor();
  base.leaf1_edx |= 1u << 28;
  base.cores_per_package = m.cores_per_package;
  base.install();
  asked = m;
  tev::service::processor.cpuid = [](uint32_t leaf, uint32_t subleaf, uint32_t r[4]) {
    tev::test::answer_cpuid(leaf, subleaf, r);
    const uint32_t identifier = static_cast<uint32_t>(sched_getcpu()) * asked.stride;
    if (leaf == 1) r[1] = identifier << 24 | asked.logical_per_package << 16;
    if (leaf == 0x0B && asked.topology_leaf) {
      r[0] = subleaf == 0 ? 1 : 9;  // one bit of thread, eight of core
      r[1] = subleaf < 2 ? 2 : 0;
      r[3] = identifier;
    }
  };
}

TEST(Topology, ProcessorsAreAskedAndTheAffinityComesBack) {
  cpu_set_t home;
  CPU_ZERO(&home);
  CPU_SET(0, &home);
  if (sysconf(_SC_NPROCESSORS_ONLN) < 2) GTEST_SKIP() << "needs two processors";
  const struct {
    machine processors;
    const char* expected;  // of the first two
  } rows[] = {
      {{2, 1, 1}, "2/1/1"},          // two threads of a core
      {{2, 2, 1}, "2/2/1"},          // two cores
      {{4, 2, 4}, "2/2/2"},          // two packages of two cores of two threads
      {{2, 2, 256}, "2/1/1"},        // eight bits do not tell the two apart,
      {{2, 2, 256, true}, "2/2/1"},  // the topology leaf does
  };
  for (const auto& row : rows)
    expect_in_child({}, [&] {
      be(row.processors);
      const int32_t logical = omp_get_num_procs();
      ASSERT_EQ(sched_setaffinity(0, sizeof home, &home), 0);
      const topology found = tev::service::probe_topology();
      EXPECT_EQ(found.logical, logical);
      if (logical == 2) EXPECT_EQ(text_of(found), row.expected);
      cpu_set_t after;
      sched_getaffinity(0, sizeof after, &after);
      EXPECT_TRUE(CPU_EQUAL(&after, &home));
    });
}

TEST(Topology, KernelIsAskedWhenMemoryIsShort) {
  expect_in_child({}, [] {
    i_malloc = [](size_t) -> void* { return nullptr; };
    be({1, 1, 1});
    FILE* file = std::fopen(tev::service::processor.cpuinfo, "r");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(text_of(tev::service::probe_topology()), text_of(tev::service::count_described(file, {1, 1, 1})));
    std::fclose(file);
  });
}

TEST(Topology, IdentifiersSplitByTheRoomThatCountsTake) {
  const struct {
    uint32_t logical, cores;  // per package
    std::vector<uint32_t> identifiers;
    const char* expected;
  } rows[] = {
      {16, 8, {0, 1, 2, 3, 16, 17, 18, 19}, "8/4/2"},
      {12, 6, {0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13}, "12/6/1"},  // a gap after the third core
      {240, 60, {0, 3, 4, 7, 239, 256, 0x10000}, "7/5/3"},          // four threads a core
      {1, 2, {0, 1, 2}, "3/3/2"},                                   // counts that contradict each other
  };
  for (const auto& row : rows) {
    std::vector<uint32_t> cores(row.identifiers.size()), packages(row.identifiers.size());
    const auto layout = tev::service::layout_from_counts(row.logical, row.cores);
    EXPECT_EQ(text_of(tev::service::count_identifiers(row.identifiers, layout, cores, packages)), row.expected);
  }
}

TEST(Topology, KernelsDescription) {
  const auto block = [](const char* package, const char* core) {
    return "processor\t: 9\nflags\t\t: " + std::string(118, 'f') + "processor" + "\nphysical id\t: " + package +
           "\ncore id\t\t: " + core + "\ncpu cores\t: 2\n\n";
  };
  const std::pair<std::string, const char*> rows[] = {
      {"vendor_id : none\ncpu cores : 4\n", "5/5/1"},
      {"processor : 0\nprocessor : 1\n", "2/2/1"},
      {"processor : 0\ncpu cores : 2\nprocessor : 1\nprocessor : 2\nprocessor : 3", "4/2/1"},
      {"processor : 0\nphysical id : 0\ncpu cores : 4\nprocessor : 1\nphysical id : 3\n", "2/8/2"},
      {block("0", "0") + block("0", "4") + block("0", "0") + block("0", "4"), "4/2/1"},
      {block("0", "0") + block("1", "0") + block("0", "1") + block("1", "1"), "4/4/2"},
  };
  for (auto [text, expected] : rows) {
    FILE* file = fmemopen(text.data(), text.size(), "r");
    EXPECT_EQ(text_of(tev::service::count_described(file, {5, 5, 1})), expected) << text;
    std::fclose(file);
  }
}

}  // namespace
