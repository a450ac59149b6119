// SPDX-License-Identifier: BSD-3-Clause
// The reproducibility mode and what depends on it (type code, cache sizes, tuning), each case in a process of its own.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "service/detection.h"
#include "service/system_caches.h"
#include "tests/support/fake_processor.h"
#include "tests/support/kernel_folder.h"

namespace {

using namespace tev::test;

void print_mode() {
  printf("%d ", tev_serv_cbwr_get(1));
  printf("%d", tev_serv_cpu_detect());
}

// A rejected value prints nothing, so the expected text is all there is.
TEST(Reproducibility, ModeAndTypeFromTheEnvironment) {
  const std::string fits(127, 'A'), too_long(128, 'A');
  const struct {
    fake_processor on;
    std::vector<std::pair<const char*, const char*>> rows;  // TEV_CBWR: mode, type code
  } tables[] = {
      {avx2_processor(),
       {{"AUTO", "2 5"},
        {"COMPATIBLE", "3 0"},
        {"SSE2", "4 0"},
        {"SSE3", "4 0"},
        {"SSSE3", "6 2"},
        {"SSE4_1", "7 2"},
        {"SSE4_2", "8 3"},
        {"AVX", "9 4"},
        {"AVX2", "10 5"},
        {"BRANCH=AVX2", "10 5"},
        {"", "1 5"},
        {too_long.c_str(), "1 5"}}},
      {avx512_processor(), {{"AVX2", "10 5"}, {"AVX512_ZEL", "2 7"}, {"AVX512", "12 7"}, {"AVX512_ZEL_E1", "2 7"}}},
      {avx512_zel_processor(), {{"AVX512_ZEL", "11 6"}, {"AVX512", "2 6"}, {"AVX512_ZEL_E1", "2 6"}}},
      {avx512_zel_e1_processor(), {{"AVX512_ZEL", "11 6"}, {"AVX512", "2 6"}, {"AVX512_ZEL_E1", "13 6"}}},
      {ssse3_processor(), {{"SSSE3", "6 2"}, {"SSE4_1", "2 2"}}},
      {amd(avx2_processor()), {{"AUTO", "2 0"}, {"COMPATIBLE", "3 0"}, {"SSE2", "2 0"}, {"AVX2", "2 0"}}},
  };
  for (const auto& table : tables)
    for (const auto& [value, expected] : table.rows)
      EXPECT_EQ(printed_on(table.on, {{"TEV_CBWR", value}}, print_mode), expected) << value;
  for (const char* rejected : {"AVX512_ZEL", "AVX512", "AVX512_ZEL_E1", "BRANCH=", "branch=SSE2", "BRANCH=BRANCH=SSE2",
                               "sse2", "SSE2 ", " SSE2", "SSE", "4", fits.c_str()})
    EXPECT_EQ(printed_on(avx2_processor(), {{"TEV_CBWR", rejected}}, print_mode), "2 5") << rejected;
  EXPECT_EQ(printed_on(avx2_processor(), {}, print_mode), "1 5");
}

// The environment's ceiling is taken as a type code: a branch above it gives way to the best tier of the processor.
TEST(Reproducibility, BranchAboveTheEnvironmentsCeiling) {
  const struct {
    fake_processor on;
    const char* branch;
    const char* ceiling;
    const char* expected;
  } rows[] = {
      {avx512_processor(), "AVX2", "AVX512_ZEL", "10 7"},   // refused ceiling: the branch is lost all the same
      {avx512_processor(), "AVX2", "AVX512", "10 7"},       //
      {avx512_processor(), "SSE4_2", "AVX512_ZEL", "8 3"},  // type 3 is not above 3
      {avx512_processor(), "AVX", "AVX512", "9 4"},         // nor 4 above 4
      {avx512_processor(), "SSE4_2", "AVX2", "8 3"},        // ceilings below 3 are no type codes
      {avx512_processor(), "AVX512", "AVX2", "2 5"},        // the ceiling lowers the automatic branch
      {avx512_zel_e1_processor(), "AVX512_ZEL", "AVX512_ZEL_E1", "11 6"},
      {amd(avx2_processor()), "COMPATIBLE", "AVX512", "3 0"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(printed_on(row.on, {{"TEV_CBWR", row.branch}, {"TEV_ENABLE_INSTRUCTIONS", row.ceiling}}, print_mode),
              row.expected)
        << row.branch << " " << row.ceiling;
  EXPECT_EQ(printed_on(avx512_processor(), {{"TEV_CBWR", "AVX2"}},
                       [] {
                         tev_serv_enable_instructions(TEV_ENABLE_AVX512);
                         print_mode();
                       }),
            "10 5");
}

TEST(Reproducibility, ModeFromTheProgram) {
  constexpr int kQuery = 1000, kDetect = 1001;  // stand between the modes
  const struct {
    fake_processor on;
    const char* environment;
    std::vector<int> steps;
    const char* expected;  // results, then mode and type code
  } rows[] = {
      {avx2_processor(), "AVX", {10, 10, 9, 0}, "0 0 -8 -8 10 5"},
      {avx2_processor(), "AVX", {2, 3}, "0 -8 2 5"},
      {avx2_processor(), "AVX", {1}, "0 1 5"},
      {avx2_processor(), "", {0, 1, 3}, "0 0 0 3 0"},
      {avx2_processor(), "AVX", {kQuery, 8, 9}, "9 0 -8 8 3"},
      {avx2_processor(), "", {11, 13, 14, -1, 64, 65, 10 + 64}, "-3 -3 -4 -4 -4 -4 0 10 5"},
      {avx2_processor(), "", {kDetect, 10, 2, 1, 0}, "5 -8 -8 0 0 1 5"},
      {avx2_processor(), "AVX", {kDetect, 10, 9, 9 + 64, 1}, "4 -8 0 0 -8 9 4"},
      {avx512_processor(), "", {11, 13, 12}, "-3 -3 0 12 7"},
      {avx512_zel_e1_processor(), "", {12, 13}, "-3 0 13 6"},
      {amd(avx2_processor()), "", {4, 13, 14, 3}, "-3 -3 -4 0 3 0"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(printed_on(row.on, {{"TEV_CBWR", row.environment}},
                         [&] {
                           for (int step : row.steps)
                             printf("%d ", step == kQuery    ? tev_serv_cbwr_get(1)
                                           : step == kDetect ? tev_serv_cpu_detect()
                                                             : tev_serv_cbwr_set(step));
                           print_mode();
                         }),
              row.expected);
  EXPECT_EQ(printed_on(avx2_processor(), {{"TEV_CBWR", "AVX"}},
                       [] {
                         for (int query : {-1, 0, 2, 1, -1}) printf("%d ", tev_serv_cbwr_get(query));
                       }),
            "0 -2 -2 9 9 ");
}

TEST(Caches, AreTheProcessorsOwnOnlyWhileTheModeIsOff) {
  const auto caches = [](std::vector<cache_level> list) {
    return changed(avx2_processor(), [&](auto& p) { p.caches = std::move(list); });
  };
  const cache_level unified = {3, 16, 2, 64, 1u << 21};  // 4 GiB
  std::vector instructions(100, cache_level{2, 8, 1, 64, 64});
  instructions.push_back(unified);  // never reached
  const struct {
    fake_processor on;
    const char* mode;
    const char* expected;  // levels, sizes; sizes of levels -1, 0, 1, 5
  } rows[] = {
      {avx2_processor(), "", "3 32768 262144 8388608 0; -1 8388608 32768 -1"},
      {caches(std::vector(6, unified)), "",
       "4 4294967296 4294967296 4294967296 4294967296; -1 4294967296 4294967296 -1"},
      {caches({}), "", "0 0 0 0 0; -1 -1 -1 -1"},
      {caches(instructions), "", "0 0 0 0 0; -1 -1 -1 -1"},
      {changed(avx2_processor(), [](auto& p) { p.max_leaf = 3; }), "", "0 0 0 0 0; -1 -1 -1 -1"},
      {avx2_processor(), "COMPATIBLE", "2 32768 262144 0 0; -1 262144 32768 -1"},
      {avx2_processor(), "SSE4_1", "2 32768 262144 0 0; -1 262144 32768 -1"},
      {avx2_processor(), "SSE4_2", "3 32768 262144 4194304 0; -1 4194304 32768 -1"},
      {sse42_processor(), "AUTO", "3 32768 262144 4194304 0; -1 4194304 32768 -1"},
      {ssse3_processor(), "AUTO", "2 32768 262144 0 0; -1 262144 32768 -1"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(printed_on(row.on, {{"TEV_CBWR", row.mode}},
                         [] {
                           int64_t s[5];
                           if (tev_serv_cache_info(s) != 5) printf("not 5 ");
                           printf("%ld %ld %ld %ld %ld;", s[0], s[1], s[2], s[3], s[4]);
                           for (int level : {-1, 0, 1, 5}) printf(" %ld", tev_serv_get_cache_size(level));
                         }),
              row.expected)
        << row.mode;
}

// Another maker's processors have no levels for the query; then the kernel's folders tell, but in no mode.
TEST(Caches, AreTheSystemsOwnWhereTheProcessorIsSilent) {
  const fake_processor silent = changed(amd(avx2_processor()), [](auto& p) { p.caches.clear(); });
  const kernel_folder kernel;
  const char* const caches[][2] = {{"Data", "48K"}, {"Instruction", "32K"}, {"Unified", "2048K"}, {"Unified", "30M"}};
  for (size_t index = 0; index < std::size(caches); ++index) {
    const std::string cache = "cpu0/cache/index" + std::to_string(index);
    kernel.put(cache + "/type", caches[index][0] + std::string("\n"));
    kernel.put(cache + "/size", caches[index][1] + std::string("\n"));
  }
  const std::string folder = kernel.path("");
  const struct {
    fake_processor on;
    std::string folder;
    const char* mode;
    const char* expected;  // the query's levels, all sizes
  } rows[] = {
      {silent, folder, "", "0: 49152 2097152 31457280"},
      {silent, "/nonexistent", "", "0:"},
      {silent, folder, "COMPATIBLE", "2: 32768 262144"},
      {avx2_processor(), folder, "", "3: 32768 262144 8388608"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(printed_on(row.on, {{"TEV_CBWR", row.mode}},
                         [&] {
                           tev::service::processor.cpu_folders = row.folder.c_str();
                           int64_t sizes[5];
                           tev_serv_cache_info(sizes);
                           printf("%ld:", sizes[0]);
                           const tev::service::cache_levels known = tev::service::known_caches();
                           for (int level = 0; level < known.count; ++level) printf(" %ld", known.bytes[level]);
                         }),
              row.expected);
}

void print_traits() {
  const struct {
    const char* name;
    int32_t (*ask)();
  } traits[] = {{"maker", tev_serv_zarik_cpu},          {"quill", tev_serv_cpuhasquill},
                {"bulldozer", tev_serv_cpuisbulldozer}, {"barcelona", tev_serv_cpuisitbarcelona},
                {"tetra", tev_serv_cpuistetra},         {"needle", tev_serv_cpuisneedle},
                {"spark", tev_serv_cpuisspark},         {"nova", tev_serv_cpuhasnova},
                {"vesta", tev_serv_cpuisvesta}};
  for (const auto& trait : traits) {
    const int32_t answer = trait.ask();
    if (answer != trait.ask() || answer < 0 || answer > 1) printf("%s wavers ", trait.name);
    if (answer) printf("%s ", trait.name);
  }
  printf("%d", tev_serv_get_microarchitecture());
}

TEST(Traits, DescribeTheProcessorUnlessABranchIsInForce) {
  const auto fma4 = [](auto& p) { p.ext_ecx |= 1u << 16; };
  const auto signature = [](uint32_t value) { return [value](auto& p) { p.signature = value; }; };
  const auto movbe = [](auto& p) { p.leaf1_ecx |= 1u << 22; };
  const auto movbe_aes = [](auto& p) { p.leaf1_ecx |= 1u << 22 | 1u << 25; };
  const auto mpx = [](auto& p) { p.leaf7_ebx |= 1u << 14, p.leaf1_ecx |= 1u << 27, p.xcr0 |= 0x18; };
  const struct {
    fake_processor on;
    const char* mode;
    const char* expected;  // what is true, microarchitecture
  } rows[] = {
      {changed(amd(avx_processor()), fma4), "", "quill bulldozer 0"},
      {changed(amd(avx_processor()), fma4), "COMPATIBLE", "0"},
      {changed(amd(sse42_processor()), fma4), "", "quill 0"},
      {changed(avx_processor(), fma4), "", "maker quill nova 128"},
      {changed(amd(sse2_processor()), signature(0x00100F42)), "", "barcelona 0"},
      {changed(amd(sse2_processor()), signature(0x00100F42)), "COMPATIBLE", "0"},
      {changed(amd(sse2_processor()), signature(0x00200F31)), "", "0"},
      {changed(sse2_processor(), signature(0x00100F42)), "", "maker 0"},
      {changed(avx_processor(), mpx), "AUTO", "maker quill tetra nova 128"},
      {changed(amd(sse2_processor()), mpx), "", "tetra 0"},
      {changed(avx512_processor(), mpx), "", "maker quill needle spark nova 0"},
      {changed(sse42_processor(), movbe_aes), "", "maker quill needle spark nova 66"},
      {changed(sse42_processor(), movbe_aes), "AUTO", "maker quill needle spark nova 64"},
      {changed(sse42_processor(), movbe_aes), "SSE4_2", "maker quill nova 64"},
      {changed(sse42_processor(), movbe_aes), "SSE4_1", "maker quill 33"},
      {changed(sse42_processor(), movbe_aes), "SSSE3", "maker 32"},
      {changed(sse42_processor(), movbe_aes), "SSE2", "maker 0"},
      {changed(sse42_processor(), movbe_aes), "COMPATIBLE", "0"},
      {changed(amd(sse42_processor()), movbe_aes), "", "quill 0"},
      {sse42_processor(), "", "maker quill nova 64"},
      {changed(ssse3_processor(), movbe), "", "maker spark 32"},
      {changed(ssse3_processor(), [](auto& p) { p.leaf1_ecx |= 1u << 19; }), "", "maker quill 33"},
      {avx512_zel_e1_processor(), "", "maker quill needle spark nova vesta 0"},
      {avx512_zel_e1_processor(), "AVX512_ZEL_E1", "maker quill nova vesta 0"},
      {avx512_zel_e1_processor(), "AVX512_ZEL", "maker quill nova 0"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(printed_on(row.on, {{"TEV_CBWR", row.mode}}, print_traits), row.expected)
        << "signature " << std::hex << row.on.signature << " mode " << row.mode;
}

// The mode may change until the type code is decided, and the answers with it.
TEST(Traits, FollowAModeSetAfterTheFirstQuestion) {
  EXPECT_EQ(printed_on(avx2_processor(), {},
                       [] {
                         printf("%d%d ", tev_serv_cpuisneedle(), tev_serv_zarik_cpu());
                         tev_serv_cbwr_set(TEV_CBWR_COMPATIBLE);
                         printf("%d%d", tev_serv_cpuisneedle(), tev_serv_zarik_cpu());
                       }),
            "11 00");
}

}  // namespace
