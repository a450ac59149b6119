// SPDX-License-Identifier: BSD-3-Clause
// ?larfb: applies a block reflector H = I - V T V^H, or its conjugate transpose, to a matrix C from the left or right.
//
// The k reflectors are the columns of V, or its rows, conjugated (storev R). A unit triangle V1 of V stands at its
// beginning, or at its end when the reflectors are counted backwards; V2 is the rest. C1 and C2 are the parts of C that
// they act on, here from the left:
//
//        forward      backward
//        1            v v v                  W := C1^H V1 + C2^H V2      one row of W for each column of C
//   V1   v 1          v v v   V2             W := W op(T)^H
//        v v 1        1 v v                  C2 := C2 - V2 W^H
//   V2   v v v          1 v   V1             C1 := C1 - V1 W^H
//        v v v            1
//
// From the right it is the same with C in place of C^H and op(T) in place of op(T)^H. The products are by far the
// largest part; all steps are spread over the team.
#include <algorithm>

#include "blas_threading/blas_calls.h"
#include "blas_threading/element.h"
#include "blas_threading/vectors/level1.h"
#include "kernels/operation.h"
#include "tev/lapack.h"

namespace tev::lapack {

namespace {

using blas::blas_calls;
using blas::element_of;

// V and T, and how to read them.
template <class T>
struct block_reflector {
  bool transposed, forward, by_rows;
  int64_t k;
  const T* v;
  int64_t ldv;
  const T* t;
  int64_t ldt;
};

template <class T>
struct view {
  T* data;
  int64_t ld;
  T& operator()(int64_t i, int64_t j) const { return data[i + j * ld]; }
};

// The part of C that one of the two parts of V acts on, and that part of V.
template <class T>
struct part {
  view<T> c;
  view<const T> v;
};

template <class T>
void subtract(T& x, const T& y) {
  if constexpr (blas::kComplex<T>)
    x.real -= y.real, x.imag -= y.imag;
  else
    x -= y;
}

// body(i, j) for all elements of W, over the team. From the left that is a transposition of C1: the columns of C1 are
// taken a few at a time, so that a line of W is complete before it leaves the cache.
template <class T, class Body>
void for_elements(int64_t rows, int64_t k, const Body& body) {
  constexpr int64_t kTogether = 8;
  const int32_t threads = blas::level1_threads(rows * k, blas::kPairChunkBytes / sizeof(T), true);
  blas::run_team(threads, [&](int64_t thread, int64_t team) {
    const blas::span own = blas::part_of(thread, team, rows, kTogether);
    for (int64_t begin = own.begin; begin < own.end; begin += kTogether)
      for (int64_t j = 0, end = std::min(begin + kTogether, own.end); j < k; ++j)
        for (int64_t i = begin; i < end; ++i) body(i, j);
  });
}

// W := W x the unit triangle V1, or its conjugate transpose.
template <class T>
void multiply_by_triangle(const block_reflector<T>& h, const view<const T>& v1, bool transposed, int64_t rows,
                          const view<T>& w) {
  const T one = element_of<T>(1);
  blas_calls<T>::trmm("R", h.forward == h.by_rows ? "U" : "L", transposed == h.by_rows ? "N" : "C", "U", &rows, &h.k,
                      &one, v1.data, &v1.ld, w.data, &w.ld);
}

template <class T>
void multiply_by_factor(const block_reflector<T>& h, bool transposed, int64_t rows, const view<T>& w) {
  const T one = element_of<T>(1);
  blas_calls<T>::trmm("R", h.forward ? "U" : "L", transposed ? "C" : "N", "N", &rows, &h.k, &one, h.t, &h.ldt, w.data,
                      &w.ld);
}

// Of length + k elements in all; `first`: of V1, whichever end it stands at.
template <class T>
part<T> part_of_length(const block_reflector<T>& h, bool left, int64_t start, T* c, int64_t ldc) {
  return {{c + (left ? start : start * ldc), ldc}, {h.v + (h.by_rows ? start * h.ldv : start), h.ldv}};
}

template <class T>
void apply_from_left(const block_reflector<T>& h, const part<T>& first, const part<T>& second, int64_t rest, int64_t n,
                     const view<T>& w) {
  const T one = element_of<T>(1), minus_one = element_of<T>(-1);
  const char* const plain = h.by_rows ? "C" : "N";
  const view<T>&c1 = first.c, &c2 = second.c;
  for_elements<T>(n, h.k, [&](int64_t i, int64_t j) { w(i, j) = blas::conjugate(c1(j, i)); });
  multiply_by_triangle(h, first.v, false, n, w);
  blas_calls<T>::gemm("C", plain, &n, &h.k, &rest, &one, c2.data, &c2.ld, second.v.data, &h.ldv, &one, w.data, &w.ld);
  multiply_by_factor(h, !h.transposed, n, w);
  blas_calls<T>::gemm(plain, "C", &rest, &n, &h.k, &minus_one, second.v.data, &h.ldv, w.data, &w.ld, &one, c2.data,
                      &c2.ld);
  multiply_by_triangle(h, first.v, true, n, w);
  for_elements<T>(n, h.k, [&](int64_t i, int64_t j) { subtract(c1(j, i), blas::conjugate(w(i, j))); });
}

template <class T>
void apply_from_right(const block_reflector<T>& h, const part<T>& first, const part<T>& second, int64_t rest, int64_t m,
                      const view<T>& w) {
  const T one = element_of<T>(1), minus_one = element_of<T>(-1);
  const view<T>&c1 = first.c, &c2 = second.c;
  for_elements<T>(m, h.k, [&](int64_t i, int64_t j) { w(i, j) = c1(i, j); });
  multiply_by_triangle(h, first.v, false, m, w);
  blas_calls<T>::gemm("N", h.by_rows ? "C" : "N", &m, &h.k, &rest, &one, c2.data, &c2.ld, second.v.data, &h.ldv, &one,
                      w.data, &w.ld);
  multiply_by_factor(h, h.transposed, m, w);
  blas_calls<T>::gemm("N", h.by_rows ? "N" : "C", &m, &rest, &h.k, &minus_one, w.data, &w.ld, second.v.data, &h.ldv,
                      &one, c2.data, &c2.ld);
  multiply_by_triangle(h, first.v, true, m, w);
  for_elements<T>(m, h.k, [&](int64_t i, int64_t j) { subtract(c1(i, j), w(i, j)); });
}

template <class T>
void apply(const block_reflector<T>& h, bool left, int64_t m, int64_t n, T* c, int64_t ldc, const view<T>& w) {
  if (m < 1 || n < 1 || h.k < 1) return;
  const int64_t rest = (left ? m : n) - h.k;
  const part<T> first = part_of_length(h, left, h.forward ? 0 : rest, c, ldc);
  // Nothing lies behind V1 where it is all of V: not even an address.
  const part<T> second = part_of_length(h, left, h.forward && rest > 0 ? h.k : 0, c, ldc);
  if (left)
    apply_from_left(h, first, second, rest, n, w);
  else
    apply_from_right(h, first, second, rest, m, w);
}

}  // namespace
}  // namespace tev::lapack

#define TEV_LARFB(name, T)                                                                                            \
  void name(const char* side, const char* trans, const char* direct, const char* storev, const int64_t* m,            \
            const int64_t* n, const int64_t* k, const T* v, const int64_t* ldv, const T* t, const int64_t* ldt, T* c, \
            const int64_t* ldc, T* work, const int64_t* ldwork, int64_t, int64_t, int64_t, int64_t) {                 \
    const bool transposed = tev::kernels::transposition_code(*trans) != tev::kernels::kNoTrans;                       \
    const bool forward = tev::kernels::code_among(*direct, 'F', 'B') == 0;                                            \
    const bool by_rows = tev::kernels::code_among(*storev, 'C', 'R') == 1;                                            \
    tev::lapack::apply<T>({transposed, forward, by_rows, *k, v, *ldv, t, *ldt}, tev::kernels::side_code(*side) == 0,  \
                          *m, *n, c, *ldc, {work, *ldwork});                                                          \
  }
TEV_LARFB(tev_lapack_slarfb, float)
TEV_LARFB(tev_lapack_dlarfb, double)
TEV_LARFB(tev_lapack_clarfb, tev_complex8)
TEV_LARFB(tev_lapack_zlarfb, tev_complex16)
