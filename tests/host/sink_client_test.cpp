// SPDX-License-Identifier: BSD-3-Clause
// What the host refuses to send.
#include "host/sink_client.h"

#include "host/failure.h"
#include "tests/support/prelude.h"

namespace tev::host {
namespace {

TEST(SinkClient, KeepsARequestThatWouldLeaveItsBuffers) {
  sink_client sink({.executable = TEV_SINK_PATH});
  tev_dgemm_record record = {'N', 'N', 2, 2, 2, 1, 2, 2, 0, 3};
  const auto send = [&](int64_t bytes) {
    const shared_buffer b = sink.make_buffer(bytes);
    sink.invoke("tev_blas_dgemm_ao_worker", &record, sizeof(record), {b.get(), b.get(), b.get()}, TEV_POST_NONE);
  };
  EXPECT_THROW(send(32), failure);
  EXPECT_NO_THROW(send(40));
  sink.shut_down();
}

}  // namespace
}  // namespace tev::host
