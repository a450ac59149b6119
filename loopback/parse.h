// SPDX-License-Identifier: BSD-3-Clause
// Bytes from the channel to checked views. Pure: no memory, no system call, no alignment asked of the bytes.
#pragma once
#include "loopback/protocol.h"

namespace vro {

// A request that keeps every rule; the pointers lead into the message.
struct request_view {
  message_kind kind;
  uint64_t id;                   // set also for a refused message that is long enough to have one, else 0
  uint64_t bytes;                // buffer_create: at least 1
  const unsigned char* misc;     // run: misc_length bytes
  const unsigned char* handles;  // run: buffer_count numbers of 8 bytes, unaligned
  const char* name;              // run: name_length bytes, 1 to VRO_MAX_NAME, no NUL
  uint16_t misc_length, result_length, buffer_count, name_length;
};

// A reply that keeps every rule; the pointers lead into the message.
struct reply_view {
  message_kind kind;
  uint64_t id;
  const unsigned char* misc;    // done: misc_length bytes
  const unsigned char* result;  // done: result_length bytes
  const char* text;             // refused: text_length bytes
  uint16_t misc_length, result_length, text_length;
};

// Both return nullptr when the message is good, else what is wrong with it.
const char* parse_request(const unsigned char* message, size_t length, request_view* view);
const char* parse_reply(const unsigned char* message, size_t length, reply_view* view);

}  // namespace vro
