// SPDX-License-Identifier: BSD-3-Clause
// What the tests of the offload runtime share: a sink, a call in one line, and the rule that nothing is left behind.
#pragma once
#include <sys/wait.h>

#include "tests/support/left_behind.h"
#include "vro/host.h"

namespace loopback_test {

using tev::test::entries;
using tev::test::open_descriptors;
using tev::test::shared_mappings;
using steady = std::chrono::steady_clock;
inline constexpr int kWaitMs = 60000;  // bounds a test that went wrong, also on a slow machine

inline double seconds_since(steady::time_point t) { return std::chrono::duration<double>(steady::now() - t).count(); }

template <class T>
std::string bytes_of(T value) {
  return {reinterpret_cast<const char*>(&value), sizeof(value)};
}

template <class T>
T value_of(const std::string& bytes) {
  T value{};
  std::memcpy(&value, bytes.data(), std::min(bytes.size(), sizeof(value)));
  return value;
}

struct outcome {
  int code;
  std::string misc, result, error;
};

inline vro_completion* start(vro_process* p, const char* name, const std::string& misc = "", size_t result_length = 0,
                             const std::vector<vro_buffer*>& buffers = {}) {
  vro_completion* c = nullptr;
  const auto count = static_cast<uint32_t>(buffers.size());
  vro_run(p, name, buffers.data(), count, misc.data(), misc.size(), result_length, &c);
  return c;
}

inline outcome finish(vro_completion* c, size_t misc_length, size_t result_length, int timeout_ms = kWaitMs) {
  outcome o = {};
  o.code = vro_completion_wait(c, timeout_ms);
  if (o.code == VRO_OK) {
    o.misc.assign(static_cast<const char*>(vro_completion_misc(c)), misc_length);
    o.result.assign(static_cast<const char*>(vro_completion_result(c)), result_length);
  } else {
    o.error = vro_last_error();
  }
  vro_completion_release(c);
  return o;
}

inline outcome call(vro_process* p, const char* name, const std::string& misc = "", size_t result_length = 0,
                    const std::vector<vro_buffer*>& buffers = {}) {
  vro_completion* c = nullptr;
  const int code = vro_run(p, name, buffers.data(), static_cast<uint32_t>(buffers.size()), misc.data(), misc.size(),
                           result_length, &c);
  if (code != VRO_OK) return {code, "", "", vro_last_error()};
  return finish(c, misc.size(), result_length);
}

// The process is our child, or becomes it when its parent dies (main makes us a subreaper). False after `seconds`.
inline bool is_gone_within(pid_t pid, double seconds) {
  const auto begin = steady::now();
  while (seconds_since(begin) < seconds) {
    if (waitpid(pid, nullptr, WNOHANG) == pid) return true;
    if (kill(pid, 0) != 0 && errno == ESRCH) return true;
    usleep(2000);
  }
  return false;
}

// Starts one sink before each test; afterwards neither a descriptor, a mapping, a shared-memory name of this process or
// a sink nor a child is left.
class Loopback : public testing::Test {
 protected:
  void SetUp() override {
    descriptors_ = open_descriptors();
    process = start_sink();
    ASSERT_TRUE(process) << vro_last_error();
  }

  void TearDown() override {
    if (process) EXPECT_EQ(VRO_OK, vro_process_shutdown(process, kWaitMs)) << vro_last_error();
    EXPECT_EQ(descriptors_, open_descriptors());
    EXPECT_EQ(std::set<std::string>(), tev::test::shared_names_of(started()));
    EXPECT_EQ(0, shared_mappings());
    EXPECT_TRUE(waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD) << "a child is left";
  }

  static vro_process* start_sink(int output = -1, const char* library_path = nullptr,
                                 const char* const* environment = nullptr) {
    const vro_process_options options = {VRO_TEST_SINK, environment, library_path, output, 0};
    vro_process* p = nullptr;
    if (vro_process_create(&options, &p) == VRO_OK) started().insert(static_cast<pid_t>(vro_process_id(p)));
    return p;
  }

  // For a sink that ended: the shutdown says so, too.
  void shut_down_ended() {
    EXPECT_EQ(VRO_ENDED, vro_process_shutdown(process, kWaitMs));
    process = nullptr;
  }

  pid_t sink_pid() const { return static_cast<pid_t>(vro_process_id(process)); }

  vro_process* process = nullptr;

 private:
  static std::set<pid_t>& started() {
    static std::set<pid_t> processes = {getpid()};
    return processes;
  }

  std::set<std::string> descriptors_;
};

}  // namespace loopback_test
