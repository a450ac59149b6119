// SPDX-License-Identifier: BSD-3-Clause
// A program that has the optional hooks: they are called on every initialise and finalise request.
#include <gtest/gtest.h>

#include "sink/device.h"
#include "tests/sink/request_block.h"

namespace {
std::string order;
}

extern "C" {
TEV_EXPORT void ueaa_user_task_manager_init() {
  uint32_t device;
  order += tev_ueaa_current_device(&device) == 0 ? "init " : "early ";  // the device is known by now
}
TEV_EXPORT void ueaa_user_task_manager_finalize() { order += "finalize "; }
}

TEST(Hooks, AreCalledEachTime) {
  request_block block;
  for (uint32_t code : {TEV_REQUEST_INITIALISE, TEV_REQUEST_FINALISE, TEV_REQUEST_INITIALISE, TEV_REQUEST_FINALISE}) {
    block.prepare("").code = code;
    block.send();
  }
  EXPECT_EQ(order, "init finalize init finalize ");
}
