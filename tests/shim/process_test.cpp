// SPDX-License-Identifier: BSD-3-Clause
// The library as a guest in a process: what it does when it is loaded, where no thread can be started, over forks, in
// the parallel regions of another OpenMP runtime, and when it is closed.
#include <dirent.h>
#include <dlfcn.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <fstream>

#include "tests/support/in_child.h"

namespace {

using tev::test::in_child;
using dgemm = void(const char*, const char*, const int*, const int*, const int*, const double*, const double*,
                   const int*, const double*, const int*, const double*, double*, const int*);

constexpr int kNobody = 65534, kRegion = 4;
constexpr size_t kSmallStack = 64 << 10;
const tev::test::environment kTwoThreads = {{"OMP_NUM_THREADS", "2"}};

dgemm* open_library(void** handle = nullptr) {
  void* const library = dlopen(TEV_BLAS, RTLD_NOW | RTLD_LOCAL);
  if (handle) *handle = library;
  return library ? reinterpret_cast<dgemm*>(dlsym(library, "dgemm_")) : nullptr;
}

// A product of ones.
bool computes(dgemm* function, int order) {
  if (!function) return false;
  const std::vector<double> ones(static_cast<size_t>(order) * order, 1.0);
  std::vector<double> product(ones.size());
  const double one = 1, zero = 0;
  function("N", "N", &order, &order, &order, &one, ones.data(), &order, ones.data(), &order, &zero, product.data(),
           &order);
  return std::all_of(product.begin(), product.end(), [order](double x) { return x == order; });
}

int64_t entries(const char* folder, const std::string& part) {
  int64_t count = 0;
  DIR* const opened = opendir(folder);
  while (const dirent* entry = readdir(opened)) count += std::string(entry->d_name).find(part) != std::string::npos;
  closedir(opened);
  return count;
}
int64_t threads() { return entries("/proc/self/task", "") - 2; }
bool has_runtime_name(pid_t process) {
  return entries("/dev/shm", "__KMP_REGISTERED_LIB_" + std::to_string(process) + "_") != 0;
}

bool is_mapped(const std::string& file) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);)
    if (line.find(file) != std::string::npos) return true;
  return false;
}

// 0 where all of these hold, else the number of the first that does not.
int first_false(std::initializer_list<bool> conditions) {
  const auto found = std::find(conditions.begin(), conditions.end(), false);
  return found == conditions.end() ? 0 : 1 + static_cast<int>(found - conditions.begin());
}

// By another of the libraries than the one that is tested.
bool factors() {
  void* const library = dlopen(TEV_LAPACK, RTLD_NOW | RTLD_LOCAL);
  const auto dpotrf = reinterpret_cast<void (*)(const char*, const int*, double*, const int*, int*)>(
      library ? dlsym(library, "dpotrf_") : nullptr);
  const int one = 1;
  double a = 4;
  int info = 1;
  if (dpotrf) dpotrf("L", &one, &a, &one, &info);
  return info == 0 && a == 2;
}

// Threads of a call in a process with these settings, also after its program asked for `chosen`, if it did.
int threads_of_a_call(const tev::test::environment& settings, int chosen = 0, bool after_another = false) {
  return in_child(settings,
                  [chosen, after_another] {
                    void* library;
                    if (after_another && !factors()) return 0;
                    if (!computes(open_library(&library), 3)) return 0;
                    const auto get = reinterpret_cast<int (*)()>(dlsym(library, "tevblas_get_num_threads"));
                    if (chosen == 0) return get();
                    get();
                    reinterpret_cast<void (*)(int)>(dlsym(library, "tevblas_set_num_threads"))(chosen);
                    return get();
                  })
      .status;
}

// Ranks of an MPI job that are not bound to processors share them, unless somebody has chosen a count.
TEST(Threads, UnboundRanksShareTheProcessors) {
  const int alone = threads_of_a_call({}), two = std::min(alone, 2);
  constexpr std::pair kOne = {"OMPI_COMM_WORLD_LOCAL_SIZE", "1"}, kMany = {"OMPI_COMM_WORLD_LOCAL_SIZE", "9999"};
  EXPECT_EQ(threads_of_a_call({kOne}), alone);
  EXPECT_EQ(threads_of_a_call({kMany}), 1);
  EXPECT_EQ(threads_of_a_call({kMany}, 0, true), 1);
  EXPECT_EQ(threads_of_a_call({kMany, {"OMP_NUM_THREADS", "2"}}), two);
  EXPECT_EQ(threads_of_a_call({kMany}, 2), two);
}

// OpenMP binds the calling thread to a place of its own.
TEST(Threads, BoundOnesMakeATeam) {
  const int alone = threads_of_a_call({});
  for (const bool after_another : {false, true})
    EXPECT_EQ(threads_of_a_call({{"OMP_PROC_BIND", "true"}}, 0, after_another), alone);
}

TEST(Process, LoadingStartsNothing) {
  const auto child = in_child(kTwoThreads, [] {
    dgemm* const function = open_library();
    const bool quiet = threads() == 1 && !is_mapped("libtev.so.0") && !is_mapped("libomp");
    const bool computed = computes(function, 3);
    return first_false({quiet, computed, is_mapped("libtev.so.0"), dlsym(RTLD_DEFAULT, "omp_in_parallel") == nullptr,
                        !has_runtime_name(getpid()), wait(nullptr) < 0 && errno == ECHILD});
  });
  EXPECT_EQ(child.status, 0) << child.err;
}

