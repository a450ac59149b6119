// SPDX-License-Identifier: BSD-3-Clause
// What a process may leave behind: descriptors, mappings, children, shared-memory names. Other programs leave theirs at
// the same time, so only what carries the number of a process of ours counts.
#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <fstream>

#include "tests/support/prelude.h"

namespace tev::test {

inline std::set<std::string> entries(const std::string& folder) {
  std::set<std::string> names;
  DIR* d = opendir(folder.c_str());
  while (const dirent* e = d ? readdir(d) : nullptr) names.insert(e->d_name);
  if (d) closedir(d);
  return names;
}

inline std::set<std::string> open_descriptors() { return entries("/proc/self/fd"); }

// Shared-memory names made by or for one of these processes.
inline std::set<std::string> shared_names_of(const std::set<pid_t>& processes) {
  const auto is_ours = [&](const std::string& name) {
    for (const pid_t pid : processes)
      if (("_" + name + "_").find("_" + std::to_string(pid) + "_") != std::string::npos) return true;
    return false;
  };
  std::set<std::string> names = entries("/dev/shm");
  std::erase_if(names, [&](const std::string& name) { return !is_ours(name); });
  return names;
}

// Buffers of the offload runtime that this process maps.
inline int shared_mappings() {
  std::ifstream maps("/proc/self/maps");
  int count = 0;
  for (std::string line; std::getline(maps, line);) count += line.find("memfd:vro") != std::string::npos;
  return count;
}

inline std::set<pid_t> children_of(pid_t pid) {
  std::set<pid_t> children;
  const std::string tasks = "/proc/" + std::to_string(pid) + "/task/";
  for (const std::string& task : entries(tasks)) {
    std::ifstream list(tasks + task + "/children");
    for (pid_t child; list >> child;) children.insert(child);
  }
  return children;
}

}  // namespace tev::test
