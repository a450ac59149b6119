// SPDX-License-Identifier: BSD-3-Clause
// The machine as its processors describe themselves: a thread that visits every processor that the process may use and
// asks for its identifier learns which of them share a core and a package. Where the processors cannot be asked, the
// kernel's description has to do.
#include "service/topology.h"

#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>

#include "service/affinity.h"
#include "service/cpu_quota.h"
#include "service/cpuid.h"
#include "service/detection.h"
#include "service/kernel_files.h"

namespace tev::service {

namespace {

struct registers {
  uint32_t values[4];
  uint32_t eax() const { return values[0]; }
  uint32_t ebx() const { return values[1]; }
  uint32_t edx() const { return values[3]; }
};

registers cpuid(uint32_t leaf, uint32_t subleaf = 0) {
  registers result;
  processor.cpuid(leaf, subleaf, result.values);
  return result;
}

// The affinity of the calling thread while it visits the processors; put back at the end.
class journey {
 public:
  journey() : length_(get_affinity(&home_)), possible_(length_ > 0 && processor.set_affinity(home_, length_)) {}
  ~journey() {
    if (possible_) processor.set_affinity(home_, length_);
  }
  journey(const journey&) = delete;
  journey& operator=(const journey&) = delete;

  bool possible() const { return possible_; }

  bool visit(int32_t number) {
    processor_set there;
    there.insert(number);
    if (!processor.set_affinity(there, length_)) return false;
    sleep(0);
    return true;
  }

 private:
  processor_set home_;
  size_t length_;
  bool possible_;
};

struct releaser {
  void operator()(uint32_t* array) const { tev_serv_free(array); }
};
using work_array = std::unique_ptr<uint32_t[], releaser>;

work_array make_work_array(size_t count) {
  constexpr int64_t kAlignment = 64;
  return work_array(
      static_cast<uint32_t*>(tev_serv_malloc(static_cast<int64_t>(count * sizeof(uint32_t)), kAlignment)));
}

constexpr uint32_t kTopologyLeaf = 0x0B;

bool has_topology_leaf() { return cpuid(0).eax() >= kTopologyLeaf && (cpuid(kTopologyLeaf).ebx() & 0xFFFF) != 0; }

// Of the processor that the caller runs on. The identifier of leaf 1 has 8 bits, which is not enough for all machines.
uint32_t identifier(bool topology_leaf) { return topology_leaf ? cpuid(kTopologyLeaf).edx() : cpuid(1).ebx() >> 24; }

// The counts of leaves 1 and 4 have too few bits for large packages, so the topology leaf's own shifts come first.
apic_layout read_layout(bool topology_leaf) {
  if (topology_leaf)
    if (const uint32_t package_shift = cpuid(kTopologyLeaf, 1).eax() & 31; package_shift > 0)
      return {cpuid(kTopologyLeaf, 0).eax() & 31, package_shift};
  constexpr uint32_t kCountIsValid = 1u << 28;
  const registers leaf1 = cpuid(1);
  const uint32_t logical = leaf1.edx() & kCountIsValid ? leaf1.ebx() >> 16 & 0xFF : 1;
  const uint32_t cores = cpuid(0).eax() >= 4 ? (cpuid(4).eax() >> 26) + 1 : 1;
  return layout_from_counts(logical, cores);
}

// Asks every processor; nothing when one cannot be visited or memory is short.
std::optional<topology> ask_processors(const processor_set& processors) {
  const auto count = static_cast<size_t>(processors.count());
  const work_array identifiers = make_work_array(count), cores = make_work_array(count),
                   packages = make_work_array(count);
  if (!identifiers || !cores || !packages) return std::nullopt;
  const bool topology_leaf = has_topology_leaf();
  {
    journey around;
    if (!around.possible()) return std::nullopt;
    size_t visited = 0;
    for (int32_t number = 0; number < processor_set::kRoom; ++number) {
      if (!processors.contains(number)) continue;
      if (!around.visit(number)) return std::nullopt;
      identifiers[visited++] = identifier(topology_leaf);
    }
  }
  return count_identifiers({identifiers.get(), count}, read_layout(topology_leaf), {cores.get(), count},
                           {packages.get(), count});
}

// What the kernel's folder of each of these processors says; nothing when one is silent. The least processor of a core
// and of a package stands for it.
std::optional<topology> count_folders(const processor_set& processors) {
  processor_set cores, packages;
  for (int32_t number = 0; number < processor_set::kRoom; ++number) {
    if (!processors.contains(number)) continue;
    const auto least_in = [number](const char* group) {
      return first_line("%s/cpu%d/topology/%s", processor.cpu_folders, number, group).number();
    };
    const auto core = least_in("thread_siblings_list"), package = least_in("core_siblings_list");
    if (!core || !package) return std::nullopt;
    cores.insert(static_cast<int32_t>(*core));
    packages.insert(static_cast<int32_t>(*package));
  }
  return topology{processors.count(), cores.count(), packages.count()};
}

int32_t count_distinct(auto values) {
  std::sort(values.begin(), values.end());
  return static_cast<int32_t>(std::unique(values.begin(), values.end()) - values.begin());
}

// As many as there may be processors. No room when memory is short.
class distinct_numbers {
 public:
  bool has_room() const { return numbers_ != nullptr; }
  void add(int64_t number) {
    if (used_ < processor_set::kRoom) numbers_[used_++] = number;
  }
  // How many different ones. To be asked once.
  int32_t count() { return count_distinct(std::span(numbers_.get(), static_cast<size_t>(used_))); }

