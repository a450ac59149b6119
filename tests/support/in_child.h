// SPDX-License-Identifier: BSD-3-Clause
// Runs a piece of a test in a fresh child process with its own environment, for everything that a process decides once.
// Fork before anything was decided: call it from the test's own thread, and never use the service layer in the parent.
#pragma once

#include <sys/wait.h>

#include "tests/support/prelude.h"

namespace tev::test {

using environment = std::vector<std::pair<const char*, const char*>>;

struct child_result {
  int status;       // exit status, or 1000 + signal
  std::string out;  // standard output
  std::string err;  // standard error
};

// The parent's settings that the library reads do not reach the child; what sanitizers need does.
inline void set_environment(const environment& variables) {
  std::vector<std::string> inherited;
  for (char** entry = environ; *entry; ++entry) inherited.emplace_back(*entry, std::strcspn(*entry, "="));
  for (const std::string& name : inherited)
    if (!name.ends_with("SAN_OPTIONS") && name != "OMP_TOOL_LIBRARIES" && name != "PATH" && name != "LD_PRELOAD")
      unsetenv(name.c_str());
  for (const auto& [name, value] : variables) setenv(name, value, 1);
}

inline std::string read_all(FILE* file) {
  std::string text;
  std::rewind(file);
  for (int c; (c = std::fgetc(file)) != EOF;) text += static_cast<char>(c);
  return text;
}

// `body` prints what the parent shall see and returns the exit status. A child that hangs is ended after 60 seconds.
template <class Body>
child_result in_child(const environment& variables, Body&& body) {
  FILE* out = std::tmpfile();
  FILE* err = std::tmpfile();
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    dup2(fileno(out), STDOUT_FILENO);
    dup2(fileno(err), STDERR_FILENO);
    set_environment(variables);
    alarm(60);
    const int status = body();
    std::fflush(nullptr);
    _exit(status);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  child_result result{WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status), read_all(out), read_all(err)};
  std::fclose(out);
  std::fclose(err);
  return result;
}

// Everything that `body` prints in a fresh process, with the status when it is not 0. A failed expectation in there
// prints, too: a test that expects "" has its expectations in the child.
template <class Body>
std::string printed(const environment& variables, Body&& body) {
  const bool failed_before = testing::Test::HasFailure();
  const child_result result = in_child(variables, [&] {
    body();
    return testing::Test::HasFailure() && !failed_before ? 1 : 0;
  });
  return result.out + result.err + (result.status == 0 ? "" : "status " + std::to_string(result.status));
}

// A test whose body runs in a fresh process, with the environment's variables behind the name: {"NAME", "value"} ...
#define TEST_IN_CHILD(topic, rule, ...)                                                                      \
  void topic##rule();                                                                                        \
  TEST(topic, rule) { EXPECT_EQ(tev::test::printed(tev::test::environment{__VA_ARGS__}, topic##rule), ""); } \
  void topic##rule()

}  // namespace tev::test
