// SPDX-License-Identifier: BSD-3-Clause
// The records of a packed product and how they are filled: strategy, block sizes, buffers, kernel information.
//
// Buffers. One allocation holds the panels; their places keep the streams of A and B apart in the caches and let large
// pages back them:
//
//   A and B   |base ..|4 KiB boundary + 768: B, nc kc|..|2 MiB boundary + 1664: A, mc kc|..|
//   A         |base ..|2 MiB boundary + 1664: A|          B   |base ..|4 KiB boundary + 768: B|
//   per thread|base ..|2 MiB boundary: thread 0|thread 1, thread_stride bytes on|..|
//   packed    |base: header, 8192 bytes|..|2 MiB boundary + 1664 or 768: A or B|
#pragma once

#include "kernels/families/gemm_copy-inl.h"
#include "kernels/families/gemm_tile-inl.h"
#include "kernels/operation.h"
#include "tev/service.h"

namespace tev::TEV_TIER {

using namespace tev::kernels;

TEV_INLINE int64_t round_up(int64_t x, int64_t step) { return (x + step - 1) / step * step; }

// ---- Scaling -------------------------------------------------------------------------------------------------------

template <class T, beta_class kBeta>
TEV_INLINE void scale_column(int64_t count, T beta, real_of<T>* c) {
  constexpr int P = kParts<T>, W = kVectorBytes / static_cast<int>(sizeof(real_of<T>));
  int64_t i = 0;
  for (; i + W <= count; i += W)
    store<W>(kBeta == beta_class::zero ? vec<real_of<T>, W>{} : times<T, W>(beta, load<W>(c + i)), c + i);
  for (; i < count; i += P)
    store<P>(kBeta == beta_class::zero ? vec<real_of<T>, P>{} : times<T, P>(beta, load<P>(c + i)), c + i);
}

// C := beta C; C is not read when beta is zero.
template <class T>
void mscale(int64_t m, int64_t n, T beta, T* c, int64_t ldc) {
  if (is_one(beta)) return;
  for (int64_t j = 0; j < n; ++j, c += ldc)
    if (is_zero(beta))
      scale_column<T, beta_class::zero>(m * kParts<T>, beta, reals(c));
    else
      scale_column<T, beta_class::general>(m * kParts<T>, beta, reals(c));
}

template <class T>
void mscale_block(const operand* c, const T* beta) {
  mscale(c->rows, c->columns, *beta, static_cast<T*>(c->data), c->ld);
}

// ---- Copies and kernel as the records know them --------------------------------------------------------------------

// op(A) in strips of mr rows: walked along k.
template <class T, direction D, bool kConjugated>
void copy_a(const operand* source, packed* target, const T* scalar) {
  target->depth = source->columns;
  target->width = source->rows;
  copy_ea<T, kGemm<T>.mr, D, kConjugated>(source->columns, source->rows, static_cast<const T*>(source->data),
                                          source->ld, static_cast<T*>(target->data), *scalar);
}

// op(B) in strips of nr columns: walked along k.
template <class T, direction D, bool kConjugated>
void copy_b(const operand* source, packed* target, const T* scalar) {
  target->depth = source->rows;
  target->width = source->columns;
  copy_ea<T, kGemm<T>.nr, D, kConjugated>(source->rows, source->columns, static_cast<const T*>(source->data),
                                          source->ld, static_cast<T*>(target->data), *scalar);
}

template <class T>
void ker0(const int64_t* k, const T* a_panel, const T* b_panel, const T* beta, const operand* c) {
  packed_kernel<T, kGemm<T>.mr, kGemm<T>.nr>(c->rows, c->columns, *k, a_panel, b_panel, *beta, classify(*beta),
                                             static_cast<T*>(c->data), c->ld);
}

// ---- Strategy ------------------------------------------------------------------------------------------------------

template <class T>
int32_t check_strategy(strategy* s) {
  if (s->strategy_code == kNoCopy && kParts<T> == 2) s->strategy_code = kFullCopy;
  const bool in_place = s->strategy_code == kNoCopy;
  if (in_place) s->first = 4;
  const int64_t mr = in_place ? kGemm<T>.unpacked_rows : kGemm<T>.mr;
  const int64_t nr = in_place ? kGemm<T>.unpacked_columns : kGemm<T>.nr;
  const bool unchanged = s->mr == mr && s->nr == nr && s->ku == 1;
  s->mr = mr;
  s->nr = nr;
  s->ku = 1;
  s->padded_mr = round_up(s->mr, 8);
  s->padded_nr = round_up(s->nr, 8);
  s->padded_ku = round_up(s->ku, 8);
  if (s->strategy_code == 0) s->strategy_code = kFullCopy;
  if (s->first == 0) s->first = 2;
  if (s->third == 0) s->third = 4;
  return unchanged;
}

template <class T>
void initialize_strategy(strategy* s) {
  *s = {};
  s->mr = kGemm<T>.mr;
  s->nr = kGemm<T>.nr;
  s->ku = 1;
  s->check = check_strategy<T>;
}

template <class T>
int32_t map_thread_to_kernel(const thread_info* thread, strategy* s) {
  initialize_strategy<T>(s);
  switch (thread->mode) {
    case 0:
      s->strategy_code = kFullCopy;
      break;
    case 1:
      s->strategy_code = kACopied;
      break;
    case 3:
      s->strategy_code = kPartitioned32;
      break;
    case 5:
      s->strategy_code = kNoCopy;
      break;
    default:
      break;
  }
  return s->check(s);
}

// ---- Buffers -------------------------------------------------------------------------------------------------------

inline constexpr int64_t kPage = 4096, kLargePage = 0x200000, kAOffset = 1664, kBOffset = 768;
inline constexpr int64_t kHeaderBytes = 8192;
// Room for the alignment of a panel: of B, of A in a packed buffer's request per thread, of both in one allocation.
inline constexpr int64_t kBSlack = 2 * kPage + kBOffset, kASlack = 2 * kPage + kAOffset;
inline constexpr int64_t kABSlack = 2 * kLargePage + kBSlack + kAOffset;

TEV_INLINE char* align_up(void* address, int64_t boundary) {
  const auto bits = reinterpret_cast<uintptr_t>(address);
  return static_cast<char*>(address) + (-bits & static_cast<uintptr_t>(boundary - 1));
}

TEV_INLINE int64_t panel_bytes(const panel& p) { return p.kc * p.extent * p.element_size; }

TEV_INLINE int64_t thread_stride_of(const panel& p, int64_t offset) { return round_up(panel_bytes(p) + offset, kPage); }

// Bytes to ask for, 0 for a mode without buffers. Packed buffers have a header before their panel.
TEV_INLINE int64_t bytes_wanted(const buffers* b, bool with_header) {
  const int64_t a_bytes = panel_bytes(b->a), b_bytes = panel_bytes(b->b);
  switch (b->mode) {
    case 1:
      return a_bytes + (with_header ? 3 : 2) * kLargePage + kAOffset;
    case 2:
      return b_bytes + (with_header ? 3 * kLargePage + kBOffset : kBSlack);
    case 3:
      return a_bytes + b_bytes + kABSlack;
    case 4:
      return (b_bytes + kBSlack) * b->threads + 2 * kLargePage;
    case 5:
      return with_header ? (a_bytes + kASlack) * b->threads + 2 * kLargePage : 0;
    default:
      return 0;
  }
}

TEV_INLINE void place_per_thread(void* base, panel* p, int64_t offset, buffers* b) {
  p->data = align_up(base, kLargePage);
  b->thread_stride = thread_stride_of(*p, offset);
}

// Leaves the address of a panel that the mode does not hold alone: a caller may have put one there.
template <class T>
int32_t get_bufs(buffers* b) {
  const int64_t bytes = bytes_wanted(b, false);
  if (bytes == 0) return 1;
  b->base = tev_serv_allocate(bytes, 128);
  if (b->base == nullptr) return 1;
  if (b->mode == 4) {
    place_per_thread(b->base, &b->b, kBOffset, b);
    return 0;
  }
  char* after_b = static_cast<char*>(b->base);
  if (b->mode != 1) {
    b->b.data = align_up(b->base, kPage) + kBOffset;
    after_b = static_cast<char*>(b->b.data) + panel_bytes(b->b);
  }
  if (b->mode != 2) b->a.data = align_up(after_b, kLargePage) + kAOffset;
  return 0;
}

template <class T>
int32_t set_bufs_pack(void* base, buffers* b) {
  panel* const p = b->mode == 1 || b->mode == 5 ? &b->a : &b->b;
  switch (b->mode) {
    case 1:
    case 2: {
      p->data = align_up(static_cast<char*>(base) + kHeaderBytes, kLargePage) + (b->mode == 1 ? kAOffset : kBOffset);
      *static_cast<int64_t*>(base) = (static_cast<char*>(p->data) - static_cast<char*>(base)) / 8;
      return 0;
    }
    case 4:
    case 5:
      place_per_thread(base, p, b->mode == 4 ? kBOffset : kAOffset, b);
      return 0;
    default:
      return 1;
  }
}

template <class T>
int32_t get_bufs_pack(buffers* b) {
  const int64_t bytes = bytes_wanted(b, true);
  if (bytes == 0) return 1;
  b->base = tev_serv_allocate(bytes, 128);
  if (b->base == nullptr) return 1;
  set_bufs_pack<T>(b->base, b);
  if (b->mode > 2) return 0;
  // What the panel holds, for whoever is handed the buffer later. Word 0 is set_bufs_pack's.
  auto* header = static_cast<int64_t*>(b->base);
  header[1] = b->mc;
  header[2] = b->nc;
  header[3] = b->kc;
  header[10] = b->mode == 1 ? 0 : 1;
  header[11] = -1;
  header[20] = 1;
  return 0;
}

template <class T>
int32_t free_bufs(buffers* b) {
  tev_serv_deallocate(b->base);
  b->base = b->a.data = b->b.data = nullptr;
  return 0;
}

TEV_INLINE panel make_panel(int64_t kc, int64_t extent, int64_t strip, int64_t ku, int64_t element_size) {
  const int64_t padded_kc = round_up(kc, ku);
  return {.at = getPointer_buffer,
          .offset = 0,
          .kc = kc,
          .extent = extent,
          .strip_stride = strip * padded_kc,
          .ku = ku,
          .strip = strip,
          .padded_kc = padded_kc,
          .element_size = element_size,
          .data = nullptr};
}

// Below this depth panels of B are this narrow: they and a strip of A then share the first cache.
inline constexpr int64_t kShallow = 48, kShallowColumns = 24;

template <class T>
int32_t initialize_buffers(const operand* a, const operand* b, const strategy* s, buffers* out) {
  constexpr gemm_shape shape = kGemm<T>;
  const int64_t m = a->rows, k = a->columns, n = b->columns;
  const int64_t kc_cap = s->wide_block != 0 ? shape.wide_kc : shape.kc;
  const int64_t nc_cap = k < kShallow ? kShallowColumns : s->wide_block != 0 ? shape.wide_nc : shape.nc;
  const int64_t kc = k <= shape.one_panel_to      ? max_of(round_up(k, s->ku), 128)
                     : k < shape.full_panels_from ? round_up(k / 2, s->ku)
                                                  : kc_cap;
  const int64_t mc = round_up(min_of(max_of(s->mr, m), shape.mc), s->mr);
  const int64_t nc = round_up(min_of(max_of(s->nr, n), nc_cap), s->nr);
  const bool packs = s->pack == 2;
  *out = {.base = nullptr,
          .a = make_panel(kc, mc, s->mr, s->ku, sizeof(T)),
          .b = make_panel(kc, nc, s->nr, s->ku, sizeof(T)),
          .a_alignment = 128,
          .b_alignment = 128,
          .mode = s->strategy_code == kACopied ? 2 : 3,
          .mc = mc,
          .nc = nc,
          .kc = kc,
          .a_offset = kAOffset,
          .large_alignment = kLargePage,
          .b_offset = kBOffset,
          .page_alignment = kPage,
          .reserved = 1,
          .get = packs ? get_bufs_pack<T> : get_bufs<T>,
          .set = packs ? set_bufs_pack<T> : nullptr,
          .free = free_bufs<T>,
          .threads = 1,
          .thread_stride = 0};
  return 0;
}

}  // namespace tev::TEV_TIER
