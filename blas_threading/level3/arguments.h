// SPDX-License-Identifier: BSD-3-Clause
// Argument errors of level 3: what each routine checks, in which order, and the number that it reports.
#pragma once

#include <cstdint>

#include "blas_threading/element.h"

namespace tev::blas {

enum class level3_kind { product, triangle, rank_k, rank_2k };  // a symmetric product, a triangular one ...

struct level3_routine {
  level3_kind kind;
  const char* stem;            // its name without the precision
  const char* transpositions;  // the letters it knows, "" where it has none
};
inline constexpr level3_routine kSymm = {level3_kind::product, "SYMM", ""}, kHemm = {level3_kind::product, "HEMM", ""},
                                kTrmm = {level3_kind::triangle, "TRMM", "NTC"},
                                kTrsm = {level3_kind::triangle, "TRSM", "NTC"},
                                kHerk = {level3_kind::rank_k, "HERK", "NC"},
                                kHer2k = {level3_kind::rank_2k, "HER2K", "NC"};
// The complex ones have no "C": that is herk and her2k.
template <class T>
inline constexpr level3_routine kSyrk = {level3_kind::rank_k, "SYRK", kComplex<T> ? "NT" : "NTC"};
template <class T>
inline constexpr level3_routine kSyr2k = {level3_kind::rank_2k, "SYR2K", kComplex<T> ? "NT" : "NTC"};

// The arguments that are checked. Those that a routine lacks are not looked at.
struct level3_arguments {
  char side, uplo, trans, diag;
  int64_t m, n, k, lda, ldb, ldc;
};

// Reports the first wrong argument, if there is one. False: nothing is to be computed.
template <class T>
bool arguments_are_right(const level3_routine& routine, const level3_arguments& x);

}  // namespace tev::blas
