/* SPDX-License-Identifier: BSD-3-Clause */
/* Checking a request before it is sent (libtev_check). The sink believes what a request block says: a wrong size or
 * leading dimension makes it read and write beyond the host's buffers, in its own memory. A host knows how long each
 * buffer is, so it can have every block looked at here first. C11 and C++20; needs neither the runtime nor a sink. */
#ifndef TEV_CHECK_H
#define TEV_CHECK_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What is wrong with a request; the text tells where, what was found there and what was expected. */
enum {
  TEV_CHECK_OK = 0,
  TEV_CHECK_BLOCK = 1,     /* not TEV_REQUEST_BYTES long, or a code that every sink ignores */
  TEV_CHECK_STRING = 2,    /* a name is empty, or a string does not end in its field */
  TEV_CHECK_COUNT = 3,     /* more buffers than a request may have, or not as many as the worker uses */
  TEV_CHECK_PINNING = 4,   /* pinning is asked for, with impossible numbers of processors or threads */
  TEV_CHECK_OPTION = 5,    /* a letter that the routine does not know */
  TEV_CHECK_SIZE = 6,      /* a negative m, n or k */
  TEV_CHECK_LEADING = 7,   /* a leading dimension below the rows of its matrix, or below 1 */
  TEV_CHECK_OFFSET = 8,    /* a relocation out of its buffer, or to the middle of a number */
  TEV_CHECK_BUFFER = 9,    /* a matrix does not fit behind the relocation in its buffer */
  TEV_CHECK_PARAMETER = 10 /* a step worker would ignore the request: the parameter is not the size of its record */
};

enum { TEV_CHECK_TEXT_BYTES = 256 }; /* room for every text */

/* Checks one call of `ueaa_prv_card_invoke`:
 *
 *   block, block_bytes   the request block (tev/request.h) as it will be sent, at any address
 *   buffer_bytes         the length of each of the buffer_count buffers that go with it, in their order
 *   text, text_bytes     receives what is wrong, or ""; cut to its room; may be NULL when text_bytes is 0
 *
 * Returns TEV_CHECK_OK or the first fault. A worker's matrices must lie in their buffers as a whole, also where the
 * routine would not look at them (a factor of zero, an empty result); columns to interchange with all rows of their
 * leading dimension, since a pivot may name each of them. Buffers that a worker does not use are not looked at. Of
 * workers that are not known here, and of the codes 0, 6 and 7, only what frames them is checked. */
int tev_check_request(const void* block, size_t block_bytes, const uint64_t* buffer_bytes, uint32_t buffer_count,
                      char* text, size_t text_bytes);

#ifdef __cplusplus
}
#endif

#endif