 private:
  std::unique_ptr<int64_t[]> numbers_{new (std::nothrow) int64_t[processor_set::kRoom]};
  int32_t used_ = 0;
};

// The number behind the colon of a line "name : number".
int32_t number_of(const char* line) {
  const char* colon = strchr(line, ':');
  return colon ? static_cast<int32_t>(strtol(colon + 1, nullptr, 10)) : 0;
}

bool begins(const char* line, const char* name) { return strncmp(line, name, strlen(name)) == 0; }

}  // namespace

apic_layout layout_from_counts(uint32_t logical_per_package, uint32_t cores_per_package) {
  const uint32_t threads = std::max(logical_per_package / cores_per_package, 1u);
  const auto bits = [](uint32_t values) { return static_cast<uint32_t>(std::bit_width(values - 1)); };
  return {bits(threads), bits(threads) + bits(cores_per_package)};
}

topology count_identifiers(std::span<const uint32_t> identifiers, const apic_layout& layout, std::span<uint32_t> cores,
                           std::span<uint32_t> packages) {
  for (size_t i = 0; i < identifiers.size(); ++i) {
    cores[i] = identifiers[i] >> layout.core_shift;
    packages[i] = identifiers[i] >> layout.package_shift;
  }
  return {static_cast<int32_t>(identifiers.size()), count_distinct(cores), count_distinct(packages)};
}

// One block of lines per processor:   processor : 5
//                                     physical id : 1
//                                     core id : 2
//                                     cpu cores : 4      of this processor's package
topology count_described(FILE* cpuinfo, const topology& fallback) {
  int32_t processors = 0, package = 0, cores_per_package = 0;
  distinct_numbers packages, cores;
  if (!packages.has_room() || !cores.has_room()) return fallback;
  char piece[128];  // a long line comes in pieces; only its first can name the field
  for (bool line_begins = true; fgets(piece, sizeof piece, cpuinfo); line_begins = strchr(piece, '\n') != nullptr) {
    if (!line_begins) continue;
    if (begins(piece, "processor")) {
      ++processors;
    } else if (begins(piece, "physical id")) {
      package = number_of(piece);
      packages.add(package);
    } else if (begins(piece, "core id")) {
      cores.add(int64_t{package} << 32 | static_cast<uint32_t>(number_of(piece)));
    } else if (begins(piece, "cpu cores")) {
      cores_per_package = number_of(piece);
    }
  }
  if (processors == 0) return fallback;
  topology found = {processors, processors, std::max(packages.count(), 1)};
  if (const int32_t described = cores.count(); described > 0) {
    found.physical = described;
  } else if (cores_per_package > 0) {
    found.physical = cores_per_package * found.packages;
  }
  return found;
}

topology probe_topology() {
  const processor_set processors = processor.team_processors();
  if (made_by_zarik()) {
    if (const auto found = ask_processors(processors)) return *found;
    if (const auto found = count_folders(processors)) return *found;
  }
  const int32_t logical = processors.count();
  const topology fallback = {logical, logical, 1};
  FILE* cpuinfo = fopen(processor.cpuinfo, "re");
  if (!cpuinfo) return fallback;
  const topology found = count_described(cpuinfo, fallback);
  fclose(cpuinfo);
  return found;
}

int32_t usable_cores(const topology& machine) {
  const processor_set processors = processor.team_processors();
  const auto described = count_folders(processors);
  return std::min({machine.physical, described ? described->physical : processors.count(), cpu_quota()});
}

}  // namespace tev::service
