// SPDX-License-Identifier: BSD-3-Clause
// The reproducibility mode and what depends on it (type code, cache sizes, tuning), each case in a process of its own.

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
  const std::tuple<fake_processor, std::vector<const char*>, const char*> rows[] = {
      // Values of TEV_CBWR; mode, type code.
      {avx2_processor(), {"", too_long.c_str()}, "1 5"},
      {avx2_processor(), {"AUTO", "AVX512_ZEL", "AVX512", "AVX512_ZEL_E1"}, "2 5"},
      {avx2_processor(), {"BRANCH=", "branch=SSE2", "BRANCH=BRANCH=SSE2", "sse2", "SSE2 ", " SSE2", "4"}, "2 5"},
      {avx2_processor(), {fits.c_str()}, "2 5"},
      {avx2_processor(), {"COMPATIBLE"}, "3 0"},
      {avx2_processor(), {"SSE2", "SSE3"}, "4 0"},
      {avx2_processor(), {"SSSE3"}, "6 2"},
      {avx2_processor(), {"SSE4_1"}, "7 2"},
      {avx2_processor(), {"SSE4_2"}, "8 3"},
      {avx2_processor(), {"AVX"}, "9 4"},
      {avx2_processor(), {"AVX2", "BRANCH=AVX2"}, "10 5"},
      {avx512_processor(), {"AVX512"}, "12 7"},
      {avx512_processor(), {"AVX512_ZEL", "AVX512_ZEL_E1"}, "2 7"},
      {avx512_zel_processor(), {"AVX512_ZEL"}, "11 6"},
      {avx512_zel_processor(), {"AVX512", "AVX512_ZEL_E1"}, "2 6"},
      {avx512_zel_e1_processor(), {"AVX512"}, "2 6"},
      {avx512_zel_e1_processor(), {"AVX512_ZEL_E1"}, "13 6"},
      {ssse3_processor(), {"SSE4_1"}, "2 2"},
      {amd(avx2_processor()), {"AUTO", "SSE2"}, "2 0"},
      {amd(avx2_processor()), {"COMPATIBLE"}, "3 0"},
  };
  for (const auto& [on, values, expected] : rows)
    for (const char* value : values) expect_printed({{on, {{"TEV_CBWR", value}}, expected}}, print_mode);
  expect_printed({{avx2_processor(), {}, "1 5"}}, print_mode);
}

// The environment's ceiling is taken as a type code: a branch above it gives way to the best tier of the processor.
TEST(Reproducibility, BranchAboveTheEnvironmentsCeiling) {
  const auto both = [](const char* branch, const char* ceiling) {
    return environment{{"TEV_CBWR", branch}, {"TEV_ENABLE_INSTRUCTIONS", ceiling}};
  };
  const fake_processor on = avx512_processor();
  expect_printed({{on, both("AVX2", "AVX512_ZEL"), "10 7"},   // refused ceiling: the branch is lost all the same
                  {on, both("AVX2", "AVX512"), "10 7"},       //
                  {on, both("SSE4_2", "AVX512_ZEL"), "8 3"},  // type 3 is not above 3
                  {on, both("AVX", "AVX512"), "9 4"},         // nor 4 above 4
                  {on, both("SSE4_2", "AVX2"), "8 3"},        // ceilings below 3 are no type codes
                  {on, both("AVX512", "AVX2"), "2 5"},        // the ceiling lowers the automatic branch
                  {avx512_zel_e1_processor(), both("AVX512_ZEL", "AVX512_ZEL_E1"), "11 6"},
                  {amd(avx2_processor()), both("COMPATIBLE", "AVX512"), "3 0"}},
                 print_mode);
  expect_printed({{on, {{"TEV_CBWR", "AVX2"}}, "10 5"}}, [] {
    tev_serv_enable_instructions(TEV_ENABLE_AVX512);
    print_mode();
  });
}

