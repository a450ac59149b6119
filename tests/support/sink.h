// SPDX-License-Identifier: BSD-3-Clause
// The real sink as a child process of the test.
#pragma once

#include "tests/support/prelude.h"
#include "vro/host.h"

namespace tev::test {

// Null when it does not start.
inline vro_process* start_sink(const char* const* environment = nullptr, int output = -1) {
  const vro_process_options options = {TEV_SINK_PATH, environment, nullptr, output, 0};
  vro_process* process = nullptr;
  vro_process_create(&options, &process);
  return process;
}

// A call of the sink's dispatcher, under way.
inline vro_completion* send(vro_process* sink, const void* block, const std::vector<vro_buffer*>& buffers = {},
                            size_t result_length = 0, const char* function = "ueaa_prv_card_invoke") {
  vro_completion* done = nullptr;
  vro_run(sink, function, buffers.data(), static_cast<uint32_t>(buffers.size()), block, 32320, result_length, &done);
  return done;
}

}  // namespace tev::test
