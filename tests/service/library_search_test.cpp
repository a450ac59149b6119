// SPDX-License-Identifier: BSD-3-Clause
// Where optional libraries are found, with a stand-in for the tracing library in TEV_STAND_INS and the offload runtime
// in TEV_RUNTIME; and the start of a process in a directory that is gone. Each case is a process of its own.
#include "service/library_search.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/in_child.h"
#include "tev/service.h"

namespace {

using tev::test::child_result;
using tev::test::environment;
using tev::test::in_child;

constexpr char kHere[] = TEV_STAND_INS "/";
constexpr char kNowhere[] = TEV_STAND_INS "/nowhere/";

struct search {
  const char* rule;
  const char *loader_directory, *executable_directory;
  environment variables;
  enum { kAlone, kWithRuntime, kLoadedByProgram } process;
  bool found;
};

// Asks, makes the library easy to find, takes a lock and asks again.
int ask_for_tracing(const search& s) {
  snprintf(DispLibPath, sizeof DispLibPath, "%s", s.loader_directory);
  snprintf(EXEPath, sizeof EXEPath, "%s", s.executable_directory);
  if (s.process == search::kWithRuntime && !dlopen(TEV_RUNTIME, RTLD_LAZY | RTLD_GLOBAL)) return 1;
  if (s.process == search::kLoadedByProgram && !dlopen(TEV_STAND_INS "/libtracekit.so", RTLD_LAZY)) return 1;
  printf("%d\n", tev_serv_load_vigil());
  if (const char* left_behind = dlerror()) printf("%s\n", left_behind);
  memcpy(DispLibPath, kHere, sizeof kHere);
  int32_t word = 0;
  tev_serv_lock(&word);
  const bool global = dlsym(RTLD_DEFAULT, "__trk_suppress_mark_range") != nullptr;
  printf("%d %s\n", tev_serv_load_vigil(), global ? "global" : "absent");
  return 0;
}

TEST(Tracing, IsFoundInThisOrderAndDecidedOnce) {
  const environment zel = {{"ZEL_LD_LIBRARY_PATH", TEV_STAND_INS}};
  const environment ld = {{"LD_LIBRARY_PATH", TEV_STAND_INS}};
  const environment both = {{"ZEL_LD_LIBRARY_PATH", kNowhere}, {"LD_LIBRARY_PATH", TEV_STAND_INS}};
  const search cases[] = {
      {"absent", "", "", {}, search::kAlone, false},
      {"beside the loader", kHere, kNowhere, {}, search::kAlone, true},
      {"beside the executable", "", kHere, {}, search::kAlone, true},
      {"directories without it", kNowhere, kNowhere, {}, search::kAlone, false},
      {"paths need the runtime", "", "", zel, search::kAlone, false},
      {"the runtime needs a path", "", "", {}, search::kWithRuntime, false},
      {"runtime, own path", kNowhere, "", zel, search::kWithRuntime, true},
      {"runtime, system's path", "", "", ld, search::kWithRuntime, true},
      {"runtime, second path", "", "", both, search::kWithRuntime, true},
  };
  const std::string found = "loading\n1\nmark 1 255 null 0\n1 global\n";
  for (const search& s : cases) {
    const child_result seen = in_child(s.variables, [&s] { return ask_for_tracing(s); });
    EXPECT_EQ(seen.out, s.found ? found : "0\n0 absent\n") << s.rule;
    EXPECT_EQ(seen.status, 0) << s.rule << seen.err;
  }
}

// The lock that the library takes while the program loads it is the process's first: it finds the library by name.
TEST(Tracing, IsFoundByNameWhenTheProgramHasLoadedIt) {
  const search loaded = {"", kNowhere, kNowhere, {}, search::kLoadedByProgram, true};
  const child_result seen = in_child({}, [&loaded] { return ask_for_tracing(loaded); });
  EXPECT_EQ(seen.out, "mark 1 255 null 0\nloading\n1\nmark 1 255 null 0\n1 global\n");
}

TEST(Tracing, LibraryWithoutTheFunctionCountsAsAbsent) {
  char folder[] = "/tmp/tev_search_XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  const std::string directory = std::string(folder) + "/";
  std::filesystem::create_symlink(TEV_RUNTIME, directory + "libtracekit.so");
  const search hollow = {"", directory.c_str(), "", {}, search::kAlone, false};
  EXPECT_EQ(in_child({}, [&hollow] { return ask_for_tracing(hollow); }).out, "0\n0 absent\n");
  std::filesystem::remove_all(folder);
}

TEST(StartUp, NeedsItsWorkingDirectory) {
  EXPECT_EQ(DispLibCWD, std::filesystem::current_path().string() + "/");
  const std::string program = std::filesystem::read_symlink("/proc/self/exe");
  const child_result seen = in_child({}, [&program] {
    char folder[] = "/tmp/tev_start_XXXXXX";
    if (!mkdtemp(folder) || chdir(folder) != 0 || rmdir(folder) != 0) return 1;
    execl(program.c_str(), "some/program", "--gtest_list_tests", nullptr);
    return 1;
  });
  EXPECT_EQ(seen.status, 2);
  EXPECT_EQ(seen.err, "Zarik TEV FATAL ERROR: Cannot load some/program.\n");
  EXPECT_EQ(seen.out, "");
}

}  // namespace
