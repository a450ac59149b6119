// SPDX-License-Identifier: BSD-3-Clause
// What a host's threading settings, the environment and the terminal do to a real sink, seen from outside: the system
// tells where each of its threads may run.
#include <pty.h>
#include <sched.h>
#include <sys/wait.h>
#include <termios.h>

#include <filesystem>
#include <fstream>

#include "tests/support/in_child.h"
#include "tests/support/sink.h"
#include "tev/request.h"

namespace {

using processors = std::set<int>;
using namespace tev::test;

processors processors_of(pid_t thread) {
  cpu_set_t mask;
  CPU_ZERO(&mask);
  EXPECT_EQ(sched_getaffinity(thread, sizeof(mask), &mask), 0);
  processors found;
  for (int i = 0; i < CPU_SETSIZE; ++i)
    if (CPU_ISSET(i, &mask)) found.insert(i);
  return found;
}

// The cores that we may run on, as the processors of each.
std::set<processors> cores() {
  std::map<std::string, processors> by_siblings;
  for (const int p : processors_of(0)) {
    std::ifstream file("/sys/devices/system/cpu/cpu" + std::to_string(p) + "/topology/thread_siblings_list");
    std::string siblings;
    file >> siblings;
    by_siblings[siblings].insert(p);
  }
  std::set<processors> result;
  for (const auto& [siblings, core] : by_siblings) result.insert(core);
  return result;
}

std::set<pid_t> threads_of(vro_process* sink) {
  std::set<pid_t> threads;
  const std::string folder = "/proc/" + std::to_string(vro_process_id(sink)) + "/task";
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    threads.insert(std::stoi(entry.path().filename()));
  return threads;
}

bool served(vro_completion* request) {
  const int code = vro_completion_wait(request, 20000);
  EXPECT_EQ(code, VRO_OK) << vro_last_error();
  return code == VRO_OK;
}

vro_completion* configure(vro_process* sink, const char* settings, int32_t threads) {
  const auto request = std::make_unique<tev_card_request>();
  request->invoke.code = TEV_REQUEST_INVOKE;
  std::strcpy(request->invoke.worker, "configure_device_threading_worker");
  tev_threading_record record = {{}, threads};
  std::strcpy(record.settings, settings);
  std::memcpy(request->invoke.record, &record, sizeof(record));
  return send(sink, request.get());
}

std::string report(vro_process* sink) {
  constexpr size_t kBytes = 4096;
  const auto request = std::make_unique<tev_card_request>();
  request->call = {TEV_REQUEST_CALL, "tev_sink_report"};
  vro_completion* done = send(sink, request.get(), {}, kBytes);
  return served(done) ? static_cast<const char*>(vro_completion_result(done)) : "";
}

// A host's settings, in a sink that inherits an environment. `places` are those of which each thread of the team gets
// its own, or all threads the same one of `shared`.
struct settings_case {
  environment inherited;
  const char* settings;
  std::set<processors> places, shared;
};

// A sink on its way to a team of two: the pipeline's thread, which is the youngest before, and the one to be made.
struct configured_sink {
  explicit configured_sink(const char* settings)
      : sink(start_sink()), before(threads_of(sink)), done(configure(sink, settings, 2)) {}

  std::vector<processors> places_of_team() const {
    std::vector<processors> places;
    if (!served(done)) return places;
    for (const pid_t thread : threads_of(sink))
      if (!before.contains(thread) || thread == *before.rbegin()) places.push_back(processors_of(thread));
    return places;
  }

