// SPDX-License-Identifier: BSD-3-Clause
// The memory manager, each case in a process of its own: layouts, which buffer a thread gets again, what other threads
// and ended threads leave behind, the program's allocators, high-bandwidth memory from a stand-in library.
#include <dlfcn.h>

#include "service/library_search.h"
#include "service/memory_backend.h"
#include "service/memory_blocks.h"
#include "service/memory_high_bandwidth.h"
#include "service/memory_settings.h"
#include "service/memory_statistics.h"
#include "service/memory_thread.h"
#include "tests/support/fake_processor.h"
#include "tests/support/in_child.h"

namespace {

using namespace tev::service;
using namespace tev::test;

const mm_block_prefix& prefix_of(void* block) { return static_cast<mm_block_prefix*>(block)[-1]; }
const mm_block_header& header_of(void* block) { return static_cast<mm_block_header*>(prefix_of(block).block)[-1]; }
bool is_aligned(const void* address, int64_t to) { return reinterpret_cast<uintptr_t>(address) % to == 0; }

int64_t bytes_held() { return tev_serv_mem_stat(nullptr); }
int32_t blocks_held() {
  int32_t count = -1;
  tev_serv_mem_stat(&count);
  return count;
}

// Buffers of these sizes, held at the same time and then released: slots 0, 1, ... keep them.
void keep(std::initializer_list<int64_t> sizes) {
  std::vector<void*> buffers;
  for (int64_t size : sizes) buffers.push_back(tev_serv_allocate(size, 64));
  for (void* buffer : buffers) tev_serv_deallocate(buffer);
}

TEST_IN_CHILD(Blocks, AreAlignedAndSayWhatTheyAre) {
  const struct {
    int64_t size, alignment, effective;  // effective 0: no block
  } rows[] = {{100, 48, 64},      {100, 4096, 4096}, {100, 96, 64},         {1, -128, 64},
              {1, INT64_MIN, 64}, {0, 64, 0},        {5, 1 << 21, 1 << 21}, {1, 1LL << 31, 1LL << 31},
              {-1, 64, 0},        {1, 1LL << 32, 0}, {INT64_MAX, 64, 0},    {INT64_MAX - 87, 64, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.size << " aligned to " << row.alignment);
    void* block = tev_serv_malloc(row.size, row.alignment);
    ASSERT_EQ(block != nullptr, row.effective != 0);
    if (!block) {
      EXPECT_EQ(tev_serv_allocate(row.size, row.alignment), nullptr);
      continue;
    }
    EXPECT_TRUE(is_aligned(block, row.effective));
    memset(block, 0xFF, static_cast<size_t>(row.size));
    const int64_t total = row.size + row.effective + 24;
    const auto alignment = static_cast<uint32_t>(row.effective);
    const mm_block_prefix prefix = {prefix_of(block).block, total, 0, alignment};
    const mm_block_header header = {static_cast<char*>(prefix.block) - 32, 0, 0, static_cast<uint64_t>(total + 32),
                                    4096};
    EXPECT_EQ(memcmp(&prefix_of(block), &prefix, sizeof prefix), 0);
    EXPECT_EQ(memcmp(&header_of(block), &header, sizeof header), 0);
    EXPECT_EQ(bytes_held(), total);
    tev_serv_free(block);
    EXPECT_EQ(blocks_held(), 0);
  }
}

TEST_IN_CHILD(Blocks, CallocZeroesAndReallocKeepsContentsAndAlignment) {
  void* dirty = tev_serv_malloc(3000, 64);
  memset(dirty, 0xFF, 3000);
  tev_serv_free(dirty);
  auto* block = static_cast<char*>(tev_serv_calloc(30, 100));
  EXPECT_EQ(std::count(block, block + 3000, 0), 3000);
  tev_serv_free(block);
  for (auto [count, size] : {std::pair(0L, 8L), {8L, 0L}, {-1L, -1L}, {3L, -5L}, {INT64_MAX / 2, 4L}})
    EXPECT_EQ(tev_serv_calloc(count, size), nullptr) << count << " x " << size;

  block = static_cast<char*>(tev_serv_malloc(100, 4096));
  memset(block, 7, 100);
  for (int64_t size : {3000000, 120, 70000, 100, 200000000, 100}) {
    block = static_cast<char*>(tev_serv_realloc(block, size));
    EXPECT_TRUE(is_aligned(block, 4096) && std::count(block, block + 100, 7) == 100) << size;
    EXPECT_EQ(bytes_held(), size + 4096 + 24);
  }
  for (int64_t size : {int64_t{0}, INT64_MAX}) EXPECT_EQ(tev_serv_realloc(block, size), nullptr);
  EXPECT_EQ(std::count(block, block + 100, 7), 100);
  for (void* last : {static_cast<void*>(block), tev_serv_realloc(nullptr, 10)}) tev_serv_free(last);
  EXPECT_EQ(blocks_held(), 0);
}

TEST_IN_CHILD(Blocks, PointersOfOthersAreLeftAlone) {
  alignas(64) static char storage[256];
  const mm_block_prefix forged = {.block = storage, .total = 300, .account = 0, .alignment = 64};
  memcpy(storage + 128 - sizeof forged, &forged, sizeof forged);  // block and address do not fit together
  for (char* foreign : {storage + 64, storage + 65, storage + 128, static_cast<char*>(nullptr)}) {
    tev_serv_free(foreign);
    tev_serv_deallocate(foreign);
    if (foreign) EXPECT_EQ(tev_serv_realloc(foreign, 10), nullptr);
  }
  EXPECT_EQ(blocks_held(), 0);
}

TEST(Buffers, SlotIsExactElseTightestElseNewElseFirstSmaller) {
  const struct {
    std::initializer_list<int64_t> kept;
    int64_t request, alignment;
    int slot;  // that serves the request
    bool same_block;
  } rows[] = {{{1000, 4000, 3000, 2000}, 3000, 64, 2, true},
              {{2000, 1064, 1000}, 1000, 128, 1, true},          // exact, with the alignment
              {{5000, 1000, 3000, 4000}, 2000, 64, 2, true},     // tightest, not the first
              {{1000, 3000, 3000}, 2000, 64, 1, true},           // first of equals
              {{9000}, 10, 64, 0, true},                         // larger before new
              {{1000, 2000, 3000, 4000}, 5000, 64, 4, false},    // new before smaller
              {{1000, 900, 800, 700, 600}, 5000, 64, 0, false},  // first smaller
              {{1000, 900, 800, 700, 9000}, 5000, 64, 4, true},  // larger before smaller
              {{20000}, 1000, 4096, 0, true},                    // other alignment
              {{134217728, 1000}, 134217728, 64, 0, true}};      // largest
  for (const auto& row : rows) {
    const auto request = [&row] {
      keep(row.kept);
      const mm_thread_record& record = *this_thread.record;
      const void* before = record.block[row.slot];
      void* buffer = tev_serv_allocate(row.request, row.alignment);
      memset(buffer, 1, static_cast<size_t>(std::min<int64_t>(row.request, 10000)));
      EXPECT_TRUE(is_aligned(buffer, row.alignment));
      EXPECT_EQ(record.aligned[row.slot], buffer);
      EXPECT_EQ(record.size[row.slot], row.request);
      EXPECT_EQ(record.in_use[row.slot], 1);
      EXPECT_EQ(record.block[row.slot] == before, row.same_block);
      if (!row.same_block) EXPECT_EQ(record.capacity[row.slot], row.request + row.alignment);
      EXPECT_EQ(bytes_held(), std::accumulate(record.capacity, record.capacity + kSlots, int64_t{0}));
      tev_serv_deallocate(buffer);
      tev_serv_free_buffers();
      EXPECT_EQ(blocks_held() + bytes_held(), 0);
    };
    EXPECT_EQ(printed({}, request), "") << "row " << &row - rows;
  }
}

TEST_IN_CHILD(Buffers, SixthAndTooLargeOnesAreNotKept) {
  void* held = nullptr;
  for (int i = 0; i < 5; ++i) held = tev_serv_allocate(1000, 64);
  for (int64_t size : {1000, 134217729}) {
    void* extra = tev_serv_allocate(size, 256);
    EXPECT_EQ(prefix_of(extra).total, size + 256 + 24);
    tev_serv_deallocate(extra);
    EXPECT_EQ(blocks_held(), 5);
    tev_serv_deallocate(held);
    tev_serv_thread_free_buffers();
    EXPECT_EQ(blocks_held(), 4);
    held = tev_serv_allocate(1000, 64);  // the emptied slot serves again
  }
  tev_serv_free_buffers();
  EXPECT_EQ(blocks_held(), 5) << "in use";
}

TEST_IN_CHILD(Buffers, ReleasedByAnotherThreadTheyStayWithTheirOwner) {
  void* buffer = tev_serv_allocate(100000, 64);
  std::thread([=] { tev_serv_deallocate(buffer); }).join();
  EXPECT_EQ(tev_serv_allocate(100000, 64), buffer);
  tev_serv_deallocate(buffer);
  for (int32_t busy : {1, 0}) {  // 1: as if its thread were choosing a slot
    this_thread.record->busy = busy;
    std::thread(tev_serv_free_buffers).join();
    EXPECT_EQ(blocks_held(), busy);
  }
}

TEST_IN_CHILD(ThreadRecords, EndedOnesLeaveNothingBehindButWhatIsInUse) {
  void *lent = nullptr, *block = nullptr;
  std::thread([&] {
    lent = tev_serv_allocate(5000, 64);
    keep({1000, 2000});
    block = tev_serv_malloc(10, 64);
  }).join();
  EXPECT_EQ(blocks_held(), 2);
  memset(lent, 1, 5000);
  tev_serv_deallocate(lent);
  tev_serv_free(block);
  EXPECT_EQ(bytes_held(), 0);

  for (int i = 0; i < 1000; ++i) std::thread([] { keep({1000, 2000}); }).join();
  EXPECT_LE(record_count(), 2);
  EXPECT_EQ(blocks_held(), 0);
}

// A destructor of the program's that comes back in every round of destructors, and after the library's own in each.
#if __has_feature(thread_sanitizer)
constexpr int64_t kRounds = 3;  // its own thread state is gone in the last round
#else
constexpr int64_t kRounds = 10;
#endif
pthread_key_t program_key;
extern "C" void allocate_at_thread_end(void* rounds_left) {
  keep({1000, 2000});
  tev_serv_free(tev_serv_malloc(10, 64));
  pthread_setspecific(program_key, reinterpret_cast<void*>(reinterpret_cast<int64_t>(rounds_left) - 1));
}

TEST_IN_CHILD(ThreadRecords, DestructorsMayAllocate) {
  std::thread([] { keep({1000}); }).join();  // the library's key first
  ASSERT_EQ(pthread_key_create(&program_key, allocate_at_thread_end), 0);
  for (int i = 0; i < 20; ++i)
    std::thread([] {
      keep({1000});
      pthread_setspecific(program_key, reinterpret_cast<void*>(kRounds));
    }).join();
  EXPECT_EQ(record_count(), 1);
  EXPECT_EQ(blocks_held(), 0);
}

TEST_IN_CHILD(ThreadRecords, MayOutliveTheLibrary) {
  void* library = dlopen(TEV_LIBRARY, RTLD_NOW);
  const auto allocate = reinterpret_cast<decltype(&tev_serv_allocate)>(dlsym(library, "tev_serv_allocate"));
  std::atomic<int> stage = 0;
  std::thread thread([&] {
    EXPECT_NE(allocate(1000, 64), nullptr);
    for (stage = 1; stage == 1;) std::this_thread::yield();
  });
  while (stage == 0) std::this_thread::yield();
  dlclose(library);
  EXPECT_EQ(dlopen(TEV_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr);
  stage = 2;
  thread.join();
}

TEST_IN_CHILD(ThreadRecords, RegistryGrowsByChunks) {
  constexpr int kRecords = 4096 + 1;
  std::vector<void*> buffers;
  for (int i = 0; i < kRecords; ++i) {
    this_thread.record = nullptr;  // as a new thread
    buffers.push_back(tev_serv_allocate(1000 + i, 64));
  }
  EXPECT_EQ(blocks_held(), kRecords);
  for (int chunk : {1, 2, 3}) EXPECT_EQ(mm_book.directory[chunk][0].record->size[0], 1000 + (512 << chunk));
  EXPECT_EQ(mm_book.directory[4], nullptr);
  for (void* buffer : buffers) tev_serv_deallocate(buffer);
  tev_serv_free_buffers();
  EXPECT_EQ(blocks_held(), 0);
}

TEST_IN_CHILD(ThreadRecords, AForkedChildAllocatesWhateverTheOthersDid) {
  std::atomic<bool> stop = false;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&stop, t] {
      while (!stop) {
        keep({1000 + t, 2000, 100000});
        if (t == 0) tev_serv_free_buffers();
        if (t == 1) tev_serv_peak_mem_usage(1), tev_serv_thread_free_buffers();
      }
    });
  keep({1000});
  while (record_count() < 5) std::this_thread::yield();
  for (int round = 0; round < 20; ++round)
    EXPECT_EQ(printed({},
                      [] {
                        keep({1000, 2000, 3000});
                        tev_serv_peak_mem_usage(-1);
                        tev_serv_mem_stat(nullptr);
                        tev_serv_free_buffers();
                        this_thread.record = nullptr;  // as a new thread: takes the record of one that is not here
                        keep({1000});
                        EXPECT_EQ(record_count(), 5);
                      }),
              "");
  stop = true;
  for (std::thread& thread : threads) thread.join();
}

