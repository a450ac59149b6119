// SPDX-License-Identifier: BSD-3-Clause
// How a range 0 .. n is divided among the threads of a team. Every parallel driver divides its work by one of these
// three rules, and the order of additions in a result depends on them: the bounds must never change.
//
//   divbythreads     n = 10, 4 threads                 |012|345|67|89|             equal counts, the first n mod t get
//   1 more divbythreadsnb   n = 30, 3 threads, blocks of 4    |4 4 4|4 4|4 4 2|           whole blocks; the rest to the
//   last thread divbythreadstr   n =  8, 3 threads, "U"            |0123|45|67|                equal areas of a
//   triangle
//
// The parts of threads 0, 1, 2 ... follow one another and cover 0 .. n. A team of fewer than two threads gives all to
// thread 0; a thread outside the team gets start 0, count 0. Each function returns the start and writes the count.
// Lengths, orders and thread numbers of any size are fine; nothing overflows.
#pragma once

#include <cstdint>

extern "C" {

int64_t tev_serv_divbythreads(const int64_t* index, const int64_t* threads, const int64_t* length, int64_t* count);

// A block size below 1 gives all to thread 0.
int64_t tev_serv_divbythreadsnb(const int64_t* index, const int64_t* threads, const int64_t* length,
                                const int64_t* block, int64_t* count);

// Columns of a triangle of the given order. "U" or "u": column j holds j + 1 elements, the late columns are long.
// Any other letter: column j holds n - j elements, the early columns are long.
int64_t tev_serv_divbythreadstr(const int64_t* index, const int64_t* threads, const int64_t* order,
                                const char* triangle, int64_t* count);

}  // extern "C"
