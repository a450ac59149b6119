// SPDX-License-Identifier: BSD-3-Clause
// The one run function behind all requests. A host calls it through the offload runtime with a card request block
// (tev/request.h) as miscellaneous data. What does not match is skipped without a word: the host checks, not the sink.
#pragma once

#include <cstdint>

#include "tev/types.h"

extern "C" {

// The signature is that of vro_run_function; lengths and block_length are not read: the block is always
// TEV_REQUEST_BYTES long.
TEV_EXPORT void be_card_invoke_handler(uint32_t buffer_count, void** buffers, uint64_t* lengths, void* block,
                                       uint16_t block_length, void* result, uint16_t result_length);

// The same under the name that hosts use.
TEV_EXPORT void ueaa_prv_card_invoke(uint32_t buffer_count, void** buffers, uint64_t* lengths, void* block,
                                     uint16_t block_length, void* result, uint16_t result_length);
}
