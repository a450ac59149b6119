// SPDX-License-Identifier: BSD-3-Clause
// The rules of the messages. A message is good when every count is within its limit, the counts add up to its length
// exactly, and what its kind does not use is zero.
#include "loopback/parse.h"

#include <cstring>

namespace vro {
namespace {

const char* check_run(const request_header& h, const unsigned char* message, size_t length, request_view* view) {
  if (h.bytes != 0) return "the message has a size where a run has none";
  if (h.buffer_count > VRO_MAX_BUFFERS) return "more than 127 buffers";
  if (h.name_length == 0 || h.name_length > VRO_MAX_NAME) return "the function's name is empty or above 255 bytes";
  const size_t handle_bytes = h.buffer_count * sizeof(uint64_t);
  if (length != sizeof(h) + h.misc_length + handle_bytes + h.name_length) return "the message has a wrong length";
  view->misc = message + sizeof(h);
  view->handles = view->misc + h.misc_length;
  view->name = reinterpret_cast<const char*>(view->handles + handle_bytes);
  if (std::memchr(view->name, 0, h.name_length)) return "the function's name contains a zero byte";
  view->misc_length = h.misc_length;
  view->result_length = h.result_length;
  view->buffer_count = h.buffer_count;
  view->name_length = h.name_length;
  return nullptr;
}

const char* check_other(const request_header& h, size_t length, request_view* view) {
  if (length != sizeof(h)) return "the message has a wrong length";
  if (h.misc_length | h.result_length | h.buffer_count | h.name_length) return "the message has counts of a run";
  if ((h.bytes != 0) != (h.kind == kBufferCreate)) return "the message has a wrong size of a buffer";
  view->bytes = h.bytes;
  return nullptr;
}

}  // namespace

const char* parse_request(const unsigned char* message, size_t length, request_view* view) {
  *view = {};
  request_header h;
  if (length < sizeof(h)) return "the message is shorter than its header";
  std::memcpy(&h, message, sizeof(h));
  if (h.magic != kMagic || h.version != kVersion) return "the message is none of this runtime";
  view->id = h.id;
  if (h.id == 0) return "the message has no number";
  if (h.unused[0] | h.unused[1] | h.unused[2] | h.unused[3]) return "the message has bits that mean nothing";
  view->kind = static_cast<message_kind>(h.kind);
  switch (h.kind) {
    case kRun:
      return check_run(h, message, length, view);
    case kBufferCreate:
    case kBufferDestroy:
    case kShutdown:
      return check_other(h, length, view);
    default:
      return "the message is of no kind that a sink knows";
  }
}

const char* parse_reply(const unsigned char* message, size_t length, reply_view* view) {
  *view = {};
  reply_header h;
  if (length < sizeof(h)) return "the reply is shorter than its header";
  std::memcpy(&h, message, sizeof(h));
  if (h.magic != kMagic || h.version != kVersion || h.unused != 0) return "the reply is none of this runtime";
  if (h.kind != kHello && h.kind != kDone && h.kind != kRefused) return "the reply is of no kind that a host knows";
  if (h.kind != kDone && (h.misc_length | h.result_length)) return "the reply has counts of a run that was done";
  if (h.kind != kRefused && h.text_length != 0) return "the reply has a text without a refusal";
  if (length != sizeof(h) + h.misc_length + h.result_length + h.text_length) return "the reply has a wrong length";
  view->kind = static_cast<message_kind>(h.kind);
  view->id = h.id;
  view->misc = message + sizeof(h);
  view->result = view->misc + h.misc_length;
  view->text = reinterpret_cast<const char*>(view->result + h.result_length);
  view->misc_length = h.misc_length;
  view->result_length = h.result_length;
  view->text_length = h.text_length;
  return nullptr;
}

}  // namespace vro
