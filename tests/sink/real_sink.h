// SPDX-License-Identifier: BSD-3-Clause
// The real sink as a child process of the test.
#pragma once

#include <gtest/gtest.h>

#include "vro/host.h"

inline vro_process* start_sink() {
  const vro_process_options options = {TEV_SINK_PATH, nullptr, nullptr, -1, 0};
  vro_process* process = nullptr;
  EXPECT_EQ(vro_process_create(&options, &process), VRO_OK) << vro_last_error();
  return process;
}