TEST(MemorySettings, KeepingIsSwitchedOffByAnyValueOrTheProgramInTime) {
  const std::string fits(31, '1'), too_long(32, '1');
  const struct {
    const char* value;
    bool by_program;
    const char* expected;  // in time, kept blocks, too late, status
  } rows[] = {{"", false, "0 1 0 0"},
              {"0", false, "0 0 0 1"},
              {fits.c_str(), false, "0 0 0 1"},
              {too_long.c_str(), false, "0 1 0 0"},
              {"", true, "1 0 0 1"}};
  for (const auto& row : rows) {
    const auto print = [&row] {
      printf("%d ", row.by_program ? tev_serv_disable_fast_mm() : 0);
      keep({1000});
      printf("%d %d %d", blocks_held(), tev_serv_disable_fast_mm(), tev_serv_get_fast_mm_status());
    };
    EXPECT_EQ(printed({{"TEV_DISABLE_FAST_MM", row.value}}, print), row.expected) << row.value;
  }
}

TEST_IN_CHILD(MemoryStatistics, PeakIsWatchedOnDemand) {
  const int64_t block = 1000 + 64 + 24, buffer = 5000 + 64;
  const auto answers = [](std::initializer_list<int32_t> modes, int64_t expected) {
    for (int32_t mode : modes) EXPECT_EQ(tev_serv_peak_mem_usage(mode), expected) << mode;
  };
  answers({2, -1, 3}, -1);
  void* early = tev_serv_malloc(1000, 64);
  answers({1, 2}, 0);
  keep({5000});
  EXPECT_EQ(max_stat.blocks, 2);
  tev_serv_free(early);
  answers({-1}, block + buffer);
  answers({-1}, buffer);
  tev_serv_free_buffers();
  answers({-1}, buffer);
  answers({-1, 0}, 0);
  answers({2}, -1);
}

