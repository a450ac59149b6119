// SPDX-License-Identifier: BSD-3-Clause
// Features, tiers, ceilings and the forced type code, each on a made-up processor in a process of its own.
#include "service/detection.h"

#include "service/features.h"
#include "tests/support/at_once.h"
#include "tests/support/fake_processor.h"

namespace {

using namespace tev::service;
using namespace tev::test;

constexpr uint32_t kOsxsaveBit = 1u << 27;

fake_processor with_xcr0(fake_processor p, uint64_t state) {
  p.xcr0 = state;
  return p;
}

// A processor that reports everything, less what one row takes away.
TEST(Features, NeedFxsaveAndTheirOperatingSystemState) {
  fake_processor all;
  all.leaf1_ecx = all.leaf1_edx = all.leaf7_ebx = all.leaf7_ecx = all.ext_ecx = ~0u;
  all.xcr0 = 0xFE;
  const auto signature = [&](uint32_t value) { return changed(all, [&](auto& p) { p.signature = value; }); };
  expect_printed(
      {
          {all, {}, "ff79ffffff"},
          {with_xcr0(all, 0xFA), {}, "ff797a7fff"},  // no AVX state
          {with_xcr0(all, 0xFC), {}, "ff797a7fff"},  // no SSE state
          {with_xcr0(all, 0xF6), {}, "ef79ffffff"},  // half of the MPX state
          {with_xcr0(all, 0xBE), {}, "1830ffffff"},  // part of the AVX-512 state
          {changed(all, [](auto& p) { p.leaf1_ecx ^= kOsxsaveBit; }), {}, "8307a7fff"},
          {changed(all, [](auto& p) { p.leaf1_edx ^= 1u << 24; }), {}, "ff79f80001"},  // no FXSAVE
          {changed(all, [](auto& p) { p.leaf7_ebx ^= 1u << 8; }), {}, "ff79f7ffff"},   // no BMI2
          {changed(all, [](auto& p) { p.max_leaf = 6; }), {}, "17ffff"},
          {signature(0x106C0), {}, "fff9ffffff"},  // big cores
          {signature(0x20660), {}, "fff9ffffff"},
          {signature(0x20670), {}, "fff9ffffff"},
          {signature(0x106D0), {}, "ff79ffffff"},  // small cores
      },
      [] {
        has_features(kInitialised);
        printf("%lx", __zarik_tev_feature_indicator_x);
      });
}

// On the processor at hand, by the compiler's own reading of CPUID and XGETBV.
TEST_IN_CHILD(Features, AgreeWithTheCompiler) {
#define TEV_ROW(name, feature) \
  { name, __builtin_cpu_supports(name) != 0, feature }
  const std::tuple<const char*, bool, uint64_t> rows[] = {
      TEV_ROW("cmov", kCmov),         TEV_ROW("mmx", kMmx),           TEV_ROW("sse", kSse),
      TEV_ROW("sse2", kSse2),         TEV_ROW("sse3", kSse3),         TEV_ROW("ssse3", kSsse3),
      TEV_ROW("sse4.1", kSse41),      TEV_ROW("sse4.2", kSse42),      TEV_ROW("popcnt", kPopcnt),
      TEV_ROW("pclmul", kPclmulqdq),  TEV_ROW("aes", kAes),           TEV_ROW("avx", kAvx),
      TEV_ROW("fma", kFma),           TEV_ROW("bmi2", kBmi),          TEV_ROW("avx2", kAvx2),
      TEV_ROW("avx512f", kAvx512F),   TEV_ROW("avx512dq", kAvx512Dq), TEV_ROW("avx512bw", kAvx512Bw),
      TEV_ROW("avx512vl", kAvx512Vl), TEV_ROW("avx512cd", kAvx512Cd), TEV_ROW("avx512ifma", kAvx512Ifma),
      TEV_ROW("avx512er", kAvx512Er), TEV_ROW("avx512pf", kAvx512Pf), TEV_ROW("avx512vbmi", kAvx512Vbmi),
  };
  for (const auto& [name, supported, feature] : rows) EXPECT_EQ(has_features(feature), supported) << name;
}

TEST(Tier, FollowsFeaturesAndOperatingSystem) {
  const fake_processor many_cores = avx512_zel_processor(), newest = avx512_processor();
  expect_printed(
      {// By hardware, automatic branch, in force.
       {sse2_processor(), {}, "0 4 0 def"},
       {ssse3_processor(), {}, "2 6 2 mc"},
       {changed(ssse3_processor(), [](auto& p) { p.leaf1_ecx |= 1u << 19; }), {}, "2 7 2 mc"},  // SSE4.1
       {sse42_processor(), {}, "3 8 3 mc3"},
       {avx_processor(), {}, "4 9 4 avx"},
       {avx2_processor(), {}, "5 10 5 avx2"},
       {changed(avx2_processor(), [](auto& p) { p.ext_ecx = 0; }), {}, "4 9 4 avx"},  // no LZCNT
       {many_cores, {}, "6 11 6 avx512_zel"},
       {avx512_zel_e1_processor(), {}, "8 13 6 avx512_zel"},
       {changed(many_cores, [](auto& p) { p.leaf7_edx = 1u << 2; }), {}, "6 11 6 avx512_zel"},  // half of E1
       {changed(many_cores, [](auto& p) { p.leaf7_ebx ^= 1u << 27; }), {}, "5 10 5 avx2"},      // no ER
       {newest, {}, "7 12 7 avx512"},
       {changed(newest, [](auto& p) { p.leaf7_ebx |= 3u << 26, p.leaf7_edx = 3u << 2; }), {}, "7 12 7 avx512"},
       {changed(newest, [](auto& p) { p.leaf7_ebx ^= 1u << 31; }), {}, "5 10 5 avx2"},  // no VL
       {with_xcr0(newest, 0x67), {}, "5 10 5 avx2"},
       {with_xcr0(newest, 0x3), {}, "3 8 3 mc3"},
       {changed(newest, [](auto& p) { p.leaf1_ecx ^= kOsxsaveBit; }), {}, "3 8 3 mc3"},
       {amd(newest), {}, "0 2 0 def"}},
      [] {
        printf("%d %d ", tev_serv_get_cpu_type(1), tev_serv_cbwr_get_auto_branch());
        if (tev_serv_get_cpu_type(0) != -1) printf("decided too early ");
        printf("%d ", tev_serv_cpu_detect());
        printf("%s", tier_name(tev_serv_get_cpu_type(0)));
      });
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
              {avx512_zel_processor(), 4, "0 11111 6"},    {avx512_zel_e1_processor(), 3, "1 11110 6"},
              {avx512_zel_e1_processor(), 5, "1 11110 8"}, {changed(avx2_processor(), e1), 4, "0 11111 5"},
              {ssse3_processor(), 0, "1 10000 2"},         {amd(avx2_processor()), 2, "0 11111 0"},
              {avx2_processor(), -1, "0 11111 5"},         {avx2_processor(), 6, "0 11111 5"}};
  for (const auto& row : rows) {
    const auto from_program = [&] {
      printf("%d ", tev_serv_enable_instructions(row.ceiling));
      print_ceiling();
    };
    EXPECT_EQ(printed_on(row.on, {{"TEV_ENABLE_INSTRUCTIONS", "SSE4_2"}}, from_program), row.expected) << row.ceiling;
    if (row.ceiling < 0 || row.ceiling > 5) continue;
    expect_printed({{row.on, {{"TEV_ENABLE_INSTRUCTIONS", names[row.ceiling]}}, row.expected + 2}}, print_ceiling);
  }
}

