// SPDX-License-Identifier: BSD-3-Clause
// One lock guards the sink, its memory and what lies in it. A call takes the lock or runs here; a forked child, which
// has neither its parent's sink nor the other threads, leaves all of it behind and begins anew.
#include "offload/routing.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include "tev/routed.h"

namespace tev::offload {
namespace {

struct settings {
  std::string sink;
  int32_t sink_threads, host_threads;
  bool only_if_faster;
  double threshold, timeout;
};

// A work area in shared memory, kept between calls.
struct shared_area {
  void* memory;
  size_t bytes;
};
constexpr size_t kMostOperands = 3, kLeastArea = 1 << 20;

struct process_sink {
  tev_offload handle;
  std::array<shared_area, kMostOperands> areas = {};

  connection& link() const { return *handle.sink; }
};

constexpr int kSetUpMs = 30'000;  // until a sink has taken its settings
constexpr double kPatience = 60, kSlowestFlops = 1e9;

constinit std::atomic<const settings*> chosen = nullptr;
constinit process_sink* process = nullptr;  // made by the first call that is sent; never ended before the process is
constinit pthread_mutex_t in_use = PTHREAD_MUTEX_INITIALIZER;
constinit std::atomic<uint32_t> generation = 0;  // another number in every forked child
thread_local bool took_sink = false;

void begin_anew_in_child() {
  in_use = PTHREAD_MUTEX_INITIALIZER;
  process = nullptr;
  generation.fetch_add(1, std::memory_order_relaxed);
  forget_measuring();
}

// ---- Why a call ran here, once each

enum reason { busy, ended, no_memory, reasons };
constinit std::atomic<bool> said[reasons] = {};

void say(reason why, const char* text) {
  if (!said[why].exchange(true)) std::fprintf(stderr, "libtevblas: %s; computed in this process\n", text);
}

// ---- The sink

// The calling thread is its only helper with factorizations.
std::unique_ptr<process_sink> start_sink(const settings& own) {
  auto started = std::make_unique<process_sink>();
  started->handle.cores = {1, own.sink_threads};
  started->handle.sink =
      std::make_unique<connection>(connection_options{.sink = own.sink,
                                                      .library_path = "",
                                                      .threads = own.sink_threads,
                                                      .trust_features = true,
                                                      .detached = true,  // programs wait for all their children
                                                      .patience_ms = kSetUpMs});
  return started;
}

// The lock is held. Null where there is none any more, or none could be started.
process_sink* living_sink() {
  const settings& own = *chosen;
  if (!process) process = start_sink(own).release();
  if (!process->link().has_ended()) return process;
  say(ended, process->link().error().c_str());
  return nullptr;
}

int patience_ms(double flops) {
  const double timeout = chosen.load()->timeout, seconds = timeout > 0 ? timeout : kPatience + flops / kSlowestFlops;
  return static_cast<int>(std::min(std::max(1000 * seconds, 1.0), double{std::numeric_limits<int>::max()}));
}

// Null where there is not so much.
void* area_of(process_sink& sink, size_t operand, size_t bytes) {
  shared_area& area = sink.areas[operand];
  if (area.bytes >= bytes) return area.memory;
  if (area.memory) sink.link().release(area.memory);
  const size_t room = std::bit_ceil(std::max(bytes, kLeastArea));
  area = {sink.link().allocate(room), room};
  if (!area.memory) area.bytes = 0;
  return area.memory;
}

// Where the sink finds the operands: what it may not write to, and has in its memory, where it lies.
bool place_operands(process_sink& sink, const sent_call& call, std::vector<stored_matrix>& placed) {
  for (size_t i = 0; i < call.operands.size(); ++i) {
    const stored_matrix& own = call.operands[i];
    const bool is_result = i + 1 == call.operands.size();
    if (!is_result && sink.link().holds(own.data)) {
      placed.push_back(own);
      continue;
    }
    void* const area = area_of(sink, i, static_cast<size_t>(own.packed_bytes()));
    if (!area) return false;
    placed.push_back(own.packed_at(area));
    if (!is_result || call.reads_result) copy_matrix(own, placed.back());
  }
  return true;
}

bool run(process_sink& sink, const sent_call& call) {
  std::vector<stored_matrix> placed;
  sink.link().set_patience(patience_ms(call.flops));
  const bool has_run = place_operands(sink, call, placed) && call.compute(sink.handle, placed);
  if (!living_sink()) return false;
  if (has_run)
    copy_matrix(placed.back(), call.operands.back());
  else
    say(no_memory, "not enough memory that a sink could share");
  return has_run;
}

class lock_of_sink {
 public:
  explicit lock_of_sink(bool waits) : is_held(pthread_mutex_trylock(&in_use) == 0) {
    if (!is_held && waits) is_held = pthread_mutex_lock(&in_use) == 0;
  }
  lock_of_sink(const lock_of_sink&) = delete;
  lock_of_sink& operator=(const lock_of_sink&) = delete;
  ~lock_of_sink() {
    if (is_held) pthread_mutex_unlock(&in_use);
  }
  bool is_held;
};

// Callers know no exceptions.
template <class Body>
auto or_nothing(const Body& body) noexcept -> decltype(body()) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    say(no_memory, "not enough memory for a sink");
    return {};
  }
}

