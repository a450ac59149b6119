// SPDX-License-Identifier: BSD-3-Clause
// Deep products of operands that stay where they are go along k in stretches. Where both operands come from beyond the
// second cache, the next stretch of them is fetched into it while one is used.
#pragma once

#include "kernels/families/clashes.h"
#include "kernels/families/transposed_strip-inl.h"
#include "kernels/families/upcoming-inl.h"

namespace tev::TEV_TIER {

inline constexpr int64_t kHalfSecondCache = 512 * 1024;  // of the smallest

// One operand of a product in reals: where it starts and its strides, to the next row and to the next column of op(X).
template <class R>
struct walk {
  const R* at;
  int64_t row, column;
};
template <class T, class R = real_of<T>>
TEV_INLINE walk<R> walk_of(const T* x, bool transposed, int64_t ld) {
  const int64_t one = kParts<T>, across = ld * kParts<T>;
  const R* at = reinterpret_cast<const R*>(x);
  return transposed ? walk<R>{at, across, one} : walk<R>{at, one, across};
}

// So many tiles at least take long enough for what they fetch. Where 32 registers have room for tall tiles, a single
// strip of A makes the first of two tiles wait for lines of B that hold the columns of both, while columns that lie
// along k come by themselves. Found on 32 KiB / 1 MiB.
inline constexpr int64_t kTilesToFetch = 12, kTilesOfSharedLines = 2, kNeverFetched = INT64_MAX;

// op(A), m rows, and op(B), n columns, k deep.
template <class T, class R = real_of<T>>
class fetched_stretches {
 public:
  // `tiles` of C take turns with every stretch, `at_once` numbers along k in a step, and are enough from `least` on.
  TEV_INLINE fetched_stretches(int64_t m, int64_t n, int64_t k, walk<R> a, walk<R> b, int64_t deepest, int64_t tiles,
                               int64_t least = kTilesToFetch, int64_t at_once = 1)
      : m_(m), n_(n), k_(k), deepest_(deepest), steps_(tiles * deepest / at_once), a_(a), b_(b) {
    const line_runs of_a = lines_of_a(0, deepest), of_b = lines_of_b(0, deepest);
    pays_ = kHasFma && deepest < k && tiles >= least && fit_second_cache(of_a, of_b);
  }

  TEV_INLINE bool pays() const { return pays_; }

  // What to fetch while the stretch from p on is used, or null.
  TEV_INLINE upcoming* beside(int64_t p) {
    const int64_t next = p + deepest_;
    if (!pays_ || next >= k_) return nullptr;
    const int64_t depth = min_of(deepest_, k_ - next);
    next_ = within(steps_, lines_of_a(next, depth), lines_of_b(next, depth));
    return &next_;
  }

 private:
  // `count` rows or columns: `along` from one step of k to the next, `across` from one of them to the next.
  TEV_INLINE static line_runs lines_of_stretch(int64_t count, int64_t depth, const R* at, int64_t along,
                                               int64_t across) {
    return along == kParts<T> ? lines_of(at, depth * kParts<T>, count, across)
                              : lines_of(at, count * kParts<T>, depth, along);
  }
  TEV_INLINE line_runs lines_of_a(int64_t p, int64_t depth) const {
    return lines_of_stretch(m_, depth, a_.at + p * a_.column, a_.column, a_.row);
  }
  TEV_INLINE line_runs lines_of_b(int64_t p, int64_t depth) const {
    return lines_of_stretch(n_, depth, b_.at + p * b_.row, b_.row, b_.column);
  }
  // Twice, that is: beside the stretch that is used. The smallest has 1 MiB in 8 ways.
  TEV_INLINE static bool fit_second_cache(const line_runs& a, const line_runs& b) {
    constexpr int64_t kWayBytes = 128 * 1024, kHalfOfWays = 4;
    return (a.lines * a.runs + b.lines * b.runs) * kLineBytes <= kHalfSecondCache &&
           !pieces_clash(a.runs, a.apart, kWayBytes, kHalfOfWays) &&
           !pieces_clash(b.runs, b.apart, kWayBytes, kHalfOfWays);
  }

  int64_t m_, n_, k_, deepest_, steps_;
  walk<R> a_, b_;
  bool pays_;
  upcoming next_;
};

}  // namespace tev::TEV_TIER
