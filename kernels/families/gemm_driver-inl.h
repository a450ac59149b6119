// SPDX-License-Identifier: BSD-3-Clause
// Drivers of the packed product: C := alpha op(A) op(B) + beta C in blocks.
//
//   for pc in steps of kc             panel of k: from the second on C accumulates
//     for ic in steps of mc           pack op(A)(ic, pc), times 1
//       for jc in steps of nc         pack op(B)(pc, jc), times alpha: it stays in the second cache
//         ker0                        all strips of A against all strips of B
#pragma once

#include "kernels/families/clashes.h"
#include "kernels/families/gemm_arguments.h"
#include "kernels/families/gemm_framework-inl.h"
#include "kernels/families/gemm_shallow.h"
#include "kernels/families/gemm_tiny.h"
#include "service/xerbla.h"

namespace tev::TEV_TIER {

template <class T>
inline constexpr char kRoutineName[] = "DGEMM";
template <>
inline constexpr char kRoutineName<float>[] = "SGEMM";
template <>
inline constexpr char kRoutineName<tev_complex8>[] = "CGEMM";
template <>
inline constexpr char kRoutineName<tev_complex16>[] = "ZGEMM";

template <class T>
TEV_INLINE T one_of() {
  if constexpr (kParts<T> == 2)
    return {1, 0};
  else
    return 1;
}

// One packed panel of A, rows [i, i + rows) of C, against the panels of B.
template <class T>
TEV_INLINE void multiply_panel(const operation<T>* op, const T* a_panel, int64_t i, int64_t rows, const operand* b,
                               int64_t p, int64_t depth, const T* beta, const operand* c, const buffers* buf,
                               const kernel_info<T>* info) {
  for (int64_t j = 0; j < b->columns; j += buf->nc) {
    const int64_t columns = min_of(buf->nc, b->columns - j);
    const operand source = block_of(b, p, j, depth, columns), target = block_of(c, i, j, rows, columns);
    packed to = {buf->b.data, 0, 0};
    info->copy_b(&source, &to, &op->alpha);
    info->ker0(&depth, a_panel, static_cast<const T*>(buf->b.data), beta, &target);
  }
}

// A product without a sum: what is left is to scale C. A and B are not read then.
template <class T>
TEV_INLINE bool only_scales(const operation<T>* op, const operand* a, const operand* c) {
  if (a->columns > 0 && !is_zero(op->alpha)) return false;
  mscale_block(c, &op->beta);
  return true;
}

// Packs A and B. Returns 2, having computed nothing, when there is no memory for the panels.
template <class T>
int32_t fullacopybcopy(const operation<T>* op, const operand* a, const operand* b, const operand* c, buffers* buf,
                       const kernel_info<T>* info) {
  if (only_scales(op, a, c)) return 0;
  initialize_buffers<T>(a, b, &info->plan, buf);
  // Half of an odd k leaves one step over, which would cost a pass over C.
  if (2 * buf->kc + 1 == a->columns) buf->a.kc = buf->b.kc = ++buf->kc;
  buf->get(buf);
  if (tev_serv_check_ptr_and_warn(buf->base, kRoutineName<T>)) return 2;
  const T one = one_of<T>();
  for (int64_t p = 0; p < a->columns; p += buf->kc) {
    const int64_t depth = min_of(buf->kc, a->columns - p);
    for (int64_t i = 0; i < a->rows; i += buf->mc) {
      const int64_t rows = min_of(buf->mc, a->rows - i);
      const operand source = block_of(a, i, p, rows, depth);
      packed to = {buf->a.data, 0, 0};
      info->copy_a(&source, &to, &one);
      multiply_panel(op, static_cast<const T*>(buf->a.data), i, rows, b, p, depth, p == 0 ? &op->beta : &one, c, buf,
                     info);
    }
  }
  buf->free(buf);
  return 0;
}

// A is packed already, in buf->a.data: all rows of `a`, at most kc deep. Packs B into buf->b.data.
template <class T>
int32_t acopiedbcopy(const operation<T>* op, const operand* a, const operand* b, const operand* c, buffers* buf,
                     const kernel_info<T>* info) {
  if (only_scales(op, a, c)) return 0;
  if (tev_serv_check_ptr_and_warn(buf->b.data, kRoutineName<T>)) return 2;
  multiply_panel(op, static_cast<const T*>(buf->a.data), 0, a->rows, b, 0, a->columns, &op->beta, c, buf, info);
  return 0;
}

// The packing routines of a product. Those that pack nothing have C names, for the caller to add.
template <class T>
void initialize_packed_info(const operand* a, const operand* b, const strategy* s, kernel_info<T>* info) {
  *info = {};
  info->element_size = sizeof(T);
  info->count_a = info->count_b = 4;
  info->plan = *s;
  info->plan.check(&info->plan);
  info->mscale = mscale_block<T>;
  info->copy_a = a->copy_mode & kCopyConjTrans ? copy_a<T, direction::right, kParts<T> == 2>
                 : a->copy_mode & kCopyPlain   ? copy_a<T, direction::down, false>
                                               : copy_a<T, direction::right, false>;
  info->copy_b = b->copy_mode & kCopyConjTrans ? copy_b<T, direction::down, kParts<T> == 2>
                 : b->copy_mode & kCopyPlain   ? copy_b<T, direction::right, false>
                                               : copy_b<T, direction::down, false>;
  info->ker0 = ker0<T>;
  info->driver = info->plan.strategy_code == kACopied ? acopiedbcopy<T> : fullacopybcopy<T>;
  info->packed_product = acopiedbcopy<T>;
}

// Calls a routine with the argument list of the BLAS for the operands of a driver.
template <class T>
TEV_INLINE void call_on_operands(gemm_fn<T>* gemm, const operation<T>* op, const operand* a, const operand* b,
                                 const operand* c) {
  const char transa = letter_of(op->op_a), transb = letter_of(op->op_b);
  gemm(&transa, &transb, &c->rows, &c->columns, &a->columns, &op->alpha, static_cast<const T*>(a->data), &a->ld,
       static_cast<const T*>(b->data), &b->ld, &op->beta, static_cast<T*>(c->data), &c->ld);
}

// Which way a sequential product goes.
enum class route { meq6, small_n, fixed_depth, unpacked, pst, packed };

// Rows and columns up to which a product with A as it is packs nothing: 512-bit vectors go down its columns (found on
// 48 KiB / 1 MiB: 8 % ahead at 256, 3 % behind at 400).
template <class T>
inline constexpr int64_t kBothPlain = kVectorBytes == 64 ? 361 : kLeastPacked<T>.both;

// Few rows or columns do not repay packing, unless the columns that are read again and again evict each other: of A, or
// of a transposed B. Whole lines at a time, as 512-bit vectors read them, stand that better than packing. A thin
// shallow product is one of the long operand and C alone.
template <class T>
TEV_INLINE route route_of(char transa, char transb, int64_t m, int64_t n, int64_t k, int64_t lda, int64_t ldb) {
  constexpr int64_t kShallowest = 4, kFewElements = kHasFma ? 0 : 256;  // what a fixed depth is good for
  constexpr int64_t kThinDepth = 129, kThinRows = 101;
  constexpr double kThin = 11;
  const bool plain = transposition_code(transa) == kNoTrans, plain_b = transposition_code(transb) == kNoTrans;
  if (kHasMeq6<T> && m == 6 && k == 6 && plain && plain_b) return route::meq6;
  if (kHasSmallN<T> && (n == 2 || n == 3) && !plain) return route::small_n;
  const bool far_c = kVectorBytes == 64 && m * n * int64_t{sizeof(T)} > kPastCaches;  // strips meet a line of each page
  if (kHasFixedDepth<T> && !far_c && (k <= kShallowest || (k <= 10 && m * n <= kFewElements)))
    return route::fixed_depth;
  const auto rows = static_cast<double>(m), columns = static_cast<double>(n);
  if (k < kThinDepth && rows * columns < kThin * (rows + columns))
    return m < kThinRows || (n < 4 && k < 4) ? route::unpacked : route::pst;
  if constexpr (kVectorBytes < 64) {
    const int64_t smallest = min_of(m, min_of(n, k));
    if (plain && columns_clash<T>(smallest, lda)) return route::packed;
    if (!plain_b && columns_clash<T>(smallest, ldb)) return route::packed;
  }
  constexpr least_packed kLeast = kLeastPacked<T>;
  const int64_t least = plain ? kLeast.plain : kLeast.transposed;
  const int64_t both = plain ? kBothPlain<T> : kLeast.both;
  return m < least || n < least || (m < both && n < both) ? route::unpacked : route::packed;
}

// The sequential packed product; false when there was no memory for it.
template <class T>
__attribute__((noinline)) bool packed_gemm(char transa, char transb, int64_t m, int64_t n, int64_t k, T alpha,
                                           const T* a, int64_t lda, const T* b, int64_t ldb, T beta, T* c,
                                           int64_t ldc) {
  const operation<T> op = make_operation(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  strategy plan;
  initialize_strategy<T>(&plan);
  kernel_info<T> info;
  initialize_packed_info<T>(&op.a, &op.b, &plan, &info);
  buffers buf;
  return info.driver(&op, &op.a, &op.b, &op.c, &buf, &info) == 0;
}

}  // namespace tev::TEV_TIER
