// SPDX-License-Identifier: BSD-3-Clause
// The older interface of matrix products (kernels/version1.h), over the packing and the kernel that the tier's own
// product uses. Blocks of a product, as its leaves walk over them:
//
//            kb        nb                   nb
//         +-----+---+        +----------+-------+        for each nb columns of B, for each kb of k: pack kb x nb of B
//      mb |  A  |   |     kb |    B     |       |          for each mb rows of A: pack mb x kb of A, multiply
//         +-----+---+        +----------+-------+
//      mb |     |   |
//
// Tiers of the newer interface have these names, too, so that every entry point has a target: they return at once.
#pragma once

#include "kernels/families/gemm_driver-inl.h"
#include "kernels/version1.h"
#include "service/work_split.h"
#include "tev/service.h"

namespace tev::TEV_TIER {

inline constexpr bool kVersion1 = kApiVersion == 1;

template <class T>
inline constexpr bool kIsDouble = false;
template <>
inline constexpr bool kIsDouble<double> = true;

inline constexpr int64_t kPanelAlignment = 128;  // bytes
inline constexpr int64_t kDepthUnit = 2;

// Block sizes of one way to partition a product.
struct block_rules {
  int64_t mr, nr;
  int64_t most_rows, most_columns;
};

// The tiers without a version-1 driver tell 12 rows in double precision, three strips of their tile.
template <class T>
inline constexpr int64_t kBlockUnit = kApiSupport == 0 && kIsDouble<T> ? 12 : kGemm<T>.mr;

template <class T>
constexpr block_rules rules_of(int64_t most_rows, int64_t most_columns) {
  return {kBlockUnit<T>, kGemm<T>.nr, most_rows / kBlockUnit<T> * kBlockUnit<T>, most_columns};
}
template <class T>
inline constexpr block_rules kRulesPlain = rules_of<T>(kGemm<T>.mc, kGemm<T>.nc);
template <class T>
inline constexpr block_rules kRulesBdz = rules_of<T>(504, 5000);
// Many threads share the last cache: panels of B half as wide, and more blocks to deal out.
template <class T>
inline constexpr block_rules kRulesHighThreads = rules_of<T>(252, 2500);
// Partitions by rows keep long panels of B, those by columns tall ones of A.
template <class T>
inline constexpr block_rules kRulesRows = rules_of<T>(252, 5000);
template <class T>
inline constexpr block_rules kRulesColumns = rules_of<T>(1008, 1024);

TEV_INLINE int64_t block_depth(int64_t k) {
  if (k < 256) return k > 128 ? round_up(k, kDepthUnit) : 128;
  if (k > 256 && k < 512) return round_up(k / 2, kDepthUnit);
  return 256;
}

TEV_INLINE void block_info(const block_rules& rules, int64_t m, int64_t n, int64_t k, int64_t* mb, int64_t* nb,
                           int64_t* kb, int64_t* mr, int64_t* nr, int64_t* ku) {
  *mr = rules.mr;
  *nr = rules.nr;
  *ku = kDepthUnit;
  if (*kb == 0) *kb = block_depth(k);
  if (*mb == 0) {
    const int64_t rows = round_up(m, rules.mr);
    *mb = rows < rules.most_rows ? rows : rules.most_rows;
  }
  if (*nb == 0) *nb = n < rules.nr ? rules.nr : n < rules.most_columns ? n : rules.most_columns;
}

template <class T>
int64_t panels_size(const block_record* r) {
  return round_up(r->mb * r->kb * static_cast<int64_t>(sizeof(T)), kPanelAlignment) +
         r->kb * r->nb * static_cast<int64_t>(sizeof(T));
}

template <class T>
int32_t get_panels(block_record* r) {
  r->base = tev_serv_allocate(panels_size<T>(r), kPanelAlignment);
  if (!r->base) return 2;
  r->a = r->base;
  r->b = static_cast<char*>(r->base) + round_up(r->mb * r->kb * static_cast<int64_t>(sizeof(T)), kPanelAlignment);
  return 0;
}

TEV_INLINE void free_panels(block_record* r) {
  tev_serv_deallocate(r->base);
  r->base = r->a = r->b = nullptr;
}

// How a block of op(A), or of op(B), is packed: by the copy mode of its descriptor.
template <class T>
TEV_INLINE copy_fn<T>* copy_of_a(const operand* source) {
  return source->copy_mode & kCopyPlain                         ? copy_a<T, direction::down, false>
         : source->copy_mode & kCopyConjTrans && kParts<T> == 2 ? copy_a<T, direction::right, kParts<T> == 2>
                                                                : copy_a<T, direction::right, false>;
}
template <class T>
TEV_INLINE copy_fn<T>* copy_of_b(const operand* source) {
  return source->copy_mode & kCopyPlain                         ? copy_b<T, direction::right, false>
         : source->copy_mode & kCopyConjTrans && kParts<T> == 2 ? copy_b<T, direction::down, kParts<T> == 2>
                                                                : copy_b<T, direction::down, false>;
}

template <class T>
void multiply_panels(int64_t k, const T* a, const T* b, T beta, beta_class kind, const operand* c) {
  packed_kernel<T, kGemm<T>.mr, kGemm<T>.nr>(c->rows, c->columns, k, a, b, beta, kind, static_cast<T*>(c->data), c->ld);
}

// m, n and k are at least 1. False when there is no memory or `info` tells no block sizes: nothing is computed then.
template <class T>
bool multiply_by_blocks(block_info_fn* info, char transa, char transb, int64_t m, int64_t n, int64_t k, T alpha,
                        const T* a, int64_t lda, const T* b, int64_t ldb, T beta, T* c, int64_t ldc) {
  int64_t mr, nr, ku;
  block_record r = {};
  info(&m, &n, &k, &r.mb, &r.nb, &r.kb, &mr, &nr, &ku);
  if (r.mb < 1 || get_panels<T>(&r) != 0) return false;
  const operand whole_a = make_operand(transposition_code(transa), a, m, k, lda);
  const operand whole_b = make_operand(transposition_code(transb), b, k, n, ldb);
  const operand whole_c = make_operand(kNoTrans, static_cast<const T*>(c), m, n, ldc);
  const T one = one_of<T>();
  for (int64_t jc = 0; jc < n; jc += r.nb)
    for (int64_t pc = 0; pc < k; pc += r.kb) {
      const int64_t columns = min_of(r.nb, n - jc), depth = min_of(r.kb, k - pc);
      const operand b_block = block_of(&whole_b, pc, jc, depth, columns);
      packed b_panel = {r.b, 0, 0}, a_panel = {r.a, 0, 0};
      copy_of_b<T> (&b_block)(&b_block, &b_panel, &alpha);
      for (int64_t ic = 0; ic < m; ic += r.mb) {
        const int64_t rows = min_of(r.mb, m - ic);
        const operand a_block = block_of(&whole_a, ic, pc, rows, depth);
        const operand c_block = block_of(&whole_c, ic, jc, rows, columns);
        copy_of_a<T> (&a_block)(&a_block, &a_panel, &one);
        ker0<T>(&depth, static_cast<const T*>(r.a), static_cast<const T*>(r.b), pc == 0 ? &beta : &one, &c_block);
      }
    }
  free_panels(&r);
  return true;
}

// A leaf: the product by blocks, else by the tier's own routine, which needs no memory when there is none.
template <class T>
void leaf(block_info_fn* info, gemm_fn<T>* whole, const char* transa, const char* transb, const int64_t* m,
          const int64_t* n, const int64_t* k, const T* alpha, const T* a, const int64_t* lda, const T* b,
          const int64_t* ldb, const T* beta, T* c, const int64_t* ldc) {
  const bool by_blocks = *m > 0 && *n > 0 && *k > 0 && !is_zero(*alpha);
  if (by_blocks && multiply_by_blocks(info, *transa, *transb, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc))
    return;
  whole(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

// The columns of C that fall to thread *ithr of *nthr.
template <class T>
void share(gemm_fn<T>* whole, const char* transa, const char* transb, const int64_t* m, const int64_t* n,
           const int64_t* k, const T* alpha, const T* a, const int64_t* lda, const T* b, const int64_t* ldb,
           const T* beta, T* c, const int64_t* ldc, const int64_t* ithr, const int64_t* nthr) {
  int64_t columns;
  const int64_t first = tev_serv_divbythreads(ithr, nthr, n, &columns);
  const T* b_share = transposition_code(*transb) == kNoTrans ? b + first * *ldb : b + first;
  whole(transa, transb, m, &columns, k, alpha, a, lda, b_share, ldb, beta, c + first * *ldc, ldc);
}

}  // namespace tev::TEV_TIER
