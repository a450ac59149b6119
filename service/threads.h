// SPDX-License-Identifier: BSD-3-Clause
// The thread settings behind tev/service.h. -1 means "not set". The program's setters write them without a lock; the
// environment fills what is still unset, once, with thread_settings_lock held.
#pragma once

#include <atomic>

#include "tev/service.h"

extern "C" {

extern int32_t __tev_num_threads;  // all domains
extern int32_t __tev_blas_num_threads;
extern int32_t __tev_fft_num_threads;
extern int32_t __tev_vort_num_threads;
extern int32_t __tev_pardiso_num_threads;
extern int32_t __tev_num_stripes;
extern int32_t __tev_dynamic;             // then 0 or 1
extern int32_t __omp_num_threads;         // OMP_NUM_THREADS
extern int32_t __tev_mpi_ppn;             // MPI processes per node, -1 also when unknown
extern int32_t __tev_mpi_thread_level;    // 0 to 3
extern int32_t __mpi_SAFETY_BLACS;        // tev_serv_mpi_safe
extern int32_t __threads_env_NOT_readed;  // nonzero until the settings were read and the machine probed

// The machine, valid once __threads_env_NOT_readed is 0.
extern int32_t __N_Logical_Cores;
extern int32_t __N_Physical_Cores;
extern int32_t __N_CPU_Packages;  // never 0
extern int32_t __N_Cores_per_Packages;
extern int32_t __HT;

}  // extern "C"

namespace tev::service {

extern int32_t usable_core_count;  // of the physical cores (service/topology.h), valid like the machine's counts

// Nobody asked for stripes. Also false until the settings were read.
inline bool knows_of_no_stripes() {
  return std::atomic_ref<int32_t>(__threads_env_NOT_readed).load(std::memory_order_acquire) == 0 &&
         std::atomic_ref<int32_t>(__tev_num_stripes).load(std::memory_order_relaxed) < 1;
}

}  // namespace tev::service
