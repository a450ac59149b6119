// SPDX-License-Identifier: BSD-3-Clause
// The level-3 operations as a table: their letters, operands and flops, and how a library's routine is called. Their
// shapes, with alpha 1 and beta 0:
//
//   product      C := op(A) op(B)                     letters transa transb            C is m x n
//   symmetric    C := A B, B A                        letters side uplo                C is m x n
//   rank_k       C := op(A) op(A)^T                   letters uplo trans               C is n x n, m = n
//   rank_2k      C := op(A) op(B)^T + op(B) op(A)^T   letters uplo trans               C is n x n, m = n
//   triangular   C := op(A) C, C op(A), or solved     letters side uplo trans diag     C is m x n
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tev::contest {

enum class shape { product, symmetric, rank_k, rank_2k, triangular };

struct operation {
  const char* name;
  shape kind;
  bool hermitian;  // conjugates where the others only transpose; complex precisions only
  bool solves;
};

struct level3_case {
  std::string letters;  // in the routine's order
  int64_t m, n, k;      // k: 0 where the operation has none
  int64_t ld;           // of every operand; 0, or less than allowed: the least allowed
};

struct extent {
  int64_t rows, columns;
};

// B is 0 x 0 where the operation has none.
struct extents {
  extent a, b, c;
};

// Null when there is none of this name and precision.
const operation* find_operation(const std::string& name, char precision);

inline bool is_complex(char precision) { return precision == 'c' || precision == 'z'; }
inline bool is_single(char precision) { return precision == 's' || precision == 'c'; }

// Every combination of letters, diag always N.
std::vector<std::string> letter_combinations(const operation& op, char precision);

// The order of a symmetric or triangular operand.
int64_t order_of(const level3_case& c);
extents extents_of(const operation& op, const level3_case& c);

struct leading_dimensions {
  int64_t a, b, c;
};
leading_dimensions leading_dimensions_of(const operation& op, const level3_case& c);

double flops_of(const operation& op, const level3_case& c, char precision);

// Calls a routine of the reference BLAS's interface. `one` and `zero` are alpha and beta in the routine's element type,
// whose first part is the real scalar of the hermitian updates.
void call(const operation& op, void* routine, const level3_case& c, const leading_dimensions& ld, const void* one,
          const void* zero, const void* a, const void* b, void* result);

}  // namespace tev::contest
