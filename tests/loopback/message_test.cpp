// SPDX-License-Identifier: BSD-3-Clause
// A hostile host: speaks to a sink over a channel of its own, and sends what libvro_host never would. After each
// message the sink must still serve a good one.
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include "loopback/parse.h"
#include "tests/loopback/fixture.h"

namespace {

using namespace loopback_test;
using namespace vro;

struct answer {
  int kind = 0;  // 0: none within a second
  uint64_t id = 0;
  std::string text;  // of a refusal; else the result
};

std::string make_request(message_kind kind, uint64_t id, uint64_t bytes = 0, const std::string& name = "",
                         const std::vector<uint64_t>& handles = {}, const std::string& misc = "",
                         uint16_t result_length = 0) {
  const request_header h = {kMagic,
                            kVersion,
                            kind,
                            id,
                            bytes,
                            static_cast<uint16_t>(misc.size()),
                            result_length,
                            static_cast<uint16_t>(handles.size()),
                            static_cast<uint16_t>(name.size()),
                            {}};
  std::string message = bytes_of(h) + misc;
  for (const uint64_t handle : handles) message += bytes_of(handle);
  return message + name;
}

class Message : public testing::Test {
 protected:
  void SetUp() override {
    int ends[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends));
    const std::string variable = kChannelVariable + std::string("=") + std::to_string(ends[1]);
    char* const environment[] = {const_cast<char*>(variable.c_str()), nullptr};
    char* const arguments[] = {const_cast<char*>(VRO_TEST_SINK), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], ends[1]);
    ASSERT_EQ(0, posix_spawn(&sink_, VRO_TEST_SINK, &actions, nullptr, arguments, environment));
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    socket_ = ends[0];
    ASSERT_EQ(kHello, receive(10000).kind);
  }

  void TearDown() override {
    send(make_request(kShutdown, 1));
    int status = -1;
    EXPECT_EQ(sink_, waitpid(sink_, &status, 0));
    EXPECT_EQ(0, status);
    close(socket_);
  }

  void send(const std::string& message, const std::vector<int>& descriptors = {}) {
    iovec piece = {const_cast<char*>(message.data()), message.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(64 * sizeof(int))] = {};
    msghdr m = {};
    m.msg_iov = &piece;
    m.msg_iovlen = 1;
    if (!descriptors.empty()) {
      m.msg_control = control;
      m.msg_controllen = CMSG_SPACE(descriptors.size() * sizeof(int));
      cmsghdr* c = CMSG_FIRSTHDR(&m);
      c->cmsg_level = SOL_SOCKET;
      c->cmsg_type = SCM_RIGHTS;
      c->cmsg_len = CMSG_LEN(descriptors.size() * sizeof(int));
      std::memcpy(CMSG_DATA(c), descriptors.data(), descriptors.size() * sizeof(int));
    }
    ASSERT_EQ(static_cast<ssize_t>(message.size()), sendmsg(socket_, &m, MSG_NOSIGNAL)) << strerror(errno);
  }

  answer receive(int milliseconds = 1000) {
    const timeval limit = {milliseconds / 1000, milliseconds % 1000 * 1000};
    setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    std::vector<unsigned char> bytes(kMaxReply + 1);
    const ssize_t got = recv(socket_, bytes.data(), bytes.size(), 0);
    reply_view r;
    if (got <= 0) return {};
    EXPECT_EQ(nullptr, parse_reply(bytes.data(), static_cast<size_t>(got), &r));
    return {r.kind, r.id,
            r.kind == kRefused ? std::string(r.text, r.text_length)
                               : std::string(reinterpret_cast<const char*>(r.result), r.result_length)};
  }

  answer ask(const std::string& message, const std::vector<int>& descriptors = {}) {
    send(message, descriptors);
    return receive();
  }

  // The message is refused under the number `id`, with `text` as the reason, and the sink serves.
  void expect_refusal(const std::string& message, uint64_t id, const std::string& text) {
    const answer a = ask(message);
    EXPECT_EQ(kRefused, a.kind) << text;
    EXPECT_EQ(id, a.id) << text;
    EXPECT_NE(std::string::npos, a.text.find(text)) << a.text;
    expect_service();
  }

  void expect_service() {
    const answer a = ask(make_request(kRun, 999999, 0, "test_echo", {}, "xyz", 3));
    EXPECT_TRUE(a.kind == kDone && a.id == 999999 && a.text == "xyz") << a.kind << a.text;
  }

  int socket_ = -1;
  pid_t sink_ = -1;
};

