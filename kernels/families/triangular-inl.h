// SPDX-License-Identifier: BSD-3-Clause
// trmm and trsm: B := alpha op(A) B and B := alpha op(A)^-1 B (side R: from the right), A triangular.
//
// All sixteen forms are one, of lines of B that meet a triangle L (triangle_copy-inl.h), cut into blocks
// (kernels/diagonal_blocks.h): of lines in place (triangle_in_place-inl.h), or of packed ones (triangle_kernel-inl.h).
#pragma once

#include "kernels/diagonal_blocks.h"
#include "kernels/families/packed_product-inl.h"
#include "kernels/families/triangle_in_place-inl.h"
#include "kernels/routine_types.h"
#include "tev/service.h"

namespace tev::TEV_TIER {

// ---- Block by block ------------------------------------------------------------------------------------------------

// Lines i .. i+count-1 take from lines k .. k+depth-1: B(i) := scalar L(i, k) B(k) + beta B(i).
template <class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void take_from_block(const triangular_call<T>& c, int64_t i, int64_t count, int64_t k, int64_t depth,
                                T scalar, const T* a, T beta, T* b) {
  const char plain = 'N';
  const T* const x = a + i * c.by.to + k * c.by.from;
  const T* const from = b + k * c.b_lies.line();
  T* const to = b + i * c.b_lies.line();
  const int64_t ldb = c.b_lies.ldb;
  if (c.b_lies.left)
    Gemm(&c.trans, &plain, &count, &c.places, &depth, &scalar, x, &c.lda, from, &ldb, &beta, to, &ldb);
  else
    Gemm(&plain, &c.trans, &c.places, &count, &depth, &scalar, from, &ldb, x, &c.lda, &beta, to, &ldb);
}

template <triangular Kind, bool kGathers, class T, kernels::gemm_fn<T>* Gemm, class Own>
TEV_INLINE void block_by_block(const triangular_call<T>& c, int64_t order, int64_t step, T alpha, const T* a, T* b,
                               const Own& own) {
  for_diagonal_blocks(block_walk{Kind == triangular::solve, c.forward, kGathers, order, step}, alpha, own,
                      [&](int64_t i, int64_t count, int64_t k, int64_t depth, T scalar, T beta)
                          TEV_LAMBDA { take_from_block<T, Gemm>(c, i, count, k, depth, scalar, a, beta, b); });
}

// Room for the packed triangle and the widest strip of a block of so many lines, whole groups of them.
template <class T>
TEV_INLINE constexpr int64_t strip_offset(int64_t lines) {
  return (triangle_bytes<T, kGroup<T>>(lines) + kLineBytes - 1) / kLineBytes * kLineBytes;
}
template <class T>
TEV_INLINE constexpr int64_t block_bytes(int64_t lines) {
  return strip_offset<T>(lines) + lines * kPlaces<T> * static_cast<int64_t>(sizeof(T));
}

// Works out a block of n lines, D in a and its lines in b, strip by strip.
template <triangular Kind, class T>
__attribute__((noinline)) void work_out_block(const triangular_call<T>& c, int64_t n, T alpha, const T* a, T* b,
                                              char* memory) {
  constexpr int G = kGroup<T>;
  T* const strip = reinterpret_cast<T*>(memory + strip_offset<T>(whole_groups(n, G)));
  copy_triangle<G>(c.forward, c.conjugated(), c.by, n, a, memory);
  if (Kind == triangular::solve && !c.unit) set_divisors<G>(c.conjugated(), n, a, c.lda, memory);
  const triangle_block<T> block = triangle_at<T, G>(memory, whole_groups(n, G));
  for_places<T>(c.places, [&](auto v, int64_t first, int64_t width) TEV_LAMBDA {
    constexpr int P = kPlaces<T, decltype(v)::value>;
    T* const at = b + first * c.b_lies.place();
    load_lines<P>(c.b_lies, n, width, alpha, at, strip);
    fill_group<P>(n, strip);
    (c.forward ? work_out_strip<Kind, true, G, P, T>
               : work_out_strip<Kind, false, G, P, T>)(block, c.unit, strip, lines_of_b<T>{c.b_lies, n, width, at});
  });
}

// ---- Without buffers -----------------------------------------------------------------------------------------------

// Lines of a block in memory of the allocator, where a strip and its share of the triangle stay in the second cache.
// Larger ones leave less to products, which pack the lines once more. Found on 48 KiB / 1 MiB.
template <class T>
inline constexpr int64_t kLargeBlock = sizeof(real_of<T>) == 4 && kCopies<real_of<T>> == 1 ? 512 : 256;

// What does not repay packing: small triangles, those that a few registers of places meet (a packed one is read once
// per strip), and on 512-bit vectors what its products do not pack. Long lines come from memory: packed ones do so
// once, whatever the order. Found on 48 KiB / 1 MiB.
inline constexpr int64_t kSmallTriangle = kRotatesB<float> ? kSmallBlock : 128, kLongLine = 20000;  // bytes
inline constexpr int kFewRegisters = kHasFma ? 2 : 1;
template <class T>
TEV_INLINE bool stays_on_the_stack(bool left, char trans, int64_t order, int64_t places) {
  const int64_t unpacked = left && !is_letter(&trans, 'N') ? kUnpackedTransposed : kUnpackedBoth;
  const bool long_lines = places * int64_t{sizeof(T)} > kLongLine;
  return order <= (long_lines ? kSmallBlock : kSmallTriangle) || places <= kPlaces<T, kFewRegisters> ||
         max_of(order, places) < unpacked;
}
template <class T>
TEV_INLINE bool stays_on_the_stack(const triangular_call<T>& c, int64_t order) {
  return stays_on_the_stack<T>(c.b_lies.left, c.trans, order, c.places);
}

// A single place leaves most of a register empty: the less of it in blocks, the better.
TEV_INLINE int64_t small_step(int64_t places) { return places > 1 ? kSmallBlock : 32; }

// Where what a line takes lies side by side, blocks gather: the triangle is read as it lies then.
template <triangular Kind, class T, kernels::gemm_fn<T>* Gemm>
__attribute__((noinline)) void in_blocks_in_place(const triangular_call<T>& c, int64_t order, T alpha, const T* a,
                                                  T* b) {
  const auto own = [&](int64_t k, int64_t depth, T factor) TEV_LAMBDA {
    work_out_in_place<Kind>(c, depth, factor, a + k * (c.lda + 1), b + k * c.b_lies.line());
  };
  if (c.by.from == 1)
    block_by_block<Kind, true, T, Gemm>(c, order, small_step(c.places), alpha, a, b, own);
  else
    block_by_block<Kind, false, T, Gemm>(c, order, small_step(c.places), alpha, a, b, own);
}

template <triangular Kind, class T, kernels::gemm_fn<T>* Gemm>
TEV_INLINE void in_small_blocks(const triangular_call<T>& c, int64_t order, T alpha, const T* a, T* b) {
  (order <= small_step(c.places) ? work_out_in_place<Kind, T> : in_blocks_in_place<Kind, T, Gemm>)(c, order, alpha, a,
                                                                                                   b);
}

// ---- With buffers --------------------------------------------------------------------------------------------------

// Blocks of about the same size. own(k, depth, factor, memory). False: no memory, nothing was computed.
template <triangular Kind, class T, kernels::gemm_fn<T>* Gemm, class Own>
TEV_INLINE bool in_large_blocks(const triangular_call<T>& c, int64_t order, T alpha, const T* a, T* b, const Own& own) {
  const int64_t blocks = (order + kLargeBlock<T> - 1) / kLargeBlock<T>;
  const int64_t step = whole_groups((order + blocks - 1) / blocks, kGroup<T>);
  char* const memory = static_cast<char*>(tev_serv_allocate(block_bytes<T>(step), 128));
  if (memory == nullptr) return false;
  block_by_block<Kind, false, T, Gemm>(c, order, step, alpha, a, b, [&](int64_t k, int64_t depth, T factor) TEV_LAMBDA {
    own(k, depth, factor, memory);
  });
  tev_serv_deallocate(memory);
  return true;
}

// The blocked path that describes nothing to anybody.
template <triangular Kind, class T, kernels::gemm_fn<T>* Gemm>
__attribute__((noinline)) void in_blocks(const triangular_call<T>& c, int64_t order, T alpha, const T* a, T* b) {
  if (!stays_on_the_stack(c, order) &&
      in_large_blocks<Kind, T, Gemm>(
          c, order, alpha, a, b, [&](int64_t k, int64_t depth, T factor, char* memory) TEV_LAMBDA {
            work_out_block<Kind>(c, depth, factor, a + k * (c.lda + 1), b + k * c.b_lies.line(), memory);
          }))
    return;
  in_small_blocks<Kind, T, Gemm>(c, order, alpha, a, b);
}

// ---- By the records of a product -----------------------------------------------------------------------------------

template <class T>
struct triangular_operands {
  const operand *triangle, *lines;
  triangular_call<T> call;
};

template <class T>
TEV_INLINE triangular_operands<T> operands_of(const operation<T>* op, const operand* a, const operand* b,
                                              const operand* c) {
  const bool left = op->from_right == 0;
  const operand* const triangle = left ? a : b;
  return {triangle, c,
          describe_triangular<T>(left, stored_triangle(triangle) == 'L', stored_transposition(triangle),
                                 stored_diagonal(triangle) == 'U', left ? c->columns : c->rows, triangle->ld, c->ld)};
}

// The block of `depth` lines from k on, by the routines of `info`.
template <class T>
void work_out_by_routines(const triangular_operands<T>& x, const kernel_info<T>* info, int64_t k, int64_t depth,
                          T alpha, char* memory) {
  const bool left = x.call.b_lies.left;
  const T one = real_element<T>(1);
  T* const triangle = reinterpret_cast<T*>(memory);
  T* const strip = reinterpret_cast<T*>(memory + strip_offset<T>(whole_groups(depth, kGroup<T>)));
  const operand diagonal = block_of(x.triangle, k, k, depth, depth);
  packed to = {triangle, 0, 0};
  (left ? info->copy_a : info->copy_b)(&diagonal, &to, &one);
  if (info->diagonal_scale != nullptr) info->diagonal_scale(&diagonal, &to);
  for (int64_t p = 0; p < x.call.places; p += kPlaces<T>) {
    const int64_t width = min_of(x.call.places - p, kPlaces<T>);
    const operand part = left ? block_of(x.lines, k, p, depth, width) : block_of(x.lines, p, k, width, depth);
    to = {strip, 0, 0};
    (left ? info->copy_b : info->copy_a)(&part, &to, &alpha);
    info->ker0(&depth, left ? triangle : strip, left ? strip : triangle, &one, &part);
  }
}

template <triangular Kind, class T, kernels::gemm_fn<T>* Gemm>
int32_t triangular_nobufs(const operation<T>* op, const operand* a, const operand* b, const operand* c, buffers*,
                          const kernel_info<T>*) {
  const triangular_operands<T> x = operands_of(op, a, b, c);
  in_small_blocks<Kind, T, Gemm>(x.call, x.triangle->rows, op->alpha, static_cast<const T*>(x.triangle->data),
                                 static_cast<T*>(c->data));
  return 0;
}

// Packs the triangle once per block, and the lines strip by strip. 2: no memory, nothing was computed.
template <triangular Kind, class T, kernels::gemm_fn<T>* Gemm>
int32_t triangular_fullacopybcopy(const operation<T>* op, const operand* a, const operand* b, const operand* c,
                                  buffers* buf, const kernel_info<T>* info) {
  const triangular_operands<T> x = operands_of(op, a, b, c);
  const int64_t order = x.triangle->rows;
  if (stays_on_the_stack(x.call, order)) return triangular_nobufs<Kind, T, Gemm>(op, a, b, c, buf, info);
  const bool done = in_large_blocks<Kind, T, Gemm>(
      x.call, order, op->alpha, static_cast<const T*>(x.triangle->data), static_cast<T*>(c->data),
      [&](int64_t k, int64_t depth, T factor, char* memory)
          TEV_LAMBDA { work_out_by_routines(x, info, k, depth, factor, memory); });
  return done ? 0 : 2;
}

// ---- The routines --------------------------------------------------------------------------------------------------

// The named routines for one form: side and triangle of op(A).
template <class T>
struct triangular_form {
  copy_fn<T>* copy;
  ker0_fn<T>* kernel;
  driver_fn<T>* driver;
};

// left lower, left upper, right lower, right upper; of the scales left, right.
template <class T>
struct triangular_row {
  triangular_form<T> form[4];
  diagonal_scale_fn *scale[2], *unit_scale[2];
  driver_fn<T>* nobufs;
};

// The lines of B are packed in whole registers of places: the strips of gemm's copies are narrower, or end in ones.
template <class T>
TEV_INLINE void use_triangular(const triangular_row<T>& row, const operation<T>* op, const operand* a, const operand* b,
                               kernel_info<T>* info) {
  const int side = op->from_right != 0;
  const operand* const triangle = side == 0 ? a : b;
  const bool upper = (stored_triangle(triangle) == 'U') == (stored_transposition(triangle) == 'N');
  const triangular_form<T>& form = row.form[2 * side + upper];
  (side == 0 ? info->copy_a : info->copy_b) = form.copy;
  (side == 0 ? info->copy_b : info->copy_a) = side == 0 ? places_copy<T, true> : places_copy<T, false>;
  info->diagonal_scale = (stored_diagonal(triangle) == 'U' ? row.unit_scale : row.scale)[side];
  info->ker0 = form.kernel;
  info->driver = form.driver;
  info->packed_product = nullptr;
  info->fallback = info->pst = row.nobufs;
}

// Orders of trsm that need no records, in the tier that has a name for that path: up to `always`, and multiples of
// `step` below `below`.
struct older_orders {
  int64_t always, step, below;
};
template <class T>
inline constexpr older_orders kOlderOrders = {12, 4, 89};
template <>
inline constexpr older_orders kOlderOrders<float> = {24, 8, 129};
template <>
inline constexpr older_orders kOlderOrders<tev_complex16> = {14, 2, 81};

TEV_INLINE bool is_among(older_orders orders, int64_t order) {
  return order <= orders.always || (order % orders.step == 0 && order < orders.below);
}

template <class T>
using blocks_fn = void(const triangular_call<T>& c, int64_t order, T alpha, const T* a, T* b);

#define TEV_TRIANGULAR_PARAMETERS                                                                                   \
  [[maybe_unused]] const char *side, [[maybe_unused]] const char *uplo, [[maybe_unused]] const char *transa,        \
      const char *diag, const int64_t *m, const int64_t *n, const TEV_T *alpha, const TEV_T *a, const int64_t *lda, \
      TEV_T *b, const int64_t *ldb
#define TEV_TRIANGULAR_ARGUMENTS side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb

template <class T, blocks_fn<T>* Blocks>
TEV_INLINE void triangular_routine(const char* side, const char* uplo, const char* transa, const char* diag,
                                   const int64_t* m, const int64_t* n, const T* alpha, const T* a, const int64_t* lda,
                                   T* b, const int64_t* ldb) {
  if (*m < 1 || *n < 1) return;
  if (is_zero(*alpha)) return mscale<T>(*m, *n, *alpha, b, *ldb);
  const bool left = is_letter(side, 'L');
  Blocks(describe_triangular<T>(left, !is_letter(uplo, 'U'), *transa, is_letter(diag, 'U'), left ? *n : *m, *lda, *ldb),
         left ? *m : *n, *alpha, a, b);
}

// By the driver of the kernel information, but for what needs no buffers: records cost as much as a small triangle.
template <triangular Kind, class T, kernels::gemm_fn<T>* Gemm, initialize_kernel_info_fn<T>* Info>
TEV_INLINE void triangular_by_records(const char* side, const char* uplo, const char* transa, const char* diag,
                                      const int64_t* m, const int64_t* n, const T* alpha, const T* a,
                                      const int64_t* lda, T* b, const int64_t* ldb) {
  const bool left = is_letter(side, 'L');
  if (*m < 1 || *n < 1 || is_zero(*alpha) || stays_on_the_stack<T>(left, *transa, left ? *m : *n, left ? *n : *m))
    return triangular_routine<T, in_small_blocks<Kind, T, Gemm>>(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
  const operation<T> op = make_triangular_operation(Kind == triangular::solve ? kOpTrsm : kOpTrmm, *side, *uplo,
                                                    *transa, *diag, *m, *n, *alpha, a, *lda, b, *ldb);
  strategy plan;
  initialize_strategy<T>(&plan);
  kernel_info<T> info;
  Info(&op, &op.a, &op.b, &op.c, &plan, &info);
  buffers buf;
  if (info.driver(&op, &op.a, &op.b, &op.c, &buf, &info) == 2) info.fallback(&op, &op.a, &op.b, &op.c, &buf, &info);
}

}  // namespace tev::TEV_TIER