TEST(Ceiling, IsIgnoredWhenMisspeltOrWhenTheTypeIsForced) {
  for (const char* value : {"avx2", "AVX2 ", "AVX51", "2", "", "AVX2AVX2AVX2AVX2AVX2AVX2AVX2AVX2"})
    expect_printed({{avx512_processor(), {{"TEV_ENABLE_INSTRUCTIONS", value}}, "11111 7"}}, print_ceiling);
  expect_printed({{avx512_processor(), {{"TEV_ENABLE_INSTRUCTIONS", "AVX"}, {"TEV_DEBUG_CPU_TYPE", "3"}}, "0 11111 3"}},
                 [] {
                   printf("%d ", tev_serv_enable_instructions(TEV_ENABLE_AVX));
                   print_ceiling();
                 });
}

TEST(ForcedType, WinsOverProcessorBranchAndMaker) {
  const auto print_types = [] {
    printf("%d ", tev_serv_get_cpu_type(1));
    printf("%d", tev_serv_cpu_detect());
  };
  const std::pair<const char*, const char*> rows[] = {
      // By hardware, in force.
      {"0", "0 0"}, {"5", "5 5"}, {"8", "8 6"}, {"0x3", "3 3"}, {"010", "8 6"}, {" 2", "2 2"}, {"+4x", "4 4"}};
  for (const auto& [value, expected] : rows)
    for (const fake_processor& on : {avx512_processor(), amd(sse2_processor())})
      expect_printed({{on, {{"TEV_DEBUG_CPU_TYPE", value}, {"TEV_CBWR", "COMPATIBLE"}}, expected}}, print_types);
  for (const char* no_number : {"x", "", " ", "000000000000000000000000000005"})
    expect_printed({{avx512_processor(), {{"TEV_DEBUG_CPU_TYPE", no_number}}, "7 7"}}, print_types);
}

