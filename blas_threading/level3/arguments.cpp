// SPDX-License-Identifier: BSD-3-Clause
#include "blas_threading/level3/arguments.h"

#include <algorithm>
#include <string_view>

#include "blas_threading/wrong_argument.h"
#include "kernels/operation.h"

namespace tev::blas {

namespace {

enum class what { side, uplo, trans, diag, m, n, k, lda, ldb, ldc, end };

// What a kind of routine checks, in this order, and the argument's number.
struct check {
  what argument;
  int32_t position;
};
constexpr check kChecks[][9] = {
    {{what::side, 1},
     {what::uplo, 2},
     {what::m, 3},
     {what::n, 4},
     {what::lda, 7},
     {what::ldb, 9},
     {what::ldc, 12},
     {what::end, 0}},
    {{what::side, 1},
     {what::uplo, 2},
     {what::trans, 3},
     {what::diag, 4},
     {what::m, 5},
     {what::n, 6},
     {what::lda, 9},
     {what::ldb, 11},
     {what::end, 0}},
    {{what::uplo, 1}, {what::trans, 2}, {what::n, 3}, {what::k, 4}, {what::lda, 7}, {what::ldc, 10}, {what::end, 0}},
    {{what::uplo, 1},
     {what::trans, 2},
     {what::n, 3},
     {what::k, 4},
     {what::lda, 7},
     {what::ldb, 9},
     {what::ldc, 12},
     {what::end, 0}},
};

bool is_one_of(char letter, std::string_view letters) {
  return letters.find(kernels::upper_case(letter)) != std::string_view::npos;
}

bool holds_rows(int64_t leading_dimension, int64_t rows) { return leading_dimension >= std::max<int64_t>(1, rows); }

bool is_right(what argument, const level3_routine& routine, const level3_arguments& x) {
  const bool rank = routine.kind == level3_kind::rank_k || routine.kind == level3_kind::rank_2k;
  const int64_t rows_of_a = rank ? (is_one_of(x.trans, "N") ? x.n : x.k) : is_one_of(x.side, "L") ? x.m : x.n;
  switch (argument) {
    case what::side:
      return is_one_of(x.side, "LR");
    case what::uplo:
      return is_one_of(x.uplo, "UL");
    case what::trans:
      return is_one_of(x.trans, routine.transpositions);
    case what::diag:
      return is_one_of(x.diag, "UN");
    case what::m:
      return x.m >= 0;
    case what::n:
      return x.n >= 0;
    case what::k:
      return x.k >= 0;
    case what::lda:
      return holds_rows(x.lda, rows_of_a);
    case what::ldb:
      return holds_rows(x.ldb, rank ? rows_of_a : x.m);
    case what::ldc:
      return holds_rows(x.ldc, rank ? x.n : x.m);
    case what::end:
      break;
  }
  return true;
}

}  // namespace

template <class T>
bool arguments_are_right(const level3_routine& routine, const level3_arguments& x) {
  for (const check* c = kChecks[static_cast<int>(routine.kind)]; c->argument != what::end; ++c) {
    if (is_right(c->argument, routine, x)) continue;
    report_wrong_argument<T>(routine.stem, c->position);
    return false;
  }
  return true;
}

template bool arguments_are_right<float>(const level3_routine&, const level3_arguments&);
template bool arguments_are_right<double>(const level3_routine&, const level3_arguments&);
template bool arguments_are_right<tev_complex8>(const level3_routine&, const level3_arguments&);
template bool arguments_are_right<tev_complex16>(const level3_routine&, const level3_arguments&);

}  // namespace tev::blas