// As daemons start, and as threads of servers are made.
TEST(Process, ComputesWithoutDescriptorsOnASmallStack) {
  const auto child = in_child(kTwoThreads, [] {
    static dgemm* const function = open_library();
    if (close_range(0, ~0U, 0) != 0) return 1;
    pthread_attr_t small;
    pthread_attr_init(&small);
    pthread_attr_setstacksize(&small, kSmallStack);
    static bool right = false;
    const auto compute = [](void*) -> void* { return (right = computes(function, 300), nullptr); };
    pthread_t thread;
    if (pthread_create(&thread, &small, compute, nullptr) != 0 || pthread_join(thread, nullptr) != 0) return 2;
    return right && computes(function, 300) ? 0 : 3;
  });
  EXPECT_EQ(child.status, 0) << child.err;
}

TEST(Process, ComputesWhereNoThreadCanStart) {
  const auto child = in_child(kTwoThreads, [] {
    dgemm* const function = open_library();
    const bool opened = computes(function, 3);
    const rlimit none = {0, 0};  // root has no such limit
    if (getuid() == 0 && (setgid(kNobody) != 0 || setuid(kNobody) != 0)) return 10;
    const bool limited = setrlimit(RLIMIT_NPROC, &none) == 0;
    return first_false({opened, limited, computes(function, 500), threads() == 1});
  });
  EXPECT_EQ(child.status, 0) << child.err;
}

// A row-major call that needs a copy of its vector. Pages that nobody has written to take no memory.
TEST(Process, WithoutMemoryNothingIsTouched) {
  const auto child = in_child({}, [] {
    using zher = void(int, int, int, double, const void*, int, void*, int);
    constexpr int kRowMajor = 101, kUpper = 121, kLength = 1 << 20;
    constexpr size_t kElement = 16, kLine = size_t{kLength} * kElement;
    void* library;
    if (!computes(open_library(&library), 3)) return 1;
    const auto function = reinterpret_cast<zher*>(dlsym(library, "cblas_zher"));
    void* const x = mmap(nullptr, kLine, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    const rlimit none = {0, 0};
    if (!function || x == MAP_FAILED || setrlimit(RLIMIT_AS, &none) != 0) return 2;
    function(kRowMajor, kUpper, kLength, 1, x, 1, nullptr, kLength);
    return 0;
  });
  EXPECT_EQ(child.status, 0);
  EXPECT_NE((child.out + child.err).find("ZHER"), std::string::npos) << child.err;
}

TEST(Process, ClosedAndOpenedAgain) {
  const auto child = in_child(kTwoThreads, [] {
    for (int i = 0; i < 3; ++i) {
      void* handle;
      if (!computes(open_library(&handle), 300) || dlclose(handle) != 0) return 1;
      if (const pid_t forked = fork(); forked == 0) _exit(0);
      if (wait(nullptr) < 0) return 2;
    }
    return is_mapped("libtevblas") ? 3 : 0;
  });
  EXPECT_EQ(child.status, 0) << child.err;
}

// A child computes, on a team, while the parent's threads did, too; and leaves nothing behind, nor does one that calls
// nothing.
TEST(Process, ForksWhileOthersCompute) {
  const auto child = in_child(kTwoThreads, [] {
    dgemm* const function = open_library();
    std::atomic<bool> stop = false, right = true, is_open = false;
    std::vector<std::thread> others;
    for (int i = 0; i < 2; ++i)
      others.emplace_back([&] {
        while (!stop) right = computes(function, 150) && right, is_open = true;
      });
    int failed = 0;
    for (int i = 0; i < 8; ++i) {
      // The first ones meet the opening of the library. Where the OpenMP runtime has its handlers of forks already and
      // the library does not, the child keeps its name.
      const bool may_be_named = !is_open;
      const pid_t forked = fork();
      if (forked == 0) _exit(i % 2 == 0 ? first_false({computes(function, 3), computes(function, 200)}) : 0);
      int status = 0;
      waitpid(forked, &status, 0);
      failed += status != 0 || (!may_be_named && has_runtime_name(forked));
    }
    stop = true;
    for (std::thread& other : others) other.join();
    return first_false({failed == 0, right, computes(function, 300), !has_runtime_name(getpid())});
  });
  EXPECT_EQ(child.status, 0) << child.err;
}

// A program and a module of the other compiler, whose region has four threads: none of them makes a team.
struct other_program {
  const char *name, *path, *preload;
};
void PrintTo(const other_program& program, std::ostream* out) { *out << program.name; }
class OtherRuntime : public testing::TestWithParam<other_program> {};

TEST_P(OtherRuntime, ItsRegionMakesNoTeams) {
  const auto child = in_child({{"OMP_NUM_THREADS", "2"}, {"LD_PRELOAD", GetParam().preload}}, [] {
    execl(GetParam().path, GetParam().path, nullptr);
    return 127;
  });
  EXPECT_EQ(child.status, kRegion) << child.err;
}
INSTANTIATE_TEST_SUITE_P(, OtherRuntime,
                         testing::Values(other_program{"Linked", TEV_REGION_LINKED, ""},
                                         other_program{"Preloaded", TEV_REGION_PRELOADED, TEV_BLAS}),
                         [](const auto& tested) { return tested.param.name; });

TEST(OtherRuntimes, OneThatComesLaterIsSeen) {
  const auto child = in_child(kTwoThreads, [] {
    if (!computes(open_library(), 100)) return 0;
    void* const module = dlopen(TEV_REGION_MODULE, RTLD_NOW | RTLD_LOCAL);
    const auto run = module ? reinterpret_cast<int (*)()>(dlsym(module, "threads_of_region")) : nullptr;
    return run ? run() : 0;
  });
  EXPECT_EQ(child.status, kRegion) << child.err;
}

}  // namespace
