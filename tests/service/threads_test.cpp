// SPDX-License-Identifier: BSD-3-Clause
// How many threads: the decision step by step on machines made up here, and the thread's own counts.
#include "service/threads.h"

#include <omp.h>

#include "tests/support/at_once.h"
#include "tests/support/fake_processor.h"
#include "tests/support/in_child.h"

namespace {

using namespace tev::test;

// A process whose settings are read and whose machine is known; OpenMP would use 12 threads.
struct process {
  int32_t own = 0, dynamic = 1, all = -1, blas = -1, cores = 8, usable = 7, safe = -1, ppn = -1, omp_variable = -1,
          level = -1;

  void install() const {
    __threads_env_NOT_readed = 0;
    tev_serv_set_num_threads_local(own);
    __tev_dynamic = dynamic;
    __tev_num_threads = all;
    __tev_blas_num_threads = blas;
    __N_Physical_Cores = cores;
    tev::service::usable_core_count = usable;
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
  } rows[] = {{"1 own count before everything", {.own = 300, .all = 4, .blas = 2, .safe = 0}, 300, 300},
              {"1 a negative one is none", {.own = -5, .all = 4}, 4, 4},
              {"4 domain, then all", {.all = 4, .blas = 2}, 2, 4},
              {"4 zero hands over to all", {.all = 4, .blas = 0}, 4, 4},
              {"4 zero for all hands over to OpenMP", {.dynamic = 0, .all = 0, .blas = 0}, 12, 12},
              {"5 not dynamic: as it is", {.dynamic = 0, .all = 300, .safe = 0, .ppn = 2}, 300, 300},
              {"6 dynamic: cores", {.all = 300, .blas = 9}, 8, 8},
              {"7 MPI is safe", {.blas = 5, .safe = 1, .ppn = 2}, 5, 7},
              {"7 MPI is not", {.blas = 5, .safe = 0}, 1, 1},
              {"6 a count of nobody: usable cores", {.blas = 5}, 5, 7},
              {"8 processes unknown", {.level = 0}, 7, 7},
              {"8 own settings", {.blas = 5, .ppn = 2}, 5, 1},
              {"8 OMP_NUM_THREADS", {.ppn = 2, .omp_variable = 3}, 8, 8},
              {"9 thread level", {.all = 0, .blas = 4, .ppn = 2, .level = 0}, 4, 1},
              {"10 share", {.ppn = 3, .level = 1}, 2, 2},
              {"10 share above the count", {.cores = 64, .usable = 64, .ppn = 2, .level = 3}, 12, 12},
              {"10 at least 1", {.ppn = 9, .level = 3}, 1, 1}};
  for (const auto& row : rows) {
    const auto decide = [&] {
      row.state.install();
      EXPECT_EQ(tev_serv_domain_get_max_threads(TEV_DOMAIN_BLAS), row.blas);
      for (const int32_t domain : {0, 2, 5, INT32_MIN})
        EXPECT_EQ(tev_serv_domain_get_max_threads(domain), row.general) << domain;
      EXPECT_EQ(tev_serv_get_max_threads(), row.general);
    };
    EXPECT_EQ(printed({}, decide), "") << row.step;
  }
}

TEST_IN_CHILD(Threads, ParallelRegionsGetOneThreadInDynamicMode) {
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
    for (int t : {0, 2}) EXPECT_EQ(counts[t], dynamic ? 11 : 51);
    EXPECT_EQ(counts[1], 71);
    EXPECT_EQ(alone, 5) << "a team of one is no parallel region";
  }
}

TEST_IN_CHILD(Threads, OwnCountBelongsToItsThreadUntilTheCleanup) {
  process{.all = 4}.install();
  for (int round = 0; round < 20; ++round) {  // more than the registry has room for
    EXPECT_EQ(tev_serv_set_num_threads_local(3), 0);
    EXPECT_EQ(tev_serv_set_num_threads_local(5), 3);
    std::thread([] { EXPECT_EQ(tev_serv_get_max_threads(), 4); }).join();
    EXPECT_EQ(tev_serv_get_max_threads(), 5);
    tev_serv_thr_cleanup();
    EXPECT_EQ(tev_serv_get_max_threads(), 4);
  }
}

TEST_IN_CHILD(Threads, SettersRefuseWhatMakesNoSense) {
  process{.all = 4, .blas = 2}.install();
  for (const int32_t n : {0, -1, INT32_MIN}) tev_serv_set_num_threads(n);
  EXPECT_EQ(tev_serv_get_max_threads(), 4);
  for (const auto& [n, domain] : {std::pair(3, -1), {3, 5}, {-1, TEV_DOMAIN_BLAS}})
    EXPECT_EQ(tev_serv_domain_set_num_threads(n, domain), 0);
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
}

TEST(Threads, SettingsAreReadOnceByWhoeverAsksFirst) {
  for (const auto query : {tev_serv_get_max_threads, tev_serv_get_dynamic, tev_serv_get_num_stripes, tev_serv_get_ncpus,
                           tev_serv_get_ht, tev_serv_get_ncorespercpu, tev_serv_get_nlogicalcores}) {
    const auto ask = [query] {
      at_once(4, [query](int) {
        query();
        EXPECT_EQ(__threads_env_NOT_readed, 0);
      });
      setenv("TEV_NUM_THREADS", "2", 1);
      EXPECT_EQ(tev_serv_get_max_threads(), 300);
      tev_serv_set_dynamic(1);
      EXPECT_EQ(tev_serv_get_max_threads(), std::min(__N_Physical_Cores, 300));
    };
    EXPECT_EQ(printed({{"TEV_NUM_THREADS", "300"}, {"TEV_DYNAMIC", "false"}}, ask), "");
  }
}

// Whether the program's allocator and its wish to keep no buffers come in time.
TEST(Threads, FirstQuestionAllocatesOnTheMakersProcessorsOnly) {
  static int allocations;
  for (const bool makers : {true, false})
    for (const bool asked_first : {true, false}) {
      const auto allocate = [=] {
        if (asked_first) tev_serv_get_max_threads();
        i_malloc = [](size_t size) { return ++allocations, malloc(size); };
        const int32_t in_time = tev_serv_disable_fast_mm();
        if (!asked_first) tev_serv_get_max_threads();
        allocations = 0;
        tev_serv_free(tev_serv_malloc(10, 64));
        printf("%d %d", in_time, allocations);
      };
      const fake_processor own = sse2_processor();
      EXPECT_EQ(printed_on(makers ? own : amd(own), {}, allocate), makers && asked_first ? "0 0" : "1 1");
    }
}

}  // namespace
