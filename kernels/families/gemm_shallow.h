// SPDX-License-Identifier: BSD-3-Clause
// Shallow products are a matter of writing C: few steps of k, and a large C with long columns. They pack nothing and go
// down the columns of C. A C that is too large to be found in a cache later goes past the caches, straight to memory,
// where it consists of whole lines; elsewhere it goes the usual way: the same numbers, since where an operand lies must
// not show in the result. The tier that does not branch on addresses always goes that way.
#pragma once

#include "kernels/families/element-inl.h"

namespace tev::TEV_TIER {

// Complex elements do twice the work for a byte of C, so that packing pays sooner; but before that the kernels of a
// fixed depth, which go along the rows, are slower than columns as soon as C outgrows half of a second cache.
template <class T>
inline constexpr bool kShallowComplex = kHasFma&& kParts<T> == 2;
template <class T>
inline constexpr int64_t kShallowDepth = !kHasFma         ? 8
                                         : kParts<T> == 1 ? 16
                                                          : kVectorBytes / 8;

// Bytes of a long column, and of a C that is not expected to be found in the last cache again (48 KiB / 2 MiB: past the
// caches gains 1.2 to 2.3 times from 16 MiB on, and loses up to half below 12).
inline constexpr int64_t kLongColumn = 4096, kPastCaches = 12 * 1024 * 1024;
template <class T>
inline constexpr int64_t kLargeC = kShallowComplex<T> ? 512 * 1024 : kPastCaches;

template <class T>
TEV_INLINE bool is_shallow(char transa, int64_t m, int64_t n, int64_t k, T beta) {
  constexpr int64_t kSize = sizeof(T);
  return (transa & ~0x20) == 'N' && k <= kShallowDepth<T> && m * kSize >= kLongColumn && m * n > kLargeC<T> / kSize &&
         (kShallowComplex<T> || is_zero(beta));
}

// A real product so shallow that its C is written faster than tiles of it are summed up goes by shallow_columns-inl.h:
// with whole columns until C comes from memory, else while C is in reach of a second cache. Found on 48 KiB / 1 MiB.
inline constexpr int kDeepestByColumns = kVectorRegisters == 32 ? 8 : 6;  // more would leave registers for one column
inline constexpr int64_t kShallowSegmentBytes = 32 * 1024, kNearC = 2 * 1024 * 1024;

template <class T>
TEV_INLINE bool is_written_by_columns(char transa, int64_t m, int64_t n, int64_t k) {
  constexpr int64_t kSize = sizeof(T), kVector = kVectorBytes / kSize;
  constexpr int64_t kLeast = 4 * kVector;
  if (!kHasFma || kParts<T> == 2 || m < kLeast || k > kDeepestByColumns || k < 1) return false;
  const int64_t least = k > 6 ? 4 * kLeast : (transa & ~0x20) == 'N' ? kLeast : 2 * kLeast;
  const int64_t bytes = m * n * kSize;
  return m >= least && n >= 4 && (bytes <= kNearC || (m * k * kSize <= kShallowSegmentBytes && bytes <= kPastCaches));
}

// C is not read, too large, and all columns begin with a line.
template <class T>
TEV_INLINE bool goes_past_caches(int64_t m, int64_t n, T beta, const T* c, int64_t ldc) {
  constexpr int64_t kSize = sizeof(T);
  if constexpr (!kBranchesOnAddresses) return false;
  return is_zero(beta) && m * n > kPastCaches / kSize && reinterpret_cast<uintptr_t>(c) % kLineBytes == 0 &&
         ldc * kSize % kLineBytes == 0;
}

// C := alpha A op(B), past the caches whatever its size: a part of a C that goes_past_caches(), beginning with a line.
// Compiled with the unpacked product (exports/gemm_unpacked.inc).
template <class T>
void write_past_caches(char transb, int64_t m, int64_t n, int64_t k, T alpha, const T* a, int64_t lda, const T* b,
                       int64_t ldb, T* c, int64_t ldc);

}  // namespace tev::TEV_TIER
