// SPDX-License-Identifier: BSD-3-Clause
// The share of one thread of a team: which rows, columns or block of an operand it works on. The shares of threads
// 0 .. options.threads - 1 cover the operand and do not overlap; a thread without work gets extents of 0.
//
//   kEvenChunks      10 over 4    |012|345|678|9|        like the first, the last takes the rest
//   kBalancedChunks  10 over 4    |012|345|67|89|        sizes differ by one at most
//   kBlockChunks     10 over 4, blocks of 4    |0123|456789|||    whole register tiles, the rest with one thread
//
// Narrowing changes the operand's address, its rows, columns and offsets, and leaves `extent` as it is.
#pragma once

#include "blas_threading/gemm/options.h"
#include "kernels/records.h"

namespace tev::blas {

// Narrows x to the share of options.thread: along the rows in mode kByRows, the columns in kByColumns; any other mode
// leaves it. Blocks are plan.mr rows or plan.nr columns.
void partition_1d(operand& x, thread_options& options, const kernels::strategy& plan);

// Narrows A, B and C to the thread's block of the pr x pc grid over C. Writes pr, pc and threads: in dynamic mode a
// grid may need fewer lines than asked for.
void partition_2d(operand& a, operand& b, operand& c, thread_options& options, const kernels::strategy& plan);

// Rows [row, row + rows) and columns [column, column + columns) of C.
struct block {
  int64_t row, column, rows, columns;
};

// The block of one thread when the user asks for stripes: min(threads, stripes) of them, each cut among the threads
// left per stripe, in whole groups of 8 rows and columns. Threads without work get a block without rows or columns.
block stripe_block(int64_t thread, int64_t threads, int64_t stripes, int64_t m, int64_t n);

}  // namespace tev::blas
