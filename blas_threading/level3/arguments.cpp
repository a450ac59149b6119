// SPDX-License-Identifier: BSD-3-Clause
#include "blas_threading/level3/arguments.h"

#include <algorithm>
#include <string_view>

#include "blas_threading/wrong_argument.h"
#include "kernels/operation.h"

namespace tev::blas {

namespace {

// What a kind of routine checks, in this order, and the arguments' numbers: s(ide), u(plo), t(rans), d(iag), m, n, k,
// and a, b, c for the leading dimensions.
struct checks {
  const char* arguments;
  int32_t positions[8];
};
constexpr checks kChecks[] = {{"sumnabc", {1, 2, 3, 4, 7, 9, 12}},
                              {"sutdmnab", {1, 2, 3, 4, 5, 6, 9, 11}},
                              {"utnkac", {1, 2, 3, 4, 7, 10}},
                              {"utnkabc", {1, 2, 3, 4, 7, 9, 12}}};

bool is_one_of(char letter, std::string_view letters) {
  return letters.find(kernels::upper_case(letter)) != std::string_view::npos;
}

bool holds_rows(int64_t leading_dimension, int64_t rows) { return leading_dimension >= std::max<int64_t>(1, rows); }

bool is_right(char argument, const level3_routine& routine, const level3_arguments& x) {
  const bool rank = routine.kind == level3_kind::rank_k || routine.kind == level3_kind::rank_2k;
  const int64_t rows_of_a = rank ? (is_one_of(x.trans, "N") ? x.n : x.k) : is_one_of(x.side, "L") ? x.m : x.n;
  switch (argument) {
    case 's':
      return is_one_of(x.side, "LR");
    case 'u':
      return is_one_of(x.uplo, "UL");
    case 't':
      return is_one_of(x.trans, routine.transpositions);
    case 'd':
      return is_one_of(x.diag, "UN");
    case 'm':
      return x.m >= 0;
    case 'n':
      return x.n >= 0;
    case 'k':
      return x.k >= 0;
    case 'a':
      return holds_rows(x.lda, rows_of_a);
    case 'b':
      return holds_rows(x.ldb, rank ? rows_of_a : x.m);
    default:
      return holds_rows(x.ldc, rank ? x.n : x.m);
  }
}

}  // namespace

template <class T>
bool arguments_are_right(const level3_routine& routine, const level3_arguments& x) {
  const checks& all = kChecks[static_cast<int>(routine.kind)];
  for (const char* argument = all.arguments; *argument != '\0'; ++argument) {
    if (is_right(*argument, routine, x)) continue;
    report_wrong_argument<T>(routine.stem, all.positions[argument - all.arguments]);
    return false;
  }
  return true;
}

#define TEV_INSTANTIATE(p, T) template bool arguments_are_right<T>(const level3_routine&, const level3_arguments&);
TEV_FOR_EACH_PRECISION(TEV_INSTANTIATE)
#undef TEV_INSTANTIATE

}  // namespace tev::blas
