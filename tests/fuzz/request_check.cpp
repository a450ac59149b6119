// SPDX-License-Identifier: BSD-3-Clause
// The request check on blocks and room for its text in memory of exactly their size. What it says of a BLAS request
// must be what is reckoned again; every other request, in pieces from the input, must only be survived.
#include <cstdlib>
#include <memory>

#include "tests/request_check/attempt.h"
#include "tev/check.h"

using namespace request_check_test;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  byte_source bytes = {data, size};
  const bool is_blas = bytes.next() < 128;
  attempt a = make_attempt(bytes, 1 << 20);
  if (!is_blas) {
    std::memset(a.record(), bytes.next(), TEV_REQUEST_BYTES - 264);  // strings without an end, and pinning
    auto* block = reinterpret_cast<unsigned char*>(&a.block);
    block[0] = bytes.next() % 9;
    for (const int begin : {4, 264, 31280, 32308})
      for (int i = begin; i < begin + 12; ++i) block[i] = bytes.next();
    a.lengths.resize(bytes.next());
  }
  const size_t room = bytes.next();
  const std::unique_ptr<char[]> text(new char[room]);
  const std::unique_ptr<unsigned char[]> odd(new unsigned char[TEV_REQUEST_BYTES + 1]);  // no alignment is asked for
  std::memcpy(odd.get() + 1, &a.block, TEV_REQUEST_BYTES);
  const bool accepted = tev_check_request(odd.get() + 1, TEV_REQUEST_BYTES, a.lengths.data(),
                                          static_cast<uint32_t>(a.lengths.size()), text.get(), room) == TEV_CHECK_OK;
  if (room > 1 && (text[0] == 0) != accepted) std::abort();
  if (is_blas && accepted != a.is_sound()) std::abort();
  return 0;
}
