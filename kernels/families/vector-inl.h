// SPDX-License-Identifier: BSD-3-Clause
// Level 1: y := alpha x + y, y := x, x := alpha x, x <-> y, rotations of x and y, for n elements at a distance of inc
// elements. Vectors of elements that follow each other go through registers; others element by element, in order, so
// that an increment of zero means what it means to a plain loop.
#pragma once

#include "kernels/families/in_place-inl.h"

namespace tev::TEV_TIER {

// Where a register is a cache line, each access at any other address than a line's meets two lines; where it is half a
// line, every second one does, and stores that meet two cost half of the rate. From so many registers on, what lies
// ahead of the first boundary of the vector that is written goes behind a mask: of a vector the next call might read it
// before it is in the cache, of a column of a matrix less soon.
inline constexpr bool kMasksToAlignment = 2 * kVectorBytes >= kLineBytes && kBranchesOnAddresses && !kPeelsToAlignment;
inline constexpr int64_t kAlignsVectorFrom = 16, kAlignsColumnFrom = 8;

// A register of a cache line's length meets two lines unless it begins with one, and whoever reads what was stored so
// has to wait: vectors of one or two registers go in parts that lie within a line.
inline constexpr int kPartBytes = 16;

// for_own_parts, from a boundary on.
template <class T, int Vectors, int64_t kAlignsFrom = kAlignsVectorFrom, class Step>
TEV_INLINE void for_aligned_parts(int64_t n, const real_of<T>* own, const Step& step) {
  constexpr int L = kLanes<real_of<T>>, kPart = kPartBytes / static_cast<int>(sizeof(real_of<T>));
  if (n < L) return for_rest<T>(0, n, step);  // ends before the loops would have begun
  if (kVectorBytes == kLineBytes && n < 3 * L) {
    int64_t i = 0;
    for (; i + kPart <= n; i += kPart) step(whole_part<kPart>{}, i);
    if constexpr (kPart > kParts<T>) for_halving_parts<kParts<T>, kPart / 2>(i, n, step);
    return;
  }
  if constexpr (kMasksToAlignment) {
    const auto behind = reinterpret_cast<uintptr_t>(own) % kVectorBytes;
    if (n >= kAlignsFrom * L && behind != 0 && behind % sizeof(T) == 0) {
      const int64_t ahead = static_cast<int64_t>((kVectorBytes - behind) / sizeof(real_of<T>));
      step(first_part<L>{ahead}, 0);
      return for_registers<T, Vectors, false>(ahead, n, step);
    }
  }
  for_own_parts<T, Vectors>(n, own, step);
}

template <int64_t kAlignsFrom = kAlignsVectorFrom, class T>
TEV_INLINE void axpy_contiguous(int64_t n, T alpha, const T* x, T* y) {
  const real_of<T>* xr = reals(x);
  real_of<T>* yr = reals(y);
  for_aligned_parts<T, 4, kAlignsFrom>(
      n * kParts<T>, yr, [=](auto part, int64_t i) __attribute__((always_inline)) {
        const auto t = multiplier_of<part.W>(alpha);
        part.store(plus_product(part.load_own(yr + i), t, part.load(xr + i)), yr + i);
      });
}

template <class T>
TEV_INLINE void scal_contiguous(int64_t n, T alpha, T* x) {
  real_of<T>* xr = reals(x);
  for_aligned_parts<T, 8>(
      n * kParts<T>, xr, [=](auto part, int64_t i) __attribute__((always_inline)) {
        part.store(product(multiplier_of<part.W>(alpha), part.load(xr + i)), xr + i);
      });
}

template <class T>
TEV_INLINE void swap_contiguous(int64_t n, T* x, T* y) {
  real_of<T>*xr = reals(x), *yr = reals(y);
  for_aligned_parts<T, 8>(
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
  for_aligned_parts<R, 4>(
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

// From a register boundary of y on; n is sixteen registers at least. Both ends are loaded first, so that vectors that
// overlap move to lower addresses as in a plain loop.
template <bool kPastCaches, class R>
TEV_INLINE void copy_registers(int64_t n, const R* x, R* y) {
  constexpr int L = kLanes<R>, G = 4 * L;
  typedef vec<R, L> own __attribute__((may_alias));
  const auto step = [=](int64_t i) TEV_LAMBDA {
    const auto v = load<L>(x + i);
    if constexpr (kPastCaches)
      __builtin_nontemporal_store(v, reinterpret_cast<own*>(y + i));
    else
      *reinterpret_cast<own*>(y + i) = v;
  };
  const auto behind = reinterpret_cast<uintptr_t>(y) % kVectorBytes;
  int64_t i = static_cast<int64_t>((kVectorBytes - behind) % kVectorBytes / sizeof(R));
  const auto first = load<L>(x), last = load<L>(x + n - L);
  for (const int64_t end = i + (n - i) / G * G; i < end; i += G) TEV_UNROLL
  for (int v = 0; v < G; v += L) step(i + v);
  for (; i + L <= n; i += L) step(i);
  store<L>(first, y);
  store<L>(last, y + n - L);
  if (kPastCaches) __builtin_ia32_sfence();
}

// What comes from memory and returns there is stored past the caches, which would read y first: 40 GB/s instead of 26
// (32 KiB / 1 MiB / 32 MiB).
template <class R>
__attribute__((noinline)) void copy_long(int64_t n, const R* x, R* y) {
  const bool far = source_of(2 * n * static_cast<int64_t>(sizeof(R))) == source::memory;
  far ? copy_registers<true>(n, x, y) : copy_registers<false>(n, x, y);
}

template <class T>
TEV_INLINE void copy_contiguous(int64_t n, const T* x, T* y) {
  const int64_t numbers = n * kParts<T>;
  const real_of<T>* const xr = reals(x);
  real_of<T>* const yr = reals(y);
  const auto step = [=](auto part, int64_t i) TEV_LAMBDA { part.store(part.load(xr + i), yr + i); };
  if (numbers < kLanes<real_of<T>>) return for_rest<T>(0, numbers, step);
  if (kBranchesOnAddresses && numbers > 16 * kLanes<real_of<T>> && reinterpret_cast<uintptr_t>(y) % sizeof(*yr) == 0)
    return copy_long(numbers, xr, yr);
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

// An element has one part or two.
template <class T>
TEV_INLINE void rotate_element(T& x, T& y, real_of<T> h11, real_of<T> h21, real_of<T> h12, real_of<T> h22) {
  TEV_UNROLL
  for (int p = 0; p < kParts<T>; ++p) {
    real_of<T>&one = reals(&x)[p], &other = reals(&y)[p];
    const real_of<T> old = one;
    one = fma(other, h12, old * h11);
    other = fma(other, h22, old * h21);
  }
}

template <class T>
__attribute__((noinline)) void rotate_with_gaps(int64_t n, T* x, int64_t incx, T* y, int64_t incy, real_of<T> h11,
                                                real_of<T> h21, real_of<T> h12, real_of<T> h22) {
  x = first_of(n, x, incx), y = first_of(n, y, incy);
  for (; n > 0; --n, x += incx, y += incy) rotate_element(*x, *y, h11, h21, h12, h22);
}

template <class T>
TEV_INLINE void rotate(int64_t n, T* x, int64_t incx, T* y, int64_t incy, const real_of<T>* h) {
  if (n < 1) return;
  if (n == 1) return rotate_element(*x, *y, h[0], h[1], h[2], h[3]);
  if (incx == 1 && incy == 1) return rotate_contiguous(kParts<T> * n, reals(x), reals(y), h);
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
