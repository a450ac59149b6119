/* SPDX-License-Identifier: BSD-3-Clause */
/* The offload runtime as a sink process sees it (libvro_device). C11 and C++20. */
#ifndef VRO_DEVICE_H
#define VRO_DEVICE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What a host can call by name: an exported function of the process. The arguments live until it returns.
 *   buffers, lengths   addresses and sizes in bytes of the buffers that the host attached, in the host's order
 *   misc               the host's miscellaneous data, writable; what the function leaves there travels back. Aligned
 *                      to 64 bytes; behind misc_length it reads as zeros, up to 65536 bytes in all
 *   result             room for result_length bytes, zeroed; travels back
 * A function that throws ends the process. */
typedef void vro_run_function(uint32_t buffer_count, void** buffers, uint64_t* lengths, void* misc,
                              uint16_t misc_length, void* result, uint16_t result_length);

/* Starts the pipeline: from now on run functions are called, one at a time and in the host's order, on a thread of the
 * runtime. Returns at once. A process that no host started prints one line on standard error and exits with status 2;
 * one that cannot make its pipeline exits with status 1, and its host is told why. */
void VROPipelineStartExecutingRunFunctions(void);

/* Blocks until the host asks for the end and every earlier request is done. If the host dies, the process ends with
 * status 1 from here, whatever is still running: nothing is called but what was registered with at_quick_exit. */
void VROProcessWaitForShutdown(void);

/* Loads a library: `file` first, then `name` in each directory of the colon-separated `search_path`.
 * `flags` are those of dlopen. Stores the dlopen handle and returns 0, or returns -1 and leaves *handle alone. */
int VROProcessLoadSinkLibraryFromFile(const char* file, const char* name, const char* search_path, uint32_t flags,
                                      void** handle);

#ifdef __cplusplus
}
#endif

#endif