// The program's own allocator: blocks counted, and refused from a chosen call on.
int program_blocks = 0, calls_left = 1000000;
void* program_malloc(size_t size) { return calls_left-- > 0 ? (++program_blocks, malloc(size)) : nullptr; }
void* program_realloc(void* block, size_t size) { return calls_left-- > 0 ? realloc(block, size) : nullptr; }
void program_free(void* block) {
  --program_blocks;
  free(block);
}

TEST_IN_CHILD(BackEnd, OneReplacedFunctionReplacesAll) {
  i_calloc = [](size_t count, size_t size) { return calloc(count, size); };
  tev_serv_free(tev_serv_malloc(10, 64));
  EXPECT_TRUE(sys_alloc == malloc && sys_allocate == malloc && sys_realloc == realloc);
  EXPECT_TRUE(sys_free == free && sys_deallocate == free);
}

TEST_IN_CHILD(BackEnd, EverythingComesFromTheProgramAndGoesBack) {
  i_malloc = program_malloc, i_realloc = program_realloc, i_free = program_free;
  void* block = tev_serv_realloc(tev_serv_malloc(1000, 64), 50000);
  std::thread([] { keep({1000, 2000, 3000, 4000, 5000, 6000}); }).join();
  keep({1000, 1000, 1000, 1000, 1000});
  void* replacing = tev_serv_allocate(2000, 64);
  EXPECT_EQ(program_blocks, 6);
  calls_left = 0;
  EXPECT_EQ(tev_serv_malloc(10, 64), nullptr);
  EXPECT_EQ(tev_serv_calloc(10, 64), nullptr);
  EXPECT_EQ(tev_serv_realloc(block, 100), nullptr);
  EXPECT_EQ(tev_serv_allocate(3000, 64), nullptr);  // a smaller buffer made way
  EXPECT_EQ(blocks_held(), 5);
  calls_left = 1;
  keep({3000});  // the slot is not lost
  EXPECT_EQ(blocks_held(), 6);
  tev_serv_deallocate(replacing);
  tev_serv_free(block);
  tev_serv_free_buffers();
  EXPECT_EQ(program_blocks, 0);
  EXPECT_EQ(blocks_held(), 0);
}

