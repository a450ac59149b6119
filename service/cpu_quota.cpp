// SPDX-License-Identifier: BSD-3-Clause
// /proc/self/cgroup tells the process's groups, a line for each hierarchy:
//
//   4:cpu,cpuacct:/batch/job7    version 1: quota and period in cpu/batch/job7/cpu.cfs_*_us
//   0::/batch/job7               version 2: "quota period" in batch/job7/cpu.max
//
// A container may show the path that its group has outside, while the folder in which the hierarchy is mounted already
// is that group: folders that do not exist are passed over on the way up.
#include "service/cpu_quota.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "service/cpuid.h"
#include "service/kernel_files.h"

namespace tev::service {

namespace {

int32_t processors_of(int64_t quota, int64_t period) {
  if (quota <= 0 || period <= 0) return INT32_MAX;
  return static_cast<int32_t>(std::min<int64_t>((quota - 1) / period + 1, INT32_MAX));
}

int32_t quota_of_group(const char* folder) {
  long long quota = 0, period = 0;
  if (sscanf(first_line("%s/cpu.max", folder).text, "%lld %lld", &quota, &period) == 2)
    return processors_of(quota, period);
  return processors_of(first_line("%s/cpu.cfs_quota_us", folder).number().value_or(0),
                       first_line("%s/cpu.cfs_period_us", folder).number().value_or(0));
}

// From the group up to the root of its hierarchy.
int32_t quota_of_branch(const char* hierarchy, const char* group) {
  char folder[4096];
  const int length = snprintf(folder, sizeof folder, "%s%s%s", processor.groups, hierarchy, group);
  if (length < 0 || length >= static_cast<int>(sizeof folder)) return INT32_MAX;
  const char* const root = folder + strlen(processor.groups) + strlen(hierarchy);
  int32_t least = INT32_MAX;
  for (char* end = folder + length;; *end = 0) {
    least = std::min(least, quota_of_group(folder));
    if (end == root) return least;
    end = strrchr(folder, '/');
  }
}

int32_t quota_of_line(char* group) {
  strsep(&group, ":");
  char* controllers = strsep(&group, ":");
  if (!group || *group != '/') return INT32_MAX;
  group[strcspn(group, "\n")] = 0;
  if (*controllers == 0) return quota_of_branch("", group);
  while (const char* name = strsep(&controllers, ","))
    if (strcmp(name, "cpu") == 0) return quota_of_branch("/cpu", group);
  return INT32_MAX;
}

}  // namespace

int32_t cpu_quota() {
  FILE* const file = fopen(processor.own_groups, "re");
  if (!file) return INT32_MAX;
  int32_t least = INT32_MAX;
  for (char line[4096]; fgets(line, sizeof line, file);) least = std::min(least, quota_of_line(line));
  fclose(file);
  return least;
}

}  // namespace tev::service
