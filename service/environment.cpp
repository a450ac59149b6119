// SPDX-License-Identifier: BSD-3-Clause
// The bounded reader of environment variables, and what the variables about threads mean. Nothing is ever reported:
// what is absent, too long or malformed falls back.
#include "service/environment.h"

#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "service/bounded_strings.h"
#include "service/settings.h"
#include "service/threads.h"

namespace {

using namespace std::literals;
using namespace tev::service;

constexpr int32_t kUnset = -1;

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// A number of digits alone, cut to 32 bits; nothing when the text is empty or has any other character. The text must be
// followed by a character that is no digit.
std::optional<int32_t> digits_only(std::string_view text) {
  if (text.empty() || !std::all_of(text.begin(), text.end(), is_digit)) return std::nullopt;
  return static_cast<int32_t>(strtol(text.data(), nullptr, 10));
}

// What the program has set stays, also when it does so at this very moment.
void set_if_unset(int32_t& setting, int32_t number) {
  int32_t before = kUnset;
  std::atomic_ref<int32_t>(setting).compare_exchange_strong(before, number, std::memory_order_relaxed);
}

void set(int32_t& setting, int32_t number) {
  std::atomic_ref<int32_t>(setting).store(number, std::memory_order_relaxed);
}

void read_num_threads() {
  const setting_value<setting::TEV_NUM_THREADS> variable;
  if (variable.view().empty()) return;
  const int32_t count = digits_only(variable.view()).value_or(1);  // a typing error must not take the machine
  if (count > 0) set_if_unset(__tev_num_threads, count);
}

void read_num_stripes() {
  const setting_value<setting::TEV_NUM_STRIPES> variable;
  const int32_t stripes = digits_only(variable.view()).value_or(kUnset);
  if (stripes >= 0) set_if_unset(__tev_num_stripes, stripes);
}

void set_domain(std::string_view name, int32_t count) {
  static constexpr struct {
    std::string_view name;
    int32_t* setting;
  } kDomains[] = {
      {"TEV_DOMAIN_ALL", &__tev_num_threads},
      {"TEV_DOMAIN_BLAS", &__tev_blas_num_threads},
      {"TEV_DOMAIN_FFT", &__tev_fft_num_threads},
      {"TEV_DOMAIN_VORT", &__tev_vort_num_threads},
      {"TEV_DOMAIN_PARDISO", &__tev_pardiso_num_threads},
  };
  if (count < 1) return;
  for (const auto& domain : kDomains)
    if (domain.name == name) set_if_unset(*domain.setting, count);
}

// Takes the characters up to the first one of `ends` off the front of the text.
std::string_view take_until(std::string_view& text, std::string_view ends) {
  const std::string_view taken = text.substr(0, text.find_first_of(ends));
  text.remove_prefix(taken.size());
  return taken;
}

void skip(std::string_view& text, std::string_view characters) {
  text.remove_prefix(std::min(text.find_first_not_of(characters), text.size()));
}

// TEV_DOMAIN_ALL=4, "TEV_DOMAIN_BLAS = 8": any mixture of separators and quotes; a name without a count means 1.
void read_domain_list() {
  constexpr std::string_view kSeparators = " ,;:\"'";
  const setting_value<setting::TEV_DOMAIN_NUM_THREADS> variable;
  std::string_view rest = variable.view();
  for (;;) {
    skip(rest, kSeparators);
    const std::string_view name = take_until(rest, "=\"' ");
    if (name.empty()) return;
    skip(rest, " =");
    const std::string_view count = take_until(rest, kSeparators);
    set_domain(name, digits_only(count).value_or(1));
  }
}

void read_dynamic() {
  constexpr std::string_view kQuotes = " \"'";
  const setting_value<setting::TEV_DYNAMIC> variable;
  std::string_view rest = variable.view();
  skip(rest, kQuotes);
  const std::string_view word = take_until(rest, kQuotes);
  set_if_unset(__tev_dynamic, word == "FALSE" || word == "false" ? 0 : 1);  // deliberate: "0" and "False" leave it on
}

void read_omp_num_threads() {
  const setting_value<setting::OMP_NUM_THREADS> variable;
  if (variable.view().empty()) return;
  const int32_t count = digits_only(variable.view()).value_or(1);
  if (count > 0) set(__omp_num_threads, count);
}

void read_mpi_thread_level() {
  const setting_value<setting::Z_MPI_THREAD_LEVEL> variable;
  if (variable.view().empty()) return;
  const int32_t level = digits_only(variable.view()).value_or(0);
  set(__tev_mpi_thread_level, level >= 0 && level < 4 ? level : 0);
}

bool passes_every_mode(std::string_view name) {
  return std::any_of(std::begin(kSettings), std::end(kSettings),
                     [name](const setting_row& row) { return row.mode == setting_mode::always && row.name == name; });
}

}  // namespace

extern "C" {

constinit int32_t tev_disable_env_variables = 0;  // the environment mode

void tev_serv_set_envmode_variable(int32_t mode) { set(tev_disable_env_variables, mode); }

int32_t tev_serv_get_envmode_variable(void) {
  return std::atomic_ref<int32_t>(tev_disable_env_variables).load(std::memory_order_relaxed);
}

int32_t tev_serv_getenv(const char* name, char* buffer, int32_t size) {
  size = std::min(size, static_cast<int32_t>(kMaxStringCapacity));
  if (size >= 1) buffer[0] = 0;
  if (tev_serv_get_envmode_variable() >= 1 && !passes_every_mode(name)) return 0;
  const char* text = getenv(name);
  if (!text) return 0;
  const auto length = static_cast<int32_t>(tev_serv_strnlen_s(text, kMaxStringCapacity));
  if (length >= size) return -length;
  const auto capacity = static_cast<size_t>(size);
  tev_serv_strncpy_s(buffer, capacity, text, capacity);
  return length;
}

void tev_read_threads_env(void) {
  read_num_threads();
  read_num_stripes();
  read_domain_list();
  read_dynamic();
  read_omp_num_threads();
  set(__tev_mpi_ppn, tev_serv_mpi_get_ppn());
  read_mpi_thread_level();
}

int32_t tev_serv_libc_is_static(void) {
  Dl_info library;
  return dladdr(reinterpret_cast<void*>(&printf), &library) == 0 ? 1 : 0;
}

}  // extern "C"
