// SPDX-License-Identifier: BSD-3-Clause
// A row-major matrix is the transpose of the column-major one in the same memory. So a call with row-major matrices is
// one with column-major ones whose arguments are turned:
//
//   product             C^T = op(B)^T op(A)^T       A and B change places
//   symmetric product   C^T = B^T A                 the other side, the other triangle
//   rank k, triangles                               the other triangle, the other transposition
//   matrix and vector                               the other transposition
//
// What is checked, and the positions that are reported, are those of the turned call, as in the reference.
//
// Where a vector meets a conjugated matrix, conj(A) remains, which no routine has: the equation is conjugated as a
// whole and so are its vectors and scalars, those that are only read as copies. That comes after the checks: turn()
// does what is above, run() computes.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <utility>

#include "shim/routines.h"

namespace tev::shim::row_major {

inline void exchange(char& letter, char one, char other) {
  letter = letter == one ? other : letter == other ? one : letter;
}
inline void turn_side(char& side) { exchange(side, 'L', 'R'); }
inline void turn_triangle(char& uplo) { exchange(uplo, 'U', 'L'); }
inline void turn_transposition(char& trans, char transposed) {
  if (trans != '?') trans = trans == 'N' ? transposed : 'N';
}

template <class E>
E conjugate(const E& x) {
  return {x.real, -x.imag};
}

// Of a vector that is only read.
template <class E>
class conjugated {
 public:
  conjugated(int64_t n, const E* x, int64_t incx)
      : elements_(static_cast<E*>(library().allocate((n < 1 ? 1 : n) * static_cast<int64_t>(sizeof(E)), 64))) {
    const E* const first = n > 0 && incx < 0 ? x - (n - 1) * incx : x;
    for (int64_t i = 0; elements_ && i < n; ++i) elements_[i] = conjugate(first[i * incx]);
  }
  ~conjugated() {
    if (elements_) library().deallocate(elements_);
  }
  conjugated(const conjugated&) = delete;
  conjugated& operator=(const conjugated&) = delete;
  bool ready() const { return elements_ != nullptr; }
  void replace(const E*& x, int64_t& incx) const { x = elements_, incx = 1; }

 private:
  E* const elements_;
};

// A call with the conjugates of x, or of x and y, instead of them.
void run_with_conjugated_x(auto& call, int64_t n) {
  const conjugated x(n, call.x, call.incx);
  if (!x.ready()) return report_no_memory(call);
  x.replace(call.x, call.incx);
  run(call);
}
void run_with_conjugated_vectors(auto& call, int64_t m, int64_t n) {
  const conjugated y(n, call.y, call.incy);
  if (!y.ready()) return report_no_memory(call);
  y.replace(call.y, call.incy);
  run_with_conjugated_x(call, m);
}

template <class E>
void conjugate_in_place(int64_t n, E* x, int64_t incx) {
  const int64_t apart = std::abs(incx);
  for (int64_t i = 0; i < n; ++i) x[i * apart] = conjugate(x[i * apart]);
}

// y := alpha conj(A) x + beta y for a call of y := alpha A x + beta y; y has m elements, x has n.
void run_with_conjugated_matrix(auto& x, int64_t m, int64_t n) {
  const auto alpha = conjugate(*x.alpha), beta = conjugate(*x.beta);
  x.alpha = &alpha;
  x.beta = &beta;
  const conjugated copy(n, x.x, x.incx);
  if (!copy.ready()) return report_no_memory(x);
  copy.replace(x.x, x.incx);
  conjugate_in_place(m, x.y, x.incy);
  run(x);
  conjugate_in_place(m, x.y, x.incy);
}

struct layout {
  static reported_name name(const reported_name& own) { return own; }
};
struct as_is : layout {
  void run(auto& x) { shim::run(x); }
};

// ---- Level 3

struct product : as_is {
  void turn(auto& x) {
    if constexpr (requires { x.uplo; }) turn_triangle(x.uplo);
    if constexpr (requires { x.m; }) std::swap(x.m, x.n);
    std::swap(x.transa, x.transb);
    std::swap(x.a, x.b);
    std::swap(x.lda, x.ldb);
  }
};

struct symmetric_product : as_is {
  void turn(auto& x) {
    turn_side(x.side);
    turn_triangle(x.uplo);
    std::swap(x.m, x.n);
  }
};

using triangle_product = symmetric_product;

struct rank_k : as_is {
  void turn(auto& x) {
    turn_triangle(x.uplo);
    turn_transposition(x.trans, 'T');
  }
};

struct hermitian_rank_k : as_is {
  void turn(auto& x) {
    turn_triangle(x.uplo);
    turn_transposition(x.trans, 'C');
  }
};

struct hermitian_rank_2k : hermitian_rank_k {
  void run(auto& x) {
    const auto alpha = conjugate(*x.alpha);
    x.alpha = &alpha;
    shim::run(x);
  }
};

// ---- Level 2

struct matrix_vector : layout {
  void turn(auto& x) {
    conjugates = x.trans == 'C';
    turn_transposition(x.trans, 'T');
    std::swap(x.m, x.n);
    if constexpr (requires { x.kl; }) std::swap(x.kl, x.ku);
  }
  template <class Call>
  void run(Call& x) {
    if constexpr (kComplex<typename Call::element>)
      if (conjugates) return run_with_conjugated_matrix(x, x.m, x.n);
    shim::run(x);
  }
  bool conjugates;
};

struct symmetric_vector : as_is {
  void turn(auto& x) { turn_triangle(x.uplo); }
};

struct hermitian_vector : symmetric_vector {
  void run(auto& x) { run_with_conjugated_matrix(x, x.n, x.n); }
};

struct triangle_vector : layout {
  void turn(auto& x) {
    conjugates = x.trans == 'C';
    turn_triangle(x.uplo);
    turn_transposition(x.trans, 'T');
  }
  template <class Call>
  void run(Call& x) {
    constexpr bool kConjugates = kComplex<typename Call::element>;
    if constexpr (kConjugates)
      if (conjugates) conjugate_in_place(x.n, x.x, x.incx);
    shim::run(x);
    if constexpr (kConjugates)
      if (conjugates) conjugate_in_place(x.n, x.x, x.incx);
  }
  bool conjugates;
};

struct rank_1 : as_is {
  void turn(auto& x) {
    std::swap(x.m, x.n);
    std::swap(x.x, x.y);
    std::swap(x.incx, x.incy);
  }
};

struct rank_1_conjugated : rank_1 {
  // The reference, too, calls ?geru then.
  static reported_name name(reported_name own) {
    own.text[4] = 'U';
    return own;
  }
  void run(auto& x) { run_with_conjugated_vectors(x, x.m, x.n); }
};

struct hermitian_rank_1 : symmetric_vector {
  void run(auto& x) { run_with_conjugated_x(x, x.n); }
};

struct hermitian_rank_2 : layout {
  void turn(auto& x) {
    turn_triangle(x.uplo);
    std::swap(x.x, x.y);
    std::swap(x.incx, x.incy);
  }
  void run(auto& x) { run_with_conjugated_vectors(x, x.n, x.n); }
};

}  // namespace tev::shim::row_major