// A process without a tier ends, unless the program's exit handler returns. It may ask what needs the lock.
void expect_end(const fake_processor& on, const environment& variables, int32_t (*ask)(), const std::string& message,
                const std::string& code) {
  expect_printed({{on, variables, message + "status 1"}}, ask);
  expect_printed({{on, variables, message + "exit 1, lock free 1\nreturns " + code + ", decided -1"}}, [&] {
    tev_serv_set_exit_handler([](int32_t status, void*) {
      printf("exit %d, lock free %d\n", status, tev_serv_trylock(&TEV_Detect_Cpu_Global_Lock));
      tev_serv_unlock(&TEV_Detect_Cpu_Global_Lock);
      return 0;
    });
    printf("returns %d, ", ask());
    printf("decided %d", tev_serv_get_cpu_type(0));
  });
}

TEST(ForcedType, WithoutTierEndsTheProcess) {
  for (const char* code : {"9", "-1", "-7", "2147483647"})
    expect_end(avx_processor(), {{"TEV_DEBUG_CPU_TYPE", code}}, tev_serv_cpu_detect,
               std::string("Zarik TEV ERROR: CPU ") + code + " is not supported.\n", code);
}

TEST(TooOldProcessor, EndsTheProcess) {
  const fake_processor old = changed(sse2_processor(), [](auto& p) { p.leaf1_edx ^= 1u << 26; });
  for (const char* mode : {"", "AVX"})  // a branch is compared with the automatic one, with the lock held
    for (int32_t (*ask)() : {+[] { return tev_serv_cpu_detect(); }, +[] { return tev_serv_get_cpu_type(1); }})
      expect_end(old, {{"TEV_CBWR", mode}}, ask,
                 "Zarik TEV FATAL ERROR: This system does not meet the minimum requirements for use of the Zarik(R) "
                 "Tevalon.\nThe processor must support the Zarik(R) Streaming SIMD 2 Extensions (Zarik(R) SSE2) "
                 "instructions.\n",
                 "-1");
}

TEST(Detection, KnowsRegistersThatAreComputedInHalves) {
  const auto with_widths = [](fake_processor p, uint32_t widths) { return p.widths = widths, p; };
  const environment reproducible = {{"TEV_CBWR", "AVX2"}};
  expect_printed({{with_widths(avx512_processor(), 0x6), {}, "1"},
                  {with_widths(avx512_processor(), 0x6), reproducible, "0"},
                  {with_widths(avx512_processor(), 0xE), {}, "0"},
                  {avx512_processor(), {}, "0"},
                  {with_widths(avx2_processor(), 0x6), {}, "0"}},
                 [] { printf("%d", tev_serv_cpuhalves512()); });
}