  vro_process* sink;
  std::set<pid_t> before;
  vro_completion* done;
};

// How many cases went otherwise.
int try_settings(const std::vector<settings_case>& cases) {
  std::vector<configured_sink> sinks;
  for (const settings_case& c : cases) {
    set_environment(c.inherited);
    sinks.emplace_back(c.settings);
  }
  int wrong = 0;
  for (size_t i = 0; i < cases.size(); ++i) {
    const std::vector<processors> found = sinks[i].places_of_team();
    const bool apart = found.size() == 2 && found[0] != found[1];
    const auto& allowed = apart ? cases[i].places : cases[i].shared;
    if (found.size() == 2 && allowed.contains(found[0]) && allowed.contains(found[1])) continue;
    ++wrong;
    std::printf("case %zu, '%s': %zu threads, %s\n", i, cases[i].settings, found.size(), apart ? "apart" : "together");
  }
  for (const configured_sink& s : sinks) EXPECT_EQ(vro_process_shutdown(s.sink, 10000), VRO_OK) << vro_last_error();
  return wrong;
}

TEST(Settings, OfTheHostDecideWhereTheTeamRuns) {
  const processors all = processors_of(0);
  const std::set<processors> core = cores();
  if (core.size() < 2) GTEST_SKIP() << "one core: all settings look alike";
  std::set<processors> single;
  for (const int p : all) single.insert({p});
  const std::vector<settings_case> cases = {
      {{}, "", {}, {all}},
      {{}, "KMP_AFFINITY=granularity=fine,compact", single, {}},
      {{}, "OMP_PROC_BIND=true", core, {}},
      {{}, "OMP_PROC_BIND=true|OMP_PLACES=cores", core, {}},
      {{}, "OMP_PLACES=cores", core, {}},
      {{}, "KMP_HW_SUBSET=1c", {}, core},
      {{{"OMP_PROC_BIND", "false"}}, "OMP_PROC_BIND=true", core, {}},
      {{{"KMP_AFFINITY", "compact"}}, "", {}, {all}},
      {{{"KMP_AFFINITY", "compact"}, {"KMP_INITIAL_THREAD_BIND", "1"}, {"KMP_IGNORE_MPPBEG", "0"}}, "", {}, {all}},
  };
  const auto result = in_child({}, [&] { return try_settings(cases); });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(result.err, "");
}

TEST(Settings, PinningBindsTheTeam) {
  if (!processors_of(0).contains(1)) GTEST_SKIP() << "the first processor that a request can name is not ours";
  vro_process* sink = start_sink();
  const pid_t pipeline = *threads_of(sink).rbegin();
  const auto request = std::make_unique<tev_card_request>();
  request->invoke.code = TEV_REQUEST_INVOKE;
  std::strcpy(request->invoke.worker, "ueaa_prv_query_device_time_worker");
  request->invoke.pin = request->invoke.thread_count = request->invoke.processor_count = 1;
  request->invoke.processor_mask[0] = 1;
  EXPECT_TRUE(served(send(sink, request.get())));
  EXPECT_EQ(processors_of(pipeline), processors{1});
  EXPECT_EQ(vro_process_shutdown(sink, 10000), VRO_OK);
}

TEST(Settings, SinkSurvivesAnEnvironmentThatEndsTheRuntime) {
  const environment deadly[] = {
      {{"OMP_NUM_THREADS", ""}, {"OMP_STACKSIZE", "99999999999999999999"}, {"KMP_CPUINFO_FILE", "/no/such/file"}},
      {{"OMP_NUM_THREADS", "2147483647"}}};
  for (environment variables : deadly) {
    std::string dropped;
    for (const auto& [name, value] : variables)
      dropped +=
          std::string("tev_sink: dropped ") + name + "='" + value + "', with which the OpenMP runtime does not start\n";
    variables.emplace_back("KMP_HW_SUBSET", "1c,1t");  // harms nobody
    const auto run = [] {
      vro_process* sink = start_sink();
      const bool serves = sink && served(configure(sink, "", 0));
      std::printf("%s", serves ? report(sink).c_str() : "");
      return serves && vro_process_shutdown(sink, 10000) == VRO_OK ? 0 : 1;
    };
    const auto result = in_child(variables, run);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, dropped);
    EXPECT_NE(result.out.find("\nprocessors=1\n"), std::string::npos) << result.out;
  }
}

TEST(Settings, TerminalDoesNotStopASinkThatWrites) {
  int terminal = -1;
  const pid_t host = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (host == 0) {
    termios mode;
    tcgetattr(STDIN_FILENO, &mode);
    mode.c_lflag |= TOSTOP;
    tcsetattr(STDIN_FILENO, TCSANOW, &mode);
    setenv("OMP_NUM_THREADS", "", 1);  // to which the sink has something to say
    _exit(start_sink() ? 0 : 1);
  }
  std::string said;
  char bytes[256];
  for (ssize_t got; (got = read(terminal, bytes, sizeof(bytes))) > 0;) said.append(bytes, static_cast<size_t>(got));
  int status = -1;
  waitpid(host, &status, 0);
  close(terminal);
  EXPECT_EQ(status, 0) << said;
  EXPECT_NE(said.find("dropped OMP_NUM_THREADS=''"), std::string::npos) << said;
}

}  // namespace
