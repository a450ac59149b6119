// SPDX-License-Identifier: BSD-3-Clause
// What the user asks for, and what it means once every option, file and size has been judged: nothing is sent to a sink
// that the sink would refuse.
#pragma once

#include <complex>
#include <cstdint>
#include <optional>
#include <string>

#include "host/kinds.h"
#include "host/npy.h"

namespace tev::host {

// As written on the command line; an empty text was not given.
struct call_request {
  std::string operation;
  std::string precision;
  std::string transa, transb, side, uplo, diag, direct, storev;
  std::optional<int64_t> m, n, k;  // not negative
  std::string alpha, beta;
  std::string a, b, c;  // files
  std::string out;
  uint64_t seed = 1;
  bool check = false;
  int repeat = 1;
  // Of whole factorizations (host/linear_system.h).
  std::string where;
  std::optional<int64_t> right_sides;
  int host_threads = 0;  // 0: not given
  std::string factors, trace;
  bool records = false;
};

struct matrix_size {
  int64_t rows, columns;
};

struct call {
  operation op;
  bool is_step;  // sent to the worker of that step of a factorization
  precision type;
  char transa, transb, side, uplo, diag, direct, storev;
  int64_t m, n, k;  // k: 0 where there is none; m of syrk: n
  std::complex<double> alpha, beta;
  std::optional<npy_file> a, b, c;  // none: generated from the seed
  std::string out;                  // empty: the result is not kept
  uint64_t seed;
  bool check;
  int repeat;

  matrix_size size_a() const;
  matrix_size size_b() const;
  bool has_b() const { return op != operation::syrk && !is_lapack(op); }
  bool reads_c() const { return !is_in_place(op) && beta != 0.0; }
  double flop_count() const { return flops(op, type, side, m, n, k); }
};

// Memory that could be had without swapping; more than any machine has when the system does not tell.
double available_bytes();

// Opens the files, too. Throws a bad_input() that names what is wrong.
call resolve(const call_request& request);

}  // namespace tev::host
