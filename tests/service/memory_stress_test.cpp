// SPDX-License-Identifier: BSD-3-Clause
// Many threads allocate and release mixed sizes, often each other's buffers, threads come and go, and walks over all of
// them run meanwhile. Every block carries a mark at both ends that only its holder writes. STRESS_SECONDS (2) says how
// long; the sanitizers are the judges.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "service/memory_registry.h"
#include "tev/service.h"

namespace {

constexpr int kWorkers = 8;

struct held_block {
  char* address;
  int64_t size;
  bool kept;  // from tev_serv_allocate
};

std::atomic<bool> stop = false;
std::array<std::atomic<held_block*>, 16> exchange;  // blocks on their way to another thread

void mark(const held_block& block) {
  memcpy(block.address, &block.address, 8);
  memcpy(block.address + block.size - 8, &block.address, 8);
}

void check(const held_block& block) {
  ASSERT_EQ(memcmp(block.address, &block.address, 8), 0);
  ASSERT_EQ(memcmp(block.address + block.size - 8, &block.address, 8), 0);
}

held_block* obtain(std::mt19937& random) {
  const int64_t size = 16 + random() % (1u << (8 + random() % 14)), alignment = int64_t{32} << random() % 8;
  const bool kept = random() % 4 != 0;
  void* address = kept ? tev_serv_allocate(size, alignment) : tev_serv_malloc(size, alignment);
  auto* block = new held_block{static_cast<char*>(address), size, kept};
  mark(*block);
  return block;
}

void release(held_block* block, std::mt19937& random) {
  if (!block) return;
  check(*block);
  if (!block->kept && random() % 2) {
    block->size = 16 + random() % 100000;
    block->address = static_cast<char*>(tev_serv_realloc(block->address, block->size));
    mark(*block);
  }
  if (block->kept || random() % 2)
    tev_serv_deallocate(block->address);
  else
    tev_serv_free(block->address);
  delete block;
}

void work(unsigned seed, int rounds) {
  std::mt19937 random(seed);
  std::array<held_block*, 7> held = {};
  for (int i = 0; i < rounds && !stop; ++i) {
    held_block*& mine = held[random() % held.size()];
    if (mine && random() % 4 == 0)
      mine = exchange[random() % exchange.size()].exchange(mine);
    else
      release(std::exchange(mine, obtain(random)), random);
    if (random() % 256 == 0) tev_serv_thread_free_buffers();
  }
  // The last ones in hand go to other threads, which release them when this thread may have ended.
  for (held_block* block : held) release(exchange[random() % exchange.size()].exchange(block), random);
}

TEST(MemoryStress, ThreadsWalksAndStrangers) {
  const char* seconds = std::getenv("STRESS_SECONDS");
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
      int32_t blocks;
      tev_serv_mem_stat(&blocks);
      tev_serv_peak_mem_usage(i % 5 - 1);
      std::this_thread::yield();
    }
  });
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds ? std::atof(seconds) : 2));
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
