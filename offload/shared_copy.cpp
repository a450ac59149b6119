// SPDX-License-Identifier: BSD-3-Clause
#include "offload/shared_copy.h"

#include <omp.h>

#include <algorithm>
#include <cstring>

#include "tev/service.h"

namespace tev::offload {
namespace {

constexpr int64_t kPieceBytes = 1 << 18;  // what a thread copies at a time; less is not worth a second one

struct span_of_rows {
  int64_t begin, end;
};

span_of_rows rows_of(const stored_matrix& x, int64_t column) {
  if (x.what == part::upper) return {0, std::min(column + 1, x.rows)};
  return {x.what == part::lower ? std::min(column, x.rows) : 0, x.rows};
}

// Of one column the rows [begin, end) that belong to the part.
void copy_rows(const stored_matrix& from, const stored_matrix& to, int64_t column, int64_t begin, int64_t end) {
  const span_of_rows own = rows_of(from, column);
  begin = std::max(begin, own.begin);
  end = std::min(end, own.end);
  if (begin < end)
    std::memcpy(to.data + (begin + column * to.ld) * to.element_bytes,
                from.data + (begin + column * from.ld) * from.element_bytes,
                static_cast<size_t>((end - begin) * from.element_bytes));
}

}  // namespace

void copy_matrix(const stored_matrix& from, const stored_matrix& to) {
  const int64_t rows = std::max<int64_t>(kPieceBytes / from.element_bytes, 1);  // of a piece, at most
  const int64_t pieces = (from.rows + rows - 1) / rows, most = from.packed_bytes() / kPieceBytes;
  const auto threads = static_cast<int>(std::clamp<int64_t>(most, 1, tev_serv_domain_get_max_threads(TEV_DOMAIN_BLAS)));
  const int usual_blocktime = kmp_get_blocktime();
  kmp_set_blocktime(0);
#pragma omp parallel for collapse(2) schedule(static) num_threads(threads) if (threads > 1)
  for (int64_t column = 0; column < from.columns; ++column)
    for (int64_t piece = 0; piece < pieces; ++piece) copy_rows(from, to, column, piece * rows, (piece + 1) * rows);
  kmp_set_blocktime(usual_blocktime);
}

}  // namespace tev::offload
