// SPDX-License-Identifier: BSD-3-Clause
// B := alpha op(A) to another matrix (omatcopy) or in place (imatcopy); op transposes, conjugates, does both or
// neither.
//
// A transposition goes through a square in the first cache, turned on the way in. So columns of A and B are read and
// written by whole cache lines, also where their leading dimension is a power of two and the lines of a row of the
// matrix fall on the same few places of a cache:
//
//      A  . . . . .                           B  . . . .
//         . x x . .   ->   x x x x   ->          . x x x x
//         . x x . .        x x x x               . x x x x
//         . x x . .                              . . . . .
//         . x x . .
#include <algorithm>
#include <cstring>

#include "blas_threading/element.h"
#include "blas_threading/team/team.h"
#include "blas_threading/vectors/arguments.h"
#include "blas_threading/vectors/level1.h"
#include "tev/blas.h"

namespace tev::blas {
namespace {

template <class T>
struct view {
  T* data;
  int64_t rows, columns, ld;
  view block(const span& r, const span& c) const { return {data + r.begin + c.begin * ld, r.size(), c.size(), ld}; }
};

// ---- One element after the other

// What becomes of an element.
template <class T>
struct scaling {
  T alpha;
  bool conjugates;

  void operator()(int64_t n, const T* __restrict from, T* __restrict to) const {
    if (is_value(alpha, 0)) {
      std::fill_n(to, n, T{});
    } else if (!conjugates && is_value(alpha, 1)) {
      std::memcpy(to, from, static_cast<size_t>(n) * sizeof(T));
    } else if (conjugates) {
      for (int64_t i = 0; i < n; ++i) to[i] = multiply(alpha, conjugate(from[i]));
    } else {
      for (int64_t i = 0; i < n; ++i) to[i] = multiply(alpha, from[i]);
    }
  }
};

template <class T>
void copy(const scaling<T>& scaled, const view<const T>& a, T* b, int64_t ldb) {
  for (int64_t j = 0; j < a.columns; ++j) scaled(a.rows, a.data + j * a.ld, b + j * ldb);
}

// ---- Turned squares

template <class T>
inline constexpr int64_t kSide = sizeof(T) == 4 ? 64 : 32;

template <class T>
struct alignas(64) square {
  T elements[kSide<T> * kSide<T>];
};

// Elements that are turned at a time have 16 bytes in a row; complex ones of 8 bytes count as double.
using floats = float __attribute__((vector_size(16)));
using doubles = double __attribute__((vector_size(16)));

template <class V>
V load(const void* from) {
  V v;
  std::memcpy(&v, from, sizeof v);
  return v;
}

inline void turn_few(const float* a, int64_t lda, float* out, int64_t ldo) {
  const auto c0 = load<floats>(a), c1 = load<floats>(a + lda), c2 = load<floats>(a + 2 * lda),
             c3 = load<floats>(a + 3 * lda);
  const floats low01 = __builtin_shufflevector(c0, c1, 0, 4, 1, 5),
               high01 = __builtin_shufflevector(c0, c1, 2, 6, 3, 7);
  const floats low23 = __builtin_shufflevector(c2, c3, 0, 4, 1, 5),
               high23 = __builtin_shufflevector(c2, c3, 2, 6, 3, 7);
  const floats rows[] = {
      __builtin_shufflevector(low01, low23, 0, 1, 4, 5), __builtin_shufflevector(low01, low23, 2, 3, 6, 7),
      __builtin_shufflevector(high01, high23, 0, 1, 4, 5), __builtin_shufflevector(high01, high23, 2, 3, 6, 7)};
  for (int i = 0; i < 4; ++i) std::memcpy(out + i * ldo, &rows[i], sizeof rows[i]);
}

template <class T>
void turn_few(const T* a, int64_t lda, T* out, int64_t ldo) {
  static_assert(sizeof(T) == 8);
  const auto c0 = load<doubles>(a), c1 = load<doubles>(a + lda);
  const doubles rows[] = {__builtin_shufflevector(c0, c1, 0, 2), __builtin_shufflevector(c0, c1, 1, 3)};
  for (int i = 0; i < 2; ++i) std::memcpy(out + i * ldo, &rows[i], sizeof rows[i]);
}

inline void turn_few(const tev_complex16* a, int64_t, tev_complex16* out, int64_t) { *out = *a; }

// Row i of A, which is at most a square, becomes column i of the square.
template <class T>
void turn(const view<const T>& a, square<T>& turned) {
  constexpr int64_t kFew = std::max<int64_t>(1, 16 / sizeof(T));
  const int64_t rows = a.rows / kFew * kFew, columns = a.columns / kFew * kFew;
  const auto turn_one = [&](int64_t i, int64_t j) { turned.elements[j + i * kSide<T>] = a.data[i + j * a.ld]; };
  for (int64_t j = 0; j < columns; j += kFew) {
    for (int64_t i = 0; i < rows; i += kFew)
      turn_few(a.data + i + j * a.ld, a.ld, turned.elements + j + i * kSide<T>, kSide<T>);
    for (int64_t i = rows; i < a.rows; ++i)
      for (int64_t next = j; next < j + kFew; ++next) turn_one(i, next);
  }
  for (int64_t j = columns; j < a.columns; ++j)
    for (int64_t i = 0; i < a.rows; ++i) turn_one(i, j);
}

// The columns of the square, scaled.
template <class T>
void write(const scaling<T>& scaled, const square<T>& turned, const view<T>& b) {
  for (int64_t j = 0; j < b.columns; ++j) scaled(b.rows, turned.elements + j * kSide<T>, b.data + j * b.ld);
}

template <class T>
void transpose(const scaling<T>& scaled, const view<const T>& a, T* b, int64_t ldb) {
  square<T> turned;
  for (int64_t i = 0; i < a.rows; i += kSide<T>)
    for (int64_t j = 0; j < a.columns; j += kSide<T>) {
      const span rows = {i, std::min(i + kSide<T>, a.rows)}, columns = {j, std::min(j + kSide<T>, a.columns)};
      turn(a.block(rows, columns), turned);
      write(scaled, turned, view<T>{b + j + i * ldb, columns.size(), rows.size(), ldb});
    }
}

// ---- Over the team

template <class T>
int32_t copy_threads(int64_t elements) {
  return level1_threads(elements, kPairChunkBytes / static_cast<int64_t>(sizeof(T)), true);
}

// body(rows, columns) for the parts of an m x n matrix, divided along its longer side.
template <class T, class Body>
void over_team(int64_t m, int64_t n, const Body& body) {
  const int32_t threads = copy_threads<T>(m * n);
  if (threads < 2) return body(span{0, m}, span{0, n});
  run_team(threads, [&](int64_t thread, int64_t team) {
    const span part = part_of(thread, team, std::max(m, n), kSide<T>);
    if (part.size() > 0) body(m > n ? part : span{0, m}, m > n ? span{0, n} : part);
  });
}

template <class T>
void copy_matrix(bool transposes, const scaling<T>& scaled, const view<const T>& a, T* b, int64_t ldb) {
  over_team<T>(a.rows, a.columns, [&](const span& rows, const span& columns) {
    if (transposes)
      transpose(scaled, a.block(rows, columns), b + columns.begin + rows.begin * ldb, ldb);
    else
      copy(scaled, a.block(rows, columns), b + rows.begin + columns.begin * ldb, ldb);
  });
}

// ---- In place

// Squares change places with those on the other side of the diagonal. A is square.
template <class T>
void transpose_in_place(const scaling<T>& scaled, const view<T>& a) {
  const int64_t squares = ceil_div(a.columns, kSide<T>);
  const auto part = [&](int64_t number) {
    return span{number * kSide<T>, std::min((number + 1) * kSide<T>, a.columns)};
  };
  run_team(std::min<int64_t>(squares, copy_threads<T>(a.rows * a.columns)), [&](int64_t thread, int64_t team) {
    square<T> here, there;
    for (int64_t j = thread; j < squares; j += team)
      for (int64_t i = j; i < squares; ++i) {
        const view<T> below = a.block(part(i), part(j)), above = a.block(part(j), part(i));
        turn<T>({below.data, below.rows, below.columns, a.ld}, here);
        turn<T>({above.data, above.rows, above.columns, a.ld}, there);
        write(scaled, there, below);
        write(scaled, here, above);
      }
  });
}

// The columns move to their new places: downwards in memory from the first on, upwards from the last.
template <class T>
void move_columns(const scaling<T>& scaled, const view<T>& a, int64_t ldb) {
  square<T> moved;
  constexpr int64_t kPart = kSide<T> * kSide<T>;
  const int64_t parts = ceil_div(a.rows, kPart), steps = parts * a.columns;
  for (int64_t step = 0; step < steps; ++step) {
    const int64_t number = ldb > a.ld ? steps - 1 - step : step, j = number / parts, i = number % parts * kPart;
    const int64_t size = std::min(kPart, a.rows - i);
    if (!is_value(scaled.alpha, 0))
      std::memcpy(moved.elements, a.data + i + j * a.ld, static_cast<size_t>(size) * sizeof(T));
    scaled(size, moved.elements, a.data + i + j * ldb);
  }
}

template <class T>
void copy_in_place(bool transposes, const scaling<T>& scaled, const view<T>& a, int64_t ldb) {
  if (!transposes) return move_columns(scaled, a, ldb);
  if (a.rows == a.columns && a.ld == ldb) return transpose_in_place(scaled, a);
  T* const copied = static_cast<T*>(tev_serv_allocate(a.rows * a.columns * static_cast<int64_t>(sizeof(T)), 64));
  if (copied == nullptr) return report_wrong_argument<T>("IMATCOPY", service::kNotEnoughMemory);
  copy_matrix<T>(true, scaled, {a.data, a.rows, a.columns, a.ld}, copied, a.columns);
  copy_matrix<T>(false, {element_of<T>(1), false}, {copied, a.columns, a.rows, a.columns}, a.data, ldb);
  tev_serv_deallocate(copied);
}

// ---- The calls

// A matrix by rows is its transpose by columns.
struct form {
  bool transposes, conjugates;
  int64_t rows, columns;  // of A by columns
  int64_t result_rows() const { return transposes ? columns : rows; }
  int64_t result_columns() const { return transposes ? rows : columns; }
};

template <class T>
bool understand(const char* stem, char order, char trans, int64_t rows, int64_t columns, int64_t lda, int64_t ldb,
                int32_t number_of_ldb, form& f) {
  const char layout = kernels::upper_case(order), op = kernels::upper_case(trans);
  f = {op == 'T' || op == 'C', op == 'C' || op == 'R', layout == 'R' ? columns : rows, layout == 'R' ? rows : columns};
  return arguments_are_right<T>(stem, {{1, layout == 'C' || layout == 'R'},
                                       {2, f.transposes || op == 'R' || op == 'N'},
                                       {3, rows >= 0},
                                       {4, columns >= 0},
                                       {7, holds_rows(lda, f.rows)},
                                       {number_of_ldb, holds_rows(ldb, f.result_rows())}}) &&
         rows != 0 && columns != 0;
}

template <class T>
void omatcopy(char order, char trans, int64_t rows, int64_t columns, const T& alpha, const T* a, int64_t lda, T* b,
              int64_t ldb) {
  form f;
  if (!understand<T>("OMATCOPY", order, trans, rows, columns, lda, ldb, 9, f)) return;
  const scaling<T> scaled = {alpha, kComplex<T> && f.conjugates};
  if (is_value(alpha, 0)) return copy_matrix<T>(false, scaled, {a, f.result_rows(), f.result_columns(), lda}, b, ldb);
  copy_matrix<T>(f.transposes, scaled, {a, f.rows, f.columns, lda}, b, ldb);
}

template <class T>
void imatcopy(char order, char trans, int64_t rows, int64_t columns, const T& alpha, T* a, int64_t lda, int64_t ldb) {
  form f;
  if (!understand<T>("IMATCOPY", order, trans, rows, columns, lda, ldb, 8, f)) return;
  copy_in_place<T>(f.transposes, {alpha, kComplex<T> && f.conjugates}, {a, f.rows, f.columns, lda}, ldb);
}

}  // namespace
}  // namespace tev::blas

#define TEV_MATRIX_COPIES(p, T)                                                                                  \
  void tev_blas_##p##omatcopy(const char* order, const char* trans, const int64_t* rows, const int64_t* columns, \
                              const T* alpha, const T* a, const int64_t* lda, T* b, const int64_t* ldb) {        \
    tev::blas::omatcopy(*order, *trans, *rows, *columns, *alpha, a, *lda, b, *ldb);                              \
  }                                                                                                              \
  void tev_blas_##p##imatcopy(const char* order, const char* trans, const int64_t* rows, const int64_t* columns, \
                              const T* alpha, T* a, const int64_t* lda, const int64_t* ldb) {                    \
    tev::blas::imatcopy(*order, *trans, *rows, *columns, *alpha, a, *lda, *ldb);                                 \
  }
TEV_FOR_EACH_PRECISION(TEV_MATRIX_COPIES)
