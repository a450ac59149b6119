// SPDX-License-Identifier: BSD-3-Clause
// The host library in programs that do as they like with their children, their signals and their forks.
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/time.h>

#include "tests/loopback/fixture.h"

namespace {

using namespace loopback_test;
using Guest = Loopback;

constexpr char kStatusTaken[] = "ended (nobody knows its status) while it ran 'test_exit'";

TEST_F(Guest, OfAProgramThatIgnoresItsChildren) {
  const auto old = signal(SIGCHLD, SIG_IGN);
  vro_process* p = start_sink();
  ASSERT_TRUE(p) << vro_last_error();
  const outcome o = call(p, "test_exit", bytes_of(3));
  EXPECT_EQ(VRO_ENDED, o.code);
  EXPECT_NE(std::string::npos, o.error.find(kStatusTaken)) << o.error;
  EXPECT_EQ(VRO_ENDED, vro_process_shutdown(p, kWaitMs));
  signal(SIGCHLD, old);
}

TEST_F(Guest, OfAProgramThatReapsEveryChild) {
  std::thread reaper([] { waitpid(-1, nullptr, 0); });
  usleep(20000);
  const outcome o = call(process, "test_exit", bytes_of(3));
  reaper.join();
  EXPECT_EQ(VRO_ENDED, o.code);
  EXPECT_TRUE(o.error.find(kStatusTaken) != std::string::npos ||
              o.error.find("exited with status 3") != std::string::npos)
      << o.error;
  shut_down_ended();
}

// Its end takes neither a handle nor the memory of a buffer.
TEST_F(Guest, ADetachedSinkServesUntilItIsKilled) {
  const vro_process_options options = {VRO_TEST_SINK, nullptr, nullptr, -1, 1};
  vro_process* p = nullptr;
  vro_buffer* buffer = nullptr;
  ASSERT_EQ(VRO_OK, vro_process_create(&options, &p)) << vro_last_error();
  EXPECT_EQ(0, value_of<int>(call(p, "test_signals", "", sizeof(int)).result));
  ASSERT_EQ(VRO_OK, vro_buffer_create(p, 100, &buffer));
  EXPECT_EQ(VRO_OK, vro_process_kill(p, "took too long"));
  EXPECT_EQ(VRO_OK, vro_process_kill(p, "is dead already"));
  const outcome o = call(p, "test_signals");
  EXPECT_EQ(VRO_ENDED, o.code);
  EXPECT_NE(std::string::npos, o.error.find("took too long and was killed")) << o.error;
  std::memset(vro_buffer_map(buffer), 1, 100);
  EXPECT_EQ(VRO_ENDED, vro_process_shutdown(p, kWaitMs));
}

TEST_F(Guest, SinkStartsWithDefaultSignalsWhateverTheHostDoes) {
  sigset_t blocked, old_mask;
  sigfillset(&blocked);
  pthread_sigmask(SIG_SETMASK, &blocked, &old_mask);
  const auto old_pipe = signal(SIGPIPE, SIG_IGN);
  const auto old_user = signal(SIGUSR1, [](int) {});
  vro_process* p = start_sink();
  signal(SIGPIPE, old_pipe);
  signal(SIGUSR1, old_user);
  pthread_sigmask(SIG_SETMASK, &old_mask, nullptr);
  ASSERT_TRUE(p) << vro_last_error();
  EXPECT_EQ(0, value_of<int>(call(p, "test_signals", "", sizeof(int)).result));
  EXPECT_EQ(VRO_OK, vro_process_shutdown(p, kWaitMs));
}

std::atomic<int> g_alarms;

TEST_F(Guest, InterruptedCallsAreRestarted) {
  struct sigaction action = {}, old;
  action.sa_handler = [](int) { ++g_alarms; };
  sigaction(SIGALRM, &action, &old);  // without SA_RESTART
  const itimerval storm = {{0, 300}, {0, 300}}, calm = {};
  setitimer(ITIMER_REAL, &storm, nullptr);
  const auto begin = steady::now();
  vro_completion* slow = start(process, "test_sleep", bytes_of(200));
  EXPECT_EQ(VRO_TIMEOUT, vro_completion_wait(slow, 50));
  EXPECT_GE(seconds_since(begin), 0.05);
  EXPECT_EQ(VRO_OK, finish(slow, 0, 0).code);
  const std::string misc(60000, 'x');
  for (int i = 0; i < 200; ++i) EXPECT_EQ(VRO_OK, call(process, "test_echo", misc, misc.size()).code);
  vro_process* p = start_sink();
  EXPECT_EQ(VRO_OK, vro_process_shutdown(p, kWaitMs)) << vro_last_error();
  setitimer(ITIMER_REAL, &calm, nullptr);
  sigaction(SIGALRM, &old, nullptr);
  EXPECT_GT(g_alarms, 100);
}

// Lowers a limit of this process for as long as it lives.
class lowered {
 public:
  lowered(__rlimit_resource_t what, rlim_t limit) : what_(what) {
    getrlimit(what, &old_);
    const rlimit low = {limit, old_.rlim_max};
    setrlimit(what, &low);
  }
  ~lowered() { setrlimit(what_, &old_); }