void have_high_bandwidth_memory() {
  avx512_zel_processor().install();
  snprintf(DispLibPath, sizeof DispLibPath, "%s/", TEV_MEMORY_STAND_INS);
}

int stand_in_count(const char* name) {
  const void* count = dlsym(RTLD_DEFAULT, name);
  return count ? *static_cast<const int*>(count) : -1;
}

TEST(HighBandwidth, LibraryMustBeRecentAndMayFail) {
  const std::string told = "Minimal supported version of the hbwkit library is 1.1.0\n";
  const auto many_cores = avx512_zel_processor(), few_cores = avx512_processor();
  const struct {
    const char *version, *fails, *verbose;
    fake_processor on;
    std::string expected;  // usable, from it, blocks and large pages of the library, megabytes left
  } rows[] = {{"1001000", "", "1", many_cores, "1 1 1 1 5"},    {"1001000", "pages", "1", many_cores, "1 1 1 0 5"},
              {"1001000", "all", "1", many_cores, "1 0 0 0 5"}, {"1000999", "", "1", many_cores, told + "0 0 0 0 -1"},
              {"1000999", "", "0", many_cores, "0 0 0 0 -1"},   {"1001000", "", "1", few_cores, "0 0 -1 -1 -1"}};
  for (const auto& row : rows) {
    const auto print = [&row] {
      have_high_bandwidth_memory();
      row.on.install();
      EXPECT_EQ(tev_serv_set_memory_limit(2, 5), 0);
      printf("%d ", tev_serv_set_memory_limit(1, 5));
      void* block = tev_serv_malloc(10, 64);
      printf("%d %d %d ", header_of(block).high_bandwidth != 0, stand_in_count("hbwkit_blocks"),
             stand_in_count("hbwkit_large_page_blocks"));
      tev_serv_free(block);
      const auto left = static_cast<int64_t>(tev_serv_check_fast_memory_size());
      printf("%ld", left >> 20);  // -1: no limit
    };
    const environment variables = {
        {"HBWKIT_VERSION", row.version}, {"HBWKIT_FAILS", row.fails}, {"TEV_VERBOSE", row.verbose}};
    EXPECT_EQ(printed(variables, print), row.expected);
  }
}

