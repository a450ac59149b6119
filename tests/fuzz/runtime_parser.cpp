// SPDX-License-Identifier: BSD-3-Clause
// The message parsers of the offload runtime on arbitrary bytes, in memory of exactly their size. A message that is
// taken must be fully said by its view: written again from the view, it is the same bytes.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "loopback/parse.h"

using namespace vro;

namespace {

template <class T>
void append(std::string* out, const T* data, size_t bytes) {
  out->append(reinterpret_cast<const char*>(data), bytes);
}

std::string write_again(const request_view& v) {
  const request_header h = {kMagic,        kVersion,        v.kind,         v.id,          v.bytes,
                            v.misc_length, v.result_length, v.buffer_count, v.name_length, {}};
  std::string out;
  append(&out, &h, sizeof(h));
  append(&out, v.misc, v.misc_length);
  append(&out, v.handles, v.buffer_count * sizeof(uint64_t));
  append(&out, v.name, v.name_length);
  return out;
}

std::string write_again(const reply_view& v) {
  const reply_header h = {kMagic, kVersion, v.kind, v.id, v.misc_length, v.result_length, v.text_length, 0};
  std::string out;
  append(&out, &h, sizeof(h));
  append(&out, v.misc, v.misc_length);
  append(&out, v.result, v.result_length);
  append(&out, v.text, v.text_length);
  return out;
}

template <class View>
void check(const char* (*parse)(const unsigned char*, size_t, View*), const unsigned char* bytes, size_t size) {
  View view;
  if (parse(bytes, size, &view)) return;
  const std::string again = write_again(view);
  if (again.size() != size || std::memcmp(again.data(), bytes, size) != 0) std::abort();
}

}  // namespace

// The first byte chooses how much of a good header goes in front, so that the counts are reached soon.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  std::string message;
  if (data[0] & 1) {
    append(&message, &kMagic, sizeof(kMagic));
    append(&message, &kVersion, sizeof(kVersion));
  }
  append(&message, data + 1, size - 1);
  const auto exact = std::make_unique<unsigned char[]>(message.size());
  std::memcpy(exact.get(), message.data(), message.size());
  check(parse_request, exact.get(), message.size());
  check(parse_reply, exact.get(), message.size());
  return 0;
}
