// SPDX-License-Identifier: BSD-3-Clause
// The chunk rules along one dimension, and the grids made of two of them.
#include "blas_threading/gemm/partition.h"

#include <algorithm>

#include "blas_threading/team/team.h"

namespace tev::blas {

namespace {

struct range {
  int64_t start, size;
};

void narrow(operand& x, const range& rows, const range& columns) {
  x.data = x.at(rows.start, columns.start, &x);
  x.rows = rows.size;
  x.columns = columns.size;
  x.row_offset += rows.start;
  x.column_offset += columns.start;
}

range all(int64_t extent) { return {0, extent}; }

// ---- One dimension: n elements, thread i of p -----------------------------------------------------------------------

range even_chunk(int64_t n, int64_t p, int64_t i) {
  int64_t chunk = n / p;
  if (chunk + 1 < n - chunk * (p - 1)) ++chunk;
  const int64_t start = i * chunk, size = i == p - 1 ? n - start : chunk;
  if (start >= n) return {0, 0};
  return {start, std::min(size, n - start)};
}

range balanced_chunk(int64_t n, int64_t p, int64_t i) {
  const int64_t chunk = n / p, longer = n % p;
  return {chunk * i + std::min(i, longer), chunk + (i < longer ? 1 : 0)};
}

range block_chunk(int64_t n, int64_t p, int64_t i, int64_t block) {
  const int64_t base = n / p / block * block, rest = n - p * base;
  if (rest <= block) return i == 0 ? range{0, base + rest} : range{base * i + rest, base};
  const int64_t longer = rest / block;
  if (i < longer - 1) return {(base + block) * i, base + block};
  if (i == longer - 1) return {(base + block) * i, base + std::max(block, rest - i * block)};
  return {base * i + rest, base};
}

range chunk_of(int64_t n, const thread_options& o, int64_t block) {
  switch (o.chunk_rule) {
    case kBlockChunks:
      return block_chunk(n, o.threads, o.thread, block);
    case kBalancedChunks:
      return balanced_chunk(n, o.threads, o.thread);
    default:
      return even_chunk(n, o.threads, o.thread);
  }
}

// ---- One dimension of a grid ----------------------------------------------------------------------------------------

// `big` groups of big_size, then groups of small_size; the last of the `groups` takes what is left.
struct lines {
  int64_t groups, big, big_size, small_size;
};

// In whole tiles; element by element when the team's size is fixed and there are fewer tiles than groups.
lines tiled_lines(int64_t n, int64_t groups, int64_t tile, bool dynamic) {
  if (!dynamic && ceil_div(n, tile) < groups) tile = 1;
  const int64_t tiles = ceil_div(n, tile);
  groups = std::min(groups, tiles);
  const int64_t size = tiles / groups * tile;
  return {groups, tiles % groups, size + tile, size};
}

// `by_two`: a long last group may widen the others by two elements instead of one.
lines even_lines(int64_t n, int64_t groups, bool dynamic, bool by_two) {
  const int64_t size = n / groups, last = n - size * (groups - 1);
  if (size + 1 >= last) return {groups, 0, size, size};
  if (!dynamic) return {groups, n % groups, size + 1, size};
  const int64_t wider = size + (by_two && last > groups ? 2 : 1), fewer = ceil_div(n, wider);
  return {fewer, fewer - 1, wider, wider - 1};
}

range range_of(const lines& l, int64_t index, int64_t n) {
  const int64_t start = index * l.small_size + std::min(index, l.big) * (l.big_size - l.small_size);
  int64_t size = index < l.big ? l.big_size : l.small_size;
  if (index == l.groups - 1) size = std::max<int64_t>(n - start, 0);
  return {std::clamp<int64_t>(start, 0, std::max<int64_t>(n - 1, 0)), size};
}

}  // namespace

void partition_1d(operand& x, thread_options& options, const kernels::strategy& plan) {
  const bool by_rows = options.partition_mode == kByRows;
  if (!by_rows && options.partition_mode != kByColumns) return;
  const int64_t extent = by_rows ? x.rows : x.columns;
  if (options.chunk_rule == kBalancedChunks) options.remainder = extent % options.threads;
  const range share = chunk_of(extent, options, by_rows ? plan.mr : plan.nr);
  if (by_rows)
    narrow(x, share, all(x.columns));
  else
    narrow(x, all(x.rows), share);
}

void partition_2d(operand& a, operand& b, operand& c, thread_options& options, const kernels::strategy& plan) {
  const bool dynamic = options.machine.dynamic != 0, tiled = options.chunk_rule == kBlockChunks;
  const lines across =
      tiled ? tiled_lines(c.rows, options.pr, plan.mr, dynamic) : even_lines(c.rows, options.pr, dynamic, true);
  const lines along =
      tiled ? tiled_lines(c.columns, options.pc, plan.nr, dynamic) : even_lines(c.columns, options.pc, dynamic, false);
  options.pr = across.groups;
  options.pc = along.groups;
  options.threads = options.pr * options.pc;

  range rows = {0, 0}, columns = {0, 0};
  const int64_t i = options.thread;
  const bool idle = i >= options.threads;
  if (!idle) {
    const bool row_major = options.partition_mode == kGridByRows;
    rows = range_of(across, row_major ? i / options.pc : i % options.pr, c.rows);
    columns = range_of(along, row_major ? i % options.pc : i / options.pr, c.columns);
  }
  narrow(a, rows, all(idle ? 0 : a.columns));
  narrow(b, all(idle ? 0 : b.rows), columns);
  narrow(c, rows, columns);
}

block stripe_block(int64_t thread, int64_t threads, int64_t stripes, int64_t m, int64_t n) {
  const int64_t across = std::min(threads, stripes), along = std::max<int64_t>(threads / stripes, 1);
  const int64_t rows = ceil_div(ceil_div(m, across), 8) * 8, columns = ceil_div(ceil_div(n, along), 8) * 8;
  const int64_t row = thread % across * rows, column = thread / across * columns;
  if (row >= m || column >= n) return {0, 0, 0, 0};
  return {row, column, std::min(rows, m - row), std::min(columns, n - column)};
}

}  // namespace tev::blas