TEST(HighBandwidth, FirstBudgetWins) {
  const struct {
    const char* variable;
    int64_t by_program;  // then
    uint64_t megabytes;
  } rows[] = {{"1", 100, 1}, {"12x", 100, 12}, {"0", 100, 0}, {"-1", 100, 100},  {"99999999999999999999", 2, 2},
              {"abc", 3, 3}, {"abc", 0, 0},    {"", -1, 8},   {"", INT64_MAX, 8}};
  for (const auto& row : rows) {
    const auto set = [&row] {
      have_high_bandwidth_memory();
      void* early = tev_serv_malloc(10, 64);
      for (int64_t megabytes : {row.by_program, int64_t{8}}) EXPECT_EQ(tev_serv_set_memory_limit(1, megabytes), 1);
      tev_serv_free(early);  // gives back only what it was charged
      EXPECT_EQ(tev_serv_check_fast_memory_size(), row.megabytes << 20);
      keep({1000});
      EXPECT_EQ(stand_in_count("hbwkit_blocks"), row.megabytes == 0 ? 0 : 1);
    };
    EXPECT_EQ(printed({{"TEV_FAST_MEMORY_LIMIT", row.variable}}, set), "")
        << row.variable << " then " << row.by_program;
  }
}

TEST(HighBandwidth, BudgetIsChargedAndGivenBack) {
  const auto use_up = [] {
    have_high_bandwidth_memory();
    keep({1000});
    const int64_t left = (1 << 20) - 1000 - 64 - 32, largest = left - 1 - 64 - 24 - 32;
    const auto expect = [](void* block, bool from_library, int64_t bytes_left) {
      EXPECT_EQ(header_of(block).high_bandwidth, from_library);
      EXPECT_EQ(tev_serv_check_fast_memory_size(), bytes_left);
    };
    void* too_large = tev_serv_malloc(largest + 1, 64);
    expect(too_large, false, left);
    void* just_fits = tev_serv_malloc(largest, 64);
    expect(just_fits, true, 1);
    memset(just_fits, 7, static_cast<size_t>(largest));
    just_fits = tev_serv_realloc(just_fits, 100);  // there is nothing left for it: moves to ordinary memory
    expect(just_fits, false, left);
    EXPECT_EQ(static_cast<char*>(just_fits)[99], 7);
    for (void* block : {just_fits, too_large}) tev_serv_free(block);
    tev_serv_free_buffers();
    EXPECT_EQ(stand_in_count("hbwkit_blocks"), 0);
    EXPECT_EQ(tev_serv_check_fast_memory_size(), 1 << 20);
  };
  EXPECT_EQ(printed({{"TEV_FAST_MEMORY_LIMIT", "1"}}, use_up), "");
}

