/* SPDX-License-Identifier: BSD-3-Clause */
/* For libraries that stand over this one, of which a program may have several. C11 and C++20. */
#ifndef TEV_FRONT_END_H
#define TEV_FRONT_END_H

#include "tev/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One block for all callers in the process to agree in, zeroed, never released; null when memory is short. All of them
 * ask for the same number of bytes. */
TEV_EXPORT void* tev_serv_front_end_data(int64_t bytes);

/* Processors that a team of the calling thread may run on: those of its affinity, or, where the OpenMP runtime binds
 * threads and so perhaps this one to a single place, those of all places. 0 when the system does not tell. */
TEV_EXPORT int32_t tev_serv_usable_processors(void);

/* The OpenMP runtime registers a process by a name in /dev/shm, by which a second runtime in it would notice the first,
 * and leaves it there when the process is killed or ends by _exit. This removes it; nothing happens where there is
 * none. Forked children of a process that has called the library need nobody to do so. */
TEV_EXPORT void tev_serv_remove_openmp_name(int32_t process);

#ifdef __cplusplus
}
#endif

#endif
