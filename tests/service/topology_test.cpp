// SPDX-License-Identifier: BSD-3-Clause
// The probe of the machine, on this one and on made-up ones, and how much of it the process may use.
#include "service/topology.h"

#include <omp.h>
#include <sched.h>

#include <fstream>

#include "service/affinity.h"
#include "service/cpu_quota.h"
#include "service/cpuid.h"
#include "service/threads.h"
#include "tests/support/failing_new.h"
#include "tests/support/fake_processor.h"
#include "tests/support/kernel_folder.h"

namespace {

using namespace tev::service;
using namespace tev::test;

// "hardware threads/cores/packages"
std::string text_of(const topology& t) {
  return std::to_string(t.logical) + '/' + std::to_string(t.physical) + '/' + std::to_string(t.packages);
}

// As it is in force.
topology counted() { return {tev_serv_get_nlogicalcores(), __N_Physical_Cores, tev_serv_get_ncpus()}; }

// Processors that identify themselves by their numbers, `stride` apart; the process may use `processors` of them.
struct machine {
  std::vector<int> processors;
  uint32_t logical_per_package = 16, cores_per_package = 8, stride = 1;
  bool topology_leaf = false;
  bool refuses = false;  // to move threads
  bool short_of_memory = false;
  const char* vendor = "GenuineZarik";
  bool vouched = false;
};
machine at_hand;
int here;  // the processor that the probe visits

void be(const machine& m) {
  fake_processor base = sse2_processor();
  base.leaf1_edx |= 1u << 28;
  base.cores_per_package = m.cores_per_package;
  base.vendor = m.vendor;
  base.install();
  at_hand = m;
  processor.cpuid = [](uint32_t leaf, uint32_t subleaf, uint32_t r[4]) {
    answer_cpuid(leaf, subleaf, r);
    const uint32_t identifier = static_cast<uint32_t>(here) * at_hand.stride;
    if (leaf == 1) r[1] = identifier << 24 | at_hand.logical_per_package << 16;
    if (leaf == 0x0B && at_hand.topology_leaf) {
      r[0] = subleaf == 0 ? 1 : 9;  // one bit of thread, eight of core
      r[1] = subleaf < 2 ? 2 : 0;
      r[3] = identifier;
    }
  };
  processor.team_processors = [] {
    processor_set set;
    for (const int number : at_hand.processors) set.insert(number);
    return set;
  };
  processor.set_affinity = [](const processor_set& where, size_t) {
    for (here = 0; !where.contains(here);) ++here;
    return !at_hand.refuses;
  };
  if (m.short_of_memory) i_malloc = [](size_t) -> void* { return nullptr; };
  if (m.vouched) tev_serv_trust_features(1);
}

TEST_IN_CHILD(Topology, IsThatOfThisMachine) {
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
  const topology expected = {logical, static_cast<int32_t>(cores.size()), static_cast<int32_t>(packages.size())};
  if (logical != 0) EXPECT_EQ(text_of(counted()), text_of(expected));  // else the kernel does not tell
}

// A thread that OpenMP or the program has bound to one processor still counts those of its teams.
TEST(Topology, AsksTheProcessorsOfTheTeamAndBringsTheThreadBack) {
  const auto probe = [] {
    const int32_t all = omp_get_num_procs();
    cpu_set_t home, after;
    CPU_ZERO(&home);
    CPU_SET(sched_getcpu(), &home);
    sched_setaffinity(0, sizeof home, &home);
    be({.logical_per_package = 1, .cores_per_package = 1});
    processor.team_processors = team_processors;
    processor.set_affinity = [](const processor_set& where, size_t bytes) {
      const bool moved = set_affinity(where, bytes);
      here = sched_getcpu();
      return moved;
    };
    EXPECT_EQ(text_of(probe_topology()), text_of({all, all, all}));
    sched_getaffinity(0, sizeof after, &after);
    EXPECT_TRUE(CPU_EQUAL(&after, &home));
  };
  for (const char* bind : {"false", "true"}) EXPECT_EQ(printed({{"OMP_PROC_BIND", bind}}, probe), "") << bind;
}

// So that it shows who was asked: the kernel's folders tell of cores of processors 0 and 8, 1 and 9 ..., its list of
// four packages of one core.
TEST(Topology, AndTheThreadsThatFitIntoIt) {
  const kernel_folder kernel;
  std::string list;
  for (int number = 0; number < 16; ++number) {
    const std::string folder = "cpus/cpu" + std::to_string(number) + "/topology/", core = std::to_string(number % 8);
    kernel.put(folder + "thread_siblings_list", core + "," + std::to_string(number % 8 + 8) + "\n");
    kernel.put(folder + "core_siblings_list", "0-15\n");
    const std::string package = std::to_string(number / 4);
    list += "processor : " + std::to_string(number) + "\nphysical id : " + package + "\ncore id : 0\n\n";
  }
  kernel.put("groups/cpu.max", "250000 100000\n");
  const std::string cpus = kernel.path("cpus"), groups = kernel.path("groups"), none = "/nonexistent",
                    cpuinfo = kernel.put("cpuinfo", list), quota = kernel.put("own_groups", "0::/\n");
  constexpr const char* kForeign = "AuthenticAMD";
  const struct {
    machine on;
    std::string cpus, own_groups;
    const char* expected;  // topology, threads by default, when chosen, when not dynamic
  } rows[] = {{{{0, 1}, 2, 1, 1}, none, none, "2/1/1 1 1 99"},                  // two threads of a core
              {{{0, 1}, 2, 2, 1}, none, none, "2/2/1 2 2 99"},                  // two cores
              {{{0, 1}, 4, 2, 4}, none, none, "2/2/2 2 2 99"},                  // packages of two cores of two threads
              {{{0, 1}, 2, 2, 256}, none, none, "2/1/1 1 1 99"},                // alike in eight bits,
              {{{0, 1}, 2, 2, 256, true}, none, none, "2/2/1 2 2 99"},          // not in the topology leaf
              {{{6, 7}}, none, none, "2/1/1 1 1 99"},                           // a core of many
              {{{3, 4, 5, 8, 9}, 12, 6}, none, none, "5/3/1 3 3 99"},           // a gap after the third core
              {{{0, 3, 4, 7, 200, 239}, 240, 60}, none, none, "6/4/1 4 4 99"},  // four threads a core
              {{{0, 1, 2}, 1, 2}, none, none, "3/3/2 3 3 99"},                  // counts that contradict each other
              {{{1, 15, 16, 130}}, none, none, "4/4/3 4 4 99"},
              {{{0, 2, 4, 6}}, none, quota, "4/4/1 3 4 99"},
              {{.processors = {0, 2, 8, 9}, .refuses = true}, cpus, none, "4/3/1 3 3 99"},
              {{.processors = {0, 2, 8, 9}, .short_of_memory = true}, cpus, none, "4/3/1 3 3 99"},
              {{.processors = {0, 2, 8}, .refuses = true}, none, none, "16/4/4 3 4 99"},
              {{.processors = {0, 2, 8, 9}, .vendor = kForeign}, cpus, none, "16/4/4 3 4 99"},
              {{.processors = {0, 2, 8, 9}, .vendor = kForeign, .vouched = true}, cpus, none, "16/4/4 3 4 99"},
              {{.processors = {0, 1, 2, 3, 8}, .vendor = kForeign}, cpus, quota, "16/4/4 3 4 99"}};
  for (const auto& row : rows) {
    const auto print = [&] {
      be(row.on);
      processor.cpuinfo = cpuinfo.c_str();
      processor.cpu_folders = row.cpus.c_str();
      processor.own_groups = row.own_groups.c_str();
      processor.groups = groups.c_str();
      omp_set_num_threads(99);
      printf("%s %d", text_of(counted()).c_str(), tev_serv_get_max_threads());
      tev_serv_set_num_threads(99);
      printf(" %d", tev_serv_get_max_threads());
      tev_serv_set_dynamic(0);
      printf(" %d", tev_serv_get_max_threads());
    };
    EXPECT_EQ(printed({}, print), row.expected) << "row " << &row - rows;
  }
}

TEST(Topology, QuotaOfControlGroups) {
  const kernel_folder kernel;
  const std::pair<const char*, const char*> files[] = {
      {"cpu.max", "600000 100000\n"},           {"a/cpu.max", "max 100000\n"},
      {"a/half/cpu.max", "50000 100000\n"},     {"a/some/cpu.max", "200001 100000\n"},
      {"a/more/cpu.max", "900000 100000\n"},    {"a/odd/cpu.max", "900000 0\n"},
      {"cpu/cpu.cfs_quota_us", "-1\n"},  // version 1
      {"cpu/b/cpu.cfs_quota_us", "200000\n"},   {"cpu/b/tight/cpu.cfs_quota_us", "75000\n"},
      {"cpu/b/loose/cpu.cfs_quota_us", "-1\n"},
  };
  for (const auto& [name, text] : files) kernel.put(name, text);
  for (const char* group : {"", "/b", "/b/tight", "/b/loose"})
    kernel.put("cpu" + std::string(group) + "/cpu.cfs_period_us", "50000\n");
  const std::pair<const char*, int32_t> rows[] = {{"0::/a/half\n", 1},
                                                  {"0::/a/some\n", 3},
                                                  {"0::/a/more\n", 6},
                                                  {"0::/a/odd\n", 6},
                                                  {"0::/elsewhere/outside\n", 6},
                                                  {"5:memory:/b\n4:cpuacct,cpu:/b/tight\n1:name=systemd:/b\n", 2},
                                                  {"4:cpu,cpuacct:/b/loose", 4},
                                                  {"4:cpu:/", INT32_MAX},
                                                  {"5:cpuset:/b/tight\n3:cpuacct:/b\n", INT32_MAX},
                                                  {"4:cpu:/b\n0::/a/some\n", 3},
                                                  {"::::\n\n:\nnone", INT32_MAX},
                                                  {"", INT32_MAX}};
  const std::string root = kernel.path("");
  for (const auto& [groups, expected] : rows) {
    const std::string own = kernel.put("own", groups);
    const auto print = [&] {
      processor.own_groups = own.c_str();
      processor.groups = root.c_str();
      printf("%d", cpu_quota());
    };
    EXPECT_EQ(printed({}, print), std::to_string(expected)) << groups;
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
    new_fails = true;
    const topology without_memory = count_described(file, {5, 5, 1});
    new_fails = false;
    if (kNewCanFail) EXPECT_EQ(text_of(without_memory), "5/5/1");
    std::rewind(file);
    EXPECT_EQ(text_of(count_described(file, {5, 5, 1})), expected) << text;
    std::fclose(file);
  }
}

}  // namespace