TEST(Reproducibility, ModeFromTheProgram) {
  constexpr int kQuery = 1000, kDetect = 1001;  // stand between the modes
  const struct {
    fake_processor on;
    const char* environment;
    std::vector<int> steps;
    const char* expected;  // results, then mode and type code
  } rows[] = {{avx2_processor(), "AVX", {10, 10, 9, 0}, "0 0 -8 -8 10 5"},
              {avx2_processor(), "AVX", {1}, "0 1 5"},
              {avx2_processor(), "", {0, 1, 2, 3}, "0 0 0 -8 2 5"},
              {avx2_processor(), "AVX", {kQuery, 8, 9}, "9 0 -8 8 3"},
              {avx2_processor(), "", {11, 13, 14, -1, 64, 65, 10 + 64}, "-3 -3 -4 -4 -4 -4 0 10 5"},
              {avx2_processor(), "", {kDetect, 10, 2, 1, 0}, "5 -8 -8 0 0 1 5"},
              {avx2_processor(), "AVX", {kDetect, 10, 9, 9 + 64, 1}, "4 -8 0 0 -8 9 4"},
              {avx512_processor(), "", {11, 13, 12}, "-3 -3 0 12 7"},
              {avx512_zel_e1_processor(), "", {12, 13}, "-3 0 13 6"},
              {amd(avx2_processor()), "", {4, 13, 14, 3}, "-3 -3 -4 0 3 0"}};
  for (const auto& row : rows)
    expect_printed({{row.on, {{"TEV_CBWR", row.environment}}, row.expected}}, [&] {
      for (int step : row.steps)
        printf("%d ", step == kQuery    ? tev_serv_cbwr_get(1)
                      : step == kDetect ? tev_serv_cpu_detect()
                                        : tev_serv_cbwr_set(step));
      print_mode();
    });
  expect_printed({{avx2_processor(), {{"TEV_CBWR", "AVX"}}, "0 -2 -2 9 9 "}}, [] {
    for (int query : {-1, 0, 2, 1, -1}) printf("%d ", tev_serv_cbwr_get(query));
  });
}

// Another maker's processors have no levels for the query; then the kernel's folders tell, but in no mode.
TEST(Caches, AreTheMachinesOwnOnlyWhileTheModeIsOff) {
  const kernel_folder kernel;
  const auto put_cache = [&](const std::string& index, const char* type, const char* size) {
    kernel.put("cpu0/cache/index" + index + "/type", type);
    kernel.put("cpu0/cache/index" + index + "/size", size);
  };
  put_cache("0", "Data\n", "48K\n");
  put_cache("1", "Instruction\n", "32K\n");
  put_cache("2", "Unified\n", "2048K\n");
  put_cache("3", "Unified\n", "30M\n");
  const auto with = [](fake_processor p, std::vector<cache_level> caches) {
    return changed(p, [&](auto& q) { q.caches = std::move(caches); });
  };
  const cache_level unified = {3, 16, 2, 64, 1u << 21};  // 4 GiB
  std::vector instructions(100, cache_level{2, 8, 1, 64, 64});
  instructions.push_back(unified);  // never reached
  const std::string folder = kernel.path(""), none = "/nonexistent",
                    huge = " 4294967296 4294967296 4294967296 4294967296";
  const struct {
    fake_processor on;
    std::string folder;
    const char* mode;
    std::string expected;  // levels, sizes; sizes of levels -1, 0, 1, 5; known ones
  } rows[] = {
      {avx2_processor(), folder, "", "3 32768 262144 8388608 0; -1 8388608 32768 -1; 32768 262144 8388608"},
      {with(avx2_processor(), std::vector(6, unified)), none, "", "4" + huge + "; -1 4294967296 4294967296 -1;" + huge},
      {with(avx2_processor(), instructions), none, "", "0 0 0 0 0; -1 -1 -1 -1;"},
      {with(amd(avx2_processor()), {}), folder, "", "0 0 0 0 0; -1 -1 -1 -1; 49152 2097152 31457280"},
      {with(amd(avx2_processor()), {}), none, "", "0 0 0 0 0; -1 -1 -1 -1;"},
      {changed(avx2_processor(), [](auto& p) { p.max_leaf = 3; }), none, "", "0 0 0 0 0; -1 -1 -1 -1;"},
      {with(amd(avx2_processor()), {}), folder, "COMPATIBLE", "2 32768 262144 0 0; -1 262144 32768 -1; 32768 262144"},
      {avx2_processor(), none, "SSE4_1", "2 32768 262144 0 0; -1 262144 32768 -1; 32768 262144"},
      {avx2_processor(), none, "SSE4_2", "3 32768 262144 4194304 0; -1 4194304 32768 -1; 32768 262144 4194304"},
      {sse42_processor(), none, "AUTO", "3 32768 262144 4194304 0; -1 4194304 32768 -1; 32768 262144 4194304"},
      {ssse3_processor(), none, "AUTO", "2 32768 262144 0 0; -1 262144 32768 -1; 32768 262144"},
  };
  for (const auto& row : rows)
    expect_printed({{row.on, {{"TEV_CBWR", row.mode}}, row.expected}}, [&] {
      tev::service::processor.cpu_folders = row.folder.c_str();
      int64_t s[5];
      if (tev_serv_cache_info(s) != 5) printf("not 5 ");
      printf("%ld %ld %ld %ld %ld;", s[0], s[1], s[2], s[3], s[4]);
      for (int level : {-1, 0, 1, 5}) printf(" %ld", tev_serv_get_cache_size(level));
      const tev::service::cache_levels known = tev::service::known_caches();
      printf(";");
      for (int level = 0; level < known.count; ++level) printf(" %ld", known.bytes[level]);
    });
}

