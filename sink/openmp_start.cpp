// SPDX-License-Identifier: BSD-3-Clause
#include "sink/openmp_start.h"

#include <fcntl.h>
#include <omp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "tev/front_end.h"

extern "C" {  // some versions of this header do not say so themselves
#include <sys/pidfd.h>
}

namespace {

constexpr int kTrialMs = 2000;  // a start takes a hundredth; with OMP_NUM_THREADS=x it may make any number of threads
constexpr std::string_view kPrefixes[] = {"OMP_", "KMP_", "GOMP_", "LIBOMP_"};
constexpr std::string_view kBinding = "OMP_PROC_BIND=";

// A function of its own: the compiler calls the runtime at the beginning of any that has a parallel region.
__attribute__((noinline)) void form_teams() {
#pragma omp parallel
  { (void)omp_get_num_threads(); }
#pragma omp parallel num_threads(2)
  { (void)omp_get_num_threads(); }
}

// A trial whose sink is killed takes its name along.
[[noreturn]] void end_trial(int) {
  tev_serv_remove_openmp_name(getpid());
  _exit(1);
}

[[noreturn]] void start_in_silence(pid_t sink) {
  std::signal(SIGTERM, end_trial);
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != sink) _exit(1);
  prctl(PR_SET_DUMPABLE, 0);  // no core files of a trial
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(nowhere, STDOUT_FILENO);
  dup2(nowhere, STDERR_FILENO);
  form_teams();
  tev_serv_remove_openmp_name(getpid());
  _exit(0);
}

// Whether the runtime starts in the present environment, and soon: a child tries.
bool runtime_starts() {
  const pid_t sink = getpid(), child = fork();
  if (child == 0) start_in_silence(sink);
  if (child < 0) return true;  // nothing learnt
  pollfd end = {pidfd_open(child, 0), POLLIN, 0};
  if (poll(&end, 1, kTrialMs) == 0) kill(child, SIGKILL);
  close(end.fd);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  tev_serv_remove_openmp_name(child);
  return status == 0;
}

std::vector<std::string> openmp_variables() {
  std::vector<std::string> found;
  for (char** entry = environ; *entry; ++entry) {
    const std::string_view variable = *entry;
    const auto opens_it = [&](std::string_view prefix) { return variable.starts_with(prefix); };
    if (std::any_of(std::begin(kPrefixes), std::end(kPrefixes), opens_it) && variable.find('=') != variable.npos)
      found.emplace_back(variable);
  }
  return found;
}

}  // namespace

void clean_openmp_environment() {
  for (const char* starter : {"KMP_INITIAL_THREAD_BIND", "KMP_IGNORE_MPPBEG"}) unsetenv(starter);
  const std::vector<std::string> variables = openmp_variables();
  if (variables.empty() || runtime_starts()) return;
  const auto name_of = [](const std::string& variable) { return variable.substr(0, variable.find('=')); };
  for (const std::string& variable : variables) unsetenv(name_of(variable).c_str());
  for (const std::string& variable : variables) {
    const std::string name = name_of(variable), value = variable.substr(name.size() + 1);
    setenv(name.c_str(), value.c_str(), 1);
    if (runtime_starts()) continue;
    unsetenv(name.c_str());
    std::fprintf(stderr, "%s: dropped %s='%s', with which the OpenMP runtime does not start\n",
                 program_invocation_short_name, name.c_str(), value.c_str());
  }
}

void bind_from_the_start(const char* settings) {
  std::string_view rest = settings;
  while (!rest.empty()) {
    const std::string_view setting = rest.substr(0, rest.find('|'));
    if (setting.starts_with(kBinding)) setenv("OMP_PROC_BIND", std::string(setting.substr(kBinding.size())).c_str(), 1);
    rest.remove_prefix(std::min(setting.size() + 1, rest.size()));
  }
}

void remove_openmp_name() { tev_serv_remove_openmp_name(getpid()); }
