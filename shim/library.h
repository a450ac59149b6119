// SPDX-License-Identifier: BSD-3-Clause
// The library that computes, libtev.so.0, or libtev_offload.so.0, which has all of it, where calls may go to a sink.
// The first call opens it, for itself alone: its names, and those of its OpenMP runtime, stay out of the program's
// scope, and however many of these libraries a program loads, they open the same one.
#pragma once

#include <atomic>
#include <cstdint>

#include "tev/blas.h"
#include "tev/direct_kernels.h"
#include "tev/front_end.h"
#include "tev/lapack.h"
#include "tev/routed.h"
#include "tev/service.h"

namespace tev::shim {

struct functions {
#define TEV_MEMBER(name, base) decltype(&tev_blas_##base) name;
#define TEV_MATRIX(name, base, ...) TEV_MEMBER(name, base)
#define TEV_COPY(name, base, ...) TEV_MEMBER(name, base)
#define TEV_COMPOSED_MATRIX(...)
#define TEV_COMPOSED_VECTOR(...)
#define TEV_VECTOR(name, base, ...) TEV_MEMBER(name, base)
#define TEV_FUNCTION(name, base, ...) TEV_MEMBER(name, base)
#include "shim/each_routine.inc"
#undef TEV_MEMBER
#define TEV_LAPACK(name, ...) TEV_MEMBER(name)
#define TEV_MEMBER(name) decltype(&tev_lapack_##name) name;
#define TEV_TABLE "shim/lapack_routines.inc"
#include "shim/each_routine.inc"
#undef TEV_MEMBER
#define TEV_SERVICE(row)                                                                                \
  row(trust_features) row(cpu_detect) row(allocate) row(deallocate) row(domain_get_max_threads)         \
      row(domain_set_num_threads) row(set_num_threads_local) row(front_end_data) row(usable_processors) \
          row(get_cache_size) row(mpi_get_ppn) row(mpi_safe) row(remove_openmp_name) row(xerbla)
#define TEV_MEMBER(name) decltype(&tev_serv_##name) name;
  TEV_SERVICE(TEV_MEMBER)
#undef TEV_MEMBER
  // Null where no call goes to a sink.
#define TEV_ROUTING(row) row(set) row(took_sink) row(allocate) row(release)
#define TEV_MEMBER(name) decltype(&tev_routed_##name) routed_##name;
  TEV_ROUTING(TEV_MEMBER)
#undef TEV_MEMBER
};

extern std::atomic<const functions*> opened;
const functions& open_library();

inline const functions& library() {
  const functions* const known = opened.load(std::memory_order_acquire);
  return known ? *known : open_library();
}

// The kernels that a call may go to by itself. Null until the library has been opened, and where somebody wants to know
// of every call.
extern std::atomic<const tev_direct_kernels*> direct_kernels;

// Another number in every forked child.
extern std::atomic<uint32_t> process_number;

}  // namespace tev::shim
