// SPDX-License-Identifier: BSD-3-Clause
// A card request block that ends exactly at an unmapped page, and the calls that send it to the dispatcher.
#pragma once

#include <sys/mman.h>

#include "sink/request_dispatcher.h"
#include "tests/support/prelude.h"
#include "tev/request.h"

class request_block {
 public:
  request_block() {
    base_ = static_cast<char*>(mmap(nullptr, kMapped + kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0));
    mprotect(base_ + kMapped, kPage, PROT_NONE);
  }
  ~request_block() { munmap(base_, kMapped + kPage); }
  request_block(const request_block&) = delete;
  request_block& operator=(const request_block&) = delete;

  tev_card_request& operator*() { return *reinterpret_cast<tev_card_request*>(base_ + kMapped - TEV_REQUEST_BYTES); }
  tev_invoke_request& invoke() { return (**this).invoke; }

  // Makes it an invoke request for `worker`, all else zero.
  tev_invoke_request& prepare(const std::string& worker) {
    std::memset(static_cast<void*>(&**this), 0, TEV_REQUEST_BYTES);
    invoke().code = TEV_REQUEST_INVOKE;
    worker.copy(invoke().worker, TEV_WORKER_NAME_BYTES);
    return invoke();
  }

  void send(std::vector<void*> buffers = {}, void* result = nullptr, uint16_t result_length = 0) {
    ueaa_prv_card_invoke(static_cast<uint32_t>(buffers.size()), buffers.data(), nullptr, &**this, 0, result,
                         result_length);
  }

 private:
  static constexpr size_t kPage = 4096;
  static constexpr size_t kMapped = 8 * kPage;
  char* base_;
};
