// SPDX-License-Identifier: BSD-3-Clause
// The names and the integers of one interface. The files that define exported names are compiled once for each:
//
//                                  integers   Fortran      C
//   TEV_WIDTH 32                   32 bits    dgemm_       cblas_dgemm
//   TEV_WIDTH 64                   64 bits    dgemm_       cblas_dgemm
//   TEV_WIDTH 64, TEV_SUFFIXED     64 bits    dgemm_64_    cblas_dgemm_64 and cblas_dgemm64_
#pragma once

#include <cstddef>
#include <cstdint>

#include "tev/types.h"

#define TEV_JOINED(a, b) a##b
#define TEV_JOIN(a, b) TEV_JOINED(a, b)

#if defined(TEV_SUFFIXED)
#define TEV_FORTRAN(name) TEV_JOIN(name, _64_)
#define TEV_C(name) TEV_JOIN(name, _64)
#define TEV_SECOND_C_NAME(name) extern "C" TEV_EXPORT decltype(name##_64) name##64_ __attribute__((alias(#name "_64")));
#else
#define TEV_FORTRAN(name) TEV_JOIN(name, _)
#define TEV_C(name) name
#define TEV_SECOND_C_NAME(name)
#endif

namespace tev::shim {
namespace {  // each interface has its own

#if TEV_WIDTH == 32
using integer = int32_t;
#else
using integer = int64_t;
#endif

}  // namespace
}  // namespace tev::shim

// What the reference calls for a wrong argument; a program may bring its own.
extern "C" {
TEV_EXPORT void TEV_FORTRAN(xerbla)(const char* name, const tev::shim::integer* position, size_t length);
TEV_EXPORT void TEV_C(cblas_xerbla)(tev::shim::integer position, const char* name, const char* form, ...);

// Of the reference's C interface, for those two to read: whether the call came through it, with row-major matrices.
TEV_EXPORT extern int CBLAS_CallFromC, RowMajorStrg;
}
