// SPDX-License-Identifier: BSD-3-Clause
// Level 1: y := alpha x + y, y := x, x := alpha x, x <-> y, rotations of x and y, for n elements at a distance of inc
// elements. Vectors of elements that follow each other go through registers; others element by element, in order, so
// that an increment of zero means what it means to a plain loop.
#pragma once

#include "kernels/families/in_place-inl.h"

namespace tev::TEV_TIER {

// Where a register is a cache line, each access at any other address than a line's meets two lines. From so many
// registers on, what lies ahead of the first line of the vector that is written goes behind a mask.
inline constexpr bool kMasksToAlignment = kVectorBytes == kLineBytes && kBranchesOnAddresses && !kPeelsToAlignment;
inline constexpr int64_t kAlignsFromRegisters = 16;

// for_own_parts, from a line on.
template <class T, int Vectors, class Step>
TEV_INLINE void for_lines(int64_t n, const real_of<T>* own, const Step& step) {
  if (n < kLanes<real_of<T>>) return for_rest<T>(0, n, step);  // ends before the loops would have begun
  if constexpr (kMasksToAlignment) {
    constexpr int L = kLanes<real_of<T>>;
    const auto behind = reinterpret_cast<uintptr_t>(own) % kVectorBytes;
    if (n >= kAlignsFromRegisters * L && behind != 0 && behind % sizeof(T) == 0) {
      const int64_t ahead = static_cast<int64_t>((kVectorBytes - behind) / sizeof(real_of<T>));
      step(first_part<L>{ahead}, 0);
      return for_registers<T, Vectors, false>(ahead, n, step);
    }
  }
  for_own_parts<T, Vectors>(n, own, step);
}

template <class T>
TEV_INLINE void axpy_contiguous(int64_t n, T alpha, const T* x, T* y) {
  const real_of<T>* xr = reals(x);
  real_of<T>* yr = reals(y);
  for_lines<T, 4>(
      n * kParts<T>, yr, [=](auto part, int64_t i) __attribute__((always_inline)) {
        const auto t = multiplier_of<part.W>(alpha);
        part.store(plus_product(part.load_own(yr + i), t, part.load(xr + i)), yr + i);
      });
}

template <class T>
TEV_INLINE void scal_contiguous(int64_t n, T alpha, T* x) {
  real_of<T>* xr = reals(x);
  for_lines<T, 8>(
      n * kParts<T>, xr, [=](auto part, int64_t i) __attribute__((always_inline)) {
        part.store(product(multiplier_of<part.W>(alpha), part.load(xr + i)), xr + i);
      });
}

template <class T>
TEV_INLINE void swap_contiguous(int64_t n, T* x, T* y) {
  real_of<T>*xr = reals(x), *yr = reals(y);
  for_lines<T, 8>(
      n * kParts<T>, xr, [=](auto part, int64_t i) __attribute__((always_inline)) {
        const auto old_x = part.load(xr + i);
        part.store(part.load(yr + i), xr + i);
        part.store(old_x, yr + i);
      });
}

// x := h11 x + h12 y, y := h21 x + h22 y; h by columns.
template <class R>
TEV_INLINE void rotate_contiguous(int64_t n, R* x, R* y, const R* h) {
  const R h11 = h[0], h21 = h[1], h12 = h[2], h22 = h[3];  // what is stored in x and y might be h
  for_lines<R, 4>(
      n, x, [=](auto part, int64_t i) __attribute__((always_inline)) {
        constexpr int W = part.W;
        const auto old_x = part.load(x + i), old_y = part.load(y + i);
        part.store(fma(old_y, splat<W>(h12), old_x * splat<W>(h11)), x + i);
        part.store(fma(old_y, splat<W>(h22), old_x * splat<W>(h21)), y + i);
      });
}

// Calls step(x, y) for pairs of elements, each `incx` or `incy` behind the last one. Apart, so that short vectors
// without gaps pay for none of its registers.
template <class X, class Y, class Step>
__attribute__((noinline)) void for_pairs_with_gaps(int64_t n, X* x, int64_t incx, Y* y, int64_t incy, Step step) {
  x = first_of(n, x, incx), y = first_of(n, y, incy);
  for (; n > 0; --n, x += incx, y += incy) step(*x, *y);
}

template <class T>
TEV_INLINE void axpy(int64_t n, T alpha, const T* x, int64_t incx, T* y, int64_t incy) {
  if (n < 1 || is_zero(alpha)) return;
  if (incx == 1 && incy == 1) return axpy_contiguous(n, alpha, x, y);
  for_pairs_with_gaps(n, x, incx, y, incy, [=](T from, T& to) TEV_LAMBDA { to = add(to, multiply(alpha, from)); });
}

// A short vector costs less than the call of a function.
template <class T>
TEV_INLINE void copy_contiguous(int64_t n, const T* x, T* y) {
  const int64_t numbers = n * kParts<T>;
  if (numbers > 16 * kLanes<real_of<T>>) {
    __builtin_memcpy(y, x, static_cast<size_t>(n) * sizeof(T));
    return;
  }
  const auto step = [xr = reals(x), yr = reals(y)](auto part, int64_t i)
                        TEV_LAMBDA { part.store(part.load(xr + i), yr + i); };
  if (numbers < kLanes<real_of<T>>) return for_rest<T>(0, numbers, step);
  for_parts<T, 1>(numbers, step);
}

template <class T>
TEV_INLINE void copy_vector(int64_t n, const T* x, int64_t incx, T* y, int64_t incy) {
  if (n < 1) return;
  if (incx == 1 && incy == 1) return copy_contiguous(n, x, y);
  for_pairs_with_gaps(n, x, incx, y, incy, [](T from, T& to) TEV_LAMBDA { to = from; });
}

// A negative increment names the same elements as its positive twin.
template <class T>
TEV_INLINE void scal(int64_t n, T alpha, T* x, int64_t incx) {
  if (n < 1 || is_one(alpha)) return;
  if (incx == 1 || incx == -1) return scal_contiguous(n, alpha, x);
  for (incx = incx < 0 ? -incx : incx; n > 0; --n, x += incx) *x = multiply(alpha, *x);
}

template <class T>
TEV_INLINE void swap(int64_t n, T* x, int64_t incx, T* y, int64_t incy) {
  if (n < 1) return;
  if (incx == 1 && incy == 1) return swap_contiguous(n, x, y);
  for_pairs_with_gaps(n, x, incx, y, incy, [](T& one, T& other) TEV_LAMBDA {
    const T old = one;
    one = other;
    other = old;
  });
}

template <class R>
__attribute__((noinline)) void rotate_with_gaps(int64_t n, R* x, int64_t incx, R* y, int64_t incy, R h11, R h21, R h12,
                                                R h22) {
  x = first_of(n, x, incx), y = first_of(n, y, incy);
  for (; n > 0; --n, x += incx, y += incy) {
    const R old_x = *x, old_y = *y;
    *x = fma(old_y, h12, old_x * h11);
    *y = fma(old_y, h22, old_x * h21);
  }
}

template <class R>
TEV_INLINE void rotate(int64_t n, R* x, int64_t incx, R* y, int64_t incy, const R* h) {
  if (n < 1) return;
  if (incx == 1 && incy == 1) return rotate_contiguous(n, x, y, h);
  rotate_with_gaps(n, x, incx, y, incy, h[0], h[1], h[2], h[3]);
}

// y := beta y as a product means it: zero forgets y, one leaves it alone.
template <class T>
TEV_INLINE void scale_result(int64_t n, T beta, T* y, int64_t incy) {
  if (is_one(beta)) return;
  if (!is_zero(beta)) return scal(n, beta, y, incy);
  const int64_t step = incy < 0 ? -incy : incy;
  for (int64_t i = 0; i < n; ++i) y[i * step] = T{};
}

// n elements in their order into a block.
template <class T>
TEV_INLINE void gather(int64_t n, const T* x, int64_t incx, bool conjugated, T* block) {
  for (int64_t i = 0; i < n; ++i) block[i] = conjugate_if(conjugated, x[i * incx]);
}

// Elements of a vector that a block on the stack holds, and that stay in the L1 cache while matrix columns stream by.
template <class T>
inline constexpr int64_t kSegment = 16384 / static_cast<int64_t>(sizeof(T));

}  // namespace tev::TEV_TIER
