// SPDX-License-Identifier: BSD-3-Clause
// Where optional libraries are found, with a stand-in for the tracing library in TEV_STAND_INS and the offload runtime
// in TEV_RUNTIME; and the start of a process in a directory that is gone. Each case is a process of its own.
#include "service/library_search.h"

#include <dlfcn.h>

#include <filesystem>

#include "tests/support/in_child.h"
#include "tests/support/kernel_folder.h"
#include "tev/service.h"

namespace {

using namespace tev::test;

constexpr char kHere[] = TEV_STAND_INS "/";
constexpr char kNowhere[] = TEV_STAND_INS "/nowhere/";
constexpr const char* kRuntime = TEV_RUNTIME;

struct search {
  const char *loader_directory, *executable_directory;
  environment variables;
  const char* loaded;  // by the program
  bool found;
};

// Asks, makes the library easy to find, takes a lock and asks again.
std::string ask_for_tracing(const search& s) {
  return printed(s.variables, [&s] {
    snprintf(DispLibPath, sizeof DispLibPath, "%s", s.loader_directory);
    snprintf(EXEPath, sizeof EXEPath, "%s", s.executable_directory);
    if (s.loaded && !dlopen(s.loaded, RTLD_LAZY | (s.loaded == kRuntime ? RTLD_GLOBAL : 0))) abort();
    printf("%d\n", tev_serv_load_vigil());
    if (const char* left_behind = dlerror()) printf("%s\n", left_behind);
    memcpy(DispLibPath, kHere, sizeof kHere);
    int32_t word = 0;
    tev_serv_lock(&word);
    const bool global = dlsym(RTLD_DEFAULT, "__trk_suppress_mark_range") != nullptr;
    printf("%d %s\n", tev_serv_load_vigil(), global ? "global" : "absent");
  });
}

TEST(Tracing, IsFoundInThisOrderAndDecidedOnce) {
  const kernel_folder folder;
  const std::string hollow = folder.path("");
  std::filesystem::create_directory(hollow);
  std::filesystem::create_symlink(TEV_RUNTIME, hollow + "libtracekit.so");  // without the function
  const environment zel = {{"ZEL_LD_LIBRARY_PATH", TEV_STAND_INS}};
  const environment ld = {{"LD_LIBRARY_PATH", TEV_STAND_INS}};
  const environment both = {{"ZEL_LD_LIBRARY_PATH", kNowhere}, {"LD_LIBRARY_PATH", TEV_STAND_INS}};
  const search rows[] = {{"", "", {}, nullptr, false},
                         {kHere, kNowhere, {}, nullptr, true},
                         {"", kHere, {}, nullptr, true},
                         {kNowhere, kNowhere, {}, nullptr, false},
                         {hollow.c_str(), "", {}, nullptr, false},
                         {"", "", zel, nullptr, false},  // paths need the runtime,
                         {"", "", {}, kRuntime, false},  // and the runtime needs a path
                         {kNowhere, "", zel, kRuntime, true},
                         {"", "", ld, kRuntime, true},
                         {"", "", both, kRuntime, true}};
  for (const search& row : rows)
    EXPECT_EQ(ask_for_tracing(row), row.found ? "loading\n1\nmark 1 255 null 0\n1 global\n" : "0\n0 absent\n")
        << "row " << &row - rows;
}

// The lock that the library takes while the program loads it is the process's first: it finds the library by name.
TEST(Tracing, IsFoundByNameWhenTheProgramHasLoadedIt) {
  EXPECT_EQ(ask_for_tracing({kNowhere, kNowhere, {}, TEV_STAND_INS "/libtracekit.so", true}),
            "mark 1 255 null 0\nloading\n1\nmark 1 255 null 0\n1 global\n");
}

TEST(StartUp, NeedsItsWorkingDirectory) {
  EXPECT_EQ(DispLibCWD, std::filesystem::current_path().string() + "/");
  const std::string program = std::filesystem::read_symlink("/proc/self/exe");
  const auto seen = in_child({}, [&program] {
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
