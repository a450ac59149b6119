// SPDX-License-Identifier: BSD-3-Clause
// A whole offloaded call (start of a sink, three buffers, a product, its end) while something is refused: memory,
// files, processes, address space, room on a disk. The result is right or the library says in words what failed;
// nothing crashes or hangs in the host, and nothing is left behind.
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "tests/chaos/offload.h"
#include "tests/support/effort.h"
#include "tests/support/in_child.h"
#include "tests/support/left_behind.h"
#ifdef TEV_FAILING_ALLOCATIONS
#include "tests/chaos/failing_allocations.h"
#endif

namespace tev::test {
namespace {

const auto nothing = [] {};

// `calm` ends the trouble, before the look at what is left.
template <class Trouble, class Later, class Calm>
report offload(const char* const* environment, const Trouble& before_start, const Later& once_it_serves,
               const Calm& calm) {
  const rlimit no_core = {0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  const auto descriptors = open_descriptors();
  before_start();
  vro_process* process = start_sink(environment);
  report r = process ? report{VRO_OK, {}} : failed_with(VRO_ENDED);
  if (process) {
    once_it_serves();
    r = multiply(process, 40);
    const int end = vro_process_shutdown(process, kWaitMs);
    if (r.code == VRO_OK && end != VRO_OK) r = failed_with(end);
  }
  calm();
  if (open_descriptors() != descriptors) return wrong("a descriptor is left");
  if (shared_mappings() != 0) return wrong("a mapping is left");
  if (!children_of(getpid()).empty()) return wrong("a child is left");
  return r;
}

// What the child of a test tells of its call; the status is 0 unless something is wrong.
int tell(const report& r) {
  std::printf("%s", r.code == VRO_OK ? "right" : r.words);
  return r.code == kWrong;
}

// How often which answer was given, whatever the numbers of the processes.
class answers {
 public:
  void take(const child_result& result, const std::string& trouble) {
    EXPECT_EQ(result.status, 0) << trouble << ": " << result.out << result.err;
    ++counts_[std::regex_replace(result.out, std::regex("process [0-9]+"), "process N")];
  }
  ~answers() {
    for (const auto& [words, count] : counts_) std::printf("%6d  %s\n", count, words.c_str());
  }

 private:
  std::map<std::string, int> counts_;
};

// ---- Memory ---------------------------------------------------------------------------------------------------------

#ifdef TEV_FAILING_ALLOCATIONS

// Shared with the children of the test and with their sinks.
class shared_plan {
 public:
  shared_plan() : file_(memfd_create("plan", 0)) {
    if (ftruncate(file_, sizeof(allocation_plan)) != 0) throw std::bad_alloc();
    plan_ = static_cast<allocation_plan*>(
        mmap(nullptr, sizeof(allocation_plan), PROT_READ | PROT_WRITE, MAP_SHARED, file_, 0));
  }
  ~shared_plan() {
    munmap(plan_, sizeof(allocation_plan));
    close(file_);
  }
  shared_plan(const shared_plan&) = delete;
  allocation_plan* operator->() const { return plan_; }
  allocation_plan* get() const { return plan_; }
  std::string path() const { return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(file_); }

 private:
  int file_;
  allocation_plan* plan_;
};

// call() makes an offloaded call in a child, which follows the plan. First without trouble, to count the allocations;
// then each of them fails in turn, or some by chance, alone and together with all that follow.
template <class Call>
void fail_each_allocation(shared_plan& plan, int some, const Call& call) {
  answers all;
  plan->failing = 0;
  all.take(call(), "no trouble");
  const long last = plan->seen;
  std::printf("%ld allocations\n", last);
  std::mt19937_64 random(test_seed());
  const long step = long_run() ? 1 : std::max<long>(1, last / some);
  for (const bool onwards : {false, true})
    for (long n = 1 + static_cast<long>(random() % static_cast<unsigned long>(step)); n <= last; n += step) {
      plan->seen = 0, plan->onwards = onwards, plan->failing = n;
      all.take(call(), "allocation " + std::to_string(n) + (onwards ? " and all that follow" : ""));
      ASSERT_FALSE(testing::Test::HasFailure());
    }
}

TEST(Failures, EveryAllocationOfTheHost) {
  shared_plan plan;
  EXPECT_EQ(offload(nullptr, nothing, nothing, nothing).code, VRO_OK);  // what the C library keeps of it is no leak
  fail_each_allocation(plan, 25, [&] {
    return in_child({}, [&] {
      const report r = offload(
          nullptr, [&] { plan->live = 0, tev_test_follow(plan.get()); }, nothing, [] { tev_test_follow(nullptr); });
      return tell(r.code != kWrong && plan->live != 0 ? wrong("memory is left") : r);
    });
  });
}

TEST(Failures, EveryAllocationOfTheSink) {
  shared_plan plan;
  const char* const preloaded = std::getenv("LD_PRELOAD");
  const std::string preload = "LD_PRELOAD=" TEV_FAILING_ALLOCATIONS + (preloaded ? ':' + std::string(preloaded) : "");
  const std::string variable = std::string(kPlanVariable) + "=" + plan.path();
  const char* const environment[] = {preload.c_str(), variable.c_str(), "OMP_NUM_THREADS=2", nullptr};
  fail_each_allocation(
      plan, 10, [&] { return in_child({}, [&] { return tell(offload(environment, nothing, nothing, nothing)); }); });
}

#endif

// ---- Limits ---------------------------------------------------------------------------------------------------------

void set_limit(int resource, rlim_t value) {
  rlimit limit;
  getrlimit(static_cast<__rlimit_resource>(resource), &limit);
  limit.rlim_cur = std::min(value, limit.rlim_max);
  setrlimit(static_cast<__rlimit_resource>(resource), &limit);
}

// Limits of processes are those of a user, and nobody limits root.
void become_nobody() {
  constexpr uid_t kNobody = 65534;
  if (getuid() == 0 && setresuid(kNobody, kNobody, kNobody) == 0) prctl(PR_SET_DUMPABLE, 1);
}

rlim_t mapped_bytes() {
  rlim_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

TEST(Failures, LimitsOfTheHostTheSinkAndBoth) {
  // A sanitizer needs address space without end.
  std::vector<rlim_t> counts, spaces;
  for (rlim_t n = 0; n < 20; ++n) counts.push_back(n);
  for (rlim_t bytes = 1 << 14; bytes <= 1u << 30 && !kSanitized; bytes *= 2) spaces.push_back(bytes);
  const struct {
    const char* name;
    int resource;
    std::vector<rlim_t> values;
  } limits[] = {{"open files", RLIMIT_NOFILE, counts},
                {"processes", RLIMIT_NPROC, {0, 1, 2, 3, 4}},
                {"address space", RLIMIT_AS, spaces},
                {"file size", RLIMIT_FSIZE, {0, 1, 4096, 12000, 1 << 20}}};
  answers all;
  std::mt19937_64 random(test_seed());
  for (const auto& limit : limits)
    for (const rlim_t value : limit.values)
      for (const bool host : {false, true})
        for (const bool sink : {false, true}) {
          if ((!host && !sink) || (!long_run() && random() % 6 != 0)) continue;
          const child_result result = in_child({{"OMP_NUM_THREADS", "2"}}, [&] {
            if (limit.resource == RLIMIT_NPROC) become_nobody();
            const rlim_t base = limit.resource == RLIMIT_AS && host ? mapped_bytes() : 0;
            const auto lower = [&] { set_limit(limit.resource, base + value); };
            const auto lift = [&] { set_limit(limit.resource, RLIM_INFINITY); };
            return tell(offload(
                nullptr,
                [&] {
                  if (sink) lower();
                },
                [&] { host ? lower() : lift(); }, lift));
          });
          all.take(result, std::string(limit.name) + " " + std::to_string(value) + " of" + (host ? " host" : "") +
                               (sink ? " sink" : ""));
        }
}

// ---- Disks ----------------------------------------------------------------------------------------------------------

constexpr int kNotPermitted = 77;

// A disk of its own for this process, of `bytes`.
bool mount_disk(const char* folder, const std::string& bytes) {
  if (unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
  return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("none", folder, "tmpfs", 0, ("size=" + bytes).c_str()) == 0;
}

void fill_disk(const std::string& folder) {
  std::ofstream file(folder + "/full");
  const std::string block(4096, 'x');
  while (file.write(block.data(), std::ssize(block)).flush()) {
  }
}

TEST(Failures, FullDiskUnderTheResultOfTheTool) {
  const std::string folder = testing::TempDir() + "full_disk_" + std::to_string(getpid());
  std::filesystem::create_directory(folder);
  const child_result result = in_child({}, [&] {
    if (!mount_disk(folder.c_str(), "64k")) return kNotPermitted;
    const std::string old = folder + "/old.npy",
                      command = TEV_TOOL " run gemm -m 200 -n 200 -k 5 --sink " TEV_SINK_PATH;
    std::ofstream(old) << "old";
    for (const std::string& out : {old, folder + "/new.npy"})
      if (const int status = std::system((command + " --out " + out).c_str()); WEXITSTATUS(status) != 1) return 1;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) std::puts(entry.path().filename().c_str());
    std::string content;
    std::ifstream(old) >> content;
    return content == "old" ? 0 : 1;
  });
  std::filesystem::remove(folder);
  if (result.status == kNotPermitted) GTEST_SKIP() << "may not mount a disk";
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "old.npy\n");
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 2) << result.err;
}

TEST(Failures, FullDiskUnderSharedMemory) {
  const child_result result = in_child({}, [] {
    if (!mount_disk("/dev/shm", "8k")) return kNotPermitted;
    fill_disk("/dev/shm");
    return tell(offload(nullptr, nothing, nothing, nothing));
  });
  if (result.status == kNotPermitted) GTEST_SKIP() << "may not mount a disk";
  answers().take(result, "full shared memory");
}

}  // namespace
}  // namespace tev::test
