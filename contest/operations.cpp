// SPDX-License-Identifier: BSD-3-Clause
#include "contest/operations.h"

#include <algorithm>

namespace tev::contest {

namespace {

constexpr operation kOperations[] = {
    {"gemm", shape::product, false, false},   {"symm", shape::symmetric, false, false},
    {"hemm", shape::symmetric, true, false},  {"syrk", shape::rank_k, false, false},
    {"herk", shape::rank_k, true, false},     {"syr2k", shape::rank_2k, false, false},
    {"her2k", shape::rank_2k, true, false},   {"trmm", shape::triangular, false, false},
    {"trsm", shape::triangular, false, true},
};

// What each letter can be.
std::vector<std::string> letter_choices(const operation& op, char precision) {
  switch (op.kind) {
    case shape::product:
      return {"NT", "NT"};
    case shape::symmetric:
      return {"LR", "UL"};
    case shape::rank_k:
    case shape::rank_2k:
      return {"UL", op.hermitian ? "NC" : "NT"};
    case shape::triangular:
      return {"LR", "UL", is_complex(precision) ? "NTC" : "NT", "N"};
  }
}

// Every argument is an address, so no operand's type matters. The sizes have 64 bits: a library whose integers have 32
// reads the lower half.
template <class... Arguments>
void by_address(void* routine, Arguments... arguments) {
  reinterpret_cast<void (*)(Arguments...)>(routine)(arguments...);
}

}  // namespace

const operation* find_operation(const std::string& name, char precision) {
  const auto* found = std::find_if(std::begin(kOperations), std::end(kOperations),
                                   [&](const operation& op) { return op.name == name; });
  return found == std::end(kOperations) || (found->hermitian && !is_complex(precision)) ? nullptr : found;
}

std::vector<std::string> letter_combinations(const operation& op, char precision) {
  std::vector<std::string> all = {""};
  for (const std::string& choices : letter_choices(op, precision)) {
    std::vector<std::string> longer;
    for (const std::string& head : all)
      for (const char letter : choices) longer.push_back(head + letter);
    all = longer;
  }
  return all;
}

int64_t order_of(const level3_case& c) { return c.letters[0] == 'L' ? c.m : c.n; }

extents extents_of(const operation& op, const level3_case& c) {
  const auto transposed_unless_n = [](char letter, extent e) { return letter == 'N' ? e : extent{e.columns, e.rows}; };
  const extent result = {c.m, c.n};
  switch (op.kind) {
    case shape::product:
      return {transposed_unless_n(c.letters[0], {c.m, c.k}), transposed_unless_n(c.letters[1], {c.k, c.n}), result};
    case shape::symmetric:
      return {{order_of(c), order_of(c)}, result, result};
    case shape::rank_k:
      return {transposed_unless_n(c.letters[1], {c.n, c.k}), {}, result};
    case shape::rank_2k: {
      const extent factor = transposed_unless_n(c.letters[1], {c.n, c.k});
      return {factor, factor, result};
    }
    case shape::triangular:
      return {{order_of(c), order_of(c)}, {}, result};
  }
}

leading_dimensions leading_dimensions_of(const operation& op, const level3_case& c) {
  const extents e = extents_of(op, c);
  return {std::max(c.ld, e.a.rows), std::max(c.ld, e.b.rows), std::max(c.ld, e.c.rows)};
}

double flops_of(const operation& op, const level3_case& c, char precision) {
  const auto m = static_cast<double>(c.m), n = static_cast<double>(c.n), k = static_cast<double>(c.k);
  const double order = static_cast<double>(order_of(c)), scale = is_complex(precision) ? 4 : 1;
  switch (op.kind) {
    case shape::product:
      return scale * 2 * m * n * k;
    case shape::symmetric:
      return scale * 2 * order * m * n;
    case shape::rank_k:
      return scale * n * (n + 1) * k;
    case shape::rank_2k:
      return scale * 2 * n * (n + 1) * k;
    case shape::triangular:
      return scale * order * m * n;
  }
}

void call(const operation& op, void* routine, const level3_case& c, const leading_dimensions& ld, const void* one,
          const void* zero, const void* a, const void* b, void* result) {
  const char* const l = c.letters.c_str();
  const uint64_t letter_length = 1;  // compilers of Fortran hand it on; the entry points of ours take it
  switch (op.kind) {
    case shape::product:
      return by_address(routine, l, l + 1, &c.m, &c.n, &c.k, one, a, &ld.a, b, &ld.b, zero, result, &ld.c);
    case shape::symmetric:
      return by_address(routine, l, l + 1, &c.m, &c.n, one, a, &ld.a, b, &ld.b, zero, result, &ld.c);
    case shape::rank_k:
      return by_address(routine, l, l + 1, &c.n, &c.k, one, a, &ld.a, zero, result, &ld.c, letter_length,
                        letter_length);
    case shape::rank_2k:
      return by_address(routine, l, l + 1, &c.n, &c.k, one, a, &ld.a, b, &ld.b, zero, result, &ld.c);
    case shape::triangular:
      return by_address(routine, l, l + 1, l + 2, l + 3, &c.m, &c.n, one, a, &ld.a, result, &ld.c);
  }
}

}  // namespace tev::contest