// A vouched processor is what its features make it; what only its real maker's processors have stays.
TEST(Vouching, MakesTheFeaturesDecide) {
  const auto foreign = [](fake_processor p) {
    p.ext_ecx |= 1u << 16;  // FMA4
    p.caches.clear();
    return amd(p);
  };
  expect_printed({{foreign(avx512_processor()), {}, "00 11 type 7 branch 12 mode 1 avx512 traits 11 caches -1 0 -8"},
                  {foreign(sse2_processor()), {}, "00 11 type 0 branch 4 mode 1 def traits 00 caches -1 0 -8"},
                  {foreign(avx512_processor()),
                   {{"TEV_ENABLE_INSTRUCTIONS", "AVX"}},
                   "00 11 type 4 branch 9 mode 1 avx traits 11 caches -1 0 -8"},
                  {foreign(avx512_processor()),
                   {{"TEV_CBWR", "AVX2"}},
                   "00 11 type 7 branch 12 mode 10 avx2 traits 00 caches 32768 0 -8"}},
                 [] {
                   printf("%d%d ", tev_serv_trust_features(1), tev_serv_trust_features(1));
                   printf("%d%d", tev_serv_zarik_cpu_true(), tev_serv_zarik_cpu());
                   printf(" type %d branch %d", tev_serv_get_cpu_type(1), tev_serv_cbwr_get_auto_branch());
                   printf(" mode %d %s", tev_serv_cbwr_get(1), tier_name(tev_serv_cpu_detect()));
                   printf(" traits %d%d caches %ld", tev_serv_cpuisneedle(), tev_serv_cpuisbulldozer(),
                          tev_serv_get_cache_size(1));
                   printf(" %d %d", tev_serv_trust_features(1), tev_serv_trust_features(0));  // again, back
                 });
}

TEST(Vouching, ComesTooLateForWhatIsDecided) {
  void (*const decisions[])() = {[] { tev_serv_cpu_detect(); },
                                 [] { tev_serv_zarik_cpu_true(); },
                                 [] { tev_serv_get_cpu_type(1); },
                                 [] { tev_serv_cbwr_get(1); },
                                 [] { tev_serv_cbwr_set(TEV_CBWR_OFF); },
                                 [] { tev_serv_enable_instructions(TEV_ENABLE_AVX); },
                                 [] { tev_serv_get_ncpus(); },
                                 [] { tev_serv_get_max_threads(); },
                                 [] { tev_serv_get_cache_size(1); }};
  for (const auto& decide : decisions)
    EXPECT_EQ(printed_on(amd(avx2_processor()), {},
                         [decide] {
                           printf("%d ", tev_serv_trust_features(0));
                           decide();
                           printf("%d %d ", tev_serv_trust_features(1), tev_serv_trust_features(0));
                           printf("%d %d", tev_serv_zarik_cpu_true(), tev_serv_cpu_detect());
                         }),
              "0 -8 0 0 0")
        << &decide - decisions;
}

// One thread vouches while others ask: it was first or came too late, and everybody has one opinion.
TEST(Vouching, RacedByQuestionsIsAllOrNothing) {
  const auto race = [] {
    int32_t results[4];
    at_once(4, [&](int t) { results[t] = t == 0 ? tev_serv_trust_features(1) : tev_serv_zarik_cpu_true(); });
    for (int t = 1; t < 4; ++t) EXPECT_EQ(results[t], results[0] == 0);
  };
  for (int round = 0; round < 20; ++round) EXPECT_EQ(printed_on(amd(avx2_processor()), {}, race), "");
}

// Every question first asked by several threads at once, each beginning with another one: all see the same answers.
TEST(Detection, RacedByThreadsGivesOneAnswer) {
  const auto race = [] {
    int32_t (*const questions[])() = {
        tev_serv_cpu_detect,        [] { return tev_serv_get_cpu_type(1); },
        tev_serv_is_avx512_enabled, [] { return tev_serv_cbwr_get(1); },
        tev_serv_cpuisneedle,       [] { return static_cast<int32_t>(tev_serv_get_cache_size(0)); },
        tev_serv_cpuisvesta,        tev_serv_get_microarchitecture,
    };
    constexpr int kThreads = 16, kQuestions = std::size(questions);
    std::string answers[kThreads];
    at_once(kThreads, [&](int t) {
      int32_t mine[kQuestions];
      for (int q = 0; q < kQuestions; ++q) mine[(q + t) % kQuestions] = questions[(q + t) % kQuestions]();
      for (int32_t answer : mine) answers[t] += std::to_string(answer) + " ";
    });
    for (const std::string& answer : std::set<std::string>(answers, answers + kThreads)) printf("%s\n", answer.c_str());
  };
  const environment variables = {{"TEV_ENABLE_INSTRUCTIONS", "AVX"}, {"TEV_CBWR", "AUTO"}};
  for (int round = 0; round < 20; ++round)
    EXPECT_EQ(printed_on(avx512_processor(), variables, race), "4 4 0 2 1 4194304 0 128 \n");
}

}  // namespace
