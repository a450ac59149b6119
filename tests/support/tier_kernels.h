// SPDX-License-Identifier: BSD-3-Clause
// The tiers, and their kernels by name, for tests of routines that only a tier's tables refer to.
#pragma once

#include "tests/support/blas_case.h"
#include "tests/support/tier_list.h"

namespace tev::test {

// A kernel's address as any type of function; null when there is none.
struct kernel_address {
  void (*at)();
  template <class F>
  operator F*() const {
    return reinterpret_cast<F*>(at);
  }
};

// tev_blas_<tier>_<name>; '?' in the name stands for the precision's letter.
template <class T>
inline constexpr char kLetter = kIsComplex<T>    ? (sizeof(T) == 8 ? 'c' : 'z')
                                : sizeof(T) == 4 ? 's'
                                                 : 'd';
kernel_address find_kernel(const std::string& tier, std::string name, char letter);

// The tiers of this processor that have a kernel of that name in precision T.
template <class T>
std::vector<std::string> tiers_with(const std::string& name) {
  std::vector<std::string> tiers;
  for (const char* tier : kTiers)
    if (processor_runs(tier) && find_kernel(tier, name, kLetter<T>).at != nullptr) tiers.emplace_back(tier);
  return tiers;
}

// A kernel with the arguments of a level-3 entry, in the place of blas_calls (tests/support/blas_case.h).
template <class T>
struct kernel_calls {
  using element = c_element_t<T>;
  kernel_address kernel;

  void gemm(auto... x) const { call_at(x...); }
  void symm(auto... x) const { call_at(x...); }
  void hemm(auto... x) const { call_at(x...); }
  void trmm(auto... x) const { call_at(x...); }
  void trsm(auto... x) const { call_at(x...); }
  void syrk(auto... x) const { call_at(x..., int64_t{0}, int64_t{0}); }
  void herk(auto... x) const { call_at(x..., int64_t{0}, int64_t{0}); }
  void syr2k(auto... x) const { call_at(x...); }
  void her2k(auto... x) const { call_at(x...); }

 private:
  template <class... X>
  void call_at(X... x) const {
    static_cast<void (*)(X...)>(kernel)(x...);
  }
};

}  // namespace tev::test