// ---- Memory of the program

// Lies before what is handed out.
struct alignas(64) memory_header {
  void* begin;
  uint32_t generation;
  bool is_shared;
};

memory_header* allocate(size_t bytes) {
  process_sink* const sink = chosen ? living_sink() : nullptr;
  void* begin = sink ? sink->link().allocate(bytes) : nullptr;
  const bool is_shared = begin != nullptr;
  if (!begin) begin = std::aligned_alloc(alignof(memory_header), (bytes + 63) / 64 * 64);
  if (!begin) return nullptr;
  if (!is_shared) std::memset(begin, 0, bytes);
  return new (begin) memory_header{begin, generation.load(std::memory_order_relaxed), is_shared};
}

void release(const memory_header& header) {
  if (!header.is_shared) return std::free(header.begin);
  if (header.generation == generation.load(std::memory_order_relaxed)) process->link().release(header.begin);
}

}  // namespace

bool is_sent(const call_size& size) {
  const settings* const s = chosen;
  return s && size.flops > 0 && size.flops >= s->threshold &&
         (!s->only_if_faster || sink_is_faster(size, s->sink_threads, s->host_threads));
}

bool run_in_sink(const sent_call& call) {
  return or_nothing([&] {
    const lock_of_sink lock(false);
    if (!lock.is_held) return say(busy, "the sink has another thread's call"), false;
    process_sink* const sink = living_sink();
    if (!sink || !run(*sink, call)) return false;
    took_sink = true;
    return true;
  });
}

}  // namespace tev::offload

using namespace tev::offload;

extern "C" {

void tev_routed_set(const tev_routing* routing) {
  pthread_atfork(nullptr, nullptr, begin_anew_in_child);
  chosen = new settings{.sink = routing->sink,
                        .sink_threads = routing->sink_threads,
                        .host_threads = routing->host_threads,
                        .only_if_faster = routing->only_if_faster != 0,
                        .threshold = routing->threshold,
                        .timeout = routing->timeout};
}

int32_t tev_routed_took_sink(void) {
  const bool took = took_sink;
  took_sink = false;
  return took ? 1 : 0;
}

void* tev_routed_allocate(size_t bytes) {
  if (bytes > PTRDIFF_MAX / 2) return nullptr;
  return or_nothing([&]() -> void* {
    const lock_of_sink lock(true);
    memory_header* const header = allocate(bytes + sizeof(memory_header));
    return header ? header + 1 : nullptr;
  });
}

void tev_routed_release(void* memory) {
  if (!memory) return;
  const lock_of_sink lock(true);
  release(static_cast<memory_header*>(memory)[-1]);
}

}  // extern "C"
