// SPDX-License-Identifier: BSD-3-Clause
// Mutated request blocks against the dispatcher. The lookup by name is replaced by a short list, as a name that the
// fuzzer guesses may be any function of the C library; the block is exactly as long as the wire says.
#include <omp.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "sink/device.h"
#include "sink/request_dispatcher.h"
#include "sink/threading.h"
#include "tev/request.h"

extern "C" {

void kmp_set_defaults(char const* text) {
  if (std::strlen(text) > sizeof(tev_threading_record::settings)) std::abort();
}

// Reads all that a worker may read.
static void reading_worker(void* record, uint32_t, uint64_t* buffers, uint32_t) {
  unsigned char sum = 0;
  for (int i = 0; i < TEV_WORKER_RECORD_BYTES; ++i) sum ^= static_cast<unsigned char*>(record)[i];
  for (int i = 0; i < TEV_REQUEST_BUFFERS; ++i) sum ^= static_cast<unsigned char>(buffers[i]);
  volatile unsigned char sink = sum;
  (void)sink;
}

static void filling_function(void* result, uint32_t length) { std::memset(result, 0x55, length); }

static uint32_t current_code;

// A worker is not found as a function and a function not as a worker: their arguments differ, and it is for the host to
// name the right kind.
void* tev_serv_load_fun(const char* name) {
  const std::string_view wanted(name);
  if (current_code == TEV_REQUEST_CALL) return wanted == "f" ? reinterpret_cast<void*>(filling_function) : nullptr;
  if (wanted == "r") return reinterpret_cast<void*>(reading_worker);
  if (wanted == "t") return reinterpret_cast<void*>(configure_device_threading_worker);
  if (wanted == "q") return reinterpret_cast<void*>(ueaa_prv_query_device_time_worker);
  return nullptr;
}

double tev_serv_dsecnd() { return 1.0; }

// The OpenMP runtime keeps what it allocates for its threads until the process ends.
const char* __lsan_default_suppressions() { return "leak:libomp.so"; }

int LLVMFuzzerInitialize(int*, char***) {
  setenv("OMP_THREAD_LIMIT", "2", 1);  // a request may ask for any team size
  setenv("KMP_BLOCKTIME", "0", 1);     // no thread spins while others of a busy machine could run
  setenv("KMP_WARNINGS", "0", 1);
  return 0;
}

// Input: buffer count, code, then 24 bytes for offset 4 on, 300 bytes of record, pinning fields; the rest of the block
// repeats the last byte, so that strings without an end come up often.
int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  auto block = std::make_unique<tev_card_request>();
  const uint32_t count = data[0];
  std::memset(static_cast<void*>(block.get()), data[size - 1], sizeof(*block));
  block->code = current_code = data[1] % 9;
  auto* bytes = reinterpret_cast<unsigned char*>(block.get());
  auto take = [&, at = size_t{2}](size_t offset, size_t length) mutable {
    const size_t n = std::min(length, size - at);
    std::memcpy(bytes + offset, data + at, n);
    at += n;
  };
  take(offsetof(tev_invoke_request, parameter), 24);
  take(offsetof(tev_invoke_request, processor_count), 12);
  take(offsetof(tev_invoke_request, record), 300);
  take(offsetof(tev_invoke_request, post_mode), 40);

  std::unique_ptr<void*[]> buffers(new void*[count]);
  for (uint32_t i = 0; i < count; ++i) buffers[i] = bytes + i;
  std::unique_ptr<char[]> result(new char[data[0]]);
  ueaa_prv_card_invoke(count, buffers.get(), nullptr, block.get(), 0, result.get(), data[0]);
  return 0;
}
}
