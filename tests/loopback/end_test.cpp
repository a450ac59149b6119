// SPDX-License-Identifier: BSD-3-Clause
// Every way in which a sink or a host ends: who notices, how soon, in which words, and what is left.
#include <sys/prctl.h>
#include <sys/resource.h>

#include "tests/loopback/fixture.h"

namespace {

using namespace loopback_test;

class End : public Loopback {
 protected:
  // Runs a call that ends the sink, with others behind it: all fail at once, alike, and so do later ones.
  void expect_end(const char* name, const std::string& misc, const std::string& text) {
    vro_buffer* b = nullptr;
    ASSERT_EQ(VRO_OK, vro_buffer_create(process, 100, &b));
    vro_completion* first = start(process, name, misc);
    vro_completion* second = start(process, "test_empty");
    const auto begin = steady::now();
    const outcome o = finish(first, 0, 0);
    EXPECT_LT(seconds_since(begin), 1);
    EXPECT_EQ(VRO_ENDED, o.code);
    EXPECT_EQ("the sink (process " + std::to_string(sink_pid()) + ") " + text + " while it ran '" + name + "'",
              o.error);
    if (second) EXPECT_EQ(o.error, finish(second, 0, 0).error);
    EXPECT_EQ(o.error, call(process, "test_empty").error);
    std::memset(vro_buffer_map(b), 1, 100);
    EXPECT_EQ(VRO_ENDED, vro_buffer_destroy(b));
    EXPECT_EQ(VRO_ENDED, vro_buffer_create(process, 100, &b));
    shut_down_ended();
  }
};

TEST_F(End, BySignal) { expect_end("test_signal", bytes_of(SIGKILL), "was killed by signal 9 (Killed)"); }
TEST_F(End, ByStatus) { expect_end("test_exit", bytes_of(5), "exited with status 5"); }
TEST_F(End, ByStatusZero) { expect_end("test_exit", bytes_of(0), "exited with status 0"); }
TEST_F(End, ByException) { expect_end("test_throw", "", "was killed by signal 6 (Aborted)"); }
TEST_F(End, OfItsDescriptors) { expect_end("test_close_descriptors", "", "exited with status 1"); }
TEST_F(End, WhileItsChildHoldsTheChannel) {
  expect_end("test_crash_with_child", "", "was killed by signal 9 (Killed)");
  while (waitpid(-1, nullptr, 0) > 0) {  // the sink's child became ours
  }
}
TEST_F(End, OfTheChannelOnly) {
  expect_end("test_become_sleep", "", "closed its channel, did not end in time and was killed");
}
TEST_F(End, OfReason) {
  const outcome o = call(process, "test_send", "garbage");
  EXPECT_NE(std::string::npos, o.error.find("sent a message that makes no sense and was killed")) << o.error;
  shut_down_ended();
}

TEST_F(End, AfterALongWaitKeepsItsCause) {
  expect_end("test_die_late", bytes_of(SIGSEGV), "was killed by signal 11 (Segmentation fault)");
  process = start_sink();
  expect_end("test_die_late", bytes_of(-7), "exited with status 7");
}

TEST_F(End, KilledWhileThreadsWait) {
  std::vector<std::thread> waiters;
  vro_completion* c = start(process, "test_sleep", bytes_of(30000));
  for (int i = 0; i < 4; ++i)
    waiters.emplace_back([this] {
      const outcome o = call(process, "test_empty");
      EXPECT_EQ(VRO_ENDED, o.code);
      EXPECT_NE(std::string::npos, o.error.find("killed by signal 9 (Killed) while it ran 'test_sleep'")) << o.error;
    });
  usleep(50000);
  const auto begin = steady::now();
  kill(sink_pid(), SIGKILL);
  for (std::thread& t : waiters) t.join();
  EXPECT_EQ(VRO_ENDED, finish(c, 0, 0).code);
  EXPECT_LT(seconds_since(begin), 1);
  shut_down_ended();
}

TEST_F(End, KilledWhileIdleFailsTheNextCall) {
  EXPECT_EQ(VRO_OK, call(process, "test_empty").code);
  kill(sink_pid(), SIGTERM);
  usleep(100000);
  const outcome o = call(process, "test_count");
  EXPECT_NE(std::string::npos, o.error.find("killed by signal 15 (Terminated) after its last call, 'test_empty'"))
      << o.error;
  shut_down_ended();
}

TEST_F(End, ShutdownFinishesWhatWasRequested) {
  vro_buffer* b = nullptr;
  ASSERT_EQ(VRO_OK, vro_buffer_create(process, 1, &b));
  vro_completion* last = nullptr;
  for (int i = 0; i < 20; ++i) last = start(process, "test_sleep", bytes_of(10) + std::string(60000, 'x'));
  ASSERT_TRUE(last);
  const auto begin = steady::now();
  EXPECT_EQ(VRO_OK, vro_process_shutdown(process, kWaitMs)) << vro_last_error();
  EXPECT_GE(seconds_since(begin), 0.1);
  process = nullptr;
}

TEST_F(End, ShutdownKillsASinkThatHangs) {
  const std::pair<const char*, const char*> cases[] = {
      {"test_sleep", "did not end within 300 ms and was killed while it ran 'test_sleep'"},
      {"test_hang_at_exit", "closed its channel, did not end in time and was killed after"}};
  for (const auto& [name, text] : cases) {
    vro_process* p = start_sink();
    vro_completion_release(start(p, name, bytes_of(30000)));
    const auto begin = steady::now();
    EXPECT_EQ(VRO_ENDED, vro_process_shutdown(p, 300));
    EXPECT_NE(nullptr, std::strstr(vro_last_error(), text)) << vro_last_error();
    EXPECT_GE(seconds_since(begin), 0.3);
    EXPECT_LT(seconds_since(begin), 2);
  }
}

TEST_F(End, CreateSaysWhyNoSinkServes) {
  const auto error_of = [](const char* executable) {
    const vro_process_options options = {executable, nullptr, nullptr, -1, 0};
    vro_process* p = nullptr;
    EXPECT_NE(VRO_OK, vro_process_create(&options, &p));
    EXPECT_EQ(nullptr, p);
    return std::string(vro_last_error());
  };
  EXPECT_EQ("cannot start '/no/such/sink': No such file or directory", error_of("/no/such/sink"));
  EXPECT_EQ("cannot start '/tmp': Permission denied", error_of("/tmp"));
  EXPECT_EQ("no executable given", error_of(nullptr));
  EXPECT_NE(std::string::npos, error_of("/bin/false").find(") exited with status 1 before it served"));
  setenv("TEST_VAST_STACKS", "1", 1);
  const std::string no_thread = error_of(VRO_TEST_SINK);
  unsetenv("TEST_VAST_STACKS");
  EXPECT_NE(std::string::npos, no_thread.find(") exited with status 1 before it served: it cannot get its pipeline "
                                              "thread: Resource temporarily unavailable"))
      << no_thread;
  EXPECT_EQ(VRO_OK, call(process, "test_empty").code);
}

TEST_F(End, SinkWithoutAHostSaysSo) {
  int status = std::system(VRO_TEST_SINK " 2>/dev/null");
  EXPECT_EQ(2, WEXITSTATUS(status));
  status = std::system("VRO_CHANNEL=0 " VRO_TEST_SINK " 2>/dev/null </dev/null");
  EXPECT_EQ(2, WEXITSTATUS(status));
}

// A host of its own process: starts a sink, has it run `name`, reports the sink's number, and waits to be killed.
pid_t start_host(pid_t* sink, const char* name) {
  int ends[2];
  EXPECT_EQ(0, pipe(ends));
  const pid_t host = fork();
  if (host == 0) {
    const vro_process_options options = {VRO_TEST_SINK, nullptr, nullptr, -1, 0};
    vro_process* p = nullptr;
    if (vro_process_create(&options, &p) != VRO_OK) _exit(1);
    start(p, name, bytes_of(60000));
    const pid_t number = static_cast<pid_t>(vro_process_id(p));
    if (write(ends[1], &number, sizeof(number)) != sizeof(number)) _exit(1);
    for (;;) pause();
  }
  EXPECT_EQ(static_cast<ssize_t>(sizeof(*sink)), read(ends[0], sink, sizeof(*sink)));
  close(ends[0]);
  close(ends[1]);
  return host;
}

TEST_F(End, OfTheHostEndsItsSinkAndNoOther) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  for (const char* name : {"test_empty", "test_sleep"}) {
    pid_t sink = 0;
    const pid_t host = start_host(&sink, name);
    usleep(20000);
    EXPECT_EQ(0, kill(sink, 0));
    kill(host, SIGKILL);
    EXPECT_TRUE(is_gone_within(host, 5));
    EXPECT_TRUE(is_gone_within(sink, 1)) << name;
    EXPECT_EQ(VRO_OK, call(process, "test_empty").code);
  }
}

