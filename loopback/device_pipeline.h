// SPDX-License-Identifier: BSD-3-Clause
// The pipeline of a sink: one thread that receives the host's requests and carries them out in order.
#pragma once
#include <pthread.h>

#include <unordered_set>

#include "loopback/channel.h"
#include "loopback/device_buffers.h"
#include "loopback/protocol.h"

namespace vro {

// Bytes of misc that a run function may read: those sent, then zeros.
inline constexpr size_t kMiscRoom = 65536;

// One per process, from the start of the pipeline to the shutdown.
//
//   inbox   +-- 64 --+------------- 65536 ---------------+---------- 2048 ----------+
//           | header | misc, where the function finds it | room for handles and name |
//           +--------+-----------------------------------+---------------------------+
struct pipeline {
  int channel;                          // the sink's end                        W start     R both threads
  int finished;                         // eventfd, readable after a shutdown    W pipeline  R main
  spin_habit spinning;                  // of waits for a message                pipeline only
  pthread_t thread;                     //                                       W start     R main
  buffer_table buffers;                 // what the host shares                  pipeline only
  std::unordered_set<void*> functions;  // addresses known to be functions       pipeline only
  size_t used;                          // bytes of inbox that may be nonzero    pipeline only
  alignas(64) unsigned char inbox[sizeof(request_header) + kMiscRoom + 2048];
  alignas(64) unsigned char result[VRO_MAX_RESULT + 1];
};
static_assert(sizeof(pipeline::inbox) > kMaxRequest);

// The thread's body: tells the host that run functions can be called, and serves until a shutdown. Ends the process
// with status 1 when the host is gone.
void* serve_pipeline(void* pipeline_pointer) noexcept;

// Tells the host why none of its requests will be served.
void tell_host(int channel, const char* why);

}  // namespace vro