 private:
  __rlimit_resource_t what_;
  rlimit old_;
};

TEST_F(Guest, OfALimitOfFileSizesGetsAnErrorAndNoSignal) {
  const lowered limit(RLIMIT_FSIZE, 1 << 20);
  sigset_t excess, old, pending;
  sigemptyset(&excess);
  sigaddset(&excess, SIGXFSZ);
  for (const bool own_pending : {false, true}) {
    pthread_sigmask(SIG_BLOCK, own_pending ? &excess : nullptr, &old);
    if (own_pending) raise(SIGXFSZ);
    vro_buffer* b = nullptr;
    EXPECT_EQ(VRO_SYSTEM, vro_buffer_create(process, 2 << 20, &b));
    EXPECT_STREQ("cannot make a buffer of 2097152 bytes: File too large", vro_last_error());
    sigpending(&pending);
    EXPECT_EQ(own_pending, sigismember(&pending, SIGXFSZ) == 1);
    const timespec at_once = {0, 0};
    if (own_pending) sigtimedwait(&excess, nullptr, &at_once);
    pthread_sigmask(SIG_SETMASK, &old, &pending);
    EXPECT_EQ(own_pending, sigismember(&pending, SIGXFSZ) == 1) << "the mask is not as it was";
    EXPECT_EQ(VRO_OK, vro_buffer_create(process, 1 << 20, &b));
  }
}

// More descriptors under way than a user may have: a thread without privileges has to wait until the sink takes some.
TEST_F(Guest, OfABusySinkCanMakeManyBuffers) {
  const lowered limit(RLIMIT_NOFILE, 64);
  vro_completion* busy = start(process, "test_sleep", bytes_of(200));
  std::thread([this] {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct none[2] = {};
    ASSERT_EQ(0, syscall(SYS_capset, &header, none));  // of this thread alone
    vro_buffer* b = nullptr;
    for (int i = 0; i < 200; ++i) ASSERT_EQ(VRO_OK, vro_buffer_create(process, 1, &b)) << i << vro_last_error();
  }).join();
  EXPECT_EQ(VRO_OK, finish(busy, 0, 0).code);
}

// In a forked child every call fails at once; 0 when so.
int use_in_child(vro_process* p, vro_buffer* b, vro_completion* pending) {
  vro_buffer* other = nullptr;
  vro_completion* c = nullptr;
  if (vro_run(p, "test_count", &b, 1, nullptr, 0, 8, &c) != VRO_ENDED || c) return 1;
  if (!std::strstr(vro_last_error(), "is out of reach (this process was forked from its host)")) return 2;
  if (vro_completion_wait(pending, kWaitMs) != VRO_ENDED) return 3;
  if (vro_buffer_create(p, 1, &other) != VRO_ENDED) return 4;
  if (vro_buffer_destroy(b) != VRO_ENDED) return 5;
  if (vro_process_shutdown(p, kWaitMs) != VRO_ENDED) return 6;
  return shared_mappings();
}

TEST_F(Guest, ForkedChildLeavesTheSinkToItsParent) {
  vro_buffer* b = nullptr;
  ASSERT_EQ(VRO_OK, vro_buffer_create(process, 100, &b));
  std::atomic<bool> stop = false;
  std::thread busy([&] {  // leads, sends and waits while the forks happen
    while (!stop) EXPECT_EQ(VRO_OK, call(process, "test_touch", std::string(1000, 'x'), 10, {b}).code);
  });
  for (int i = 0; i < 20; ++i) {
    vro_completion* pending = start(process, "test_sleep", bytes_of(5));
    const pid_t child = fork();
    if (child == 0) _exit(use_in_child(process, b, pending));
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_EQ(VRO_OK, finish(pending, 0, 0).code);
  }
  stop = true;
  busy.join();
}

TEST_F(Guest, ForkedChildCanHaveASinkOfItsOwn) {
  const pid_t child = fork();
  if (child == 0) {
    vro_process* own = start_sink();
    const bool good = own && call(own, "test_echo", "abc", 3).result == "abc" && !start(process, "test_empty");
    _exit(good && vro_process_shutdown(own, kWaitMs) == VRO_OK ? 0 : 1);
  }
  int status = -1;
  EXPECT_EQ(child, waitpid(child, &status, 0));
  EXPECT_EQ(0, status);
  EXPECT_EQ(VRO_OK, call(process, "test_empty").code);
}

TEST_F(Guest, ChildThatOutlivesItsParentDoesNotKeepTheSink) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  const pid_t host = fork();
  if (host == 0) {
    vro_process* own = start_sink();
    pid_t numbers[2] = {static_cast<pid_t>(vro_process_id(own)), fork()};
    if (numbers[1] == 0)
      for (;;) pause();
    _exit(write(ends[1], numbers, sizeof(numbers)) == sizeof(numbers) ? 0 : 1);  // no shutdown: the host just ends
  }
  pid_t numbers[2];
  ASSERT_EQ(static_cast<ssize_t>(sizeof(numbers)), read(ends[0], numbers, sizeof(numbers)));
  EXPECT_TRUE(is_gone_within(host, 5));
  EXPECT_TRUE(is_gone_within(numbers[0], 1));
  EXPECT_EQ(0, kill(numbers[1], SIGKILL));
  EXPECT_TRUE(is_gone_within(numbers[1], 5));
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
