// SPDX-License-Identifier: BSD-3-Clause
// Arbitrary values of the environment variables: each setting ends up in its range, whatever they say.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "service/environment.h"
#include "service/formatted_io.h"
#include "service/memory_settings.h"
#include "service/settings.h"
#include "service/threads.h"

namespace {

using tev::service::kSettings;

void expect(bool condition) {
  if (!condition) std::abort();
}

// As much of the value as fits, or nothing of it.
void read_bounded(const char* name, size_t value, size_t room) {
  const std::unique_ptr<char[]> buffer(new char[room]);
  const int32_t length = tev_serv_getenv(name, buffer.get(), static_cast<int32_t>(room));
  expect(length == (value < room ? 1 : -1) * static_cast<int32_t>(value));
  if (room > 0) expect(std::strlen(buffer.get()) == (value < room ? value : 0));
}

void read_threads() {
  int32_t* const counts[] = {&__tev_num_threads,      &__tev_blas_num_threads,    &__tev_fft_num_threads,
                             &__tev_vort_num_threads, &__tev_pardiso_num_threads, &__omp_num_threads};
  for (int32_t* count : counts) *count = -1;
  __tev_num_stripes = __tev_dynamic = __tev_mpi_thread_level = -1;
  tev_read_threads_env();
  for (const int32_t* count : counts) expect(*count == -1 || *count > 0);
  expect(__tev_num_stripes >= -1);
  expect(__tev_dynamic == 0 || __tev_dynamic == 1);
  expect(__tev_mpi_thread_level >= -1 && __tev_mpi_thread_level < 4);
}

void read_memory() {
  disable_fast_mm = env_has_been_cached = -1;
  tev::service::read_memory_settings();
  expect(disable_fast_mm == 0 || disable_fast_mm == 1);
  expect(mm_fast_memory_limit == tev::service::kNoLimit || mm_fast_memory_limit % (1 << 20) == 0);
}

}  // namespace

// Input: a size of the buffer that is read into, then the values, a line each.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  std::array<std::string, std::size(kSettings)> entries;  // as long as the environment refers to them
  size_t used = 0;
  for (size_t at = 0; at < text.size() && used < entries.size(); ++used) {
    const size_t end = std::min(text.find('\n', at), text.size());
    const std::string value(text.substr(at, end - at).c_str());
    at = end + 1;
    entries[used] = std::string(kSettings[used].name) + "=" + value;
    putenv(entries[used].data());
    read_bounded(kSettings[used].name, value.size(), data[0]);
    int32_t number;
    tev_serv_sscanf_s(value.c_str(), "%i", &number);
  }
  read_threads();
  read_memory();
  for (size_t i = 0; i < used; ++i) unsetenv(kSettings[i].name);
  return 0;
}
