// SPDX-License-Identifier: BSD-3-Clause
// A sink, its host or both are killed at a random moment between the host's first instruction and some hundred
// products later. A host that lives is told how its sink ended, at once and in every call; a sink without a host ends;
// afterwards there is no process, descriptor, mapping or shared-memory name.
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include "tests/chaos/offload.h"
#include "tests/support/effort.h"
#include "tests/support/left_behind.h"

namespace tev::test {
namespace {

using steady = std::chrono::steady_clock;

// ---- The host -------------------------------------------------------------------------------------------------------

bool tells_the_kill(const report& r, int signal) {
  const std::string words = "was killed by signal " + std::to_string(signal) + " ";
  return r.code == VRO_ENDED && std::strstr(r.words, words.c_str());
}

// Two threads multiply until the sink has gone. Returns what is wrong, or "".
std::string multiply_until_the_end(int signal, uint64_t seed) {
  vro_process* process = start_sink();
  if (!process) {
    const report r = failed_with(VRO_ENDED);
    return tells_the_kill(r, signal) ? "" : r.words;
  }
  report last[2];
  const auto work = [&](unsigned index) {
    std::mt19937_64 random(seed + index);
    do last[index] = multiply(process, static_cast<int64_t>(1 + random() % 200));
    while (last[index].code == VRO_OK);
  };
  std::thread second(work, 1);
  work(0);
  second.join();
  const report after = multiply(process, 1);
  const int end = vro_process_shutdown(process, kWaitMs);
  for (const report& r : {last[0], last[1], after})
    if (!tells_the_kill(r, signal)) return r.words;
  return end == VRO_ENDED ? "" : "the shutdown does not tell of the end";
}

[[noreturn]] void be_host(int signal, uint64_t seed) {
  const rlimit no_core = {0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  const auto descriptors = open_descriptors();
  std::string wrong = multiply_until_the_end(signal, seed);
  if (wrong.empty() && open_descriptors() != descriptors) wrong = "a descriptor is left";
  if (wrong.empty() && shared_mappings() != 0) wrong = "a mapping is left";
  if (!wrong.empty()) std::fprintf(stderr, "host %d: %s\n", getpid(), wrong.c_str());
  _exit(wrong.empty() ? 0 : 1);
}

// ---- The killer -----------------------------------------------------------------------------------------------------

constexpr double kEndSeconds = 20;  // bounds what hangs

// Ends after its time at the latest: a number that is no longer needed may become somebody else's.
template <class Condition>
bool comes_true(const Condition& condition) {
  const auto deadline = steady::now() + std::chrono::duration<double>(kEndSeconds);
  while (!condition())
    if (steady::now() > deadline) return false;
  return true;
}

struct ended {
  std::set<pid_t> processes;  // all that ended
  int host_status;
};

// Until no child is left; orphans become our children.
ended reap_everything(pid_t host) {
  ended all = {{}, -1};
  const bool gone = comes_true([&] {
    int status = 0;
    const pid_t pid = waitpid(-1, &status, WNOHANG);
    if (pid > 0) all.processes.insert(pid);
    if (pid == host) all.host_status = status;
    if (pid == 0) usleep(500);
    return pid < 0 && errno == ECHILD;
  });
  EXPECT_TRUE(gone) << "a process does not end";
  for (const pid_t left : children_of(getpid())) kill(left, SIGKILL), waitpid(left, nullptr, 0);
  return all;
}

// What two processes left that died together goes when the next sink starts.
void start_and_end_a_sink() {
  const pid_t host = fork();
  if (host == 0) _exit(vro_process_shutdown(start_sink(), kWaitMs));
  EXPECT_EQ(reap_everything(host).host_status, 0);
}

enum victim { kSink, kHost, kSinkThenHost, kHostThenSink };
constexpr const char* kVictims[] = {"sink", "host", "sink, then host", "host, then sink"};

void kill_once(victim who, int signal, std::chrono::microseconds moment, uint64_t seed) {
  const auto begin = steady::now();
  const pid_t host = fork();
  if (host == 0) be_host(signal, seed);
  std::this_thread::sleep_until(begin + moment);
  std::set<pid_t> sinks = children_of(host);
  if (who == kSink) EXPECT_TRUE(comes_true([&] { return !(sinks = children_of(host)).empty(); }));
  if (who == kHostThenSink) kill(host, signal);
  if (who != kHost)
    for (const pid_t sink : sinks) kill(sink, signal);
  if (who == kHost || who == kSinkThenHost) kill(host, signal);

  const ended all = reap_everything(host);
  if (who == kSink) {
    EXPECT_TRUE(WIFEXITED(all.host_status) && WEXITSTATUS(all.host_status) == 0) << "the host's status";
  } else if (!shared_names_of(all.processes).empty()) {
    start_and_end_a_sink();
  }
  EXPECT_EQ(shared_names_of(all.processes), std::set<std::string>());
}

TEST(Kills, LeaveNothingAndAreTold) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  std::mt19937_64 random(test_seed());
  const int rounds = long_run() ? 1000 : 30;
  for (int round = 0; round < rounds; ++round) {
    const auto who = static_cast<victim>(random() % std::size(kVictims));
    const int signal = random() % 4 == 0 ? SIGTERM : SIGKILL;
    const int64_t most[] = {5'000, 40'000, 300'000};  // microseconds
    const std::chrono::microseconds moment(random() % most[random() % std::size(most)]);
    kill_once(who, signal, moment, random());
    ASSERT_FALSE(testing::Test::HasFailure()) << "round " << round << ": signal " << signal << " to " << kVictims[who]
                                              << " after " << moment.count() << " us, " << repeat_with(test_seed());
  }
}

}  // namespace
}  // namespace tev::test