// Memory as a host shares it, or with one thing wrong.
int make_memory(size_t bytes, int seals) {
  const int memory = memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  EXPECT_EQ(0, ftruncate(memory, static_cast<off_t>(bytes)));
  EXPECT_EQ(0, fcntl(memory, F_ADD_SEALS, seals));
  return memory;
}

TEST_F(Message, BrokenOnesAreRefused) {
  const std::string good = make_request(kRun, 7, 0, "test_empty", {}, "abcdef", 4);
  expect_refusal("", 0, "shorter than its header");
  expect_refusal("x", 0, "shorter than its header");
  expect_refusal(good.substr(0, 63), 0, "shorter than its header");
  expect_refusal(std::string(200000, '\xff'), 0, "none of this runtime");
  for (size_t n = 64; n < good.size(); ++n) expect_refusal(good.substr(0, n), 7, "wrong length");
  expect_refusal(good + "x", 7, "wrong length");
  expect_refusal(good + std::string(100000, 'x'), 7, "wrong length");
  expect_refusal(make_request(kRun, 0, 0, "test_empty"), 0, "no number");
  expect_refusal(make_request(kRun, 8), 8, "empty or above 255");
  expect_refusal(make_request(kRun, 8, 0, std::string(256, 'x')), 8, "empty or above 255");
  expect_refusal(make_request(kRun, 8, 0, std::string("test_empty\0", 11)), 8, "contains a zero byte");
  expect_refusal(make_request(kRun, 8, 0, "test_empty", std::vector<uint64_t>(128, 1)), 8, "more than 127");
  expect_refusal(make_request(kRun, 8, 0, "test_empty", {5}), 8, "buffers[0] does not exist");
  expect_refusal(make_request(kHello, 8), 8, "of no kind");
  expect_refusal(make_request(kDone, 8), 8, "of no kind");
  expect_refusal(make_request(kBufferCreate, 8, 0), 8, "wrong size of a buffer");
  expect_refusal(make_request(kBufferDestroy, 8), 8, "does not exist");
  expect_refusal(make_request(kShutdown, 8) + "x", 8, "wrong length");
}

TEST_F(Message, BuffersAreTakenOnlyWhenTheyAreSafeToMap) {
  const int good = make_memory(4096, F_SEAL_SHRINK | F_SEAL_GROW);
  const int small = make_memory(4095, F_SEAL_SHRINK), open_ended = make_memory(4096, F_SEAL_GROW);
  const int read_only = make_memory(4096, F_SEAL_SHRINK | F_SEAL_WRITE), no_memory = open("/dev/null", O_RDWR);
  struct {
    std::vector<int> descriptors;
    const char* reason;
  } const cases[] = {{{}, "no descriptor arrived"},
                     {{small}, "smaller than the host says"},
                     {{open_ended}, "no memory sealed"},
                     {{read_only}, "Operation not permitted"},
                     {{no_memory, good}, "no memory sealed"}};
  uint64_t handle = 10;
  for (const auto& c : cases) {
    send(make_request(kBufferCreate, ++handle, 4096), c.descriptors);
    expect_refusal(make_request(kRun, 500, 0, "test_touch", {handle}), 500, c.reason);
  }
  send(make_request(kBufferCreate, 1, 4096), std::vector<int>(60, good));  // surplus descriptors are closed
  send(make_request(kRun, 500, 0, "test_empty"), std::vector<int>(60, good));
  EXPECT_EQ(kDone, receive().kind);
  const std::string folder = "/proc/" + std::to_string(sink_) + "/fd";
  EXPECT_LT(entries(folder).size(), 16u);
  EXPECT_EQ("the buffer exists", ask(make_request(kBufferCreate, 1, 4096), {good}).text);
  EXPECT_EQ(bytes_of(uint64_t{4096}), ask(make_request(kRun, 500, 0, "test_touch", {1}, "", 8)).text);
  char first = 0;
  EXPECT_EQ(1, pread(good, &first, 1, 0));
  EXPECT_EQ(1, first);
  send(make_request(kBufferDestroy, 1));
  expect_refusal(make_request(kRun, 500, 0, "test_touch", {1}), 500, "does not exist");
  for (const int d : {good, small, open_ended, read_only, no_memory}) close(d);
}

}  // namespace
