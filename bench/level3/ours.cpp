// SPDX-License-Identifier: BSD-3-Clause
// Our own library as the benchmark loads it: what is measured are the entry points of the kernels, which no shared
// library of ours shows, and the front ends. Of another build it can be a peer: `--peer before=PATH/level3_ours.so`.
#include <string_view>

// Per routine a row: row(xsgemm), or without x, row(sgemm).
#define TEV_COMPLEX(row, x, op) row(x##c##op) row(x##z##op)
#define TEV_ALL(row, x, op) row(x##s##op) row(x##d##op) TEV_COMPLEX(row, x, op)
#define TEV_ENTRY_POINTS(row) \
  TEV_ALL(row, x, gemm)       \
  TEV_ALL(row, x, symm)       \
  TEV_ALL(row, x, syrk)       \
  TEV_ALL(row, x, trmm)       \
  TEV_ALL(row, x, trsm)       \
  TEV_ALL(row, x, syr2k) TEV_COMPLEX(row, x, hemm) TEV_COMPLEX(row, x, herk) TEV_COMPLEX(row, x, her2k)
#define TEV_FRONT_ENDS(row) \
  TEV_ALL(row, , gemm)      \
  TEV_ALL(row, , symm)      \
  TEV_ALL(row, , syrk)      \
  TEV_ALL(row, , trmm)      \
  TEV_ALL(row, , trsm) TEV_ALL(row, , syr2k) TEV_COMPLEX(row, , hemm) TEV_COMPLEX(row, , herk) TEV_COMPLEX(row, , her2k)

extern "C" {

// The argument lists are known to the caller.
#define TEV_DECLARE(name) void tev_blas_##name();
TEV_ENTRY_POINTS(TEV_DECLARE)
TEV_FRONT_ENDS(TEV_DECLARE)

// "xdgemm" is the entry point, "dgemm" the front end; null for what we have not.
__attribute__((visibility("default"))) void* tev_bench_routine(const char* name) {
  const std::string_view wanted = name;
#define TEV_FIND(name) \
  if (wanted == #name) return reinterpret_cast<void*>(tev_blas_##name);
  TEV_ENTRY_POINTS(TEV_FIND)
  TEV_FRONT_ENDS(TEV_FIND)
  return nullptr;
}

}  // extern "C"
