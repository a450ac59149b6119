// SPDX-License-Identifier: BSD-3-Clause
// The real sink's death, and its host's, while it computes with its team: nothing may be left of either.
#include <sys/wait.h>

#include "tests/support/left_behind.h"
#include "tests/support/sink.h"
#include "tev/request.h"

namespace tev::test {
namespace {

// A product that takes minutes and little memory: the columns of A lie on each other, and so do those of B, as their
// leading dimensions of zero say, which the sink does not judge.
vro_completion* start_long_product(vro_process* process) {
  constexpr int64_t n = 2000, k = 1000000;
  vro_buffer* matrices[3] = {};
  for (vro_buffer*& matrix : matrices)
    EXPECT_EQ(vro_buffer_create(process, n * n * sizeof(double), &matrix), VRO_OK) << vro_last_error();
  auto request = std::make_unique<tev_card_request>();
  request->invoke.code = TEV_REQUEST_INVOKE;
  std::strcpy(request->invoke.worker, "tev_blas_dgemm_ao_worker");
  const tev_dgemm_record record = {'N', 'N', n, n, k, 1.0, 0, 0, 1.0, n};
  std::memcpy(request->invoke.record, &record, sizeof(record));
  return send(process, request.get(), {matrices, matrices + 3});
}

// 'R' running, 'Z' dead but not reaped, ... and 0 when there is no such process.
char state_of(int64_t pid) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(("/proc/" + std::to_string(pid) + "/stat").c_str(), "re"),
                                                   [](FILE* f) { return f ? std::fclose(f) : 0; });
  char state = 0;
  if (file && std::fscanf(file.get(), "%*d (%*[^)]) %c", &state) != 1) return 0;
  return state;
}

bool ends_within(int64_t pid, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < deadline) {
    if (const char state = state_of(pid); state == 0 || state == 'Z') return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

TEST(Process, KilledWhileItComputes) {
  vro_process* process = start_sink();
  const int64_t pid = vro_process_id(process);
  vro_completion* done = start_long_product(process);
  EXPECT_EQ(vro_completion_wait(done, 300), VRO_TIMEOUT);
  kill(static_cast<pid_t>(pid), SIGKILL);
  EXPECT_EQ(vro_completion_wait(done, 1000), VRO_ENDED);
  EXPECT_NE(std::string(vro_last_error()).find("killed by signal 9"), std::string::npos) << vro_last_error();
  EXPECT_EQ(vro_process_shutdown(process, 1000), VRO_ENDED);
  EXPECT_EQ(state_of(pid), 0);
  EXPECT_TRUE(shared_names_of({static_cast<pid_t>(pid)}).empty());
}

TEST(Process, EndsWithItsHostWhileItComputes) {
  int channel[2];
  ASSERT_EQ(pipe(channel), 0);
  const pid_t host = fork();
  if (host == 0) {
    vro_process* process = start_sink();
    vro_completion* done = start_long_product(process);
    vro_completion_wait(done, 300);
    const int64_t pid = vro_process_id(process);
    if (write(channel[1], &pid, sizeof(pid)) != sizeof(pid)) _exit(1);
    pause();
  }
  int64_t pid = 0;
  ASSERT_EQ(read(channel[0], &pid, sizeof(pid)), static_cast<ssize_t>(sizeof(pid)));
  for (int i = 0; i < 200 && state_of(host) != 'S'; ++i) usleep(10000);  // it writes before it pauses
  EXPECT_EQ(state_of(host), 'S');
  kill(host, SIGKILL);
  waitpid(host, nullptr, 0);
  EXPECT_TRUE(ends_within(pid, std::chrono::seconds(2)));
  EXPECT_TRUE(shared_names_of({static_cast<pid_t>(pid)}).empty());
  close(channel[0]);
  close(channel[1]);
}

}  // namespace
}  // namespace tev::test
