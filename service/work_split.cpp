// SPDX-License-Identifier: BSD-3-Clause
// The three rules of division. The blocked one is the even one applied to whole blocks; the triangular one places the
// boundary between two threads where the triangle's area up to it is the right multiple of one thread's share.
#include "service/work_split.h"

#include <algorithm>
#include <cmath>

#include "service/scalar.h"

namespace {

__extension__ typedef __int128 wide_int;  // n (n + 1) / 2 passes 64 bits from n = 2^32 on

struct part {
  int64_t start, count;  // elements
};

part even_part(int64_t i, int64_t t, int64_t n) {
  if (t < 2) {
    return {0, i == 0 ? n : 0};
  }
  if (i < 0 || i >= t) {
    return {0, 0};
  }
  const int64_t q = n / t;
  const int64_t r = n % t;
  return {q * i + std::min(i, r), i < r ? q + 1 : q};
}

part blocked_part(int64_t i, int64_t t, int64_t n, int64_t b) {
  if (t < 2 || b < 1) {
    return {0, i == 0 ? n : 0};
  }
  const part blocks = even_part(i, t, n / b);
  return {blocks.start * b, blocks.count * b + (i == t - 1 ? n % b : 0)};
}

// First column that belongs to thread i or a later one; `share` is the area of one thread. Computed in double
// precision and truncated, deliberately: an exact square root would move some boundaries by a column.
int64_t triangle_boundary(int64_t i, int64_t t, int64_t n, double share, bool upper) {
  if (i == 0) {
    return 0;
  }
  if (i == t) {
    return n;
  }
  const auto shares = static_cast<double>(upper ? i : t - i);
  const double columns = (std::sqrt(8.0 * shares * share + 1.0) - 1.0) / 2.0;
  // Above 2^53 rounding can carry the boundary past n.
  const int64_t whole = columns < static_cast<double>(n) ? static_cast<int64_t>(columns) : n;
  return upper ? whole : n - whole;
}

part triangle_part(int64_t i, int64_t t, int64_t n, bool upper) {
  if (t < 2 || i < 0 || i >= t) {
    return even_part(i, t, n);
  }
  n = std::max<int64_t>(n, 0);
  const auto share = static_cast<double>(static_cast<wide_int>(n) * (static_cast<wide_int>(n) + 1) / 2 / t);
  const int64_t first = triangle_boundary(i, t, n, share, upper);
  const int64_t last = triangle_boundary(i + 1, t, n, share, upper);
  return {first, last - first};
}

int64_t deliver(const part& result, int64_t* count) {
  *count = result.count;
  return result.start;
}

}  // namespace

extern "C" {

int64_t tev_serv_divbythreads(const int64_t* index, const int64_t* threads, const int64_t* length, int64_t* count) {
  return deliver(even_part(*index, *threads, *length), count);
}

int64_t tev_serv_divbythreadsnb(const int64_t* index, const int64_t* threads, const int64_t* length,
                                const int64_t* block, int64_t* count) {
  return deliver(blocked_part(*index, *threads, *length, *block), count);
}

int64_t tev_serv_divbythreadstr(const int64_t* index, const int64_t* threads, const int64_t* order,
                                const char* triangle, int64_t* count) {
  return deliver(triangle_part(*index, *threads, *order, tev_serv_lsame(triangle, "U") != 0), count);
}

}  // extern "C"