TEST_F(End, OfAnyProcessLeavesNoOpenMpName) {
  const auto name = [](pid_t number, unsigned user = getuid()) {
    return "__KMP_REGISTERED_LIB_" + std::to_string(number) + "_" + std::to_string(user);
  };
  const auto exists = [](const std::string& n) { return entries("/dev/shm").contains(n); };
  const pid_t dead = fork();
  if (dead == 0) _exit(0);
  waitpid(dead, nullptr, 0);
  // One to be removed by a start, one by the sink's end, and those of others: in use, of another user, no such name.
  const std::string left = name(dead), own = name(sink_pid());
  const std::string kept[] = {name(getpid()), name(1), name(dead, getuid() + 1), left + "_"};
  for (const std::string& n : {left, own}) std::ofstream("/dev/shm/" + n);
  for (const std::string& n : kept) std::ofstream("/dev/shm/" + n);
  EXPECT_EQ(VRO_OK, vro_process_shutdown(start_sink(), kWaitMs));
  EXPECT_FALSE(exists(left));
  EXPECT_TRUE(exists(own));
  kill(sink_pid(), SIGKILL);
  EXPECT_EQ(VRO_ENDED, call(process, "test_sleep", bytes_of(10000)).code);
  EXPECT_FALSE(exists(own));
  for (const std::string& n : kept) EXPECT_EQ(0, unlink(("/dev/shm/" + n).c_str())) << n;
  shut_down_ended();
}

}  // namespace
