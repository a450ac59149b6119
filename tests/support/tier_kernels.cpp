// SPDX-License-Identifier: BSD-3-Clause
// tier_kernels.inc has a row TEV_KERNEL(<name>) for each line of the tiers' symbols.txt.
#include "tests/support/tier_kernels.h"

#include <unordered_map>

#define TEV_KERNEL(name) extern "C" void name();
#include "tier_kernels.inc"
#undef TEV_KERNEL

namespace tev::test {
namespace {

const struct {
  const char* name;
  void (*at)();
} kKernels[] = {
#define TEV_KERNEL(name) {#name, name},
#include "tier_kernels.inc"
};

}  // namespace

kernel_address find_kernel(const std::string& tier, std::string name, char letter) {
  static const auto by_name = [] {
    std::unordered_map<std::string_view, void (*)()> all;
    for (const auto& kernel : kKernels) all.emplace(kernel.name, kernel.at);
    return all;
  }();
  std::replace(name.begin(), name.end(), '?', letter);
  const auto found = by_name.find("tev_blas_" + tier + "_" + name);
  return {found == by_name.end() ? nullptr : found->second};
}

}  // namespace tev::test