TEST(ExecutableMemory, RunsWhatWasWritten) {
  for (int64_t size : {int64_t{0}, int64_t{-1}, INT64_MAX}) EXPECT_EQ(tev_serv_jit_alloc(size), nullptr);
  auto* code = static_cast<char*>(tev_serv_jit_alloc(4097));
  ASSERT_TRUE(code != nullptr && is_aligned(code, 4096));
  for (char value : {'*', '+'}) {
    const char bytes[] = {'\xB8', value, 0, 0, 0, '\xC3'};  // mov eax, value; ret
    memcpy(code + 4096, bytes, sizeof bytes);
    EXPECT_EQ(tev_serv_jit_set_exec(code, 4097, 1), 1);
    EXPECT_EQ(reinterpret_cast<int (*)()>(code + 4096)(), value);
    EXPECT_EQ(tev_serv_jit_set_exec(code, 4097, 0), 1);
  }
  EXPECT_EQ(tev_serv_jit_set_exec(code, -1, 1), 0);
  EXPECT_EQ(tev_serv_jit_set_exec(code + 1, 4096, 1), 0);
  tev_serv_jit_free(code);
  tev_serv_jit_free(nullptr);
  EXPECT_EQ(tev_serv_jit_set_exec(code, 4096, 1), 0) << "still mapped";
}

}  // namespace
