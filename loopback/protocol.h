// SPDX-License-Identifier: BSD-3-Clause
// What host and sink say to each other: datagrams on one sequenced socket pair, little-endian, each a header and what
// the header counts.
//
//   host to sink                                                     answer of the sink
//   buffer_create   request_header, one sealed memfd attached        none; a failure is told by the runs that use it
//   buffer_destroy  request_header                                   none
//   run             request_header | misc | handles u64[] | name     done or refused, in the order of the runs
//   shutdown        request_header                                   the end of the process
//
//   sink to host
//   hello           reply_header, once, when run functions can be called
//   done            reply_header | misc | result
//   refused         reply_header | text; the answer to whatever makes no sense (id 0 when it could not be read); in
//                   place of a hello: why nothing will be served
//
// The request header fills one cache line and misc comes first behind it, so the sink hands the received bytes to the
// run function where they lie, aligned.
#pragma once
#include <cstddef>
#include <cstdint>

#include "vro/host.h"

namespace vro {

inline constexpr uint32_t kMagic = 0x4f525630;  // "0VRO"
inline constexpr uint16_t kVersion = 1;
inline constexpr char kChannelVariable[] = "VRO_CHANNEL";  // environment of the sink: number of its end of the channel

enum message_kind : uint16_t { kHello = 1, kBufferCreate, kBufferDestroy, kRun, kShutdown, kDone, kRefused };

struct request_header {
  uint32_t magic;          // kMagic
  uint16_t version;        // kVersion
  uint16_t kind;           // message_kind
  uint64_t id;             // of the run or of the buffer (its handle), from one sequence, never 0
  uint64_t bytes;          // buffer_create: size of the buffer
  uint16_t misc_length;    // run: bytes of misc
  uint16_t result_length;  // run: bytes of result wanted
  uint16_t buffer_count;   // run: number of handles
  uint16_t name_length;    // run: bytes of name, no NUL among them
  uint64_t unused[4];      // 0
};
static_assert(sizeof(request_header) == 64);
static_assert(offsetof(request_header, id) == 8 && offsetof(request_header, bytes) == 16);
static_assert(offsetof(request_header, misc_length) == 24 && offsetof(request_header, unused) == 32);

struct reply_header {
  uint32_t magic;          // kMagic
  uint16_t version;        // kVersion
  uint16_t kind;           // message_kind
  uint64_t id;             // of the request that this answers; 0 if it had none
  uint16_t misc_length;    // done: as requested
  uint16_t result_length;  // done: as requested
  uint16_t text_length;    // refused: bytes of text, no NUL
  uint16_t unused;         // 0
};
static_assert(sizeof(reply_header) == 24);
static_assert(offsetof(reply_header, id) == 8 && offsetof(reply_header, misc_length) == 16);

inline constexpr size_t kMaxRequest =
    sizeof(request_header) + VRO_MAX_MISC + VRO_MAX_BUFFERS * sizeof(uint64_t) + VRO_MAX_NAME;
inline constexpr size_t kMaxReply = sizeof(reply_header) + VRO_MAX_MISC + VRO_MAX_RESULT;
inline constexpr size_t kMaxText = 511;  // bytes of a refusal

}  // namespace vro