void print_traits() {
  const std::pair<const char*, int32_t (*)()> traits[] = {
      {"maker", tev_serv_zarik_cpu},          {"quill", tev_serv_cpuhasquill},
      {"bulldozer", tev_serv_cpuisbulldozer}, {"barcelona", tev_serv_cpuisitbarcelona},
      {"tetra", tev_serv_cpuistetra},         {"needle", tev_serv_cpuisneedle},
      {"spark", tev_serv_cpuisspark},         {"nova", tev_serv_cpuhasnova},
      {"vesta", tev_serv_cpuisvesta}};
  for (const auto& [name, ask] : traits) {
    const int32_t answer = ask();
    if (answer != ask() || answer < 0 || answer > 1) printf("%s wavers ", name);
    if (answer) printf("%s ", name);
  }
  printf("%d", tev_serv_get_microarchitecture());
}

TEST(Traits, DescribeTheProcessorUnlessABranchIsInForce) {
  const auto fma4 = [](fake_processor p) { return p.ext_ecx |= 1u << 16, p; };
  const auto signed_as = [](fake_processor p, uint32_t signature) { return p.signature = signature, p; };
  const auto movbe = [](fake_processor p) { return p.leaf1_ecx |= 1u << 22, p; };
  const auto aes = [](fake_processor p) { return p.leaf1_ecx |= 1u << 25, p; };
  const auto sse41 = [](fake_processor p) { return p.leaf1_ecx |= 1u << 19, p; };
  const auto mpx = [](fake_processor p) { return p.leaf7_ebx |= 1u << 14, p.leaf1_ecx |= 1u << 27, p.xcr0 |= 0x18, p; };
  const auto mode = [](const char* value) { return environment{{"TEV_CBWR", value}}; };
  const fake_processor small_core = movbe(aes(sse42_processor()));
  expect_printed(
      {// What is true, microarchitecture.
       {fma4(amd(avx_processor())), {}, "quill bulldozer 0"},
       {fma4(amd(avx_processor())), mode("COMPATIBLE"), "0"},
       {fma4(amd(sse42_processor())), {}, "quill 0"},
       {fma4(avx_processor()), {}, "maker quill nova 128"},
       {signed_as(amd(sse2_processor()), 0x00100F42), {}, "barcelona 0"},
       {signed_as(amd(sse2_processor()), 0x00100F42), mode("COMPATIBLE"), "0"},
       {signed_as(amd(sse2_processor()), 0x00200F31), {}, "0"},
       {signed_as(sse2_processor(), 0x00100F42), {}, "maker 0"},
       {mpx(avx_processor()), mode("AUTO"), "maker quill tetra nova 128"},
       {mpx(amd(sse2_processor())), {}, "tetra 0"},
       {mpx(avx512_processor()), {}, "maker quill needle spark nova 0"},
       {small_core, {}, "maker quill needle spark nova 66"},
       {small_core, mode("AUTO"), "maker quill needle spark nova 64"},
       {small_core, mode("SSE4_2"), "maker quill nova 64"},
       {small_core, mode("SSE4_1"), "maker quill 33"},
       {small_core, mode("SSSE3"), "maker 32"},
       {small_core, mode("SSE2"), "maker 0"},
       {small_core, mode("COMPATIBLE"), "0"},
       {amd(small_core), {}, "quill 0"},
       {sse42_processor(), {}, "maker quill nova 64"},
       {movbe(ssse3_processor()), {}, "maker spark 32"},
       {sse41(ssse3_processor()), {}, "maker quill 33"},
       {avx512_zel_e1_processor(), {}, "maker quill needle spark nova vesta 0"},
       {avx512_zel_e1_processor(), mode("AVX512_ZEL_E1"), "maker quill nova vesta 0"},
       {avx512_zel_e1_processor(), mode("AVX512_ZEL"), "maker quill nova 0"}},
      print_traits);
}

// The mode may change until the type code is decided, and the answers with it.
TEST(Traits, FollowAModeSetAfterTheFirstQuestion) {
  expect_printed({{avx2_processor(), {}, "11 00"}}, [] {
    printf("%d%d ", tev_serv_cpuisneedle(), tev_serv_zarik_cpu());
    tev_serv_cbwr_set(TEV_CBWR_COMPATIBLE);
    printf("%d%d", tev_serv_cpuisneedle(), tev_serv_zarik_cpu());
  });
}

}  // namespace
