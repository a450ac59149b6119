// SPDX-License-Identifier: BSD-3-Clause
// Many threads allocate and release mixed sizes, often each other's buffers, threads come and go, and walks over all of
// them run meanwhile. The sanitizers are the judges.

#include "service/memory_registry.h"
#include "tests/support/effort.h"
#include "tev/service.h"

namespace {

constexpr int kWorkers = 8;

// Lies at its own start, and the last bytes repeat `self`: only its holder writes there.
struct block {
  block* self;
  int64_t size;
  bool kept;  // from tev_serv_allocate

  char* end() { return reinterpret_cast<char*>(this) + size - sizeof self; }
};

std::atomic<bool> stop = false;
std::array<std::atomic<block*>, 16> exchange;  // blocks on their way to another thread

block* mark(void* memory, int64_t size, bool kept) {
  auto* const b = static_cast<block*>(memory);
  *b = {b, size, kept};
  memcpy(b->end(), &b, sizeof b);
  return b;
}

block* obtain(std::mt19937& random) {
  const int64_t size = 64 + random() % (1u << (8 + random() % 14)), alignment = int64_t{32} << random() % 8;
  const bool kept = random() % 4 != 0;
  return mark(kept ? tev_serv_allocate(size, alignment) : tev_serv_malloc(size, alignment), size, kept);
}

void release(block* b, std::mt19937& random) {
  if (!b) return;
  ASSERT_TRUE(b->self == b && memcmp(b->end(), &b, sizeof b) == 0);
  if (!b->kept && random() % 2) {
    const int64_t size = 64 + random() % 100000;
    b = mark(tev_serv_realloc(b, size), size, false);
  }
  (b->kept || random() % 2 ? tev_serv_deallocate : tev_serv_free)(b);
}

void work(unsigned seed, int rounds) {
  std::mt19937 random(seed);
  std::array<block*, 7> held = {};
  for (int i = 0; i < rounds && !stop; ++i) {
    block*& mine = held[random() % held.size()];
    if (mine && random() % 4 == 0)
      mine = exchange[random() % exchange.size()].exchange(mine);
    else
      release(std::exchange(mine, obtain(random)), random);
    if (random() % 256 == 0) tev_serv_thread_free_buffers();
  }
  // The last ones in hand go to other threads, which release them when this thread may have ended.
  for (block* b : held) release(exchange[random() % exchange.size()].exchange(b), random);
}

TEST(MemoryStress, ThreadsWalksAndStrangers) {
  std::vector<std::thread> threads;
  for (unsigned t = 0; t < kWorkers; ++t)
    threads.emplace_back([t] {
      for (unsigned life = 0; !stop; ++life)
        if (t % 2 == 0)
          work(t, 100000);
        else
          std::thread(work, life * kWorkers + t, 50).join();
    });
  threads.emplace_back([] {
    for (int i = 0; !stop; ++i) {
      tev_serv_free_buffers();
      tev_serv_mem_stat(nullptr);
      tev_serv_peak_mem_usage(i % 5 - 1);
      std::this_thread::yield();
    }
  });
  sleep(tev::test::long_run() ? 120 : 2);
  stop = true;
  for (std::thread& thread : threads) thread.join();

  std::mt19937 random;
  for (auto& place : exchange) release(place.exchange(nullptr), random);
  tev_serv_free_buffers();
  int32_t blocks = -1;
  EXPECT_EQ(tev_serv_mem_stat(&blocks), 0);
  EXPECT_EQ(blocks, 0);
  EXPECT_LE(tev::service::record_count(), 2 * kWorkers + 2);
}

}  // namespace
