// SPDX-License-Identifier: BSD-3-Clause
// Features, tiers, ceilings and the forced type code, each on a made-up processor in a process of its own.
#include "service/detection.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "service/features.h"
#include "tests/support/fake_processor.h"

namespace {

using namespace tev::service;
using namespace tev::test;

constexpr uint32_t kOsxsaveBit = 1u << 27;

// A processor that reports everything, less what one row takes away.
TEST(Features, NeedFxsaveAndTheirOperatingSystemState) {
  fake_processor all;
  all.leaf1_ecx = all.leaf1_edx = all.leaf7_ebx = all.leaf7_ecx = all.ext_ecx = ~0u;
  all.xcr0 = 0xFE;
  const auto states = [&](uint64_t xcr0) { return changed(all, [&](auto& p) { p.xcr0 = xcr0; }); };
  const auto signature = [&](uint32_t value) { return changed(all, [&](auto& p) { p.signature = value; }); };
  const struct {
    const char* without;
    fake_processor on;
    const char* word;
  } rows[] = {
      {"nothing", all, "ff79ffffff"},
      {"AVX state", states(0xFA), "ff797a7fff"},
      {"SSE state", states(0xFC), "ff797a7fff"},
      {"half of the MPX state", states(0xF6), "ef79ffffff"},
      {"part of the AVX-512 state", states(0xBE), "1830ffffff"},
      {"OSXSAVE", changed(all, [](auto& p) { p.leaf1_ecx ^= kOsxsaveBit; }), "8307a7fff"},
      {"FXSAVE", changed(all, [](auto& p) { p.leaf1_edx ^= 1u << 24; }), "ff79f80001"},
      {"leaf 7", changed(all, [](auto& p) { p.max_leaf = 6; }), "17ffff"},
      {"BMI2", changed(all, [](auto& p) { p.leaf7_ebx ^= 1u << 8; }), "ff79f7ffff"},
      {"big cores", signature(0x106C0), "fff9ffffff"},
      {"big cores", signature(0x20660), "fff9ffffff"},
      {"big cores", signature(0x20670), "fff9ffffff"},
      {"small cores", signature(0x106D0), "ff79ffffff"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(printed_on(row.on, {},
                         [] {
                           has_features(kInitialised);
                           printf("%lx", __zarik_tev_feature_indicator_x);
                         }),
              row.word)
        << row.without;
}

// On the processor at hand, by the compiler's own reading of CPUID and XGETBV.
TEST(Features, AgreeWithTheCompiler) {
#define TEV_ROW(name, feature) \
  { name, __builtin_cpu_supports(name) != 0, feature }
  const struct {
    const char* name;
    bool supported;
    uint64_t feature;
  } rows[] = {
      TEV_ROW("cmov", kCmov),         TEV_ROW("mmx", kMmx),           TEV_ROW("sse", kSse),
      TEV_ROW("sse2", kSse2),         TEV_ROW("sse3", kSse3),         TEV_ROW("ssse3", kSsse3),
      TEV_ROW("sse4.1", kSse41),      TEV_ROW("sse4.2", kSse42),      TEV_ROW("popcnt", kPopcnt),
      TEV_ROW("pclmul", kPclmulqdq),  TEV_ROW("aes", kAes),           TEV_ROW("avx", kAvx),
      TEV_ROW("fma", kFma),           TEV_ROW("bmi2", kBmi),          TEV_ROW("avx2", kAvx2),
      TEV_ROW("avx512f", kAvx512F),   TEV_ROW("avx512dq", kAvx512Dq), TEV_ROW("avx512bw", kAvx512Bw),
      TEV_ROW("avx512vl", kAvx512Vl), TEV_ROW("avx512cd", kAvx512Cd), TEV_ROW("avx512ifma", kAvx512Ifma),
      TEV_ROW("avx512er", kAvx512Er), TEV_ROW("avx512pf", kAvx512Pf), TEV_ROW("avx512vbmi", kAvx512Vbmi),
  };
#undef TEV_ROW
  const child_result result = in_child({}, [&] {
    for (const auto& row : rows)
      if (row.supported != has_features(row.feature)) printf("%s ", row.name);
    return 0;
  });
  EXPECT_EQ(result.out, "");
}

TEST(Tier, FollowsFeaturesAndOperatingSystem) {
  const auto xcr0 = [](fake_processor p, uint64_t state) { return changed(p, [&](auto& q) { q.xcr0 = state; }); };
  const struct {
    const char* what;
    fake_processor on;
    const char* expected;  // by hardware, automatic branch, in force
  } rows[] = {
      {"SSE2", sse2_processor(), "0 4 0 def"},
      {"SSSE3", ssse3_processor(), "2 6 2 mc"},
      {"SSE4.1", changed(ssse3_processor(), [](auto& p) { p.leaf1_ecx |= 1u << 19; }), "2 7 2 mc"},
      {"SSE4.2", sse42_processor(), "3 8 3 mc3"},
      {"AVX", avx_processor(), "4 9 4 avx"},
      {"AVX2", avx2_processor(), "5 10 5 avx2"},
      {"many cores", avx512_zel_processor(), "6 11 6 avx512_zel"},
      {"many cores, E1", avx512_zel_e1_processor(), "8 13 6 avx512_zel"},
      {"half of E1", changed(avx512_zel_processor(), [](auto& p) { p.leaf7_edx = 1u << 2; }), "6 11 6 avx512_zel"},
      {"AVX-512", avx512_processor(), "7 12 7 avx512"},
      {"both", changed(avx512_processor(), [](auto& p) { p.leaf7_ebx |= 3u << 26, p.leaf7_edx = 3u << 2; }),
       "7 12 7 avx512"},
      {"AVX-512 without VL", changed(avx512_processor(), [](auto& p) { p.leaf7_ebx ^= 1u << 31; }), "5 10 5 avx2"},
      {"many cores without ER", changed(avx512_zel_processor(), [](auto& p) { p.leaf7_ebx ^= 1u << 27; }),
       "5 10 5 avx2"},
      {"AVX2 without LZCNT", changed(avx2_processor(), [](auto& p) { p.ext_ecx = 0; }), "4 9 4 avx"},
      {"AVX-512 off", xcr0(avx512_processor(), 0x67), "5 10 5 avx2"},
      {"AVX off", xcr0(avx512_processor(), 0x3), "3 8 3 mc3"},
      {"no OSXSAVE", changed(avx512_processor(), [](auto& p) { p.leaf1_ecx ^= kOsxsaveBit; }), "3 8 3 mc3"},
      {"another maker", amd(avx512_processor()), "0 2 0 def"},
      {"another maker, empty", amd(fake_processor()), "0 2 0 def"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(printed_on(row.on, {},
                         [] {
                           printf("%d %d ", tev_serv_get_cpu_type(1), tev_serv_cbwr_get_auto_branch());
                           if (tev_serv_get_cpu_type(0) != -1) printf("decided too early ");
                           printf("%d ", tev_serv_cpu_detect());
                           printf("%s", tier_name(tev_serv_get_cpu_type(0)));
                         }),
              row.expected)
        << row.what;
}

TEST(Tier, NamesEndWithTheTable) {
  EXPECT_STREQ(tier_name(8), "avx512_zel");
  EXPECT_EQ(tier_name(-1), nullptr);
  EXPECT_EQ(tier_name(9), nullptr);
  for (int code = 0; code < 9; ++code) EXPECT_EQ(dll_cfg_names[code], std::string("libtev_") + tier_name(code) + ".so");
  EXPECT_EQ(reinterpret_cast<uintptr_t>(dll_cfg_names[9]), UINTPTR_MAX);
}

void print_ceiling() {
  printf("%d%d%d%d%d %d", tev_serv_is_sse4_2_enabled(), tev_serv_is_avx_enabled(), tev_serv_is_avx2_enabled(),
         tev_serv_is_avx512_zel_enabled(), tev_serv_is_avx512_enabled(), tev_serv_get_cpu_type(1));
}

TEST(Ceiling, IsAcceptedOrRefusedAlikeFromProgramAndEnvironment) {
  const char* const names[] = {"SSE4_2", "AVX", "AVX2", "AVX512_ZEL", "AVX512", "AVX512_ZEL_E1"};
  const auto e1 = [](auto& p) { p.leaf7_edx = 3u << 2; };
  const struct {
    fake_processor on;
    int32_t ceiling;
    const char* expected;  // accepted, SSE4.2 AVX AVX2 ZEL AVX512, type code
  } rows[] = {{avx512_processor(), 0, "1 10000 3"},        {avx512_processor(), 1, "1 11000 4"},
              {avx512_processor(), 2, "1 11100 5"},        {avx512_processor(), 3, "0 11111 7"},
              {avx512_processor(), 4, "1 11101 7"},        {avx512_processor(), 5, "0 11111 7"},
              {avx512_zel_processor(), 2, "1 11100 5"},    {avx512_zel_processor(), 3, "1 11110 6"},
              {avx512_zel_processor(), 4, "0 11111 6"},    {avx512_zel_processor(), 5, "1 11110 6"},
              {avx512_zel_e1_processor(), 3, "1 11110 6"}, {avx512_zel_e1_processor(), 4, "0 11111 8"},
              {avx512_zel_e1_processor(), 5, "1 11110 8"}, {avx2_processor(), 3, "1 11110 5"},
              {avx2_processor(), 4, "1 11101 5"},          {changed(avx2_processor(), e1), 4, "0 11111 5"},
              {ssse3_processor(), 0, "1 10000 2"},         {amd(avx2_processor()), 2, "0 11111 0"},
              {avx2_processor(), -1, "0 11111 5"},         {avx2_processor(), 6, "0 11111 5"},
              {avx2_processor(), 1536, "0 11111 5"}};
  for (const auto& row : rows) {
    EXPECT_EQ(printed_on(row.on, {{"TEV_ENABLE_INSTRUCTIONS", "SSE4_2"}},  // the program comes first
                         [&] {
                           printf("%d ", tev_serv_enable_instructions(row.ceiling));
                           print_ceiling();
                         }),
              row.expected)
        << row.ceiling;
    if (row.ceiling >= 0 && row.ceiling < 6) {
      EXPECT_EQ(printed_on(row.on, {{"TEV_ENABLE_INSTRUCTIONS", names[row.ceiling]}}, print_ceiling), row.expected + 2)
          << names[row.ceiling];
    }
  }
}

TEST(Ceiling, IsIgnoredWhenMisspeltOrWhenTheTypeIsForced) {
  for (const char* value : {"avx2", "AVX2 ", " AVX2", "AVX51", "AVX512_", "2", "", "AVX2AVX2AVX2AVX2AVX2AVX2AVX2AVX2"})
    EXPECT_EQ(printed_on(avx512_processor(), {{"TEV_ENABLE_INSTRUCTIONS", value}}, print_ceiling), "11111 7") << value;
  EXPECT_EQ(printed_on(avx512_processor(), {{"TEV_ENABLE_INSTRUCTIONS", "AVX"}, {"TEV_DEBUG_CPU_TYPE", "3"}},
                       [] {
                         printf("%d ", tev_serv_enable_instructions(TEV_ENABLE_AVX));
                         print_ceiling();
                       }),
            "0 11111 3");
}

int32_t returning_exit(int32_t status, void*) {
  printf("exit %d, lock free %d\n", status, tev_serv_trylock(&TEV_Detect_Cpu_Global_Lock));
  tev_serv_unlock(&TEV_Detect_Cpu_Global_Lock);
  return 0;
}

TEST(ForcedType, WinsOverProcessorBranchAndMaker) {
  const auto print_types = [] {
    printf("%d ", tev_serv_get_cpu_type(1));
    printf("%d", tev_serv_cpu_detect());
  };
  const struct {
    const char* value;
    const char* expected;  // by hardware, in force
  } rows[] = {{"0", "0 0"},   {"1", "1 1"},   {"5", "5 5"},  {"8", "8 6"},
              {"0x3", "3 3"}, {"010", "8 6"}, {" 2", "2 2"}, {"+4x", "4 4"}};
  for (const auto& row : rows)
    for (const fake_processor& on : {avx512_processor(), amd(sse2_processor())})
      EXPECT_EQ(printed_on(on, {{"TEV_DEBUG_CPU_TYPE", row.value}, {"TEV_CBWR", "COMPATIBLE"}}, print_types),
                row.expected)
          << row.value;
  for (const char* value : {"x", "", " ", "000000000000000000000000000005"})
    EXPECT_EQ(printed_on(avx512_processor(), {{"TEV_DEBUG_CPU_TYPE", value}}, print_types), "7 7") << value;
}

TEST(ForcedType, WithoutTierEndsTheProcess) {
  for (const char* code : {"9", "-1", "-7", "2147483647"}) {
    const std::string message = std::string("Zarik TEV ERROR: CPU ") + code + " is not supported.\n";
    EXPECT_EQ(printed_on(avx_processor(), {{"TEV_DEBUG_CPU_TYPE", code}}, tev_serv_cpu_detect), message + "status 1");
    EXPECT_EQ(printed_on(avx_processor(), {{"TEV_DEBUG_CPU_TYPE", code}},
                         [] {
                           tev_serv_set_exit_handler(returning_exit);
                           printf("returns %d", tev_serv_cpu_detect());
                           printf(", decided %d, by hardware %d", tev_serv_get_cpu_type(0), tev_serv_get_cpu_type(1));
                         }),
              message + "exit 1, lock free 1\nreturns " + code + ", decided -1, by hardware " + code);
  }
}

TEST(TooOldProcessor, EndsTheProcess) {
  const std::string message =
      "Zarik TEV FATAL ERROR: This system does not meet the minimum requirements for use of the Zarik(R) Tevalon.\n"
      "The processor must support the Zarik(R) Streaming SIMD 2 Extensions (Zarik(R) SSE2) instructions.\n";
  const fake_processor old = changed(sse2_processor(), [](auto& p) { p.leaf1_edx ^= 1u << 26; });
  const auto detect = [] { return tev_serv_cpu_detect(); };
  const auto by_hardware = [] { return tev_serv_get_cpu_type(1); };
  for (const char* mode : {"", "AVX"})  // a branch is compared with the automatic one, with the lock held
    for (int32_t (*ask)() : {+detect, +by_hardware}) {
      EXPECT_EQ(printed_on(old, {{"TEV_CBWR", mode}}, ask), message + "status 1");
      EXPECT_EQ(printed_on(old, {{"TEV_CBWR", mode}},
                           [&] {
                             tev_serv_set_exit_handler(returning_exit);
                             printf("returns %d", ask());
                             printf(", decided %d", tev_serv_get_cpu_type(0));
                           }),
                message + "exit 1, lock free 1\nreturns -1, decided -1");
    }
}

// A vouched processor is what its features make it; what only its real maker's processors have stays.
TEST(Vouching, MakesTheFeaturesDecide) {
  const auto print = [] {
    printf("%d%d", tev_serv_trust_features(1), tev_serv_trust_features(1));
    printf(" maker %d%d", tev_serv_zarik_cpu_true(), tev_serv_zarik_cpu());
    printf(" type %d branch %d", tev_serv_get_cpu_type(1), tev_serv_cbwr_get_auto_branch());
    printf(" mode %d %s", tev_serv_cbwr_get(1), tier_name(tev_serv_cpu_detect()));
    printf(" needle %d bulldozer %d", tev_serv_cpuisneedle(), tev_serv_cpuisbulldozer());
    printf(" caches %ld, again %d, back %d", tev_serv_get_cache_size(1), tev_serv_trust_features(1),
           tev_serv_trust_features(0));
  };
  const auto foreign = [](fake_processor p) {
    p.ext_ecx |= 1u << 16;  // FMA4
    p.caches.clear();
    return amd(p);
  };
  const std::string off = " caches -1, again 0, back -8", on = " caches 32768, again 0, back -8";
  const struct {
    fake_processor processor;
    environment settings;
    std::string expected;
  } rows[] = {
      {avx512_processor(), {}, "00 maker 11 type 7 branch 12 mode 1 avx512 needle 1 bulldozer 1" + off},
      {avx2_processor(), {}, "00 maker 11 type 5 branch 10 mode 1 avx2 needle 1 bulldozer 1" + off},
      {sse2_processor(), {}, "00 maker 11 type 0 branch 4 mode 1 def needle 0 bulldozer 0" + off},
      {avx512_processor(),
       {{"TEV_ENABLE_INSTRUCTIONS", "AVX"}},
       "00 maker 11 type 4 branch 9 mode 1 avx needle 1 bulldozer 1" + off},
      {avx512_processor(),
       {{"TEV_CBWR", "AVX2"}},
       "00 maker 11 type 7 branch 12 mode 10 avx2 needle 0 bulldozer 0" + on},
      {avx512_processor(),
       {{"TEV_DEBUG_CPU_TYPE", "3"}},
       "00 maker 11 type 3 branch 8 mode 1 mc3 needle 1 bulldozer 1" + off},
  };
  for (const auto& row : rows) EXPECT_EQ(printed_on(foreign(row.processor), row.settings, print), row.expected);
}

TEST(Vouching, ComesTooLateForWhatIsDecided) {
  const struct {
    const char* what;
    void (*decide)();
  } rows[] = {
      {"type code", [] { tev_serv_cpu_detect(); }},
      {"vendor test", [] { tev_serv_zarik_cpu_true(); }},
      {"what this processor can do", [] { tev_serv_get_cpu_type(1); }},
      {"mode from the environment", [] { tev_serv_cbwr_get(1); }},
      {"mode from the program", [] { tev_serv_cbwr_set(TEV_CBWR_OFF); }},
      {"ceiling", [] { tev_serv_enable_instructions(TEV_ENABLE_AVX); }},
      {"topology", [] { tev_serv_get_ncpus(); }},
      {"thread count", [] { tev_serv_get_max_threads(); }},
      {"caches", [] { tev_serv_get_cache_size(1); }},
  };
  for (const auto& row : rows)
    EXPECT_EQ(printed_on(amd(avx2_processor()), {},
                         [&] {
                           printf("%d ", tev_serv_trust_features(0));
                           row.decide();
                           printf("%d %d", tev_serv_trust_features(1), tev_serv_trust_features(0));
                           printf(" maker %d type %d", tev_serv_zarik_cpu_true(), tev_serv_cpu_detect());
                         }),
              "0 -8 0 maker 0 type 0")
        << row.what;
}

// One thread vouches while others ask: it was first or came too late, and everybody has one opinion.
TEST(Vouching, RacedByQuestionsIsAllOrNothing) {
  const auto race = [] {
    std::atomic<int> waiting = 4;
    int32_t vouched = 0, answers[3];
    const auto start = [&] {
      for (--waiting; waiting > 0;) std::this_thread::yield();
    };
    std::thread voucher([&] { start(), vouched = tev_serv_trust_features(1); });
    std::thread askers[3];
    for (int t = 0; t < 3; ++t) askers[t] = std::thread([&, t] { start(), answers[t] = tev_serv_zarik_cpu_true(); });
    voucher.join();
    for (std::thread& asker : askers) asker.join();
    for (const int32_t answer : answers)
      if (answer != (vouched == 0)) printf("vouched %d, answer %d ", vouched, answer);
  };
  for (int round = 0; round < 20; ++round) EXPECT_EQ(printed_on(amd(avx2_processor()), {}, race), "");
}

// Every question first asked by several threads at once, each beginning with another one: all see the same answers.
TEST(Detection, RacedByThreadsGivesOneAnswer) {
  const auto race = [] {
    int32_t (*const questions[])() = {
        tev_serv_cpu_detect,
        [] { return tev_serv_get_cpu_type(1); },
        [] { return tev_serv_cbwr_get(1); },
        tev_serv_is_avx512_enabled,
        [] { return static_cast<int32_t>(tev_serv_get_cache_size(0)); },
        tev_serv_get_microarchitecture,
        tev_serv_cpuisneedle,
        tev_serv_cpuisvesta,
    };
    constexpr int kThreads = 16, kQuestions = std::size(questions);
    std::string answers[kThreads];
    std::atomic<int> waiting = kThreads;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
      threads.emplace_back([&, t] {
        int32_t mine[kQuestions];
        for (--waiting; waiting > 0;) std::this_thread::yield();
        for (int q = 0; q < kQuestions; ++q) mine[(q + t) % kQuestions] = questions[(q + t) % kQuestions]();
        for (int32_t answer : mine) answers[t] += std::to_string(answer) + " ";
      });
    for (std::thread& thread : threads) thread.join();
    for (const std::string& answer : std::set<std::string>(answers, answers + kThreads)) printf("%s\n", answer.c_str());
  };
  for (int round = 0; round < 20; ++round)
    EXPECT_EQ(printed_on(avx512_processor(), {{"TEV_ENABLE_INSTRUCTIONS", "AVX"}, {"TEV_CBWR", "AUTO"}}, race),
              "4 4 2 0 4194304 128 1 0 \n");
}

}  // namespace
